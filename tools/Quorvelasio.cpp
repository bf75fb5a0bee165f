// `quorvel asio`: the installed ASIO drivers, what one of them offers, and a
// chain from a driver's inputs through VST 2 plug-ins to its outputs.
//   quorvel asio list
//   quorvel asio info NAME
//   quorvel asio run NAME [-s SECONDS] [-r RATE] [-b FRAMES] [-p PLUGIN]... [-q]
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "asio/Asiointerface.h"
#include "asio/Srasioaudiodevice.h"
#include "tools/Quorvelcli.h"
#include "tools/Quorvelvst3chain.h"
#include "vst2/Srvsthost.h"

namespace Quorvel::Cli {
namespace {

std::string SampleTypeName(TASIOSampleType Type) {
  switch (Type) {
    case ASIOSTInt16MSB: return "Int16MSB";
    case ASIOSTInt24MSB: return "Int24MSB";
    case ASIOSTInt32MSB: return "Int32MSB";
    case ASIOSTFloat32MSB: return "Float32MSB";
    case ASIOSTFloat64MSB: return "Float64MSB";
    case ASIOSTInt32MSB16: return "Int32MSB16";
    case ASIOSTInt32MSB18: return "Int32MSB18";
    case ASIOSTInt32MSB20: return "Int32MSB20";
    case ASIOSTInt32MSB24: return "Int32MSB24";
    case ASIOSTInt16LSB: return "Int16LSB";
    case ASIOSTInt24LSB: return "Int24LSB";
    case ASIOSTInt32LSB: return "Int32LSB";
    case ASIOSTFloat32LSB: return "Float32LSB";
    case ASIOSTFloat64LSB: return "Float64LSB";
    case ASIOSTInt32LSB16: return "Int32LSB16";
    case ASIOSTInt32LSB18: return "Int32LSB18";
    case ASIOSTInt32LSB20: return "Int32LSB20";
    case ASIOSTInt32LSB24: return "Int32LSB24";
    case ASIOSTDSDInt8LSB1: return "DSDInt8LSB1";
    case ASIOSTDSDInt8MSB1: return "DSDInt8MSB1";
    case ASIOSTDSDInt8NER8: return "DSDInt8NER8";
    default: return "unknown type " + std::to_string(Type);
  }
}

std::string Decibels(double Fraction) {
  if (!(Fraction > 0)) return "-inf dBFS";
  char Text[32];
  std::snprintf(Text, sizeof Text, "%.1f dBFS", 20.0 * std::log10(Fraction));
  return Text;
}

// COM on this thread (drivers are made in its apartment), then the bundled
// drivers where there is no registry. False (and a message) when COM fails.
bool PrepareDrivers() {
  if (!ASIOInitializeComForThisThread()) {
    Fail("cannot make this thread a COM apartment for ASIO drivers");
    return false;
  }
  RegisterBundledAsioDrivers();
  return true;
}

std::vector<std::string> InstalledDrivers() {
  std::vector<std::string> Names;
  ASIOGetDriverNames(&Names);
  return Names;
}

// Opens driver Name in Device; on failure prints why and answers false.
bool OpenDevice(TSRASIOAudioDevice& Device, const TReports& Reports, const std::string& Name) {
  Device.GetDevice().SetDeviceName(Name);
  if (Device.Open()) return true;
  if (!Reports.Empty()) {
    Fail("ASIO driver \"" + Name + "\": " + Reports.Last());
  } else {
    const auto Names = InstalledDrivers();
    if (std::find(Names.begin(), Names.end(), Name) == Names.end())
      Fail("no ASIO driver named \"" + Name + "\" is installed (quorvel asio list shows those that are)");
    else
      Fail("ASIO driver \"" + Name + "\" could not be created or opened");
  }
  return false;
}

// ---- list ------------------------------------------------------------------------------

int List(const TArgs& Args) {
  if (!Args.empty()) return Usage();
  if (!PrepareDrivers()) return 1;
  const auto Names = InstalledDrivers();
  if (Names.empty()) std::printf("no ASIO drivers installed\n");
  for (const auto& N : Names) std::printf("%s\n", N.c_str());
  return 0;
}

// ---- info ------------------------------------------------------------------------------

std::string GranularityText(int32_t G) {
  if (G == -1) return "powers of two";
  if (G <= 0) return "any size";
  return "steps of " + std::to_string(G);
}

void PrintChannels(const char* Title, const TSRASIOAvailableChannels& Channels) {
  std::printf("%-14s %d\n", Title, Channels.GetCount());
  for (int I = 0; I < Channels.GetCount(); ++I) {
    const auto& C = Channels.GetItem(I);
    std::printf("  %3d  %-32s %-12s group %d\n", static_cast<int>(C.Channel), C.Name.c_str(),
                SampleTypeName(C.Type).c_str(), static_cast<int>(C.Group));
  }
}

int DriverInfo(const TArgs& Args) {
  if (Args.size() != 1) return Usage();
  if (!PrepareDrivers()) return 1;
  TSRASIOAudioDevice Device;
  TReports Reports;
  Reports.Attach(Device);
  // Looking must not change the device: keep its rate and clock.
  Device.GetSampleRate().SetUseCurrent(true);
  Device.GetClockSource().SetUseCurrent(true);
  if (!OpenDevice(Device, Reports, Args[0])) return 1;

  static const double CommonRates[] = {8000,  11025, 16000, 22050,  32000,  44100,  48000,
                                       88200, 96000, 176400, 192000, 352800, 384000};
  std::string Rates;
  for (double R : CommonRates)
    if (Device.CanSampleRate(R)) Rates += (Rates.empty() ? "" : " ") + std::to_string(static_cast<long>(R));
  const auto& B = Device.GetBufferSize();
  std::printf("driver:        %s (version %d)\n", Device.GetDriverName().c_str(),
              static_cast<int>(Device.GetDriverVersion()));
  std::printf("sample rate:   %.0f Hz (supported: %s)\n", Device.GetRunningSampleRate(),
              Rates.empty() ? "none of the common rates" : Rates.c_str());
  std::printf("latency:       input %d, output %d samples\n", static_cast<int>(Device.GetInputLatency()),
              static_cast<int>(Device.GetOutputLatency()));
  std::printf("buffer sizes:  min %d, max %d, preferred %d, granularity %d (%s)\n", static_cast<int>(B.GetMin()),
              static_cast<int>(B.GetMax()), static_cast<int>(B.GetPreferred()), static_cast<int>(B.GetGranularity()),
              GranularityText(B.GetGranularity()).c_str());
  std::printf("post output:   %s\n", Device.GetUsesPostOutput() ? "yes" : "no");
  const auto Clocks = Device.GetClockSource().GetSources();
  std::printf("clock sources: %zu\n", Clocks.size());
  for (const auto& C : Clocks)
    std::printf("  %3d  %s%s\n", static_cast<int>(C.index), C.name, C.isCurrentSource ? "  (current)" : "");
  PrintChannels("inputs:", Device.GetAvailableInputChannels());
  PrintChannels("outputs:", Device.GetAvailableOutputChannels());
  if (!Reports.Empty()) return Fail(Reports.First());
  return 0;
}

// ---- run -------------------------------------------------------------------------------

// Measures the audio on its way into the device's outputs: one sink pin per
// output channel, connected beside the device's pin to the same source.
// Buffers arrive on the device's processing thread.
class TPeakMeter : public TWBComponent {
 public:
  explicit TPeakMeter(size_t Channels) : FPeaks(Channels) {
    for (size_t I = 0; I < Channels; ++I) {
      FPeaks[I] = 0.0;
      FPins.push_back(std::make_unique<TSRPWAudioSinkPin>(*this, "Meter" + std::to_string(I + 1)));
    }
  }
  ~TPeakMeter() override { BeginDestroy(); }

