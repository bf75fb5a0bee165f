// Cost of one block through TSRVSTHost with the null test plug-in, against
// calling that plug-in's process routine directly with the two format
// conversions (16-bit integer to float and back) done in a plain loop, in the
// same run; and heap allocations per block in steady state (expected 0).
#include <benchmark/benchmark.h>

#include "bench/Benchhost.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "platform/Library.h"
#include "tests/support/Alloccounter.h"
#include "vst2/Srvsthost.h"

using namespace Quorvel;

namespace {

constexpr size_t Frames = 256;
constexpr unsigned Channels = 2;
double GDirectNs = 0.0;

void Report(benchmark::State& State, double Ns, uint64_t Allocations) {
  State.counters["ns_per_block"] = Ns;
  if (GDirectNs > 0) State.counters["ratio_vs_direct"] = Ns / GDirectNs;
  State.counters["allocs_per_block"] = static_cast<double>(Allocations) / static_cast<double>(State.iterations());
  State.SetItemsProcessed(State.iterations() * static_cast<int64_t>(Frames));
}

intptr_t NoHost(PVSTEffect, int32_t Opcode, int32_t, intptr_t, void*, float) { return Opcode == 1 ? 2400 : 0; }

// The plug-in called by hand: int16 -> float, process, float -> int16.
void BM_DirectCall(benchmark::State& State) {
  std::string Text;
  unsigned Code = 0;
  Platform::TModuleHandle Module = Platform::LoadCodeLibrary(QV_TESTVST2_NULL, Text, Code);
  auto Entry = Module ? reinterpret_cast<TMainProc>(Platform::GetLibrarySymbol(Module, "VSTPluginMain")) : nullptr;
  PVSTEffect E = Entry ? Entry(&NoHost) : nullptr;
  if (!E) {
    State.SkipWithError("the null plug-in does not load");
    return;
  }
  E->Dispatcher(E, effOpen, 0, 0, nullptr, 0.0f);
  E->Dispatcher(E, effMainsChanged, 0, 1, nullptr, 0.0f);
  std::vector<int16_t> In[Channels], Out[Channels];
  std::vector<float> FIn[Channels], FOut[Channels];
  float* InPtr[Channels];
  float* OutPtr[Channels];
  for (unsigned C = 0; C < Channels; ++C) {
    In[C].assign(Frames, static_cast<int16_t>(1000 + C));
    Out[C].assign(Frames, 0);
    FIn[C].assign(Frames, 0.0f);
    FOut[C].assign(Frames, 0.0f);
    InPtr[C] = FIn[C].data();
    OutPtr[C] = FOut[C].data();
  }
  const uint64_t A0 = Testing::HeapAllocationCount();
  const double Ns = Bench::NsPerIteration(State, [&] {
    for (unsigned C = 0; C < Channels; ++C)
      for (size_t J = 0; J < Frames; ++J) FIn[C][J] = static_cast<float>(In[C][J]) * (1.0f / 65536.0f);
    E->ProcessReplacing(E, InPtr, OutPtr, static_cast<int32_t>(Frames));
    for (unsigned C = 0; C < Channels; ++C)
      for (size_t J = 0; J < Frames; ++J) {
        const double V = std::nearbyint(static_cast<double>(FOut[C][J]) * 65536.0);
        Out[C][J] = static_cast<int16_t>(std::min(32767.0, std::max(-32768.0, V)));
      }
    benchmark::DoNotOptimize(Out[0].data());
    benchmark::DoNotOptimize(Out[1].data());
  });
  GDirectNs = Ns;
  Report(State, Ns, Testing::HeapAllocationCount() - A0);
  E->Dispatcher(E, effClose, 0, 0, nullptr, 0.0f);
  Platform::FreeCodeLibrary(Module);
}

// The same block through source pins -> host -> sink pins.
void BM_HostBlock(benchmark::State& State) {
  ISRAudioBufferRef Blocks[Channels];
  for (unsigned C = 0; C < Channels; ++C) {
    Blocks[C] = TSRAudioBuffer::Create(1, Frames, 16, 48000);
    for (size_t J = 0; J < Frames; ++J) Blocks[C]->SetSample(J, 0, static_cast<int32_t>(1000 + C));
  }
  Bench::THostBlockResult R;
  if (Bench::MeasureHostBlock(State, QV_TESTVST2_NULL, Blocks, MakeWaveFormat(48000, 1, 16), R))
    Report(State, R.Ns, R.Allocations);
}

}  // namespace

BENCHMARK(BM_DirectCall);
BENCHMARK(BM_HostBlock);
BENCHMARK_MAIN();
