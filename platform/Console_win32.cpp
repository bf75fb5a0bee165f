#include "platform/Console.h"

#include <windows.h>

namespace Quorvel::Platform {

bool StandardErrorIsTerminal() {
  DWORD Mode = 0;
  return GetConsoleMode(GetStdHandle(STD_ERROR_HANDLE), &Mode) != 0;
}

}  // namespace Quorvel::Platform