  TSRPWAudioSinkPin& GetInputPin(size_t Index) { return *FPins.at(Index); }
  // [any thread] The largest absolute sample seen on a channel, as a fraction of full scale.
  double GetPeak(size_t Index) const { return FPeaks.at(Index).load(); }

  void SinkDispatch(TPWBasicPin*, TPWBasicPin* SinkPin, TPWOperationID ID, TPWOperation& Operation,
                    TPWNotifyStates& States) override {
    States.Include(TPWNotifyState::pnsHandled);
    if (ID != poidSuppliedBuffer) return;
    const ISRAudioBuffer* B = static_cast<TPWSuppliedBufferOperation&>(Operation).GetAudioBuffer();
    if (!B || B->GetBits() == 0) return;
    for (size_t I = 0; I < FPins.size(); ++I) {
      if (FPins[I].get() != SinkPin) continue;
      int64_t Largest = 0;
      for (size_t S = 0; S < B->GetSamples(); ++S)
        for (unsigned C = 0; C < B->GetChannels(); ++C) Largest = std::max<int64_t>(Largest, std::llabs(B->GetSample(S, C)));
      const double Peak = static_cast<double>(Largest) / ISRAudioBuffer::MaxValue(B->GetBits());
      if (Peak > FPeaks[I].load()) FPeaks[I] = Peak;
    }
  }

