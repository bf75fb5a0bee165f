#include "tools/Quorvelcli.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "platform/Console.h"
#include "platform/Files.h"
#include "vst2/Srvsthost.h"

namespace Quorvel::Cli {
namespace {

const char* const kUsage =
    "usage:\n"
    "  quorvel info PLUGIN\n"
    "      identity, flags, capabilities, channels, latency, programs and parameters\n"
    "  quorvel info MODULE.vst3 [-c CLASS]\n"
    "      a VST 3 module (file or bundle folder): its factory and classes, then the\n"
    "      chosen class opened (the first, or -c NAME or {ID}): buses and parameters\n"
    "  quorvel params PLUGIN [--tab] [settings]\n"
    "      index, name, label, display, value, automatable and properties of each\n"
    "      parameter (--tab: separated by tabs)\n"
    "  quorvel programs PLUGIN [--tab] [settings]\n"
    "      index and name of each program; * marks the selected one\n"
    "  quorvel preset save|load PLUGIN FILE [settings]\n"
    "  quorvel bank save|load PLUGIN FILE [settings]\n"
    "      save: the plug-in's current program (preset) or all its programs (bank)\n"
    "      to FILE, after the settings; load: FILE into the plug-in, and what changed\n"
    "  quorvel preset save MODULE.vst3 FILE.vstpreset [-c CLASS] [--info XML]\n"
    "      the chosen class's component and controller state (and the XML text\n"
    "      of --info) as a VST 3 preset file\n"
    "  quorvel preset load MODULE.vst3 FILE.vstpreset [-c CLASS]\n"
    "      reads a VST 3 preset file; this host reads none (always status 1)\n"
    "  settings, applied after the plug-in opens, in this order:\n"
    "      --bank FILE   a bank file loaded\n"
    "      -P N          program number N selected\n"
    "      --preset FILE a preset file loaded into the selected program\n"
    "      -x NAME=V     the parameter of that name or index set to V (0..1);\n"
    "                    may be repeated\n"
    "  quorvel process PLUGIN -i IN.wav -o OUT.wav [options] [settings]\n"
    "      -b FRAMES     block size the plug-in is run with (1 to 65536, default 256)\n"
    "      -p 32|64      processing precision (default 32)\n"
    "      --bypass      bypass the plug-in (the host passes the input through\n"
    "                    when the plug-in cannot bypass itself)\n"
    "      --tail SECONDS  how long to let the plug-in ring out after the input\n"
    "                    (default: the tail the plug-in reports, else 0)\n"
    "      --no-latency-compensation\n"
    "                    keep the plug-in's reported delay at the output's start\n"
    "      --isolate     run the plug-in in a child process, so that a plug-in\n"
    "                    that crashes ends with a report and no output file\n"
    "      -q            no progress bar\n"
    "      The output is written only when processing succeeded; it may not be\n"
    "      the input file, a preset or bank file it reads, or the plug-in.\n"
    "      A VST 3 module (PLUGIN ending in .vst3) runs its first audio effect:\n"
    "      the file's channels feed its main input bus, its main output bus is\n"
    "      written; -b, -p, --bypass, --tail, --isolate and -q apply to it.\n"
    "  quorvel edit PLUGIN [-s SECONDS] [--screenshot FILE.png]\n"
    "      the plug-in's editor in a window of its own, until it is closed or for\n"
    "      SECONDS; --screenshot saves the window (PNG; .bmp on Windows) after\n"
    "      SECONDS (default 1); a VST 3 module shows its first class's view\n"
    "  quorvel run CHAIN.json [-s SECONDS]\n"
    "      the components of a chain document, connected and run from their\n"
    "      sources (files to their end; tones and devices for -s seconds, default 2)\n"
    "  quorvel components\n"
    "      the component classes a chain document can name\n"
    "  quorvel demo [-o OUT.wav] [-s SECONDS] [-f HZ] [-p PLUGIN]\n"
    "      a tone through the bundled test plug-in (default quorvel-demo.wav)\n"
    "  quorvel asio list\n"
    "      the installed ASIO drivers\n"
    "  quorvel asio info NAME\n"
    "      driver version, sample rates, latencies, buffer sizes, clocks, channels\n"
    "  quorvel asio run NAME [-s SECONDS] [-r RATE] [-b FRAMES] [-p PLUGIN]... [-q]\n"
    "      the driver's inputs through the plug-ins (none: straight) to its outputs\n"
    "      -s SECONDS    how long to run (default 2)\n"
    "      -r RATE       sample rate to set (default: the driver's current rate)\n"
    "      -b FRAMES     buffer size (default: the driver's preferred size)\n"
    "      -p PLUGIN     a VST 2 plug-in or VST 3 module (.vst3) in the chain, in\n"
    "                    the order given; may be repeated\n"
    "      -q            no progress bar\n"
    "      On Windows the drivers are those installed in the registry; on Linux,\n"
    "      which has no ASIO registry, they are the bundled test drivers\n"
    "      (\"Quorvel Test ASIO\", \"Quorvel Test ASIO Float\"), registered in process.\n"
    "  quorvel volume list\n"
    "      the active audio endpoints: level, friendly name, identifier (Windows)\n"
    "  quorvel volume get [DEVICE]\n"
    "  quorvel volume set [DEVICE] LEVEL\n"
    "      an endpoint's master level (0 to 1); DEVICE is a friendly name, an\n"
    "      identifier or DEFAULT (the default output, also when left out)\n"
    "  quorvel volume watch [DEVICE] [-s SECONDS] [-c CHANNELS] [-i MS]\n"
    "      levels and peak meters, redrawn in place on a terminal (plain lines\n"
    "      otherwise) every -i milliseconds (default 100) for -s seconds (default:\n"
    "      until interrupted); -c 1 shows the master level, more one per channel\n"
    "  quorvel mixer list [-d DEVICE]\n"
    "      the winmm mixer devices: destinations, connections and controls with\n"
    "      their detailed names, kinds, types, ranges and values (no devices on Linux)\n"
    "  quorvel mixer get \"DETAILED NAME\" [-d DEVICE]\n"
    "  quorvel mixer set \"DETAILED NAME\" VALUE [-d DEVICE]\n"
    "      a control's value (an integer in its range; on or off for switches and\n"
    "      lists) on DEVICE, or on the first device that has the control\n"
    "  quorvel mixer watch [-d DEVICE] [-s SECONDS] [-i MS]\n"
    "      the controls' changes as they arrive, checked every -i milliseconds\n"
    "      (default 200) for -s seconds (default: until interrupted)\n"
    "  quorvel dmo list\n"
    "      the audio-effect DMOs and the input and output types of each (Windows)\n"
    "  quorvel dmo process NAME -i IN.wav -o OUT.wav [--type N | --auto] [-x I=V]... [-q]\n"
    "      a WAV file through a DMO; types chosen against the file (--auto, the\n"
    "      default) or the DMO's type N on both sides; -x sets parameter I to V\n"
    "  quorvel acm list\n"
    "      the ACM codecs and their formats (Windows)\n"
    "  quorvel encode -i IN.wav -o OUT.wav --format NAME [-q]\n"
    "      a PCM WAV file into a WAV file of the codec's format (Windows)\n"
    "  quorvel decode -i IN -o OUT.wav [--format NAME] [-r RATE -c CHANNELS] [-q]\n"
    "      an encoded WAV file, or headerless data of the named format, into\n"
    "      16-bit PCM (Windows)\n"
    "  quorvel log -i IN.wav -o OUT.raw [--format NAME] [-q]\n"
    "      the file's samples through the raw logger, as bare bytes: its PCM, or\n"
    "      with --format what the codec makes of it (Windows)\n"
    "  quorvel ds list [CATEGORY]\n"
    "      DirectShow filters by category: audio-capture, audio-renderer,\n"
    "      audio-compressor, filters, midi-renderer (Windows)\n"
    "  quorvel ds capture FILTER -o OUT.wav -s SECONDS [-r RATE] [-c CHANNELS] [-b BITS]\n"
    "                    [--buffer FRAMES] [-q]\n"
    "      audio from an audio-capture filter into a WAV file\n"
    "  quorvel ds render -i IN.wav FILTER [--category CATEGORY] [-o FILE] [-q]\n"
    "      a WAV file into a filter (audio-renderer by default); -o puts a file\n"
    "      writer after it, for multiplexers\n"
    "  format NAMEs: ima-adpcm, ms-adpcm, alaw, mulaw, gsm610, mpeg-layer3 (the\n"
    "      codec's format at the file's rate and channels), or an exact name as\n"
    "      quorvel acm list prints it\n";

}  // namespace

int Usage() {
  std::fputs(kUsage, stderr);
  return 2;
}

void PrintUsage() { std::fputs(kUsage, stdout); }

int Fail(const std::string& Message) {
  std::fprintf(stderr, "quorvel: %s\n", Message.c_str());
  return 1;
}

void Warn(const std::string& Message) { std::fprintf(stderr, "quorvel: warning: %s\n", Message.c_str()); }

bool ParseDouble(const std::string& Text, double& Value) {
  if (Text.empty() || std::isspace(static_cast<unsigned char>(Text[0]))) return false;
  char* End = nullptr;
  Value = std::strtod(Text.c_str(), &End);
  return End && *End == '\0' && End != Text.c_str() && std::isfinite(Value);
}

bool ParseInt(const std::string& Text, long& Value) {
  if (Text.empty() || std::isspace(static_cast<unsigned char>(Text[0]))) return false;
  char* End = nullptr;
  errno = 0;
  Value = std::strtol(Text.c_str(), &End, 10);
  return End && *End == '\0' && End != Text.c_str() && errno != ERANGE;
}

int ParseOptions(const TArgs& Args, const std::vector<TOption>& Options, TArgs& Positional, size_t MaxPositional) {
  for (size_t I = 0; I < Args.size(); ++I) {
    const std::string& A = Args[I];
    const auto Option = std::find_if(Options.begin(), Options.end(), [&](const TOption& O) { return O.Name == A; });
    if (Option == Options.end()) {
      if (A.size() > 1 && A[0] == '-') {
        Fail("unknown option " + A);
        return Usage();
      }
      if (Positional.size() >= MaxPositional) {
        Fail("unexpected argument " + A);
        return Usage();
      }
      Positional.push_back(A);
      continue;
    }
    std::string Value;
    if (Option->TakesValue) {
      if (I + 1 >= Args.size()) {
        Fail(A + " needs a value (" + Option->Expected + ")");
        return Usage();
      }
      Value = Args[++I];
    }
    if (!Option->Apply(Value)) {
      Fail("bad value for " + A + ": \"" + Value + "\" (" + Option->Expected + ")");
      return Usage();
    }
  }
  return 0;
}

std::string CheckExistingFile(const std::string& What, const std::string& Path) {
  switch (Platform::GetPathKind(Path)) {
    case Platform::TPathKind::pkFile: return std::string();
    case Platform::TPathKind::pkMissing: return What + " " + Path + " does not exist";
    case Platform::TPathKind::pkDirectory: return What + " " + Path + " is a folder, not a file";
    default: return What + " " + Path + " is not a regular file";
  }
}

TOutputFile::~TOutputFile() {
  if (!FAdopted) Abandon();
}

bool TOutputFile::Prepare(const std::string& Name, const std::vector<TInput>& Inputs) {
  FName = Name;
  if (Platform::GetPathKind(Name) == Platform::TPathKind::pkDirectory) {
    Fail("the output " + Name + " is a folder");
    return false;
  }
  for (const auto& Input : Inputs)
    if (Platform::IsSameFile(Name, Input.Path)) {
      Fail("the output " + Name + " is " + Input.What + " " + Input.Path + " (the same file); choose another output");
      return false;
    }
  FTarget = Platform::ResolveWriteTarget(Name);
  std::string Reason;
  FWork = Platform::CreateTemporaryFileBeside(FTarget, Reason);
  if (FWork.empty()) {
    Fail("cannot write " + Name + ": " + Reason);
    return false;
  }
  Platform::RemoveOnInterrupt(FWork);
  return true;
}

void TOutputFile::Adopt(const std::string& Name, const std::string& WorkName) {
  FName = Name;
  FWork = WorkName;
  FAdopted = true;
}

bool TOutputFile::Commit() {
  if (FAdopted) return true;
  std::string Reason;
  Platform::ForgetOnInterrupt();
  if (!Platform::PutFileInPlace(FWork, FTarget, Reason)) {
    Abandon();
    Fail(Reason);
    return false;
  }
  FWork.clear();
  return true;
}

void TOutputFile::Abandon() {
  if (FWork.empty()) return;
  Platform::ForgetOnInterrupt();
  Platform::RemoveFile(FWork);
  FWork.clear();
}

void TReports::Attach(TWBComponent& C) {
  C.OnError = [this](TWBComponent*, const std::string& Message, int32_t, bool& Handled) {
    std::lock_guard<std::mutex> L(FMutex);
    FErrors.push_back(Message);
    Handled = true;
  };
  C.OnWarning = [](TWBComponent*, const std::string& Message, int32_t) { Warn(Message); };
}

bool TReports::Empty() const {
  std::lock_guard<std::mutex> L(FMutex);
  return FErrors.empty();
}

size_t TReports::Count() const {
  std::lock_guard<std::mutex> L(FMutex);
  return FErrors.size();
}

std::string TReports::First() const {
  std::lock_guard<std::mutex> L(FMutex);
  return FErrors.empty() ? std::string() : FErrors.front();
}

std::string TReports::Last() const {
  std::lock_guard<std::mutex> L(FMutex);
  return FErrors.empty() ? std::string() : FErrors.back();
}

bool OpenPlugIn(TSRVSTHost& Host, TReports& Reports, const std::string& File) {
  // A missing file is the host's to report; a folder or a device never reaches it.
  const auto Kind = Platform::GetPathKind(File);
  if (Kind != Platform::TPathKind::pkMissing && Kind != Platform::TPathKind::pkFile) {
    Fail(CheckExistingFile("plug-in", File));
    return false;
  }
  if (Host.Open(File)) return true;
  if (!Reports.Empty())
    Fail(Reports.Last());
  else
    Fail(File + " is not a VST 2 plug-in (no entry point, or it made no effect)");
  return false;
}

std::string CountText(int32_t Count, const char* Things) {
  if (Count <= 0)
    return std::string("the plug-in has no ") + Things +
           (Count < 0 ? " (it reports " + std::to_string(Count) + ")" : std::string());
  return "the plug-in has " + std::to_string(Count);
}

TProgressBar::TProgressBar(bool Enabled) : FEnabled(Enabled && Platform::StandardErrorIsTerminal()) {}

void TProgressBar::Show(uint64_t Done, uint64_t Total) {
  if (!FEnabled || Total == 0) return;
  const int Percent = static_cast<int>(std::min(Done, Total) * 100 / Total);
  if (Percent == FLast) return;
  FLast = Percent;
  const int Width = 40, Filled = Percent * Width / 100;
  std::fprintf(stderr, "\r[%s%s] %3d%%", std::string(static_cast<size_t>(Filled), '#').c_str(),
               std::string(static_cast<size_t>(Width - Filled), ' ').c_str(), Percent);
  std::fflush(stderr);
}

void TProgressBar::Finish() {
  if (FEnabled && FLast >= 0) std::fputc('\n', stderr);
}

}  // namespace Quorvel::Cli
