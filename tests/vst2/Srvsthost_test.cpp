// TSRVSTHost against the project's test plug-ins, loaded from their library
// files through their real entry points. The plug-ins record every call the
// host makes, so the tests check the exact sequences.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <fstream>
#include <thread>

#include "platform/Library.h"
#include "testplugins/vst2/Qvtestplugin.h"
#include "tests/support/Alloccounter.h"
#include "tests/support/Testcomponents.h"
#include "vst2/Srvsthost.h"

using namespace Quorvel;
using namespace Quorvel::Testing;

namespace {

std::string PlugInPath(const std::string& Name) { return std::string(QV_TESTVST2_DIR) + "/" + Name + QV_TESTVST2_SUFFIX; }

// The test's own hold on a plug-in file: its exported record functions.
class TPlugInProbe {
 public:
  explicit TPlugInProbe(const std::string& Name) : Path(PlugInPath(Name)) {
    std::string Text;
    unsigned Code = 0;
    FModule = Platform::LoadCodeLibrary(Path, Text, Code);
    EXPECT_NE(FModule, nullptr) << Path << ": " << Text;
    FGet = reinterpret_cast<TQvTestGetRecordsFunc>(Platform::GetLibrarySymbol(FModule, kQvTestGetRecordsName));
    FClear = reinterpret_cast<TQvTestClearRecordsFunc>(Platform::GetLibrarySymbol(FModule, kQvTestClearRecordsName));
    FOption = reinterpret_cast<TQvTestSetOptionFunc>(Platform::GetLibrarySymbol(FModule, kQvTestSetOptionName));
    FCall = reinterpret_cast<TQvTestCallHostFunc>(Platform::GetLibrarySymbol(FModule, kQvTestCallHostName));
    if (FOption) FOption("Reset", 0);
    if (FClear) FClear();
  }
  ~TPlugInProbe() { Platform::FreeCodeLibrary(FModule); }

  std::vector<TQvTestRecord> Records() const {
    const TQvTestRecord* R = nullptr;
    const int32_t N = FGet ? FGet(&R) : 0;
    return std::vector<TQvTestRecord>(R, R + N);
  }
  // Dispatcher opcodes in the order they arrived.
  std::vector<int32_t> Dispatches() const {
    std::vector<int32_t> Out;
    for (const auto& R : Records())
      if (R.Kind == qrDispatch) Out.push_back(R.Opcode);
    return Out;
  }
  std::vector<TQvTestRecord> Of(int32_t Kind, int32_t Opcode = -1) const {
    std::vector<TQvTestRecord> Out;
    for (const auto& R : Records())
      if (R.Kind == Kind && (Opcode < 0 || R.Opcode == Opcode)) Out.push_back(R);
    return Out;
  }
  void Clear() { FClear(); }
  void Option(const char* Name, double Value) { ASSERT_EQ(FOption(Name, Value), 1) << Name; }
  intptr_t Call(PVSTEffect E, int32_t Opcode, int32_t Index = 0, intptr_t Value = 0, void* Ptr = nullptr,
                float Opt = 0.0f) {
    return FCall(E, Opcode, Index, Value, Ptr, Opt);
  }

  const std::string Path;

