#include "platform/Console.h"

#include <unistd.h>

namespace Quorvel::Platform {

bool StandardErrorIsTerminal() { return isatty(STDERR_FILENO) == 1; }

}  // namespace Quorvel::Platform
