// The program's console.
#pragma once

namespace Quorvel::Platform {

// [any thread] Whether standard error is a terminal (progress bars go there only then).
bool StandardErrorIsTerminal();

}  // namespace Quorvel::Platform
