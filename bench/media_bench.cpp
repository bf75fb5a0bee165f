// The raw logger's cost per buffer against writing the same bytes with one
// plain file write per buffer, measured in the same run
// (ratio_vs_plain_write); both copy the block into a buffer first, as a
// source does, and both empty their file every 2048 buffers (the logger by
// a new stream, which creates and reopens its file).
#include <benchmark/benchmark.h>

#include "bench/Benchsupport.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "media/Srrawlogger.h"
#include "tests/support/Alloccounter.h"

using namespace Quorvel;

namespace {

constexpr unsigned Channels = 2, Bits = 16;
constexpr int64_t RestartEvery = 2048;

double GBaselineNs[2];
int SizeIndex(int64_t Frames) { return Frames == 256 ? 0 : 1; }

std::string ScratchFile(const char* Name) {
  const char* Dir = std::getenv("TMPDIR");
  return std::string(Dir && *Dir ? Dir : "/tmp") + "/quorvel-bench-" + std::to_string(getpid()) + "-" + Name;
}

void BM_PlainWrite(benchmark::State& State) {
  const size_t Bytes = size_t(State.range(0)) * Channels * Bits / 8;
  const std::string Name = ScratchFile("plain.raw");
  const int Fd = open(Name.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (Fd < 0) {
    State.SkipWithError("cannot create the scratch file");
    return;
  }
  std::vector<uint8_t> Src(Bytes, 0x11), Block(Bytes);
  int64_t N = 0;
  const double Ns = Bench::NsPerIteration(State, [&] {
    std::memcpy(Block.data(), Src.data(), Bytes);
    benchmark::DoNotOptimize(Block.data());
    if (write(Fd, Block.data(), Bytes) != ssize_t(Bytes)) State.SkipWithError("write failed");
    if (++N % RestartEvery == 0) {
      if (ftruncate(Fd, 0) != 0 || lseek(Fd, 0, SEEK_SET) != 0) State.SkipWithError("truncate failed");
    }
  });
  close(Fd);
  unlink(Name.c_str());
  GBaselineNs[SizeIndex(State.range(0))] = Ns;
  State.counters["ns_per_buffer"] = Ns;
  State.SetBytesProcessed(State.iterations() * int64_t(Bytes));
}

void BM_RawLogger(benchmark::State& State) {
  const size_t Frames = size_t(State.range(0)), Bytes = Frames * Channels * Bits / 8;
  const std::string Name = ScratchFile("logger.raw");
  Bench::TPinSource Source;
  TSRRawLogger Logger;
  Logger.SetFileName(Name);
  Source.Output.Connect(Logger.GetInputPin());
  const TSRWaveFormatExtensible Format = MakeWaveFormat(48000, Channels, Bits);
  std::vector<uint8_t> Src(Bytes, 0x11);
  const auto Send = [&] {
    auto B = TSRAudioBuffer::Create(Channels, Frames, Bits, 48000);
    std::memcpy(B->GetData(), Src.data(), Bytes);
    Source.Output.SubmitBuffer(B);
  };
  Threading::TLockGuard G(Source.GetLock());
  Source.Output.SendStartWave(Format);
  Send();  // warms the buffer pool
  int64_t N = 0;
  const uint64_t A0 = Testing::HeapAllocationCount();
  const double Ns = Bench::NsPerIteration(State, [&] {
    Send();
    if (++N % RestartEvery == 0) {
      Source.Output.SendStop();
      Source.Output.SendStartWave(Format);
    }
  });
  const uint64_t Allocations = Testing::HeapAllocationCount() - A0;
  Source.Output.SendStop();
  unlink(Name.c_str());
  const double Base = GBaselineNs[SizeIndex(State.range(0))];
  State.counters["ns_per_buffer"] = Ns;
  if (Base > 0) State.counters["ratio_vs_plain_write"] = Ns / Base;
  // Restarts allocate (a file stream each); between them nothing does.
  State.counters["allocs_per_buffer"] = double(Allocations) / double(State.iterations());
  State.SetBytesProcessed(State.iterations() * int64_t(Bytes));
}

}  // namespace

BENCHMARK(BM_PlainWrite)->Arg(256)->Arg(4096);
BENCHMARK(BM_RawLogger)->Arg(256)->Arg(4096);
BENCHMARK_MAIN();
