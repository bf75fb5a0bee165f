// The VST 2 test plug-ins on their own: each library loaded through the
// platform loader and started through its entry point with a small callback
// of the test's, so that the host's tests can rely on what the fixtures do.
#include "testplugins/vst2/Qvtestplugin.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "platform/Library.h"

namespace Quorvel {
namespace {

struct THostCall {
  PVSTEffect Effect;
  int32_t Opcode;
};
std::vector<THostCall> GHostCalls;
TVstTimeInfo GTimeInfo{};
intptr_t GTimeAnswer = 0;

intptr_t TestHost(PVSTEffect Effect, int32_t Opcode, int32_t Index, intptr_t Value, void* Ptr, float Opt) {
  GHostCalls.push_back({Effect, Opcode});
  switch (Opcode) {
    case audioMasterVersion: return 2400;
    case audioMasterGetSampleRate: return 48000;
    case audioMasterGetBlockSize: return 256;
    case audioMasterCanDo: return std::strcmp(static_cast<const char*>(Ptr), "sendVstTimeInfo") == 0;
    case audioMasterGetTime: return GTimeAnswer;
    case audioMasterGetVendorString: std::strcpy(static_cast<char*>(Ptr), "Smoke"); return 1;
    default: return 0;
  }
}

// One plug-in library, loaded for the test, with its test functions.
class TPlugLibrary {
 public:
  explicit TPlugLibrary(const char* Path) {
    unsigned Code = 0;
    FModule = Platform::LoadCodeLibrary(Path, FError, Code);
    if (!FModule) return;
    FGetRecords = Get<TQvTestGetRecordsFunc>(kQvTestGetRecordsName);
    FSetOption = Get<TQvTestSetOptionFunc>(kQvTestSetOptionName);
    CallHost = Get<TQvTestCallHostFunc>(kQvTestCallHostName);
    if (auto Clear = Get<TQvTestClearRecordsFunc>(kQvTestClearRecordsName)) Clear();
    if (FSetOption) FSetOption("Reset", 0);
  }
  ~TPlugLibrary() { Platform::FreeCodeLibrary(FModule); }
  TPlugLibrary(const TPlugLibrary&) = delete;
  TPlugLibrary& operator=(const TPlugLibrary&) = delete;

  bool Loaded() const { return FModule && FGetRecords && FSetOption && CallHost; }
  const std::string& Error() const { return FError; }
  template <typename F>
  F Get(const char* Name) const {
    return reinterpret_cast<F>(Platform::GetLibrarySymbol(FModule, Name));
  }
  PVSTEffect Start(const char* Entry) const {
    GHostCalls.clear();
    const auto Main = Get<TMainProc>(Entry);
    return Main ? Main(&TestHost) : nullptr;
  }
  std::vector<TQvTestRecord> Records() const {
    const TQvTestRecord* First = nullptr;
    const int32_t Count = FGetRecords(&First);
    return {First, First + Count};
  }
  void SetOption(const char* Name, double Value) const { EXPECT_EQ(FSetOption(Name, Value), 1) << Name; }

  TQvTestCallHostFunc CallHost = nullptr;