 private:
  std::vector<std::unique_ptr<TSRPWAudioSinkPin>> FPins;
  std::vector<std::atomic<double>> FPeaks;
};

struct TRunOptions {
  std::string Driver;
  double Seconds = 2.0;
  double Rate = 0.0;  // 0: the driver's current rate
  long BufferSize = 0;  // 0: the driver's preferred size
  std::vector<std::string> PlugIns;
  bool Quiet = false;
};

int ParseRun(const TArgs& Args, TRunOptions& O) {
  TArgs Names;
  const std::vector<TOption> Options = {
      {"-q", false, [&](const std::string&) { return O.Quiet = true; }, ""},
      {"-s", true, [&](const std::string& V) { return ParseDouble(V, O.Seconds) && O.Seconds > 0 && O.Seconds <= 86400; },
       "seconds, above 0 and at most 86400"},
      {"-r", true, [&](const std::string& V) { return ParseDouble(V, O.Rate) && O.Rate >= 1000 && O.Rate <= 1e7; },
       "hertz, 1000 to 10000000"},
      {"-b", true,
       [&](const std::string& V) { return ParseInt(V, O.BufferSize) && O.BufferSize >= 1 && O.BufferSize <= (1 << 20); },
       "frames, 1 to 1048576"},
      {"-p", true, [&](const std::string& V) { O.PlugIns.push_back(V); return !V.empty(); }, "a plug-in file"},
  };
  if (const int Rc = ParseOptions(Args, Options, Names, 1)) return Rc;
  if (Names.size() != 1) return Usage();
  O.Driver = Names[0];
  return 0;
}

int Run(const TArgs& Args) {
  TRunOptions O;
  if (const int Rc = ParseRun(Args, O)) return Rc;
  if (!PrepareDrivers()) return 1;

  // Declared before the device, so that they outlive it: the device stops
  // and closes first when the command returns.
  TReports Reports;
  std::vector<std::unique_ptr<TSRVSTHost>> Hosts;
  std::vector<std::unique_ptr<TVst3Stage>> Vst3Stages;
  std::unique_ptr<TPeakMeter> Meter;
  TSRASIOAudioDevice Device;
  Reports.Attach(Device);
  if (O.Rate > 0)
    Device.GetSampleRate().SetRate(O.Rate);
  else
    Device.GetSampleRate().SetUseCurrent(true);
  Device.GetClockSource().SetUseCurrent(true);
  if (O.BufferSize > 0) {
    Device.GetBufferSize().SetUsePreferred(false);
    Device.GetBufferSize().SetBufferSize(static_cast<uint32_t>(O.BufferSize));
  }
  if (!OpenDevice(Device, Reports, O.Driver)) return 1;

  const int Inputs = Device.GetDriverInputCount(), Outputs = Device.GetDriverOutputCount();
  const int Width = std::min(Inputs, Outputs);
  if (Width == 0) return Fail("ASIO driver \"" + O.Driver + "\" has no input or no output channels");
  Device.GetInputChannels().SetCount(Inputs);
  Device.GetOutputChannels().SetCount(Outputs);
  // The size the driver will be asked for: every plug-in works in blocks of it.
  const TSRASIOBufferSize& Sizes = Device.GetBufferSize();
  const int32_t Block = Sizes.CalculateSize();
  if (Sizes.GetGranularity() == -1 && (Block < 1 || (Block & (Block - 1)) != 0))
    return Fail("buffer size " + std::to_string(Block) + ": the driver takes powers of two from " +
                std::to_string(Sizes.GetMin()) + " to " + std::to_string(Sizes.GetMax()));
  if (O.BufferSize > 0 && Block != O.BufferSize)
    std::fprintf(stderr, "quorvel: buffer size %ld is not one the driver offers: %d is used\n", O.BufferSize,
                 static_cast<int>(Block));

  // The chain, one channel at a time: Sources[i] feeds channel i of the next stage.
  std::vector<TSRPWAudioSourcePin*> Sources;
  for (int I = 0; I < Width; ++I) Sources.push_back(&Device.GetInputChannels().GetItem(I).GetOutputPin());
  std::string Chain = std::to_string(Width) + " input" + (Width == 1 ? "" : "s");
  for (const auto& File : O.PlugIns) {
    if (IsVst3Path(File)) {
      // Channel i feeds channel i of the module's main input bus.
      Vst3Stages.push_back(std::make_unique<TVst3Stage>());
      TVst3Stage& Stage = *Vst3Stages.back();
      const double Rate = O.Rate > 0 ? O.Rate : Device.GetSampleRate().GetRate();
      if (!OpenVst3Stage(Stage, Reports, File, Rate, static_cast<size_t>(std::max(Block, 1)),
                         TSRVST3SampleSize::vst3ss32))
        return 1;
      for (size_t I = 0, N = std::min(Sources.size(), Stage.Joiner.GetChannels()); I < N; ++I)
        if (Sources[I]) Sources[I]->Connect(*Stage.GetInputPin(I));
      std::vector<TSRPWAudioSourcePin*> Next(static_cast<size_t>(Width), nullptr);
      for (size_t I = 0, N = std::min(static_cast<size_t>(Width), Stage.Outputs); I < N; ++I)
        Next[I] = Stage.GetOutputPin(I);
      Sources = std::move(Next);
      Chain += " -> " + Stage.Describe();
      continue;
    }
    Hosts.push_back(std::make_unique<TSRVSTHost>());
    TSRVSTHost& Host = *Hosts.back();
    Reports.Attach(Host);
    if (!OpenPlugIn(Host, Reports, File)) return 1;
    Host.SetBufferSize(static_cast<size_t>(std::max(Block, 1)));
    // An instrument has no inputs: one surplus input pin (never read) clocks its blocks.
    if (Host.GetInputPins().Count() == 0) Host.GetInputPins().SetCount(1);
    const size_t Ins = std::min(Sources.size(), Host.GetInputPins().Count());
    for (size_t I = 0; I < Ins; ++I)
      if (Sources[I]) Sources[I]->Connect(*Host.GetInputPin(I));
    const size_t Outs = std::min(static_cast<size_t>(Width), Host.GetOutputPins().Count());
    std::vector<TSRPWAudioSourcePin*> Next(static_cast<size_t>(Width), nullptr);
    for (size_t I = 0; I < Outs; ++I) Next[I] = Host.GetOutputPin(I);
    Sources = std::move(Next);
    Chain += " -> " + Host.GetEffectName() + " (" + std::to_string(Host.GetNumInputs()) + " in / " +
             std::to_string(Host.GetNumOutputs()) + " out)";
  }
  Meter = std::make_unique<TPeakMeter>(static_cast<size_t>(Outputs));
  for (size_t I = 0; I < Sources.size(); ++I) {
    if (!Sources[I]) continue;
    Sources[I]->Connect(Device.GetOutputChannels().GetItem(static_cast<int>(I)).GetInputPin());
    Sources[I]->Connect(Meter->GetInputPin(I));
  }
  Chain += " -> " + std::to_string(Outputs) + " output" + (Outputs == 1 ? "" : "s");

  Device.Start();
  if (!Device.GetRunning()) {
    return Fail("ASIO driver \"" + O.Driver + "\" did not start" + (Reports.Empty() ? "" : ": " + Reports.First()));
  }
  const int32_t Running = Device.GetBufferSize().GetRunningSize();
  std::printf("driver: %s, %.0f Hz, buffers of %d frames\n", Device.GetDriverName().c_str(),
              Device.GetRunningSampleRate(), static_cast<int>(Running));
  std::printf("chain: %s\n", Chain.c_str());
  std::fflush(stdout);

  // The driver calls back on its own thread; this thread keeps serving the
  // main-thread queue, where a reset request from the driver stops the device.
  using TClock = std::chrono::steady_clock;
  const auto Begin = TClock::now();
  const auto End = Begin + std::chrono::duration_cast<TClock::duration>(std::chrono::duration<double>(O.Seconds));
  TProgressBar Bar(!O.Quiet);
  const uint64_t Total = static_cast<uint64_t>(O.Seconds * 1000);
  while (Device.GetRunning()) {
    const auto Now = TClock::now();
    if (Now >= End) break;
    Bar.Show(static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(Now - Begin).count()), Total);
    const auto Left = std::chrono::duration_cast<std::chrono::milliseconds>(End - Now).count();
    Threading::WaitAndProcessMainThreadQueue(std::min<int64_t>(Left + 1, 50));
  }
  Bar.Show(Total, Total);
  Bar.Finish();
  const bool StoppedByDriver = !Device.GetRunning();
  const double Ran = std::chrono::duration<double>(TClock::now() - Begin).count();
  Device.Stop();
  Threading::ProcessMainThreadQueue();

