// What the ASIO tests share: the test driver registered
// where hosts find drivers and reset around each test, a device opened on
// one of its slots, and a driver stepped one buffer switch at a time.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "asio/Srasioaudiodevice.h"
#include "testplugins/asio/Qvtestasio.h"

namespace Quorvel::Testing {

class AsioDeviceTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(ASIOInitializeComForThisThread());
    Api = QvTestAsioApi();
    ASSERT_NE(Api, nullptr);
    ASSERT_TRUE(QvTestAsioRegisterDrivers());
    for (int32_t S = 0; S < QvTestAsioDriverCount; ++S) Api->Reset(S);
  }
  void TearDown() override {
    Threading::ProcessMainThreadQueue();
    for (int32_t S = 0; S < QvTestAsioDriverCount; ++S) Api->Reset(S);
  }

  TQvTestAsioConfig Config(int32_t S = 0) const {
    TQvTestAsioConfig C{};
    Api->GetConfig(S, &C);
    return C;
  }
  void SetConfig(const TQvTestAsioConfig& C, int32_t S = 0) const { ASSERT_EQ(Api->SetConfig(S, &C), ASE_OK); }
  TQvTestAsioStats Stats(int32_t S = 0) const {
    TQvTestAsioStats St{};
    Api->GetStats(S, &St);
    return St;
  }

  // A device on slot Slot with Inputs and Outputs channel items, asking for
  // BufferSize samples (0: the driver's preferred size).
  static void Prepare(TSRASIOAudioDevice& Device, int32_t Slot, int Inputs, int Outputs, uint32_t BufferSize = 0) {
    Device.GetDevice().SetDeviceName(QvTestAsioNames[Slot]);
    Device.GetInputChannels().SetCount(Inputs);
    Device.GetOutputChannels().SetCount(Outputs);
    Device.GetBufferSize().SetUsePreferred(BufferSize == 0);
    if (BufferSize) Device.GetBufferSize().SetBufferSize(BufferSize);
  }

  // Polls Done (draining the main-thread queue). The limit only keeps a
  // broken build from hanging: on a loaded machine nothing comes near it.
  // (A template, so that waiting allocates nothing.)
  template <typename F>
  static bool WaitUntil(F&& Done, int Ms = 60000) {
    const auto End = std::chrono::steady_clock::now() + std::chrono::milliseconds(Ms);
    while (!Done()) {
      if (std::chrono::steady_clock::now() > End) return false;
      Threading::ProcessMainThreadQueue();
      std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    return true;
  }

  // Manual pacing: one switch at a time, each waiting until the chain has
  // delivered OutputsPerSwitch buffers back to the device's outputs.
  bool StepLockstep(TSRASIOAudioDevice& Device, int Switches, uint64_t OutputsPerSwitch, int32_t S = 0) const {
    for (int I = 0; I < Switches; ++I) {
      const uint64_t Before = Device.GetStats().Switches;
      const uint64_t OutBefore = Device.GetStats().OutputBuffers;
      if (Api->Step(S, 1) != ASE_OK) return false;
      if (!WaitUntil([&] { return Device.GetStats().Switches > Before; })) return false;
      if (OutputsPerSwitch && !WaitUntil([&] { return Device.GetStats().OutputBuffers >= OutBefore + OutputsPerSwitch; }))
        return false;
    }
    return true;
  }

  const TQvTestAsioApi* Api = nullptr;
};

}  // namespace Quorvel::Testing
