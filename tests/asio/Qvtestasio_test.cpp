// The test ASIO driver itself: its answers, injected failures, the stream
// (signal, capture, pacing), the driver thread's start and stop, the odd
// behaviours, and its registration where hosts look for drivers.
#include "testplugins/asio/Qvtestasio.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "platform/Asiodrivers.h"

namespace Quorvel {
namespace {

using Clock = std::chrono::steady_clock;

bool WaitFor(const std::function<bool()>& Done, std::chrono::milliseconds Timeout = std::chrono::seconds(10)) {
  const auto End = Clock::now() + Timeout;
  while (!Done()) {
    if (Clock::now() > End) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

const TQvTestAsioApi& Api() {
  const TQvTestAsioApi* A = QvTestAsioApi();
  if (!A) throw std::runtime_error("the test driver's control functions are not reachable");
  return *A;
}

TQvTestAsioStats Stats(int32_t Slot = 0) {
  TQvTestAsioStats S{};
  Api().GetStats(Slot, &S);
  return S;
}

TQvTestAsioConfig Config(int32_t Slot = 0) {
  TQvTestAsioConfig C{};
  Api().GetConfig(Slot, &C);
  return C;
}

// What the host writes into output channel Channel at sample K of switch Number.
int32_t OutputValue(int32_t Channel, int32_t Number, int32_t K) {
  return int32_t(uint32_t(Number + 1) << 24 ^ uint32_t(Channel + 1) << 16 ^ uint32_t(K) * 0x0101u);
}

// The host side. ASIO callbacks carry no context, so one host at a time.
struct THost {
  IASIO* Driver = nullptr;
  int32_t Frames = 0;
  std::vector<TASIOBufferInfo> Buffers;
  std::vector<TASIOSampleType> Types;
  TASIOCallbacks Callbacks{};
  int32_t TimeInfoReply = 1;
  std::thread::id MainThread = std::this_thread::get_id();

  std::atomic<int32_t> Switches{0}, TimeInfoSwitches{0}, BadInputs{0}, OffMainThread{0};
  std::atomic<int32_t> RateChanges{0}, ResetRequestsOnMain{0}, ResyncsOffMain{0};
  std::atomic<double> ChangedRate{0};
  static constexpr int32_t MaxRecorded = 4096;
  int32_t Indices[MaxRecorded] = {};
  uint64_t Positions[MaxRecorded] = {};

  static THost* Current;

  THost() { Current = this; }
  ~THost() { Current = nullptr; }

  void OnSwitch(int32_t Index, uint64_t Position) {
    const int32_t Number = Switches.load();
    if (Number < MaxRecorded) {
      Indices[Number] = Index;
      Positions[Number] = Position;
    }
    if (std::this_thread::get_id() != MainThread) ++OffMainThread;
    for (size_t B = 0; B < Buffers.size(); ++B) {
      const int32_t Bytes = QvTestAsioSampleBytes(Types[B]);
      auto* Half = static_cast<uint8_t*>(Buffers[B].buffers[Index]);
      for (int32_t K = 0; K < Frames; ++K) {
        uint8_t Sample[8];
        if (Buffers[B].isInput) {
          QvTestAsioEncode(Types[B], QvTestAsioSignal(Buffers[B].channelNum, Position + uint64_t(K)), Sample);
          if (std::memcmp(Sample, Half + K * Bytes, size_t(Bytes)) != 0) ++BadInputs;
        } else {
          QvTestAsioEncode(Types[B], OutputValue(Buffers[B].channelNum, Number, K), Half + K * Bytes);
        }
      }
    }
    ++Switches;
  }

  static void BufferSwitch(int32_t Index, TASIOBool) {
    TASIOSamples Position{};
    TASIOTimeStamp Stamp{};
    const TASIOError Result = Current->Driver->getSamplePosition(&Position, &Stamp);
    Current->OnSwitch(Index, Result == ASE_OK ? ASIOToUInt64(Position) : ~uint64_t(0));
  }
  static TASIOTime* BufferSwitchTimeInfo(TASIOTime* Time, int32_t Index, TASIOBool) {
    const uint32_t Needed = kSystemTimeValid | kSamplePositionValid;
    ++Current->TimeInfoSwitches;
    Current->OnSwitch(Index, (Time->timeInfo.flags & Needed) == Needed ? ASIOToUInt64(Time->timeInfo.samplePosition)
                                                                         : ~uint64_t(0));
    return nullptr;
  }
  static void SampleRateDidChange(TASIOSampleRate Rate) {
    Current->ChangedRate = Rate;
    ++Current->RateChanges;
  }
  static int32_t AsioMessage(int32_t Selector, int32_t, void*, double*) {
    if (Selector == kAsioSupportsTimeInfo) return Current->TimeInfoReply;
    const bool OnMain = std::this_thread::get_id() == Current->MainThread;
    if (Selector == kAsioResetRequest && OnMain) ++Current->ResetRequestsOnMain;
    if (Selector == kAsioResyncRequest && !OnMain) ++Current->ResyncsOffMain;
    return Selector == kAsioResetRequest || Selector == kAsioResyncRequest ? 1 : 0;
  }

  // Creates buffers for the given (is-input, channel) pairs.
  TASIOError Create(const std::vector<std::pair<bool, int32_t>>& Channels, int32_t Size) {
    const TQvTestAsioConfig C = Config();
    Frames = Size;
    Buffers.clear();
    Types.clear();
    for (const auto& [IsInput, Channel] : Channels) {
      Buffers.push_back(TASIOBufferInfo{IsInput ? ASIOTrue : ASIOFalse, Channel, {nullptr, nullptr}});
      Types.push_back((IsInput ? C.Inputs : C.Outputs)[Channel].Type);
    }
    Callbacks = {&BufferSwitch, &SampleRateDidChange, &AsioMessage, &BufferSwitchTimeInfo};
    return Driver->createBuffers(Buffers.data(), int32_t(Buffers.size()), Size, &Callbacks);
  }
};
THost* THost::Current = nullptr;

class Qvtestasio : public ::testing::Test {
 protected:
  void SetUp() override {
    Baseline = Api().BusyCount();
    for (int32_t Slot = 0; Slot < QvTestAsioDriverCount; ++Slot) Api().Reset(Slot);
  }
  void TearDown() override {
    if (Host.Driver) Host.Driver->Release();
    EXPECT_TRUE(WaitFor([&] { return Api().BusyCount() == Baseline; })) << "driver objects or threads left";
  }
  // Slot 0 with a manual pace and the given changes.
  void Configure(const std::function<void(TQvTestAsioConfig&)>& Change) {
    TQvTestAsioConfig C = Config();
    C.Pacing = qvpManual;
    Change(C);
    ASSERT_EQ(Api().SetConfig(0, &C), ASE_OK);
  }
  void Open() { ASSERT_NE(Host.Driver = Api().Create(0), nullptr); }

  int32_t Baseline = 0;
  THost Host;
};

TEST_F(Qvtestasio, AnswersFromItsCurrentConfigurationAndCountsReferences) {
  Open();
  IASIO* D = Host.Driver;
  EXPECT_EQ(Stats().LiveObjects, 1);
  void* Object = nullptr;
  constexpr TGUID IidIUnknown = {0, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
  EXPECT_EQ(D->QueryInterface(IidIUnknown, &Object), 0);
  EXPECT_EQ(Object, D);
  EXPECT_EQ(D->QueryInterface(QvTestAsioClsids[0], &Object), 0);
  EXPECT_EQ(D->QueryInterface(QvTestAsioClsids[1], &Object), int32_t(0x80004002u));
  EXPECT_EQ(Object, nullptr);
  EXPECT_EQ(D->Release(), 2u);
  EXPECT_EQ(D->Release(), 1u);
  EXPECT_EQ(Api().CanUnloadNow(), 1);

  // Changed after the object exists: the next calls answer the new values.
  Configure([](TQvTestAsioConfig& C) {
    C.InputCount = 3;
    C.Inputs[2] = TQvTestAsioChannel{ASIOSTInt24MSB, 1, "Line 3"};
    std::strcpy(C.DriverName, "Renamed driver");
    std::strcpy(C.ErrorMessage, "Clock lost");
    C.Granularity = 32;
  });
  int32_t In = 0, Out = 0, Min = 0, Max = 0, Preferred = 0, Granularity = 0;
  EXPECT_EQ(D->getChannels(&In, &Out), ASE_OK);
  EXPECT_EQ(In, 3);
  EXPECT_EQ(Out, 2);
  TASIOChannelInfo Info{2, ASIOTrue, 0, 0, 0, {}};
  EXPECT_EQ(D->getChannelInfo(&Info), ASE_OK);
  EXPECT_EQ(Info.type, ASIOSTInt24MSB);
  EXPECT_EQ(Info.channelGroup, 1);
  EXPECT_STREQ(Info.name, "Line 3");
  EXPECT_EQ(Info.isActive, ASIOFalse);
  Info.channel = 3;
  EXPECT_EQ(D->getChannelInfo(&Info), ASE_InvalidParameter);
  char Text[124];
  D->getDriverName(Text);
  EXPECT_STREQ(Text, "Renamed driver");
  D->getErrorMessage(Text);
  EXPECT_STREQ(Text, "Clock lost");
  EXPECT_EQ(D->getBufferSize(&Min, &Max, &Preferred, &Granularity), ASE_OK);
  EXPECT_EQ(Min, 64);
  EXPECT_EQ(Granularity, 32);
  EXPECT_EQ(D->canSampleRate(48000), ASE_OK);
  EXPECT_EQ(D->canSampleRate(22050), ASE_NoClock);
  EXPECT_EQ(D->setSampleRate(96000), ASE_OK);
  EXPECT_EQ(D->setSampleRate(0), ASE_NoClock);
  TASIOSampleRate Rate = 0;
  EXPECT_EQ(D->getSampleRate(&Rate), ASE_OK);
  EXPECT_EQ(Rate, 96000);
  TASIOClockSource Clocks[4];
  int32_t Count = 1;
  EXPECT_EQ(D->getClockSources(Clocks, &Count), ASE_OK);
  EXPECT_EQ(Count, 1);
  EXPECT_STREQ(Clocks[0].name, "Internal");
  EXPECT_EQ(Clocks[0].isCurrentSource, ASIOTrue);
  EXPECT_EQ(D->setClockSource(1), ASE_OK);
  EXPECT_EQ(D->setClockSource(2), ASE_InvalidParameter);
  EXPECT_EQ(Config().CurrentClock, 1);
  TASIOSamples Position;
  TASIOTimeStamp Stamp;
  EXPECT_EQ(D->getSamplePosition(&Position, &Stamp), ASE_SPNotAdvancing);
  EXPECT_EQ(D->future(kAsioCanTimeInfo, nullptr), ASE_SUCCESS);
  EXPECT_EQ(D->outputReady(), ASE_OK);

  TQvTestAsioConfig Bad = Config();
  Bad.MinSize = 0;
  EXPECT_EQ(Api().SetConfig(0, &Bad), ASE_InvalidParameter);
  EXPECT_EQ(Config().MinSize, 64);

  // The second driver: its own defaults, no outputReady.
  IASIO* Second = Api().Create(1);
  ASSERT_NE(Second, nullptr);
  Second->getDriverName(Text);
  EXPECT_STREQ(Text, "Quorvel Test ASIO Float");
  EXPECT_EQ(Second->outputReady(), ASE_NotPresent);
  Second->Release();
  D->Release();
  Host.Driver = nullptr;
  EXPECT_EQ(Stats().LiveObjects, 0);
  EXPECT_EQ(Api().CanUnloadNow(), Api().BusyCount() == 0 ? 0 : 1);
}

TEST_F(Qvtestasio, InjectedFailuresReachTheirMethodAfterTheGivenCalls) {
  Open();
  IASIO* D = Host.Driver;
  // Every method answers the code set for it, and only for it.
  TASIOBufferInfo Info{ASIOTrue, 0, {}};
  TASIOCallbacks Callbacks{};
  int32_t A = 0, B = 0, C = 0, E = 0;
  double Rate = 0;
  TASIOClockSource Clock;
  TASIOSamples Position;
  TASIOTimeStamp Stamp;
  TASIOChannelInfo Channel{0, ASIOTrue, 0, 0, 0, {}};
  const std::vector<std::function<int32_t()>> Calls = {
      [&] { return D->init(nullptr) == ASIOFalse ? -1 : 0; }, [&] { return D->start(); },
      [&] { return D->stop(); }, [&] { return D->getChannels(&A, &B); }, [&] { return D->getLatencies(&A, &B); },
      [&] { return D->getBufferSize(&A, &B, &C, &E); }, [&] { return D->canSampleRate(44100); },
      [&] { return D->getSampleRate(&Rate); }, [&] { return D->setSampleRate(44100); },
      [&] { return A = 1, D->getClockSources(&Clock, &A); }, [&] { return D->setClockSource(0); },
      [&] { return D->getSamplePosition(&Position, &Stamp); }, [&] { return D->getChannelInfo(&Channel); },
      [&] { return D->createBuffers(&Info, 1, 64, &Callbacks); }, [&] { return D->disposeBuffers(); },
      [&] { return D->controlPanel(); }, [&] { return D->future(kAsioCanTimeInfo, nullptr); },
      [&] { return D->outputReady(); }};
  ASSERT_EQ(Calls.size(), size_t(qvmCount));
  for (int32_t M = 0; M < qvmCount; ++M) {
    const int32_t Code = -5000 - M;
    Info.buffers[0] = Info.buffers[1] = nullptr;
    Api().SetFailure(0, M, Code, 0);
    for (int32_t Other = 0; Other < qvmCount; ++Other) {
      const int32_t Result = Calls[size_t(Other)]();
      if (Other == M)
        EXPECT_EQ(Result, M == qvmInit ? -1 : Code) << "method " << M;
      else
        EXPECT_NE(Result, -5000 - Other) << "method " << Other << " while " << M << " fails";
    }
    Api().SetFailure(0, M, 0, 0);
    if (M == qvmCreateBuffers) {
      EXPECT_EQ(Info.buffers[0], nullptr);
    }
    D->disposeBuffers();
  }

  // After the given number of good calls.
  Api().SetFailure(0, qvmGetChannelInfo, ASE_HWMalfunction, 2);
  EXPECT_EQ(D->getChannelInfo(&Channel), ASE_OK);
  EXPECT_EQ(D->getChannelInfo(&Channel), ASE_OK);
  EXPECT_EQ(D->getChannelInfo(&Channel), ASE_HWMalfunction);
  EXPECT_EQ(D->getChannelInfo(&Channel), ASE_HWMalfunction);
  Api().SetFailure(0, qvmGetChannelInfo, 0, 0);
  EXPECT_EQ(D->getChannelInfo(&Channel), ASE_OK);

  // A failing stop leaves the thread running; releasing the object ends it.
  Configure([](TQvTestAsioConfig&) {});
  ASSERT_EQ(Host.Create({{true, 0}, {false, 1}}, 64), ASE_OK);
  ASSERT_EQ(D->start(), ASE_OK);
  Api().SetFailure(0, qvmStop, ASE_HWMalfunction, 0);
  EXPECT_EQ(D->stop(), ASE_HWMalfunction);
  EXPECT_EQ(Stats().ThreadRunning, 1);
  D->Release();
  Host.Driver = nullptr;
  EXPECT_EQ(Stats().ThreadRunning, 0);
  EXPECT_EQ(Stats().BuffersCreated, 0);
}

TEST_F(Qvtestasio, StreamCarriesThePredictableSignalAndCapturesWhatTheHostWrote) {
  Configure([](TQvTestAsioConfig& C) {
    C.InputCount = C.OutputCount = 3;
    const TASIOSampleType In[3] = {ASIOSTInt16MSB, ASIOSTInt24LSB, ASIOSTFloat64MSB};
    const TASIOSampleType Out[3] = {ASIOSTInt32LSB16, ASIOSTFloat32MSB, ASIOSTInt24MSB};
    for (int I = 0; I < 3; ++I) {
      C.Inputs[I].Type = In[I];
      C.Outputs[I].Type = Out[I];
    }
    C.CaptureFrames = 4 * 64;  // four of the five switches
  });
  Open();
  IASIO* D = Host.Driver;
  ASSERT_EQ(Host.Create({{true, 0}, {true, 2}, {false, 1}, {false, 2}}, 64), ASE_OK);
  EXPECT_EQ(Stats().TimeInfoAnswer, 1);
  TASIOChannelInfo Info{1, ASIOFalse, 0, 0, 0, {}};
  D->getChannelInfo(&Info);
  EXPECT_EQ(Info.isActive, ASIOTrue);
  ASSERT_EQ(D->start(), ASE_OK);
  Api().Step(0, 5);
  ASSERT_TRUE(WaitFor([&] { return Stats().Switches == 5; }));
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_EQ(Stats().Switches, 5) << "a manual pace makes exactly the switches asked for";
  EXPECT_EQ(D->stop(), ASE_OK);

  EXPECT_EQ(Host.BadInputs, 0);
  EXPECT_EQ(Host.TimeInfoSwitches, 5);
  EXPECT_EQ(Host.OffMainThread, 5);
  for (int32_t N = 0; N < 5; ++N) {
    EXPECT_EQ(Host.Indices[N], N % 2);
    EXPECT_EQ(Host.Positions[N], uint64_t(64 * N));
  }
  for (const int32_t Channel : {1, 2}) {
    const TASIOSampleType Type = Channel == 1 ? ASIOSTFloat32MSB : ASIOSTInt24MSB;
    const int32_t Bytes = QvTestAsioSampleBytes(Type);
    std::vector<uint8_t> Captured(size_t(10 * 64 * Bytes)), Expected(size_t(4 * 64 * Bytes));
    ASSERT_EQ(Api().ReadCapture(0, Channel, Captured.data(), int64_t(Captured.size())), int64_t(Expected.size()));
    for (int32_t N = 0; N < 4; ++N)
      for (int32_t K = 0; K < 64; ++K)
        QvTestAsioEncode(Type, OutputValue(Channel, N, K), &Expected[size_t((N * 64 + K) * Bytes)]);
    Captured.resize(Expected.size());
    EXPECT_EQ(Captured, Expected) << "output channel " << Channel;
  }
  EXPECT_EQ(Api().ReadCapture(0, 0, nullptr, 0), -1) << "no buffers were made for output 0";

  // A raw input pattern replaces the signal; a new start restarts the position.
  ASSERT_EQ(D->disposeBuffers(), ASE_OK);
  Configure([](TQvTestAsioConfig& C) {
    C.Inputs[0].Type = ASIOSTFloat32LSB;
    C.RawPatternBytes = 4;
    const float One = 1.0f;
    std::memcpy(C.RawPattern, &One, 4);
  });
  ASSERT_EQ(Host.Create({{true, 0}}, 64), ASE_OK);
  ASSERT_EQ(D->start(), ASE_OK);
  Api().Step(0, 1);
  ASSERT_TRUE(WaitFor([&] { return Stats().Switches == 6; }));
  EXPECT_EQ(D->stop(), ASE_OK);
  const float* Samples = static_cast<const float*>(Host.Buffers[0].buffers[0]);
  EXPECT_EQ(Samples[0], 1.0f);
  EXPECT_EQ(Samples[63], 1.0f);
  EXPECT_EQ(Host.Positions[5], 0u);
}

TEST_F(Qvtestasio, PacesInRealTimeOrRunsFree) {
  // 480 frames at 48 kHz: one switch per 10 ms, the first one period after start.
  Configure([](TQvTestAsioConfig& C) {
    C.Pacing = qvpRealTime;
    C.Rates[0] = 48000;
    C.CurrentRate = 48000;
    C.MaxSize = 480;
    C.Granularity = 0;
    C.MaxSwitches = 10;
  });
  Open();
  ASSERT_EQ(Host.Create({{true, 0}, {false, 0}}, 480), ASE_OK);
  const auto Begin = Clock::now();
  ASSERT_EQ(Host.Driver->start(), ASE_OK);
  ASSERT_TRUE(WaitFor([&] { return Host.Switches == 10; }));
  const auto Elapsed = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - Begin).count();
  EXPECT_GE(Elapsed, 100000);
  EXPECT_LT(Elapsed, 100000 + 2000000);
  std::this_thread::sleep_for(std::chrono::milliseconds(30));
  EXPECT_EQ(Host.Switches, 10) << "no switch beyond MaxSwitches";
  EXPECT_EQ(Host.Driver->disposeBuffers(), ASE_OK);

  // Free running: 200 switches, which would take 2 s in real time.
  Configure([](TQvTestAsioConfig& C) {
    C.Pacing = qvpFreeRunning;
    C.MaxSwitches = 200;
  });
  ASSERT_EQ(Host.Create({{true, 0}, {false, 0}}, 480), ASE_OK);
  const auto FreeBegin = Clock::now();
  ASSERT_EQ(Host.Driver->start(), ASE_OK);
  ASSERT_TRUE(WaitFor([&] { return Host.Switches == 210; }));
  EXPECT_LT(std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - FreeBegin).count(), 1500);
  EXPECT_EQ(Host.BadInputs, 0);
}

TEST_F(Qvtestasio, StopJoinsTheDriverThreadAndNoCallbackFollows) {
  Configure([](TQvTestAsioConfig& C) { C.Pacing = qvpFreeRunning; });
  Open();
  IASIO* D = Host.Driver;
  for (int Round = 0; Round < 10; ++Round) {
    ASSERT_EQ(Host.Create({{true, 1}, {false, 0}}, 64), ASE_OK) << Round;
    const int32_t Before = Host.Switches;
    ASSERT_EQ(D->start(), ASE_OK);
    EXPECT_EQ(D->start(), ASE_OK) << "a second start changes nothing";
    ASSERT_TRUE(WaitFor([&] { return Host.Switches > Before + 3; }));
    ASSERT_EQ(Round % 2 ? D->disposeBuffers() : D->stop(), ASE_OK);  // dispose implies stop
    const TQvTestAsioStats S = Stats();
    EXPECT_EQ(S.ThreadRunning, 0);
    EXPECT_EQ(S.Running, 0);
    const int32_t After = Host.Switches;
    EXPECT_EQ(After, S.Switches) << "every switch counted reached the host";
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_EQ(Host.Switches, After) << "a callback after stop";
    if (Round % 2 == 0) {
      EXPECT_EQ(D->disposeBuffers(), ASE_OK);
    }
    EXPECT_EQ(D->disposeBuffers(), ASE_InvalidMode);
  }
  EXPECT_EQ(Host.BadInputs, 0);
  // Released while running: the object stops and frees what it holds.
  ASSERT_EQ(Host.Create({{false, 0}}, 64), ASE_OK);
  ASSERT_EQ(D->start(), ASE_OK);
  IASIO* Other = Api().Create(0);
  EXPECT_EQ(Other->createBuffers(Host.Buffers.data(), 1, 64, &Host.Callbacks), ASE_NotPresent)
      << "one object at a time holds the device's buffers";
  EXPECT_EQ(Other->stop(), ASE_OK);
  EXPECT_EQ(Stats().Running, 1);
  Other->Release();
  D->Release();
  Host.Driver = nullptr;
  EXPECT_EQ(Stats().ThreadRunning, 0);
}

TEST_F(Qvtestasio, OddBehavioursAndMessagesHappenOnlyWhenAsked) {
  Configure([](TQvTestAsioConfig& C) {
    C.Behaviours |= qvbAlwaysIndexZero | qvbNoTimeInfoQuery | qvbFalseRateChange | qvbResetRequestOnStart;
  });
  Open();
  IASIO* D = Host.Driver;
  ASSERT_EQ(Host.Create({{true, 0}, {false, 0}}, 64), ASE_OK);
  EXPECT_EQ(Stats().TimeInfoAnswer, -1);
  ASSERT_EQ(D->start(), ASE_OK);
  EXPECT_EQ(Host.ResetRequestsOnMain, 1) << "the reset request comes from start itself";
  // Messages on demand: from the driver thread while it runs (even between switches).
  ASSERT_EQ(Api().Message(0, kAsioResyncRequest, 0, nullptr), ASE_OK);
  ASSERT_TRUE(WaitFor([&] { return Stats().MessagesSent == 1; }));
  EXPECT_EQ(Host.ResyncsOffMain, 1);
  EXPECT_EQ(Stats().LastMessageAnswer, 1);
  Api().Step(0, 4);
  ASSERT_TRUE(WaitFor([&] { return Host.Switches == 4; }));
  ASSERT_TRUE(WaitFor([&] { return Host.RateChanges == 1; }));
  EXPECT_EQ(Host.ChangedRate, 44100.0);
  EXPECT_EQ(D->stop(), ASE_OK);
  int32_t Answer = -1;
  ASSERT_EQ(Api().Message(0, kAsioSupportsTimeInfo, 0, &Answer), ASE_OK);
  EXPECT_EQ(Answer, 1) << "stopped: sent from the calling thread";
  EXPECT_EQ(D->disposeBuffers(), ASE_OK);
  EXPECT_EQ(Api().Message(0, kAsioResyncRequest, 0, &Answer), ASE_NotPresent);
  EXPECT_EQ(Host.TimeInfoSwitches, 0);
  for (int32_t N = 0; N < 4; ++N) {
    EXPECT_EQ(Host.Indices[N], 0);
    EXPECT_EQ(Host.Positions[N], uint64_t(64 * N)) << "through getSamplePosition";
  }
  EXPECT_EQ(Host.BadInputs, 0);
  EXPECT_EQ(Host.RateChanges, 1);

  // Time info forced on a host that declined it; calls around createBuffers and stop.
  Configure([](TQvTestAsioConfig& C) {
    C.Behaviours = qvbForceTimeInfo | qvbSwitchDuringCreateBuffers | qvbSwitchDuringStop;
  });
  Host.TimeInfoReply = 0;
  ASSERT_EQ(Host.Create({{true, 1}, {false, 1}}, 64), ASE_OK);
  EXPECT_EQ(Stats().TimeInfoAnswer, 0);
  ASSERT_TRUE(WaitFor([&] { return Stats().OddSwitches == 1 && Stats().OddThreadsRunning == 0; }));
  EXPECT_EQ(Host.Switches, 5) << "one call before start";
  ASSERT_EQ(D->start(), ASE_OK);
  Api().Step(0, 2);
  ASSERT_TRUE(WaitFor([&] { return Host.Switches == 7; }));
  EXPECT_EQ(D->stop(), ASE_OK);
  ASSERT_TRUE(WaitFor([&] { return Stats().OddSwitches == 2 && Stats().OddThreadsRunning == 0; }));
  EXPECT_EQ(Host.Switches, 8) << "one call during stop";
  EXPECT_EQ(Host.Positions[7], 2u * 64) << "it carries the block after the last one";
  EXPECT_EQ(Host.TimeInfoSwitches, 4);
  EXPECT_EQ(Host.OffMainThread, 8);
  EXPECT_EQ(Host.BadInputs, 0);
  EXPECT_EQ(Stats().Switches, 6);
}

TEST_F(Qvtestasio, RegisteredDriversOpenThroughTheSystem) {
#ifndef _WIN32
  ASSERT_TRUE(QvTestAsioRegisterDrivers());  // on Windows the regsvr32 fixture did this
#endif
  ASSERT_TRUE(Asiodrivers::InitializeComForThisThread());
  std::vector<std::string> Names;
  ASSERT_TRUE(Asiodrivers::EnumerateDriverKeys(Names));
  for (int32_t Slot = 0; Slot < QvTestAsioDriverCount; ++Slot) {
    EXPECT_NE(std::find(Names.begin(), Names.end(), QvTestAsioNames[Slot]), Names.end());
    std::string Text;
    ASSERT_TRUE(Asiodrivers::ReadDriverClsid(QvTestAsioNames[Slot], Text));
    EXPECT_EQ(Text, QvTestAsioClsidTexts[Slot]);
    TQvTestAsioConfig C = Config(Slot);
    std::strcpy(C.DriverName, "Configured from the test");
    Api().SetConfig(Slot, &C);
    // Created as hosts create drivers: the CLSID is also the interface asked for.
    auto* Driver = static_cast<IASIO*>(Asiodrivers::CreateInprocInstance(QvTestAsioClsids[Slot], QvTestAsioClsids[Slot]));
    ASSERT_NE(Driver, nullptr) << QvTestAsioNames[Slot];
    char Name[32];
    Driver->getDriverName(Name);
    EXPECT_STREQ(Name, "Configured from the test") << "COM loaded the module the test configures";
    EXPECT_EQ(Api().CanUnloadNow(), 1);
    Driver->Release();
  }
  EXPECT_EQ(Api().CanUnloadNow(), Api().BusyCount() == 0 ? 0 : 1);
#ifndef _WIN32
  ASSERT_TRUE(QvTestAsioUnregisterDrivers());
  Names.clear();
  Asiodrivers::EnumerateDriverKeys(Names);
  EXPECT_EQ(std::find(Names.begin(), Names.end(), QvTestAsioNames[0]), Names.end());
  EXPECT_EQ(Asiodrivers::CreateInprocInstance(QvTestAsioClsids[0], QvTestAsioClsids[0]), nullptr);
#endif
}

}  // namespace
}  // namespace Quorvel
