// Readability through the system: ReadProcessMemory on the own process fails
// instead of faulting when the source is not committed and readable.
#include "testplugins/vst2/Qvreadable.h"

#include <windows.h>

namespace Quorvel::Qvtestplugin {

bool CopyIfReadable(void* Dest, const void* Source, size_t Size) noexcept {
  if (!Source) return false;
  if (Size == 0) return true;
  SIZE_T Read = 0;
  return ReadProcessMemory(GetCurrentProcess(), Source, Dest, Size, &Read) && Read == Size;
}

}  // namespace Quorvel::Qvtestplugin
