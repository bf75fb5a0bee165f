// Cost of moving one block through a chain of components, against a plain
// loop that does the same copy, measured in the same run; and the heap
// allocations per block in steady state (expected 0).
//
// Chains, each ending in a sink that copies the block out (the one copy
// the baseline makes):
//   Chain3:      source -> pass-through filter -> sink
//   ChainMulti:  source -> pass-through filter -> multi-input -> sink
//                (the multi-input queues and reloads: two more copies)
//   MultiPins:   one mono source feeding every input of a multi-input with
//                N inputs; reports the cost per input and block against the
//                same figure at 256 inputs (1.0 when a block's cost is linear
//                in the number of inputs)
#include <benchmark/benchmark.h>

#include "bench/Benchsupport.h"

#include <cstring>
#include <vector>

#include "frame/Srbasicmultiinput.h"
#include "frame/Srcommonfilter.h"
#include "tests/support/Alloccounter.h"

using namespace Quorvel;

namespace {

constexpr unsigned Channels = 2;
constexpr unsigned Bits = 16;

// Sends a prepared block, copied into a pooled buffer as a real source would.
class TBenchSource : public TWBComponent {
 public:
  explicit TBenchSource(size_t Frames) : Output(*this, "Output"), FBlock(Frames * Channels * Bits / 8, 0x11) {}
  ~TBenchSource() override { BeginDestroy(); }
  void Start() { Output.SendStartWave(MakeWaveFormat(48000, Channels, Bits)); }
  void Send() {
    Threading::TLockGuard G(GetLock());
    auto B = TSRAudioBuffer::Create(Channels, FBlock.size() / (Channels * Bits / 8), Bits, 48000);
    std::memcpy(B->GetData(), FBlock.data(), FBlock.size());
    Output.SubmitBuffer(B);
  }
  TSRPWAudioSourcePin Output;

 private:
  std::vector<uint8_t> FBlock;
};

double GBaselineNs[2];  // per block, by size index

int SizeIndex(size_t Frames) { return Frames == 256 ? 0 : 1; }

void Report(benchmark::State& State, double Ns, uint64_t Allocations) {
  const double Base = GBaselineNs[SizeIndex(static_cast<size_t>(State.range(0)))];
  State.counters["ns_per_block"] = Ns;
  if (Base > 0) State.counters["ratio_vs_plain_copy"] = Ns / Base;
  State.counters["allocs_per_block"] = static_cast<double>(Allocations) / static_cast<double>(State.iterations());
  State.SetBytesProcessed(State.iterations() * State.range(0) * Channels * Bits / 8);
}

// The plain loop: the source's copy into a block, and the sink's copy out.
void BM_PlainCopy(benchmark::State& State) {
  const size_t Bytes = static_cast<size_t>(State.range(0)) * Channels * Bits / 8;
  std::vector<uint8_t> Src(Bytes, 0x11), Mid(Bytes), Dst(Bytes);
  const uint64_t A0 = Testing::HeapAllocationCount();
  const double Ns = Bench::NsPerIteration(State, [&] {
    std::memcpy(Mid.data(), Src.data(), Bytes);
    benchmark::DoNotOptimize(Mid.data());
    std::memcpy(Dst.data(), Mid.data(), Bytes);
    benchmark::DoNotOptimize(Dst.data());
  });
  GBaselineNs[SizeIndex(static_cast<size_t>(State.range(0)))] = Ns;
  Report(State, Ns, Testing::HeapAllocationCount() - A0);
}

void BM_Chain3(benchmark::State& State) {
  const size_t Frames = static_cast<size_t>(State.range(0));
  TBenchSource Source(Frames);
  TSRCommonFilter Filter;
  Bench::TCopyingSink Sink(Frames * Channels * Bits / 8);
  Source.Output.Connect(Filter.GetInputPin());
  Filter.GetOutputPin()->Connect(Sink.Input);
  Source.Start();
  for (int I = 0; I < 8; ++I) Source.Send();  // warm the pool
  const uint64_t A0 = Testing::HeapAllocationCount();
  const double Ns = Bench::NsPerIteration(State, [&] { Source.Send(); });
  Report(State, Ns, Testing::HeapAllocationCount() - A0);
}

void BM_ChainMulti(benchmark::State& State) {
  const size_t Frames = static_cast<size_t>(State.range(0));
  TBenchSource Source(Frames);
  TSRCommonFilter Filter;
  TSRBasicMultiInput Multi(nullptr, 1, 1);
  Bench::TCopyingSink Sink(Frames * Channels * Bits / 8);
  Multi.SetBufferSize(Frames);
  Source.Output.Connect(Filter.GetInputPin());
  Filter.GetOutputPin()->Connect(*Multi.GetInputPin(0));
  Multi.GetOutputPin(0)->Connect(Sink.Input);
  Source.Start();
  for (int I = 0; I < 8; ++I) Source.Send();
  const uint64_t A0 = Testing::HeapAllocationCount();
  const double Ns = Bench::NsPerIteration(State, [&] { Source.Send(); });
  Report(State, Ns, Testing::HeapAllocationCount() - A0);
}

double GPerPinNs256 = 0;

void BM_MultiPins(benchmark::State& State) {
  constexpr size_t Frames = 64;
  const size_t Pins = static_cast<size_t>(State.range(0));
  TSRBasicMultiInput Multi(nullptr, Pins, 1);
  Multi.SetBufferSize(Frames);
  TSRPWAudioSourcePin Output(Multi, "Source");
  for (size_t I = 0; I < Pins; ++I) Output.Connect(*Multi.GetInputPin(I));
  Output.SendStartWave(MakeWaveFormat(48000, 1, Bits));
  auto Block = TSRAudioBuffer::Create(1, Frames, Bits, 48000);
  for (int I = 0; I < 4; ++I) Output.SubmitBuffer(Block);
  const uint64_t A0 = Testing::HeapAllocationCount();
  const double Ns = Bench::NsPerIteration(State, [&] { Output.SubmitBuffer(Block); });
  const double PerPin = Ns / static_cast<double>(Pins);
  if (Pins == 256) GPerPinNs256 = PerPin;
  State.counters["ns_per_block_per_input"] = PerPin;
  if (GPerPinNs256 > 0) State.counters["ratio_vs_256_inputs"] = PerPin / GPerPinNs256;
  State.counters["allocs_per_block"] =
      static_cast<double>(Testing::HeapAllocationCount() - A0) / static_cast<double>(State.iterations());
  Output.SendStop();
}

}  // namespace

BENCHMARK(BM_MultiPins)->Arg(256)->Arg(4096)->Arg(16384);
BENCHMARK(BM_PlainCopy)->Arg(256)->Arg(4096);
BENCHMARK(BM_Chain3)->Arg(256)->Arg(4096);
BENCHMARK(BM_ChainMulti)->Arg(256)->Arg(4096);
BENCHMARK_MAIN();