 private:
  Platform::TModuleHandle FModule = nullptr;
  TQvTestGetRecordsFunc FGet = nullptr;
  TQvTestClearRecordsFunc FClear = nullptr;
  TQvTestSetOptionFunc FOption = nullptr;
  TQvTestCallHostFunc FCall = nullptr;
};

// Reports go to a list instead of being raised.
struct TErrorLog {
  std::vector<std::pair<std::string, int32_t>> Errors;
  void Attach(TWBComponent& C) {
    C.OnError = [this](TWBComponent*, const std::string& Message, int32_t Code, bool& Handled) {
      Errors.emplace_back(Message, Code);
      Handled = true;
    };
  }
};

// A stereo 16-bit source split onto the host's two input pins, and a sink
// on its two outputs.
struct TStereoChain {
  TTestSource Left{nullptr, 1, 16, 48000}, Right{nullptr, 1, 16, 48000};
  TRecordingSink Sink{nullptr, 2};
  void Wire(TSRVSTHost& Host) {
    ASSERT_GE(Host.GetInputPins().Count(), 2u);
    ASSERT_GE(Host.GetOutputPins().Count(), 2u);
    ASSERT_TRUE(Left.Output.Connect(*Host.GetInputPin(0)));
    ASSERT_TRUE(Right.Output.Connect(*Host.GetInputPin(1)));
    ASSERT_TRUE(Host.GetOutputPin(0)->Connect(*Sink.Inputs[0]));
    ASSERT_TRUE(Host.GetOutputPin(1)->Connect(*Sink.Inputs[1]));
  }
  void Start() {
    Left.Start();
    Right.Start();
  }
  void Send(int32_t First, size_t Count) {
    Left.SendRamp(First, Count);
    Right.SendRamp(-First, Count);
  }
  void Stop() {
    Left.Stop();
    Right.Stop();
  }
};

// Points Host at a plug-in file and opens it.
::testing::AssertionResult Opened(TSRVSTHost& Host, const std::string& Path) {
  Host.SetFileName(Path);
  if (Host.Open()) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << Path << " does not open";
}

size_t IndexOf(const std::vector<int32_t>& V, int32_t X, size_t From = 0) {
  for (size_t I = From; I < V.size(); ++I)
    if (V[I] == X) return I;
  return V.size();
}

}  // namespace

TEST(VstHost, OpenLoadsThroughTheEntryPointAndSendsTheOpenSequence) {
  TPlugInProbe Probe("qvtestvst2");
  TSRVSTHost Host;
  TErrorLog Log;
  Log.Attach(Host);
  int Loaded = 0;
  Host.OnLoaded = [&](TWBComponent* Sender) {
    EXPECT_EQ(Sender, &Host);
    EXPECT_NE(Host.GetEffect(), nullptr) << "the effect record is stored before OnLoaded";
    ++Loaded;
  };
  Host.SetFileName(Probe.Path);
  EXPECT_FALSE(Host.GetOpened()) << "a closed host stays closed when its file changes";
  EXPECT_EQ(Host.GetInputPins().Count(), 2u) << "but its pins follow the new file";
  EXPECT_EQ(Host.GetParameterNames().size(), 3u);
  Probe.Clear();

  ASSERT_TRUE(Host.Open());
  EXPECT_EQ(Loaded, 2);  // once for the file change, once now
  PVSTEffect E = Host.GetEffect();
  ASSERT_NE(E, nullptr);
  EXPECT_EQ(E->User, &Host);
  EXPECT_EQ(Host.GetUniqueID(), kQvTestUniqueId);

  const auto Records = Probe.Records();
  ASSERT_FALSE(Records.empty());
  EXPECT_EQ(Records[0].Kind, qrEntry);
  EXPECT_EQ(Records[0].Opcode, qeVSTPluginMain);
  // During the entry point the plug-in asks the version without an effect
  // record; the loading host answers.
  const auto Versions = Probe.Of(qrHostCallback, audioMasterVersion);
  ASSERT_FALSE(Versions.empty());
  EXPECT_EQ(Versions[0].Effect, 0u);
  EXPECT_EQ(Versions[0].Result, 2400);

  const auto D = Probe.Dispatches();
  ASSERT_FALSE(D.empty());
  EXPECT_EQ(D.front(), effOpen);
  EXPECT_EQ(D.back(), effSetBypass);
  EXPECT_EQ(Probe.Of(qrDispatch, effSetBypass).back().Value, 0);
  EXPECT_LT(IndexOf(D, effGetParamName), IndexOf(D, effGetInputProperties)) << "parameters, then pins";
  EXPECT_EQ(Host.GetInputPin(0)->GetName(), "Input 1");
  EXPECT_EQ(Host.GetOutputPin(1)->GetName(), "Output 2");

  Probe.Clear();
  EXPECT_TRUE(Host.Open());
  EXPECT_TRUE(Probe.Dispatches().empty()) << "opening an open host sends nothing";

  Host.Close();
  EXPECT_FALSE(Host.GetOpened());
  EXPECT_EQ(Probe.Dispatches(), std::vector<int32_t>{effClose});
  EXPECT_EQ(Host.VstDispatch(effGetVendorVersion), 0) << "dispatch on a closed host";
  EXPECT_EQ(Probe.Call(nullptr, audioMasterVersion), 0) << "no host answers after Close";
  EXPECT_TRUE(Log.Errors.empty());
}

