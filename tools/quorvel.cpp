// The package's command-line host, built only from the package's components.
//   quorvel info PLUGIN                 what a VST 2 plug-in is and offers
//   quorvel info X.vst3                 what a VST 3 module is and offers (Quorvelvst3info.cpp)
//   quorvel params|programs|preset|bank  its parameters, programs and files (Quorvelparams.cpp)
//   quorvel preset save|load X.vst3     VST 3 preset files (Quorvelvst3preset.cpp)
//   quorvel process PLUGIN -i IN -o OUT  a WAV file through a plug-in (Quorvelprocess.cpp)
//   quorvel demo                         the bundled test plug-in on a generated tone
//   quorvel asio list|info|run           ASIO drivers and a chain through one (Quorvelasio.cpp)
//   quorvel volume list|get|set|watch    audio endpoint levels and meters (Quorvelvolume.cpp)
//   quorvel mixer list|get|set|watch     winmm mixer lines and controls (Quorvelmixer.cpp)
//   quorvel dmo list|process             audio-effect DMOs (Quorveldmo.cpp)
//   quorvel acm list, encode, decode     ACM codecs and WAV files through them (Quorvelacm.cpp)
//   quorvel log                          a WAV file's samples through the raw logger (Quorvelmedia.cpp)
//   quorvel ds list|capture|render       DirectShow filters and audio through them (Quorvelds.cpp)
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <vector>

#include "frame/Srdemocomponents.h"
#include "frame/Srfilecomponents.h"
#include "platform/Library.h"
#include "package/Quorvelpackage.h"
#include "platform/Process.h"
#include "tools/Quorvelcli.h"
#include "vst2/Srvsthost.h"

using namespace Quorvel;
using namespace Quorvel::Cli;

namespace {

std::string FourChars(int32_t Id) {
  std::string S;
  for (int Shift = 24; Shift >= 0; Shift -= 8) {
    const char C = static_cast<char>((static_cast<uint32_t>(Id) >> Shift) & 0xFF);
    S += (C >= 32 && C < 127) ? C : '.';
  }
  return S;
}

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

// A column is at most this wide; longer texts end in "...".
constexpr size_t kMaxColumn = 40;

std::string Fit(std::string Text, size_t Width) {
  if (Text.size() > Width) Text = Text.substr(0, Width - 3) + "...";
  return Text;
}

std::string PinNames(TPWPinList& Pins) {
  std::string S;
  for (size_t I = 0; I < Pins.Count(); ++I) S += (I ? ", " : "") + Pins.Get(I)->GetName();
  return S;
}

}  // namespace

int Cli::Info(const TArgs& Args) {
  if (const int Rc = InfoVst3(Args); Rc >= 0) return Rc;
  TArgs Files;
  if (const int Rc = ParseOptions(Args, {}, Files, 1)) return Rc;
  if (Files.size() != 1) return Usage();
  TSRVSTHost Host;
  TReports Reports;
  Reports.Attach(Host);
  if (!OpenPlugIn(Host, Reports, Files[0])) return 1;

  const int32_t Category = Host.GetPlugCategory();
  std::printf("file:        %s\n", Files[0].c_str());
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
  if (Host.GetNumPrograms() > 0)
    std::printf("programs:    %d (current %d)\n", Host.GetNumPrograms(), Host.GetProgram());
  else
    std::printf("programs:    none%s\n",
                Host.GetNumPrograms() < 0 ? (" (it reports " + std::to_string(Host.GetNumPrograms()) + ")").c_str() : "");
  for (int32_t P = 0; P < Host.GetNumPrograms(); ++P)
    std::printf("  %4d  %s\n", P, Host.GetProgramNameIndexed(P).c_str());
  const int32_t Params = Host.GetNumParams();
  std::printf("parameters:  %d\n", std::max(Params, 0));
  // Columns as wide as the longest name and display text (within reason), so
  // that every row lines up.
  std::vector<std::string> Names, Displays;
  size_t NameWidth = 4, DisplayWidth = 1;
  for (int32_t P = 0; P < Params; ++P) {
    Names.push_back(Fit(Host.GetParameterName(P), kMaxColumn));
    Displays.push_back(Fit(Host.GetParameterDisplay(P), kMaxColumn));
    NameWidth = std::max(NameWidth, Names.back().size());
    DisplayWidth = std::max(DisplayWidth, Displays.back().size());
  }
  for (int32_t P = 0; P < Params; ++P) {
    const size_t I = static_cast<size_t>(P);
    std::printf("  %4d  %-*s  %.4f  %-*s %s%s\n", P, static_cast<int>(NameWidth), Names[I].c_str(),
                Host.GetParameter(P), static_cast<int>(DisplayWidth), Displays[I].c_str(),
                Host.GetParameterLabel(P).c_str(), Host.CanBeAutomated(P) ? "" : "  (not automatable)");
  }
  return 0;
}

