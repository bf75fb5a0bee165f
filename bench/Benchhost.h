// The host's own block, as the baseline of benchmarks that put a VST 2 host
// in a chain: two source pins -> the host -> two copying sinks, all on the
// benchmark thread.
#pragma once

#include <cstdint>

#include "bench/Benchsupport.h"
#include "tests/support/Alloccounter.h"
#include "vst2/Srvsthost.h"

namespace Quorvel::Bench {

struct THostBlockResult {
  double Ns = 0.0;           // thread CPU time per block
  uint64_t Allocations = 0;  // heap allocations over the measured blocks
};

// Runs the plug-in at PlugIn with Blocks[c] arriving on input c each
// iteration (after the stream starts with Format and warms up). False, with
// the benchmark skipped, when the plug-in does not open.
inline bool MeasureHostBlock(benchmark::State& State, const char* PlugIn, const ISRAudioBufferRef (&Blocks)[2],
                             const TSRWaveFormatExtensible& Format, THostBlockResult& Result) {
  TSRVSTHost Host;
  Host.SetSampleRate(Format.Format.nSamplesPerSec);
  Host.SetBufferSize(Blocks[0]->GetSamples());
  if (!Host.Open(PlugIn)) {
    State.SkipWithError("the plug-in does not open");
    return false;
  }
  TPinSource Sources[2];
  // Each keeps what arrives, as a direct call's output arrays do.
  TCopyingSink Sinks[2] = {TCopyingSink(Blocks[0]->GetSize()), TCopyingSink(Blocks[1]->GetSize())};
  for (size_t C = 0; C < 2; ++C) {
    Sources[C].Output.Connect(*Host.GetInputPin(C));
    Host.GetOutputPin(C)->Connect(Sinks[C].Input);
    Sources[C].Output.SendStartWave(Format);
  }
  const auto Block = [&] {
    for (size_t C = 0; C < 2; ++C) Sources[C].Output.SubmitBuffer(Blocks[C]);
  };
  for (int I = 0; I < 8; ++I) Block();
  const uint64_t A0 = Testing::HeapAllocationCount();
  Result.Ns = NsPerIteration(State, Block);
  Result.Allocations = Testing::HeapAllocationCount() - A0;
  for (auto& S : Sources) S.Output.SendStop();
  return true;
}

}  // namespace Quorvel::Bench
