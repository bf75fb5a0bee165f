// Cost of the ASIO sample conversions against memcpy of the same bytes (the
// larger of the two sides), measured in the same run just before each
// conversion: ratio_vs_memcpy is conversion time / memcpy time. Sizes of 64,
// 256 and 4096 samples run on data in cache; 16M samples run on buffers far
// larger than the caches. Each conversion runs on the best kernel set of
// this CPU and on SSE2.
//
// The float-from-driver conversions scale the driver buffer in place; their
// benchmarks give each call fresh driver samples and take the time of that
// copy off (measured call by call for large buffers, as a memcpy of the same
// size for small ones; otherwise the values would grow to infinity, and the
// byte-swapped ones turn into subnormal numbers, which are slow). Small
// buffers rotate through several driver halves, each refilled a few calls
// before it is converted, as a driver fills its half long before the switch:
// a conversion that loaded the bytes a copy had only just stored would be
// timed waiting for those stores, which is the copy's cost, not its own.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <map>
#include <ctime>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "asio/Srasioconvert.h"

using namespace Quorvel;

namespace {

enum class TDirection { ToDriver, FromDriver, Silence };

struct TConversion {
  const char* Name;
  TASIOSampleType Type;
  TDirection Direction;
};

// One of each distinct path through the primitives, both directions.
const TConversion Conversions[] = {
    {"ToDriver/Int16LSB", ASIOSTInt16LSB, TDirection::ToDriver},        // copy
    {"ToDriver/Int24LSB", ASIOSTInt24LSB, TDirection::ToDriver},        // copy
    {"ToDriver/Int32LSB", ASIOSTInt32LSB, TDirection::ToDriver},        // copy
    {"ToDriver/Int16MSB", ASIOSTInt16MSB, TDirection::ToDriver},        // 16-bit swap
    {"ToDriver/Int24MSB", ASIOSTInt24MSB, TDirection::ToDriver},        // 24-bit swap
    {"ToDriver/Int32MSB", ASIOSTInt32MSB, TDirection::ToDriver},        // 32-bit swap
    {"ToDriver/Float32LSB", ASIOSTFloat32LSB, TDirection::ToDriver},    // int -> float, scale
    {"ToDriver/Float32MSB", ASIOSTFloat32MSB, TDirection::ToDriver},    // ... and swap in place
    {"ToDriver/Float64LSB", ASIOSTFloat64LSB, TDirection::ToDriver},    // int -> double, divide
    {"ToDriver/Float64MSB", ASIOSTFloat64MSB, TDirection::ToDriver},    // ... and swap in place
    {"FromDriver/Int32LSB", ASIOSTInt32LSB, TDirection::FromDriver},    // copy
    {"FromDriver/Int16MSB", ASIOSTInt16MSB, TDirection::FromDriver},    // 16-bit swap
    {"FromDriver/Int24MSB", ASIOSTInt24MSB, TDirection::FromDriver},    // 24-bit swap
    {"FromDriver/Int32MSB", ASIOSTInt32MSB, TDirection::FromDriver},    // 32-bit swap
    {"FromDriver/Float32LSB", ASIOSTFloat32LSB, TDirection::FromDriver},  // scale, float -> int
    {"FromDriver/Float32MSB", ASIOSTFloat32MSB, TDirection::FromDriver},  // swap in place first
    {"FromDriver/Float64LSB", ASIOSTFloat64LSB, TDirection::FromDriver},  // scale, double -> int
    {"FromDriver/Float64MSB", ASIOSTFloat64MSB, TDirection::FromDriver},  // swap in place first
    {"Silence/Int32LSB", ASIOSTInt32LSB, TDirection::Silence},
    {"Silence/Float64MSB", ASIOSTFloat64MSB, TDirection::Silence},
};

// Thread CPU time, so that other load on the machine does not count.
double ThreadCpuNs() {
  timespec T{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &T);
  return static_cast<double>(T.tv_sec) * 1e9 + static_cast<double>(T.tv_nsec);
}

struct TFree {
  void operator()(void* P) const { std::free(P); }
};

// Page-aligned memory plus Offset bytes, every byte written once so that no
// page fault is timed. The two buffers of a conversion sit 2 KB apart modulo
// the page size, so that neither the conversions nor memcpy meet the false
// store-to-load dependencies of addresses equal modulo 4 KB (a third
// buffer, where needed, sits between them).
class TMemory {
 public:
  TMemory(size_t Bytes, size_t Offset) : FBase(static_cast<uint8_t*>(std::aligned_alloc(4096, Rounded(Bytes + Offset)))) {
    std::mt19937 Rng(5);
    for (size_t I = 0; I < Bytes + Offset; ++I) FBase.get()[I] = static_cast<uint8_t>(Rng());
    FData = FBase.get() + Offset;
  }
  uint8_t* get() const { return FData; }

