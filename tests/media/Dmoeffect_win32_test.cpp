// The DMO effect over the system's DMO registry and COM, with the test DMO
// registered in the audio-effect category (testplugins/dmo): its list,
// media types and dialogs, type selection, processing with parameters, and
// the DMOs it must refuse.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <vector>

#include "frame/Wbpersistence.h"
#include "media/Srdmoeffect.h"
#include "platform/Kbdevicelistform.h"
#include "testplugins/dmo/Qvtestdmo.h"

#include <windows.h>

using namespace Quorvel;

namespace {

// Sends 16-bit frames of the given shape: channel c of frame i is
// (i * 37 + c * 5000) folded into +-20000.
class TFrameSource : public TWBComponent {
 public:
  TFrameSource() : Output(*this, "Output") {}
  ~TFrameSource() override { BeginDestroy(); }
  static int16_t Value(size_t I, unsigned C) { return int16_t(int((I * 37 + C * 5000) % 40000) - 20000); }
  void Run(uint32_t Rate, uint16_t Channels, std::vector<size_t> Blocks) {
    Threading::TLockGuard G(GetLock());
    Output.SendStartWave(MakeWaveFormat(Rate, Channels, 16));
    size_t At = 0;
    for (size_t N : Blocks) {
      auto B = TSRAudioBuffer::Create(Channels, N, 16, Rate);
      for (size_t I = 0; I < N; ++I)
        for (unsigned C = 0; C < Channels; ++C) B->SetSample(I, C, Value(At + I, C));
      At += N;
      Output.SubmitBuffer(B);
    }
    Output.SendStop();
  }
  TSRPWAudioSourcePin Output;
};

class TRecorder : public TWBComponent {
 public:
  TRecorder() : Input(*this, "Input") {}
  ~TRecorder() override { BeginDestroy(); }
  void SinkDispatch(TPWBasicPin*, TPWBasicPin*, TPWOperationID ID, TPWOperation& Operation,
                    TPWNotifyStates& States) override {
    IDs.push_back(ID);
    if (ID == poidStartWave) Format = static_cast<TPWStartWaveOperation&>(Operation).GetFormat();
    if (ID == poidSuppliedBuffer)
      if (const ISRAudioBuffer* B = static_cast<TPWSuppliedBufferOperation&>(Operation).GetAudioBuffer())
        for (size_t I = 0; I < B->GetSamples(); ++I)
          for (unsigned C = 0; C < B->GetChannels(); ++C) Samples.push_back(B->GetSample(I, C));
    States.Include(TPWNotifyState::pnsHandled);
  }
  TSRPWAudioSinkPin Input;
  std::vector<TPWOperationID> IDs;
  TSRWaveFormatExtensible Format{};
  std::vector<int32_t> Samples;
};

class DmoEffectTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED)));
    Effect.SetDmoName(QVTESTDMO_NAME);
    Effect.OnWarning = [this](TWBComponent*, const std::string& Text, int32_t) { Warnings.push_back(Text); };
    ASSERT_TRUE(Source.Output.Connect(Effect.GetInputPin()));
    ASSERT_TRUE(Effect.GetOutputPin()->Connect(Out.Input));
    State(true);
  }
  void TearDown() override {
    TKBDeviceListForm::SetChooser(nullptr);
    CoUninitialize();
  }
  // The test DMO's counters (its module is loaded once a DMO was made).
  static QvTestDmoState State(bool Reset = false) {
    QvTestDmoState S{};
    HMODULE Module = GetModuleHandleW(L"Qvtestdmo.dll");
    if (!Module) return S;
    auto Get = reinterpret_cast<QvTestDmoGetStateProc>(
        reinterpret_cast<void*>(GetProcAddress(Module, "QvTestDmoGetState")));
    if (Get) Get(&S, Reset ? 1 : 0);
    return S;
  }
  // What the test DMO makes of the source's frames at a gain.
  static std::vector<int32_t> Expected(size_t Frames, unsigned InChannels, unsigned OutChannels, double Gain) {
    std::vector<int32_t> V;
    for (size_t I = 0; I < Frames; ++I)
      for (unsigned C = 0; C < OutChannels; ++C)
        V.push_back(int32_t(std::lround(TFrameSource::Value(I, std::min(C, InChannels - 1)) * Gain)));
    return V;
  }

  TFrameSource Source;
  TSRDMOEffect Effect;
  TRecorder Out;
  std::vector<std::string> Warnings;
};

}  // namespace

