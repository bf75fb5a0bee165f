// The whole chain a user builds: the test driver's inputs -> the device's
// input pins -> a VST 2 host running the test plug-in -> the device's output
// pins -> the driver's outputs, for every converted sample type. What the
// driver captures is checked sample by sample against the known input
// signal, taken through the device's conversion and the host's scaling.
#include <cmath>
#include <cstring>
#include <vector>

#include "asio/Srasioconvert.h"
#include "frame/Srchannelcomponents.h"
#include "tests/asio/Asiodevicefixture.h"
#include "tests/support/Alloccounter.h"
#include "testplugins/vst2/Qvtestplugin.h"
#include "tests/vst3/Vst3testmodule.h"
#include "vst2/Srvsthost.h"
#include "vst3/Srvst3host.h"

namespace Quorvel {
namespace {

using Testing::AsioDeviceTest;

constexpr int32_t N = 64;
constexpr int Switches = 12;

// The value the device's audio buffer holds for 32-bit signal value S
// arriving as Type, and its width.
int64_t FromDriver(TASIOSampleType Type, int32_t S, unsigned& Bits) {
  Bits = ASIOBufferBitsForType(Type);
  switch (Type) {
    case ASIOSTInt16LSB: case ASIOSTInt16MSB: return S >> 16;
    case ASIOSTInt24LSB: case ASIOSTInt24MSB: return S >> 8;
    case ASIOSTInt32LSB16: case ASIOSTInt32MSB16: return S >> 16;
    case ASIOSTInt32LSB24: case ASIOSTInt32MSB24: return S >> 8;
    case ASIOSTFloat32LSB: case ASIOSTFloat32MSB: {
      const double V = std::nearbyint(double(float(S) / 2147483648.0f * 2147483648.0f));
      return V >= 2147483647.0 ? 2147483647 : int64_t(V);
    }
    case ASIOSTFloat64LSB: case ASIOSTFloat64MSB:
      return int64_t(std::nearbyint(double(S) / 2147483647.0 * 2147483647.0));
    default: return S;
  }
}

// The host at single precision with the plug-in at unity gain: the sample
// scaled by 2^-bits into a float, and back.
int64_t ThroughHost(int64_t V, unsigned Bits) {
  const double Scale = std::ldexp(1.0, int(Bits));
  const double Back = std::nearbyint(double(float(double(V) / Scale)) * Scale);
  const double Hi = std::ldexp(1.0, int(Bits) - 1) - 1, Lo = -std::ldexp(1.0, int(Bits) - 1);
  return int64_t(std::min(std::max(Back, Lo), Hi));
}

// The bytes the driver should capture for buffer value V of an output of Type.
std::vector<uint8_t> ToDriver(TASIOSampleType Type, int64_t V) {
  std::vector<uint8_t> B;
  auto Put = [&](uint64_t X, int Bytes, bool Big) {
    for (int I = 0; I < Bytes; ++I) B.push_back(uint8_t(X >> (8 * (Big ? Bytes - 1 - I : I))));
  };
  switch (Type) {
    case ASIOSTInt16LSB: Put(uint64_t(V), 2, false); break;
    case ASIOSTInt16MSB: Put(uint64_t(V), 2, true); break;
    case ASIOSTInt24LSB: Put(uint64_t(V), 3, false); break;
    case ASIOSTInt24MSB: Put(uint64_t(V), 3, true); break;
    case ASIOSTFloat32LSB: case ASIOSTFloat32MSB: {
      const float F = float(int32_t(V)) / 2147483648.0f;
      uint32_t X;
      std::memcpy(&X, &F, 4);
      Put(X, 4, Type == ASIOSTFloat32MSB);
      break;
    }
    case ASIOSTFloat64LSB: case ASIOSTFloat64MSB: {
      const double D = double(int32_t(V)) / 2147483647.0;
      uint64_t X;
      std::memcpy(&X, &D, 8);
      Put(X, 8, Type == ASIOSTFloat64MSB);
      break;
    }
    default: Put(uint64_t(V), 4, Type < ASIOSTInt16LSB); break;  // the 32-bit types, unshifted
  }
  return B;
}

class AsioChain : public AsioDeviceTest {
 protected:
  // Slot 0's two inputs -> the plug-in -> its two outputs, in blocks of N.
  void Wire(TSRASIOAudioDevice& Device, TSRVSTHost& Host, const char* PlugIn) {
    Prepare(Device, 0, 2, 2, N);
    Host.SetFileName(PlugIn);
    ASSERT_TRUE(Host.Open());
    Host.SetBufferSize(N);
    for (size_t I = 0; I < 2; ++I) {
      ASSERT_TRUE(Device.GetInputChannels().GetItem(int(I)).GetOutputPin().Connect(*Host.GetInputPin(I)));
      ASSERT_TRUE(Host.GetOutputPin(I)->Connect(Device.GetOutputChannels().GetItem(int(I)).GetInputPin()));
    }
  }

