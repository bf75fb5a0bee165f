// Saving and loading components and chain documents: what is saved loads
// back to the same document and the same behaviour; extra properties through
// the filer; every kind of bad document refused with the item named and
// nothing made.
#include <gtest/gtest.h>

#include <filesystem>
#include <random>

#include "tests/support/Scratchfolder.h"
#include "frame/Srdemocomponents.h"
#include "frame/Srfilecomponents.h"
#include "frame/Wbcollection.h"
#include "frame/Wbdocument.h"
#include "frame/Wbregistration.h"

using namespace Quorvel;
namespace fs = std::filesystem;

namespace {

// A component with extra properties of every kind the filer carries, and a
// data pin besides its audio pin.
class TKeeper : public TWBComponent {
 public:
  explicit TKeeper(TWBComponent* Owner = nullptr) : TWBComponent(Owner), Audio(*this, "Audio"), Data(*this, "Data") {}
  ~TKeeper() override { BeginDestroy(); }
  static const TWBClassInfo& ClassInfo() {
    static const TWBClassInfo Info = [] {
      TWBClassInfo I = MakeClassInfo("TKeeper", &TWBComponent::ClassInfo(), {}, Factory<TKeeper>());
      I.DefineProperties = [](void* O, TWBFiler& Filer) {
        auto* K = static_cast<TKeeper*>(O);
        Filer.DefineProperty(
            "Values",
            [K](TWBReader& R) {
              K->Values.clear();
              int64_t V = 0;
              if (!R.ReadListBegin()) return;
              while (!R.EndOfList() && R.ReadInteger(V)) K->Values.push_back(V);
              R.ReadListEnd();
              R.ReadFloat(K->Ratio);
              R.ReadBoolean(K->Flag);
              R.ReadString(K->Text);
            },
            [K](TWBWriter& W) {
              W.WriteListBegin();
              for (int64_t V : K->Values) W.WriteInteger(V);
              W.WriteListEnd();
              W.WriteFloat(K->Ratio);
              W.WriteBoolean(K->Flag);
              W.WriteString(K->Text);
            },
            !K->Values.empty());
        Filer.DefineBinaryProperty(
            "Blob", [K](const std::vector<uint8_t>& B) { K->Blob = B; }, [K] { return K->Blob; }, !K->Blob.empty());
      };
      return I;
    }();
    return Info;
  }
  const TWBClassInfo& GetClassInfo() const override { return ClassInfo(); }

  TSRPWAudioSinkPin Audio;
  TWBPWSourcePin Data;
  std::vector<int64_t> Values;
  double Ratio = 0;
  bool Flag = false;
  std::string Text;
  std::vector<uint8_t> Blob;
};

class Documents : public Testing::ScratchFolderTest {
 protected:
  static void SetUpTestSuite() { Design::Components::RegisterComponents({&TKeeper::ClassInfo()}); }
  // Loads Text into Form; answers the error ("" when it loaded).
  std::string Load(const std::string& Text, TWBComponent& Form, std::vector<TWBComponent*>& Made) {
    TWBDocument D;
    std::string Error;
    if (!ParseDocument(Text, D, Error)) return Error;
    return LoadDocument(D, Form, Made, Error) ? std::string() : Error;
  }
};

}  // namespace