TEST_F(DmoEffectTest, ListsTheAudioEffectDmosAndOffersThemInADialog) {
  const std::vector<std::string> Names = TSRDMOEffect::GetDmoNames();
  for (const char* Ours : {QVTESTDMO_NAME, QVTESTDMO_TWO_STREAMS_NAME, QVTESTDMO_FAILING_TYPES_NAME})
    EXPECT_NE(std::find(Names.begin(), Names.end(), Ours), Names.end()) << Ours;
  for (const auto& Name : Names) std::printf("audio-effect DMO: %s\n", Name.c_str());
  std::vector<std::string> Again{"stale"};
  TSRDMOEffect::GetDmoNames(Again);
  EXPECT_EQ(Again, Names);

  std::vector<std::string> Offered;
  TKBDeviceListForm::SetChooser([&](const TKBDeviceListForm& Form) {
    Offered = Form.GetItems();
    EXPECT_EQ(Form.GetItems()[size_t(Form.GetPreselectedIndex())], QVTESTDMO_NAME) << "the current name is shown";
    return int(std::find(Offered.begin(), Offered.end(), QVTESTDMO_TWO_STREAMS_NAME) - Offered.begin());
  });
  EXPECT_TRUE(Effect.ShowDmoSelectDialog());
  EXPECT_EQ(Offered, Names);
  EXPECT_EQ(Effect.GetDmoName(), QVTESTDMO_TWO_STREAMS_NAME);
  TKBDeviceListForm::SetChooser([](const TKBDeviceListForm&) { return -1; });
  EXPECT_FALSE(Effect.ShowDmoSelectDialog());
  EXPECT_EQ(Effect.GetDmoName(), QVTESTDMO_TWO_STREAMS_NAME) << "cancelled: unchanged";
}

TEST_F(DmoEffectTest, MediaTypesAreListedIndexedAdjustedAndChosenInTheDialog) {
  TSRDMOMediaType& Input = Effect.GetInputMediaType();
  const std::vector<std::string> Texts = {"0. Channels : 2 Rate : 44100 Bits : 16",
                                          "1. Channels : 2 Rate : 48000 Bits : 16",
                                          "2. Channels : 1 Rate : 48000 Bits : 16"};
  EXPECT_EQ(Input.GetMediaTypes(), Texts) << "the type without a wave format is left out";
  EXPECT_EQ(Effect.GetOutputMediaType().GetMediaTypes(), Texts);

  // SetTypeIndex asks the DMO for its own index (the format-less type counts).
  EXPECT_TRUE(Input.SetTypeIndex(3));
  EXPECT_EQ(Input.GetTypeIndex(), 3);
  EXPECT_TRUE(Input.GetFormatKnown());
  EXPECT_EQ(Input.GetChannels(), 1);
  EXPECT_EQ(Input.GetSampleRate(), 48000u);
  EXPECT_EQ(Input.GetBits(), 16);
  EXPECT_FALSE(Input.SetTypeIndex(4));
  EXPECT_FALSE(Input.SetTypeIndex(-1));
  EXPECT_EQ(Input.GetTypeIndex(), 3) << "a failed index changes nothing";
  EXPECT_EQ(Input.GetSampleRate(), 48000u);

  // Three listed types: an index of 3 (or 5) is beyond them and becomes 0.
  Input.AdjustIndex();
  EXPECT_EQ(Input.GetTypeIndex(), 0);
  std::vector<std::string> Problems;
  LoadProperties(&Input, TSRDMOMediaType::ClassInfo(),
                 TWBValue::Object({{"MediaTypeInfo", TWBValue::List({TWBValue::Integer(5), TWBValue::Integer(2),
                                                                     TWBValue::Integer(44100),
                                                                     TWBValue::Integer(16)})}}),
                 Problems);
  EXPECT_TRUE(Problems.empty());
  EXPECT_EQ(Input.GetTypeIndex(), 5);
  Input.AdjustIndex();
  EXPECT_EQ(Input.GetTypeIndex(), 0);
  EXPECT_TRUE(Input.SetTypeIndex(2));
  Input.AdjustIndex();
  EXPECT_EQ(Input.GetTypeIndex(), 2) << "an index within the list stays";

  // The dialog: "Auto Select" first, shown while AutoSelect is on; otherwise
  // entry TypeIndex + 1.
  std::vector<std::string> Items;
  std::string Caption;
  int Shown = -2, Pick = 0;
  TKBDeviceListForm::SetChooser([&](const TKBDeviceListForm& Form) {
    Items = Form.GetItems();
    Caption = Form.GetCaption();
    Shown = Form.GetPreselectedIndex();
    return Pick;
  });
  ASSERT_TRUE(Input.GetAutoSelect());
  Pick = 3;
  EXPECT_TRUE(Input.ShowDialog());
  EXPECT_EQ(Caption, "Select Audio Format");
  ASSERT_EQ(Items.size(), 4u);
  EXPECT_EQ(Items[0], "Auto Select");
  EXPECT_EQ(std::vector<std::string>(Items.begin() + 1, Items.end()), Texts);
  EXPECT_EQ(Shown, 0);
  EXPECT_FALSE(Input.GetAutoSelect());
  EXPECT_EQ(Input.GetTypeIndex(), 2) << "the list position, used as the DMO's index";
  Pick = 0;
  EXPECT_TRUE(Input.ShowDialog());
  EXPECT_EQ(Shown, 3);
  EXPECT_TRUE(Input.GetAutoSelect());
  EXPECT_EQ(Input.GetTypeIndex(), 2);
  Pick = -1;
  EXPECT_FALSE(Input.ShowDialog());
  EXPECT_TRUE(Input.GetAutoSelect());
  EXPECT_EQ(Items[0], "Auto Select");

  // Without a DMO there is nothing to list.
  Effect.SetDmoName("No Such DMO");
  EXPECT_TRUE(Input.GetMediaTypes().empty());
  EXPECT_FALSE(Input.SetTypeIndex(0));
}