TEST(VstHost, EntryPointChoiceAndRefusedLibraries) {
  {
    // Both exports: "main" is used.
    TPlugInProbe Probe("qvtestvst2_both");
    TSRVSTHost Host;
    ASSERT_TRUE(Opened(Host, Probe.Path));
    EXPECT_EQ(Host.GetUniqueID(), kQvTestUniqueIdMainEntry);
    EXPECT_EQ(Probe.Of(qrEntry).size(), 2u) << "once for the file change, once for Open";
    for (const auto& R : Probe.Of(qrEntry)) EXPECT_EQ(R.Opcode, qeMain);
  }
  {
    TSRVSTHost Host;
    ASSERT_TRUE(Opened(Host, PlugInPath("qvtestvst2_mainonly")));
    EXPECT_EQ(Host.GetUniqueID(), kQvTestUniqueId);
  }
  // No effect, no entry point: false, no report. Missing file: reported.
  TErrorLog Log;
  TSRVSTHost Host;
  Log.Attach(Host);
  for (const char* Name : {"qvtestvst2_noeffect", "qvtestvst2_notaplugin"}) {
    Host.SetFileName(PlugInPath(Name));
    EXPECT_FALSE(Host.Open()) << Name;
    EXPECT_FALSE(Host.GetOpened());
  }
  EXPECT_TRUE(Log.Errors.empty());

  const std::string Missing = PlugInPath("no-such-plugin");
  EXPECT_FALSE(Host.LoadPlugIn(Missing));
  ASSERT_EQ(Log.Errors.size(), 1u);
  EXPECT_EQ(Log.Errors[0].first, "File " + Missing + " does not exist");
  EXPECT_EQ(Log.Errors[0].second, -1);

  // A file that is not a library: the loader's report.
  const std::string Text = ::testing::TempDir() + "not-a-library" QV_TESTVST2_SUFFIX;
  std::ofstream(Text) << "this is text, not code";
  EXPECT_FALSE(Host.LoadPlugIn(Text));
  ASSERT_EQ(Log.Errors.size(), 2u);
  EXPECT_EQ(Log.Errors[1].first.rfind("Can't load library " + Text + ": ", 0), 0u) << Log.Errors[1].first;

  EXPECT_FALSE(Host.LoadPlugIn("")) << "an empty name ends quietly";
  EXPECT_EQ(Log.Errors.size(), 2u);

  // Without a handler the report is raised, code in decimal and hexadecimal.
  TSRVSTHost Bare;
  try {
    Bare.LoadPlugIn(Missing);
    ADD_FAILURE() << "expected EWBException";
  } catch (const EWBException& X) {
    EXPECT_EQ(std::string(X.what()), "File " + Missing + " does not exist - 4294967295 - ffffffff");
  }
}

