// The VST 3 preset file: its layout as the host saves it from the test
// module's classes, the writer's rules, and the reader, which never takes a
// file in.
#include "vst3/Vst3presetfile.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include "frame/Wbexception.h"
#include "frame/Wbstreams.h"
#include "platform/Library.h"
#include "platform/Vst3module.h"
#include "testplugins/vst3/Qvtestvst3.h"
#include "vst3/Srvst3host.h"

using namespace Quorvel;
using namespace Quorvel::Vst3hostintf;
using namespace Quorvel::Vst3hostobjects;
using namespace Quorvel::Vst3presetfile;
namespace T3 = Quorvel::Qvtestvst3;

namespace {

constexpr const char* kLoadMessage = "Can't load VST3 preset file. - An unknown error has occured.";
constexpr const char* kSaveMessage = "Can't save VST3 preset file. - An unknown error has occured.";

// The test's own hold on the test module: its record of calls and its knobs.
class TModuleProbe {
 public:
  TModuleProbe() {
    std::string Text;
    unsigned Code = 0;
    FModule = Platform::LoadCodeLibrary(Platform::Vst3ModuleLibrary(QV_TESTVST3_MAIN), Text, Code);
    EXPECT_NE(FModule, nullptr) << Text;
    reinterpret_cast<T3::TResetFunc>(Platform::GetLibrarySymbol(FModule, T3::kResetName))();
  }
  ~TModuleProbe() { Platform::FreeCodeLibrary(FModule); }
  void Options(const char* Text) {
    reinterpret_cast<T3::TSetOptionsFunc>(Platform::GetLibrarySymbol(FModule, T3::kSetOptionsName))(Text);
  }
  size_t Count(const std::string& Call) const {
    auto Calls = reinterpret_cast<T3::TGetCallsFunc>(Platform::GetLibrarySymbol(FModule, T3::kGetCallsName));
    std::string All(size_t(Calls(nullptr, 0)) + 1, '\0');
    Calls(&All[0], static_cast<int32_t>(All.size()));
    std::istringstream In(All.c_str());
    size_t N = 0;
    for (std::string Line; std::getline(In, Line);) N += Line == Call;
    return N;
  }

 private:
  Platform::TModuleHandle FModule = nullptr;
};

// A host over the test module with the class chosen, its reports collected.
struct THost {
  explicit THost(const TGUID& Class) {
    Host.OnError = [this](TWBComponent*, const std::string& Message, int32_t Code, bool& Handled) {
      Errors.push_back(Message);
      Codes.push_back(Code);
      Handled = true;
    };
    Host.SetFileName(QV_TESTVST3_MAIN);
    Host.GetProcessor().SetID(Class);
  }
  TSRVST3Host Host;
  std::vector<std::string> Errors;
  std::vector<int32_t> Codes;
};

int32_t Int32At(const std::vector<uint8_t>& B, size_t At) {
  uint32_t V = 0;
  for (int I = 3; I >= 0; --I) V = V << 8 | B.at(At + size_t(I));
  return static_cast<int32_t>(V);
}

int64_t Int64At(const std::vector<uint8_t>& B, size_t At) {
  uint64_t V = 0;
  for (int I = 7; I >= 0; --I) V = V << 8 | B.at(At + size_t(I));
  return static_cast<int64_t>(V);
}

std::string TextAt(const std::vector<uint8_t>& B, size_t At, size_t Size) {
  return std::string(reinterpret_cast<const char*>(B.data()) + At, Size);
}

double DoubleAt(const std::vector<uint8_t>& B, size_t At) {
  double D = 0;
  std::memcpy(&D, B.data() + At, sizeof D);
  return D;
}

// A chunk of a saved file as its list gives it.
struct TChunk {
  std::string ID;
  int64_t Offset, Size;
};

// Checks the header and the list of a saved file byte by byte; answers the chunks.
std::vector<TChunk> CheckLayout(const std::vector<uint8_t>& B, const TGUID& Class) {
  std::vector<TChunk> Chunks;
  EXPECT_GE(B.size(), size_t(kHeaderSize + 9));
  if (B.size() < size_t(kHeaderSize + 9)) return Chunks;
  EXPECT_EQ(TextAt(B, 0, 5), std::string("VST3\0", 5));
  EXPECT_EQ(Int32At(B, 5), 1);
  std::string ClassText = VST3UIDToString(Class);
  for (const char* Drop : {"{", "}", "-", "-", "-", "-"}) ClassText.erase(ClassText.find(Drop), 1);
  EXPECT_EQ(TextAt(B, 9, 32), ClassText);
  const int64_t List = Int64At(B, 41);
  EXPECT_GE(List, kHeaderSize);
  if (List < kHeaderSize || size_t(List) + 9 > B.size()) return Chunks;
  EXPECT_EQ(TextAt(B, size_t(List), 5), std::string("List\0", 5));
  const int32_t Count = Int32At(B, size_t(List) + 5);
  // The list ends the file.
  EXPECT_EQ(int64_t(B.size()), List + 9 + kListEntrySize * Count);
  if (int64_t(B.size()) != List + 9 + kListEntrySize * Count) return Chunks;
  // Chunks follow each other from the header to the list.
  int64_t Next = kHeaderSize;
  for (int32_t I = 0; I < Count; ++I) {
    const size_t At = size_t(List + 9 + kListEntrySize * I);
    EXPECT_EQ(B[At + 4], 0) << "fifth byte of entry " << I;
    TChunk C{TextAt(B, At, 4), Int64At(B, At + 5), Int64At(B, At + 13)};
    EXPECT_EQ(C.Offset, Next) << C.ID;
    Next = C.Offset + C.Size;
    Chunks.push_back(C);
  }
  EXPECT_EQ(Next, List);
  return Chunks;
}

std::vector<uint8_t> Save(THost& H, const std::string& MetaInfo = std::string()) {
  TWBMemoryStream Out;
  H.Host.SavePreset(Out, MetaInfo);
  return Out.GetData();
}

}  // namespace

