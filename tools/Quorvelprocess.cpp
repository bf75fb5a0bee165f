// quorvel process: an audio file through one VST 2 plug-in or VST 3 module
// into another file.
// The output is written under a temporary name and put in place only when
// processing succeeded; with --isolate the plug-in runs in a child process of
// this program, so that a plug-in that crashes takes only the child down.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "frame/Srfilecomponents.h"
#include "platform/Process.h"
#include "tools/Quorvelcli.h"
#include "tools/Quorvelvst3chain.h"
#include "vst2/Srvsthost.h"

namespace Quorvel::Cli {
namespace {

// Block sizes above this, or not a multiple of kBlockMultiple, are allowed
// with a warning: some plug-ins overflow their buffers or assert on them.
constexpr long kCommonMaxBlock = 8192;
constexpr long kBlockMultiple = 8;
constexpr long kMaxBlock = 65536;
// What a chain may take for its queues and scratch blocks before the command
// refuses to start it.
constexpr double kMaxChainBytes = 1024.0 * 1024 * 1024;
// A plug-in's own delay or tail beyond this many seconds is not believed.
constexpr double kMaxReportedSeconds = 60.0;

struct TProcessOptions {
  std::string PlugIn, Input, Output;
  long BlockSize = 256;
  TSRVSTPrecision Precision = TSRVSTPrecision::vstp32;
  TPlugInSettings Settings;
  bool Bypass = false;
  bool Quiet = false;
  bool CompensateLatency = true;
  double TailSeconds = -1;  // below 0: the plug-in's own tail
  bool Isolate = false;
  std::string ChildOutput;  // set in the child of --isolate: the parent's temporary file
};

int ParseProcess(const TArgs& Args, TProcessOptions& O) {
  TArgs Files;
  std::vector<TOption> Options = {
      {"-i", true, [&](const std::string& V) { return !(O.Input = V).empty(); }, "the input file"},
      {"-o", true, [&](const std::string& V) { return !(O.Output = V).empty(); }, "the output file"},
      {"-b", true, [&](const std::string& V) { return ParseInt(V, O.BlockSize) && O.BlockSize >= 1 && O.BlockSize <= kMaxBlock; },
       "frames, 1 to 65536"},
      {"-p", true,
       [&](const std::string& V) {
         O.Precision = V == "64" ? TSRVSTPrecision::vstp64 : TSRVSTPrecision::vstp32;
         return V == "32" || V == "64";
       },
       "32 or 64"},
      {"--bypass", false, [&](const std::string&) { return O.Bypass = true; }, ""},
      {"-q", false, [&](const std::string&) { return O.Quiet = true; }, ""},
      {"--no-latency-compensation", false, [&](const std::string&) { return !(O.CompensateLatency = false); }, ""},
      {"--tail", true, [&](const std::string& V) { return ParseDouble(V, O.TailSeconds) && O.TailSeconds >= 0 && O.TailSeconds <= 3600; },
       "seconds, 0 to 3600"},
      {"--isolate", false, [&](const std::string&) { return O.Isolate = true; }, ""},
      {"--child-output", true, [&](const std::string& V) { return !(O.ChildOutput = V).empty(); }, "a file"},
  };
  AddSettingOptions(Options, O.Settings);
  if (const int Rc = ParseOptions(Args, Options, Files, 1)) return Rc;
  if (Files.size() != 1 || O.Input.empty() || O.Output.empty()) return Usage();
  O.PlugIn = Files[0];
  return 0;
}

double Decibels(int32_t Peak, unsigned Bits) {
  // Full scale is the magnitude of the most negative sample, so that it reads 0 dBFS.
  const double Full = std::ldexp(1.0, static_cast<int>(std::min(Bits, 32u)) - 1);
  return Peak > 0 ? 20.0 * std::log10(Peak / Full) : -INFINITY;
}

// File channels feed the plug-in's inputs (a mono file feeds every input);
// every plug-in output becomes a channel of the output file.
int RunChain(const TProcessOptions& O, const std::string& WorkFile) {
  TReports Reports;  // outlives the components that report to it
  TSRAudioFileSource Source;
  TSRVSTHost Host;
  Reports.Attach(Host);
  Reports.Attach(Source);
  Source.SetFileName(O.Input);
  if (!Source.Open()) return Fail(Reports.Empty() ? "cannot read " + O.Input : Reports.Last());
  const auto Info = Source.GetInfo();
  if (Info.Channels == 0) return Fail(O.Input + " has no channels");

  // The plug-in hears the file's rate and the block size from its first call on.
  Host.SetSampleRate(Info.SampleRate);
  Host.SetBufferSize(static_cast<size_t>(O.BlockSize));
  if (!OpenPlugIn(Host, Reports, O.PlugIn)) return 1;
  if (O.Precision == TSRVSTPrecision::vstp64) {
    if (Host.GetEffectFlags().Contains(TEffFlag::effFlagsCanDoubleReplacing))
      return Fail("-p 64 is refused for this plug-in: it accepts 64-bit processing, and the host then hands its "
                  "32-bit process routine 64-bit samples, which gives a broken result; use -p 32");
    Warn("the plug-in does not process 64-bit samples; it runs at 32 bits");
  }
  if (!ApplySettings(Host, Reports, O.Settings)) return 1;
  Host.SetPrecision(O.Precision);
  Host.SetBypass(O.Bypass);

  const size_t Outs = Host.GetOutputPins().Count();
  if (Outs == 0) return Fail(O.PlugIn + " has no outputs");
  if (Outs > 65535) return Fail(O.PlugIn + " has " + std::to_string(Outs) + " outputs; a WAV file holds at most 65535");
  // An instrument has no inputs: one surplus input pin (never read) clocks its blocks.
  const size_t Ins = std::max<size_t>(Host.GetInputPins().Count(), 1);
  // Each pin holds a few blocks of queue and a 64-bit scratch block.
  const double Bytes = static_cast<double>(Ins + Outs + Info.Channels) * static_cast<double>(O.BlockSize) * 24.0;
  if (Bytes > kMaxChainBytes)
    return Fail("the plug-in's " + std::to_string(Ins) + " inputs and " + std::to_string(Outs) + " outputs at blocks of " +
                std::to_string(O.BlockSize) + " frames would need about " +
                std::to_string(static_cast<long long>(Bytes / (1024 * 1024))) + " MiB; use a smaller -b");

  // Latency and tail, in frames of the file's rate.
  const double MaxReported = kMaxReportedSeconds * Info.SampleRate;
  uint64_t Delay = 0;
  // A plug-in the host bypasses itself is not in the path: its delay is not either.
  const bool HostBypasses = O.Bypass && Host.PlugInCanDo("bypass") != 1;
  if (O.CompensateLatency && !HostBypasses && Host.GetInitialDelay() > 0) {
    if (Host.GetInitialDelay() > MaxReported)
      Warn("the plug-in reports a delay of " + std::to_string(Host.GetInitialDelay()) +
           " samples; it is not compensated");
    else
      Delay = static_cast<uint64_t>(Host.GetInitialDelay());
  }
  uint64_t Tail = 0;
  if (O.TailSeconds >= 0) {
    Tail = static_cast<uint64_t>(std::llround(O.TailSeconds * Info.SampleRate));
  } else if (const int32_t Reported = Host.GetTailSize(); Reported > 1) {
    // 1 means "no tail", 0 "not known".
    if (Reported > MaxReported)
      Warn("the plug-in reports a tail of " + std::to_string(Reported) + " samples; none is added (--tail sets one)");
    else
      Tail = static_cast<uint64_t>(Reported);
  }
  Source.SetTrailingSilence(Tail + Delay);

  if (Host.GetInputPins().Count() == 0) Host.GetInputPins().SetCount(1);
  for (size_t I = 0; I < Host.GetInputPins().Count(); ++I)
    Source.GetOutputPin(I % Info.Channels)->Connect(*Host.GetInputPin(I));
  TSRAudioFileSink Sink(nullptr, Outs);
  Reports.Attach(Sink);
  Sink.SetFileName(WorkFile);
  Sink.SetBufferSize(static_cast<size_t>(O.BlockSize));
  Sink.SetFloat(Info.Float);
  Sink.SetSkipFrames(Delay);
  for (size_t I = 0; I < Outs; ++I) Host.GetOutputPin(I)->Connect(*Sink.GetInputPin(I));

  std::printf("%s: %s, %u Hz, %u %s, %u channels -> %zu in / %zu out\n", O.PlugIn.c_str(),
              Host.GetEffectName().c_str(), Info.SampleRate, Info.Bits, Info.Float ? "bits float" : "bits",
              Info.Channels, Host.GetInputPins().Count(), Outs);
  if (Delay || Tail)
    std::printf("latency compensated: %llu frames; tail: %llu frames\n", static_cast<unsigned long long>(Delay),
                static_cast<unsigned long long>(Tail));
  std::fflush(stdout);
  TProgressBar Bar(!O.Quiet);
  const uint64_t Frames = Source.Run([&](uint64_t Done, uint64_t Total) {
    Bar.Show(Done, Total);
    return true;
  });
  Bar.Finish();
  if (!Reports.Empty()) return Fail(Reports.First());

  const auto Peaks = Sink.GetPeaks();
  const uint64_t Expected = Frames - std::min(Frames, Delay);
  const uint64_t Read = Frames - std::min(Frames, Tail + Delay);
  std::printf("processed %llu frames (%.2f s)%s in blocks of %ld%s%s\n", static_cast<unsigned long long>(Read),
              Info.SampleRate ? static_cast<double>(Read) / Info.SampleRate : 0.0,
              Tail ? (" and " + std::to_string(Tail) + " frames of tail").c_str() : "", O.BlockSize,
              Host.GetDoublePrecision() ? ", 64-bit" : "", O.Bypass ? ", bypassed" : "");
  for (size_t C = 0; C < Peaks.size(); ++C)
    std::printf("  output %zu (%s): peak %.1f dBFS\n", C + 1, Host.GetOutputPin(C)->GetName().c_str(),
                Decibels(Peaks[C], Info.Bits));
  if (Host.GetNonFiniteCount())
    std::printf("  %llu samples were not finite (written as 0 or full scale)\n",
                static_cast<unsigned long long>(Host.GetNonFiniteCount()));
  if (Sink.GetFramesWritten() != Expected)
    return Fail("the chain wrote " + std::to_string(Sink.GetFramesWritten()) + " of " + std::to_string(Expected) +
                " frames");
  return 0;
}

// The file's channels join into the module's main input bus (a mono file
// feeds every channel); its main output bus becomes the output file.
int RunVst3Chain(const TProcessOptions& O, const std::string& WorkFile) {
  const TPlugInSettings& S = O.Settings;
  if (!S.Bank.empty() || !S.Preset.empty() || S.Program >= 0 || !S.Parameters.empty())
    return Fail("banks, programs, presets and parameters are not set in VST 3 modules here");
  TReports Reports;
  TSRAudioFileSource Source;
  TVst3Stage Stage;
  Reports.Attach(Source);
  Source.SetFileName(O.Input);
  if (!Source.Open()) return Fail(Reports.Empty() ? "cannot read " + O.Input : Reports.Last());
  const auto Info = Source.GetInfo();
  if (Info.Channels == 0) return Fail(O.Input + " has no channels");
  if (!OpenVst3Stage(Stage, Reports, O.PlugIn, Info.SampleRate, static_cast<size_t>(O.BlockSize),
                     O.Precision == TSRVSTPrecision::vstp64 ? TSRVST3SampleSize::vst3ss64
                                                            : TSRVST3SampleSize::vst3ss32))
    return 1;
  if (Stage.Outputs > 65535) return Fail(O.PlugIn + " has " + std::to_string(Stage.Outputs) + " outputs; a WAV file holds at most 65535");
  // A bypassed module passes the joined channels through unchanged.
  Stage.Host.SetEnabled(!O.Bypass);
  const uint64_t Tail = O.TailSeconds > 0 ? static_cast<uint64_t>(std::llround(O.TailSeconds * Info.SampleRate)) : 0;
  Source.SetTrailingSilence(Tail);
  for (size_t I = 0; I < Stage.Joiner.GetChannels(); ++I)
    Source.GetOutputPin(I % Info.Channels)->Connect(*Stage.GetInputPin(I));
  TSRAudioFileSink Sink(nullptr, Stage.Outputs);
  Reports.Attach(Sink);
  Sink.SetFileName(WorkFile);
  Sink.SetBufferSize(static_cast<size_t>(O.BlockSize));
  Sink.SetFloat(Info.Float);
  for (size_t I = 0; I < Stage.Outputs; ++I) Stage.GetOutputPin(I)->Connect(*Sink.GetInputPin(I));

  std::printf("%s: %s, %u Hz, %u %s, %u channels -> %zu in / %zu out\n", O.PlugIn.c_str(), Stage.Name.c_str(),
              Info.SampleRate, Info.Bits, Info.Float ? "bits float" : "bits", Info.Channels, Stage.Inputs,
              Stage.Outputs);
  std::fflush(stdout);
  TProgressBar Bar(!O.Quiet);
  const uint64_t Frames = Source.Run([&](uint64_t Done, uint64_t Total) {
    Bar.Show(Done, Total);
    return true;
  });
  Bar.Finish();
  if (!Reports.Empty()) return Fail(Reports.First());
  const uint64_t Read = Frames - std::min(Frames, Tail);
  std::printf("processed %llu frames (%.2f s)%s in blocks of %ld%s%s\n", static_cast<unsigned long long>(Read),
              Info.SampleRate ? static_cast<double>(Read) / Info.SampleRate : 0.0,
              Tail ? (" and " + std::to_string(Tail) + " frames of tail").c_str() : "", O.BlockSize,
              Stage.Host.GetDoublePrecision() ? ", 64-bit" : "", O.Bypass ? ", bypassed" : "");
  const auto Peaks = Sink.GetPeaks();
  const std::string Bus = Stage.Host.GetOutputPin(0)->GetName();
  for (size_t C = 0; C < Peaks.size(); ++C)
    std::printf("  output %zu (%s %zu): peak %.1f dBFS\n", C + 1, Bus.c_str(), C + 1, Decibels(Peaks[C], Info.Bits));
  if (Sink.GetFramesWritten() != Frames)
    return Fail("the chain wrote " + std::to_string(Sink.GetFramesWritten()) + " of " + std::to_string(Frames) +
                " frames");
  return 0;
}

// Runs this command again in a child process that writes File's temporary
// file; the parent puts it in place only when the child succeeded.
int RunIsolated(const TArgs& Args, const TProcessOptions& O, TOutputFile& File) {
  TArgs ChildArgs{"process"};
  for (const auto& A : Args)
    if (A != "--isolate") ChildArgs.push_back(A);
  ChildArgs.push_back("--child-output");
  ChildArgs.push_back(File.GetWorkName());
  const Platform::TChildResult Child = Platform::RunSelf(ChildArgs);
  if (!Child.Started) return Fail(Child.Reason);
  if (Child.Crashed)
    return Fail("the plug-in " + O.PlugIn + " crashed (" + Child.Reason + "); " + O.Output + " was not written");
  // The child answers 0, 1 or 2 itself; any other status means something
  // ended it from inside (a plug-in calling exit, a run-time check).
  if (Child.ExitCode > 2)
    return Fail("the plug-in " + O.PlugIn + " ended its process with status " + std::to_string(Child.ExitCode) +
                "; " + O.Output + " was not written");
  return Child.ExitCode;
}

}  // namespace

int Process(const TArgs& Args) {
  TProcessOptions O;
  if (const int Rc = ParseProcess(Args, O)) return Rc;
  if (const std::string Problem = CheckExistingFile("input file", O.Input); !Problem.empty()) return Fail(Problem);
  if (O.BlockSize > kCommonMaxBlock || O.BlockSize % kBlockMultiple != 0)
    Warn("blocks of " + std::to_string(O.BlockSize) + " frames: some plug-ins support only blocks of at most " +
         std::to_string(kCommonMaxBlock) + " frames that are a multiple of " + std::to_string(kBlockMultiple));

  TOutputFile File;
  if (!O.ChildOutput.empty()) {
    File.Adopt(O.Output, O.ChildOutput);
  } else if (!File.Prepare(O.Output, {{"the input file", O.Input},
                                      {"the plug-in", O.PlugIn},
                                      {"the preset", O.Settings.Preset},
                                      {"the bank", O.Settings.Bank}})) {
    return 1;
  }
  const int Rc = O.Isolate          ? RunIsolated(Args, O, File)
                 : IsVst3Path(O.PlugIn) ? RunVst3Chain(O, File.GetWorkName())
                                        : RunChain(O, File.GetWorkName());
  if (Rc != 0) {
    if (O.ChildOutput.empty()) File.Abandon();
    return Rc;
  }
  if (!File.Commit()) return 1;
  if (O.ChildOutput.empty()) std::printf("written: %s\n", O.Output.c_str());
  return 0;
}

}  // namespace Quorvel::Cli