TEST(VstHost, CallbackAnswersEveryOpcodeAsTabled) {
  TPlugInProbe Probe("qvtestvst2");
  TSRVSTHost Host;
  ASSERT_TRUE(Opened(Host, Probe.Path));
  PVSTEffect E = Host.GetEffect();
  auto Ask = [&](int32_t Opcode, int32_t Index = 0, intptr_t Value = 0, void* Ptr = nullptr, float Opt = 0.0f) {
    return Probe.Call(E, Opcode, Index, Value, Ptr, Opt);
  };

  EXPECT_EQ(Ask(audioMasterVersion), 2400);
  Host.SetHostVstVersion(2300);
  EXPECT_EQ(Ask(audioMasterVersion), 2300);

  // Capabilities: the host claims them, the callback answers 0 regardless.
  EXPECT_EQ(Host.GetHostSuports().Mask(), 0x37FFFu);
  EXPECT_TRUE(Host.GetMasterCanDo("sizeWindow"));
  EXPECT_FALSE(Host.GetMasterCanDo("editFile"));
  EXPECT_FALSE(Host.GetMasterCanDo("SizeWindow")) << "names compare case-sensitively";
  EXPECT_FALSE(Host.GetMasterCanDo("nonsense"));
  char SizeWindow[] = "sizeWindow";
  EXPECT_EQ(Ask(audioMasterCanDo, 0, 0, SizeWindow), 0);
  Host.SetHostSuports(Host.GetHostSuports() - TSRVSTHostSupports{TSRVSTHostSupportsFlag::vsthsSizeWindow});
  EXPECT_FALSE(Host.GetMasterCanDo("sizeWindow"));

  EXPECT_EQ(Ask(audioMasterWillReplaceOrAccumulate), 1);
  EXPECT_EQ(Ask(audioMasterGetCurrentProcessLevel), 2);
  EXPECT_EQ(Ask(audioMasterGetAutomationState), 4);
  int Displays = 0;
  Host.OnUpdateDisplay = [&](TWBComponent*) { ++Displays; };
  EXPECT_EQ(Ask(audioMasterUpdateDisplay), 1);
  EXPECT_EQ(Displays, 1);

  Host.SetBufferSize(512);
  EXPECT_EQ(Ask(audioMasterGetBlockSize), 512);
  Host.SetInputLatency(11);
  Host.SetOutputLatency(13);
  EXPECT_EQ(Ask(audioMasterGetInputLatency), 11);
  EXPECT_EQ(Ask(audioMasterGetOutputLatency), 13);
  Host.SetNumberAutomatable(3);
  EXPECT_EQ(Ask(audioMasterGetNumAutomatableParameters), 3);
  Host.SetParameterQuantization(-5);
  EXPECT_EQ(Ask(audioMasterGetParameterQuantization), -5) << "negative answers are sign-extended";
  Host.SetHostLanguage(TSRVSTHostLanguage::vstlLangJapanese);
  EXPECT_EQ(Ask(audioMasterGetLanguage), 6);
  Host.SetHostTempo(97.5f);
  EXPECT_EQ(Ask(audioMasterTempoAt), 975000);

  char Text[64];
  std::memset(Text, 'x', sizeof(Text));
  Host.SetHostVendorString("Vendor Q");
  EXPECT_EQ(Ask(audioMasterGetVendorString, 0, 0, Text), 0);
  EXPECT_STREQ(Text, "Vendor Q");
  Host.SetHostProductString(std::string(100, 'p'));
  EXPECT_EQ(Ask(audioMasterGetProductString, 0, 0, Text), 0);
  EXPECT_EQ(std::strlen(Text), 63u) << "texts are cut to the plug-in's buffer";

  // Edits: the answer is whether a handler took them.
  std::vector<int32_t> Began;
  EXPECT_EQ(Ask(audioMasterBeginEdit, 2), 0);
  Host.OnBeginEdit = [&](TSRVSTHost*, int32_t Index, bool& Handled) {
    Began.push_back(Index);
    Handled = true;
  };
  EXPECT_EQ(Ask(audioMasterBeginEdit, 2), 1);
  EXPECT_EQ(Began, std::vector<int32_t>{2});
  EXPECT_EQ(Ask(audioMasterEndEdit, 2), 0);

  // Deliberate zeros, and opcodes the table does not know.
  for (int32_t Op : std::initializer_list<int32_t>{audioMasterAutomate, audioMasterCurrentId, audioMasterIdle, audioMasterPinConnected,
                     audioMasterWantMidi, audioMasterGetVendorVersion, audioMasterGetPreviousPlug,
                     audioMasterGetNextPlug, audioMasterOfflineStart, audioMasterGetDirectory,
                     audioMasterOpenFileSelector, 49, 200, -1})
    EXPECT_EQ(Ask(Op), 0) << Op;
  EXPECT_TRUE(Host.GetWantsMidi());
  Ask(audioMasterSetOutputSampleRate, 0, 0, nullptr, 96000.0f);
  EXPECT_EQ(Host.GetOutputSampleRate(), 96000.0);

  // The time record: its address, readable by the plug-in, with the defaults.
  const intptr_t Time = Ask(audioMasterGetTime);
  EXPECT_EQ(reinterpret_cast<PVstTimeInfo>(Time), Host.GetVstTimeInfoPtr());
  EXPECT_EQ(reinterpret_cast<PVstTimeInfo>(Time)->SampleRate, 44100.0);
  EXPECT_EQ(Host.GetVstTimeInfoPtr()->TimeSigNumerator, 4);
  EXPECT_EQ(Host.GetVstTimeInfoPtr()->SmpteFrameRate, 1);

  // audioMasterSetTime copies the fields its flags name.
  TVstTimeInfo Set{};
  Set.Tempo = 140.0;
  Set.ppqPos = 99.0;
  Ask(audioMasterSetTime, 0, static_cast<intptr_t>(TVstTimeInfoFlags{TVstTimeInfoFlag::kVstTempoValid}.Mask()),
      &Set);
  EXPECT_EQ(Host.GetVstTimeInfoPtr()->Tempo, 140.0);
  EXPECT_EQ(Host.GetVstTimeInfoPtr()->ppqPos, 0.0);

  // The folder of the library, for audioMasterGetDirectory.
  EXPECT_EQ(Host.GetMasterGetDirectory(), std::string(QV_TESTVST2_DIR) + "/");
}