TEST(Vst3PresetFile, SavedLayoutPerClass) {
  TModuleProbe Probe;
  const std::string Xml = "<?xml version=\"1.0\"?><MetaInfo><Attr id=\"MediaType\" value=\"VstPreset\"/></MetaInfo>";
  // A component with a separate controller: both states; its state is the
  // gain, the controller's the gain and the mode.
  {
    THost H(T3::kEffectCID);
    const std::vector<uint8_t> B = Save(H);
    EXPECT_TRUE(H.Errors.empty()) << H.Errors.front();
    const auto Chunks = CheckLayout(B, T3::kEffectCID);
    ASSERT_EQ(Chunks.size(), 2u);
    EXPECT_EQ(Chunks[0].ID, "Comp");
    EXPECT_EQ(Chunks[0].Size, T3::kStateBytes);
    EXPECT_EQ(DoubleAt(B, size_t(Chunks[0].Offset)), 0.5);
    EXPECT_EQ(Chunks[1].ID, "Cont");
    EXPECT_EQ(Chunks[1].Size, T3::kControllerStateBytes);
    EXPECT_EQ(B.size(), size_t(kHeaderSize + 8 + 16 + 9 + 2 * 21));
    EXPECT_EQ(Probe.Count("Controller.getState wrote=16"), 1u);

    // The XML comes last, byte for byte; the states follow the controller's values.
    H.Host.SetParameterValue(T3::kModeID, 1.0);
    const std::vector<uint8_t> WithXml = Save(H, Xml);
    const auto XmlChunks = CheckLayout(WithXml, T3::kEffectCID);
    ASSERT_EQ(XmlChunks.size(), 3u);
    EXPECT_EQ(XmlChunks[2].ID, "Info");
    EXPECT_EQ(TextAt(WithXml, size_t(XmlChunks[2].Offset), size_t(XmlChunks[2].Size)), Xml);
    EXPECT_EQ(DoubleAt(WithXml, size_t(XmlChunks[1].Offset) + 8), 1.0);
  }
  // One object for both: its state twice.
  {
    THost H(T3::kSingleCID);
    const auto Chunks = CheckLayout(Save(H), T3::kSingleCID);
    ASSERT_EQ(Chunks.size(), 2u);
    EXPECT_EQ(Chunks[0].ID, "Comp");
    EXPECT_EQ(Chunks[1].ID, "Cont");
    EXPECT_EQ(Chunks[1].Size, T3::kStateBytes);
    EXPECT_TRUE(H.Errors.empty());
  }
  // No controller: no "Cont" chunk, with or without XML.
  {
    THost H(T3::kAloneCID);
    const std::vector<uint8_t> B = Save(H);
    const auto Chunks = CheckLayout(B, T3::kAloneCID);
    ASSERT_EQ(Chunks.size(), 1u);
    EXPECT_EQ(Chunks[0].ID, "Comp");
    EXPECT_EQ(B.size(), size_t(kHeaderSize + 8 + 9 + 21));
    const auto XmlChunks = CheckLayout(Save(H, Xml), T3::kAloneCID);
    ASSERT_EQ(XmlChunks.size(), 2u);
    EXPECT_EQ(XmlChunks[1].ID, "Info");
    EXPECT_EQ(XmlChunks[1].Size, int64_t(Xml.size()));
    EXPECT_TRUE(H.Errors.empty());
  }
}

