// The package's command-line host, built only from the package's components.
//   quorvel info PLUGIN                 what a VST 2 plug-in is and offers
//   quorvel process PLUGIN -i IN -o OUT  a WAV file through a plug-in
//   quorvel demo                         the bundled test plug-in on a generated tone
//   quorvel asio list|info|run           ASIO drivers and a chain through one (Quorvelasio.cpp)
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <mutex>
#include <string>
#include <vector>

#include "frame/Srdemocomponents.h"
#include "frame/Srfilecomponents.h"
#include "platform/Console.h"
#include "platform/Library.h"
#include "tools/Quorvelcli.h"
#include "vst2/Srvsthost.h"

using namespace Quorvel;
using namespace Quorvel::Cli;

namespace {

const char* const kUsage =
    "usage:\n"
    "  quorvel info PLUGIN\n"
    "      identity, flags, capabilities, channels, latency, programs and parameters\n"
    "  quorvel process PLUGIN -i IN.wav -o OUT.wav [options]\n"
    "      -b FRAMES     block size the plug-in is run with (default 256)\n"
    "      -p 32|64      processing precision (default 32)\n"
    "      -P N          program number\n"
    "      -x I=V        parameter I set to V (0..1); may be repeated\n"
    "      --bypass      ask the plug-in to bypass\n"
    "      -q            no progress bar\n"
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
    "      -p PLUGIN     a VST 2 plug-in in the chain; may be repeated\n"
    "      -q            no progress bar\n"
    "      On Windows the drivers are those installed in the registry; on Linux,\n"
    "      which has no ASIO registry, they are the bundled test drivers\n"
    "      (\"Quorvel Test ASIO\", \"Quorvel Test ASIO Float\"), registered in process.\n";

}  // namespace

