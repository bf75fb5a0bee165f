// The OS seams through their portable headers: the same cases run natively
// and, for the Windows build, under Wine.
#include "tests/support/Scratchfolder.h"
#include "platform/Audiofile.h"
#include "platform/Files.h"
#include "platform/Library.h"
#include "platform/Mainthread.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <climits>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#ifdef _WIN32
#include <windows.h>
const char* const kLibraryExtension = ".dll";
#else
#include <dlfcn.h>

#include <cmath>
const char* const kLibraryExtension = ".so";
#endif

namespace fs = std::filesystem;
using namespace Quorvel::Platform;

namespace {

using TBytes = std::vector<uint8_t>;

// "Bibliothèque-ü": a name that only survives a real UTF-8 to UTF-16 conversion.
const std::string kNonAsciiName = "Biblioth\xC3\xA8que-\xC3\xBC";

void Put(TBytes& Out, uint32_t Value, int Bytes) {
  for (int I = 0; I < Bytes; ++I) Out.push_back(uint8_t(Value >> (8 * I)));
}
uint32_t Le32(const uint8_t* At) { return At[0] | At[1] << 8 | At[2] << 16 | uint32_t(At[3]) << 24; }

// One RIFF chunk, its size the body's own unless a test lies about it, odd bodies padded.
TBytes Chunk(const char* Id, const TBytes& Body, int64_t DeclaredSize = -1) {
  TBytes Out(Id, Id + 4);
  Put(Out, uint32_t(DeclaredSize >= 0 ? DeclaredSize : int64_t(Body.size())), 4);
  Out.insert(Out.end(), Body.begin(), Body.end());
  if (Body.size() % 2) Out.push_back(0);
  return Out;
}

TBytes Riff(const std::vector<TBytes>& Chunks, const char* Form = "WAVE") {
  TBytes Out{'R', 'I', 'F', 'F'};
  TBytes Body(Form, Form + 4);
  for (const TBytes& C : Chunks) Body.insert(Body.end(), C.begin(), C.end());
  Put(Out, uint32_t(Body.size()), 4);
  Out.insert(Out.end(), Body.begin(), Body.end());
  return Out;
}

// The format chunk's body: tag, channels, rate, bytes per second, block align, bits.
TBytes FmtBody(uint16_t Tag, uint16_t Channels, uint32_t Rate, uint16_t Bits) {
  TBytes Out;
  const uint32_t Fields[][2] = {{Tag, 2}, {Channels, 2}, {Rate, 4}, {Rate * Channels * Bits / 8u, 4},
                                {Channels * Bits / 8u, 2}, {Bits, 2}};
  for (const auto& Field : Fields) Put(Out, Field[0], int(Field[1]));
  return Out;
}
TBytes Fmt(uint16_t Tag, uint16_t Channels, uint32_t Rate, uint16_t Bits) {
  return Chunk("fmt ", FmtBody(Tag, Channels, Rate, Bits));
}

template <typename T, size_t N>
TBytes BytesOf(const T (&Values)[N]) {
  TBytes Out(sizeof Values);
  std::memcpy(Out.data(), Values, sizeof Values);
  return Out;
}

TBytes RandomBytes(size_t Count, uint32_t Seed) {
  std::mt19937 Generator(Seed);
  TBytes Out(Count);
  for (auto& Byte : Out) Byte = uint8_t(Generator());
  return Out;
}

std::string Describe(const TAudioFileInfo& Info) {
  return std::to_string(Info.SampleRate) + " Hz, " + std::to_string(Info.Channels) + " ch, " +
         std::to_string(Info.Bits) + (Info.Float ? " bit float, " : " bit, ") + std::to_string(Info.Frames) +
         " frames";
}

// Reads to the end in pieces of Step frames.
TBytes ReadAll(TAudioFileReader& Reader, uint64_t Step) {
  const size_t FrameBytes = size_t(Reader.Info().Channels) * Reader.Info().Bits / 8;
  TBytes Out, Block(Step * FrameBytes);
  for (int64_t Got; (Got = Reader.Read(Block.data(), Step)) > 0;)
    Out.insert(Out.end(), Block.begin(), Block.begin() + Got * FrameBytes);
  return Out;
}

// A directory of its own under the system's temporary folder, removed afterwards.
class PlatformFiles : public Quorvel::Testing::ScratchFolderTest {
 protected:
  std::string Store(const std::string& Utf8Name, const TBytes& Bytes) const {
    std::ofstream(Dir / fs::u8path(Utf8Name), std::ios::binary)
        .write(reinterpret_cast<const char*>(Bytes.data()), std::streamsize(Bytes.size()));
    return PathOf(Utf8Name);
  }
};

// ---- code libraries -------------------------------------------------------

TEST_F(PlatformFiles, LibrariesLoadFromAnyPathResolveSymbolsAndFailWithTheSystemsReason) {
  // A system library by its bare name, and a copy of it under a non-ASCII path.
#ifdef _WIN32
  const char *const SystemName = "version.dll", *const SymbolName = "GetFileVersionInfoSizeW";
  wchar_t System[MAX_PATH];
  ASSERT_GT(GetSystemDirectoryW(System, MAX_PATH), 0u);
  const fs::path Original = fs::path(System) / SystemName;
#else
  const char *const SystemName = "libm.so.6", *const SymbolName = "cos";
  Dl_info Where{};
  ASSERT_NE(dladdr(reinterpret_cast<void*>(static_cast<double (*)(double)>(&std::cos)), &Where), 0);
  const fs::path Original = Where.dli_fname;
#endif
  const std::string Copy = PathOf(kNonAsciiName + kLibraryExtension);
  fs::copy_file(Original, fs::u8path(Copy));
  std::string Error;
  unsigned Code = 0;
  for (const std::string& Name : {std::string(SystemName), Copy}) {
    SCOPED_TRACE(Name);
    TModuleHandle Module = LoadCodeLibrary(Name, Error, Code);
    ASSERT_NE(Module, nullptr) << Error;
    EXPECT_NE(GetLibrarySymbol(Module, SymbolName), nullptr);
    EXPECT_EQ(GetLibrarySymbol(Module, "QuorvelNoSuchSymbol"), nullptr);
    FreeCodeLibrary(Module);
  }
  EXPECT_EQ(GetLibrarySymbol(nullptr, SymbolName), nullptr);
  FreeCodeLibrary(nullptr);

  const std::string NotALibrary = Store(std::string("notalibrary") + kLibraryExtension, TBytes(300, 'x'));
  const std::string Missing = PathOf(std::string("missing") + kLibraryExtension);
  // The empty name must fail: the dynamic linker would answer the main program.
  for (const std::string& Name : {Missing, NotALibrary, Dir.u8string(), std::string(), std::string("\xFF\xFE.so")}) {
    SCOPED_TRACE(Name);
    Error.clear();
    Code = 0;
    EXPECT_EQ(LoadCodeLibrary(Name, Error, Code), nullptr);
    EXPECT_FALSE(Error.empty());
    EXPECT_EQ(Error.find("%1"), std::string::npos);
    EXPECT_NE(Code, 0u);
  }
#ifdef _WIN32
  LoadCodeLibrary(Missing, Error, Code);
  EXPECT_EQ(Code, unsigned(ERROR_MOD_NOT_FOUND));
#endif

  EXPECT_TRUE(FileExists(Copy));
  EXPECT_FALSE(FileExists(Dir.u8string()));
  EXPECT_FALSE(FileExists(Missing));
  EXPECT_FALSE(FileExists(""));
}

// ---- files ----------------------------------------------------------------

TEST_F(PlatformFiles, FilesAreKnownByIdentityAndReplacedInOneStep) {
  const std::string A = Store(kNonAsciiName + "-a.wav", TBytes(10, 'a'));
  const std::string B = Store("b.wav", TBytes(20, 'b'));
  EXPECT_EQ(GetPathKind(A), TPathKind::pkFile);
  EXPECT_EQ(GetPathKind(Dir.u8string()), TPathKind::pkDirectory);
  EXPECT_EQ(GetPathKind(PathOf("missing")), TPathKind::pkMissing);
  EXPECT_EQ(GetPathKind(""), TPathKind::pkMissing);

  // The same file under other names: another spelling, a hard link, a symbolic link.
  const std::string Spelled = (Dir / "." / fs::u8path(kNonAsciiName + "-a.wav")).u8string();
  fs::create_hard_link(fs::u8path(A), Dir / "hard.wav");
  EXPECT_TRUE(IsSameFile(A, A));
  EXPECT_TRUE(IsSameFile(A, Spelled));
  EXPECT_TRUE(IsSameFile(A, PathOf("hard.wav")));
  EXPECT_FALSE(IsSameFile(A, B));
  EXPECT_FALSE(IsSameFile(A, PathOf("missing")));
  EXPECT_FALSE(IsSameFile(PathOf("missing"), PathOf("missing")));
#ifndef _WIN32
  fs::create_symlink(fs::u8path(A), Dir / "link.wav");
  EXPECT_TRUE(IsSameFile(PathOf("link.wav"), A));
  EXPECT_TRUE(IsSameFile(ResolveWriteTarget(PathOf("link.wav")), A));
  EXPECT_EQ(GetPathKind(ResolveWriteTarget(PathOf("link.wav"))), TPathKind::pkFile);
#endif
  EXPECT_EQ(ResolveWriteTarget(B), B);
  EXPECT_EQ(ResolveWriteTarget(PathOf("new.wav")), PathOf("new.wav"));

  // Temporary files: new, empty, distinct, beside their target.
  std::string Error;
  const std::string T1 = CreateTemporaryFileBeside(A, Error), T2 = CreateTemporaryFileBeside(A, Error);
  ASSERT_FALSE(T1.empty()) << Error;
  ASSERT_FALSE(T2.empty()) << Error;
  EXPECT_NE(T1, T2);
  EXPECT_EQ(fs::u8path(T1).parent_path(), Dir);
  EXPECT_EQ(fs::file_size(fs::u8path(T1)), 0u);
  EXPECT_TRUE(CreateTemporaryFileBeside(PathOf("no/x.wav"), Error).empty());
  EXPECT_FALSE(Error.empty());

  // Replacing puts the new content in place and leaves no temporary file.
  std::ofstream(fs::u8path(T1), std::ios::binary) << "new";
  ASSERT_TRUE(PutFileInPlace(T1, A, Error)) << Error;
  EXPECT_EQ(GetPathKind(T1), TPathKind::pkMissing);
  std::ifstream In(fs::u8path(A), std::ios::binary);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(In), {}), "new");
  EXPECT_FALSE(PutFileInPlace(PathOf("missing"), A, Error));
  EXPECT_TRUE(RemoveFile(T2));
  EXPECT_FALSE(RemoveFile(T2));
}

