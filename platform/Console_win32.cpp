#include "platform/Console.h"

#include <windows.h>

namespace Quorvel::Platform {

bool StandardErrorIsTerminal() {
  DWORD Mode = 0;
  return GetConsoleMode(GetStdHandle(STD_ERROR_HANDLE), &Mode) != 0;
}

bool StandardOutputIsTerminal() {
  DWORD Mode = 0;
  return GetConsoleMode(GetStdHandle(STD_OUTPUT_HANDLE), &Mode) != 0;
}

bool EnableTerminalSequences() {
  const HANDLE Output = GetStdHandle(STD_OUTPUT_HANDLE);
  DWORD Mode = 0;
  if (!GetConsoleMode(Output, &Mode)) return false;
  constexpr DWORD kVirtualTerminalProcessing = 0x0004;  // ENABLE_VIRTUAL_TERMINAL_PROCESSING
  return (Mode & kVirtualTerminalProcessing) || SetConsoleMode(Output, Mode | kVirtualTerminalProcessing);
}

}  // namespace Quorvel::Platform