TEST(VstHost, PlugInCapabilitiesFromFlagsAndCanDo) {
  TSRVSTHost Host;
  ASSERT_TRUE(Opened(Host, PlugInPath("qvtestvst2")));
  using F = TSRVSTPlugInSuportFlag;
  const TSRVSTPlugInSuports S = Host.GetPlugInSuports();
  EXPECT_TRUE(S.Contains(F::vstpsCanReplacing));
  EXPECT_FALSE(S.Contains(F::vstpsCanDoubleReplacing));
  EXPECT_FALSE(S.Contains(F::vstpsIsSynth));
  // Answered 1 to effCanDo by the test plug-in.
  EXPECT_TRUE(S.Contains(F::vstpsReceiveVstEvents));
  EXPECT_TRUE(S.Contains(F::vstpsReceiveVstMidiEvent));
  EXPECT_TRUE(S.Contains(F::vstpsBypass));
  EXPECT_FALSE(S.Contains(F::vstpsOffline));
  const bool Editor = Host.GetEffectFlags().Contains(TEffFlag::effFlagsHasEditor);
  // With an editor, members 10..15 come from the editor flag as well.
  EXPECT_EQ(S.Contains(F::vstpsSendVstEvents), Editor);

  TSRVSTHost Double;
  ASSERT_TRUE(Opened(Double, PlugInPath("qvtestvst2_double")));
  EXPECT_TRUE(Double.GetPlugInSuports().Contains(F::vstpsCanDoubleReplacing));
}

TEST(VstHost, StreamStartOrderScaleAndRounding) {
  TPlugInProbe Probe("qvtestvst2");
  TSRVSTHost Host;
  ASSERT_TRUE(Opened(Host, Probe.Path));
  Host.SetBufferSize(64);
  TStereoChain Chain;
  Chain.Wire(Host);
  Probe.Clear();
  Probe.Option("FixedOutput", 0.25);

  Chain.Start();
  const auto D = Probe.Dispatches();
  const std::vector<int32_t> Expected{effSetProcessPrecision, effSetSampleRate, effSetBlockSize,
                                      effSetBlockSizeAndSampleRate, effMainsChanged};
  EXPECT_EQ(D, Expected);
  EXPECT_EQ(Probe.Of(qrDispatch, effSetProcessPrecision)[0].Value, 0);
  EXPECT_EQ(Probe.Of(qrDispatch, effSetSampleRate)[0].Opt, 48000.0f);
  EXPECT_EQ(Probe.Of(qrDispatch, effSetBlockSize)[0].Value, 64);
  EXPECT_EQ(Probe.Of(qrDispatch, effSetBlockSizeAndSampleRate)[0].Value, 64);
  EXPECT_EQ(Probe.Of(qrDispatch, effSetBlockSizeAndSampleRate)[0].Opt, 48000.0f);
  EXPECT_EQ(Probe.Of(qrDispatch, effMainsChanged)[0].Value, 1);
  EXPECT_EQ(Host.GetVstTimeInfoPtr()->SampleRate, 48000.0);

  // Full scale reaches the plug-in as 32767 / 65536; 0.25 leaves as 16384.
  Chain.Left.SendRamp(32767, 1);
  Chain.Right.SendRamp(-32768, 1);
  Chain.Send(0, 63);
  const auto Blocks = Probe.Of(qrProcessReplacing);
  ASSERT_EQ(Blocks.size(), 1u);
  EXPECT_EQ(Blocks[0].SampleFrames, 64);
  EXPECT_EQ(Blocks[0].Precision, 32);
  EXPECT_FLOAT_EQ(static_cast<float>(Blocks[0].Input[0]), 32767.0f / 65536.0f);
  EXPECT_FLOAT_EQ(static_cast<float>(Blocks[0].Input[1]), -0.5f);
  ASSERT_EQ(Chain.Sink.Samples[0].size(), 64u);
  for (int32_t V : Chain.Sink.Samples[0]) ASSERT_EQ(V, 16384);
  // The plug-in reads the time record while processing.
  const auto Times = Probe.Of(qrHostCallback, audioMasterGetTime);
  ASSERT_FALSE(Times.empty());
  EXPECT_EQ(Times.back().Input[0], 48000.0);
  EXPECT_EQ(Times.back().Input[1], 1.0);

  // Out-of-range and non-finite plug-in output saturates or silences.
  Probe.Option("FixedOutput", 3.0);
  Chain.Send(0, 64);
  EXPECT_EQ(Chain.Sink.Samples[0].back(), 32767);
  Probe.Option("FixedOutput", -3.0);
  Chain.Send(0, 64);
  EXPECT_EQ(Chain.Sink.Samples[1].back(), -32768);
  Probe.Option("FixedOutput", std::numeric_limits<double>::infinity());
  Chain.Send(0, 64);
  EXPECT_EQ(Chain.Sink.Samples[1].back(), 32767);
  Chain.Stop();
  EXPECT_EQ(Chain.Sink.Count(poidStop), 2u);
  EXPECT_EQ(Host.GetVstTimeInfoPtr()->SamplePos, 256.0);
}

