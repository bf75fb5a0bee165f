// What the commands of the command-line host share: exit codes and messages,
// the option parser, number parsing, the collection of component reports,
// checks of the files a command is given, opening a plug-in and the progress
// bar. Everything runs on the program's main thread.
#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "frame/Wbcomponent.h"

namespace Quorvel {

class TSRVSTHost;

namespace Cli {

using TArgs = std::vector<std::string>;

// Prints the usage to standard error; answers exit status 2.
int Usage();
// Prints the usage to standard output (help asked for).
void PrintUsage();
// Prints "quorvel: Message" to standard error; answers exit status 1.
int Fail(const std::string& Message);
// Prints "quorvel: warning: Message" to standard error.
void Warn(const std::string& Message);
// Whole-text numbers: false for empty text, blanks or other characters around
// the number, or (doubles) non-finite values.
bool ParseDouble(const std::string& Text, double& Value);
bool ParseInt(const std::string& Text, long& Value);

// One option of a command: a name ("-b", "--bypass"), whether a value
// follows it, and what to do with the value; Apply answers false for a bad
// value, and Expected then says what a good one is.
struct TOption {
  std::string Name;
  bool TakesValue;
  std::function<bool(const std::string& Value)> Apply;
  std::string Expected;
};

// Parses Args: options anywhere, the rest positional (at most MaxPositional).
// Answers 0 when all was taken; otherwise prints what is wrong and the usage
// and answers exit status 2.
int ParseOptions(const TArgs& Args, const std::vector<TOption>& Options, TArgs& Positional, size_t MaxPositional);

// Answers "" when Path names a regular file, else the message for it
// ("<What> <Path> does not exist", "... is a folder, not a file").
std::string CheckExistingFile(const std::string& What, const std::string& Path);

// The file a command writes, made so that nothing is lost: it may not be one
// of the command's inputs under any name, it is written under a temporary name
// in the same folder, and it takes the target's place only on Commit. Until
// then an existing file of that name stays as it was, also when the program
// is interrupted or a plug-in crashes.
class TOutputFile {
 public:
  struct TInput {
    std::string What;  // "the input", "the plug-in"
    std::string Path;
  };
  TOutputFile() = default;
  TOutputFile(const TOutputFile&) = delete;
  TOutputFile& operator=(const TOutputFile&) = delete;
  // Removes the temporary file unless it was committed or adopted.
  ~TOutputFile();
  // Checks Name against Inputs and creates the temporary file; prints why and
  // answers false when the output cannot be made.
  bool Prepare(const std::string& Name, const std::vector<TInput>& Inputs);
  // Writes to WorkName, which another process prepared and will commit.
  void Adopt(const std::string& Name, const std::string& WorkName);
  const std::string& GetWorkName() const { return FWork; }
  // Puts the written file in Name's place (a link keeps pointing at it); an
  // adopted file is left for its owner. Prints why and answers false on failure.
  bool Commit();
  // Deletes the temporary file now.
  void Abandon();

 private:
  std::string FName, FTarget, FWork;
  bool FAdopted = false;
};

// Collects the errors of the components it is attached to (so that none
// raises) and prints their warnings; the command decides what to do with the
// errors. Handlers may run on stream or driver threads: Errors is guarded.
class TReports {
 public:
  void Attach(TWBComponent& C);
  bool Empty() const;
  size_t Count() const;
  std::string First() const;
  std::string Last() const;

 private:
  mutable std::mutex FMutex;
  std::vector<std::string> FErrors;
};

// Opens File in Host (one load of the library, one effect); on failure prints
// why and answers false. Set the host's rate and block size first.
bool OpenPlugIn(TSRVSTHost& Host, TReports& Reports, const std::string& File);

// "the plug-in has N" for messages about programs and parameters.
std::string CountText(int32_t Count, const char* Things);

// What a command sets in a plug-in after opening it and before its work, in
// this order: a bank, a program, a preset, single parameters.
struct TPlugInSettings {
  std::string Bank, Preset;
  long Program = -1;
  std::vector<std::string> Parameters;  // "NAME=VALUE" as given
};
// Adds --bank, -P, --preset and -x to Options, filling Settings.
void AddSettingOptions(std::vector<TOption>& Options, TPlugInSettings& Settings);
// Applies Settings to the open plug-in; prints why and answers false when
// one of them cannot be applied (an unknown parameter, a bad file, ...).
bool ApplySettings(TSRVSTHost& Host, TReports& Reports, const TPlugInSettings& Settings);
// Loads a preset (or bank) file into the open plug-in once it is checked to
// be whole; prints why and answers false when it is missing, cut short,
// damaged or for another plug-in (nothing of it is applied then).
bool LoadPlugInFile(TSRVSTHost& Host, TReports& Reports, const std::string& File, bool Bank);

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

// The commands; Args start after the command's name.
int Info(const TArgs& Args);     // quorvel.cpp
// A VST 3 module (a path ending in .vst3: file or bundle folder); -1 when Args name none.
int InfoVst3(const TArgs& Args);  // Quorvelvst3info.cpp
int Params(const TArgs& Args);    // Quorvelparams.cpp
int Programs(const TArgs& Args);  // Quorvelparams.cpp
int Preset(const TArgs& Args);    // Quorvelparams.cpp: preset save|load
// preset save|load with a VST 3 module (a path ending in .vst3); -1 when Args name none.
int PresetVst3(const TArgs& Args);  // Quorvelvst3preset.cpp
int Bank(const TArgs& Args);      // Quorvelparams.cpp: bank save|load
int Demo(const TArgs& Args);     // quorvel.cpp
int Process(const TArgs& Args);  // Quorvelprocess.cpp
int Edit(const TArgs& Args);     // Quorveledit.cpp
int Asio(const TArgs& Args);     // Quorvelasio.cpp
int Volume(const TArgs& Args);   // Quorvelvolume.cpp (Windows), Quorvelvolume_posix.cpp
int Mixer(const TArgs& Args);    // Quorvelmixer.cpp
int Dmo(const TArgs& Args);      // Quorveldmo.cpp (Windows), Quorvelmedia_posix.cpp
int Acm(const TArgs& Args);      // Quorvelacm.cpp (Windows), Quorvelmedia_posix.cpp
int Encode(const TArgs& Args);   // Quorvelacm.cpp (Windows), Quorvelmedia_posix.cpp
int Decode(const TArgs& Args);   // Quorvelacm.cpp (Windows), Quorvelmedia_posix.cpp
int Log(const TArgs& Args);      // Quorvelmedia.cpp
int Ds(const TArgs& Args);       // Quorvelds.cpp (Windows), Quorvelmedia_posix.cpp
int RunDocument(const TArgs& Args);     // Quorvelrun.cpp
int ListComponents(const TArgs& Args);  // Quorvelrun.cpp
// Installs the drivers bundled with the program where ASIOGetDriverNames
// looks, on systems without a driver registry; elsewhere does nothing.
void RegisterBundledAsioDrivers();

}  // namespace Cli
}  // namespace Quorvel
