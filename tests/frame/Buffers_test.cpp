#include <gtest/gtest.h>

#include <cstring>
#include <thread>

#include "frame/Pwoperations.h"
#include "frame/Wbbuffers.h"
#include "frame/Wbexception.h"

using namespace Quorvel;

TEST(AudioBuffer, SamplesRoundTripAndSaturateAtEveryWidth) {
  for (unsigned Bits : {8u, 16u, 24u, 32u}) {
    SCOPED_TRACE(Bits);
    auto B = TSRAudioBuffer::Create(3, 5, Bits, 48000);
    ASSERT_EQ(B->GetChannels(), 3u);
    ASSERT_EQ(B->GetSamples(), 5u);
    ASSERT_EQ(B->GetSize(), 3u * 5u * (Bits / 8));
    const int32_t Lo = ISRAudioBuffer::MinValue(Bits), Hi = ISRAudioBuffer::MaxValue(Bits);
    for (size_t I = 0; I < 5; ++I)
      for (unsigned C = 0; C < 3; ++C) EXPECT_EQ(B->GetSample(I, C), 0);
    B->SetSample(0, 0, Lo);
    B->SetSample(1, 1, Hi);
    B->SetSample(2, 2, -3);
    B->SetSample(3, 0, INT32_MIN);  // saturates to the width
    B->SetSample(4, 2, INT32_MAX);
    EXPECT_EQ(B->GetSample(0, 0), Lo);
    EXPECT_EQ(B->GetSample(1, 1), Hi);
    EXPECT_EQ(B->GetSample(2, 2), -3);
    EXPECT_EQ(B->GetSample(3, 0), Lo);
    EXPECT_EQ(B->GetSample(4, 2), Hi);
    // Neighbours untouched, out of range ignored and read as 0.
    EXPECT_EQ(B->GetSample(1, 0), 0);
    EXPECT_EQ(B->GetSample(1, 2), 0);
    B->SetSample(5, 0, 1);
    B->SetSample(0, 3, 1);
    EXPECT_EQ(B->GetSample(5, 0), 0);
    EXPECT_EQ(B->GetSample(0, 3), 0);
  }
}

TEST(AudioBuffer, ByteLayoutIsInterleavedLittleEndianPcm) {
  auto B24 = TSRAudioBuffer::Create(2, 2, 24, 44100);
  B24->SetSample(1, 0, -2);  // frame 1 starts at byte 6
  const uint8_t* D = B24->GetData();
  EXPECT_EQ(D[6], 0xFE);
  EXPECT_EQ(D[7], 0xFF);
  EXPECT_EQ(D[8], 0xFF);
  EXPECT_EQ(D[9], 0x00);

  auto B8 = TSRAudioBuffer::Create(1, 2, 8, 8000);
  EXPECT_EQ(B8->GetData()[0], 0x80) << "8-bit silence is the unsigned midpoint";
  B8->SetSample(1, 0, -128);
  EXPECT_EQ(B8->GetData()[1], 0x00);

  auto B16 = TSRAudioBuffer::Create(1, 1, 16, 8000);
  B16->SetSample(0, 0, 0x1234);
  EXPECT_EQ(B16->GetData()[0], 0x34);
  EXPECT_EQ(B16->GetData()[1], 0x12);
}

