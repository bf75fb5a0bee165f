// The running program's own arguments and running it again as a child.
#pragma once

#include <string>
#include <vector>

namespace Quorvel::Platform {

// [main thread] The program's arguments in UTF-8, the program's name first.
// On Windows they are read from the UTF-16 command line, so any file name
// arrives intact whatever the system's code page.
std::vector<std::string> GetProgramArguments(int Argc, char** Argv);

struct TChildResult {
  bool Started = false;   // false: the child could not be started (Reason says why)
  bool Crashed = false;   // ended by a signal or an unhandled exception
  int ExitCode = 0;       // the child's exit status when it ended normally
  std::string Reason;     // why it did not start, or what ended it
};

// [main thread] Runs this program again with Arguments (without the program's
// own name), sharing standard input, output and error, and waits for it.
TChildResult RunSelf(const std::vector<std::string>& Arguments);

}  // namespace Quorvel::Platform