namespace {

// ---- demo ------------------------------------------------------------------------------

// The bundled test plug-in sits in the build tree beside the tools folder.
std::string BundledPlugIn() {
  if (const char* Env = std::getenv("QUORVEL_DEMO_PLUGIN")) return Env;
  return Platform::GetExecutableDirectory() + "../testplugins/vst2/" QUORVEL_DEMO_PLUGIN_FILE;
}

}  // namespace

int Cli::Demo(const TArgs& Args) {
  std::string Output = "quorvel-demo.wav", PlugIn = BundledPlugIn();
  double Seconds = 2.0, Frequency = 440.0;
  TArgs None;
  const int Rc = ParseOptions(
      Args,
      {{"-o", true, [&](const std::string& V) { return !(Output = V).empty(); }, "a file name"},
       {"-p", true, [&](const std::string& V) { return !(PlugIn = V).empty(); }, "a plug-in file"},
       {"-s", true, [&](const std::string& V) { return ParseDouble(V, Seconds) && Seconds > 0 && Seconds <= 3600; },
        "seconds, above 0 and at most 3600"},
       {"-f", true,
        [&](const std::string& V) { return ParseDouble(V, Frequency) && Frequency > 0 && Frequency < 22050; },
        "hertz, above 0 and below 22050"}},
      None, 0);
  if (Rc) return Rc;
  TOutputFile File;
  if (!File.Prepare(Output, {{"the plug-in", PlugIn}})) return 1;

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
  Sink.SetFileName(File.GetWorkName());
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
  if (Sink.GetFramesWritten() != Blocks * Tone.GetBlockSize())
    return Fail("the chain wrote " + std::to_string(Sink.GetFramesWritten()) + " of " +
                std::to_string(Blocks * Tone.GetBlockSize()) + " frames; " + Output + " is left as it was");
  if (!File.Commit()) return 1;
  std::printf("written: %s\n", Output.c_str());
  return 0;
}

int main(int Argc, char** Argv) {
  const TArgs All = Platform::GetProgramArguments(Argc, Argv);
  if (All.size() < 2) return Usage();
  Package::Initialize();
  try {
    const std::string& Command = All[1];
    const TArgs Args(All.begin() + 2, All.end());
    if (Command == "demo") return Cli::Demo(Args);
    if (Command == "info") return Cli::Info(Args);
    if (Command == "params") return Cli::Params(Args);
    if (Command == "programs") return Cli::Programs(Args);
    if (Command == "preset") return Cli::Preset(Args);
    if (Command == "bank") return Cli::Bank(Args);
    if (Command == "process") return Cli::Process(Args);
    if (Command == "edit") return Cli::Edit(Args);
    if (Command == "asio") return Cli::Asio(Args);
    if (Command == "volume") return Cli::Volume(Args);
    if (Command == "mixer") return Cli::Mixer(Args);
    if (Command == "dmo") return Cli::Dmo(Args);
    if (Command == "acm") return Cli::Acm(Args);
    if (Command == "encode") return Cli::Encode(Args);
    if (Command == "decode") return Cli::Decode(Args);
    if (Command == "log") return Cli::Log(Args);
    if (Command == "ds") return Cli::Ds(Args);
    if (Command == "run") return Cli::RunDocument(Args);
    if (Command == "components") return Cli::ListComponents(Args);
    if (Command == "-h" || Command == "--help" || Command == "help") {
      PrintUsage();
      return 0;
    }
    return Usage();
  } catch (const std::exception& E) {
    return Fail(E.what());
  }
}
