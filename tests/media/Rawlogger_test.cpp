// The raw logger over real files: bare bytes, one file per stream, writers
// kept out while it writes, and every buffer written whole under its lock.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <fstream>
#include <iterator>
#include <thread>
#include <vector>

#include "../support/Scratchfolder.h"
#include "../support/Alloccounter.h"
#include "../support/Testcomponents.h"
#include "frame/Wbexception.h"
#include "frame/Wbpersistence.h"
#include "frame/Wbregistration.h"
#include "media/Srrawlogger.h"

using namespace Quorvel;
using Quorvel::Testing::TTestSource;

namespace {

class RawLoggerTest : public Testing::ScratchFolderTest {
 protected:
  static std::vector<uint8_t> ReadAll(const std::string& Path) {
    std::ifstream In(std::filesystem::u8path(Path), std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(In), {});
  }
  // The bytes a 16-bit ramp buffer carries (as TTestSource::SendRamp makes it).
  static std::vector<uint8_t> RampBytes(unsigned Channels, int32_t First, size_t Count) {
    std::vector<uint8_t> Bytes;
    for (size_t I = 0; I < Count; ++I)
      for (unsigned C = 0; C < Channels; ++C) {
        const auto V = static_cast<int16_t>(First + static_cast<int32_t>(I + C * 1000));
        Bytes.push_back(uint8_t(V & 0xFF));
        Bytes.push_back(uint8_t((V >> 8) & 0xFF));
      }
    return Bytes;
  }
};

// A source that sends buffers whose every byte is the buffer's own number,
// so that a torn or interleaved write shows in the file.
class TFillSource : public TWBComponent {
 public:
  TFillSource() : Output(*this, "Output") {}
  ~TFillSource() override { BeginDestroy(); }
  void Start() {
    Threading::TLockGuard G(GetLock());
    Output.SendStartWave(MakeWaveFormat(48000, 2, 16));
  }
  void Send(uint8_t Fill, size_t Frames) {
    Threading::TLockGuard G(GetLock());
    auto B = TSRAudioBuffer::Create(2, Frames, 16, 48000);
    std::memset(B->GetData(), Fill, B->GetSize());
    Output.SubmitBuffer(B);
  }
  void Stop() {
    Threading::TLockGuard G(GetLock());
    Output.SendStop();
  }
  TSRPWAudioSourcePin Output;
};

}  // namespace

TEST_F(RawLoggerTest, WritesTheBareBytesOfEveryBufferAndNothingElse) {
  TTestSource Source(nullptr, 2, 16, 44100);
  TSRRawLogger Logger;
  Logger.SetFileName(PathOf("take.raw"));
  ASSERT_TRUE(Source.Output.Connect(Logger.GetInputPin()));

  Source.Start();
  EXPECT_EQ(Logger.GetCurrentFileName(), PathOf("take.raw"));
  EXPECT_FALSE(Logger.IsCompressing());
  Source.SendRamp(100, 64);
  Source.SendRamp(-3000, 1);
  Source.SendRamp(7, 333);
  Source.Stop();
  EXPECT_EQ(Logger.GetCurrentFileName(), "") << "the file is closed with the stream";

  std::vector<uint8_t> Expected = RampBytes(2, 100, 64);
  for (auto [First, Count] : {std::pair<int32_t, size_t>{-3000, 1}, {7, 333}}) {
    const auto More = RampBytes(2, First, Count);
    Expected.insert(Expected.end(), More.begin(), More.end());
  }
  EXPECT_EQ(ReadAll(PathOf("take.raw")), Expected) << "no header: the sum of the buffers' bytes, in order";

  // Buffers outside a stream are refused and write nothing.
  Source.SendRamp(1, 10);
  EXPECT_EQ(ReadAll(PathOf("take.raw")).size(), Expected.size());

  // Once a stream runs, writing a buffer allocates nothing.
  TFillSource Steady;
  ASSERT_TRUE(Steady.Output.Connect(Logger.GetInputPin()));
  Steady.Start();
  Steady.Send(1, 512);
  const uint64_t Before = Testing::HeapAllocationCount();
  for (uint8_t I = 2; I < 50; ++I) Steady.Send(I, 512);
  EXPECT_EQ(Testing::HeapAllocationCount(), Before);
  Steady.Stop();
  EXPECT_EQ(ReadAll(PathOf("take.raw")).size(), 49u * 512 * 4);
}

