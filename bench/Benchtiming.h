// Timing shared by the benchmark programs: thread CPU time, so that other
// load on the machine does not skew ratios taken within one run.
#pragma once

#include <benchmark/benchmark.h>

#include <ctime>

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

}  // namespace Quorvel::Bench