TEST(VstHost, GainChannelMapAndProgramsShapeTheSound) {
  TPlugInProbe Probe("qvtestvst2");
  TSRVSTHost Host;
  ASSERT_TRUE(Opened(Host, Probe.Path));
  Host.SetBufferSize(32);
  EXPECT_EQ(Host.GetNumPrograms(), kQvTestNumPrograms);
  EXPECT_EQ(Host.GetProgramNameIndexed(2), "Swapped");
  Host.SetProgram(2);
  EXPECT_EQ(Host.GetProgram(), 2);
  EXPECT_EQ(Host.GetProgramName(), "Swapped");
  Host.SetProgram(99);  // ignored
  EXPECT_EQ(Host.GetProgram(), 2);
  Host.SetParameter(qpGain, 0.25f);  // x 0.5
  EXPECT_FLOAT_EQ(Host.GetParameter(qpGain), 0.25f);
  EXPECT_EQ(Host.GetParameter(-1), 0.0f);
  Host.SetParameter(1000, 1.0f);  // ignored, no crash
  EXPECT_TRUE(Host.CanBeAutomated(qpGain));
  EXPECT_FALSE(Host.CanBeAutomated(qpFrozen));
  EXPECT_FALSE(Host.GetParameterName(qpGain).empty());

  TStereoChain Chain;
  Chain.Wire(Host);
  Chain.Start();
  Chain.Send(1000, 32);  // left 1000.., right -1000..
  ASSERT_EQ(Chain.Sink.Samples[0].size(), 32u);
  for (size_t I = 0; I < 32; ++I) {
    const int32_t L = 1000 + static_cast<int32_t>(I), R = -1000 + static_cast<int32_t>(I);
    // Halves of odd values are ties: they round to the even neighbour.
    EXPECT_EQ(Chain.Sink.Samples[0][I], std::nearbyint(R / 2.0)) << "swapped and halved, sample " << I;
    EXPECT_EQ(Chain.Sink.Samples[1][I], std::nearbyint(L / 2.0)) << "swapped and halved, sample " << I;
  }
  Chain.Stop();
}

TEST(VstHost, DisabledHostPassesThroughWithoutCallingThePlugIn) {
  TPlugInProbe Probe("qvtestvst2");
  TSRVSTHost Host;
  ASSERT_TRUE(Opened(Host, Probe.Path));
  Host.SetBufferSize(16);
  Host.SetEnabled(false);
  Host.SetParameter(qpGain, 0.0f);  // would silence the output if processed
  TStereoChain Chain;
  Chain.Wire(Host);
  Probe.Clear();
  Chain.Start();
  EXPECT_TRUE(Probe.Of(qrDispatch, effMainsChanged).empty()) << "no Resume when disabled";
  Chain.Send(5, 48);
  Chain.Stop();
  EXPECT_TRUE(Probe.Of(qrProcessReplacing).empty());
  ASSERT_EQ(Chain.Sink.Samples[0].size(), 48u);
  for (size_t I = 0; I < 48; ++I) {
    EXPECT_EQ(Chain.Sink.Samples[0][I], 5 + static_cast<int32_t>(I));
    EXPECT_EQ(Chain.Sink.Samples[1][I], -5 + static_cast<int32_t>(I));
  }
}