 private:
  Platform::TModuleHandle FModule = nullptr;
  std::string FError;
  TQvTestGetRecordsFunc FGetRecords = nullptr;
  TQvTestSetOptionFunc FSetOption = nullptr;
};

intptr_t Dispatch(PVSTEffect Effect, int32_t Opcode, int32_t Index = 0, intptr_t Value = 0, void* Ptr = nullptr,
                  float Opt = 0.0f) {
  return Effect->Dispatcher(Effect, Opcode, Index, Value, Ptr, Opt);
}

std::string Text(PVSTEffect Effect, int32_t Opcode, int32_t Index = 0) {
  char Buffer[256] = {};
  Dispatch(Effect, Opcode, Index, 0, Buffer);
  return Buffer;
}

uint64_t Address(const void* Pointer) { return reinterpret_cast<uintptr_t>(Pointer); }

// Two channels of four frames through the replacing routine.
template <typename T>
struct TBlock {
  T In[2][4] = {{T(32767.0 / 65536.0), 0.5, -0.5, 0}, {0.25, 0.125, -0.25, 1}};
  T Out[2][4] = {};
  T* Inputs[2] = {In[0], In[1]};
  T* Outputs[2] = {Out[0], Out[1]};
};

TEST(Qvtestplugin, MainPluginAnswersProcessesRecordsAndCallsBack) {
  TPlugLibrary Lib(QV_TESTVST2_MAIN);
  ASSERT_TRUE(Lib.Loaded()) << Lib.Error();
  EXPECT_EQ(Lib.Get<void*>("main"), nullptr);
  PVSTEffect Effect = Lib.Start("VSTPluginMain");
  ASSERT_NE(Effect, nullptr);

  EXPECT_EQ(Effect->Magic, FourCharToLong('V', 's', 't', 'P'));
  EXPECT_EQ(Effect->UniqueID, kQvTestUniqueId);
  EXPECT_EQ(Effect->Version, kQvTestVersion);
  EXPECT_EQ(Effect->EffectFlags, TEffFlags{TEffFlag::effFlagsCanReplacing});
  EXPECT_EQ(Effect->numInputs, 2);
  EXPECT_EQ(Effect->numOutputs, 2);
  EXPECT_EQ(Effect->numParams, 3);
  EXPECT_EQ(Effect->numPrograms, kQvTestNumPrograms);
  EXPECT_EQ(Effect->InitialDelay, kQvTestInitialDelay);
  EXPECT_NE(Effect->ProcessReplacing, nullptr);
  EXPECT_EQ(Effect->ProcessDoubleReplacing, nullptr);

  // The entry point asked for the host's version before any effect existed;
  // effOpen asks two capabilities, the sample rate and the block size.
  Dispatch(Effect, effOpen);
  auto Records = Lib.Records();
  ASSERT_EQ(Records.size(), 7u);
  EXPECT_EQ(Records[0].Kind, qrEntry);
  EXPECT_EQ(Records[0].Opcode, qeVSTPluginMain);
  EXPECT_EQ(Records[0].Result, static_cast<int64_t>(Address(Effect)));
  EXPECT_EQ(Records[1].Kind, qrHostCallback);
  EXPECT_EQ(Records[1].Opcode, audioMasterVersion);
  EXPECT_EQ(Records[1].Effect, 0u);
  EXPECT_EQ(Records[1].Result, 2400);
  EXPECT_EQ(Records[2].Kind, qrDispatch);
  EXPECT_EQ(Records[2].Opcode, effOpen);
  EXPECT_EQ(Records[2].Effect, Address(Effect));
  EXPECT_EQ(std::string(Records[3].Text), "sendVstTimeInfo");
  EXPECT_EQ(Records[3].Result, 1);
  EXPECT_EQ(std::string(Records[4].Text), "sizeWindow");
  EXPECT_EQ(Records[4].Result, 0);
  EXPECT_EQ(Records[5].Opcode, audioMasterGetSampleRate);
  EXPECT_EQ(Records[5].Result, 48000);
  EXPECT_EQ(Records[6].Opcode, audioMasterGetBlockSize);
  EXPECT_EQ(Records[6].Result, 256);
  ASSERT_EQ(GHostCalls.size(), 5u);
  EXPECT_EQ(GHostCalls[0].Effect, nullptr);
  EXPECT_EQ(GHostCalls[4].Effect, Effect);

  // Fixed answers.
  EXPECT_EQ(Dispatch(Effect, effGetVstVersion), kQvTestVstVersion);
  EXPECT_EQ(Dispatch(Effect, effCanBeAutomated, qpGain), 1);
  EXPECT_EQ(Dispatch(Effect, effCanBeAutomated, qpFrozen), 0);
  EXPECT_EQ(Dispatch(Effect, effCanDo, 0, 0, const_cast<char*>("bypass")), 1);
  EXPECT_EQ(Dispatch(Effect, effCanDo, 0, 0, const_cast<char*>("noSuchThing")), -1);
  EXPECT_EQ(Dispatch(Effect, effSetProcessPrecision, 0, pp32), 1);
  EXPECT_EQ(Dispatch(Effect, effSetProcessPrecision, 0, pp64), 0);
  EXPECT_EQ(Text(Effect, effGetEffectName), kQvTestEffectName);
  EXPECT_EQ(Text(Effect, effGetParamName, qpChannelMap), "Channel Map");
  EXPECT_EQ(Text(Effect, effGetParamDisplay, qpGain), "1.000");
  TVstPinProperties Pin{};
  EXPECT_EQ(Dispatch(Effect, effGetInputProperties, 1, 0, &Pin), 1);
  EXPECT_EQ(std::string(Pin.Caption), "Input 2");
  EXPECT_TRUE(Pin.Flags.Contains(TVstPinPropertiesFlag::vppIsStereo));
  EXPECT_EQ(Dispatch(Effect, effGetOutputProperties, 2, 0, &Pin), 0);
  char Name[64] = {};
  EXPECT_EQ(Dispatch(Effect, effGetProgramNameIndexed, 3, -1, Name), 1);
  EXPECT_EQ(std::string(Name), "Silent");
  const std::string Long = "Thirty characters in this name";
  Dispatch(Effect, effSetProgramName, 0, 0, const_cast<char*>(Long.c_str()));
  EXPECT_EQ(Text(Effect, effGetProgramName), Long.substr(0, kQvTestProgramNameLength));
  Lib.SetOption("ProgramNameLength", 63);
  Dispatch(Effect, effSetProgramName, 0, 0, const_cast<char*>(Long.c_str()));
  EXPECT_EQ(Text(Effect, effGetProgramName), Long);

  // Processing: unity, then half gain, then the swapping program, bypassed, and fixed output.
  GTimeInfo.SampleRate = 44100;
  GTimeAnswer = static_cast<intptr_t>(Address(&GTimeInfo));
  const size_t ProcessStart = Lib.Records().size();
  TBlock<float> Block;
  Effect->ProcessReplacing(Effect, Block.Inputs, Block.Outputs, 4);
  EXPECT_EQ(Block.Out[0][0], Block.In[0][0]);
  EXPECT_EQ(Block.Out[1][3], Block.In[1][3]);
  Effect->SetParameter(Effect, qpGain, 0.25f);
  EXPECT_EQ(Effect->GetParameter(Effect, qpGain), 0.25f);
  Effect->ProcessReplacing(Effect, Block.Inputs, Block.Outputs, 4);
  EXPECT_EQ(Block.Out[0][1], 0.25f);
  Dispatch(Effect, effSetProgram, 0, 2);
  EXPECT_EQ(Dispatch(Effect, effGetProgram), 2);
  Effect->ProcessReplacing(Effect, Block.Inputs, Block.Outputs, 4);
  EXPECT_EQ(Block.Out[0][1], Block.In[1][1]);
  EXPECT_EQ(Block.Out[1][1], Block.In[0][1]);
  Dispatch(Effect, effSetBypass, 0, 1);
  Effect->ProcessReplacing(Effect, Block.Inputs, Block.Outputs, 4);
  EXPECT_EQ(Block.Out[0][1], Block.In[0][1]);
  Lib.SetOption("FixedOutput", 0.25);
  GTimeAnswer = 16;  // an address nothing can be read at
  Effect->ProcessReplacing(Effect, Block.Inputs, Block.Outputs, 4);
  for (const auto& Channel : Block.Out)
    for (float Sample : Channel) EXPECT_EQ(Sample, 0.25f);

  Records = Lib.Records();
  ASSERT_GT(Records.size(), ProcessStart + 1);
  const TQvTestRecord& Process = Records[ProcessStart];
  EXPECT_EQ(Process.Kind, qrProcessReplacing);
  EXPECT_EQ(Process.SampleFrames, 4);
  EXPECT_EQ(Process.Precision, 32);
  EXPECT_EQ(Process.Input[0], double(float(32767.0 / 65536.0)));
  EXPECT_EQ(Process.Input[1], 0.25);
  const TQvTestRecord& Time = Records[ProcessStart + 1];
  EXPECT_EQ(Time.Opcode, audioMasterGetTime);
  EXPECT_EQ(Time.Value, kQvTestTimeFlags.Mask());
  EXPECT_EQ(Time.Input[0], 44100.0);
  EXPECT_EQ(Time.Input[1], 1.0);
  EXPECT_EQ(Records.back().Opcode, audioMasterGetTime);
  EXPECT_EQ(Records.back().Result, 16);
  EXPECT_EQ(Records.back().Input[1], 0.0);

  // The probe reaches the host through the plug-in's own callback.
  char Vendor[64] = {};
  EXPECT_EQ(Lib.CallHost(Effect, audioMasterGetVendorString, 0, 0, Vendor, 0), 1);
  EXPECT_EQ(std::string(Vendor), "Smoke");
  EXPECT_EQ(GHostCalls.back().Effect, Effect);
  EXPECT_EQ(std::string(Lib.Records().back().Text), "Smoke");
  EXPECT_EQ(Lib.CallHost(nullptr, audioMasterVersion, 0, 0, nullptr, 0), 2400);
  EXPECT_EQ(GHostCalls.back().Effect, nullptr);

  Dispatch(Effect, effClose);
  EXPECT_EQ(Lib.Records().back().Opcode, effClose);
}

TEST(Qvtestplugin, EntryPointsOfTheVariants) {
  {
    TPlugLibrary Lib(QV_TESTVST2_MAINONLY);
    ASSERT_TRUE(Lib.Loaded()) << Lib.Error();
    EXPECT_EQ(Lib.Get<void*>("VSTPluginMain"), nullptr);
    PVSTEffect Effect = Lib.Start("main");
    ASSERT_NE(Effect, nullptr);
    EXPECT_EQ(Effect->UniqueID, kQvTestUniqueId);
    EXPECT_EQ(Lib.Records()[0].Opcode, qeMain);
    Dispatch(Effect, effClose);
  }
  {
    TPlugLibrary Lib(QV_TESTVST2_BOTH);
    ASSERT_TRUE(Lib.Loaded()) << Lib.Error();
    PVSTEffect ByMain = Lib.Start("main");
    PVSTEffect ByPluginMain = Lib.Start("VSTPluginMain");
    ASSERT_TRUE(ByMain && ByPluginMain);
    EXPECT_EQ(ByMain->UniqueID, kQvTestUniqueIdMainEntry);
    EXPECT_EQ(ByPluginMain->UniqueID, kQvTestUniqueIdPluginMain);
    Dispatch(ByMain, effClose);
    Dispatch(ByPluginMain, effClose);
  }
  {
    // The entry point runs, asks the host's version, and makes nothing.
    TPlugLibrary Lib(QV_TESTVST2_NOEFFECT);
    ASSERT_TRUE(Lib.Loaded()) << Lib.Error();
    EXPECT_EQ(Lib.Start("VSTPluginMain"), nullptr);
    ASSERT_EQ(Lib.Records().size(), 2u);
    EXPECT_EQ(Lib.Records()[1].Opcode, audioMasterVersion);
  }
  {
    TPlugLibrary Lib(QV_TESTVST2_NOTAPLUGIN);
    ASSERT_TRUE(Lib.Loaded()) << Lib.Error();
    EXPECT_EQ(Lib.Get<void*>("main"), nullptr);
    EXPECT_EQ(Lib.Get<void*>("VSTPluginMain"), nullptr);
  }
}

TEST(Qvtestplugin, ProcessingOfTheVariants) {
  {
    // Accumulating only: the routine adds to what the outputs hold.
    TPlugLibrary Lib(QV_TESTVST2_ACCUMULATING);
    ASSERT_TRUE(Lib.Loaded()) << Lib.Error();
    PVSTEffect Effect = Lib.Start("VSTPluginMain");
    ASSERT_NE(Effect, nullptr);
    EXPECT_TRUE(Effect->EffectFlags.Empty());
    EXPECT_EQ(Effect->ProcessReplacing, nullptr);
    TBlock<float> Block;
    Block.Out[0][1] = 1.0f;
    Effect->Process(Effect, Block.Inputs, Block.Outputs, 4);
    EXPECT_EQ(Block.Out[0][1], 1.5f);
    EXPECT_EQ(Block.Out[1][1], 0.125f);
    EXPECT_EQ(Lib.Records().back().Kind, qrHostCallback);
    EXPECT_EQ(Lib.Records().end()[-2].Kind, qrProcess);
    Dispatch(Effect, effClose);
  }
  {
    // 64-bit: once accepted, the replacing routine reads and writes doubles.
    TPlugLibrary Lib(QV_TESTVST2_DOUBLE);
    ASSERT_TRUE(Lib.Loaded()) << Lib.Error();
    PVSTEffect Effect = Lib.Start("VSTPluginMain");
    ASSERT_NE(Effect, nullptr);
    EXPECT_TRUE(Effect->EffectFlags.Contains(TEffFlag::effFlagsCanDoubleReplacing));
    ASSERT_NE(Effect->ProcessDoubleReplacing, nullptr);
    EXPECT_EQ(Dispatch(Effect, effSetProcessPrecision, 0, pp64), 1);
    TBlock<double> Block;
    Effect->ProcessReplacing(Effect, reinterpret_cast<PPSingle>(Block.Inputs),
                             reinterpret_cast<PPSingle>(Block.Outputs), 4);
    EXPECT_EQ(Block.Out[0][0], 32767.0 / 65536.0);
    auto Records = Lib.Records();
    EXPECT_EQ(Records.end()[-2].Precision, 64);
    EXPECT_EQ(Records.end()[-2].Input[0], 32767.0 / 65536.0);
    Block.Out[1][3] = 0;
    Effect->ProcessDoubleReplacing(Effect, Block.Inputs, Block.Outputs, 4);
    EXPECT_EQ(Block.Out[1][3], 1.0);
    EXPECT_EQ(Lib.Records().end()[-2].Kind, qrProcessDoubleReplacing);
    Dispatch(Effect, effClose);
  }
  {
    // Null: copies, records nothing, calls nothing back while processing.
    TPlugLibrary Lib(QV_TESTVST2_NULL);
    ASSERT_TRUE(Lib.Loaded()) << Lib.Error();
    PVSTEffect Effect = Lib.Start("VSTPluginMain");
    ASSERT_NE(Effect, nullptr);
    Dispatch(Effect, effOpen);
    Effect->SetParameter(Effect, qpGain, 0.0f);
    GHostCalls.clear();
    TBlock<float> Block;
    Effect->ProcessReplacing(Effect, Block.Inputs, Block.Outputs, 4);
    EXPECT_EQ(std::memcmp(Block.In, Block.Out, sizeof Block.In), 0);
    EXPECT_TRUE(GHostCalls.empty());
    EXPECT_TRUE(Lib.Records().empty());
    Dispatch(Effect, effClose);
  }
  {
    TPlugLibrary Lib(QV_TESTVST2_MONO);
    ASSERT_TRUE(Lib.Loaded()) << Lib.Error();
    PVSTEffect Effect = Lib.Start("VSTPluginMain");
    ASSERT_NE(Effect, nullptr);
    EXPECT_EQ(Effect->numInputs, 1);
    EXPECT_EQ(Effect->numOutputs, 1);
    TVstPinProperties Pin{};
    EXPECT_EQ(Dispatch(Effect, effGetOutputProperties, 0, 0, &Pin), 1);
    EXPECT_FALSE(Pin.Flags.Contains(TVstPinPropertiesFlag::vppIsStereo));
    EXPECT_EQ(Dispatch(Effect, effGetOutputProperties, 1, 0, &Pin), 0);
    Dispatch(Effect, effClose);
  }
}

TEST(Qvtestplugin, ChunksBringBackProgramsAndValues) {
  TPlugLibrary Lib(QV_TESTVST2_CHUNKS);
  ASSERT_TRUE(Lib.Loaded()) << Lib.Error();
  PVSTEffect Effect = Lib.Start("VSTPluginMain");
  ASSERT_NE(Effect, nullptr);
  EXPECT_TRUE(Effect->EffectFlags.Contains(TEffFlag::effFlagsProgramChunks));

  Dispatch(Effect, effSetProgram, 0, 1);
  Effect->SetParameter(Effect, qpGain, 0.75f);
  void* Data = nullptr;
  const intptr_t BankSize = Dispatch(Effect, effGetChunk, 0, 0, &Data);
  ASSERT_GT(BankSize, 0);
  const std::vector<uint8_t> Bank(static_cast<uint8_t*>(Data), static_cast<uint8_t*>(Data) + BankSize);
  const intptr_t PresetSize = Dispatch(Effect, effGetChunk, 1, 0, &Data);
  ASSERT_GT(PresetSize, 0);
  const std::vector<uint8_t> Preset(static_cast<uint8_t*>(Data), static_cast<uint8_t*>(Data) + PresetSize);

  Dispatch(Effect, effSetProgram, 0, 3);
  Effect->SetParameter(Effect, qpGain, 0.0f);
  EXPECT_EQ(Dispatch(Effect, effSetChunk, 0, BankSize, const_cast<uint8_t*>(Bank.data())), 1);
  EXPECT_EQ(Dispatch(Effect, effGetProgram), 1);
  EXPECT_EQ(Effect->GetParameter(Effect, qpGain), 0.75f);
  EXPECT_EQ(Text(Effect, effGetProgramName), "Half");

  // A preset goes into the current program; a short or foreign chunk is refused.
  Dispatch(Effect, effSetProgram, 0, 0);
  EXPECT_EQ(Dispatch(Effect, effSetChunk, 1, PresetSize, const_cast<uint8_t*>(Preset.data())), 1);
  EXPECT_EQ(Dispatch(Effect, effGetProgram), 0);
  EXPECT_EQ(Text(Effect, effGetProgramName), "Half");
  EXPECT_EQ(Effect->GetParameter(Effect, qpGain), 0.75f);
  EXPECT_EQ(Dispatch(Effect, effSetChunk, 1, PresetSize - 1, const_cast<uint8_t*>(Preset.data())), 0);
  EXPECT_EQ(Dispatch(Effect, effSetChunk, 0, PresetSize, const_cast<uint8_t*>(Preset.data())), 0);
  Dispatch(Effect, effClose);
}

}  // namespace
}  // namespace Quorvel