TEST(Vst3PresetFile, WriterKeepsOneChunkPerIdentifier) {
  auto Stream = TVST3Ref<TMemoryBStream>::Adopt(new TMemoryBStream());
  TVST3PresetFile File(Stream.Get());
  File.SetClassID(T3::kAloneCID);
  ASSERT_TRUE(File.WriteHeader());
  EXPECT_EQ(Stream->GetSize(), kHeaderSize);
  const char First[] = "first", Second[] = "second";
  EXPECT_TRUE(File.WriteChunk(First, 5, kMetaInfo));
  EXPECT_FALSE(File.WriteChunk(Second, 6, kMetaInfo));
  EXPECT_EQ(Stream->GetSize(), kHeaderSize + 5);  // nothing of the second
  EXPECT_TRUE(File.WriteChunk(Second, 6, kProgramData));
  EXPECT_EQ(File.GetEntryCount(), 2);
  ASSERT_TRUE(File.WriteChunkList());
  const std::vector<uint8_t> B(Stream->GetData(), Stream->GetData() + Stream->GetSize());
  const auto Chunks = CheckLayout(B, T3::kAloneCID);
  ASSERT_EQ(Chunks.size(), 2u);
  EXPECT_EQ(Chunks[0].ID, "Info");
  EXPECT_EQ(TextAt(B, size_t(Chunks[0].Offset), 5), "first");
  EXPECT_EQ(Chunks[1].ID, "Prog");
  EXPECT_EQ(TextAt(B, size_t(Chunks[1].Offset), 6), "second");
  EXPECT_EQ(File.GetEntry(1).Offset, Chunks[1].Offset);
  EXPECT_THROW(File.GetEntry(2), EWBException);
}

namespace {

// A stream that keeps what is written but answers "not implemented" for
// writes of one size, as a stream may that stores without saying so.
class TNotImplementedStream final : public TVST3Object<IBStream> {
 public:
  explicit TNotImplementedStream(int32_t Size) : FSize(Size) {}
  TResult read(void* Buffer, int32_t NumBytes, int32_t* NumBytesRead) override {
    return FInner->read(Buffer, NumBytes, NumBytesRead);
  }
  TResult write(void* Buffer, int32_t NumBytes, int32_t* NumBytesWritten) override {
    const TResult R = FInner->write(Buffer, NumBytes, NumBytesWritten);
    return NumBytes == FSize ? ModuleResult(Platform::kVst3NotImplemented) : R;
  }
  TResult seek(int64_t Pos, int32_t Mode, int64_t* Result) override { return FInner->seek(Pos, Mode, Result); }
  TResult tell(int64_t* Pos) override { return FInner->tell(Pos); }
  int64_t GetSize() const { return FInner->GetSize(); }

 private:
  int32_t FSize;
  TVST3Ref<TMemoryBStream> FInner = TVST3Ref<TMemoryBStream>::Adopt(new TMemoryBStream());
};

}  // namespace