TEST(VstHost, AccumulatingAndDoublePrecisionPlugIns) {
  {
    // No effFlagsCanReplacing: outputs cleared, then the accumulating routine.
    TPlugInProbe Probe("qvtestvst2_accum");
    TSRVSTHost Host;
    ASSERT_TRUE(Opened(Host, Probe.Path));
    Host.SetBufferSize(8);
    TStereoChain Chain;
    Chain.Wire(Host);
    Chain.Start();
    for (int Block = 0; Block < 3; ++Block) Chain.Send(100, 8);
    Chain.Stop();
    EXPECT_EQ(Probe.Of(qrProcess).size(), 3u);
    EXPECT_TRUE(Probe.Of(qrProcessReplacing).empty());
    ASSERT_EQ(Chain.Sink.Samples[0].size(), 24u);
    for (size_t I = 0; I < 24; ++I)
      EXPECT_EQ(Chain.Sink.Samples[0][I], 100 + static_cast<int32_t>(I % 8)) << "no accumulation across blocks";
  }
  {
    // vstp64 with a plug-in that can: 64-bit blocks through the replacing routine.
    TPlugInProbe Probe("qvtestvst2_double");
    TSRVSTHost Host;
    ASSERT_TRUE(Opened(Host, Probe.Path));
    Host.SetBufferSize(8);
    Host.SetPrecision(TSRVSTPrecision::vstp64);
    TStereoChain Chain;
    Chain.Wire(Host);
    Probe.Clear();
    Chain.Start();
    EXPECT_TRUE(Host.GetDoublePrecision());
    ASSERT_EQ(Probe.Of(qrDispatch, effSetProcessPrecision).size(), 1u);
    EXPECT_EQ(Probe.Of(qrDispatch, effSetProcessPrecision)[0].Value, 1);
    Chain.Left.SendRamp(32767, 1);
    Chain.Right.SendRamp(3, 1);
    Chain.Send(0, 7);
    Chain.Stop();
    const auto Blocks = Probe.Of(qrProcessReplacing);
    ASSERT_EQ(Blocks.size(), 1u);
    EXPECT_TRUE(Probe.Of(qrProcessDoubleReplacing).empty()) << "the double routine is never called";
    EXPECT_EQ(Blocks[0].Precision, 64);
    EXPECT_EQ(Blocks[0].Input[0], 32767.0 / 65536.0) << "exact in 64 bits";
    EXPECT_EQ(Chain.Sink.Samples[0][0], 32767);
  }
  {
    // vstp64 with a plug-in that cannot: nothing is negotiated.
    TPlugInProbe Probe("qvtestvst2");
    TSRVSTHost Host;
    ASSERT_TRUE(Opened(Host, Probe.Path));
    Host.SetPrecision(TSRVSTPrecision::vstp64);
    Host.SetPanLawType(TSRVSTPanLawType::vstkEqualPowerPanLaw);
    TStereoChain Chain;
    Chain.Wire(Host);
    Probe.Clear();
    Chain.Start();
    EXPECT_FALSE(Host.GetDoublePrecision());
    EXPECT_TRUE(Probe.Of(qrDispatch, effSetProcessPrecision).empty());
    const auto Pan = Probe.Of(qrDispatch, effSetPanLaw);
    ASSERT_EQ(Pan.size(), 1u);
    EXPECT_EQ(Pan[0].Value, 1);
    EXPECT_EQ(Pan[0].Opt, 0.0f);
    Chain.Stop();
  }
}