namespace Quorvel::Cli {

int Usage() {
  std::fputs(kUsage, stderr);
  return 2;
}

int Fail(const std::string& Message) {
  std::fprintf(stderr, "quorvel: %s\n", Message.c_str());
  return 1;
}

bool ParseDouble(const char* Text, double& Value) {
  char* End = nullptr;
  Value = std::strtod(Text, &End);
  return End && *End == '\0' && End != Text && std::isfinite(Value);
}

bool ParseInt(const char* Text, long& Value) {
  char* End = nullptr;
  Value = std::strtol(Text, &End, 10);
  return End && *End == '\0' && End != Text;
}

void TReports::Attach(TWBComponent& C) {
  C.OnError = [this](TWBComponent*, const std::string& Message, int32_t, bool& Handled) {
    std::lock_guard<std::mutex> L(FMutex);
    FErrors.push_back(Message);
    Handled = true;
  };
  C.OnWarning = [](TWBComponent*, const std::string& Message, int32_t) {
    std::fprintf(stderr, "quorvel: warning: %s\n", Message.c_str());
  };
}

bool TReports::Empty() const {
  std::lock_guard<std::mutex> L(FMutex);
  return FErrors.empty();
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
  Host.SetFileName(File);
  if (Host.Open()) return true;
  if (!Reports.Empty())
    Fail(Reports.Last());
  else
    Fail(File + " is not a VST 2 plug-in (no entry point, or it made no effect)");
  return false;
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

namespace {

std::string FourChars(int32_t Id) {
  std::string S;
  for (int Shift = 24; Shift >= 0; Shift -= 8) {
    const char C = static_cast<char>((static_cast<uint32_t>(Id) >> Shift) & 0xFF);
    S += (C >= 32 && C < 127) ? C : '.';
  }
  return S;
}

// ---- info ------------------------------------------------------------------------------

const char* const kEffFlagNames[13] = {"HasEditor", "HasClip", "HasVu", "CanMono", "CanReplacing",
                                       "ProgramChunks", "Unused1", "Unused2", "IsSynth", "NoSoundInStop",
                                       "ExtIsAsync", "ExtHasBuffer", "CanDoubleReplacing"};
const char* const kSuportNames[18] = {
    "HasClip", "HasVu", "CanMono", "CanReplacing", "ProgramChunks", "IsSynth", "NoSoundInStop", "ExtIsAsync",
    "ExtHasBuffer", "CanDoubleReplacing", "SendVstEvents", "SendVstMidiEvent", "ReceiveVstEvents",
    "ReceiveVstMidiEvent", "ReceiveVstTimeInfo", "Offline", "MidiProgramNames", "Bypass"};
const char* const kCategoryNames[12] = {"Unknown", "Effect", "Synth", "Analysis", "Mastering", "Spacializer",
                                        "RoomFx", "SurroundFx", "Restoration", "OfflineProcess", "Shell",
                                        "Generator"};

std::string PinNames(TPWPinList& Pins) {
  std::string S;
  for (size_t I = 0; I < Pins.Count(); ++I) S += (I ? ", " : "") + Pins.Get(I)->GetName();
  return S;
}

int Info(int Argc, char** Argv) {
  if (Argc != 1) return Usage();
  TSRVSTHost Host;
  TReports Reports;
  Reports.Attach(Host);
  if (!OpenPlugIn(Host, Reports, Argv[0])) return 1;

  const int32_t Category = Host.GetPlugCategory();
  std::printf("file:        %s\n", Argv[0]);
  std::printf("name:        %s\n", Host.GetEffectName().c_str());
  std::printf("vendor:      %s\n", Host.GetVendorString().c_str());
  std::printf("product:     %s\n", Host.GetProductString().c_str());
  std::printf("unique id:   '%s' (0x%08x)\n", FourChars(Host.GetUniqueID()).c_str(),
              static_cast<unsigned>(Host.GetUniqueID()));
  std::printf("version:     effect %d, vendor %d, VST %d\n", Host.GetVersion(), Host.GetVendorVersion(),
              Host.GetVstVersion());
  std::printf("category:    %s (%d)\n", Category >= 0 && Category < 12 ? kCategoryNames[Category] : "?", Category);
  std::string Flags;
  for (int B = 0; B < 13; ++B)
    if (Host.GetEffectFlags().Mask() >> B & 1u) Flags += std::string(Flags.empty() ? "" : " ") + kEffFlagNames[B];
  std::printf("flags:       %s\n", Flags.empty() ? "(none)" : Flags.c_str());
  std::string Supports;
  const auto S = Host.GetPlugInSuports();
  for (int M = 0; M < 18; ++M)
    if (S.Contains(static_cast<TSRVSTPlugInSuportFlag>(M)))
      Supports += std::string(Supports.empty() ? "" : " ") + kSuportNames[M];
  std::printf("supports:    %s\n", Supports.empty() ? "(none)" : Supports.c_str());
  std::printf("inputs:      %d  %s\n", Host.GetNumInputs(), PinNames(Host.GetInputPins()).c_str());
  std::printf("outputs:     %d  %s\n", Host.GetNumOutputs(), PinNames(Host.GetOutputPins()).c_str());
  std::printf("latency:     %d samples (tail %d)\n", Host.GetInitialDelay(), Host.GetTailSize());
  std::printf("programs:    %d (current %d)\n", Host.GetNumPrograms(), Host.GetProgram());
  for (int32_t P = 0; P < Host.GetNumPrograms(); ++P)
    std::printf("  %4d  %s\n", P, Host.GetProgramNameIndexed(P).c_str());
  std::printf("parameters:  %d\n", Host.GetNumParams());
  for (int32_t P = 0; P < Host.GetNumParams(); ++P) {
    std::printf("  %4d  %-24s %.4f  %s %s%s\n", P, Host.GetParameterName(P).c_str(), Host.GetParameter(P),
                Host.GetParameterDisplay(P).c_str(), Host.GetParameterLabel(P).c_str(),
                Host.CanBeAutomated(P) ? "" : "  (not automatable)");
  }
  return 0;
}

// ---- process ---------------------------------------------------------------------------

struct TProcessOptions {
  std::string PlugIn, Input, Output;
  long BlockSize = 256;
  TSRVSTPrecision Precision = TSRVSTPrecision::vstp32;
  long Program = -1;
  std::vector<std::pair<long, double>> Parameters;
  bool Bypass = false;
  bool Quiet = false;
};

// File channels feed the plug-in's inputs (a mono file feeds every input);
// every plug-in output becomes a channel of the output file.
int RunChain(const TProcessOptions& O, TSRAudioFileSource& Source, bool Verbose) {
  TSRVSTHost Host;
  TReports Reports;
  Reports.Attach(Host);
  Reports.Attach(Source);
  if (!OpenPlugIn(Host, Reports, O.PlugIn)) return 1;
  if (O.Program >= 0) {
    if (O.Program >= Host.GetNumPrograms())
      return Fail("program " + std::to_string(O.Program) + " out of range (the plug-in has " +
                  std::to_string(Host.GetNumPrograms()) + ")");
    Host.SetProgram(static_cast<int32_t>(O.Program));
  }
  for (const auto& P : O.Parameters) {
    if (P.first < 0 || P.first >= Host.GetNumParams())
      return Fail("parameter " + std::to_string(P.first) + " out of range (the plug-in has " +
                  std::to_string(Host.GetNumParams()) + ")");
    Host.SetParameter(static_cast<int32_t>(P.first), static_cast<float>(P.second));
  }
  Host.SetBufferSize(static_cast<size_t>(O.BlockSize));
  Host.SetPrecision(O.Precision);
  Host.SetBypass(O.Bypass);

  if (!Source.Open()) return Fail(Reports.Empty() ? "cannot read " + O.Input : Reports.Last());
  const auto Info = Source.GetInfo();
  const size_t Outs = Host.GetOutputPins().Count();
  if (Outs == 0) return Fail(O.PlugIn + " has no outputs");
  if (Info.Channels == 0) return Fail(O.Input + " has no channels");
  // An instrument has no inputs: one surplus input pin (never read) clocks its blocks.
  if (Host.GetInputPins().Count() == 0) Host.GetInputPins().SetCount(1);
  for (size_t I = 0; I < Host.GetInputPins().Count(); ++I)
    Source.GetOutputPin(I % Info.Channels)->Connect(*Host.GetInputPin(I));
  TSRAudioFileSink Sink(nullptr, Outs);
  Reports.Attach(Sink);
  Sink.SetFileName(O.Output);
  Sink.SetBufferSize(static_cast<size_t>(O.BlockSize));
  for (size_t I = 0; I < Outs; ++I) Host.GetOutputPin(I)->Connect(*Sink.GetInputPin(I));

  if (Verbose)
    std::printf("%s: %s, %u Hz, %u bits, %u channels -> %zu in / %zu out\n", O.PlugIn.c_str(),
                Host.GetEffectName().c_str(), Info.SampleRate, Info.Bits, Info.Channels,
                Host.GetInputPins().Count(), Outs);
  TProgressBar Bar(!O.Quiet);
  const uint64_t Frames = Source.Run([&](uint64_t Done, uint64_t Total) {
    Bar.Show(Done, Total);
    return true;
  });
  Bar.Finish();
  if (!Reports.Empty()) return Fail(Reports.First());

  const auto Peaks = Sink.GetPeaks();
  const double Full = static_cast<double>(ISRAudioBuffer::MaxValue(Info.Bits));
  std::printf("processed %llu frames (%.2f s) in blocks of %ld%s\n", static_cast<unsigned long long>(Frames),
              Info.SampleRate ? static_cast<double>(Frames) / Info.SampleRate : 0.0, O.BlockSize,
              Host.GetDoublePrecision() ? ", 64-bit" : "");
  for (size_t C = 0; C < Peaks.size(); ++C)
    std::printf("  output %zu (%s): peak %.1f dBFS\n", C + 1, Host.GetOutputPin(C)->GetName().c_str(),
                Peaks[C] > 0 ? 20.0 * std::log10(Peaks[C] / Full) : -INFINITY);
  if (Host.GetNonFiniteCount())
    std::printf("  %llu samples were not finite (written as 0 or full scale)\n",
                static_cast<unsigned long long>(Host.GetNonFiniteCount()));
  std::printf("written: %s (%llu frames)\n", O.Output.c_str(), static_cast<unsigned long long>(Sink.GetFramesWritten()));
  return Sink.GetFramesWritten() == Frames ? 0 : 1;
}

int Process(int Argc, char** Argv) {
  if (Argc < 1) return Usage();
  TProcessOptions O;
  O.PlugIn = Argv[0];
  for (int I = 1; I < Argc; ++I) {
    const std::string A = Argv[I];
    if (A == "--bypass") {
      O.Bypass = true;
      continue;
    }
    if (A == "-q") {
      O.Quiet = true;
      continue;
    }
    if (I + 1 >= Argc) return Usage();
    const char* V = Argv[++I];
    bool Ok = true;
    if (A == "-i") {
      O.Input = V;
    } else if (A == "-o") {
      O.Output = V;
    } else if (A == "-b") {
      Ok = ParseInt(V, O.BlockSize) && O.BlockSize >= 1 && O.BlockSize <= 65536;
    } else if (A == "-p") {
      Ok = std::strcmp(V, "32") == 0 || std::strcmp(V, "64") == 0;
      O.Precision = std::strcmp(V, "64") == 0 ? TSRVSTPrecision::vstp64 : TSRVSTPrecision::vstp32;
    } else if (A == "-P") {
      Ok = ParseInt(V, O.Program) && O.Program >= 0;
    } else if (A == "-x") {
      const char* Eq = std::strchr(V, '=');
      long Index = -1;
      double Value = 0;
      Ok = Eq && ParseInt(std::string(V, Eq).c_str(), Index) && ParseDouble(Eq + 1, Value) && Value >= 0 &&
           Value <= 1;
      O.Parameters.emplace_back(Index, Value);
    } else {
      return Usage();
    }
    if (!Ok) return Fail("bad value for " + A + ": " + V);
  }
  if (O.Input.empty() || O.Output.empty()) return Usage();
  if (!Platform::FileExists(O.Input)) return Fail("input file " + O.Input + " does not exist");
  TSRAudioFileSource Source;
  Source.SetFileName(O.Input);
  return RunChain(O, Source, true);
}

// ---- demo ------------------------------------------------------------------------------

// The bundled test plug-in sits in the build tree beside the tools folder.
std::string BundledPlugIn() {
  if (const char* Env = std::getenv("QUORVEL_DEMO_PLUGIN")) return Env;
  return Platform::GetExecutableDirectory() + "../testplugins/vst2/" QUORVEL_DEMO_PLUGIN_FILE;
}

int Demo(int Argc, char** Argv) {
  std::string Output = "quorvel-demo.wav", PlugIn = BundledPlugIn();
  double Seconds = 2.0, Frequency = 440.0;
  for (int I = 0; I < Argc; ++I) {
    const std::string A = Argv[I];
    if (I + 1 >= Argc) return Usage();
    const char* V = Argv[++I];
    bool Ok = true;
    if (A == "-o")
      Output = V;
    else if (A == "-p")
      PlugIn = V;
    else if (A == "-s")
      Ok = ParseDouble(V, Seconds) && Seconds > 0 && Seconds <= 3600;
    else if (A == "-f")
      Ok = ParseDouble(V, Frequency) && Frequency > 0 && Frequency < 22050;
    else
      return Usage();
    if (!Ok) return Fail("bad value for " + A + ": " + V);
  }

  // Tone -> host (gain 0.5, channels swapped) -> stereo file.
  TSRVSTHost Host;
  TReports Reports;
  Reports.Attach(Host);
  if (!OpenPlugIn(Host, Reports, PlugIn)) return 1;
  Host.SetBufferSize(256);
  Host.SetParameter(0, 0.25f);
  if (Host.GetNumParams() > 1) Host.SetParameter(1, 1.0f);
  TSRToneGenerator Tone;
  Tone.SetFrequency(Frequency);
  Tone.SetAmplitude(0.8);
  Tone.SetChannels(1);
  for (size_t I = 0; I < Host.GetInputPins().Count(); ++I) Tone.GetOutputPin().Connect(*Host.GetInputPin(I));
  const size_t Outs = Host.GetOutputPins().Count();
  if (Outs == 0) return Fail(PlugIn + " has no outputs");
  TSRAudioFileSink Sink(nullptr, Outs);
  Reports.Attach(Sink);
  Sink.SetFileName(Output);
  for (size_t I = 0; I < Outs; ++I) Host.GetOutputPin(I)->Connect(*Sink.GetInputPin(I));

  const auto Before = GetBufferPoolStats();
  const size_t Blocks = static_cast<size_t>(Seconds * Tone.GetSampleRate() / Tone.GetBlockSize() + 0.5);
  Tone.Start();
  Tone.Generate(Blocks);
  Tone.Stop();
  const auto After = GetBufferPoolStats();
  if (!Reports.Empty()) return Fail(Reports.First());

  std::printf("plug-in: %s by %s ('%s'), %d in / %d out\n", Host.GetEffectName().c_str(),
              Host.GetVendorString().c_str(), FourChars(Host.GetUniqueID()).c_str(), Host.GetNumInputs(),
              Host.GetNumOutputs());
  std::printf("chain: tone %.1f Hz at 0.8 -> %s -> %s\n", Frequency, Host.GetEffectName().c_str(), Output.c_str());
  std::printf("parameters: %s = %s %s", Host.GetParameterName(0).c_str(), Host.GetParameterDisplay(0).c_str(),
              Host.GetParameterLabel(0).c_str());
  if (Host.GetNumParams() > 1)
    std::printf(", %s = %s", Host.GetParameterName(1).c_str(), Host.GetParameterDisplay(1).c_str());
  std::printf("\n");
  const auto Peaks = Sink.GetPeaks();
  std::printf("processed: %llu frames (%.2f s) in blocks of %d\n",
              static_cast<unsigned long long>(Sink.GetFramesWritten()),
              static_cast<double>(Sink.GetFramesWritten()) / Tone.GetSampleRate(), Host.GetBlockSize());
  for (size_t C = 0; C < Peaks.size(); ++C)
    std::printf("  output %zu (%s): peak %d of 32767\n", C + 1, Host.GetOutputPin(C)->GetName().c_str(), Peaks[C]);
  std::printf("buffer pool: %llu heap allocations, %llu reuses\n",
              static_cast<unsigned long long>(After.HeapAllocations - Before.HeapAllocations),
              static_cast<unsigned long long>(After.PoolHits - Before.PoolHits));
  std::printf("written: %s\n", Output.c_str());
  return Sink.GetFramesWritten() == Blocks * Tone.GetBlockSize() ? 0 : 1;
}

}  // namespace

int main(int Argc, char** Argv) {
  if (Argc < 2) return Usage();
  try {
    const std::string Command = Argv[1];
    if (Command == "demo") return Demo(Argc - 2, Argv + 2);
    if (Command == "info") return Info(Argc - 2, Argv + 2);
    if (Command == "process") return Process(Argc - 2, Argv + 2);
    if (Command == "asio") return Cli::Asio(Argc - 2, Argv + 2);
    if (Command == "-h" || Command == "--help" || Command == "help") {
      std::fputs(kUsage, stdout);
      return 0;
    }
    return Usage();
  } catch (const std::exception& E) {
    std::fprintf(stderr, "quorvel: %s\n", E.what());
    return 1;
  }
}
