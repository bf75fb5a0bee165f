// The program's console.
#pragma once

namespace Quorvel::Platform {

// [any thread] Whether standard error is a terminal (progress bars go there only then).
bool StandardErrorIsTerminal();
// [any thread] Whether standard output is a terminal (displays that redraw
// themselves in place go there only then).
bool StandardOutputIsTerminal();
// [main thread] Moves the cursor of standard output's terminal to the start
// of the line Lines above the current one, so that a display can be drawn
// again over itself (flush standard output first). False when it cannot.
bool MoveCursorUp(int Lines);

}  // namespace Quorvel::Platform