TEST(AudioBuffer, ConstructorsShareOrOwnMemoryAsDocumented) {
  auto Empty = TSRAudioBuffer::Create();
  EXPECT_EQ(Empty->GetSamples(), 0u);
  EXPECT_EQ(Empty->GetChannels(), 0u);
  EXPECT_EQ(TSRAudioBuffer::Create(2, 10, 12, 44100)->GetSamples(), 0u) << "unsupported width gives an empty buffer";

  int16_t Memory[4] = {1, 2, 3, 4};
  auto Over = TSRAudioBuffer::CreateOver(Memory, 2, 2, 16, 44100);
  EXPECT_EQ(Over->GetSample(1, 1), 4);
  Over->SetSample(0, 1, 99);
  EXPECT_EQ(Memory[1], 99) << "a buffer over caller memory writes through";

  ISRAudioBufferRef View;
  {
    auto Block = TWBBlockBuffer::Create(10, 0);  // 2 whole stereo 16-bit frames + 2 spare bytes
    View = TSRAudioBuffer::Create(*Block, 2, 16, 22050);
    EXPECT_EQ(View->GetSamples(), 2u);
    View->SetSample(1, 0, -5);
    int16_t V;
    std::memcpy(&V, Block->GetData() + 4, 2);
    EXPECT_EQ(V, -5);
    EXPECT_EQ(Block->RefCount(), 2u);
  }
  EXPECT_EQ(View->GetSample(1, 0), -5) << "the view keeps its block alive";

  auto Spk = TSRAudioBuffer::Create(2, 1, 16, 48000, {TSRSpeaker::spSideLeft, TSRSpeaker::spSideRight});
  EXPECT_EQ(Spk->GetWaveFormat().dwChannelMask, 0x600u);
  EXPECT_EQ(TSRAudioBuffer::Create(2, 1, 16, 48000)->GetSpeakers().Mask(), 3u);
}

TEST(DataBuffer, FillCopyAndCallerMemory) {
  auto Filled = TWBBlockBuffer::Create(7, 0xAB);
  ASSERT_EQ(Filled->GetSize(), 7u);
  for (size_t I = 0; I < 7; ++I) EXPECT_EQ(Filled->GetData()[I], 0xAB);
  auto Copy = TWBBlockBuffer::CreateCopy(*Filled);
  Filled->GetData()[0] = 0;
  EXPECT_EQ(Copy->GetData()[0], 0xAB) << "a copy does not share bytes";
  uint8_t Memory[3] = {1, 2, 3};
  auto Over = TWBBlockBuffer::CreateOver(Memory, 3);
  EXPECT_EQ(Over->GetData(), Memory);
  EXPECT_EQ(TWBBlockBuffer::CreateOver(nullptr, 3)->GetSize(), 0u);
  EXPECT_EQ(Filled->AsAudioBuffer(), nullptr);
}

TEST(BufferPool, AReusedBufferCarriesNoTimingOfItsLastUse) {
  // A consumer takes a buffer with a stream time as a timed one: a pooled
  // buffer must not keep its last user's timing.
  const auto Before = GetBufferPoolStats();
  for (int I = 0; I < 3; ++I) {
    auto B = TSRAudioBuffer::Create(1, 777, 16, 8000);
    EXPECT_FALSE(B->HasStreamTime());
    EXPECT_FALSE(B->HasSequenceNumber());
    B->SetStreamTime(100 * I, 100 * I + 50);
    B->SetSequenceNumber(uint64_t(I) + 1);
    EXPECT_EQ(B->GetStreamEnd(), 100 * I + 50);
  }
  EXPECT_GE(GetBufferPoolStats().PoolHits - Before.PoolHits, 2u);
}

TEST(BufferPool, ReleasedBuffersAreReusedFromAnyThread) {
  // Warm: one buffer of this size exists and is released.
  TSRAudioBuffer::Create(2, 333, 24, 48000).Reset();
  const auto Before = GetBufferPoolStats();
  for (int I = 0; I < 100; ++I) TSRAudioBuffer::Create(2, 333, 24, 48000).Reset();
  auto After = GetBufferPoolStats();
  EXPECT_EQ(After.HeapAllocations, Before.HeapAllocations);
  EXPECT_GE(After.PoolHits - Before.PoolHits, 100u);

  // Made on one thread, released on another, reused on the first.
  auto B = TSRAudioBuffer::Create(2, 333, 24, 48000);
  std::thread T([Moved = std::move(B)]() mutable { Moved.Reset(); });
  T.join();
  const auto Mid = GetBufferPoolStats();
  TSRAudioBuffer::Create(2, 333, 24, 48000).Reset();
  EXPECT_EQ(GetBufferPoolStats().HeapAllocations, Mid.HeapAllocations);
}

