// libFuzzer target: parameter-structure (VSTXML) documents. Any bytes are
// parsed; a refused document must leave nothing behind, and an accepted one
// is attached to a host's list of 64 parameters (no plug-in loaded), every
// attached entry at the index its moved id names, and read back through the
// parameter objects.
#include <cstddef>
#include <cstdint>
#include <string>

#include "vst2/Srvsthost.h"
#include "vst2/Srvsthostvstxml.h"

using namespace Quorvel;

namespace {
constexpr int32_t kParameterCount = 64;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* Data, size_t Size) {
  TSRVSTXMLParameterStructure Structure;
  std::string Error;
  if (!Structure.Parse(Data, Size, Error)) {
    if (!Structure.Empty() || Error.empty()) __builtin_trap();
    return 0;
  }
  static TSRVSTHost Host;
  TSRVSTParameters& Parameters = Host.GetParameters();
  Parameters.Rebuild(kParameterCount);
  const size_t Attached = Structure.Attach(Parameters);
  size_t Seen = 0;
  for (size_t I = 0; I < Parameters.Count(); ++I) {
    TSRVSTParameter& P = Parameters[I];
    const TSRVSTParameterStructureEntry* Entry = P.GetStructureEntry();
    if (!Entry) continue;
    ++Seen;
    if (Entry->Id != int32_t(I)) __builtin_trap();
    if (!Entry->Name.empty() && P.GetName() != Entry->Name) __builtin_trap();
    if (P.GetDefaultValue().Available() != Entry->HasDefaultValue) __builtin_trap();
    if (P.GetValues().Entries.size() != Entry->Values.size()) __builtin_trap();
    (void)P.GetLabel();
    (void)P.GetNumStates();
  }
  if (Seen != Attached) __builtin_trap();
  return 0;
}
