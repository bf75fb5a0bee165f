// The VST 2 host's parameter and program objects, its preset and bank files
// and the parameter values it stores with a document, against the test
// plug-ins (loaded through their real entry points, every call recorded).
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "frame/Wbcomponent.h"
#include "frame/Wbdocument.h"
#include "frame/Wbstreams.h"
#include "tests/support/Alloccounter.h"
#include "tests/vst2/Vst2testplugins.h"
#include "vst2/Srvsthost.h"

using namespace Quorvel;
using namespace Quorvel::Testing;
namespace fs = std::filesystem;

namespace {

using TBytes = std::vector<uint8_t>;

uint32_t BigEndianAt(const TBytes& B, size_t Offset) {
  return uint32_t(B.at(Offset)) << 24 | uint32_t(B.at(Offset + 1)) << 16 | uint32_t(B.at(Offset + 2)) << 8 |
         B.at(Offset + 3);
}
float FloatAt(const TBytes& B, size_t Offset) {
  const uint32_t V = BigEndianAt(B, Offset);
  float F;
  std::memcpy(&F, &V, 4);
  return F;
}
void Put32(TBytes& B, uint32_t V) {
  for (int S = 24; S >= 0; S -= 8) B.push_back(uint8_t(V >> S));
}
void PutFloat(TBytes& B, float F) {
  uint32_t V;
  std::memcpy(&V, &F, 4);
  Put32(B, V);
}
void PutText(TBytes& B, const std::string& Text, size_t Size) {
  for (size_t I = 0; I < Size; ++I) B.push_back(I < Text.size() ? uint8_t(Text[I]) : 0);
}
std::string TextAt(const TBytes& B, size_t Offset, size_t Size) {
  std::string S(reinterpret_cast<const char*>(B.data() + Offset), Size);
  return S.substr(0, S.find('\0'));
}

// A program in the standard parameter form: 56 bytes of header, the values at 56.
void PutProgram(TBytes& B, int32_t FxId, const std::string& Name, const std::vector<float>& Values,
                int32_t NumParams = -1) {
  Put32(B, uint32_t(FourCharToLong('C', 'c', 'n', 'K')));
  Put32(B, uint32_t(48 + 4 * Values.size()));
  Put32(B, uint32_t(FourCharToLong('F', 'x', 'C', 'k')));
  Put32(B, 1);
  Put32(B, uint32_t(FxId));
  Put32(B, 1);
  Put32(B, uint32_t(NumParams < 0 ? int32_t(Values.size()) : NumParams));
  PutText(B, Name, 28);
  for (float V : Values) PutFloat(B, V);
}

// A standard parameter-form bank: 156 bytes of header, then the programs.
TBytes StandardBank(int32_t FxId, const std::vector<std::pair<std::string, std::vector<float>>>& Programs,
                    int32_t NumPrograms = -1) {
  TBytes B;
  Put32(B, uint32_t(FourCharToLong('C', 'c', 'n', 'K')));
  Put32(B, 0);
  Put32(B, uint32_t(FourCharToLong('F', 'x', 'B', 'k')));
  Put32(B, 1);
  Put32(B, uint32_t(FxId));
  Put32(B, 1);
  Put32(B, uint32_t(NumPrograms < 0 ? int32_t(Programs.size()) : NumPrograms));
  PutText(B, "", 128);
  for (const auto& [Name, Values] : Programs) PutProgram(B, FxId, Name, Values);
  return B;
}

TBytes Saved(TSRVSTHost& Host, bool Bank) {
  TWBMemoryStream S;
  Bank ? Host.SaveBank(S) : Host.SavePreset(S);
  return S.GetData();
}
void Load(TSRVSTHost& Host, const TBytes& Bytes, bool Bank) {
  TWBMemoryStream S(Bytes.data(), Bytes.size());
  Bank ? Host.LoadBank(S) : Host.LoadPreset(S);
}

class TTempDir {
 public:
  TTempDir() : Path(fs::temp_directory_path() / ("quorvel-presets-" + std::to_string(std::random_device{}()))) {
    fs::create_directories(Path);
  }
  ~TTempDir() {
    std::error_code Ignored;
    fs::remove_all(Path, Ignored);
  }
  std::string File(const std::string& Name) const { return (Path / Name).u8string(); }
  fs::path Path;
};

}  // namespace

