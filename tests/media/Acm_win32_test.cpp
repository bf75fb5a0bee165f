// The ACM components and the compressed raw logger over the system's real
// codecs: round trips with a measured signal-to-noise ratio, the candidate
// search, pass-through, and decoding of blocks made by the test itself.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <vector>

#include "../support/Scratchfolder.h"
#include "media/Sraudiocompressor.h"
#include "media/Sraudiodecompressor.h"
#include "media/Srrawlogger.h"

using namespace Quorvel;

namespace {

constexpr double kPi = 3.14159265358979323846;

constexpr uint16_t kTagMsAdpcm = 0x0002, kTagALaw = 0x0006, kTagMuLaw = 0x0007, kTagImaAdpcm = 0x0011,
                   kTagGsm610 = 0x0031;

// The first format ACM offers for the tag at 8 kHz mono.
std::vector<uint8_t> FindFormat(uint16_t Tag, unsigned Bits = 0) {
  for (const TSRAcmFormat& F : EnumerateAcmFormats(Tag)) {
    const auto* W = reinterpret_cast<const TWaveFormatEx*>(F.Format.data());
    if (W->wFormatTag == Tag && W->nSamplesPerSec == 8000 && W->nChannels == 1 && (!Bits || W->wBitsPerSample == Bits))
      return F.Format;
  }
  return {};
}

// Sends a 16-bit mono sine (amplitude 0.5 of full scale) in blocks.
class TSineSource : public TWBComponent {
 public:
  TSineSource() : Output(*this, "Output") {}
  ~TSineSource() override { BeginDestroy(); }
  std::vector<int16_t> Run(size_t Frames, size_t Block, double Hz = 440.0) {
    Threading::TLockGuard G(GetLock());
    std::vector<int16_t> Sent;
    Output.SendStartWave(MakeWaveFormat(8000, 1, 16));
    while (Sent.size() < Frames) {
      const size_t N = std::min(Block, Frames - Sent.size());
      auto B = TSRAudioBuffer::Create(1, N, 16, 8000);
      for (size_t I = 0; I < N; ++I) {
        const auto V = int16_t(std::lround(16384.0 * std::sin(2 * kPi * Hz * double(Sent.size()) / 8000.0)));
        B->SetSample(I, 0, V);
        Sent.push_back(V);
      }
      Output.SubmitBuffer(B);
    }
    Output.SendStop();
    return Sent;
  }
  TSRPWAudioSourcePin Output;
};

// Records the operations and the bytes of every buffer that reaches it.
class TRecorder : public TWBComponent {
 public:
  TRecorder() : Input(*this, "Input") {}
  ~TRecorder() override { BeginDestroy(); }
  void SinkDispatch(TPWBasicPin*, TPWBasicPin*, TPWOperationID ID, TPWOperation& Operation,
                    TPWNotifyStates& States) override {
    IDs.push_back(ID);
    if (ID == poidSuppliedBuffer) {
      const IWBDataBuffer* B = static_cast<TPWSuppliedBufferOperation&>(Operation).GetBuffer();
      Bytes.insert(Bytes.end(), B->GetData(), B->GetData() + B->GetSize());
      AudioBuffers += const_cast<IWBDataBuffer*>(B)->AsAudioBuffer() != nullptr;
    }
    if (ID == TSRStartAudioCompressionOperation::ID) {
      const auto& Start = static_cast<TSRStartAudioCompressionOperation&>(Operation);
      DestFormat.assign(Start.GetDestFormat(), Start.GetDestFormat() + Start.GetDestFormatSize());
      Rate = Start.GetRate();
    }
    States.Include(TPWNotifyState::pnsHandled);
  }
  std::vector<int16_t> Samples() const {
    std::vector<int16_t> S(Bytes.size() / 2);
    std::memcpy(S.data(), Bytes.data(), S.size() * 2);
    return S;
  }
  TSRPWAudioSinkPin Input;
  std::vector<TPWOperationID> IDs;
  std::vector<uint8_t> Bytes, DestFormat;
  size_t AudioBuffers = 0;
  double Rate = 0;
};

// Signal-to-noise ratio in dB of Out against In, at the lag (0..Max) that
// suits best: some codecs delay their output.
double Snr(const std::vector<int16_t>& In, const std::vector<int16_t>& Out, size_t MaxLag = 400) {
  double Best = -1000;
  for (size_t Lag = 0; Lag <= MaxLag && Lag < Out.size(); ++Lag) {
    const size_t N = std::min(In.size(), Out.size() - Lag);
    if (N < In.size() / 2) break;
    double Signal = 0, Noise = 0;
    for (size_t I = 0; I < N; ++I) {
      Signal += double(In[I]) * In[I];
      const double E = double(Out[I + Lag]) - In[I];
      Noise += E * E;
    }
    Best = std::max(Best, 10 * std::log10(Signal / std::max(Noise, 1.0)));
  }
  return Best;
}

struct TRoundTrip {
  std::vector<int16_t> In, Out;
  size_t CompressedBytes = 0;
};

// Sine -> compressor -> decompressor -> recorder, both with one candidate.
TRoundTrip RoundTrip(const std::vector<uint8_t>& Format, size_t Block = 1000) {
  TSineSource Source;
  TSRAudioCompressor Compressor;
  TSRAudioDecompressor Decompressor;
  TRecorder Compressed, Decoded;
  Compressor.GetAudioCompressions().Add()->SetFormat(Format);
  Decompressor.GetDecompressions().Add()->SetFormat(Format);
  Decompressor.GetAudioFormat().SetSampleRate(8000);
  Decompressor.GetAudioFormat().SetCountChannels(1);
  Decompressor.GetAudioFormat().SetBits(16);
  EXPECT_TRUE(Source.Output.Connect(Compressor.GetInputPin()));
  EXPECT_TRUE(Compressor.GetOutputPin().Connect(Decompressor.GetInputPin()));
  EXPECT_TRUE(Compressor.GetOutputPin().Connect(Compressed.Input));
  EXPECT_TRUE(Decompressor.GetOutputPin().Connect(Decoded.Input));
  TRoundTrip R;
  R.In = Source.Run(8000, Block);
  R.Out = Decoded.Samples();
  R.CompressedBytes = Compressed.Bytes.size();
  EXPECT_EQ(Compressed.IDs.front(), TSRStartAudioCompressionOperation::ID);
  EXPECT_EQ(Compressed.DestFormat, Format);
  EXPECT_EQ(Compressed.AudioBuffers, 0u) << "compressed data travels as data blocks";
  EXPECT_EQ(Decoded.IDs.front(), poidStartWave);
  EXPECT_EQ(Decoded.IDs.back(), poidStop);
  return R;
}

}  // namespace

