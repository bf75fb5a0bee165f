// The OS seams through their portable headers: the same cases run natively
// and, for the Windows build, under Wine.
#include "platform/Audiofile.h"
#include "platform/Library.h"
#include "platform/Mainthread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <climits>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#ifdef _WIN32
#include <windows.h>
#else
#include <dlfcn.h>

#include <cmath>
#endif

namespace fs = std::filesystem;
using namespace Quorvel::Platform;

namespace {

using TBytes = std::vector<uint8_t>;

#ifdef _WIN32
const char* const kLibraryExtension = ".dll";
#else
const char* const kLibraryExtension = ".so";
#endif
// "Bibliothèque-ü": a name that only survives a real UTF-8 to UTF-16 conversion.
const char* const kNonAsciiName = "Biblioth\xC3\xA8que-\xC3\xBC";

void Put16(TBytes& Out, uint32_t Value) {
  for (int I = 0; I < 2; ++I) Out.push_back(uint8_t(Value >> (8 * I)));
}
void Put32(TBytes& Out, uint32_t Value) {
  for (int I = 0; I < 4; ++I) Out.push_back(uint8_t(Value >> (8 * I)));
}
uint32_t Get32(const TBytes& In, size_t At) {
  return uint32_t(In[At]) | uint32_t(In[At + 1]) << 8 | uint32_t(In[At + 2]) << 16 | uint32_t(In[At + 3]) << 24;
}

struct TChunk {
  std::string Id;
  TBytes Body;
  int64_t DeclaredSize = -1;  // the body's own size unless a test lies about it
};

// A RIFF file chunk by chunk, padding odd bodies as the format requires.
TBytes Riff(const std::vector<TChunk>& Chunks, const char* Form = "WAVE") {
  TBytes Out{'R', 'I', 'F', 'F', 0, 0, 0, 0};
  Out.insert(Out.end(), Form, Form + 4);
  for (const TChunk& Chunk : Chunks) {
    Out.insert(Out.end(), Chunk.Id.begin(), Chunk.Id.end());
    Put32(Out, Chunk.DeclaredSize >= 0 ? uint32_t(Chunk.DeclaredSize) : uint32_t(Chunk.Body.size()));
    Out.insert(Out.end(), Chunk.Body.begin(), Chunk.Body.end());
    if (Chunk.Body.size() % 2) Out.push_back(0);
  }
  const uint32_t RiffSize = uint32_t(Out.size() - 8);
  std::memcpy(&Out[4], &RiffSize, 4);
  return Out;
}

TChunk Fmt(uint16_t Tag, uint16_t Channels, uint32_t Rate, uint16_t Bits) {
  TChunk Chunk{"fmt ", {}};
  Put16(Chunk.Body, Tag);
  Put16(Chunk.Body, Channels);
  Put32(Chunk.Body, Rate);
  Put32(Chunk.Body, Rate * Channels * Bits / 8);
  Put16(Chunk.Body, uint16_t(Channels * Bits / 8));
  Put16(Chunk.Body, Bits);
  return Chunk;
}

// WAVE_FORMAT_EXTENSIBLE with the integer PCM sub-format.
TChunk FmtExtensible(uint16_t Channels, uint32_t Rate, uint16_t Bits) {
  TChunk Chunk = Fmt(0xFFFE, Channels, Rate, Bits);
  Put16(Chunk.Body, 22);
  Put16(Chunk.Body, Bits);
  Put32(Chunk.Body, 0);
  const uint8_t PcmGuid[16] = {1, 0, 0, 0, 0, 0, 0x10, 0, 0x80, 0, 0, 0xAA, 0, 0x38, 0x9B, 0x71};
  Chunk.Body.insert(Chunk.Body.end(), PcmGuid, PcmGuid + 16);
  return Chunk;
}

TBytes RandomBytes(size_t Count, uint32_t Seed) {
  std::mt19937 Generator(Seed);
  TBytes Out(Count);
  for (auto& Byte : Out) Byte = uint8_t(Generator());
  return Out;
}

// The body of the first chunk called Id, found by walking the file's chunks.
TBytes ChunkBody(const TBytes& File, const char* Id) {
  for (size_t At = 12; At + 8 <= File.size();) {
    const uint32_t Size = Get32(File, At + 4);
    if (std::memcmp(&File[At], Id, 4) == 0 && At + 8 + Size <= File.size())
      return TBytes(File.begin() + At + 8, File.begin() + At + 8 + Size);
    At += 8 + Size + (Size & 1);
  }
  return {};
}

// Reads to the end in pieces of Step frames.
TBytes ReadAll(TAudioFileReader& Reader, uint64_t Step) {
  const TAudioFileInfo& Info = Reader.Info();
  const size_t FrameBytes = size_t(Info.Channels) * Info.Bits / 8;
  TBytes Out, Block(Step * FrameBytes);
  for (int64_t Got; (Got = Reader.Read(Block.data(), Step)) > 0;)
    Out.insert(Out.end(), Block.begin(), Block.begin() + Got * FrameBytes);
  return Out;
}

// A directory of its own under the system's temporary folder, removed afterwards.
class PlatformFiles : public ::testing::Test {
 protected:
  void SetUp() override {
    std::random_device Random;
    const auto Now = std::chrono::steady_clock::now().time_since_epoch().count();
    Dir = fs::temp_directory_path() /
          ("quorvel-platform-" + std::to_string(Now) + "-" + std::to_string(Random()));
    ASSERT_TRUE(fs::create_directories(Dir));
  }
  void TearDown() override {
    std::error_code Ignored;
    fs::remove_all(Dir, Ignored);
  }