TEST(VSTParameters, OnlyAutomatableParametersAreWrittenAndPropertiesAreAskedOnce) {
  TPlugInProbe Probe("qvtestvst2");
  TSRVSTHost Host;
  ASSERT_TRUE(Opened(Host, Probe.Path));
  TSRVSTParameters& P = Host.GetParameters();
  ASSERT_EQ(P.Count(), size_t(qpCount));

  P[qpGain].SetValue(0.75f);
  P[qpFrozen].SetValue(1.0f);
  EXPECT_EQ(P[qpGain].GetValue(), 0.75f);
  EXPECT_EQ(P[qpFrozen].GetValue(), 0.0f) << "Frozen is not automatable: the plug-in keeps its value";
  EXPECT_EQ(Probe.Count(qrSetParameter, -1, qpFrozen), 0u);
  EXPECT_FALSE(P[qpFrozen].GetCanBeAutomated());
  EXPECT_TRUE(P[qpGain].GetCanBeAutomated());

  // Names: the caption of the properties, else the plug-in's parameter name;
  // a structure entry, once attached, comes first.
  EXPECT_EQ(P[qpGain].GetName(), "Gain");
  EXPECT_EQ(P[qpChannelMap].GetName(), "Channel Map");
  auto Entry = std::make_unique<TSRVSTParameterStructureEntry>();
  Entry->Name = "Level";
  Entry->DefaultValue = 0.5f;
  Entry->HasDefaultValue = true;
  P[qpGain].SetStructureEntry(std::move(Entry));
  EXPECT_EQ(P[qpGain].GetName(), "Level");
  EXPECT_TRUE(P[qpGain].GetDefaultValue().Available());
  EXPECT_FALSE(P[qpChannelMap].GetDefaultValue().Available());

  // Channel Map has no properties: asked once however often it is looked at.
  for (int I = 0; I < 3; ++I) {
    EXPECT_FALSE(P[qpChannelMap].CheckProperties());
    EXPECT_EQ(P[qpChannelMap].GetNumStates(), 0);
    EXPECT_EQ(P[qpChannelMap].GetGroup(), -1);
    EXPECT_FALSE(P[qpChannelMap].GetIsSwitch());
  }
  EXPECT_EQ(Probe.Count(qrDispatch, effGetParameterProperties, qpChannelMap), 1u);

  // The groups the plug-in gives: float steps for Gain, a switch for Frozen.
  const TSRVSTParameterFloatStep Steps = P[qpGain].GetFloatStep();
  ASSERT_TRUE(Steps.Available());
  EXPECT_EQ(Steps.Step, 0.01f);
  EXPECT_EQ(Steps.LargeStep, 0.1f);
  EXPECT_FALSE(P[qpGain].GetIntegerMinMax().Available());
  EXPECT_TRUE(P[qpFrozen].GetIsSwitch());
  EXPECT_EQ(P[qpFrozen].GetNumStates(), 2);

  // Display text, and the number when the plug-in gives none.
  EXPECT_EQ(P[qpGain].GetAsString(), "1.500");
  Probe.Option("EmptyDisplay", 1);
  EXPECT_EQ(P[qpGain].GetAsString(), "0.75");
  P[qpChannelMap].SetAsString("Swapped");
  EXPECT_EQ(P[qpChannelMap].GetValue(), 1.0f);
}

TEST(VSTParameters, ProgramNamesByIndexSwitchTemporarilyAndSelectionFollowsNames) {
  TPlugInProbe Probe("qvtestvst2");
  TSRVSTHost Host;
  ASSERT_TRUE(Opened(Host, Probe.Path));
  Host.SetCurrentProgramNumber(1);
  Probe.Clear();
  EXPECT_EQ(Host.GetProgramNameByIndex(2), "Swapped");
  EXPECT_TRUE(Probe.Of(qrDispatch, effSetProgram).empty()) << "the plug-in named it by index";
  EXPECT_EQ(Probe.Of(qrDispatch, effGetProgramNameIndexed).at(0).Value, -1);

  Probe.Option("ProgramNameIndexed", 0);
  Probe.Clear();
  EXPECT_EQ(Host.GetProgramNameByIndex(3), "Silent");
  const auto Switches = Probe.Of(qrDispatch, effSetProgram);
  ASSERT_EQ(Switches.size(), 2u);
  EXPECT_EQ(Switches[0].Value, 3);
  EXPECT_EQ(Switches[1].Value, 1);
  EXPECT_EQ(Host.GetCurrentProgramNumber(), 1);
  EXPECT_EQ(Host.GetProgramNameByIndex(7), "") << "a program the plug-in does not have";

  TSRVSTProgram& Programs = Host.GetPrograms();
  ASSERT_EQ(Programs.Count(), size_t(kQvTestNumPrograms));
  EXPECT_EQ(Programs.Get(0)->GetName(), "Unity");
  Programs.SetSelected("Swapped");
  EXPECT_EQ(Programs.GetProgramIndex(), 2);
  EXPECT_EQ(Host.GetCurrentProgramNumber(), 2);
  EXPECT_EQ(Programs.GetSelected(), "Swapped");
  Programs.SetSelected("swapped");
  EXPECT_EQ(Programs.GetProgramIndex(), -1) << "names compare exactly";
  EXPECT_EQ(Host.GetCurrentProgramNumber(), 2);
  Programs.SetProgramIndex(-7);
  EXPECT_EQ(Programs.GetProgramIndex(), -1);
}