TEST_F(Documents, SavedChainsLoadBackToTheSameDocumentAndTheSameSound) {
  const std::string Wav = (Dir / "tone.wav").u8string();
  TWBComponent Form;
  auto* Tone = new TSRToneGenerator(&Form);
  auto* Gain = new TSRGainFilter(&Form);
  auto* File = new TSRWaveFileWriter(&Form);
  auto* Keeper = new TKeeper(&Form);
  Tone->SetName("Tone");
  Gain->SetName("Gain");
  File->SetName("File");
  Keeper->SetName("Keeper");
  Tone->SetFrequency(1000);
  Tone->SetChannels(1);
  Tone->SetAmplitude(0.25);
  Gain->SetGain(2.0);
  Gain->SetEnabled(false);
  File->SetFileName(Wav);
  Keeper->Values = {1, -2, 1LL << 40};
  Keeper->Ratio = 0.125;
  Keeper->Flag = true;
  Keeper->Text = "caf\xC3\xA9";
  Keeper->Blob = {0, 1, 2, 255, 254};
  ASSERT_TRUE(Tone->GetOutputPin().Connect(Gain->GetInputPin()));
  ASSERT_TRUE(Gain->GetOutputPin()->Connect(File->GetInputPin()));
  const std::string Text = WriteDocument(SaveDocument({Tone, Gain, File, Keeper}));
  // Only what differs from the defaults is written.
  EXPECT_EQ(Text.find("SampleRate"), std::string::npos) << Text;
  EXPECT_NE(Text.find("\"Enabled\": false"), std::string::npos) << Text;

  TWBComponent Copy;
  std::vector<TWBComponent*> Made;
  ASSERT_EQ(Load(Text, Copy, Made), "");
  ASSERT_EQ(Made.size(), 4u);
  EXPECT_EQ(WriteDocument(SaveDocument(Made)), Text);
  auto* Kept = static_cast<TKeeper*>(Made[3]);
  EXPECT_EQ(Kept->Values, Keeper->Values);
  EXPECT_EQ(Kept->Ratio, 0.125);
  EXPECT_TRUE(Kept->Flag);
  EXPECT_EQ(Kept->Text, Keeper->Text);
  EXPECT_EQ(Kept->Blob, Keeper->Blob);

  // The loaded chain sounds as the saved one: a disabled gain passes the
  // quarter-scale tone through unchanged.
  auto* LoadedTone = static_cast<TSRToneGenerator*>(Made[0]);
  LoadedTone->Start();
  LoadedTone->Generate(10);
  LoadedTone->Stop();
  auto* LoadedFile = static_cast<TSRWaveFileWriter*>(Made[2]);
  EXPECT_EQ(LoadedFile->GetFramesWritten(), 10u * 256);
  EXPECT_NEAR(LoadedFile->GetPeak(), 0.25 * 32767, 2);
}

TEST_F(Documents, FileComponentsLoadOpenAndConnectByPinName) {
  // Forward slashes, so that the names need no escaping in the JSON text.
  const std::string In = (Dir / "in.wav").generic_u8string(), Out = (Dir / "out.wav").generic_u8string();
  {
    TSRToneGenerator Tone;
    TSRWaveFileWriter File;
    Tone.SetChannels(2);
    File.SetFileName(In);
    Tone.GetOutputPin().Connect(File.GetInputPin());
    Tone.Start();
    Tone.Generate(4);
    Tone.Stop();
  }
  const std::string Text = R"({"components": [
      {"class": "TSRAudioFileSource", "name": "In", "properties": {"FileName": ")" + In + R"("}},
      {"class": "TSRAudioFileSink", "name": "Out", "properties": {"Channels": 2, "FileName": ")" + Out + R"(",
       "BufferSize": 100}}],
    "connections": [{"from": "In.Channel 1", "to": "Out.Input2"}, {"from": "In.Channel 2", "to": "Out.Input1"}]})";
  TWBComponent Form;
  std::vector<TWBComponent*> Made;
  ASSERT_EQ(Load(Text, Form, Made), "");
  EXPECT_EQ(static_cast<TSRAudioFileSource*>(Made[0])->Run(), 4u * 256);
  EXPECT_EQ(static_cast<TSRAudioFileSink*>(Made[1])->GetFramesWritten(), 4u * 256);
  const std::string Saved = WriteDocument(SaveDocument(Made));
  EXPECT_NE(Saved.find("\"from\": \"In.Channel 1\",\n      \"to\": \"Out.Input2\""), std::string::npos) << Saved;
  // What was saved loads back to the same document.
  TWBComponent Again;
  std::vector<TWBComponent*> Reloaded;
  ASSERT_EQ(Load(Saved, Again, Reloaded), "");
  EXPECT_EQ(WriteDocument(SaveDocument(Reloaded)), Saved);
}

