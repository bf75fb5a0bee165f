// Whether the tests run under Wine, whose Core Audio leaves out the channel
// calls and the meter: the tests of those facts hold there only.
#include <windows.h>

namespace Quorvel::Testing {

bool RunningUnderWine() {
  const HMODULE Ntdll = GetModuleHandleW(L"ntdll.dll");
  return Ntdll && GetProcAddress(Ntdll, "wine_get_version");
}

}  // namespace Quorvel::Testing