TEST(VSTPresetFiles, ChunkFormRoundTripsThroughMemoryAndFiles) {
  TPlugInProbe Probe("qvtestvst2_chunks");
  TSRVSTHost Host;
  TErrorLog Log;
  Log.Attach(Host);
  ASSERT_TRUE(Opened(Host, Probe.Path));
  TTempDir Dir;
  for (const bool File : {false, true}) {
    SCOPED_TRACE(File ? "file" : "memory");
    Host.SetCurrentProgramNumber(1);
    Host.GetParameters()[qpGain].SetValue(0.125f);
    TBytes Preset = Saved(Host, false);
    ASSERT_GE(Preset.size(), 60u);
    EXPECT_EQ(TextAt(Preset, 8, 4), "FPCh");
    const uint32_t ChunkSize = BigEndianAt(Preset, 56);
    EXPECT_EQ(Preset.size(), 60 + ChunkSize);
    EXPECT_EQ(BigEndianAt(Preset, 4), ChunkSize + 52);
    EXPECT_EQ(BigEndianAt(Preset, 24), uint32_t(kQvTestNumPrograms)) << "the program count, as always";
    EXPECT_EQ(TextAt(Preset, 28, 28), "Half");
    TBytes Bank = Saved(Host, true);
    ASSERT_GE(Bank.size(), 160u);
    EXPECT_EQ(TextAt(Bank, 8, 4), "FBCh");
    EXPECT_EQ(Bank.size(), 160 + BigEndianAt(Bank, 156));
    if (File) {
      Host.SavePreset(Dir.File("p.fxp"));
      Host.SaveBank(Dir.File("b.fxb"));
    }

    Host.GetParameters()[qpGain].SetValue(0.9f);
    Probe.Clear();
    File ? Host.LoadPreset(Dir.File("p.fxp")) : Load(Host, Preset, false);
    EXPECT_EQ(Host.GetParameters()[qpGain].GetValue(), 0.125f);
    const auto Set = Probe.Of(qrDispatch, effSetChunk);
    ASSERT_EQ(Set.size(), 1u);
    EXPECT_EQ(Set[0].Index, 1);
    EXPECT_EQ(Set[0].Value, int64_t(ChunkSize)) << "the rest of the stream";
    EXPECT_EQ(Set[0].Count, 1) << "the plug-in took the chunk";

    // The bank brings back every program and the current one.
    Host.SetCurrentProgramNumber(3);
    Host.GetParameters()[qpGain].SetValue(0.5f);
    File ? Host.LoadBank(Dir.File("b.fxb")) : Load(Host, Bank, true);
    EXPECT_EQ(Host.GetCurrentProgramNumber(), 1);
    EXPECT_EQ(Host.GetParameters()[qpGain].GetValue(), 0.125f);
    EXPECT_EQ(Probe.Of(qrDispatch, effSetChunk).back().Index, 0);
  }
  EXPECT_TRUE(Log.Errors.empty());
}