 private:
  static size_t Rounded(size_t Bytes) { return (Bytes + 4095) / 4096 * 4096; }
  std::unique_ptr<uint8_t, TFree> FBase;
  uint8_t* FData;
};
constexpr size_t FirstOffset = 0, SecondOffset = 2048, ThirdOffset = 1024;

// Nanoseconds of one memcpy of Bytes: the best of five batches of at least
// 20 ms each.
double MeasureMemcpyNs(size_t Bytes) {
  TMemory Src(Bytes, FirstOffset), Dst(Bytes, SecondOffset);
  size_t Calls = 1;
  double Best = 1e300;
  for (int Batch = 0; Batch < 5; ++Batch) {
    for (;;) {
      const double T0 = ThreadCpuNs();
      for (size_t I = 0; I < Calls; ++I) {
        std::memcpy(Dst.get(), Src.get(), Bytes);
        benchmark::DoNotOptimize(Dst.get());
        benchmark::ClobberMemory();
      }
      const double T = ThreadCpuNs() - T0;
      if (T < 20e6 && Calls < (size_t(1) << 30)) {
        Calls *= 2;
        continue;
      }
      Best = std::min(Best, T / static_cast<double>(Calls));
      break;
    }
  }
  return Best;
}

// Google Benchmark calls a benchmark several times while it settles the
// iteration count: the baseline of each size is measured once per run.
double MemcpyNs(size_t Bytes) {
  static std::map<size_t, double> Cache;
  auto It = Cache.find(Bytes);
  if (It == Cache.end()) It = Cache.emplace(Bytes, MeasureMemcpyNs(Bytes)).first;
  return It->second;
}

void Report(benchmark::State& State, double Ns, double BaseNs, size_t Bytes) {
  State.counters["ns_per_call"] = Ns;
  State.counters["memcpy_ns"] = BaseNs;
  State.counters["ratio_vs_memcpy"] = Ns / BaseNs;
  State.SetBytesProcessed(static_cast<int64_t>(State.iterations()) * static_cast<int64_t>(Bytes));
}

void BM_Memcpy(benchmark::State& State) {
  const size_t Bytes = static_cast<size_t>(State.range(0));
  TMemory Src(Bytes, FirstOffset), Dst(Bytes, SecondOffset);
  const double T0 = ThreadCpuNs();
  for (auto _ : State) {
    std::memcpy(Dst.get(), Src.get(), Bytes);
    benchmark::DoNotOptimize(Dst.get());
    benchmark::ClobberMemory();
  }
  const double Ns = (ThreadCpuNs() - T0) / static_cast<double>(State.iterations());
  Report(State, Ns, Ns, Bytes);
}

void BM_Convert(benchmark::State& State, TConversion C, Ipps::TIppsPath Path) {
  if (!Ipps::SetIppsPath(Path)) {
    State.SkipWithError("kernel set not available on this CPU");
    return;
  }
  const int32_t N = static_cast<int32_t>(State.range(0));
  const size_t BufBytes = ASIOBufferBitsForType(C.Type) / 8 * static_cast<size_t>(N);
  const size_t DrvBytes = ASIODriverBytesForType(C.Type) * static_cast<size_t>(N);
  const size_t Bytes = C.Direction == TDirection::Silence ? DrvBytes : std::max(BufBytes, DrvBytes);
  TMemory Buf(BufBytes, FirstOffset), Drv(DrvBytes, SecondOffset);
  // Driver halves in rotation for small restored conversions (see the top).
  constexpr size_t Halves = 8, Ahead = 4;
  const size_t HalfStride = (DrvBytes + 4095) / 4096 * 4096 + 2048;
  TMemory Rotation(HalfStride * Halves, SecondOffset);
  // The float types scale the driver half in place: each call gets the
  // driver's samples afresh, and that copy's time is taken off again.
  const bool Restore = C.Direction == TDirection::FromDriver &&
                       (C.Type == ASIOSTFloat32LSB || C.Type == ASIOSTFloat32MSB || C.Type == ASIOSTFloat64LSB ||
                        C.Type == ASIOSTFloat64MSB);
  TMemory Fresh(DrvBytes, ThirdOffset);
  if (C.Direction == TDirection::FromDriver) {
    // Driver samples of a plausible signal, not random bit patterns.
    std::vector<int32_t> Ints(static_cast<size_t>(N));
    for (int32_t I = 0; I < N; ++I) Ints[static_cast<size_t>(I)] = static_cast<int32_t>((I * 2654435761u) >> 1);
    ASIOConvertToDriver(C.Type, Ints.data(), Fresh.get(), N);
    std::memcpy(Drv.get(), Fresh.get(), DrvBytes);
    for (size_t H = 0; H < Halves; ++H) std::memcpy(Rotation.get() + H * HalfStride, Fresh.get(), DrvBytes);
  }
  const double BaseNs = MemcpyNs(Bytes);
  // Large restores are timed apart call by call; small ones are too short
  // for that and are taken off as the time of a memcpy of the same size.
  const bool TimeApart = Restore && DrvBytes >= (size_t(1) << 20);
  const double RestoreNs = Restore && !TimeApart ? MemcpyNs(DrvBytes) : 0.0;
  double RestoreTotalNs = 0.0;
  size_t Turn = 0;
  const double T0 = ThreadCpuNs();
  for (auto _ : State) {
    switch (C.Direction) {
      case TDirection::ToDriver: ASIOConvertToDriver(C.Type, Buf.get(), Drv.get(), N); break;
      case TDirection::FromDriver:
        if (TimeApart) {
          const double R0 = ThreadCpuNs();
          std::memcpy(Drv.get(), Fresh.get(), DrvBytes);
          benchmark::ClobberMemory();
          RestoreTotalNs += ThreadCpuNs() - R0;
        } else if (Restore) {
          std::memcpy(Rotation.get() + (Turn + Ahead) % Halves * HalfStride, Fresh.get(), DrvBytes);
          ASIOConvertFromDriver(C.Type, Rotation.get() + Turn % Halves * HalfStride, Buf.get(), N);
          ++Turn;
          break;
        }
        ASIOConvertFromDriver(C.Type, Drv.get(), Buf.get(), N);
        break;
      case TDirection::Silence: ASIOSilenceDriver(C.Type, Drv.get(), N); break;
    }
    benchmark::DoNotOptimize(Buf.get());
    benchmark::DoNotOptimize(Drv.get());
    benchmark::ClobberMemory();
  }
  const double Ns = (ThreadCpuNs() - T0 - RestoreTotalNs) / static_cast<double>(State.iterations()) - RestoreNs;
  Report(State, Ns, BaseNs, Bytes);
  Ipps::SetIppsPath(Ipps::GetBestIppsPath());
}

constexpr int64_t Sizes[] = {64, 256, 4096, 16 << 20};

const char* PathName(Ipps::TIppsPath P) {
  return P == Ipps::TIppsPath::Avx2 ? "avx2" : P == Ipps::TIppsPath::Sse2 ? "sse2" : "scalar";
}

void RegisterAll() {
  for (int64_t Bytes : {256, 1024, 16384, 32768, 64 << 20, 128 << 20})
    benchmark::RegisterBenchmark("Memcpy", BM_Memcpy)->Arg(Bytes);
  std::vector<Ipps::TIppsPath> Paths = {Ipps::GetBestIppsPath()};
  if (Paths[0] != Ipps::TIppsPath::Sse2 && Ipps::SetIppsPath(Ipps::TIppsPath::Sse2)) Paths.push_back(Ipps::TIppsPath::Sse2);
  Ipps::SetIppsPath(Paths[0]);
  for (Ipps::TIppsPath Path : Paths) {
    for (const TConversion& C : Conversions) {
      const std::string Name = std::string(C.Name) + "/" + PathName(Path);
      auto* B = benchmark::RegisterBenchmark(Name.c_str(), BM_Convert, C, Path);
      // The fallback path is measured in cache only: far beyond the caches
      // memory bandwidth decides, whatever the kernels.
      for (int64_t N : Sizes)
        if (Path == Paths[0] || N <= 4096) B->Arg(N);
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  RegisterAll();
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
