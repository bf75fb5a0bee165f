// The driver services and the callback entry table with the project's test
// driver: found and opened where hosts look for drivers (natively the
// in-process catalogue, on Windows the registry and COM), and its driver
// thread's callbacks routed through the entries to the right objects.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "asio/Asiointerface.h"
#include "asio/Srasiocallbackentries.h"
#include "asio/Srasiodevice.h"
#include "testplugins/asio/Qvtestasio.h"
#include "tests/asio/Asiodevicefixture.h"

namespace Quorvel {
namespace {

using AsioTestDriver = Testing::AsioDeviceTest;

TEST_F(AsioTestDriver, OpensByNameIdentifierOrAlternativeAndReleasesTheObject) {
  std::vector<std::string> Names;
  ASSERT_TRUE(ASIOGetDriverNames(&Names));
  for (int32_t Slot = 0; Slot < QvTestAsioDriverCount; ++Slot) {
    const std::string Name = QvTestAsioNames[Slot];
    EXPECT_EQ(std::count(Names.begin(), Names.end(), Name), 1) << Name;
    EXPECT_EQ(ASIOGetDriverIDByname(Name), QvTestAsioClsids[Slot]);
    {
      IASIORef ByName = ASIOOpenDriverByname(Name);
      ASSERT_TRUE(ByName) << Name;
      EXPECT_EQ(ASIOGetDriverName(ByName.Get()), Name);
      EXPECT_EQ(Stats(Slot).LiveObjects, 1);
      IASIORef ById = ASIOOpenDriver(QvTestAsioClsids[Slot]);
      EXPECT_EQ(Stats(Slot).LiveObjects, 2);
    }
    EXPECT_EQ(Stats(Slot).LiveObjects, 0) << "the driver objects were not released";
  }
  TSRASIODevice Device(nullptr);
  // A set identifier wins over the name.
  Device.SetDeviceName(QvTestAsioNames[0]);
  Device.SetDriverID(QvTestAsioClsids[1]);
  EXPECT_EQ(ASIOGetDriverName(Device.GetDevice().Get()), QvTestAsioNames[1]);
  // Neither opens: the alternatives are tried.
  Device.SetDeviceName("No such driver");
  Device.SetDriverID(TGUID{0x1, 0, 0, {}});
  Device.GetAlternativeDevices().Add().SetDeviceName("No such driver either");
  Device.GetAlternativeDevices().Add().SetDriverID(QvTestAsioClsids[1]);
  {
    IASIORef Driver = Device.GetDevice();
    EXPECT_EQ(ASIOGetDriverName(Driver.Get()), QvTestAsioNames[1]);
    EXPECT_EQ(ASIOInit(Driver.Get(), nullptr), ASIOTrue);
  }
  EXPECT_EQ(Stats(1).LiveObjects, 0);
}

// Stands for a device component: counts what its entry delivers.
struct TListener {
  int32_t TimeInfoAnswer = 0;
  std::atomic<int> Switches{0};
  std::atomic<int> TimeInfoSwitches{0};
  std::atomic<int> Messages{0};

  void BufferSwitch(int32_t Index, TASIOBool Direct) { ++Switches; }
  void SampleRateDidChange(TASIOSampleRate) {}
  int32_t AsioMessage(int32_t Selector, int32_t Value, void*, double*) {
    ++Messages;
    if (Selector == kAsioSelectorSupported) return Value == kAsioSupportsTimeInfo ? 1 : 0;
    return Selector == kAsioSupportsTimeInfo ? TimeInfoAnswer : 0;
  }
  TASIOTime* BufferSwitchTimeInfo(TASIOTime* Params, int32_t, TASIOBool) {
    ++TimeInfoSwitches;
    return nullptr;
  }
};

TEST_F(AsioTestDriver, DriverThreadsReachTheObjectsBoundToTheirEntries) {
  constexpr int Steps = 6;
  TListener Listeners[QvTestAsioDriverCount];
  Listeners[0].TimeInfoAnswer = 1;  // slot 0 switches with time info, slot 1 without
  IASIORef Drivers[QvTestAsioDriverCount];
  int32_t Entries[QvTestAsioDriverCount];
  TASIOBufferInfo Buffers[QvTestAsioDriverCount][2] = {};
  for (int32_t Slot = 0; Slot < QvTestAsioDriverCount; ++Slot) {
    TQvTestAsioConfig Config{};
    ASSERT_EQ(Api->GetConfig(Slot, &Config), ASE_OK);
    Config.Pacing = qvpManual;
    ASSERT_EQ(Api->SetConfig(Slot, &Config), ASE_OK);

    Drivers[Slot] = ASIOOpenDriverByname(QvTestAsioNames[Slot]);
    ASSERT_TRUE(Drivers[Slot]);
    IASIO* D = Drivers[Slot].Get();
    ASSERT_EQ(ASIOInit(D, nullptr), ASIOTrue);
    TListener& L = Listeners[Slot];
    PASIOCallbacks Callbacks = nullptr;
    Entries[Slot] = ASIOGetCallback(Callbacks, TASIOBufferSwitchMethod::Bind<&TListener::BufferSwitch>(&L),
                                    TASIOSampleRateDidChangeMethod::Bind<&TListener::SampleRateDidChange>(&L),
                                    TASIOAsioMessageMethod::Bind<&TListener::AsioMessage>(&L),
                                    TASIOBufferSwitchTimeInfoMethod::Bind<&TListener::BufferSwitchTimeInfo>(&L));
    ASSERT_GE(Entries[Slot], 0);
    int32_t Min, Max, Preferred, Granularity;
    ASSERT_EQ(ASIOGetBufferSize(D, Min, Max, Preferred, Granularity), ASE_OK);
    Buffers[Slot][0] = TASIOBufferInfo{ASIOTrue, 0, {}};
    Buffers[Slot][1] = TASIOBufferInfo{ASIOFalse, 0, {}};
    ASSERT_EQ(ASIOCreateBuffers(D, Buffers[Slot], 2, Preferred, Callbacks), ASE_OK);
    EXPECT_NE(Buffers[Slot][0].buffers[0], nullptr);
    ASSERT_EQ(ASIOStart(D), ASE_OK);
  }
  for (int32_t Slot = 0; Slot < QvTestAsioDriverCount; ++Slot) Api->Step(Slot, Steps);
  EXPECT_TRUE(WaitUntil([&] { return Stats(0).Switches >= Steps && Stats(1).Switches >= Steps; }));
  for (int32_t Slot = 0; Slot < QvTestAsioDriverCount; ++Slot) {
    IASIO* D = Drivers[Slot].Get();
    EXPECT_EQ(ASIOStop(D), ASE_OK);
    EXPECT_EQ(ASIODisposeBuffers(D), ASE_OK);
    ASIOReleaseCallback(Entries[Slot]);
  }
  EXPECT_EQ(Listeners[0].TimeInfoSwitches, Steps);
  EXPECT_EQ(Listeners[0].Switches, 0);
  EXPECT_EQ(Listeners[1].Switches, Steps);
  EXPECT_EQ(Listeners[1].TimeInfoSwitches, 0);
  EXPECT_GT(Listeners[0].Messages, 0);
  EXPECT_GT(Listeners[1].Messages, 0);
}

}  // namespace
}  // namespace Quorvel
