#include "vst3/Vst3hostintf.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

using namespace Quorvel;
using namespace Quorvel::Vst3hostintf;

TEST(Vst3hostintf, CharacterAndVirtualKeyCodes) {
  EXPECT_EQ(VST3CharToVirtualKeyCode('0'), 128);
  EXPECT_EQ(VST3CharToVirtualKeyCode('9'), 137);
  EXPECT_EQ(VST3CharToVirtualKeyCode('A'), 145);
  EXPECT_EQ(VST3CharToVirtualKeyCode('Z'), 170);
  EXPECT_EQ(VST3CharToVirtualKeyCode(' '), 7);
  EXPECT_EQ(VST3CharToVirtualKeyCode('a'), 0);
  EXPECT_EQ(VST3CharToVirtualKeyCode('/'), 0);
  EXPECT_EQ(VST3CharToVirtualKeyCode('\xE9'), 0);

  EXPECT_EQ(VST3VirtualKeyCodeToChar(7), ' ');
  EXPECT_EQ(VST3VirtualKeyCodeToChar(6), 0);
  EXPECT_EQ(VST3VirtualKeyCodeToChar(127), 0);
  EXPECT_EQ(VST3VirtualKeyCodeToChar(128), '0');
  EXPECT_EQ(static_cast<uint8_t>(VST3VirtualKeyCodeToChar(255)), 175);
  // Every character that has a code comes back from it.
  for (char C : std::string("0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ "))
    EXPECT_EQ(VST3VirtualKeyCodeToChar(static_cast<uint8_t>(VST3CharToVirtualKeyCode(C))), C) << C;
}

TEST(Vst3hostintf, SpecialKeysFirstMatchWins) {
  const std::vector<std::pair<uint16_t, uint16_t>> Cases = {
      {0x08, 1},  {0x22, 8},  {0x0D, 4},  {0x21, 15}, {0x29, 17}, {0x2C, 20}, {0x60, 24},
      {0x69, 33}, {0x6F, 39}, {0x70, 40}, {0x7B, 51}, {0x90, 52}, {0x12, 56}, {0x5D, 58},
      {0xFA, 59}, {0xB2, 60}, {0xAE, 64}};
  for (const auto& [Key, Expected] : Cases) {
    uint16_t Code = 0;
    EXPECT_TRUE(VST3ConvertSpecialCode(Key, Code)) << Key;
    EXPECT_EQ(Code, Expected) << Key;
  }
  // Page-down, enter and equals are listed but never produced.
  for (uint16_t Key = 0; Key < 0x100; ++Key) {
    uint16_t Code = 0;
    if (VST3ConvertSpecialCode(Key, Code)) {
      EXPECT_NE(Code, 16);
      EXPECT_NE(Code, 19);
      EXPECT_NE(Code, 57);
    }
  }
  uint16_t Untouched = 777;
  EXPECT_FALSE(VST3ConvertSpecialCode(0x41, Untouched));
  EXPECT_EQ(Untouched, 777);
}

TEST(Vst3hostintf, IdentifiersInTheModuleByteOrder) {
  EXPECT_EQ(VST3UIDToString(IID_IComponent), "{E831FF31-F2D5-4301-928E-BBEE25697802}");
  EXPECT_EQ(VST3UIDToString(IID_IPluginFactory2), "{0007B650-F24B-4C0B-A464-EDB9F00B2ABB}");
  EXPECT_EQ(VST3UIDToString(IID_IMessage), "{936F033B-C6C0-47DB-BB08-82F813C1E613}");
  EXPECT_EQ(VST3UIDToString(IID_IFUnknown), "{00000000-0000-0000-C000-000000000046}");
  uint8_t Bytes[16];
  std::memcpy(Bytes, &IID_IComponent, 16);
  // Windows modules lay out the first three fields little-endian; others keep the written order.
  const std::vector<uint8_t> Expected =
      Platform::kVst3ComByteOrder
          ? std::vector<uint8_t>{0x31, 0xFF, 0x31, 0xE8, 0xD5, 0xF2, 0x01, 0x43,
                                 0x92, 0x8E, 0xBB, 0xEE, 0x25, 0x69, 0x78, 0x02}
          : std::vector<uint8_t>{0xE8, 0x31, 0xFF, 0x31, 0xF2, 0xD5, 0x43, 0x01,
                                 0x92, 0x8E, 0xBB, 0xEE, 0x25, 0x69, 0x78, 0x02};
  EXPECT_EQ(std::vector<uint8_t>(Bytes, Bytes + 16), Expected);
  EXPECT_TRUE(IsNullUID(kNullUID));
  EXPECT_FALSE(IsNullUID(IID_IFUnknown));
}

TEST(Vst3hostintf, ResultsCrossTheModuleBoundaryInTheSystemsValues) {
  const int32_t Windows[] = {Platform::kVst3NoInterface,   Platform::kVst3InvalidArgument,
                             Platform::kVst3NotImplemented, Platform::kVst3InternalError,
                             Platform::kVst3NotInitialized, Platform::kVst3OutOfMemory};
  for (int I = 0; I < 6; ++I) {
    const int32_t Module = Platform::Vst3ResultToModule(Windows[I]);
    EXPECT_EQ(Module, Platform::kVst3ComByteOrder ? Windows[I] : (I == 0 ? -1 : I + 1));
    EXPECT_EQ(Platform::Vst3ResultFromModule(Module), Windows[I]);
  }
  EXPECT_EQ(Platform::Vst3ResultFromModule(0), 0);
  EXPECT_EQ(Platform::Vst3ResultFromModule(1), 1);
  EXPECT_EQ(Platform::Vst3ResultFromModule(12345), 12345);
}