TEST(PcmConversion, WidthsAndChannelsConvertByShiftingAndSilence) {
  auto Src = TSRAudioBuffer::Create(2, 2, 16, 48000);
  Src->SetSample(0, 0, 1000);
  Src->SetSample(0, 1, -1);
  Src->SetSample(1, 0, -32768);
  auto Wide = TSRAudioBuffer::Create(3, 2, 24, 48000);
  ConvertPcmFrames(Src->GetData(), 2, 16, Wide->GetData(), 3, 24, 2);
  EXPECT_EQ(Wide->GetSample(0, 0), 1000 * 256);
  EXPECT_EQ(Wide->GetSample(0, 1), -256);
  EXPECT_EQ(Wide->GetSample(0, 2), 0) << "channels the source lacks are silent";
  EXPECT_EQ(Wide->GetSample(1, 0), -32768 * 256);
  auto Narrow = TSRAudioBuffer::Create(1, 2, 8, 48000);
  ConvertPcmFrames(Wide->GetData(), 3, 24, Narrow->GetData(), 1, 8, 2);
  EXPECT_EQ(Narrow->GetSample(0, 0), 1000 / 256);
  EXPECT_EQ(Narrow->GetSample(1, 0), -128);
}

TEST(WaveFormat, RecordsAndFormatChecks) {
  const auto F = MakeWaveFormat(44100, 2, 24);
  EXPECT_EQ(F.Format.wFormatTag, WAVE_FORMAT_EXTENSIBLE);
  EXPECT_EQ(F.Format.nBlockAlign, 6);
  EXPECT_EQ(F.Format.nAvgBytesPerSec, 264600u);
  EXPECT_EQ(F.Format.cbSize, 22);
  EXPECT_EQ(F.Samples.wValidBitsPerSample, 24);
  EXPECT_EQ(F.dwChannelMask, 3u);
  EXPECT_TRUE(F.SubFormat == KSDATAFORMAT_SUBTYPE_PCM);

  int Changes = 0;
  Threading::TCriticalSection Lock;
  TSRAudioFormatBasic Format(nullptr, &Lock, [&](TSRAudioFormatBasic&) { ++Changes; });
  TSRWaveFormatExtensible Bad = F;
  Bad.Format.wBitsPerSample = 12;
  EXPECT_FALSE(Format.SetWaveFormat(Bad));
  Bad = F;
  Bad.Format.nChannels = 0;
  EXPECT_FALSE(Format.SetWaveFormat(Bad));
  EXPECT_EQ(Changes, 0);

  TSRWaveFormatExtensible Classic{};
  Classic.Format = {WAVE_FORMAT_PCM, 6, 48000, 48000 * 12, 12, 16, 0};
  ASSERT_TRUE(Format.SetWaveFormat(Classic, 47999.5));
  EXPECT_EQ(Changes, 1);
  EXPECT_DOUBLE_EQ(Format.GetSampleRate(), 47999.5);
  EXPECT_EQ(Format.GetCountChannels(), 6u);
  EXPECT_EQ(Format.GetChannelMask(), 0x3Fu) << "a classic header gets the usual 5.1 mask";
  EXPECT_EQ(Format.GetWaveFormat().Format.nSamplesPerSec, 48000u);

  // The start operation built from a classic header keeps the exact rate.
  TPWStartWaveOperation Op(11025.25, Classic.Format);
  EXPECT_DOUBLE_EQ(Op.GetSampleRate(), 11025.25);
  EXPECT_EQ(Op.GetFormat().Format.nChannels, 6);
}

TEST(Exception, UnhandledErrorTextCarriesCodeInDecimalAndHex) {
  EXPECT_EQ(EWBException::FormatError("File x does not exist", -1), "File x does not exist - 4294967295 - FFFFFFFF");
  EXPECT_EQ(EWBException::FormatError("Can't start", -997), "Can't start - 4294966299 - FFFFFC1B");
  EXPECT_EQ(EWBException::FormatError("", 255), " - 255 - FF");
}