TEST(Acm, RoundTripsThroughTheSystemCodecsKeepTheSignal) {
  struct TCase {
    const char* Name;
    uint16_t Tag;
    unsigned Bits;
    double MinSnr;        // dB, a few below what was measured
    double MaxBytesRatio; // compressed bytes per PCM byte
  };
  for (const TCase& C : {TCase{"IMA ADPCM", kTagImaAdpcm, 4, 24, 0.3}, TCase{"A-law", kTagALaw, 8, 35, 0.51},
                         TCase{"mu-law", kTagMuLaw, 8, 33, 0.51}, TCase{"GSM 6.10", kTagGsm610, 0, 28, 0.12}}) {
    SCOPED_TRACE(C.Name);
    const std::vector<uint8_t> Format = FindFormat(C.Tag, C.Bits);
    ASSERT_FALSE(Format.empty()) << "no 8 kHz mono format";
    for (size_t Block : {1000u, 4096u, 77u}) {
      const TRoundTrip R = RoundTrip(Format, Block);
      // Every sample comes back: the last codec block is filled with silence.
      ASSERT_GE(R.Out.size(), R.In.size()) << "block " << Block;
      const double Measured = Snr(R.In, R.Out);
      std::printf("%-10s block %4zu: %zu -> %zu bytes, %zu samples back, SNR %.1f dB\n", C.Name, Block,
                  R.In.size() * 2, R.CompressedBytes, R.Out.size(), Measured);
      EXPECT_GT(Measured, C.MinSnr) << "block " << Block;
      EXPECT_LE(double(R.CompressedBytes), C.MaxBytesRatio * double(R.In.size() * 2));
    }
  }
}

