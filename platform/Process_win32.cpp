// The UTF-16 command line and running the program again through CreateProcessW.
#include "platform/Process.h"

#include <windows.h>
#include <shellapi.h>

#include <cstdio>

#include "platform/Win32text_win32.h"

namespace Quorvel::Platform {
namespace {

// One argument quoted so that the child's command-line parser gives it back
// unchanged: backslashes are literal except before a quote.
void AppendQuoted(std::wstring& Line, const std::wstring& Argument) {
  if (!Line.empty()) Line += L' ';
  if (!Argument.empty() && Argument.find_first_of(L" \t\n\v\"") == std::wstring::npos) {
    Line += Argument;
    return;
  }
  Line += L'"';
  for (size_t I = 0;; ++I) {
    size_t Backslashes = 0;
    while (I < Argument.size() && Argument[I] == L'\\') {
      ++I;
      ++Backslashes;
    }
    if (I == Argument.size()) {
      Line.append(Backslashes * 2, L'\\');
      break;
    }
    if (Argument[I] == L'"') {
      Line.append(Backslashes * 2 + 1, L'\\');
    } else {
      Line.append(Backslashes, L'\\');
    }
    Line += Argument[I];
  }
  Line += L'"';
}

}  // namespace

std::vector<std::string> GetProgramArguments(int Argc, char** Argv) {
  int Count = 0;
  LPWSTR* Wide = CommandLineToArgvW(GetCommandLineW(), &Count);
  if (!Wide) return std::vector<std::string>(Argv, Argv + (Argc > 0 ? Argc : 0));
  std::vector<std::string> Result;
  for (int I = 0; I < Count; ++I) Result.push_back(FromUtf16(Wide[I]));
  LocalFree(Wide);
  return Result;
}

TChildResult RunSelf(const std::vector<std::string>& Arguments) {
  TChildResult Result;
  std::wstring Self(32768, L'\0');
  const DWORD N = GetModuleFileNameW(nullptr, &Self[0], static_cast<DWORD>(Self.size()));
  if (N == 0 || N >= Self.size()) {
    Result.Reason = "cannot find the running program";
    return Result;
  }
  Self.resize(N);
  std::wstring Line;
  AppendQuoted(Line, Self);
  for (const auto& A : Arguments) {
    std::wstring W;
    if (!ToUtf16(A, W)) {
      Result.Reason = "an argument is not valid UTF-8";
      return Result;
    }
    AppendQuoted(Line, W);
  }
  STARTUPINFOW Startup{};
  Startup.cb = sizeof Startup;
  PROCESS_INFORMATION Process{};
  std::fflush(stdout);
  std::fflush(stderr);
  if (!CreateProcessW(Self.c_str(), &Line[0], nullptr, nullptr, TRUE, 0, nullptr, nullptr, &Startup, &Process)) {
    Result.Reason = "cannot start a child process: " + SystemMessage(GetLastError(), std::string());
    return Result;
  }
  Result.Started = true;
  CloseHandle(Process.hThread);
  WaitForSingleObject(Process.hProcess, INFINITE);
  DWORD Code = 0;
  GetExitCodeProcess(Process.hProcess, &Code);
  CloseHandle(Process.hProcess);
  // Unhandled exceptions end a process with their status code (0xC0000005 and the like).
  if (Code >= 0xC0000000u) {
    Result.Crashed = true;
    char Text[48];
    std::snprintf(Text, sizeof Text, "exception 0x%08lX", static_cast<unsigned long>(Code));
    Result.Reason = Text;
  } else {
    Result.ExitCode = static_cast<int>(Code);
  }
  return Result;
}

}  // namespace Quorvel::Platform