// "Not implemented" counts as written for the class identifier's text and
// for chunk data, and for nothing else.
TEST(Vst3PresetFile, NotImplementedCountsAsWrittenForTextAndData) {
  {
    auto S = TVST3Ref<TNotImplementedStream>::Adopt(new TNotImplementedStream(kClassIDSize));
    TVST3PresetFile File(S.Get());
    EXPECT_TRUE(File.WriteHeader());
    EXPECT_EQ(S->GetSize(), kHeaderSize);
  }
  {
    auto S = TVST3Ref<TNotImplementedStream>::Adopt(new TNotImplementedStream(7));
    TVST3PresetFile File(S.Get());
    ASSERT_TRUE(File.WriteHeader());
    EXPECT_TRUE(File.WriteChunk("7 bytes", 7, kMetaInfo));
    ASSERT_TRUE(File.WriteChunkList());
    EXPECT_EQ(File.GetEntry(kMetaInfo)->Size, 7);
  }
  for (int32_t Size : {kChunkIDSize, 4, 8}) {  // identifier, version, list position
    auto S = TVST3Ref<TNotImplementedStream>::Adopt(new TNotImplementedStream(Size));
    TVST3PresetFile File(S.Get());
    EXPECT_FALSE(File.WriteHeader()) << Size;
  }
}

TEST(Vst3PresetFile, ClassIdentifierText) {
  for (const TGUID& ID : {T3::kEffectCID, T3::kControllerCID, kNullUID, IID_IEditController}) {
    char Text[kClassIDSize];
    ClassIDToText(ID, Text);
    TGUID Back = kNullUID;
    ASSERT_TRUE(ClassIDFromText(Text, Back));
    EXPECT_EQ(Back, ID);
  }
  char Text[kClassIDSize];
  ClassIDToText(T3::kEffectCID, Text);
  EXPECT_EQ(std::string(Text, sizeof Text), "51764533454646018A11C0DE00000001");
  TGUID Back = kNullUID;
  EXPECT_TRUE(ClassIDFromText("51764533454646018a11c0de00000001", Back));
  EXPECT_EQ(Back, T3::kEffectCID);
  EXPECT_FALSE(ClassIDFromText("517645334546460X8A11C0DE00000001", Back));
  const char Short[kClassIDSize + 1] = "5176";  // zeros after the text
  EXPECT_FALSE(ClassIDFromText(Short, Back));
}

// Every file, the host's own included, fails to read, through every kind of
// stream the host has; the reader stays within its stream.
TEST(Vst3PresetFile, ReadingAlwaysFails) {
  THost Saver(T3::kEffectCID);
  std::vector<std::vector<uint8_t>> Files = {Save(Saver, "<MetaInfo/>"), {}, {'V', 'S', 'T', '3'}};
  const std::vector<uint8_t> Good = Files[0];
  // Cut short at every place of the header, list position beyond the end or
  // negative, list position 0, a huge entry count.
  for (size_t Cut : {5u, 9u, 41u, 48u}) Files.emplace_back(Good.begin(), Good.begin() + long(Cut));
  for (int64_t Pos : {int64_t(1) << 40, int64_t(-1), int64_t(0)}) {
    std::vector<uint8_t> B = Good;
    for (int I = 0; I < 8; ++I) B[size_t(41 + I)] = static_cast<uint8_t>(uint64_t(Pos) >> (8 * I));
    Files.push_back(B);
  }
  std::vector<uint8_t> Huge = Good;
  const size_t List = size_t(Int64At(Good, 41));
  for (int I = 0; I < 4; ++I) Huge[List + 5 + size_t(I)] = 0xFF;
  Huge[List + 8] = 0x7F;
  Files.push_back(Huge);

  for (size_t F = 0; F < Files.size(); ++F) {
    std::vector<uint8_t> Bytes = Files[F];
    SCOPED_TRACE("file " + std::to_string(F));
    TWBMemoryStream Memory(Bytes.data(), Bytes.size(), int64_t(Bytes.size()));
    auto FileStream = TVST3Ref<TFileBStream>::Adopt(new TFileBStream(Memory));
    auto Section = TVST3Ref<TReadOnlyBStream>::Adopt(new TReadOnlyBStream(FileStream.Get(), 0, int64_t(Bytes.size())));
    auto Borrowed = TVST3Ref<TMemoryBStream>::Adopt(new TMemoryBStream(Bytes.data(), int64_t(Bytes.size())));
    for (IBStream* S : std::initializer_list<IBStream*>{FileStream.Get(), Section.Get(), Borrowed.Get()}) {
      TVST3PresetFile Reader(S);
      EXPECT_FALSE(Reader.ReadChunkList());
      EXPECT_EQ(Reader.GetEntryCount(), 0);
      EXPECT_FALSE(Reader.Contains(kComponentState));
      EXPECT_FALSE(Reader.ChunkStream(kComponentState));
    }
    EXPECT_EQ(Memory.GetSize(), int64_t(Bytes.size()));  // reading never wrote
  }
}