TEST_F(RawLoggerTest, EachStreamEmptiesTheFileAndADisabledOrUnnamedLoggerWritesNothing) {
  TTestSource Source(nullptr, 1, 16, 48000);
  TSRRawLogger Logger;
  ASSERT_TRUE(Source.Output.Connect(Logger.GetInputPin()));
  {
    std::ofstream Old(std::filesystem::u8path(PathOf("take.raw")), std::ios::binary);
    Old << std::string(10000, 'x');
  }
  Logger.SetFileName(PathOf("take.raw"));
  Source.Start();
  Source.SendRamp(0, 100);
  Source.Stop();
  EXPECT_EQ(ReadAll(PathOf("take.raw")), RampBytes(1, 0, 100)) << "a longer old file is cut";

  // A second stream to the same name starts the file anew; so does a start
  // that arrives while a stream still runs.
  Source.Start();
  Source.SendRamp(500, 10);
  Source.Start();
  Source.SendRamp(900, 20);
  Source.Stop();
  EXPECT_EQ(ReadAll(PathOf("take.raw")), RampBytes(1, 900, 20));

  // Disabled, or without a file name: nothing is created or touched.
  Logger.SetEnabled(false);
  Source.Start();
  Source.SendRamp(0, 50);
  Source.Stop();
  EXPECT_EQ(ReadAll(PathOf("take.raw")), RampBytes(1, 900, 20));
  Logger.SetEnabled(true);
  Logger.SetFileName("");
  Source.Start();
  Source.SendRamp(0, 50);
  Source.Stop();
  EXPECT_EQ(ReadAll(PathOf("take.raw")), RampBytes(1, 900, 20));

  // Without ACM (or with only excluded or malformed items) the bytes go out
  // as they are.
  Logger.SetFileName(PathOf("take.raw"));
  Logger.GetAudioCompressions().Add()->SetFormat(std::vector<uint8_t>{1, 2, 3});
  TSRAudioCompressionItem* Excluded = Logger.GetAudioCompressions().Add();
  Excluded->SetFormat(MakeWaveFormat(8000, 1, 8).Format);
  Excluded->SetExcluded(true);
  Source.Start();
  EXPECT_FALSE(Logger.IsCompressing());
  Source.SendRamp(40, 30);
  Source.Stop();
  EXPECT_EQ(ReadAll(PathOf("take.raw")), RampBytes(1, 40, 30));
}

TEST_F(RawLoggerTest, OtherWritersAreDeniedWhileAStreamRunsAndReadersAreNot) {
  TTestSource Source(nullptr, 1, 16, 48000);
  TSRRawLogger Logger;
  Logger.SetFileName(PathOf("busy.raw"));
  ASSERT_TRUE(Source.Output.Connect(Logger.GetInputPin()));
  Source.Start();
  Source.SendRamp(0, 8);
  {
    TWBFileStream Writer(PathOf("busy.raw"), Platform::TFileOpenMode::fomReadWrite,
                         Platform::TFileShareMode::fsmShareAll);
    EXPECT_FALSE(Writer.IsOpen());
    TWBFileStream Creator(PathOf("busy.raw"), Platform::TFileOpenMode::fomCreate,
                          Platform::TFileShareMode::fsmShareAll);
    EXPECT_FALSE(Creator.IsOpen());
    TWBFileStream Reader(PathOf("busy.raw"), Platform::TFileOpenMode::fomRead, Platform::TFileShareMode::fsmShareAll);
    ASSERT_TRUE(Reader.IsOpen()) << Reader.GetOpenError();
    EXPECT_EQ(Reader.GetSize(), 16) << "what was written so far";
  }
  // A second logger on the same file cannot take it over: its start fails
  // with the creation error, and the first one's bytes stay.
  TTestSource Other(nullptr, 1, 16, 48000);
  TSRRawLogger Second;
  Second.SetFileName(PathOf("busy.raw"));
  std::string Message;
  Second.OnError = [&](TWBComponent*, const std::string& Text, int32_t Code, bool& Handled) {
    Message = Text;
    Handled = true;
    EXPECT_EQ(Code, -1);
  };
  ASSERT_TRUE(Other.Output.Connect(Second.GetInputPin()));
  Other.Start();
  EXPECT_EQ(Message.rfind("Can't create file " + PathOf("busy.raw") + ": ", 0), 0u) << Message;
  Other.SendRamp(0, 4);
  Other.Stop();
  Source.SendRamp(8, 8);
  Source.Stop();
  EXPECT_EQ(ReadAll(PathOf("busy.raw")), [] {
    auto A = RampBytes(1, 0, 8);
    const auto B = RampBytes(1, 8, 8);
    A.insert(A.end(), B.begin(), B.end());
    return A;
  }());
  TWBFileStream After(PathOf("busy.raw"), Platform::TFileOpenMode::fomReadWrite);
  EXPECT_TRUE(After.IsOpen()) << "writers get in once the stream ended";

  // A file that cannot be made is reported, unhandled as EWBException.
  TSRRawLogger Bad;
  Bad.SetFileName((Dir / "no-such-folder" / "x.raw").u8string());
  TTestSource Third(nullptr, 1, 16, 48000);
  ASSERT_TRUE(Third.Output.Connect(Bad.GetInputPin()));
  EXPECT_THROW(Third.Start(), EWBException);
}