  const TSRASIOAudioDeviceStats St = Device.GetStats();
  std::printf("ran %.2f s\n", Ran);
  for (int I = 0; I < Outputs; ++I) {
    const std::string Name = I < Device.GetAvailableOutputChannels().GetCount()
                                 ? Device.GetAvailableOutputChannels().GetItem(I).Name
                                 : "Output " + std::to_string(I + 1);
    const bool Connected = static_cast<size_t>(I) < Sources.size() && Sources[static_cast<size_t>(I)];
    std::printf("  output %d (%s): %s\n", I + 1, Name.c_str(),
                Connected ? ("peak " + Decibels(Meter->GetPeak(static_cast<size_t>(I)))).c_str() : "not connected");
  }
  std::printf("switches: %llu, input buffers: %llu, output buffers: %llu, lost buffers: %llu\n",
              static_cast<unsigned long long>(St.Switches), static_cast<unsigned long long>(St.InputBuffers),
              static_cast<unsigned long long>(St.OutputBuffers), static_cast<unsigned long long>(St.LostBuffers));
  if (!Reports.Empty()) return Fail(Reports.First());
  if (StoppedByDriver) {
    char Text[96];
    std::snprintf(Text, sizeof Text, "the driver asked for a reset after %.2f s: the device stopped", Ran);
    return Fail(Text);
  }
  return 0;
}

}  // namespace

int Asio(const TArgs& Args) {
  if (Args.empty()) return Usage();
  const std::string& Command = Args[0];
  const TArgs Rest(Args.begin() + 1, Args.end());
  if (Command == "list") return List(Rest);
  if (Command == "info") return DriverInfo(Rest);
  if (Command == "run") return Run(Rest);
  return Usage();
}

}  // namespace Quorvel::Cli