TEST_F(DmoEffectTest, ProcessesTheStreamThroughTheDmoWithItsParameters) {
  // 48 kHz stereo: the exact type is taken; each 1000-frame buffer needs
  // several output calls from a DMO that makes 256 frames a call.
  Source.Run(48000, 2, {1000, 1000, 10000, 1});
  EXPECT_TRUE(Warnings.empty());
  ASSERT_FALSE(Out.IDs.empty());
  EXPECT_EQ(Out.IDs.front(), poidStartWave);
  EXPECT_EQ(Out.IDs.back(), poidStop);
  EXPECT_EQ(Out.Format.Format.nSamplesPerSec, 48000u);
  EXPECT_EQ(Out.Format.Format.nChannels, 2);
  EXPECT_EQ(Out.Samples, Expected(12001, 2, 2, 0.5));
  QvTestDmoState S = State(true);
  EXPECT_GE(S.IncompleteAnswers, 3u * 2 + 39);
  EXPECT_EQ(S.Objects, 0u) << "the stop released the DMO";
  EXPECT_EQ(Effect.GetInputMediaType().GetSampleRate(), 48000u);
  EXPECT_FALSE(Effect.IsProcessing());

  // Parameters and the envelope time format reach the DMO before the stream.
  Effect.GetParameters().SetValue(0, 0.25f);
  const TGUID Format = {0x11223344, 0x5566, 0x7788, {1, 2, 3, 4, 5, 6, 7, 8}};
  Effect.GetTimeFormatProp().SetFormat(Format, 1000);
  Out.Samples.clear();
  Source.Run(48000, 2, {700});
  EXPECT_EQ(Out.Samples, Expected(700, 2, 2, 0.25));
  S = State(true);
  EXPECT_EQ(S.SetParamCalls, 1u);
  EXPECT_FLOAT_EQ(S.LastParamValue, 0.25f);
  EXPECT_EQ(S.TimeFormatCalls, 1u);
  EXPECT_EQ(std::memcmp(S.LastTimeFormat, &Format, 16), 0);
  EXPECT_EQ(S.LastTimeUnit, 1000u);

  // An effect destroyed while its stream runs releases the DMO.
  {
    TSRDMOEffect Running;
    Running.SetDmoName(QVTESTDMO_NAME);
    TFrameSource Other;
    ASSERT_TRUE(Other.Output.Connect(Running.GetInputPin()));
    Threading::TLockGuard G(Other.GetLock());
    Other.Output.SendStartWave(MakeWaveFormat(48000, 2, 16));
    EXPECT_TRUE(Running.IsProcessing());
    EXPECT_EQ(State().Objects, 1u);
  }
  EXPECT_EQ(State().Objects, 0u);

  // A fixed output type: mono at 48 kHz takes the left channel.
  Effect.GetParameters().Clear();
  ASSERT_TRUE(Effect.GetOutputMediaType().SetTypeIndex(3));
  Effect.GetOutputMediaType().SetAutoSelect(false);
  Out.Samples.clear();
  Source.Run(48000, 2, {300});
  EXPECT_EQ(Out.Format.Format.nChannels, 1);
  EXPECT_EQ(Out.Samples, Expected(300, 2, 1, 0.5));
}