TEST_F(Documents, BadDocumentsAreRefusedNamingTheItemAndMakeNothing) {
  const std::string Tone = R"({"class": "TSRToneGenerator", "name": "Tone"})";
  const std::string Gain = R"({"class": "TSRGainFilter", "name": "Gain"})";
  const std::string Keeper = R"({"class": "TKeeper", "name": "Keeper"})";
  const auto Doc = [](const std::string& Components, const std::string& Connections = "") {
    return "{\"components\": [" + Components + "], \"connections\": [" + Connections + "]}";
  };
  const std::pair<std::string, std::string> Cases[] = {
      {"{\"components\": [", "not JSON"},
      {"[1, 2]", "a document is an object"},
      {"{\"component\": []}", "unknown document entry \"component\""},
      {Doc(R"({"class": "TNoSuch", "name": "X"})"), "component X: unknown class TNoSuch"},
      {Doc(R"({"class": "TSRToneGenerator"})"), "needs a \"class\" and a \"name\""},
      {Doc(Tone + "," + Tone), "component Tone: the name is used twice"},
      {Doc(R"({"class": "TSRToneGenerator", "name": "Tone", "properties": {"Volume": 1}})"),
       "Tone.Volume: TSRToneGenerator has no such property"},
      {Doc(R"({"class": "TSRToneGenerator", "name": "Tone", "properties": {"Channels": -1}})"),
       "Tone.Channels: property Channels: integer -1 is not a valid value"},
      {Doc(R"({"class": "TSRToneGenerator", "name": "Tone", "properties": {"Frequency": "high"}})"),
       "Tone.Frequency: property Frequency: string \"high\" is not a valid value"},
      {Doc(Tone + "," + Gain, R"({"from": "Tone.Out", "to": "Gain.Input"})"), "no pin Tone.Out that sends"},
      {Doc(Tone + "," + Gain, R"({"from": "Gain.Input", "to": "Tone.Output"})"), "no pin Gain.Input that sends"},
      {Doc(Tone + "," + Gain, R"({"from": "Tone.Output", "to": "Nobody.Input"})"), "no component Nobody"},
      {Doc(Tone + "," + Keeper, R"({"from": "Keeper.Data", "to": "Keeper.Audio"})"), "different kinds of data"},
      {Doc(Gain, R"({"from": "Gain.Output", "to": "Gain.Input"})"), "cycle (at Gain.Output -> Gain.Input)"},
      {Doc(Gain + "," + Keeper, R"({"from": "Keeper.Data", "to": "Gain.Input"})"), "different kinds of data"},
      {Doc(Gain + "," + R"({"class": "TSRGainFilter", "name": "Gain2"})",
           R"({"from": "Gain.Output", "to": "Gain2.Input"}, {"from": "Gain2.Output", "to": "Gain.Input"})"),
       "cycle (at Gain"},
      {Doc(R"({"class": "TSRAudioFileSource", "name": "In", "properties": {"FileName": "/no/such.wav"}})"),
       "component In: Can't open file /no/such.wav"},
      {std::string(100000, '[') + std::string(100000, ']'), "too deeply"},
      {Doc(R"({"class": "TKeeper", "name": "K", "properties": {"Blob": {"$binary": "!!"}}})"), "not base64"},
  };
  for (const auto& [Text, Expected] : Cases) {
    SCOPED_TRACE(Text.substr(0, 200));
    TWBComponent Form;
    std::vector<TWBComponent*> Made;
    const std::string Error = Load(Text, Form, Made);
    EXPECT_NE(Error.find(Expected), std::string::npos) << Error;
    EXPECT_TRUE(Made.empty());
    EXPECT_EQ(Form.GetComponentCount(), 0u);
  }
}

TEST(Catalogue, ListsRegisteredClassesInOrderAndCreatesByName) {
  const auto Before = Design::Components::GetRegisteredComponents();
  Design::Components::RegisterComponents({&TSRGainFilter::ClassInfo(), &TSRToneGenerator::ClassInfo()});
  Design::Components::RegisterComponents({&TSRGainFilter::ClassInfo()});  // keeps its first place
  auto After = Design::Components::GetRegisteredComponents();
  ASSERT_EQ(After.size(), Before.size() + 2);
  EXPECT_EQ(After[Before.size()]->ClassName, "TSRGainFilter");
  EXPECT_EQ(After[Before.size() + 1]->ClassName, "TSRToneGenerator");
  TWBComponent Form;
  TWBComponent* Made = Design::Components::CreateComponent("TSRAudioFileSink", &Form);
  ASSERT_NE(Made, nullptr);
  EXPECT_EQ(Made->GetClassInfo().ClassName, "TSRAudioFileSink");
  EXPECT_EQ(Form.GetComponentCount(), 1u);
  EXPECT_EQ(Design::Components::CreateComponent("TSRBasicMultiInput", &Form), nullptr) << "not made by name";
  EXPECT_EQ(Design::Components::CreateComponent("TNoSuch", &Form), nullptr);
  Design::Components::UnregisterComponents({&TSRGainFilter::ClassInfo(), &TSRToneGenerator::ClassInfo()});
  EXPECT_EQ(Design::Components::GetRegisteredComponents().size(), Before.size());
}