  std::string PathOf(const std::string& Utf8Name) const { return (Dir / fs::u8path(Utf8Name)).u8string(); }

  std::string Store(const std::string& Utf8Name, const TBytes& Bytes) const {
    std::ofstream Out(Dir / fs::u8path(Utf8Name), std::ios::binary);
    Out.write(reinterpret_cast<const char*>(Bytes.data()), std::streamsize(Bytes.size()));
    EXPECT_TRUE(Out.good());
    return PathOf(Utf8Name);
  }

  TBytes Load(const std::string& Utf8Name) const {
    std::ifstream In(Dir / fs::u8path(Utf8Name), std::ios::binary);
    return TBytes(std::istreambuf_iterator<char>(In), {});
  }

  fs::path Dir;
};

// ---- code libraries -------------------------------------------------------

TEST(Library, LoadsSystemLibraryAndResolvesItsSymbols) {
  std::string Error;
  unsigned Code = 0;
#ifdef _WIN32
  TModuleHandle Module = LoadCodeLibrary("kernel32.dll", Error, Code);
  ASSERT_NE(Module, nullptr) << Error;
  auto* Length = reinterpret_cast<int(WINAPI*)(const char*)>(GetLibrarySymbol(Module, "lstrlenA"));
  ASSERT_NE(Length, nullptr);
  EXPECT_EQ(Length("abc"), 3);
#else
  TModuleHandle Module = LoadCodeLibrary("libm.so.6", Error, Code);
  ASSERT_NE(Module, nullptr) << Error;
  auto* Cosine = reinterpret_cast<double (*)(double)>(GetLibrarySymbol(Module, "cos"));
  ASSERT_NE(Cosine, nullptr);
  EXPECT_EQ(Cosine(0.0), 1.0);
#endif
  EXPECT_EQ(GetLibrarySymbol(Module, "QuorvelNoSuchSymbol"), nullptr);
  EXPECT_EQ(GetLibrarySymbol(nullptr, "cos"), nullptr);
  FreeCodeLibrary(Module);
  FreeCodeLibrary(nullptr);
}

TEST_F(PlatformFiles, LibraryFailuresCarryTheSystemsReason) {
  const std::string NotALibrary = Store(std::string("notalibrary") + kLibraryExtension, TBytes(300, 'x'));
  const std::string Missing = PathOf(std::string("missing") + kLibraryExtension);
  // The empty name must fail: the dynamic linker would answer the main program.
  for (const std::string& Name : {Missing, NotALibrary, Dir.u8string(), std::string(), std::string("\xFF\xFE.so")}) {
    SCOPED_TRACE(Name);
    std::string Error;
    unsigned Code = 0;
    EXPECT_EQ(LoadCodeLibrary(Name, Error, Code), nullptr);
    EXPECT_FALSE(Error.empty());
    EXPECT_EQ(Error.find("%1"), std::string::npos);
    EXPECT_NE(Code, 0u);
  }
#ifdef _WIN32
  std::string Error;
  unsigned Code = 0;
  LoadCodeLibrary(Missing, Error, Code);
  EXPECT_EQ(Code, unsigned(ERROR_MOD_NOT_FOUND));
#endif
}

TEST_F(PlatformFiles, LoadsLibraryFromNonAsciiPath) {
#ifdef _WIN32
  const char* const LibraryName = "version.dll";
  const char* const SymbolName = "GetFileVersionInfoSizeW";
  wchar_t System[MAX_PATH];
  ASSERT_GT(GetSystemDirectoryW(System, MAX_PATH), 0u);
  const fs::path Original = fs::path(System) / LibraryName;
#else
  const char* const SymbolName = "cos";
  Dl_info Where{};
  ASSERT_NE(dladdr(reinterpret_cast<void*>(static_cast<double (*)(double)>(&std::cos)), &Where), 0);
  const fs::path Original = Where.dli_fname;
#endif
  const std::string Copy = PathOf(std::string(kNonAsciiName) + kLibraryExtension);
  fs::copy_file(Original, fs::u8path(Copy));
  EXPECT_TRUE(FileExists(Copy));
  std::string Error;
  unsigned Code = 0;
  TModuleHandle Module = LoadCodeLibrary(Copy, Error, Code);
  ASSERT_NE(Module, nullptr) << Error;
  EXPECT_NE(GetLibrarySymbol(Module, SymbolName), nullptr);
  FreeCodeLibrary(Module);
}

TEST_F(PlatformFiles, FileExistsOnlyForRegularFiles) {
  const std::string File = Store("plain.txt", {'a'});
  EXPECT_TRUE(FileExists(File));
  EXPECT_FALSE(FileExists(Dir.u8string()));
  EXPECT_FALSE(FileExists(PathOf("missing.txt")));
  EXPECT_FALSE(FileExists(""));
}

// ---- audio files ----------------------------------------------------------

TEST_F(PlatformFiles, WavRoundTripKeepsEveryByteAndTheFormat) {
  const uint64_t Frames = 1001;  // odd, so 8-bit mono needs a pad byte
  for (uint16_t Bits : {8, 16, 24, 32}) {
    for (uint16_t Channels : {1, 3}) {
      SCOPED_TRACE("bits " + std::to_string(Bits) + ", channels " + std::to_string(Channels));
      const uint32_t Rate = Bits == 8 ? 8000 : Bits == 16 ? 44100 : 96000;
      const size_t FrameBytes = size_t(Channels) * Bits / 8;
      const TBytes Samples = RandomBytes(Frames * FrameBytes, Bits * 10 + Channels);
      const std::string Name = "round-" + std::to_string(Bits) + "-" + std::to_string(Channels) + ".wav";

      std::string Error;
      TAudioFileInfo Info;
      Info.SampleRate = Rate;
      Info.Channels = Channels;
      Info.Bits = Bits;
      auto Writer = CreateAudioFile(PathOf(Name), Info, Error);
      ASSERT_NE(Writer, nullptr) << Error;
      EXPECT_TRUE(Writer->Write(Samples.data(), 1));
      EXPECT_TRUE(Writer->Write(Samples.data() + FrameBytes, 600));
      EXPECT_TRUE(Writer->Write(Samples.data() + 601 * FrameBytes, Frames - 601));
      EXPECT_TRUE(Writer->Write(nullptr, 0));
      EXPECT_TRUE(Writer->Close());
      EXPECT_FALSE(Writer->Write(Samples.data(), 1));

      // The file itself: sizes in the header agree with the file, samples stored as given.
      const TBytes File = Load(Name);
      ASSERT_GE(File.size(), 44u);
      EXPECT_EQ(File.size() % 2, 0u);
      EXPECT_EQ(Get32(File, 4), File.size() - 8);
      EXPECT_EQ(ChunkBody(File, "data"), Samples);

      auto Reader = OpenAudioFileForReading(PathOf(Name), Error);
      ASSERT_NE(Reader, nullptr) << Error;
      EXPECT_EQ(Reader->Info().SampleRate, Rate);
      EXPECT_EQ(Reader->Info().Channels, Channels);
      EXPECT_EQ(Reader->Info().Bits, Bits);
      EXPECT_EQ(Reader->Info().Frames, Frames);
      EXPECT_EQ(ReadAll(*Reader, 333), Samples);
      EXPECT_EQ(Reader->Read(TBytes(FrameBytes).data(), 1), 0);
    }
  }
}

TEST_F(PlatformFiles, WavReaderFollowsTheFormatNotJustOurWriter) {
  std::string Error;
  {
    // Unknown chunks (one of odd size) before the format; samples little-endian.
    const TBytes Samples = {0x01, 0x00, 0xFF, 0x7F, 0x00, 0x80, 0x34, 0x12};
    const std::string Path = Store("stereo16.wav", Riff({{"LIST", {'I', 'N', 'F', 'O', 'x'}},
                                                          {"junk", TBytes(6, 0)},
                                                          Fmt(1, 2, 22050, 16),
                                                          {"data", Samples}}));
    auto Reader = OpenAudioFileForReading(Path, Error);
    ASSERT_NE(Reader, nullptr) << Error;
    EXPECT_EQ(Reader->Info().SampleRate, 22050u);
    EXPECT_EQ(Reader->Info().Channels, 2);
    EXPECT_EQ(Reader->Info().Bits, 16);
    EXPECT_EQ(Reader->Info().Frames, 2u);
    EXPECT_EQ(ReadAll(*Reader, 1), Samples);
  }
  {
    // 8-bit is unsigned, as stored; neither the pad byte nor a trailing chunk is audio.
    const TBytes Samples = {0x00, 0x80, 0xFF};
    const std::string Path =
        Store("mono8.wav", Riff({Fmt(1, 1, 11025, 8), {"data", Samples}, {"LIST", {'I', 'N', 'F', 'O'}}}));
    auto Reader = OpenAudioFileForReading(Path, Error);
    ASSERT_NE(Reader, nullptr) << Error;
    EXPECT_EQ(Reader->Info().Frames, 3u);
    EXPECT_EQ(ReadAll(*Reader, 2), Samples);
  }
  {
    const TBytes Samples = RandomBytes(3 * 3 * 5, 7);
    const std::string Path = Store("ext24.wav", Riff({FmtExtensible(3, 48000, 24), {"data", Samples}}));
    auto Reader = OpenAudioFileForReading(Path, Error);
    ASSERT_NE(Reader, nullptr) << Error;
    EXPECT_EQ(Reader->Info().Channels, 3);
    EXPECT_EQ(Reader->Info().Bits, 24);
    EXPECT_EQ(ReadAll(*Reader, 4), Samples);
  }
  {
    // Floating point arrives as full-scale 32-bit integers, clipped rather than wrapped.
    const float Values[] = {0.5f, -0.25f, 0.0f, -1.0f, 2.0f, -3.0f};
    TChunk Data{"data", TBytes(sizeof Values)};
    std::memcpy(Data.Body.data(), Values, sizeof Values);
    TChunk Format = Fmt(3, 1, 44100, 32);
    Put16(Format.Body, 0);
    const std::string Path = Store("float.wav", Riff({Format, {"fact", {6, 0, 0, 0}}, Data}));
    auto Reader = OpenAudioFileForReading(Path, Error);
    ASSERT_NE(Reader, nullptr) << Error;
    EXPECT_EQ(Reader->Info().Bits, 32);
    int32_t Read[6] = {};
    ASSERT_EQ(Reader->Read(Read, 6), 6);
    const int32_t Expected[] = {1 << 30, -(1 << 29), 0, INT32_MIN, INT32_MAX, INT32_MIN};
    for (int I = 0; I < 6; ++I) EXPECT_NEAR(double(Read[I]), double(Expected[I]), 1.0) << "sample " << I;
  }
}

TEST_F(PlatformFiles, HostileWavFilesFailCleanly) {
  const TBytes Good = Riff({Fmt(1, 2, 44100, 16), {"data", RandomBytes(40, 3)}});
  const TBytes FmtBody = Fmt(1, 2, 44100, 16).Body;
  struct TCase {
    const char* Name;
    TBytes Bytes;
  };
  const std::vector<TCase> Refused = {
      {"empty", {}},
      {"random", RandomBytes(4096, 11)},
      {"truncated-header", TBytes(Good.begin(), Good.begin() + 20)},
      {"not-wave", Riff({Fmt(1, 2, 44100, 16), {"data", TBytes(40)}}, "AVI ")},
      {"zero-channels", Riff({Fmt(1, 0, 44100, 16), {"data", TBytes(40)}})},
      {"zero-rate", Riff({Fmt(1, 2, 0, 16), {"data", TBytes(40)}})},
      {"no-data", Riff({Fmt(1, 2, 44100, 16), {"LIST", TBytes(8)}})},
      {"no-fmt", Riff({{"data", TBytes(40)}})},
      {"short-fmt", Riff({{"fmt ", TBytes(FmtBody.begin(), FmtBody.begin() + 10)}, {"data", TBytes(40)}})},
      {"huge-chunk-before-fmt", Riff({{"junk", TBytes(8), 0xFFFFFFF0}, Fmt(1, 2, 44100, 16), {"data", TBytes(40)}})},
      {"huge-fmt", Riff({{"fmt ", FmtBody, 0x7FFFFFFF}, {"data", TBytes(40)}})},
  };
  for (const TCase& Case : Refused) {
    SCOPED_TRACE(Case.Name);
    std::string Error;
    EXPECT_EQ(OpenAudioFileForReading(Store(std::string(Case.Name) + ".wav", Case.Bytes), Error), nullptr);
    EXPECT_FALSE(Error.empty());
  }
  std::string Error;
  EXPECT_EQ(OpenAudioFileForReading(PathOf("missing.wav"), Error), nullptr);
  EXPECT_FALSE(Error.empty());

  // A data chunk claiming more than the file holds yields what is there.
  const TBytes Present = RandomBytes(10 * 4, 5);
  const std::string Path =
      Store("data-too-long.wav", Riff({Fmt(1, 2, 44100, 16), {"data", Present, 0x7FFFFFF0}}));
  auto Reader = OpenAudioFileForReading(Path, Error);
  ASSERT_NE(Reader, nullptr) << Error;
  EXPECT_EQ(Reader->Info().Frames, 10u);
  EXPECT_EQ(ReadAll(*Reader, 64), Present);
}

TEST_F(PlatformFiles, WriterRefusesWhatItCannotWrite) {
  const auto Refuses = [&](uint32_t Rate, uint16_t Channels, uint16_t Bits, const std::string& Path) {
    TAudioFileInfo Info;
    Info.SampleRate = Rate;
    Info.Channels = Channels;
    Info.Bits = Bits;
    std::string Error;
    const bool Refused = CreateAudioFile(Path, Info, Error) == nullptr;
    return Refused && !Error.empty();
  };
  EXPECT_TRUE(Refuses(44100, 2, 12, PathOf("bits.wav")));
  EXPECT_TRUE(Refuses(44100, 0, 16, PathOf("channels.wav")));
  EXPECT_TRUE(Refuses(0, 2, 16, PathOf("rate.wav")));
  EXPECT_TRUE(Refuses(44100, 2, 16, PathOf("no-such-dir/out.wav")));
  // A name the multimedia file functions would take for a compound-file element.
  const std::string Unusual = std::string(kNonAsciiName) + ".v2+Bass.wav";
  EXPECT_FALSE(Refuses(44100, 2, 16, PathOf(Unusual)));
  EXPECT_TRUE(fs::is_regular_file(Dir / fs::u8path(Unusual)));
}

// ---- main-thread wake -----------------------------------------------------

#ifdef _WIN32
std::atomic<int> GDrains{0};
std::atomic<DWORD> GDrainThread{0};
std::atomic<bool> GWakeInsideDrain{false};

void CountDrain() {
  GDrainThread = GetCurrentThreadId();
  ++GDrains;
  if (GWakeInsideDrain.exchange(false)) MainThreadWake();
}

// Runs this thread's message loop until Done answers true or Timeout passes.
void PumpMessages(std::chrono::milliseconds Timeout, const std::function<bool()>& Done = [] { return false; }) {
  const auto Deadline = std::chrono::steady_clock::now() + Timeout;
  while (!Done() && std::chrono::steady_clock::now() < Deadline) {
    MSG Message;
    while (PeekMessageW(&Message, nullptr, 0, 0, PM_REMOVE)) DispatchMessageW(&Message);
    MsgWaitForMultipleObjects(0, nullptr, FALSE, 5, QS_ALLINPUT);
  }
}

TEST(MainThreadWake, DrainsOnTheInitThreadOncePerBurst) {
  GDrains = 0;
  MainThreadWakeInit(&CountDrain);
  MainThreadWakeInit(&CountDrain);
  std::thread([] {
    for (int I = 0; I < 1000; ++I) MainThreadWake();
  }).join();
  PumpMessages(std::chrono::seconds(5), [] { return GDrains > 0; });
  PumpMessages(std::chrono::milliseconds(100));
  EXPECT_EQ(GDrains, 1);
  EXPECT_EQ(GDrainThread, GetCurrentThreadId());

  // A wake after the drain is not swallowed by the coalescing.
  std::thread(MainThreadWake).join();
  PumpMessages(std::chrono::seconds(5), [] { return GDrains > 1; });
  EXPECT_EQ(GDrains, 2);

  // Work queued while a drain runs gets a drain of its own.
  GWakeInsideDrain = true;
  MainThreadWake();
  PumpMessages(std::chrono::seconds(5), [] { return GDrains > 3; });
  EXPECT_EQ(GDrains, 4);

  // Woken while torn down: the drain comes once the path is up again.
  MainThreadWakeDone();
  MainThreadWake();
  PumpMessages(std::chrono::milliseconds(50));
  EXPECT_EQ(GDrains, 4);
  MainThreadWakeInit(&CountDrain);
  PumpMessages(std::chrono::seconds(5), [] { return GDrains > 4; });
  EXPECT_EQ(GDrains, 5);
  MainThreadWakeDone();
}

TEST(MainThreadWake, WakeRacingInitAndDoneIsHarmless) {
  std::atomic<bool> Stop{false};
  std::thread Waker([&] {
    while (!Stop) MainThreadWake();
  });
  for (int I = 0; I < 50; ++I) {
    MainThreadWakeInit(&CountDrain);
    PumpMessages(std::chrono::milliseconds(1));
    MainThreadWakeDone();
  }
  Stop = true;
  Waker.join();
  GDrains = 0;
  MainThreadWakeInit(&CountDrain);
  MainThreadWake();
  PumpMessages(std::chrono::seconds(5), [] { return GDrains > 0; });
  EXPECT_GE(GDrains, 1);
  MainThreadWakeDone();
}
#endif

}  // namespace