TEST_F(DmoEffectTest, AutomaticSelectionFollowsTheReplacementRule) {
  struct TCase {
    uint32_t Rate;
    uint16_t Channels;
    uint32_t InRate;
    uint16_t InChannels;
  };
  // 96 kHz stereo: nothing matches; 48 kHz stereo replaces 44.1 kHz (the
  // wanted rate is higher), and mono is refused (fewer channels than wanted).
  // 22.05 kHz mono: the first type stays, nothing replaces it.
  // 44.1 kHz mono: 48 kHz mono has fewer channels than the best (stereo) but
  // as many as wanted, so the rate decides; a rate above the best's is refused.
  for (const TCase& C : {TCase{96000, 2, 48000, 2}, TCase{22050, 1, 44100, 2}, TCase{44100, 1, 44100, 2},
                         TCase{48000, 1, 48000, 1}, TCase{44100, 2, 44100, 2}}) {
    SCOPED_TRACE(std::to_string(C.Rate) + "/" + std::to_string(C.Channels));
    Out.Samples.clear();
    Source.Run(C.Rate, C.Channels, {100});
    EXPECT_EQ(Effect.GetInputMediaType().GetSampleRate(), C.InRate);
    EXPECT_EQ(Effect.GetInputMediaType().GetChannels(), C.InChannels);
    EXPECT_EQ(Out.Format.Format.nSamplesPerSec, C.InRate) << "the output side chose the same";
  }
}

TEST_F(DmoEffectTest, DmosThatCannotRunPassNothingUntilTheNextStart) {
  for (const char* Name : {QVTESTDMO_TWO_STREAMS_NAME, QVTESTDMO_FAILING_TYPES_NAME, "No Such DMO"}) {
    SCOPED_TRACE(Name);
    Effect.SetDmoName(Name);
    Out.IDs.clear();
    Warnings.clear();
    Source.Run(48000, 2, {100, 100});
    EXPECT_EQ(Warnings, std::vector<std::string>{std::string("Can't start DMO ") + Name});
    EXPECT_FALSE(Effect.IsProcessing());
    for (TPWOperationID ID : Out.IDs) EXPECT_NE(ID, poidSuppliedBuffer);
    EXPECT_EQ(State().Objects, 0u) << "its objects were released";
  }
  // A type index that is not a wave format cannot be set either.
  Effect.SetDmoName(QVTESTDMO_NAME);
  ASSERT_TRUE(Effect.GetInputMediaType().SetTypeIndex(1));
  EXPECT_FALSE(Effect.GetInputMediaType().GetFormatKnown());
  Effect.GetInputMediaType().SetAutoSelect(false);
  Warnings.clear();
  Source.Run(48000, 2, {100});
  EXPECT_EQ(Warnings.size(), 1u);
  // The next start with a usable setting runs again.
  Effect.GetInputMediaType().SetAutoSelect(true);
  Out.Samples.clear();
  Source.Run(48000, 2, {100});
  EXPECT_EQ(Out.Samples, Expected(100, 2, 2, 0.5));
}

TEST_F(DmoEffectTest, NameTypesParametersAndTimeFormatAreStored) {
  Effect.GetParameters().SetValue(0, 1.5f);
  Effect.GetParameters().SetValue(7, -2.0f);
  const TGUID Format = {0xA, 0xB, 0xC, {9, 8, 7, 6, 5, 4, 3, 2}};
  Effect.GetTimeFormatProp().SetFormat(Format, 42);
  ASSERT_TRUE(Effect.GetOutputMediaType().SetTypeIndex(2));
  Effect.GetOutputMediaType().SetAutoSelect(false);
  const TWBValue Saved = SaveComponent(Effect);
  ASSERT_NE(Saved.Find("OutputMediaType"), nullptr);
  const TWBValue* Info = Saved.Find("OutputMediaType")->Find("MediaTypeInfo");
  ASSERT_NE(Info, nullptr);
  EXPECT_EQ(*Info, TWBValue::List({TWBValue::Integer(2), TWBValue::Integer(2), TWBValue::Integer(48000),
                                   TWBValue::Integer(16)}));

  TSRDMOEffect Copy;
  std::vector<std::string> Problems;
  LoadComponent(Copy, Saved, Problems);
  EXPECT_TRUE(Problems.empty());
  EXPECT_EQ(Copy.GetDmoName(), QVTESTDMO_NAME);
  EXPECT_FALSE(Copy.GetOutputMediaType().GetAutoSelect());
  EXPECT_EQ(Copy.GetOutputMediaType().GetTypeIndex(), 2);
  EXPECT_EQ(Copy.GetOutputMediaType().GetSampleRate(), 48000u);
  EXPECT_TRUE(Copy.GetInputMediaType().GetAutoSelect());
  float V = 0;
  EXPECT_TRUE(Copy.GetParameters().GetValue(7, V));
  EXPECT_EQ(V, -2.0f);
  EXPECT_EQ(Copy.GetParameters().GetValues().size(), 2u);
  EXPECT_TRUE(Copy.GetTimeFormatProp().IsSet());
  EXPECT_EQ(Copy.GetTimeFormatProp().GetFormat(), Format);
  EXPECT_EQ(Copy.GetTimeFormatProp().GetUnit(), 42u);
}
