// TSRVSTHost against the project's test plug-ins, loaded from their library
// files through their real entry points. The plug-ins record every call the
// host makes, so the tests check the exact sequences.
#include <gtest/gtest.h>

#include <atomic>
#include <cfenv>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <thread>

#include "platform/Library.h"
#include "testplugins/vst2/Qvtestplugin.h"
#include "tests/support/Alloccounter.h"
#include "tests/support/Testcomponents.h"
#include "tests/vst2/Vst2testplugins.h"
#include "vst2/Srvsthost.h"

using namespace Quorvel;
using namespace Quorvel::Testing;

namespace {

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

// Sets the test plug-in's environment knobs for the scope.
class TPlugInEnvironment {
 public:
  explicit TPlugInEnvironment(const std::string& Options) { Set(Options.c_str()); }
  ~TPlugInEnvironment() { Set(nullptr); }

 private:
  static void Set(const char* Value) {
#ifdef _WIN32
    _putenv_s(kQvTestOptionsVariable, Value ? Value : "");
#else
    if (Value)
      setenv(kQvTestOptionsVariable, Value, 1);
    else
      unsetenv(kQvTestOptionsVariable);
#endif
  }
};

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
    EXPECT_EQ(std::string(X.what()), "File " + Missing + " does not exist - 4294967295 - FFFFFFFF");
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
  TPlugInProbe Probe("qvtestvst2");
  using F = TSRVSTPlugInSuportFlag;
  const std::vector<F> EditorMembers{F::vstpsSendVstEvents,       F::vstpsSendVstMidiEvent,
                                     F::vstpsReceiveVstEvents,    F::vstpsReceiveVstMidiEvent,
                                     F::vstpsReceiveVstTimeInfo, F::vstpsOffline};
  {
    TSRVSTHost Host;
    ASSERT_TRUE(Opened(Host, Probe.Path));
    const TSRVSTPlugInSuports S = Host.GetPlugInSuports();
    EXPECT_TRUE(S.Contains(F::vstpsCanReplacing));
    EXPECT_FALSE(S.Contains(F::vstpsCanDoubleReplacing));
    EXPECT_FALSE(S.Contains(F::vstpsIsSynth));
    // Without an editor only the plug-in's effCanDo answers of 1 count.
    EXPECT_TRUE(S.Contains(F::vstpsReceiveVstEvents));
    EXPECT_TRUE(S.Contains(F::vstpsReceiveVstMidiEvent));
    EXPECT_TRUE(S.Contains(F::vstpsBypass));
    EXPECT_FALSE(S.Contains(F::vstpsSendVstEvents));
    EXPECT_FALSE(S.Contains(F::vstpsOffline));
    EXPECT_FALSE(S.Contains(F::vstpsMidiProgramNames));
  }
  {
    // The editor flag brings members 10..15 whatever effCanDo says; 16 and
    // 17 still come from effCanDo only.
    Probe.Option("HasEditor", 1);
    Probe.Option("CanDoBypass", -1);
    TSRVSTHost Host;
    ASSERT_TRUE(Opened(Host, Probe.Path));
    ASSERT_TRUE(Host.GetEffectFlags().Contains(TEffFlag::effFlagsHasEditor));
    const TSRVSTPlugInSuports S = Host.GetPlugInSuports();
    for (F Member : EditorMembers) EXPECT_TRUE(S.Contains(Member)) << static_cast<int>(Member);
    EXPECT_FALSE(S.Contains(F::vstpsMidiProgramNames));
    EXPECT_FALSE(S.Contains(F::vstpsBypass));
    EXPECT_FALSE(S.Contains(F::vstpsHasVu));
  }

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

TEST(VstHost, FewerInputPinsThanPlugInInputsLeaveTheChannelSilent) {
  TPlugInProbe Probe("qvtestvst2");
  TSRVSTHost Host;
  ASSERT_TRUE(Opened(Host, Probe.Path));
  Host.SetBufferSize(4);
  Host.GetInputPins().SetCount(1);
  // On the heap: the thread checker never sees a recursive mutex destroyed,
  // so locks of earlier tests at the same stack addresses would look like these.
  auto Left = std::make_unique<TTestSource>(nullptr, 1, 16, 48000);
  auto Sink = std::make_unique<TRecordingSink>(nullptr, 2);
  ASSERT_TRUE(Left->Output.Connect(*Host.GetInputPin(0)));
  ASSERT_TRUE(Host.GetOutputPin(0)->Connect(*Sink->Inputs[0]));
  ASSERT_TRUE(Host.GetOutputPin(1)->Connect(*Sink->Inputs[1]));
  Left->Start();
  Left->SendRamp(1000, 8);
  Left->Stop();
  const auto Blocks = Probe.Of(qrProcessReplacing);
  ASSERT_EQ(Blocks.size(), 2u);
  for (const auto& B : Blocks) {
    EXPECT_EQ(B.Count, 2) << "both channels are passed";
    EXPECT_EQ(B.Input[1], 0.0) << "the channel without a pin stays silent";
  }
  EXPECT_EQ(Sink->Samples[0], (std::vector<int32_t>{1000, 1001, 1002, 1003, 1004, 1005, 1006, 1007}));
  EXPECT_EQ(Sink->Samples[1], std::vector<int32_t>(8, 0));
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
  constexpr int kLoads = 20;
  for (int T = 0; T < 4; ++T)
    Threads.emplace_back([&, T] {
      const std::string Path = PlugInPath(T % 2 ? "qvtestvst2" : "qvtestvst2_both");
      // Loads and unloads, racing the other threads' entry-point calls.
      for (int I = 0; I < kLoads; ++I) {
        TSRVSTHost Host;
        if (!Host.Open(Path)) return;
      }
      TSRVSTHost Host;
      Host.SetHostVstVersion(2400 + T);
      if (!Host.Open(Path)) return;
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
  // No entry-point call began while another one of the same file ran.
  for (const TPlugInProbe* Probe : {&Main, &Both}) {
    const auto Entries = Probe->Of(qrEntry);
    EXPECT_EQ(Entries.size(), 2u * (kLoads + 1));
    for (const auto& R : Entries) ASSERT_EQ(R.Concurrent, 1) << Probe->Path;
  }
}

TEST(VstHost, CallbacksFromThePlugInsOwnThreadWhileTheHostHoldsItsLock) {
  // effOpen and effClose each start a thread that asks the host every
  // lock-free opcode and wait for it, while the host holds its lock: the
  // answers come without the lock, so neither Open nor Close deadlocks.
  TPlugInProbe Probe("qvtestvst2");
  Probe.Option("ThreadedCallbacks", 1);
  TSRVSTHost Host;
  Host.SetBufferSize(128);
  Host.SetSampleRate(32000.0);
  Host.SetInputLatency(11);
  Host.SetOutputLatency(13);
  Host.SetNumberAutomatable(3);
  Host.SetParameterQuantization(-5);
  Host.SetHostLanguage(TSRVSTHostLanguage::vstlLangGerman);
  Host.SetHostVendorString("Vendor Q");
  Host.SetHostProductString("Product Q");
  Host.SetAutoIdle(true);
  std::atomic<int> IOChanged{0}, NeedIdle{0}, Sized{0};
  Host.OnIOChanged = [&](TWBComponent*) { ++IOChanged; };
  Host.OnNeedIdle = [&](TWBComponent*) { ++NeedIdle; };
  Host.OnSizeWindow = [&](TSRVSTHost*, int32_t Width, int32_t Height) {
    EXPECT_EQ(Width, 300);
    EXPECT_EQ(Height, 200);
    ++Sized;
  };

  auto CheckAnswers = [&](const char* When) {
    SCOPED_TRACE(When);
    const auto Records = Probe.Records();
    std::vector<TQvTestRecord> Asked;
    for (const auto& R : Records)
      if (R.Kind == qrHostCallback && R.Thread != Records[0].Thread) Asked.push_back(R);
    ASSERT_EQ(Asked.size(), std::size(kQvTestThreadedOpcodes));
    auto Answer = [&](int32_t Opcode) -> const TQvTestRecord& {
      for (const auto& R : Asked)
        if (R.Opcode == Opcode) return R;
      ADD_FAILURE() << "not asked: " << Opcode;
      return Asked[0];
    };
    EXPECT_EQ(Answer(audioMasterGetBlockSize).Result, 128);
    EXPECT_EQ(Answer(audioMasterGetSampleRate).Result, 32000);
    EXPECT_EQ(Answer(audioMasterGetInputLatency).Result, 11);
    EXPECT_EQ(Answer(audioMasterGetOutputLatency).Result, 13);
    EXPECT_EQ(Answer(audioMasterGetNumAutomatableParameters).Result, 3);
    EXPECT_EQ(Answer(audioMasterGetParameterQuantization).Result, -5);
    EXPECT_EQ(Answer(audioMasterGetLanguage).Result, 2);
    EXPECT_EQ(Answer(audioMasterTempoAt).Result, 1200000);
    EXPECT_STREQ(Answer(audioMasterGetVendorString).Text, "Vendor Q");
    EXPECT_STREQ(Answer(audioMasterGetProductString).Text, "Product Q");
  };

  ASSERT_TRUE(Host.Open(Probe.Path));
  CheckAnswers("effOpen");
  EXPECT_EQ(IOChanged.load(), 1);
  EXPECT_EQ(NeedIdle.load(), 1);
  EXPECT_EQ(Sized.load(), 1);
  EXPECT_EQ(Probe.Of(qrDispatch, effIdle).size(), 1u) << "AutoIdle idles the plug-in before OnNeedIdle";
  EXPECT_EQ(Host.GetOutputSampleRate(), 22050.0);
  EXPECT_EQ(Host.GetVstTimeInfoPtr()->Tempo, 133.0) << "the time update made while Open held the lock";
  EXPECT_EQ(Host.GetInputPins().Count(), 2u);

  Probe.Clear();
  Host.Close();
  CheckAnswers("effClose");
  EXPECT_EQ(IOChanged.load(), 2);
}

TEST(VstHost, BypassIsThePlugInsWhenItClaimsItElseTheHosts) {
  for (int32_t CanDo : {1, 0, -1}) {
    SCOPED_TRACE(CanDo);
    TPlugInProbe Probe("qvtestvst2");
    Probe.Option("CanDoBypass", CanDo);
    TSRVSTHost Host;
    ASSERT_TRUE(Opened(Host, Probe.Path));
    Host.SetBufferSize(8);
    Host.SetParameter(qpGain, 0.0f);  // processed audio would be silent
    Probe.Clear();
    Host.SetBypass(true);
    TStereoChain Chain;
    Chain.Wire(Host);
    Chain.Start();
    Chain.Send(100, 16);
    const bool PlugIn = CanDo == 1;
    EXPECT_EQ(Probe.Of(qrDispatch, effSetBypass).size(), PlugIn ? 1u : 0u) << "effSetBypass only to claimants";
    EXPECT_EQ(Probe.Of(qrProcessReplacing).size(), PlugIn ? 2u : 0u);
    ASSERT_EQ(Chain.Sink.Samples[0].size(), 16u);
    for (size_t I = 0; I < 16; ++I) {
      EXPECT_EQ(Chain.Sink.Samples[0][I], 100 + static_cast<int32_t>(I));
      EXPECT_EQ(Chain.Sink.Samples[1][I], -100 + static_cast<int32_t>(I));
    }
    // Bypass off: the plug-in processes again (silence at gain 0).
    Host.SetBypass(false);
    Chain.Send(100, 8);
    EXPECT_EQ(Chain.Sink.Samples[0].back(), 0);
    Chain.Stop();
  }
}

TEST(VstHost, EnablingMidStreamPowersThePlugInOnBeforeItProcesses) {
  TPlugInProbe Probe("qvtestvst2");
  TSRVSTHost Host;
  ASSERT_TRUE(Opened(Host, Probe.Path));
  Host.SetBufferSize(8);
  Host.SetEnabled(false);
  TStereoChain Chain;
  Chain.Wire(Host);
  Probe.Clear();
  Chain.Start();
  Chain.Send(1, 8);
  EXPECT_TRUE(Probe.Of(qrDispatch, effMainsChanged).empty());
  Host.SetEnabled(true);
  Chain.Send(1, 16);
  Host.SetEnabled(false);
  Host.SetEnabled(true);
  Chain.Send(1, 8);
  Chain.Stop();
  const auto Records = Probe.Records();
  size_t Mains = Records.size(), FirstProcess = Records.size(), MainsCount = 0;
  for (size_t I = 0; I < Records.size(); ++I) {
    if (Records[I].Kind == qrDispatch && Records[I].Opcode == effMainsChanged) {
      ++MainsCount;
      Mains = std::min(Mains, I);
      EXPECT_EQ(Records[I].Value, 1);
    }
    if (Records[I].Kind == qrProcessReplacing) FirstProcess = std::min(FirstProcess, I);
  }
  EXPECT_EQ(MainsCount, 1u) << "once per stream";
  EXPECT_LT(Mains, FirstProcess);
  EXPECT_EQ(Probe.Of(qrProcessReplacing).size(), 3u);
}

TEST(VstHost, ChannelCountsAreCheckedAtFullWidthAndGrowthMidStreamIsCovered) {
  TPlugInProbe Probe("qvtestvst2");
  {
    // Absurd or negative counts are refused with a report, never truncated.
    struct TCase {
      const char* Knob;
      double Count;
      const char* Message;
    };
    for (const TCase& C : {TCase{"NumOutputs", 65537, "Plug-in declares 65537 outputs, allowed are 0 to 4096"},
                           TCase{"NumInputs", -3, "Plug-in declares -3 inputs, allowed are 0 to 4096"},
                           TCase{"NumOutputs", 2147483647.0,
                                 "Plug-in declares 2147483647 outputs, allowed are 0 to 4096"}}) {
      Probe.Option("Reset", 0);
      Probe.Option(C.Knob, C.Count);
      Probe.Clear();
      TSRVSTHost Host;
      TErrorLog Log;
      Log.Attach(Host);
      EXPECT_FALSE(Host.Open(Probe.Path));
      EXPECT_FALSE(Host.GetOpened());
      ASSERT_EQ(Log.Errors.size(), 1u);
      EXPECT_EQ(Log.Errors[0].first, C.Message);
      EXPECT_EQ(Log.Errors[0].second, static_cast<int32_t>(C.Count));
      EXPECT_EQ(Host.GetOutputPins().Count(), 0u);
      EXPECT_EQ(Probe.Dispatches(), std::vector<int32_t>{effClose}) << "the effect is freed, never opened";
    }
    Probe.Option("Reset", 0);
    // Without a handler the report is raised.
    Probe.Option("NumOutputs", 65537);
    TSRVSTHost Bare;
    EXPECT_THROW(Bare.Open(Probe.Path), EWBException);
    Probe.Option("Reset", 0);
  }

  // Growth while streaming: the plug-in gets a pointer for every channel it
  // declares; the pins and arrays follow when no stream runs.
  TSRVSTHost Host;
  ASSERT_TRUE(Opened(Host, Probe.Path));
  TErrorLog Log;
  Log.Attach(Host);
  std::vector<std::string> Warnings;
  Host.OnWarning = [&](TWBComponent*, const std::string& Message, int32_t) { Warnings.push_back(Message); };
  int IOChanged = 0;
  Host.OnIOChanged = [&](TWBComponent*) { ++IOChanged; };
  Host.SetBufferSize(8);
  TStereoChain Chain;
  Chain.Wire(Host);
  Chain.Start();
  PVSTEffect E = Host.GetEffect();
  E->numInputs = 4;
  E->numOutputs = 5;
  Probe.Call(E, audioMasterIOChanged);
  EXPECT_EQ(IOChanged, 1);
  EXPECT_EQ(Host.GetOutputPins().Count(), 2u) << "a running stream keeps its pins";
  Probe.Clear();
  Chain.Send(10, 8);
  const auto Blocks = Probe.Of(qrProcessReplacing);
  ASSERT_EQ(Blocks.size(), 1u);
  EXPECT_EQ(Blocks[0].Count, 4);
  EXPECT_EQ(Blocks[0].Concurrent, 1) << "every declared channel has a pointer";
  EXPECT_EQ(Chain.Sink.Samples[0], (std::vector<int32_t>{10, 11, 12, 13, 14, 15, 16, 17}));
  Chain.Stop();

  Probe.Call(E, audioMasterIOChanged);
  EXPECT_EQ(Host.GetInputPins().Count(), 4u);
  EXPECT_EQ(Host.GetOutputPins().Count(), 5u);
  E->numOutputs = 65537;
  Probe.Call(E, audioMasterIOChanged);
  EXPECT_EQ(Host.GetOutputPins().Count(), 5u) << "an absurd count changes nothing";
  ASSERT_EQ(Warnings.size(), 1u);
  EXPECT_EQ(Warnings[0], "Plug-in declares 65537 outputs, allowed are 0 to 4096");
  E->numOutputs = 5;
  EXPECT_TRUE(Log.Errors.empty());
}

TEST(VstHost, FloatingPointControlIsResetForEveryCallInAndOut) {
  TPlugInProbe Probe("qvtestvst2");
  Probe.Option("DirtyFpu", 1);  // the plug-in calls back with rounding upwards
  TSRVSTHost Host;
  std::vector<int> HandlerModes;
  Host.OnUpdateDisplay = [&](TWBComponent*) { HandlerModes.push_back(std::fegetround()); };
  Host.OnNeedIdle = [&](TWBComponent*) { HandlerModes.push_back(std::fegetround()); };
  // The host's caller leaves the rounding mode changed as well.
  ASSERT_EQ(std::fesetround(FE_UPWARD), 0);
  const bool Opened = Host.Open(Probe.Path);
  Host.SetBufferSize(8);
  Host.SetParameter(qpGain, 0.3f);
  Host.GetParameter(qpGain);
  Host.GetEffectName();
  Probe.Call(Host.GetEffect(), audioMasterUpdateDisplay);
  Probe.Call(Host.GetEffect(), audioMasterNeedIdle);
  TStereoChain Chain;
  Chain.Wire(Host);
  Chain.Start();
  ASSERT_EQ(std::fesetround(FE_UPWARD), 0);
  Chain.Send(3, 16);
  ASSERT_EQ(std::fesetround(FE_UPWARD), 0);
  Chain.Stop();
  std::fesetround(FE_TONEAREST);
  ASSERT_TRUE(Opened);

  EXPECT_EQ(HandlerModes, (std::vector<int>{FE_TONEAREST, FE_TONEAREST}));
  size_t Calls = 0;
  const auto Records = Probe.Records();
  for (const auto& R : Records) {
    if (R.Kind == qrHostCallback) continue;  // the plug-in's own mode when calling
    ++Calls;
    EXPECT_EQ(R.Rounding, FE_TONEAREST) << "record kind " << R.Kind << " opcode " << R.Opcode;
  }
  EXPECT_GT(Calls, 10u);
  EXPECT_EQ(Probe.Of(qrProcessReplacing).size(), 2u);
}

TEST(VstHost, SampleRateAndBlockSizeReachThePlugInFromItsFirstCall) {
  // The command-line sequence: rate and block known before the plug-in is
  // loaded; one load, one entry-point call, one effOpen.
  TPlugInProbe Probe("qvtestvst2");
  TSRVSTHost Host;
  Host.SetSampleRate(44099.5);
  Host.SetBufferSize(300);
  ASSERT_TRUE(Host.Open(Probe.Path));
  EXPECT_TRUE(Host.Open(Probe.Path)) << "the same file again changes nothing";
  const auto Rates = Probe.Of(qrHostCallback, audioMasterGetSampleRate);
  const auto Blocks = Probe.Of(qrHostCallback, audioMasterGetBlockSize);
  ASSERT_EQ(Rates.size(), 2u);  // during the entry point and during effOpen
  ASSERT_EQ(Blocks.size(), 2u);
  EXPECT_EQ(Rates[0].Effect, 0u) << "asked before the plug-in has an effect record";
  for (const auto& R : Rates) EXPECT_EQ(R.Result, 44100) << "the rate rounded to the nearest whole number";
  for (const auto& R : Blocks) EXPECT_EQ(R.Result, 300);
  const auto D = Probe.Dispatches();
  ASSERT_GE(D.size(), 3u);
  EXPECT_EQ(D[0], effOpen);
  EXPECT_EQ(D[1], effSetSampleRate);
  EXPECT_EQ(D[2], effSetBlockSize);
  EXPECT_EQ(Probe.Of(qrDispatch, effSetSampleRate)[0].Opt, 44099.5f);
  EXPECT_EQ(Probe.Of(qrDispatch, effSetBlockSize)[0].Value, 300);

  // Rounding of other rates, answered from any thread without the lock.
  for (const std::pair<double, intptr_t>& Rate : {std::pair<double, intptr_t>{22050.4, 22050}, {96000.0, 96000},
                                                  {8000.5, 8001}, {0.0, 8001}, {-5.0, 8001}}) {
    Host.SetSampleRate(Rate.first);
    EXPECT_EQ(Probe.Call(Host.GetEffect(), audioMasterGetSampleRate), Rate.second) << Rate.first;
  }

  {
    // Processing at the file's rate and block: still the one instance.
    TStereoChain Chain;
    Chain.Wire(Host);
    Chain.Start();
    EXPECT_EQ(Host.GetSampleRate(), 48000.0) << "the stream brings its rate";
    Host.SetSampleRate(1000.0);
    EXPECT_EQ(Host.GetSampleRate(), 48000.0) << "and keeps it while it runs";
    Chain.Send(0, 300);
    Chain.Stop();
  }
  EXPECT_EQ(Probe.Of(qrEntry).size(), 1u);
  EXPECT_EQ(Probe.Of(qrDispatch, effOpen).size(), 1u);
  EXPECT_EQ(Probe.Of(qrProcessReplacing).size(), 1u);

  // Another file: the first plug-in is closed, the other loaded once.
  TPlugInProbe Mono("qvtestvst2_mono");
  ASSERT_TRUE(Host.Open(Mono.Path));
  EXPECT_EQ(Probe.Of(qrDispatch, effClose).size(), 1u);
  EXPECT_EQ(Mono.Of(qrEntry).size(), 1u);
  EXPECT_EQ(Host.GetInputPins().Count(), 1u);
  EXPECT_EQ(Host.GetFileName(), Mono.Path);
}

TEST(VstHost, IdleAndResizeRequests) {
  TPlugInProbe Probe("qvtestvst2");
  TSRVSTHost Host;
  ASSERT_TRUE(Opened(Host, Probe.Path));
  PVSTEffect E = Host.GetEffect();
  // audioMasterNeedIdle: the event fires; with AutoIdle the plug-in also gets effIdle.
  int NeedIdle = 0;
  Host.OnNeedIdle = [&](TWBComponent*) { ++NeedIdle; };
  Probe.Clear();
  Probe.Call(E, audioMasterNeedIdle);
  EXPECT_TRUE(Probe.Of(qrDispatch, effIdle).empty());
  Host.SetAutoIdle(true);
  Probe.Call(E, audioMasterNeedIdle);
  EXPECT_EQ(Probe.Of(qrDispatch, effIdle).size(), 1u);
  EXPECT_EQ(NeedIdle, 2);

  // Resize requests reach OnSizeWindow, except from the two vendors whose
  // editors size themselves.
  std::vector<std::pair<int32_t, int32_t>> Sizes;
  Host.OnSizeWindow = [&](TSRVSTHost*, int32_t W, int32_t H) { Sizes.emplace_back(W, H); };
  for (int32_t Vendor : {0, 1, 2}) {
    Probe.Option("Vendor", Vendor);
    EXPECT_EQ(Probe.Call(E, audioMasterSizeWindow, 400 + Vendor, 300), 0);
  }
  EXPECT_EQ(Host.GetVendorString(), kQvTestVendorWusik);
  EXPECT_EQ(Sizes, (std::vector<std::pair<int32_t, int32_t>>{{400, 300}}));
}

TEST(VstHost, ReportedLatencyAndTailFromTheEnvironment) {
  // Knobs set the way another process sets them; the plug-in's audio really
  // is late by the latency it reports.
  TPlugInEnvironment Environment("InitialDelay=5,TailSize=33");
  TPlugInProbe Probe("qvtestvst2");
  TSRVSTHost Host;
  ASSERT_TRUE(Host.Open(Probe.Path));
  EXPECT_EQ(Host.GetInitialDelay(), 5);
  EXPECT_EQ(Host.GetTailSize(), 33);
  Host.SetBufferSize(8);
  TStereoChain Chain;
  Chain.Wire(Host);
  Chain.Start();
  Chain.Send(100, 16);
  Chain.Stop();
  ASSERT_EQ(Chain.Sink.Samples[0].size(), 16u);
  for (size_t I = 0; I < 16; ++I)
    EXPECT_EQ(Chain.Sink.Samples[0][I], I < 5 ? 0 : 100 + static_cast<int32_t>(I) - 5) << I;
}
