// Running the program again through posix_spawn.
#include "platform/Process.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

extern char** environ;

namespace Quorvel::Platform {

std::vector<std::string> GetProgramArguments(int Argc, char** Argv) {
  return std::vector<std::string>(Argv, Argv + (Argc > 0 ? Argc : 0));
}

TChildResult RunSelf(const std::vector<std::string>& Arguments) {
  TChildResult Result;
  char Self[4096];
  const ssize_t N = readlink("/proc/self/exe", Self, sizeof Self - 1);
  if (N <= 0) {
    Result.Reason = "cannot find the running program";
    return Result;
  }
  Self[N] = '\0';
  std::vector<std::string> Owned;
  Owned.reserve(Arguments.size() + 1);
  Owned.emplace_back(Self);
  Owned.insert(Owned.end(), Arguments.begin(), Arguments.end());
  std::vector<char*> Argv;
  for (auto& A : Owned) Argv.push_back(&A[0]);
  Argv.push_back(nullptr);
  pid_t Child = 0;
  const int Error = posix_spawn(&Child, Self, nullptr, nullptr, Argv.data(), environ);
  if (Error != 0) {
    Result.Reason = std::string("cannot start a child process: ") + std::strerror(Error);
    return Result;
  }
  Result.Started = true;
  int Status = 0;
  while (waitpid(Child, &Status, 0) < 0) {
    if (errno != EINTR) {
      Result.Crashed = true;
      Result.Reason = std::string("lost the child process: ") + std::strerror(errno);
      return Result;
    }
  }
  if (WIFSIGNALED(Status)) {
    Result.Crashed = true;
    const int Signal = WTERMSIG(Status);
    const char* Name = strsignal(Signal);
    Result.Reason = "signal " + std::to_string(Signal) + (Name ? std::string(", ") + Name : std::string());
  } else {
    Result.ExitCode = WEXITSTATUS(Status);
  }
  return Result;
}

}  // namespace Quorvel::Platform
