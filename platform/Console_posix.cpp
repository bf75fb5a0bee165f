#include "platform/Console.h"

#include <unistd.h>

namespace Quorvel::Platform {

bool StandardErrorIsTerminal() { return isatty(STDERR_FILENO) == 1; }

bool StandardOutputIsTerminal() { return isatty(STDOUT_FILENO) == 1; }

bool EnableTerminalSequences() { return StandardOutputIsTerminal(); }

}  // namespace Quorvel::Platform
