// What the benchmark programs share: timing by thread CPU time, so that
// other load on the machine does not skew ratios taken within one run, and a
// sink that keeps what reaches it, as a real consumer would.
#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstring>
#include <ctime>
#include <vector>

#include "frame/Wbcomponent.h"

namespace Quorvel::Bench {

inline double ThreadCpuNs() {
  timespec T{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &T);
  return static_cast<double>(T.tv_sec) * 1e9 + static_cast<double>(T.tv_nsec);
}

// Runs Body once per benchmark iteration; answers thread CPU ns per iteration.
template <typename Body>
double NsPerIteration(benchmark::State& State, Body&& B) {
  const double T0 = ThreadCpuNs();
  for (auto _ : State) B();
  return (ThreadCpuNs() - T0) / static_cast<double>(State.iterations());
}

// Copies each arriving buffer (up to Bytes) out of the stream.
class TCopyingSink : public TWBComponent {
 public:
  explicit TCopyingSink(size_t Bytes) : Input(*this, "Input"), FOut(Bytes) {}
  ~TCopyingSink() override { BeginDestroy(); }
  void SinkDispatch(TPWBasicPin*, TPWBasicPin*, TPWOperationID ID, TPWOperation& Op, TPWNotifyStates&) override {
    if (ID != poidSuppliedBuffer) return;
    const IWBDataBuffer* B = static_cast<TPWSuppliedBufferOperation&>(Op).GetBuffer();
    std::memcpy(FOut.data(), B->GetData(), std::min(B->GetSize(), FOut.size()));
    benchmark::DoNotOptimize(FOut.data());
  }
  TSRPWAudioSinkPin Input;

 private:
  std::vector<uint8_t> FOut;
};

// A source whose pin the benchmark drives itself.
class TPinSource : public TWBComponent {
 public:
  TPinSource() : Output(*this, "Output") {}
  ~TPinSource() override { BeginDestroy(); }
  TSRPWAudioSourcePin Output;
};

}  // namespace Quorvel::Bench