// ---- audio files ----------------------------------------------------------

TEST_F(PlatformFiles, WavRoundTripKeepsEveryByteAndTheFormat) {
  const uint64_t Frames = 1001;  // odd, so 8-bit mono needs a pad byte
  std::string Error;
  for (uint16_t Bits : {8, 16, 24, 32}) {
    for (uint16_t Channels : {1, 3}) {
      const size_t FrameBytes = size_t(Channels) * Bits / 8;
      const TBytes Samples = RandomBytes(Frames * FrameBytes, Bits * 10 + Channels);
      // The '+' is what the multimedia file functions take for a compound-file element.
      const std::string Name = kNonAsciiName + std::to_string(Bits) + "+" + std::to_string(Channels) + ".wav";
      SCOPED_TRACE(Name);
      TAudioFileInfo Info{Bits == 8 ? 8000u : 96000u, Channels, Bits};
      auto Writer = CreateAudioFile(PathOf(Name), Info, Error);
      ASSERT_NE(Writer, nullptr) << Error;
      EXPECT_TRUE(Writer->Write(Samples.data(), 1));
      EXPECT_TRUE(Writer->Write(Samples.data() + FrameBytes, Frames - 1));
      EXPECT_TRUE(Writer->Close());
      EXPECT_FALSE(Writer->Write(Samples.data(), 1));

      // The file itself: the sizes agree with it, the samples are stored as given.
      std::ifstream In(Dir / fs::u8path(Name), std::ios::binary);
      const TBytes File{std::istreambuf_iterator<char>(In), {}};
      ASSERT_GE(File.size(), 44u);
      EXPECT_EQ(File.size() % 2, 0u);
      EXPECT_EQ(Le32(&File[4]), File.size() - 8);
      const char Tag[] = "data";
      const size_t Data = size_t(std::search(File.begin(), File.end(), Tag, Tag + 4) - File.begin());
      ASSERT_LE(Data + 8 + Samples.size(), File.size());
      EXPECT_EQ(Le32(&File[Data + 4]), Samples.size());
      EXPECT_EQ(TBytes(File.begin() + Data + 8, File.begin() + Data + 8 + Samples.size()), Samples);

      auto Reader = OpenAudioFileForReading(PathOf(Name), Error);
      ASSERT_NE(Reader, nullptr) << Error;
      Info.Frames = Frames;
      EXPECT_EQ(Describe(Reader->Info()), Describe(Info));
      EXPECT_EQ(ReadAll(*Reader, 333), Samples);
    }
  }
  // Floats are stored and read back as floats.
  {
    const float Samples[] = {0.5f, -1.0f, 1.5f, 1e-7f, -0.0f, 0.25f};
    TAudioFileInfo Info{48000, 3, 32, true};
    auto Writer = CreateAudioFile(PathOf("float.wav"), Info, Error);
    ASSERT_NE(Writer, nullptr) << Error;
    EXPECT_TRUE(Writer->Write(Samples, 2));
    EXPECT_TRUE(Writer->Close());
    auto Reader = OpenAudioFileForReading(PathOf("float.wav"), Error);
    ASSERT_NE(Reader, nullptr) << Error;
    Info.Frames = 2;
    EXPECT_EQ(Describe(Reader->Info()), Describe(Info));
    EXPECT_EQ(ReadAll(*Reader, 1), BytesOf(Samples));
  }
  // What no WAV file holds, and a folder that is not there.
  const std::pair<TAudioFileInfo, const char*> Refused[] = {
      {{44100, 2, 12}, "a.wav"},    {{44100, 0, 16}, "a.wav"},       {{0, 2, 16}, "a.wav"},
      {{44100, 2, 16}, "no/a.wav"}, {{44100, 65537, 16}, "a.wav"},   {{44100, 2, 16, true}, "a.wav"}};
  for (const auto& [Info, Name] : Refused) {
    SCOPED_TRACE(Describe(Info) + " to " + Name);
    Error.clear();
    EXPECT_EQ(CreateAudioFile(PathOf(Name), Info, Error), nullptr);
    EXPECT_FALSE(Error.empty());
  }
}