TEST(Acm, TheFirstCandidateAcmAcceptsIsUsedAndExcludedOnesAreNeverTried) {
  const std::vector<uint8_t> Ima = FindFormat(kTagImaAdpcm, 4), ALaw = FindFormat(kTagALaw, 8);
  ASSERT_FALSE(Ima.empty());
  ASSERT_FALSE(ALaw.empty());
  TWaveFormatEx Unknown = MakeWaveFormat(8000, 1, 16).Format;
  Unknown.wFormatTag = 0x7777;  // no codec has it

  TSineSource Source;
  TSRAudioCompressor Compressor;
  TRecorder Out;
  ASSERT_TRUE(Source.Output.Connect(Compressor.GetInputPin()));
  ASSERT_TRUE(Compressor.GetOutputPin().Connect(Out.Input));
  auto& Items = Compressor.GetAudioCompressions();
  Items.Add()->SetFormat(Unknown);
  TSRAudioCompressionItem* Excluded = Items.Add();
  Excluded->SetFormat(ALaw);
  Excluded->SetExcluded(true);
  Items.Add()->SetFormat(Ima);
  Source.Run(800, 800);
  EXPECT_EQ(Out.DestFormat, Ima) << "refused, then excluded, then the one used";
  EXPECT_EQ(Out.Rate, 8000.0);
  EXPECT_EQ(Compressor.GetDestinationFormat(), Ima);
  EXPECT_EQ(Compressor.GetBytesIn(), 1600u);

  // With only excluded (or refused) candidates, or disabled, or with none,
  // the stream passes through as it came.
  for (int Variant = 0; Variant < 3; ++Variant) {
    SCOPED_TRACE(Variant);
    Items.Clear();
    Compressor.SetEnabled(Variant != 1);
    if (Variant == 0) {
      Items.Add()->SetFormat(Ima);
      Items.Get(0)->SetExcluded(true);
    }
    if (Variant == 1) Items.Add()->SetFormat(Ima);
    TRecorder Through;
    ASSERT_TRUE(Compressor.GetOutputPin().Connect(Through.Input));
    const std::vector<int16_t> Sent = Source.Run(1000, 300);
    EXPECT_FALSE(Compressor.IsCompressing());
    EXPECT_EQ(Through.IDs.front(), poidStartWave);
    EXPECT_EQ(Through.IDs.back(), poidStop);
    EXPECT_EQ(Through.AudioBuffers, 4u);
    EXPECT_EQ(Through.Samples(), Sent);
    Compressor.GetOutputPin().Disconnect(Through.Input);
  }
}

namespace {

// A minimal MS ADPCM encoder (predictor 0 in every block) that also answers
// what a decoder must make of its blocks.
struct TMsAdpcmBlocks {
  std::vector<uint8_t> Bytes;
  std::vector<int16_t> Decoded;
};

TMsAdpcmBlocks EncodeMsAdpcm(const std::vector<int16_t>& In, size_t BlockAlign) {
  static const int Adaptation[16] = {230, 230, 230, 230, 307, 409, 512, 614, 768, 614, 512, 409, 307, 230, 230, 230};
  const size_t PerBlock = (BlockAlign - 7) * 2 + 2;
  TMsAdpcmBlocks R;
  for (size_t At = 0; At + PerBlock <= In.size(); At += PerBlock) {
    int Delta = 16, Sample1 = In[At + 1], Sample2 = In[At];
    const auto Put16 = [&](int V) {
      R.Bytes.push_back(uint8_t(V & 0xFF));
      R.Bytes.push_back(uint8_t((V >> 8) & 0xFF));
    };
    R.Bytes.push_back(0);  // predictor 0: coefficients 256 and 0
    Put16(Delta);
    Put16(Sample1);
    Put16(Sample2);
    R.Decoded.push_back(int16_t(Sample2));
    R.Decoded.push_back(int16_t(Sample1));
    uint8_t Pair = 0;
    for (size_t I = 2; I < PerBlock; ++I) {
      const int Predicted = Sample1;
      const int Nibble = std::clamp(int(std::lround(double(In[At + I] - Predicted) / Delta)), -8, 7);
      const int Sample = std::clamp(Predicted + Nibble * Delta, -32768, 32767);
      Sample2 = Sample1;
      Sample1 = Sample;
      Delta = std::max(Adaptation[Nibble & 15] * Delta / 256, 16);
      R.Decoded.push_back(int16_t(Sample));
      if (I % 2 == 0) {
        Pair = uint8_t((Nibble & 15) << 4);
      } else {
        R.Bytes.push_back(uint8_t(Pair | (Nibble & 15)));
      }
    }
  }
  return R;
}

// Sends data blocks after a start-sample-rate operation.
class TBlockSource : public TWBComponent {
 public:
  TBlockSource() : Output(*this, "Output") {}
  ~TBlockSource() override { BeginDestroy(); }
  void Run(const std::vector<uint8_t>& Bytes, size_t Block) {
    Threading::TLockGuard G(GetLock());
    Output.SendStartSampleRate(8000);
    for (size_t At = 0; At < Bytes.size(); At += Block) {
      const size_t N = std::min(Block, Bytes.size() - At);
      auto B = TWBBlockBuffer::Create(N);
      std::memcpy(B->GetData(), Bytes.data() + At, N);
      Output.SubmitBuffer(B);
    }
    Output.SendStop();
  }
  TSRPWAudioSourcePin Output;
};

}  // namespace