TEST_F(RawLoggerTest, BuffersFromOneThreadAndRestartsFromAnotherNeverTearAWrite) {
  TFillSource Streamer, Restarter;
  TSRRawLogger Logger;
  Logger.SetFileName(PathOf("race.raw"));
  ASSERT_TRUE(Streamer.Output.Connect(Logger.GetInputPin()));
  ASSERT_TRUE(Restarter.Output.Connect(Logger.GetInputPin()));
  constexpr size_t kFrames = 1000;  // 4000 bytes a buffer
  Streamer.Start();
  std::atomic<bool> Done{false};
  std::thread Other([&] {
    for (int I = 0; I < 200; ++I) {
      Restarter.Stop();
      Restarter.Start();
    }
    Done = true;
  });
  uint8_t Fill = 0;
  size_t Sent = 0;
  while (!Done.load() || Sent < 500) {
    Streamer.Send(++Fill, kFrames);
    ++Sent;
  }
  Other.join();
  Streamer.Send(++Fill, kFrames);
  Streamer.Stop();
  // Whatever the last restart left: whole buffers, each of one fill byte.
  const auto Bytes = ReadAll(PathOf("race.raw"));
  const size_t BufferBytes = kFrames * 4;
  ASSERT_FALSE(Bytes.empty());
  ASSERT_EQ(Bytes.size() % BufferBytes, 0u);
  for (size_t At = 0; At < Bytes.size(); At += BufferBytes)
    for (size_t I = 1; I < BufferBytes; ++I) ASSERT_EQ(Bytes[At + I], Bytes[At]) << "buffer at " << At << " torn";
  EXPECT_EQ(Bytes.back(), Fill) << "the last buffer is the last one sent";
}

TEST_F(RawLoggerTest, CompressionItemsAreStoredOnlyWhenThereAreAny) {
  TSRRawLogger Logger;
  Logger.SetFileName("a.raw");
  TWBValue Saved = SaveComponent(Logger);
  EXPECT_EQ(Saved.Find("AudioCompressions"), nullptr);
  EXPECT_FALSE(Logger.GetAudioCompressionsStored());

  TWaveFormatEx Adpcm = MakeWaveFormat(22050, 1, 16).Format;
  Adpcm.wFormatTag = 0x11;
  Adpcm.wBitsPerSample = 4;
  Adpcm.cbSize = 2;
  const uint8_t Extra[2] = {0xF9, 0x01};
  Logger.GetAudioCompressions().Add()->SetFormat(Adpcm, Extra);
  Logger.GetAudioCompressions().Add()->SetExcluded(true);
  EXPECT_TRUE(Logger.GetAudioCompressionsStored());
  EXPECT_EQ(Logger.GetAudioCompressions().Get(0)->GetDisplayName(), "Tag 0x11, 22050 Hz, 1 channel(s), 4 bits");
  EXPECT_EQ(Logger.GetAudioCompressions().FirstUsable(), Logger.GetAudioCompressions().Get(0));
  EXPECT_EQ(Logger.GetAudioCompressions().FirstUsable(1), nullptr) << "excluded and without a format";

  Saved = SaveComponent(Logger);
  TSRRawLogger Copy;
  std::vector<std::string> Problems;
  LoadComponent(Copy, Saved, Problems);
  EXPECT_TRUE(Problems.empty()) << Problems.front();
  ASSERT_EQ(Copy.GetAudioCompressions().Count(), 2u);
  EXPECT_EQ(Copy.GetAudioCompressions().Get(0)->GetFormat(), Logger.GetAudioCompressions().Get(0)->GetFormat());
  ASSERT_NE(Copy.GetAudioCompressions().Get(0)->GetWaveFormat(), nullptr);
  EXPECT_EQ(Copy.GetAudioCompressions().Get(0)->GetWaveFormat()->cbSize, 2);
  EXPECT_TRUE(Copy.GetAudioCompressions().Get(1)->GetExcluded());
  EXPECT_EQ(Copy.GetFileName(), "a.raw");

  // The class is known by name once its unit registered it.
  Srrawlogger::RegisterPkg();
  TWBComponent* Made = Design::Components::CreateComponent("TSRRawLogger", nullptr);
  ASSERT_NE(Made, nullptr);
  EXPECT_EQ(&Made->GetClassInfo(), &TSRRawLogger::ClassInfo());
  delete Made;
  Srrawlogger::UnregisterPkg();
}
