// The program's console.
#pragma once

namespace Quorvel::Platform {

// [any thread] Whether standard error is a terminal (progress bars go there only then).
bool StandardErrorIsTerminal();
// [any thread] Whether standard output is a terminal (displays that redraw
// themselves in place go there only then).
bool StandardOutputIsTerminal();
// [main thread] Lets standard output's terminal act on ANSI cursor and erase
// sequences (a Windows console must be told to); false when it cannot.
bool EnableTerminalSequences();

}  // namespace Quorvel::Platform