TEST(Acm, DecodesMsAdpcmBlocksInAnySlicing) {
  const std::vector<uint8_t> Format = FindFormat(kTagMsAdpcm);
  ASSERT_FALSE(Format.empty()) << "MS ADPCM is listed";
  const auto* Wave = reinterpret_cast<const TWaveFormatEx*>(Format.data());
  std::vector<int16_t> In;
  for (int I = 0; I < 8000; ++I) In.push_back(int16_t(std::lround(12000 * std::sin(2 * kPi * 300 * I / 8000.0))));
  const TMsAdpcmBlocks Blocks = EncodeMsAdpcm(In, Wave->nBlockAlign);
  ASSERT_GT(Blocks.Decoded.size(), 7000u);

  // Whole blocks at a time, and slices that cut blocks anywhere: the codec's
  // leftovers wait for the next slice.
  for (size_t Slice : {size_t(Wave->nBlockAlign) * 4, size_t(100)}) {
    SCOPED_TRACE(Slice);
    TBlockSource Source;
    TSRAudioDecompressor Decompressor;
    TRecorder Out;
    Decompressor.GetDecompressions().Add()->SetFormat(Format);
    Decompressor.GetAudioFormat().SetSampleRate(8000);
    Decompressor.GetAudioFormat().SetCountChannels(1);
    Decompressor.GetAudioFormat().SetBits(16);
    ASSERT_TRUE(Source.Output.Connect(Decompressor.GetInputPin()));
    ASSERT_TRUE(Decompressor.GetOutputPin().Connect(Out.Input));
    Source.Run(Blocks.Bytes, Slice);
    EXPECT_EQ(Out.IDs.front(), poidStartWave);
    EXPECT_EQ(Out.Samples(), Blocks.Decoded);
  }

  // Without an accepted candidate the blocks go on unchanged.
  TBlockSource Source;
  TSRAudioDecompressor Decompressor;
  TRecorder Out;
  TSRAudioCompressionItem* Excluded = Decompressor.GetDecompressions().Add();
  Excluded->SetFormat(Format);
  Excluded->SetExcluded(true);
  ASSERT_TRUE(Source.Output.Connect(Decompressor.GetInputPin()));
  ASSERT_TRUE(Decompressor.GetOutputPin().Connect(Out.Input));
  Source.Run(Blocks.Bytes, 333);
  EXPECT_FALSE(Decompressor.IsDecompressing());
  EXPECT_EQ(Out.Bytes, Blocks.Bytes);
  EXPECT_EQ(Out.IDs.front(), poidStartSampleRate);
}

class AcmLoggerTest : public Testing::ScratchFolderTest {};

TEST_F(AcmLoggerTest, TheRawLoggerWritesWhatTheFirstUsableCodecMakes) {
  const std::vector<uint8_t> Ima = FindFormat(kTagImaAdpcm, 4);
  ASSERT_FALSE(Ima.empty());
  const auto* Wave = reinterpret_cast<const TWaveFormatEx*>(Ima.data());
  TSineSource Source;
  TSRRawLogger Logger;
  Logger.SetFileName(PathOf("take.ima"));
  Logger.GetAudioCompressions().Add()->SetFormat(std::vector<uint8_t>{0, 1});  // malformed: not usable
  Logger.GetAudioCompressions().Add()->SetFormat(Ima);
  ASSERT_TRUE(Source.Output.Connect(Logger.GetInputPin()));
  const std::vector<int16_t> Sent = Source.Run(8000, 700);
  std::ifstream File(std::filesystem::u8path(PathOf("take.ima")), std::ios::binary);
  const std::vector<uint8_t> Bytes((std::istreambuf_iterator<char>(File)), {});
  ASSERT_FALSE(Bytes.empty());
  EXPECT_EQ(Bytes.size() % Wave->nBlockAlign, 0u) << "whole codec blocks";
  EXPECT_LT(Bytes.size(), Sent.size() * 2 / 3) << "compressed";

  // The file decodes back to the signal.
  TBlockSource Blocks;
  TSRAudioDecompressor Decompressor;
  TRecorder Out;
  Decompressor.GetDecompressions().Add()->SetFormat(Ima);
  Decompressor.GetAudioFormat().SetSampleRate(8000);
  Decompressor.GetAudioFormat().SetCountChannels(1);
  ASSERT_TRUE(Blocks.Output.Connect(Decompressor.GetInputPin()));
  ASSERT_TRUE(Decompressor.GetOutputPin().Connect(Out.Input));
  Blocks.Run(Bytes, 4096);
  EXPECT_GT(Snr(Sent, Out.Samples()), 20.0);
}