TEST(VSTPresetFiles, ParameterFormWritesSixtyByteHeadersAndReadsFiftySix) {
  TPlugInProbe Probe("qvtestvst2");
  TSRVSTHost Host;
  TErrorLog Log;
  Log.Attach(Host);
  ASSERT_TRUE(Opened(Host, Probe.Path));
  TSRVSTParameters& P = Host.GetParameters();
  Host.SetCurrentProgramNumber(2);
  P[qpGain].SetValue(0.25f);
  P[qpChannelMap].SetValue(0.5f);

  // Written: 60 bytes of header (4 of them zero), the values at 60.
  const TBytes Preset = Saved(Host, false);
  ASSERT_EQ(Preset.size(), 60u + 4 * qpCount);
  EXPECT_EQ(TextAt(Preset, 0, 4), "CcnK");
  EXPECT_EQ(TextAt(Preset, 8, 4), "FxCk");
  EXPECT_EQ(BigEndianAt(Preset, 16), uint32_t(kQvTestUniqueId));
  EXPECT_EQ(BigEndianAt(Preset, 24), uint32_t(qpCount));
  EXPECT_EQ(TextAt(Preset, 28, 28), "Swapped");
  EXPECT_EQ(BigEndianAt(Preset, 56), 0u);
  EXPECT_EQ(FloatAt(Preset, 60), 0.25f);
  EXPECT_EQ(FloatAt(Preset, 64), 0.5f);
  const TBytes Bank = Saved(Host, true);
  ASSERT_EQ(Bank.size(), 160u + kQvTestNumPrograms * (60u + 4 * qpCount));
  EXPECT_EQ(TextAt(Bank, 8, 4), "FxBk");
  EXPECT_EQ(BigEndianAt(Bank, 156), 0u);
  EXPECT_EQ(TextAt(Bank, 160 + 2 * 72 + 28, 28), "Swapped");
  EXPECT_EQ(FloatAt(Bank, 160 + 2 * 72 + 60), 0.25f);

  // A standard preset (values at 56) loads: automatable parameters only.
  TBytes Standard;
  PutProgram(Standard, kQvTestUniqueId, "Loaded", {0.375f, 1.0f, 1.0f});
  const float Frozen = P[qpFrozen].GetValue();
  Probe.Clear();
  Load(Host, Standard, false);
  EXPECT_EQ(P[qpGain].GetValue(), 0.375f);
  EXPECT_EQ(P[qpChannelMap].GetValue(), 1.0f);
  EXPECT_EQ(P[qpFrozen].GetValue(), Frozen);
  EXPECT_EQ(Probe.Count(qrSetParameter, -1, qpFrozen), 0u);
  EXPECT_EQ(Host.GetCurrentProgramName(), "Loaded");
  ASSERT_EQ(Probe.Of(qrDispatch, effBeginLoadProgram).size(), 1u);
  EXPECT_EQ(Probe.Of(qrDispatch, effBeginLoadProgram)[0].Count, qpCount);

  // Our own preset read back: the reader takes the 4 filler bytes as the
  // first value, so every value lands one parameter later.
  TTempDir Dir;
  Host.SavePreset(Dir.File("own.fxp"));
  Host.LoadPreset(Dir.File("own.fxp"));
  EXPECT_EQ(P[qpGain].GetValue(), 0.0f);
  EXPECT_EQ(P[qpChannelMap].GetValue(), 0.375f);

  // A standard bank loads every program, each selected in turn.
  Probe.Clear();
  Load(Host, StandardBank(kQvTestUniqueId, {{"A", {0.1f, 0.0f, 0.0f}}, {"B", {0.2f, 1.0f, 0.0f}},
                                            {"C", {0.3f, 0.0f, 0.0f}}, {"D", {0.4f, 1.0f, 0.0f}}}),
       true);
  EXPECT_EQ(Probe.Of(qrDispatch, effBeginLoadBank).size(), 1u);
  const char* Names[] = {"A", "B", "C", "D"};
  for (int32_t I = 0; I < kQvTestNumPrograms; ++I) {
    Host.SetCurrentProgramNumber(I);
    EXPECT_EQ(Host.GetCurrentProgramName(), Names[I]);
    EXPECT_FLOAT_EQ(P[qpGain].GetValue(), 0.1f * float(I + 1));
  }
  EXPECT_TRUE(Log.Errors.empty());
}

