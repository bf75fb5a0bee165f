#include "platform/Console.h"

#include <unistd.h>

#include <cstdio>

namespace Quorvel::Platform {

bool StandardErrorIsTerminal() { return isatty(STDERR_FILENO) == 1; }

bool StandardOutputIsTerminal() { return isatty(STDOUT_FILENO) == 1; }

bool MoveCursorUp(int Lines) {
  if (!StandardOutputIsTerminal()) return false;
  if (Lines > 0) std::printf("\x1b[%dA\r", Lines);
  return true;
}

}  // namespace Quorvel::Platform
