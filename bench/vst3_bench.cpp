// Cost of one block through TSRVST3Host with the VST 3 test module (one
// stereo bus in and out), against calling the module's process directly with
// the same kind of buffers and the two format conversions (interleaved 16-bit
// integers to the module's channels and back) done in a plain loop, in the
// same run; 32-bit and 64-bit samples at 64, 256 and 4096 frames. Counters:
// ratio_vs_direct (host / direct of the same configuration) and
// allocs_per_block (expected 0).
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <utility>
#include <vector>

#include "bench/Benchsupport.h"
#include "tests/support/Alloccounter.h"
#include "vst3/Srvst3host.h"

using namespace Quorvel;
using namespace Quorvel::Vst3hostintf;

namespace {

constexpr unsigned Channels = 2;
std::map<std::pair<bool, size_t>, double> GDirectNs;

void Report(benchmark::State& State, bool Double, size_t Frames, double Ns, uint64_t Allocations, bool Direct) {
  State.counters["ns_per_block"] = Ns;
  if (Direct) GDirectNs[{Double, Frames}] = Ns;
  const auto D = GDirectNs.find({Double, Frames});
  if (!Direct && D != GDirectNs.end() && D->second > 0) State.counters["ratio_vs_direct"] = Ns / D->second;
  State.counters["allocs_per_block"] = static_cast<double>(Allocations) / static_cast<double>(State.iterations());
  State.SetItemsProcessed(State.iterations() * static_cast<int64_t>(Frames));
}

bool OpenHost(benchmark::State& State, TSRVST3Host& Host, bool Double, size_t Frames) {
  Host.SetSampleRate(48000);
  Host.SetBufferSize(Frames);
  Host.SetSampleSize(Double ? TSRVST3SampleSize::vst3ss64 : TSRVST3SampleSize::vst3ss32);
  Host.SetFileName(QV_TESTVST3_MAIN);
  if (Host.Open() && Host.GetAudioProcessor()) return true;
  State.SkipWithError("the test module does not open");
  return false;
}

template <typename F>
void Direct(benchmark::State& State, TSRVST3Host& Host, bool Double, size_t Frames) {
  IAudioProcessor* Processor = Host.GetAudioProcessor();
  std::vector<int16_t> In(Frames * Channels, 1000), Out(Frames * Channels, 0);
  std::vector<F> FIn[Channels], FOut[Channels];
  void* InPtr[Channels];
  void* OutPtr[Channels];
  for (unsigned C = 0; C < Channels; ++C) {
    FIn[C].assign(Frames, F(0));
    FOut[C].assign(Frames, F(0));
    InPtr[C] = FIn[C].data();
    OutPtr[C] = FOut[C].data();
  }
  TVST3AudioBusBuffers InBus{Channels, 1, InPtr}, OutBus{Channels, 1, OutPtr};
  TVST3ProcessData Data{};
  Data.processMode = kRealtime;
  Data.symbolicSampleSize = Double ? kSample64 : kSample32;
  Data.numSamples = static_cast<int32_t>(Frames);
  Data.numInputs = Data.numOutputs = 1;
  Data.inputs = &InBus;
  Data.outputs = &OutBus;
  Data.inputParameterChanges = Host.GetInputParameterChanges();
  Data.inputEvents = Host.GetInputEvents();
  Processor->setProcessing(1);
  const uint64_t A0 = Testing::HeapAllocationCount();
  const double Ns = Bench::NsPerIteration(State, [&] {
    for (unsigned C = 0; C < Channels; ++C)
      for (size_t J = 0; J < Frames; ++J) FIn[C][J] = static_cast<F>(In[J * Channels + C] * (1.0 / 65536.0));
    Processor->process(Data);
    for (unsigned C = 0; C < Channels; ++C)
      for (size_t J = 0; J < Frames; ++J) {
        const double V = std::nearbyint(static_cast<double>(FOut[C][J]) * 65536.0);
        Out[J * Channels + C] = static_cast<int16_t>(std::min(32767.0, std::max(-32768.0, V)));
      }
    benchmark::DoNotOptimize(Out.data());
  });
  Report(State, Double, Frames, Ns, Testing::HeapAllocationCount() - A0, true);
  Processor->setProcessing(0);
}

// The plug-in's process called by hand on the host's opened processor.
void BM_DirectCall(benchmark::State& State, bool Double, size_t Frames) {
  TSRVST3Host Host;
  if (!OpenHost(State, Host, Double, Frames)) return;
  if (Double)
    Direct<double>(State, Host, Double, Frames);
  else
    Direct<float>(State, Host, Double, Frames);
}

// The same block through a source pin -> the host -> a copying sink.
void BM_HostBlock(benchmark::State& State, bool Double, size_t Frames) {
  TSRVST3Host Host;
  if (!OpenHost(State, Host, Double, Frames)) return;
  auto Block = TSRAudioBuffer::Create(Channels, Frames, 16, 48000);
  for (size_t J = 0; J < Frames; ++J)
    for (unsigned C = 0; C < Channels; ++C) Block->SetSample(J, C, 1000);
  Bench::TPinSource Source;
  Bench::TCopyingSink Sink(Block->GetSize());
  Source.Output.Connect(*Host.GetInputPin(0));
  Host.GetOutputPin(0)->Connect(Sink.Input);
  Source.Output.SendStartWave(MakeWaveFormat(48000, Channels, 16));
  const auto Send = [&] { Source.Output.SubmitBuffer(Block); };
  for (int I = 0; I < 8; ++I) Send();
  const uint64_t A0 = Testing::HeapAllocationCount();
  const double Ns = Bench::NsPerIteration(State, Send);
  Report(State, Double, Frames, Ns, Testing::HeapAllocationCount() - A0, false);
  Source.Output.SendStop();
}

}  // namespace

int main(int Argc, char** Argv) {
  benchmark::Initialize(&Argc, Argv);
  // Each configuration's direct call runs just before its host block.
  for (const bool Double : {false, true})
    for (const size_t Frames : {size_t(64), size_t(256), size_t(4096)}) {
      const std::string Name = std::string(Double ? "64bit/" : "32bit/") + std::to_string(Frames);
      benchmark::RegisterBenchmark(("BM_DirectCall/" + Name).c_str(), BM_DirectCall, Double, Frames);
      benchmark::RegisterBenchmark(("BM_HostBlock/" + Name).c_str(), BM_HostBlock, Double, Frames);
    }
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
