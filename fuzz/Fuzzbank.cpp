// libFuzzer target: bank files. Any bytes are loaded as a bank into the test
// plug-in, in both its parameter and its chunk variant; loading must never
// crash, hang, read beyond the input or allocate more than it holds, and the
// host's own bank must load back afterwards.
#include "fuzz/Fuzzpresetcommon.h"

using namespace Quorvel;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* Data, size_t Size) {
  Fuzzing::LoadIntoBoth(
      Data, Size, [](TSRVSTHost& H, TWBStream& S) { H.LoadBank(S); },
      [](TSRVSTHost& H, TWBStream& S) { H.SaveBank(S); });
  return 0;
}
