// Cost of one buffer switch through the whole ASIO chain:
//   test driver (slot 0, 2 in / 2 out Int32LSB, 48 kHz, 64 samples)
//   -> device input pins -> VST 2 host with the null plug-in -> device output pins
// The driver is paced by hand, in lockstep with the chain: each iteration
// permits one switch and spins until the chain has delivered that switch's
// audio back to both outputs, so the next switch starts as soon as the
// chain has caught up. Each iteration is one exchange on the driver thread,
// the hand-over to the processing thread, the host's block and the queueing
// at the outputs.
//
// BM_AsioChain/0 hands input audio to the chain on the device's processing
// thread; BM_AsioChain/1 runs the chain on the driver's thread
// (ProcessOnDriverThread).
//
// Counters of BM_AsioChain:
//   ns_per_switch      wall time of one switch
//   x_realtime         how many times faster than real time: (64 / 48000 s) / ns_per_switch
//   ratio_vs_host      ns_per_switch / host_ns, where host_ns is BM_HostBlock of
//                      the same run: the same host and plug-in fed one block
//                      from a source on the benchmark thread (no device, no
//                      threads; thread CPU time)
//   lost_buffers       output half-buffers the device sent silent (expected 0)
//   allocs_per_switch  heap allocations of all threads per switch (expected 0)
//   driver_cpu_ns      CPU time of the driver thread per switch
//   chain_cpu_ns       CPU time of all threads but the benchmark's per switch
//                      (the driver thread and the processing thread)
#include <benchmark/benchmark.h>

#include "bench/Benchhost.h"

#include <pthread.h>

#include <atomic>
#include <chrono>
#include <ctime>
#include <string>
#include <thread>

#include "asio/Srasioaudiodevice.h"
#include "testplugins/asio/Qvtestasio.h"
#include "tests/support/Alloccounter.h"
#include "vst2/Srvsthost.h"

using namespace Quorvel;

namespace {

constexpr int32_t Frames = 64;
constexpr double Rate = 48000.0;
constexpr int Channels = 2;
constexpr int WarmUpSwitches = 200;
constexpr auto SwitchTimeout = std::chrono::seconds(2);
constexpr int32_t Slot = 0;

double GHostNs = 0.0;

double ClockNs(clockid_t Clock) {
  timespec T{};
  clock_gettime(Clock, &T);
  return static_cast<double>(T.tv_sec) * 1e9 + static_cast<double>(T.tv_nsec);
}

// The host alone: each channel gets the block the device would hand it (mono,
// 32 bits, as an Int32LSB input arrives) and the host's output is copied out.
void BM_HostBlock(benchmark::State& State) {
  ISRAudioBufferRef Blocks[Channels];
  for (int C = 0; C < Channels; ++C) {
    Blocks[C] = TSRAudioBuffer::Create(1, Frames, 32, Rate);
    for (size_t J = 0; J < Frames; ++J) Blocks[C]->SetSample(J, 0, QvTestAsioSignal(C, J));
  }
  Bench::THostBlockResult R;
  if (!Bench::MeasureHostBlock(State, QV_TESTVST2_NULL, Blocks,
                               TSRASIOAudioDevice::MakeChannelFormat(ASIOSTInt32LSB, static_cast<int32_t>(Rate)), R))
    return;
  GHostNs = R.Ns;
  State.counters["host_ns"] = R.Ns;
  State.counters["allocs_per_block"] = static_cast<double>(R.Allocations) / static_cast<double>(State.iterations());
}

// The driver thread, found through a message the driver sends from it: its
// CPU clock can then be read from the benchmark thread.
struct TDriverClock {
  std::atomic<bool> Valid{false};
  clockid_t Clock{};
};

// The chain of one benchmark run. Stop and the slot's reset always run, so a
// failed run leaves no driver thread behind.
class TChain {
 public:
  TChain() = default;
  ~TChain() {
    Device.Stop();
    Threading::ProcessMainThreadQueue();
    if (Api) Api->Reset(Slot);
  }

  // Empty when the chain runs; otherwise what failed.
  std::string Start(bool OnDriverThread) {
    if (!ASIOInitializeComForThisThread()) return "COM does not initialize";
    Api = QvTestAsioApi();
    if (!Api) return "the test driver's control functions are missing";
    if (!QvTestAsioRegisterDrivers()) return "the test driver does not register";
    Api->Reset(Slot);
    TQvTestAsioConfig C{};
    Api->GetConfig(Slot, &C);
    C.Pacing = qvpManual;
    if (Api->SetConfig(Slot, &C) != ASE_OK) return "the test driver refuses manual pacing";

    Device.GetDevice().SetDeviceName(QvTestAsioNames[Slot]);
    Device.GetInputChannels().SetCount(Channels);
    Device.GetOutputChannels().SetCount(Channels);
    Device.GetBufferSize().SetUsePreferred(false);
    Device.GetBufferSize().SetBufferSize(Frames);
    Device.GetSampleRate().SetRate(Rate);
    Device.SetProcessOnDriverThread(OnDriverThread);
    Device.OnLatenciesChanged = [this](TSRASIOAudioDevice*) {
      if (pthread_getcpuclockid(pthread_self(), &DriverClock.Clock) == 0) DriverClock.Valid = true;
    };
    Host.SetFileName(QV_TESTVST2_NULL);
    if (!Host.Open()) return "the null plug-in does not open";
    Host.SetBufferSize(Frames);
    for (int I = 0; I < Channels; ++I) {
      const auto Pin = static_cast<size_t>(I);
      if (!Device.GetInputChannels().GetItem(I).GetOutputPin().Connect(*Host.GetInputPin(Pin)) ||
          !Host.GetOutputPin(Pin)->Connect(Device.GetOutputChannels().GetItem(I).GetInputPin()))
        return "the pins do not connect";
    }
    if (!Device.Start() || !Device.GetRunning()) return "the device does not start";
    if (Device.GetBufferSize().GetRunningSize() != Frames) return "the driver runs another buffer size";
    FExpectedOutputs = Device.GetStats().OutputBuffers;
    return {};
  }