TEST(Vst3hostintf, ViewRectSize) {
  const TViewRect R{10, 20, 110, 70};
  EXPECT_EQ(R.GetWidth(), 100);
  EXPECT_EQ(R.GetHeight(), 50);
}

namespace {

// Each method answers its own number, so that a call through a raw slot
// tells which method the slot holds.
class TSlotProbe final : public IComponent, public IEditController, public IAudioProcessor, public IConnectionPoint {
 public:
  TResult queryInterface(const TGUID&, void**) override { return 900; }
  uint32_t addRef() override { return 901; }
  uint32_t release() override { return 902; }
  TResult initialize(IFUnknown*) override { return 3; }
  TResult terminate() override { return 4; }
  TResult getControllerClassId(TGUID*) override { return 105; }
  TResult setIoMode(int32_t) override { return 106; }
  int32_t getBusCount(int32_t, int32_t) override { return 107; }
  TResult getBusInfo(int32_t, int32_t, int32_t, TBusInfo&) override { return 108; }
  TResult getRoutingInfo(TRoutingInfo&, TRoutingInfo&) override { return 109; }
  TResult activateBus(int32_t, int32_t, int32_t, TBool) override { return 110; }
  TResult setActive(TBool) override { return 111; }
  TResult setState(IBStream*) override { return 112; }
  TResult getState(IBStream*) override { return 113; }
  TResult setComponentState(IBStream*) override { return 205; }
  int32_t getParameterCount() override { return 208; }
  TResult getParameterInfo(int32_t, TVST3ParameterInfo&) override { return 209; }
  TResult getParamStringByValue(TParamID, TParamValue, char16*) override { return 210; }
  TResult getParamValueByString(TParamID, char16*, TParamValue&) override { return 211; }
  TParamValue normalizedParamToPlain(TParamID, TParamValue) override { return 0; }
  TParamValue plainParamToNormalized(TParamID, TParamValue) override { return 0; }
  TParamValue getParamNormalized(TParamID) override { return 0; }
  TResult setParamNormalized(TParamID, TParamValue) override { return 215; }
  TResult setComponentHandler(IComponentHandler*) override { return 216; }
  IPlugView* createView(TFIDString) override { return reinterpret_cast<IPlugView*>(217); }
  TResult setBusArrangements(TSpeakerArrangement*, int32_t, TSpeakerArrangement*, int32_t) override { return 303; }
  TResult getBusArrangement(int32_t, int32_t, TSpeakerArrangement&) override { return 304; }
  TResult canProcessSampleSize(int32_t) override { return 305; }
  uint32_t getLatencySamples() override { return 306; }
  TResult setupProcessing(TProcessSetup&) override { return 307; }
  TResult setProcessing(TBool) override { return 308; }
  TResult process(TVST3ProcessData&) override { return 309; }
  uint32_t getTailSamples() override { return 310; }
  TResult connect(IConnectionPoint*) override { return 403; }
  TResult disconnect(IConnectionPoint*) override { return 404; }
  TResult notify(IMessage*) override { return 405; }
};

// Calls slot Slot of Interface's table as a plug-in would, with null arguments.
template <typename I>
intptr_t CallSlot(I* Interface, int Slot) {
  using TFunc = intptr_t (*)(void*, void*, void*, void*);
  void** Table = *reinterpret_cast<void***>(Interface);
  return reinterpret_cast<TFunc>(Table[Slot])(Interface, nullptr, nullptr, nullptr);
}

class TFactorySlotProbe final : public IPluginFactory2 {
 public:
  TResult queryInterface(const TGUID&, void**) override { return 900; }
  uint32_t addRef() override { return 901; }
  uint32_t release() override { return 902; }
  TResult getFactoryInfo(TVST3FactoryInfo*) override { return 3; }
  int32_t countClasses() override { return 4; }
  TResult getClassInfo(int32_t, TVST3ClassInfo*) override { return 5; }
  TResult createInstance(const TGUID*, const TGUID*, void**) override { return 6; }
  TResult getClassInfo2(int32_t, TVST3ClassInfo2*) override { return 7; }
};

}  // namespace

TEST(Vst3hostintf, MethodSlotsTheHostReliesOn) {
  TFactorySlotProbe F;
  IPluginFactory* Factory = &F;
  for (int Slot = 3; Slot <= 7; ++Slot) EXPECT_EQ(static_cast<int32_t>(CallSlot(Factory, Slot)), Slot);

  TSlotProbe P;
  auto Low32 = [](intptr_t V) { return static_cast<int32_t>(V); };
  IComponent* C = &P;
  EXPECT_EQ(Low32(CallSlot(C, 0)), 900);
  EXPECT_EQ(Low32(CallSlot(C, 3)), 3);
  EXPECT_EQ(Low32(CallSlot(C, 5)), 105);
  EXPECT_EQ(Low32(CallSlot(C, 11)), 111);
  EXPECT_EQ(Low32(CallSlot(C, 12)), 112);
  EXPECT_EQ(Low32(CallSlot(C, 13)), 113);
  IEditController* E = &P;
  EXPECT_EQ(Low32(CallSlot(E, 5)), 205);
  EXPECT_EQ(Low32(CallSlot(E, 16)), 216);
  EXPECT_EQ(CallSlot(E, 17), 217);
  IAudioProcessor* A = &P;
  EXPECT_EQ(Low32(CallSlot(A, 7)), 307);
  EXPECT_EQ(Low32(CallSlot(A, 9)), 309);
  IConnectionPoint* Point = &P;
  EXPECT_EQ(Low32(CallSlot(Point, 3)), 403);
}