TEST_F(PlatformFiles, WavReaderFollowsTheFormatAndRefusesHostileFiles) {
  const TBytes Stereo16 = {0x01, 0x00, 0xFF, 0x7F, 0x00, 0x80, 0x34, 0x12};  // little-endian
  const TBytes Mono8 = {0x00, 0x80, 0xFF};                                    // unsigned, as stored
  const TBytes Present = RandomBytes(10 * 4, 5), Some = RandomBytes(40, 3);
  // Floating point arrives as 32-bit floats, 64-bit ones narrowed.
  const float Floats[] = {0.5f, -0.25f, 0.0f, -1.0f, 2.0f, -3.0f};
  const double Doubles[] = {0.5, -0.25, 1e-3, -1.0};
  const float DoublesRead[] = {0.5f, -0.25f, 1e-3f, -1.0f};
  TBytes FloatFmt = FmtBody(3, 1, 44100, 32);
  Put(FloatFmt, 0, 2);
  TBytes DoubleFmt = FmtBody(3, 2, 48000, 64);
  Put(DoubleFmt, 0, 2);
  // 12-bit samples in 16-bit containers, left-justified, read as 16-bit.
  TBytes Fmt12 = FmtBody(1, 2, 8000, 12);
  Fmt12[12] = 4;  // block alignment: two 2-byte containers
  const TBytes Stereo = Fmt(1, 2, 44100, 16), Good = Riff({Stereo, Chunk("data", Some)});
  struct TCase {
    const char* Name;
    TBytes File;
    const char* Info = nullptr;  // none: refused
    TBytes Samples = {};
  };
  const TCase Cases[] = {
      // Unknown chunks, one of odd size, before the format.
      {"stereo16", Riff({Chunk("LIST", {'I', 'N', 'F', 'O', 'x'}), Fmt(1, 2, 22050, 16), Chunk("data", Stereo16)}),
       "22050 Hz, 2 ch, 16 bit, 2 frames", Stereo16},
      // Neither the pad byte nor a trailing chunk is audio.
      {"mono8", Riff({Fmt(1, 1, 11025, 8), Chunk("data", Mono8), Chunk("LIST", {'I', 'N', 'F', 'O'})}),
       "11025 Hz, 1 ch, 8 bit, 3 frames", Mono8},
      {"float", Riff({Chunk("fmt ", FloatFmt), Chunk("fact", {6, 0, 0, 0}), Chunk("data", BytesOf(Floats))}),
       "44100 Hz, 1 ch, 32 bit float, 6 frames", BytesOf(Floats)},
      {"double", Riff({Chunk("fmt ", DoubleFmt), Chunk("data", BytesOf(Doubles))}),
       "48000 Hz, 2 ch, 32 bit float, 2 frames", BytesOf(DoublesRead)},
      {"pcm12", Riff({Chunk("fmt ", Fmt12), Chunk("data", Stereo16)}), "8000 Hz, 2 ch, 16 bit, 2 frames", Stereo16},
      // A data chunk claiming more than the file holds yields what is there.
      {"data-too-long", Riff({Stereo, Chunk("data", Present, 0x7FFFFFF0)}), "44100 Hz, 2 ch, 16 bit, 10 frames",
       Present},
      {"empty", {}},
      {"random", RandomBytes(4096, 11)},
      {"truncated-header", TBytes(Good.begin(), Good.begin() + 20)},
      {"not-wave", Riff({Stereo, Chunk("data", Some)}, "AVI ")},
      {"zero-channels", Riff({Fmt(1, 0, 44100, 16), Chunk("data", Some)})},
      {"zero-rate", Riff({Fmt(1, 2, 0, 16), Chunk("data", Some)})},
      {"no-data", Riff({Stereo, Chunk("LIST", Some)})},
      {"no-fmt", Riff({Chunk("data", Some)})},
      {"short-fmt", Riff({Chunk("fmt ", TBytes(Stereo.begin() + 8, Stereo.begin() + 18)), Chunk("data", Some)})},
      {"huge-chunk", Riff({Chunk("junk", TBytes(8), 0xFFFFFFF0), Stereo, Chunk("data", Some)})},
      {"huge-fmt", Riff({Chunk("fmt ", FmtBody(1, 2, 44100, 16), 0x7FFFFFFF), Chunk("data", Some)})},
  };
  for (const TCase& Case : Cases) {
    SCOPED_TRACE(Case.Name);
    std::string Error;
    auto Reader = OpenAudioFileForReading(Store(std::string(Case.Name) + ".wav", Case.File), Error);
    if (!Case.Info) {
      EXPECT_EQ(Reader, nullptr);
      EXPECT_FALSE(Error.empty());
      continue;
    }
    ASSERT_NE(Reader, nullptr) << Error;
    EXPECT_EQ(Describe(Reader->Info()), Case.Info);
    EXPECT_EQ(ReadAll(*Reader, 4), Case.Samples);
  }
  std::string Error;
  EXPECT_EQ(OpenAudioFileForReading(PathOf("missing.wav"), Error), nullptr);
  EXPECT_FALSE(Error.empty());
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

// Runs this thread's message loop until there were Drains drains or Timeout
// passed; answers the drains so far.
int PumpUntil(int Drains, std::chrono::milliseconds Timeout = std::chrono::seconds(5)) {
  const auto Deadline = std::chrono::steady_clock::now() + Timeout;
  while (GDrains < Drains && std::chrono::steady_clock::now() < Deadline) {
    MSG Message;
    while (PeekMessageW(&Message, nullptr, 0, 0, PM_REMOVE)) DispatchMessageW(&Message);
    MsgWaitForMultipleObjects(0, nullptr, FALSE, 5, QS_ALLINPUT);
  }
  return GDrains;
}

TEST(MainThreadWake, DrainsOnTheInitThreadOncePerBurstAndSurvivesTeardown) {
  using std::chrono::milliseconds;
  GDrains = 0;
  MainThreadWakeInit(&CountDrain);
  MainThreadWakeInit(&CountDrain);
  std::thread([] {
    for (int I = 0; I < 1000; ++I) MainThreadWake();
  }).join();
  PumpUntil(1);
  EXPECT_EQ(PumpUntil(INT_MAX, milliseconds(100)), 1);
  EXPECT_EQ(GDrainThread, GetCurrentThreadId());

  std::thread(MainThreadWake).join();  // a wake after the drain is not swallowed
  EXPECT_EQ(PumpUntil(2), 2);
  GWakeInsideDrain = true;  // work queued while a drain runs gets a drain of its own
  MainThreadWake();
  EXPECT_EQ(PumpUntil(4), 4);

  // Woken while torn down: the drain comes once the path is up again.
  MainThreadWakeDone();
  MainThreadWake();
  EXPECT_EQ(PumpUntil(INT_MAX, milliseconds(50)), 4);
  MainThreadWakeInit(&CountDrain);
  EXPECT_EQ(PumpUntil(5), 5);

  // Wakes racing teardown and init leave a working path behind.
  std::atomic<bool> Stop{false};
  std::thread Waker([&] {
    while (!Stop) MainThreadWake();
  });
  for (int I = 0; I < 50; ++I) {
    MainThreadWakeDone();
    MainThreadWakeInit(&CountDrain);
    PumpUntil(INT_MAX, milliseconds(1));
  }
  Stop = true;
  Waker.join();
  const int Before = GDrains;
  MainThreadWake();
  EXPECT_GT(PumpUntil(Before + 1), Before);
  MainThreadWakeDone();
}
#endif

}  // namespace