TEST(Vst3PresetFile, HostLoadReportsAndLeavesThePlugInAlone) {
  TModuleProbe Probe;
  THost H(T3::kEffectCID);
  ASSERT_TRUE(H.Host.Open());
  const std::vector<uint8_t> Own = Save(H);
  for (const std::vector<uint8_t>& Bytes : {Own, std::vector<uint8_t>{}, std::vector<uint8_t>(300, 0x41)}) {
    H.Errors.clear();
    H.Codes.clear();
    TWBMemoryStream In(Bytes.data(), Bytes.size());
    H.Host.LoadPreset(In);
    ASSERT_EQ(H.Errors.size(), 1u);
    EXPECT_EQ(H.Errors[0], kLoadMessage);
    EXPECT_EQ(H.Codes[0], 1);
  }
  EXPECT_EQ(Probe.Count("Effect.setState"), 0u);
  EXPECT_EQ(Probe.Count("Controller.setState"), 0u);

  // Through files: the saved file is there whole and fails to load as well;
  // a missing file gives the system's reason.
  const std::string Name = ::testing::TempDir() + "vst3preset_test.vstpreset";
  H.Errors.clear();
  H.Host.SavePreset(Name);
  EXPECT_TRUE(H.Errors.empty());
  {
    TWBFileStream Saved(Name, Platform::TFileOpenMode::fomRead);
    ASSERT_TRUE(Saved.IsOpen());
    EXPECT_EQ(Saved.GetSize(), int64_t(Own.size()));
  }
  H.Host.LoadPreset(Name);
  ASSERT_EQ(H.Errors.size(), 1u);
  EXPECT_EQ(H.Errors[0], kLoadMessage);
  std::remove(Name.c_str());
  H.Errors.clear();
  H.Host.LoadPreset(Name);
  ASSERT_EQ(H.Errors.size(), 1u);
  EXPECT_EQ(H.Errors[0].rfind(Name + ": ", 0), 0u) << H.Errors[0];
}

TEST(Vst3PresetFile, SaveFailures) {
  TModuleProbe Probe;
  // The component's state refused: the save message, with the plug-in's result unnamed.
  Probe.Options("fail=getState");
  {
    THost H(T3::kEffectCID);
    Save(H);
    ASSERT_EQ(H.Errors.size(), 1u);
    EXPECT_EQ(H.Errors[0], kSaveMessage);
    EXPECT_EQ(H.Codes[0], 1);
    EXPECT_TRUE(H.Host.GetIntOpened());  // opening only skips handing the state over
  }
  // Only the separate controller's state refused; a class without one still saves.
  TModuleProbe Controller;
  Controller.Options("fail=controllerGetState");
  {
    THost H(T3::kEffectCID);
    Save(H);
    ASSERT_EQ(H.Errors.size(), 1u);
    EXPECT_EQ(H.Errors[0], kSaveMessage);
    THost Alone(T3::kAloneCID);
    EXPECT_EQ(CheckLayout(Save(Alone), T3::kAloneCID).size(), 1u);
    EXPECT_TRUE(Alone.Errors.empty());
  }
  // Nothing to save from: a host without a module.
  {
    TSRVST3Host Empty;
    std::vector<std::string> Errors;
    Empty.OnError = [&](TWBComponent*, const std::string& Message, int32_t, bool& Handled) {
      Errors.push_back(Message);
      Handled = true;
    };
    TWBMemoryStream Out;
    Empty.SavePreset(Out);
    ASSERT_EQ(Errors.size(), 1u);
    EXPECT_EQ(Errors[0], "Can't save VST3 preset file. - Not Initialized");
    EXPECT_EQ(Out.GetSize(), 0);
  }
}