namespace {

class TBand : public TLockCollectionItem {
 public:
  using TLockCollectionItem::TLockCollectionItem;
  double GetLevel() const { return FLevel; }
  void SetLevel(double V) { FLevel = V; }
  std::string GetLabel() const { return FLabel; }
  void SetLabel(const std::string& V) { FLabel = V; }
  std::string GetDisplayName() const override { return FLabel.empty() ? TLockCollectionItem::GetDisplayName() : FLabel; }
  static const TWBClassInfo& ClassInfo() {
    static const TWBClassInfo Info = MakeClassInfo(
        "TBand", nullptr,
        {Property("Level", &TBand::GetLevel, &TBand::SetLevel, 0.0),
         Property("Label", &TBand::GetLabel, &TBand::SetLabel, std::string())});
    return Info;
  }

 private:
  double FLevel = 0;
  std::string FLabel;
};

class TEqualizer : public TWBComponent {
 public:
  explicit TEqualizer(TWBComponent* Owner = nullptr) : TWBComponent(Owner), FBands(this, "Band") {}
  TWBCollection<TBand>& GetBands() { return FBands; }
  static const TWBClassInfo& ClassInfo() {
    static const TWBClassInfo Info =
        MakeClassInfo("TEqualizer", &TWBComponent::ClassInfo(),
                      {CollectionProperty("Bands", &TEqualizer::GetBands, TBand::ClassInfo())}, Factory<TEqualizer>());
    return Info;
  }
  const TWBClassInfo& GetClassInfo() const override { return ClassInfo(); }

 private:
  TWBCollection<TBand> FBands;
};

}  // namespace

TEST(Collections, ItemsKnowTheirPlaceMoveAndStreamInOrder) {
  TEqualizer Eq;
  Eq.SetName("Eq");
  int Changes = 0;
  Eq.GetBands().OnChanged = [&](TWBCollectionBase&) { ++Changes; };
  Eq.GetBands().SetCount(3);
  for (size_t I = 0; I < 3; ++I) Eq.GetBands().Get(I)->SetLevel(static_cast<double>(I) + 0.5);
  Eq.GetBands().Get(2)->SetLabel("Treble");
  EXPECT_EQ(Eq.GetBands().Get(0)->GetDisplayName(), "Band 0");
  EXPECT_EQ(Eq.GetBands().Get(2)->GetDisplayName(), "Treble");
  EXPECT_EQ(Eq.GetBands().Get(1)->GetNamePath(), "Eq.Band[1]");
  TBand* Treble = Eq.GetBands().Get(2);
  Treble->SetIndex(-5);  // clamped to the first place
  EXPECT_EQ(Treble->GetIndex(), 0);
  EXPECT_EQ(Eq.GetBands().Get(1)->GetLevel(), 0.5) << "the others keep their order";
  EXPECT_EQ(Changes, 2);

  const TWBValue Saved = SaveComponent(Eq);
  TEqualizer Copy;
  std::vector<std::string> Problems;
  LoadComponent(Copy, Saved, Problems);
  EXPECT_TRUE(Problems.empty());
  ASSERT_EQ(Copy.GetBands().Count(), 3u);
  EXPECT_EQ(Copy.GetBands().Get(0)->GetLabel(), "Treble");
  EXPECT_EQ(Copy.GetBands().Get(2)->GetLevel(), 1.5);
  EXPECT_EQ(SaveComponent(Copy), Saved);
  // A bad item value names its place.
  LoadComponent(Copy, TWBValue::Object({{"Bands", TWBValue::List({TWBValue::Object({{"Level", TWBValue::String("x")}})})}}),
                Problems);
  ASSERT_EQ(Problems.size(), 1u);
  EXPECT_NE(Problems[0].find("Bands[0].Level"), std::string::npos) << Problems[0];
  EXPECT_EQ(Copy.GetBands().Count(), 1u);
}