TEST(VSTPresetFiles, FormIdentifierAndMissingFilesAreReportedWithTheirTexts) {
  TPlugInProbe Probe("qvtestvst2");
  TSRVSTHost Host;
  TErrorLog Log;
  Log.Attach(Host);
  ASSERT_TRUE(Opened(Host, Probe.Path));

  // Only byte 9 and fxID count: other magics may say anything.
  TBytes Odd;
  PutProgram(Odd, kQvTestUniqueId, "Odd", {0.625f, 0.0f, 0.0f});
  std::memcpy(Odd.data(), "ZZZZ", 4);
  std::memcpy(Odd.data() + 8, "QxZZ", 4);
  Load(Host, Odd, false);
  EXPECT_EQ(Host.GetParameters()[qpGain].GetValue(), 0.625f);
  // Any other byte there is the chunk form.
  Odd[9] = 'P';
  Probe.Clear();
  Load(Host, Odd, false);
  EXPECT_EQ(Probe.Of(qrDispatch, effSetChunk).size(), 1u);

  TBytes Foreign;
  PutProgram(Foreign, kQvTestUniqueIdChunks, "Foreign", {1.0f, 1.0f, 1.0f});
  Probe.Clear();
  Load(Host, Foreign, false);
  Foreign[9] = 'P';
  Load(Host, Foreign, false);
  Load(Host, StandardBank(kQvTestUniqueIdChunks, {{"X", {1.0f, 1.0f, 1.0f}}}), true);
  TBytes ForeignChunkBank = StandardBank(kQvTestUniqueIdChunks, {});
  ForeignChunkBank[9] = 'B';
  ForeignChunkBank.resize(170);
  Load(Host, ForeignChunkBank, true);
  for (const int32_t Opcode : {effBeginLoadProgram, effBeginLoadBank, effSetChunk, effSetProgramName, effSetProgram})
    EXPECT_EQ(Probe.Count(qrDispatch, Opcode), 0u) << "nothing of a foreign file is applied: " << Opcode;
  EXPECT_EQ(Probe.Count(qrSetParameter), 0u);

  TTempDir Dir;
  const std::string Missing = Dir.File("missing.fxp");
  Host.LoadPreset(Missing);
  Host.LoadBank(Missing);
  const std::vector<std::pair<std::string, int32_t>> Expected{
      {"Preset file not for this plugin!", -1}, {"Preset file not for this plugin!", -1},
      {"Bank file not for this plugin!", -1},   {"Bank file not for this plugin!", -1},
      {"Preset file " + Missing + " does not exist.", -1}, {"Bank file " + Missing + " does not exist", -1}};
  EXPECT_EQ(Log.Errors, Expected);
}

TEST(VSTPresetFiles, ProgramNamesAreCutToTwentySixCharacters) {
  for (const char* Variant : {"qvtestvst2", "qvtestvst2_chunks"}) {
    SCOPED_TRACE(Variant);
    TPlugInProbe Probe(Variant);
    Probe.Option("ProgramNameLength", 40);
    TSRVSTHost Host;
    ASSERT_TRUE(Opened(Host, Probe.Path));
    const std::string Thirty = "abcdefghijklmnopqrstuvwxyz0123";
    Host.SetCurrentProgramName(Thirty);
    ASSERT_EQ(Host.GetCurrentProgramName(), Thirty);
    const TBytes Preset = Saved(Host, false);
    ASSERT_GE(Preset.size(), 56u);
    EXPECT_EQ(TextAt(Preset, 28, 28), Thirty.substr(0, 26));
    EXPECT_EQ(Preset[54], 0);
    EXPECT_EQ(Preset[55], 0);
  }
}

