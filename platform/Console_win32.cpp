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

bool MoveCursorUp(int Lines) {
  // The console's own cursor calls: older consoles (and Wine's) do not act on
  // ANSI sequences.
  const HANDLE Output = GetStdHandle(STD_OUTPUT_HANDLE);
  CONSOLE_SCREEN_BUFFER_INFO Info;
  if (!GetConsoleScreenBufferInfo(Output, &Info)) return false;
  COORD To = Info.dwCursorPosition;
  To.X = 0;
  To.Y = static_cast<SHORT>(To.Y > Lines ? To.Y - Lines : 0);
  return SetConsoleCursorPosition(Output, To) != 0;
}

}  // namespace Quorvel::Platform
