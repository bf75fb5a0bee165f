// What the commands of the command-line host share: exit codes and messages,
// number parsing, the collection of component reports, opening a plug-in and
// the progress bar. Everything runs on the program's main thread.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "frame/Wbcomponent.h"

namespace Quorvel {

class TSRVSTHost;

namespace Cli {

// Prints the usage to standard error; answers exit status 2.
int Usage();
// Prints "quorvel: Message" to standard error; answers exit status 1.
int Fail(const std::string& Message);
// Whole-text numbers: false for empty text, trailing characters, or (doubles) non-finite values.
bool ParseDouble(const char* Text, double& Value);
bool ParseInt(const char* Text, long& Value);

// Collects the errors of the components it is attached to (so that none
// raises) and prints their warnings; the command decides what to do with the
// errors. Handlers may run on stream or driver threads: Errors is guarded.
class TReports {
 public:
  void Attach(TWBComponent& C);
  bool Empty() const;
  std::string First() const;
  std::string Last() const;

 private:
  mutable std::mutex FMutex;
  std::vector<std::string> FErrors;
};

// Opens File in Host; on failure prints why and answers false.
bool OpenPlugIn(TSRVSTHost& Host, TReports& Reports, const std::string& File);

// A bar on standard error, shown only when it is a terminal and Enabled.
class TProgressBar {
 public:
  explicit TProgressBar(bool Enabled);
  void Show(uint64_t Done, uint64_t Total);
  void Finish();

 private:
  bool FEnabled;
  int FLast = -1;
};

// `quorvel asio ...` (Quorvelasio.cpp); Argv starts after "asio".
int Asio(int Argc, char** Argv);
// Installs the drivers bundled with the program where ASIOGetDriverNames
// looks, on systems without a driver registry; elsewhere does nothing.
void RegisterBundledAsioDrivers();

}  // namespace Cli
}  // namespace Quorvel
