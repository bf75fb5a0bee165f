// libFuzzer target: preset files. Any bytes are loaded as a preset into the
// test plug-in, in both its parameter and its chunk variant; loading must
// never crash, hang, read beyond the input or allocate more than it holds,
// and the host's own preset must load back afterwards.
#include "fuzz/Fuzzpresetcommon.h"

using namespace Quorvel;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* Data, size_t Size) {
  Fuzzing::LoadIntoBoth(
      Data, Size, [](TSRVSTHost& H, TWBStream& S) { H.LoadPreset(S); },
      [](TSRVSTHost& H, TWBStream& S) { H.SavePreset(S); });
  return 0;
}