  // Permits one switch and spins until its audio is back at both outputs.
  bool Switch() {
    if (Api->Step(Slot, 1) != ASE_OK) return false;
    FExpectedOutputs += Channels;
    const auto Deadline = std::chrono::steady_clock::now() + SwitchTimeout;
    while (Device.GetStats().OutputBuffers < FExpectedOutputs) {
      if (std::chrono::steady_clock::now() > Deadline) return false;
      std::this_thread::yield();
    }
    return true;
  }

  // Has the driver thread answer a message, to learn its CPU clock.
  bool FindDriverClock() {
    int32_t Answer = 0;
    if (Api->Message(Slot, kAsioLatenciesChanged, 0, &Answer) != ASE_OK) return false;
    const auto Deadline = std::chrono::steady_clock::now() + SwitchTimeout;
    while (!DriverClock.Valid.load()) {
      if (std::chrono::steady_clock::now() > Deadline) return false;
      std::this_thread::yield();
    }
    return true;
  }

  const TQvTestAsioApi* Api = nullptr;
  TSRASIOAudioDevice Device;
  TSRVSTHost Host;
  TDriverClock DriverClock;

 private:
  uint64_t FExpectedOutputs = 0;
};

void BM_AsioChain(benchmark::State& State) {
  TChain Chain;
  const std::string Failure = Chain.Start(State.range(0) != 0);
  if (!Failure.empty()) {
    State.SkipWithError(Failure.c_str());
    return;
  }
  for (int I = 0; I < WarmUpSwitches; ++I)
    if (!Chain.Switch()) {
      State.SkipWithError("the chain did not deliver a switch while warming up");
      return;
    }
  const bool HaveDriverClock = Chain.FindDriverClock();

  const TSRASIOAudioDeviceStats S0 = Chain.Device.GetStats();
  const uint64_t A0 = Testing::HeapAllocationCount();
  const double Driver0 = HaveDriverClock ? ClockNs(Chain.DriverClock.Clock) : 0.0;
  const double Process0 = ClockNs(CLOCK_PROCESS_CPUTIME_ID);
  const double Own0 = ClockNs(CLOCK_THREAD_CPUTIME_ID);
  const auto T0 = std::chrono::steady_clock::now();
  for (auto _ : State) {
    if (!Chain.Switch()) {
      State.SkipWithError("the chain did not deliver a switch within 2 s");
      break;
    }
  }
  const auto T1 = std::chrono::steady_clock::now();
  const double Own1 = ClockNs(CLOCK_THREAD_CPUTIME_ID);
  const double Process1 = ClockNs(CLOCK_PROCESS_CPUTIME_ID);
  const double Driver1 = HaveDriverClock ? ClockNs(Chain.DriverClock.Clock) : 0.0;
  const uint64_t A1 = Testing::HeapAllocationCount();
  const TSRASIOAudioDeviceStats S1 = Chain.Device.GetStats();
  if (State.error_occurred()) return;

  const double Switches = static_cast<double>(State.iterations());
  const double Ns = std::chrono::duration<double, std::nano>(T1 - T0).count() / Switches;
  State.counters["ns_per_switch"] = Ns;
  State.counters["x_realtime"] = (Frames / Rate * 1e9) / Ns;
  if (GHostNs > 0) State.counters["ratio_vs_host"] = Ns / GHostNs;
  State.counters["lost_buffers"] = static_cast<double>(S1.LostBuffers - S0.LostBuffers);
  State.counters["allocs_per_switch"] = static_cast<double>(A1 - A0) / Switches;
  if (HaveDriverClock) State.counters["driver_cpu_ns"] = (Driver1 - Driver0) / Switches;
  State.counters["chain_cpu_ns"] = ((Process1 - Process0) - (Own1 - Own0)) / Switches;
  State.SetItemsProcessed(State.iterations() * Frames);
}

}  // namespace

// The host alone first: the chain's ratio refers to it.
BENCHMARK(BM_HostBlock);
BENCHMARK(BM_AsioChain)->Arg(0)->Arg(1)->UseRealTime();
BENCHMARK_MAIN();
