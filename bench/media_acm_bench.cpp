// ACM round trips through the system's codecs: a tone through
// TSRAudioCompressor and TSRAudioDecompressor, 4 s of 44100 Hz mono 16-bit
// audio per iteration, as a real-time factor (realtime_factor: seconds of
// audio per second taken) and against the same chain with both components
// passing the stream through, measured in the same run
// (time_vs_passthrough). Windows (under Wine in the cross build) only.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cmath>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "media/Sraudiocompressor.h"
#include "media/Sraudiodecompressor.h"

using namespace Quorvel;

namespace {

constexpr uint32_t kRate = 44100;
constexpr size_t kBlock = 1024, kBlocks = 4 * kRate / kBlock;
constexpr double kSeconds = double(kBlock * kBlocks) / kRate;

double GPassThroughNs = 0;

// Sends the same tone blocks for every stream.
class TToneSource : public TWBComponent {
 public:
  TToneSource() : Output(*this, "Output") {
    for (size_t B = 0; B < kBlocks; ++B) {
      auto Buffer = TSRAudioBuffer::Create(1, kBlock, 16, kRate);
      for (size_t I = 0; I < kBlock; ++I)
        Buffer->SetSample(I, 0, int32_t(std::lround(16384 * std::sin(2 * 3.14159265358979 * 440.0 * double(B * kBlock + I) / kRate))));
      FBlocks.push_back(Buffer);
    }
  }
  ~TToneSource() override { BeginDestroy(); }
  // Started runs once the stream has started.
  void Stream(const std::function<void()>& Started = nullptr) {
    Threading::TLockGuard G(GetLock());
    Output.SendStartWave(MakeWaveFormat(kRate, 1, 16));
    if (Started) Started();
    for (const auto& B : FBlocks) Output.SubmitBuffer(B);
    Output.SendStop();
  }
  TSRPWAudioSourcePin Output;

 private:
  std::vector<ISRAudioBufferRef> FBlocks;
};

class TCountingSink : public TWBComponent {
 public:
  TCountingSink() : Input(*this, "Input") {}
  ~TCountingSink() override { BeginDestroy(); }
  void SinkDispatch(TPWBasicPin*, TPWBasicPin*, TPWOperationID ID, TPWOperation& Op, TPWNotifyStates& S) override {
    S.Include(TPWNotifyState::pnsHandled);
    if (ID == poidSuppliedBuffer)
      if (const ISRAudioBuffer* B = static_cast<TPWSuppliedBufferOperation&>(Op).GetAudioBuffer()) Frames += B->GetSamples();
  }
  TSRPWAudioSinkPin Input;
  uint64_t Frames = 0;
};

// The first 44100 Hz mono format of the tag, or none.
std::vector<uint8_t> FindFormat(uint16_t Tag) {
  for (const TSRAcmFormat& F : EnumerateAcmFormats(Tag)) {
    const auto* W = reinterpret_cast<const TWaveFormatEx*>(F.Format.data());
    if (W->wFormatTag == Tag && W->nSamplesPerSec == kRate && W->nChannels == 1) return F.Format;
  }
  return {};
}

// Tag 0: both components pass the stream through.
void RoundTrip(benchmark::State& State, uint16_t Tag) {
  const std::vector<uint8_t> Format = Tag ? FindFormat(Tag) : std::vector<uint8_t>();
  if (Tag && Format.empty()) {
    State.SkipWithError("no 44100 Hz mono format of this codec is installed");
    return;
  }
  TToneSource Source;
  TSRAudioCompressor Compressor;
  TSRAudioDecompressor Decompressor;
  TCountingSink Sink;
  if (Tag) {
    Compressor.GetAudioCompressions().Add()->SetFormat(Format);
    Decompressor.GetDecompressions().Add()->SetFormat(Format);
  }
  Decompressor.GetAudioFormat().SetSampleRate(kRate);
  Decompressor.GetAudioFormat().SetCountChannels(1);
  Decompressor.GetAudioFormat().SetBits(16);
  Source.Output.Connect(Compressor.GetInputPin());
  Compressor.GetOutputPin().Connect(Decompressor.GetInputPin());
  Decompressor.GetOutputPin().Connect(Sink.Input);

  // One stream first: the codec must both encode and decode it (a refused
  // candidate would leave both components passing the audio through).
  bool Converting = false;
  Source.Stream([&] { Converting = Compressor.IsCompressing() && Decompressor.IsDecompressing(); });
  if (Tag && !Converting) {
    State.SkipWithError("the codecs refuse this round trip");
    return;
  }
  if (Sink.Frames < kBlock * kBlocks) {
    State.SkipWithError("frames were lost on the way");
    return;
  }
  const auto T0 = std::chrono::steady_clock::now();
  for (auto _ : State) Source.Stream();
  const double Ns =
      std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - T0).count() / double(State.iterations());
  if (!Tag) GPassThroughNs = Ns;
  State.counters["realtime_factor"] = kSeconds * 1e9 / Ns;
  if (Tag && GPassThroughNs > 0) State.counters["time_vs_passthrough"] = Ns / GPassThroughNs;
}

}  // namespace

// The baseline runs first.
BENCHMARK_CAPTURE(RoundTrip, passthrough, uint16_t(0))->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(RoundTrip, ima_adpcm, uint16_t(0x0011))->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(RoundTrip, alaw, uint16_t(0x0006))->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(RoundTrip, mulaw, uint16_t(0x0007))->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(RoundTrip, gsm610, uint16_t(0x0031))->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(RoundTrip, ms_adpcm, uint16_t(0x0002))->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