TEST(VstHost, BypassPowerAndSurplusPins) {
  TPlugInProbe Probe("qvtestvst2");
  TSRVSTHost Host;
  ASSERT_TRUE(Opened(Host, Probe.Path));
  Probe.Clear();
  Host.SetBypass(true);
  Host.Suspend();
  Host.Resume();
  std::vector<TQvTestRecord> D;
  for (const auto& R : Probe.Of(qrDispatch))
    if (R.Opcode != effCanDo) D.push_back(R);  // the host asks "bypass" before sending it
  ASSERT_EQ(D.size(), 3u);
  EXPECT_EQ(D[0].Opcode, effSetBypass);
  EXPECT_EQ(D[0].Value, 1);
  EXPECT_EQ(D[1].Opcode, effMainsChanged);
  EXPECT_EQ(D[1].Value, 1) << "Suspend sends the same value as Resume";
  EXPECT_EQ(D[2].Value, 1);
  Host.SetBypass(false);

  // A third input pin beyond the plug-in's two is not read; a third output
  // pin receives nothing.
  Host.SetBufferSize(4);
  Host.GetInputPins().SetCount(3);
  Host.GetOutputPins().SetCount(3);
  TStereoChain Chain;
  Chain.Wire(Host);
  TTestSource Extra(nullptr, 1, 16, 48000);
  TRecordingSink ExtraSink(nullptr, 1);
  ASSERT_TRUE(Extra.Output.Connect(*Host.GetInputPin(2)));
  ASSERT_TRUE(Host.GetOutputPin(2)->Connect(*ExtraSink.Inputs[0]));
  Chain.Start();
  Extra.Start();
  Extra.SendRamp(7000, 4);
  Chain.Send(1, 4);
  EXPECT_EQ(Chain.Sink.Samples[0], (std::vector<int32_t>{1, 2, 3, 4}));
  EXPECT_TRUE(ExtraSink.Samples[0].empty());
  Chain.Stop();
  Extra.Stop();
}

TEST(VstHost, SteadyStateBlocksAllocateNothing) {
  TSRVSTHost Host;
  ASSERT_TRUE(Opened(Host, PlugInPath("qvtestvst2")));
  Host.SetBufferSize(256);
  TTestSource Left(nullptr, 1, 16, 48000), Right(nullptr, 1, 16, 48000);
  TSRVSTHost* H = &Host;
  ASSERT_TRUE(Left.Output.Connect(*H->GetInputPin(0)));
  ASSERT_TRUE(Right.Output.Connect(*H->GetInputPin(1)));
  // Outputs unconnected: the host's own path is what is measured.
  Left.Start();
  Right.Start();
  auto LB = TSRAudioBuffer::Create(1, 256, 16, 48000), RB = TSRAudioBuffer::Create(1, 256, 16, 48000);
  for (int I = 0; I < 10; ++I) {
    Left.Output.SubmitBuffer(LB);
    Right.Output.SubmitBuffer(RB);
  }
  const uint64_t Before = HeapAllocationCount();
  for (int I = 0; I < 1000; ++I) {
    Left.Output.SubmitBuffer(LB);
    Right.Output.SubmitBuffer(RB);
  }
  EXPECT_EQ(HeapAllocationCount() - Before, 0u);
  Left.Stop();
  Right.Stop();
}

TEST(VstHost, HostsOnSeveralThreadsLoadAndProcessIndependently) {
  // Entry points are serialised process-wide; each host's callbacks reach
  // that host through the effect record. The test holds both libraries so
  // they stay loaded while hosts on different threads come and go.
  TPlugInProbe Main("qvtestvst2"), Both("qvtestvst2_both");
  std::vector<std::thread> Threads;
  std::atomic<int> Good{0};
  for (int T = 0; T < 4; ++T)
    Threads.emplace_back([&, T] {
      TSRVSTHost Host;
      Host.SetHostVstVersion(2400 + T);
      Host.SetFileName(PlugInPath(T % 2 ? "qvtestvst2" : "qvtestvst2_both"));
      if (!Host.Open()) return;
      Host.SetBufferSize(32);
      TStereoChain Chain;
      Chain.Wire(Host);
      Chain.Start();
      for (int I = 0; I < 50; ++I) Chain.Send(I, 32);
      Chain.Stop();
      if (Chain.Sink.Samples[0].size() == 50u * 32u && Host.GetHostVstVersion() == 2400 + T) ++Good;
    });
  for (auto& T : Threads) T.join();
  EXPECT_EQ(Good.load(), 4);
}