  // Runs the chain on slot 0 with every channel of Type, stepping the
  // driver; answers the captured bytes of each output channel.
  void Run(TASIOSampleType Type, std::vector<std::vector<uint8_t>>& Captures, TSRASIOAudioDeviceStats& DeviceStats,
           bool OnDriverThread = false) {
    TQvTestAsioConfig C = Config();
    for (int I = 0; I < 2; ++I) C.Inputs[I].Type = C.Outputs[I].Type = Type;
    C.Pacing = qvpManual;
    SetConfig(C);

    TSRASIOAudioDevice Device;
    Device.GetSampleRate().SetRate(48000);
    TSRVSTHost Host;
    Wire(Device, Host, QV_TESTVST2_MAIN);
    if (HasFatalFailure()) return;
    Device.SetProcessOnDriverThread(OnDriverThread);
    ASSERT_TRUE(Device.Start());
    ASSERT_TRUE(Device.GetRunning());
    EXPECT_EQ(Device.GetBufferSize().GetRunningSize(), N);
    ASSERT_TRUE(StepLockstep(Device, Switches, 2)) << "the chain did not deliver";
    DeviceStats = Device.GetStats();
    // The capture goes with the driver's buffers: read it before stopping.
    const int64_t Half = QvTestAsioHalfBytes(Type, N);
    for (int32_t Ch = 0; Ch < 2; ++Ch) {
      std::vector<uint8_t> Bytes(size_t(Half * Switches));
      EXPECT_EQ(Api->ReadCapture(0, Ch, Bytes.data(), int64_t(Bytes.size())), int64_t(Bytes.size()));
      Captures.push_back(std::move(Bytes));
    }
    Device.Stop();
    EXPECT_FALSE(Device.GetRunning());
    EXPECT_EQ(Stats().BuffersCreated, 0);
  }
};

TEST_F(AsioChain, EverySampleTypeArrivesThroughThePlugInAsConverted) {
  const TASIOSampleType Types[] = {ASIOSTInt16LSB,   ASIOSTInt24LSB,   ASIOSTInt32LSB,  ASIOSTFloat32LSB,
                                   ASIOSTFloat64LSB, ASIOSTInt16MSB,   ASIOSTInt24MSB,  ASIOSTInt32MSB,
                                   ASIOSTFloat32MSB, ASIOSTFloat64MSB, ASIOSTInt32LSB16, ASIOSTInt32MSB24};
  struct TRun {
    TASIOSampleType Type;
    bool OnDriverThread;
  };
  std::vector<TRun> Runs;
  for (TASIOSampleType Type : Types) Runs.push_back({Type, false});
  // Twice more with the chain run on the driver's thread.
  Runs.push_back({ASIOSTInt32LSB, true});
  Runs.push_back({ASIOSTFloat64MSB, true});
  for (const TRun& R : Runs) {
    const TASIOSampleType Type = R.Type;
    SCOPED_TRACE("sample type " + std::to_string(Type) + (R.OnDriverThread ? " on the driver thread" : ""));
    std::vector<std::vector<uint8_t>> Captures;
    TSRASIOAudioDeviceStats St;
    Run(Type, Captures, St, R.OnDriverThread);
    if (HasFatalFailure()) return;
    EXPECT_EQ(St.Switches, uint64_t(Switches));
    EXPECT_EQ(St.InputBuffers, uint64_t(2 * Switches));
    EXPECT_EQ(St.LostBuffers, 0u);
    EXPECT_EQ(St.SubmittedBuffers, uint64_t(2 * Switches));
    const size_t Bytes = size_t(QvTestAsioSampleBytes(Type));
    for (int32_t Ch = 0; Ch < 2; ++Ch) {
      const auto& Got = Captures[size_t(Ch)];
      // The first half-buffer goes out before any audio came back: silence.
      const std::vector<uint8_t> Silence(Bytes * N, 0);
      EXPECT_TRUE(std::equal(Silence.begin(), Silence.end(), Got.begin())) << "channel " << Ch;
      // Every later one carries the input of the switch before it.
      int Mismatches = 0;
      for (int64_t P = 0; P < int64_t(N) * (Switches - 1) && Mismatches < 3; ++P) {
        unsigned Bits;
        const int64_t In = FromDriver(Type, QvTestAsioSignal(Ch, uint64_t(P)), Bits);
        const auto Want = ToDriver(Type, ThroughHost(In, Bits));
        ASSERT_EQ(Want.size(), Bytes);
        if (!std::equal(Want.begin(), Want.end(), Got.begin() + (P + N) * int64_t(Bytes))) {
          ADD_FAILURE() << "channel " << Ch << " position " << P << " input " << In << " expected "
                        << ::testing::PrintToString(Want) << " got "
                        << ::testing::PrintToString(std::vector<uint8_t>(Got.begin() + (P + N) * int64_t(Bytes),
                                                                         Got.begin() + (P + N + 1) * int64_t(Bytes)));
          ++Mismatches;
        }
      }
    }
  }
}

// From the first buffer switch of a device that was just made and started,
// a switch through the whole chain (driver thread, processing thread, host,
// output queues) allocates nothing. The host sizes its own block storage on
// its first block, so it has run one stream before.
TEST_F(AsioChain, BufferSwitchesAllocateNothingFromTheFirst) {
  TQvTestAsioConfig C = Config();
  C.Pacing = qvpManual;
  SetConfig(C);
  TSRVSTHost Host;
  {
    TSRASIOAudioDevice Earlier;
    Wire(Earlier, Host, QV_TESTVST2_NULL);
    if (HasFatalFailure()) return;
    ASSERT_TRUE(Earlier.Start());
    ASSERT_TRUE(StepLockstep(Earlier, 3, 2));
  }
  TSRASIOAudioDevice Device;
  Wire(Device, Host, QV_TESTVST2_NULL);
  if (HasFatalFailure()) return;
  ASSERT_TRUE(Device.Start());
  const uint64_t Before = Testing::HeapAllocationCount();
  ASSERT_TRUE(StepLockstep(Device, 300, 2));
  const uint64_t Allocations = Testing::HeapAllocationCount() - Before;
  EXPECT_EQ(Allocations, 0u);
  EXPECT_EQ(Device.GetStats().LostBuffers, 0u);
  Device.Stop();
}

// The driver's two inputs -> joined -> the VST 3 test module (channels
// swapped, in 32 and 64 bits) -> split -> the driver's two outputs.
TEST_F(AsioChain, TheDriverRunsThroughAVst3Module) {
  const struct {
    TASIOSampleType Type;
    TSRVST3SampleSize Size;
  } Runs[] = {{ASIOSTInt24LSB, TSRVST3SampleSize::vst3ss32}, {ASIOSTFloat32LSB, TSRVST3SampleSize::vst3ss64}};
  for (const auto& R : Runs) {
    SCOPED_TRACE("sample type " + std::to_string(R.Type));
    TQvTestAsioConfig C = Config();
    for (int I = 0; I < 2; ++I) C.Inputs[I].Type = C.Outputs[I].Type = R.Type;
    C.Pacing = qvpManual;
    SetConfig(C);
    Testing::TVst3ModuleProbe Probe;
    Probe.Options("map=swap");
    TSRASIOAudioDevice Device;
    Device.GetSampleRate().SetRate(48000);
    Prepare(Device, 0, 2, 2, N);
    TSRChannelJoiner Joiner(nullptr, 2);
    TSRVST3Host Host;
    TSRChannelSplitter Splitter(nullptr, 2);
    Joiner.SetBufferSize(N);
    Splitter.SetBufferSize(N);
    Host.SetBufferSize(N);
    Host.SetSampleRate(48000);
    Host.SetSampleSize(R.Size);
    Host.SetFileName(QV_TESTVST3_MAIN);
    ASSERT_TRUE(Host.Open());
    for (size_t I = 0; I < 2; ++I) {
      ASSERT_TRUE(Device.GetInputChannels().GetItem(int(I)).GetOutputPin().Connect(*Joiner.GetInputPin(I)));
      ASSERT_TRUE(Splitter.GetOutputPin(I)->Connect(Device.GetOutputChannels().GetItem(int(I)).GetInputPin()));
    }
    ASSERT_TRUE(Joiner.GetOutputPin(0)->Connect(*Host.GetInputPin(0)));
    ASSERT_TRUE(Host.GetOutputPin(0)->Connect(*Splitter.GetInputPin(0)));
    ASSERT_TRUE(Device.Start());
    ASSERT_TRUE(StepLockstep(Device, Switches, 2)) << "the chain did not deliver";
    const int64_t Half = QvTestAsioHalfBytes(R.Type, N);
    std::vector<std::vector<uint8_t>> Captures;
    for (int32_t Ch = 0; Ch < 2; ++Ch) {
      std::vector<uint8_t> Bytes(size_t(Half * Switches));
      EXPECT_EQ(Api->ReadCapture(0, Ch, Bytes.data(), int64_t(Bytes.size())), int64_t(Bytes.size()));
      Captures.push_back(std::move(Bytes));
    }
    Device.Stop();
    EXPECT_EQ(Device.GetStats().LostBuffers, 0u);
    const size_t Bytes = size_t(QvTestAsioSampleBytes(R.Type));
    for (int32_t Ch = 0; Ch < 2; ++Ch) {
      const auto& Got = Captures[size_t(Ch)];
      int Mismatches = 0;
      // After the first half-buffer, output Ch carries input 1 - Ch of the switch before.
      for (int64_t P = 0; P < int64_t(N) * (Switches - 1) && Mismatches < 3; ++P) {
        unsigned Bits;
        const int64_t In = FromDriver(R.Type, QvTestAsioSignal(1 - Ch, uint64_t(P)), Bits);
        // In 64 bits the sample comes back exactly.
        const auto Want = ToDriver(R.Type, R.Size == TSRVST3SampleSize::vst3ss64 ? In : ThroughHost(In, Bits));
        if (!std::equal(Want.begin(), Want.end(), Got.begin() + (P + N) * int64_t(Bytes))) {
          ADD_FAILURE() << "channel " << Ch << " position " << P << " input " << In;
          ++Mismatches;
        }
      }
    }
    EXPECT_GE(Probe.ProcessCalls().size(), size_t(Switches - 1));
  }
}

}  // namespace
}  // namespace Quorvel