TEST(VSTPresetFiles, HostileFilesNeverCrashOverreadOrOverallocate) {
  for (const char* Variant : {"qvtestvst2", "qvtestvst2_chunks"}) {
    SCOPED_TRACE(Variant);
    TPlugInProbe Probe(Variant);
    Probe.Option("NumPrograms", 6);  // more than the four it really has
    TSRVSTHost Host;
    TErrorLog Log;
    Log.Attach(Host);
    ASSERT_TRUE(Opened(Host, Probe.Path));
    const TBytes Preset = Saved(Host, false), Bank = Saved(Host, true);

    // Every truncation of a valid file.
    for (const TBytes* File : {&Preset, &Bank})
      for (size_t N = 0; N <= File->size(); ++N) {
        TBytes Cut(File->begin(), File->begin() + N);
        Load(Host, Cut, File == &Bank);
      }

    // Counts of 2^31 - 1, 2^31 and -1 over a few bytes: bounded by the stream.
    for (const uint32_t Count : {0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
      TBytes Huge;
      PutProgram(Huge, Host.GetUniqueID(), "Huge", {0.5f, 0.5f}, int32_t(Count));
      TBytes HugeBank = StandardBank(Host.GetUniqueID(), {{"P", {0.5f}}}, int32_t(Count));
      Probe.Clear();
      ResetLargestHeapAllocation();
      Load(Host, Huge, false);
      Load(Host, HugeBank, true);
      EXPECT_LT(LargestHeapAllocation(), 64u * 1024u) << Count;
      EXPECT_LE(Probe.Count(qrSetParameter), 3u) << Count;
    }

    // A chunk size of 2^31 - 1 over 8 bytes of chunk: the 8 bytes are handed over.
    TBytes Lying(Preset.begin(), Preset.begin() + 60);
    Lying[9] = 'P';
    Lying[56] = 0x7F;
    Lying[57] = Lying[58] = Lying[59] = 0xFF;
    Lying.insert(Lying.end(), 8, 0xEE);
    TBytes LyingBank(Bank.begin(), Bank.begin() + 156);
    LyingBank[9] = 'B';
    LyingBank.insert(LyingBank.end(), {0x7F, 0xFF, 0xFF, 0xFF});
    LyingBank.insert(LyingBank.end(), 8, 0xEE);
    Probe.Clear();
    ResetLargestHeapAllocation();
    Load(Host, Lying, false);
    Load(Host, LyingBank, true);
    EXPECT_LT(LargestHeapAllocation(), 64u * 1024u);
    const auto Handed = Probe.Of(qrDispatch, effSetChunk);
    ASSERT_EQ(Handed.size(), 2u);
    EXPECT_EQ(Handed[0].Value, 8);
    EXPECT_EQ(Handed[1].Value, 8);

    // A zero-length chunk is handed over as zero bytes.
    TBytes Empty(Preset.begin(), Preset.begin() + 60);
    Empty[9] = 'P';
    Probe.Clear();
    Load(Host, Empty, false);
    ASSERT_EQ(Probe.Of(qrDispatch, effSetChunk).size(), 1u);
    EXPECT_EQ(Probe.Of(qrDispatch, effSetChunk)[0].Value, 0);

    // A bank with more programs than the plug-in: the extra ones are not applied.
    std::vector<std::pair<std::string, std::vector<float>>> Eight;
    for (int I = 0; I < 8; ++I) Eight.push_back({"P" + std::to_string(I), {0.5f, 0.0f, 0.0f}});
    Probe.Clear();
    Load(Host, StandardBank(Host.GetUniqueID(), Eight), true);
    const auto Selected = Probe.Of(qrDispatch, effSetProgram);
    EXPECT_EQ(Selected.size(), 6u);
    for (const auto& R : Selected) EXPECT_LT(R.Value, 6);
    EXPECT_TRUE(Log.Errors.empty());
  }

  // A plug-in that declares 2^31 - 1 programs: the host keeps its lists bounded.
  TPlugInProbe Probe("qvtestvst2");
  Probe.Option("NumPrograms", 2147483647.0);
  TSRVSTHost Host;
  ASSERT_TRUE(Opened(Host, Probe.Path));
  EXPECT_EQ(Host.GetPrograms().Count(), size_t(kMaxPlugInPrograms));
  Probe.Option("NumPrograms", -5);
  TSRVSTHost Negative;
  ASSERT_TRUE(Opened(Negative, Probe.Path));
  EXPECT_EQ(Negative.GetPrograms().Count(), 0u);
  EXPECT_EQ(Saved(Negative, true).size(), 160u);
}

TEST(VSTParameterValues, DocumentsRestoreTheValuesWhenThePlugInOpens) {
  Srvsthost::RegisterPkg();
  TPlugInProbe Probe("qvtestvst2");
  TWBComponent Form;
  auto* Host = new TSRVSTHost(&Form);
  Host->SetName("Host");
  ASSERT_TRUE(Opened(*Host, Probe.Path));
  Host->GetParameters()[qpGain].SetValue(0.3f);
  Host->GetParameters()[qpChannelMap].SetValue(1.0f);
  const std::string Text = WriteDocument(SaveDocument({Host}));
  EXPECT_NE(Text.find("ParameterValues"), std::string::npos) << Text;

  TWBDocument Document;
  std::string Error;
  ASSERT_TRUE(ParseDocument(Text, Document, Error)) << Error;
  TWBComponent Copy;
  std::vector<TWBComponent*> Made;
  ASSERT_TRUE(LoadDocument(Document, Copy, Made, Error)) << Error;
  ASSERT_EQ(Made.size(), 1u);
  auto* Loaded = static_cast<TSRVSTHost*>(Made[0]);
  EXPECT_FALSE(Loaded->GetOpened()) << "a host that was never opened stays closed";
  EXPECT_EQ(WriteDocument(SaveDocument(Made)), Text) << "values kept while closed";
  ASSERT_TRUE(Loaded->Open());
  EXPECT_FLOAT_EQ(Loaded->GetParameters()[qpGain].GetValue(), 0.3f);
  EXPECT_EQ(Loaded->GetParameters()[qpChannelMap].GetValue(), 1.0f);
  Srvsthost::UnregisterPkg();
}
