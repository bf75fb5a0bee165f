// The ASIO audio device on its own: its queue, its properties, what it reads
// from the driver, its answers to the driver's messages, its reports when a
// driver method fails, and how it survives drivers that behave oddly. The
// driver is the project's test driver, opened where hosts find drivers.
#include <climits>
#include <cstring>
#include <string>
#include <vector>

#include "asio/Srasiocallbackentries.h"
#include "frame/Wbdocument.h"
#include "frame/Wbexception.h"
#include "tests/asio/Asiodevicefixture.h"
#include "tests/support/Testcomponents.h"

namespace Quorvel {
namespace {

using Testing::AsioDeviceTest;

ISRAudioBufferRef Ramp(size_t Samples, int32_t First, unsigned Bits = 16) {
  auto B = TSRAudioBuffer::Create(1, Samples, Bits, 48000);
  for (size_t I = 0; I < Samples; ++I) B->SetSample(I, 0, First + int32_t(I));
  return B;
}

TEST(SrasioAudioQueue, PopsExactlyAcrossBuffersOrNotAtAll) {
  TSRASIOAudioQueue Q;
  Q.Push(Ramp(3, 0));
  Q.Push(Ramp(5, 100));
  EXPECT_EQ(Q.GetTotal(), 8u);
  auto Big = TSRAudioBuffer::Create(1, 9, 16, 48000);
  EXPECT_FALSE(Q.Pop(*Big)) << "more than is held";
  EXPECT_EQ(Q.GetTotal(), 8u);
  EXPECT_EQ(Q.GetCount(), 2u);
  // Two, then four across the boundary, then the last two; widths convert.
  auto Two = TSRAudioBuffer::Create(1, 2, 16, 48000);
  ASSERT_TRUE(Q.Pop(*Two));
  EXPECT_EQ(Two->GetSample(1, 0), 1);
  EXPECT_EQ(Q.GetReadOffset(), 2u);
  auto Four = TSRAudioBuffer::Create(1, 4, 24, 48000);
  ASSERT_TRUE(Q.Pop(*Four));
  EXPECT_EQ(Four->GetSample(0, 0), 2 * 256);
  EXPECT_EQ(Four->GetSample(1, 0), 100 * 256);
  EXPECT_EQ(Four->GetSample(3, 0), 102 * 256);
  EXPECT_EQ(Q.GetReadOffset(), 3u);
  EXPECT_EQ(Q.GetCount(), 1u);
  ASSERT_TRUE(Q.Pop(*Two));
  EXPECT_EQ(Two->GetSample(0, 0), 103);
  EXPECT_EQ(Q.GetTotal(), 0u);
  EXPECT_EQ(Q.GetReadOffset(), 0u) << "the emptied head is gone";
  // A partly read head is handed out without the part already read.
  Q.Push(Ramp(4, 10));
  Q.Push(Ramp(4, 20));
  ASSERT_TRUE(Q.Pop(*Two));
  auto Rest = Q.PopBuffer();
  ASSERT_TRUE(Rest);
  EXPECT_EQ(Rest->GetSamples(), 2u);
  EXPECT_EQ(Rest->GetSample(0, 0), 12);
  EXPECT_EQ(Q.GetTotal(), 4u);
  // Round the ring more than once; a full queue refuses a buffer and keeps
  // what it holds.
  EXPECT_EQ(Q.PopBuffer()->GetSample(0, 0), 20);
  const size_t Capacity = Q.GetCapacity();
  for (size_t Round = 0; Round < 3; ++Round) {
    for (size_t I = 0; I < Capacity; ++I) ASSERT_TRUE(Q.Push(Ramp(1, int32_t(1000 + I))));
    EXPECT_FALSE(Q.Push(Ramp(1, 0)));
    EXPECT_EQ(Q.GetTotal(), Capacity);
    auto One = TSRAudioBuffer::Create(1, 1, 16, 48000);
    for (size_t I = 0; I < Capacity; ++I) {
      ASSERT_TRUE(Q.Pop(*One));
      ASSERT_EQ(One->GetSample(0, 0), int32_t(1000 + I));
    }
  }
  Q.Push(Ramp(2, 7));
  Q.Reserve(Capacity * 2);
  EXPECT_EQ(Q.GetCapacity(), Capacity * 2);
  EXPECT_EQ(Q.PopBuffer()->GetSample(1, 0), 8) << "reserving keeps what is held";
  Q.Clear();
  EXPECT_EQ(Q.GetTotal(), 0u);
  EXPECT_EQ(Q.GetCount(), 0u);
  EXPECT_FALSE(Q.PopBuffer());
}

TEST(SrasioAudioDevice, PropertiesKeepTheirRules) {
  TSRASIOAudioDevice Device;
  EXPECT_EQ(Device.GetSampleRate().GetRate(), 44100.0);
  Device.GetSampleRate().SetRate(96000);
  Device.GetSampleRate().SetRate(0);
  EXPECT_EQ(Device.GetSampleRate().GetRate(), 44100.0);
  Device.GetSampleRate().SetRate(-5);
  EXPECT_EQ(Device.GetSampleRate().GetRate(), 44100.0);
  EXPECT_FALSE(Device.ShouldStoreInputChannels());
  Device.GetInputChannels().SetCount(3);
  EXPECT_TRUE(Device.ShouldStoreInputChannels());
  EXPECT_EQ(Device.GetInputChannels().GetItem(2).GetIndex(), 2);
  EXPECT_EQ(Device.GetInputChannels().GetItem(2).GetOutputPin().GetName(), "Input3");
  Device.GetInputChannels().Delete(0);
  EXPECT_EQ(Device.GetInputChannels().GetItem(1).GetOutputPin().GetName(), "Input3");
  EXPECT_EQ(TSRASIOAudioDevice::GetErrorMessageFromCode(ASE_NoMemory), "Not enough memory for completing the request");
  EXPECT_EQ(TSRASIOAudioDevice::GetErrorMessageFromCode(ASE_OK), "Unknown");
  // Nothing to open: false, and no report.
  int Reports = 0;
  Device.OnError = [&](TWBComponent*, const std::string&, int32_t, bool& Handled) { ++Reports, Handled = true; };
  EXPECT_FALSE(Device.Open());
  EXPECT_FALSE(Device.Start());
  EXPECT_FALSE(Device.CanSampleRate(48000));
  EXPECT_EQ(Reports, 0);
}

TEST(SrasioAudioDevice, AnswersTheDriversMessages) {
  TSRASIOAudioDevice Device;
  // Time code is reported as supported although asking for it answers 0.
  EXPECT_EQ(Device.AsioMessage(kAsioSelectorSupported, kAsioSupportsTimeCode, nullptr, nullptr), 1);
  EXPECT_EQ(Device.AsioMessage(kAsioSupportsTimeCode, 0, nullptr, nullptr), 0);
  EXPECT_EQ(Device.AsioMessage(kAsioSelectorSupported, kAsioBufferSizeChange, nullptr, nullptr), 0);
  EXPECT_EQ(Device.AsioMessage(kAsioResyncRequest, 0, nullptr, nullptr), 1) << "without a handler too";
  int Resyncs = 0, Latencies = 0;
  Device.OnResyncRequest = [&](TSRASIOAudioDevice* S) { Resyncs += S == &Device; };
  Device.OnLatenciesChanged = [&](TSRASIOAudioDevice* S) { Latencies += S == &Device; };
  EXPECT_EQ(Device.AsioMessage(kAsioResyncRequest, 0, nullptr, nullptr), 1);
  EXPECT_EQ(Device.AsioMessage(kAsioLatenciesChanged, 0, nullptr, nullptr), 1);
  EXPECT_EQ(Resyncs, 1);
  EXPECT_EQ(Latencies, 1);
  // A reset request is queued for the main thread, even from it.
  EXPECT_EQ(Device.AsioMessage(kAsioResetRequest, 0, nullptr, nullptr), 1);
  EXPECT_EQ(Threading::ProcessMainThreadQueue(), 1);
  Device.SampleRateDidChange(12345.0);
}

TEST_F(AsioDeviceTest, OpenReadsTheDriverAndStartAnnouncesEachInput) {
  TQvTestAsioConfig C = Config();
  C.InputCount = 4;
  C.Inputs[0].Type = ASIOSTInt16LSB;
  C.Inputs[1].Type = ASIOSTInt24MSB;
  C.Inputs[2].Type = ASIOSTFloat64LSB;
  C.Inputs[3].Type = ASIOSTDSDInt8LSB1;
  std::strcpy(C.Inputs[1].Name, "Second");
  C.MinSize = 64;
  C.MaxSize = 2048;
  C.Granularity = 32;
  C.PreferredSize = 256;
  C.InputLatency = 123;
  C.OutputLatency = 456;
  C.DriverVersion = 7;
  C.Behaviours |= qvbAnyBufferSize;
  C.Pacing = qvpManual;
  SetConfig(C);

  TSRASIOAudioDevice Device;
  Prepare(Device, 0, 4, 2);
  Device.GetSampleRate().SetRate(48000);
  // The driver parents its control panel to the application's window.
  int Window = 0;
  Device.SetApplicationWindow(&Window);
  ASSERT_TRUE(Device.Open());
  EXPECT_EQ(Stats().InitCalls, 1);
  EXPECT_EQ(Stats().SysHandle, int64_t(reinterpret_cast<intptr_t>(&Window)));
  EXPECT_TRUE(Device.GetOpened());
  EXPECT_EQ(Device.GetDriverName(), QvTestAsioNames[0]);
  EXPECT_EQ(Device.GetDriverVersion(), 7);
  EXPECT_EQ(Device.GetRunningSampleRate(), 48000.0);
  EXPECT_EQ(Device.GetRunningSampleRateInt(), 48000);
  EXPECT_EQ(Device.GetInputLatency(), 123);
  EXPECT_EQ(Device.GetOutputLatency(), 456);
  EXPECT_TRUE(Device.GetUsesPostOutput());
  EXPECT_EQ(Device.GetDriverInputCount(), 4);
  EXPECT_EQ(Device.GetDriverOutputCount(), 2);
  ASSERT_EQ(Device.GetChannelInfos().size(), 6u);
  EXPECT_EQ(Device.GetChannelInfos()[4].isInput, ASIOFalse);
  ASSERT_EQ(Device.GetAvailableInputChannels().GetCount(), 4);
  EXPECT_EQ(Device.GetAvailableInputChannels().GetItem(1).Name, "Second");
  EXPECT_EQ(Device.GetAvailableInputChannels().GetItem(1).Type, ASIOSTInt24MSB);
  EXPECT_EQ(Device.GetAvailableOutputChannels().GetItem(1).Channel, 1);
  EXPECT_EQ(Device.GetClockSource().GetSources().size(), size_t(C.ClockCount));
  EXPECT_TRUE(Device.CanSampleRate(96000));
  EXPECT_FALSE(Device.CanSampleRate(12345));

  // The size rule: 100 with granularity 32 from 64 is 96, and limits apply.
  TSRASIOBufferSize& Size = Device.GetBufferSize();
  EXPECT_EQ(Size.GetMin(), 64);
  EXPECT_EQ(Size.GetGranularity(), 32);
  EXPECT_EQ(Size.CalculateSize(), 256) << "the preferred size";
  Size.SetUsePreferred(false);
  Size.SetBufferSize(100);
  EXPECT_EQ(Size.CalculateSize(), 96);
  Size.SetBufferSize(5000);
  EXPECT_EQ(Size.CalculateSize(), 2048);
  Size.SetBufferSize(1);
  EXPECT_EQ(Size.CalculateSize(), 64);
  Size.SetBufferSize(100);

  Testing::TRecordingSink Sink(nullptr, 4);
  for (int I = 0; I < 4; ++I) ASSERT_TRUE(Device.GetInputChannels().GetItem(I).GetOutputPin().Connect(*Sink.Inputs[size_t(I)]));
  ASSERT_TRUE(Device.Start());
  EXPECT_TRUE(Device.GetRunning());
  EXPECT_TRUE(Device.GetEnabled());
  EXPECT_EQ(Size.GetRunningSize(), 96);
  EXPECT_EQ(Stats().RequestedBufferSize, 96);
  ASSERT_EQ(Sink.Formats.size(), 4u);
  const unsigned WantBits[4] = {16, 24, 32, 8};
  for (size_t I = 0; I < 4; ++I) {
    const TSRWaveFormatExtensible& F = Sink.Formats[I];
    SCOPED_TRACE(I);
    EXPECT_EQ(F.Format.wFormatTag, 65534);
    EXPECT_EQ(F.Format.nChannels, 1);
    EXPECT_EQ(F.Format.nSamplesPerSec, 48000u);
    EXPECT_EQ(F.Format.cbSize, 22);
    EXPECT_EQ(F.dwChannelMask, 1u);
    EXPECT_EQ(F.SubFormat, KSDATAFORMAT_SUBTYPE_PCM);
    EXPECT_EQ(F.Samples.wValidBitsPerSample, WantBits[I]);
    EXPECT_EQ(F.Format.wBitsPerSample, WantBits[I]);
    EXPECT_EQ(F.Format.nBlockAlign, WantBits[I] / 8);
    EXPECT_EQ(F.Format.nAvgBytesPerSec, 48000u * (WantBits[I] / 8));
  }
  // Buffers arrive at the sink on the processing thread.
  ASSERT_TRUE(StepLockstep(Device, 3, 0));
  ASSERT_TRUE(WaitUntil([&] { return Device.GetStats().SubmittedBuffers >= 9; }));
  Device.SetEnabled(false);
  EXPECT_FALSE(Device.GetRunning());
  EXPECT_EQ(Sink.Count(poidStop), 4u);
  EXPECT_EQ(Stats().BuffersCreated, 0);
  Device.SetOpened(false);
  EXPECT_FALSE(Device.GetOpened());
  EXPECT_EQ(Stats().LiveObjects, 0);
  // While properties are being loaded, enabling only records the wish; the
  // device starts when loading ends.
  Device.BeginLoading();
  Device.SetEnabled(true);
  EXPECT_FALSE(Device.GetOpened());
  Device.EndLoading();
  EXPECT_TRUE(Device.GetRunning());
  Device.Close();
  EXPECT_FALSE(Device.GetEnabled());
}

struct TReport {
  bool Error;
  std::string Text;
  int32_t Code;
};

class AsioDeviceFaults : public AsioDeviceTest {
 protected:
  void Watch(TSRASIOAudioDevice& Device) {
    Reports.clear();
    Device.OnError = [this](TWBComponent*, const std::string& Text, int32_t Code, bool& Handled) {
      Reports.push_back({true, Text, Code});
      Handled = true;
    };
    Device.OnWarning = [this](TWBComponent*, const std::string& Text, int32_t Code) { Reports.push_back({false, Text, Code}); };
  }
  std::vector<TReport> Reports;
};

const int32_t Codes[] = {ASE_NotPresent, ASE_HWMalfunction, ASE_InvalidParameter, ASE_InvalidMode,
                         ASE_SPNotAdvancing, ASE_NoClock, ASE_NoMemory, 4711};

TEST_F(AsioDeviceFaults, EveryFailingMethodAtOpenAndStartIsReportedAndLeavesAKnownState) {
  struct TCase {
    TQvTestAsioMethod Method;
    int32_t After;
    bool AtStart;
    bool Error;
    const char* Text;
    bool Opened;
    bool Running;
  };
  const TCase Cases[] = {
      {qvmSetSampleRate, 0, false, true, "Can't set sample rate", false, false},
      {qvmGetSampleRate, 0, false, false, "Can't get sample rate", true, true},
      {qvmGetChannels, 0, false, true, "Can't get channels", false, false},
      {qvmGetBufferSize, 0, false, true, "Can't get buffer size", false, false},
      {qvmGetChannelInfo, 1, false, true, "Can't get inpit channel 1 info", false, false},
      {qvmGetChannelInfo, 3, false, true, "Can't get outpit channel 1 info", false, false},
      {qvmGetLatencies, 0, false, false, "Can't get latencies", true, true},
      {qvmSetClockSource, 0, true, true, "Can't release callback", true, false},
      {qvmCreateBuffers, 0, true, true, "Can't create buffers", true, false},
      {qvmStart, 0, true, true, "Can't start", true, false},
  };
  for (const TCase& K : Cases)
    for (int32_t Code : Codes) {
      SCOPED_TRACE(std::string(K.Text) + " " + std::to_string(Code));
      Api->Reset(0);
      {
        TSRASIOAudioDevice Device;
        Prepare(Device, 0, 2, 2);
        Watch(Device);
        Api->SetFailure(0, K.Method, Code, K.After);
        Device.Start();
        ASSERT_FALSE(Reports.empty());
        EXPECT_EQ(Reports[0].Error, K.Error);
        EXPECT_EQ(Reports[0].Text, std::string(K.Text) + " - " + TSRASIOAudioDevice::GetErrorMessageFromCode(Code));
        EXPECT_EQ(Reports[0].Code, Code);
        EXPECT_EQ(Device.GetOpened(), K.Opened);
        EXPECT_EQ(Device.GetRunning(), K.Running);
        EXPECT_EQ(Stats().BuffersCreated, K.Running ? 1 : 0) << "buffers of a failed start are disposed";
        if (!K.Running && K.Opened) {
          // The same device starts once the driver behaves.
          Api->SetFailure(0, K.Method, 0, 0);
          EXPECT_TRUE(Device.Start());
          EXPECT_TRUE(Device.GetRunning());
        }
      }
      EXPECT_EQ(Stats().LiveObjects, 0) << "the driver was not released";
      EXPECT_EQ(Stats().BuffersCreated, 0);
    }
  // Failures the device does not report: init, output ready, clock sources.
  for (TQvTestAsioMethod M : {qvmInit, qvmOutputReady, qvmGetClockSources}) {
    Api->Reset(0);
    TSRASIOAudioDevice Device;
    Prepare(Device, 0, 2, 2);
    Watch(Device);
    Api->SetFailure(0, M, ASE_HWMalfunction, 0);
    EXPECT_TRUE(Device.Start());
    EXPECT_TRUE(Device.GetRunning());
    EXPECT_TRUE(Reports.empty());
    EXPECT_EQ(Device.GetUsesPostOutput(), M != qvmOutputReady);
  }
}

TEST_F(AsioDeviceFaults, FailuresWhileRunningAndNonsenseFromTheDriver) {
  // Channel information failing after open: warnings, and the stream runs.
  {
    TSRASIOAudioDevice Device;
    Prepare(Device, 0, 2, 2);
    Watch(Device);
    ASSERT_TRUE(Device.Open());
    Api->SetFailure(0, qvmGetChannelInfo, ASE_InvalidMode, 0);
    Device.Start();
    EXPECT_TRUE(Device.GetRunning());
    ASSERT_EQ(Reports.size(), 4u);
    EXPECT_FALSE(Reports[0].Error);
    EXPECT_EQ(Reports[1].Text, "Can't get inpit channel 1 info - Hardware is in a bad mode or used in a bad mode");
    EXPECT_EQ(Reports[3].Text, "Can't get outpit channel 1 info - Hardware is in a bad mode or used in a bad mode");
  }
  // Stop failing: reported; the device stays stopping until it is closed,
  // and closing still releases the driver's buffers.
  for (TQvTestAsioMethod M : {qvmStop, qvmDisposeBuffers}) {
    Api->Reset(0);
    {
      TSRASIOAudioDevice Device;
      Prepare(Device, 0, 2, 2);
      Watch(Device);
      ASSERT_TRUE(Device.Start());
      Api->SetFailure(0, M, ASE_HWMalfunction, 0);
      Device.Stop();
      ASSERT_EQ(Reports.size(), 1u);
      EXPECT_EQ(Reports[0].Text, std::string(M == qvmStop ? "Can't stop" : "Can't dispose buffers") +
                                     " - Hardware is malfunctioning (can be returned by any ASIO function)");
      EXPECT_FALSE(Device.GetRunning());
      Device.Stop();
      EXPECT_EQ(Reports.size(), 1u) << "a stopped device stops no more";
      Api->SetFailure(0, M, 0, 0);
      Device.Close();
      EXPECT_EQ(Stats().BuffersCreated, 0);
      EXPECT_EQ(Stats().Running, 0);
    }
    EXPECT_EQ(Stats().LiveObjects, 0);
  }
  // Counts no hardware has, on either side, refused at their full width:
  // 65537 and -65535 would pass as 1 if cut to 16 bits first.
  for (int32_t Count : {-1, -65535, INT32_MIN, 4097, 65537, INT32_MAX}) {
    for (bool Input : {true, false}) {
      SCOPED_TRACE(std::to_string(Count) + (Input ? " inputs" : " outputs"));
      Api->Reset(0);
      TQvTestAsioConfig C = Config();
      (Input ? C.InputCount : C.OutputCount) = Count;
      SetConfig(C);
      TSRASIOAudioDevice Device;
      Prepare(Device, 0, 2, 2);
      Watch(Device);
      EXPECT_FALSE(Device.Start());
      ASSERT_EQ(Reports.size(), 1u);
      EXPECT_TRUE(Reports[0].Error);
      EXPECT_EQ(Reports[0].Text, "Can't get channels - Unknown");
      EXPECT_FALSE(Device.GetOpened());
      EXPECT_EQ(Stats().CreateBuffersCalls, 0);
      EXPECT_EQ(Stats().LiveObjects, 0) << "the driver was released";
    }
  }
  // Unhandled, an error is raised with the code in decimal and hexadecimal.
  Api->Reset(0);
  TSRASIOAudioDevice Device;
  Prepare(Device, 0, 2, 2);
  Api->SetFailure(0, qvmCreateBuffers, ASE_NoMemory, 0);
  try {
    Device.Start();
    ADD_FAILURE() << "no exception";
  } catch (const EWBException& E) {
    EXPECT_STREQ(E.what(), "Can't create buffers - Not enough memory for completing the request - 4294966302 - FFFFFC1E");
  }
  EXPECT_TRUE(Device.GetOpened());
  EXPECT_FALSE(Device.GetRunning());
}

// The entry a start takes stays with the component until it closes; only
// the latest one is released then, and a component that never started
// releases entry 0, whoever holds it.
TEST_F(AsioDeviceTest, CallbackEntriesFollowStartsAndCloses) {
  const auto LowestFree = [] {
    PASIOCallbacks Record = nullptr;
    TASIOAsioMessageMethod Message{reinterpret_cast<void*>(1),
                                   [](void*, int32_t, int32_t, void*, double*) -> int32_t { return 0; }};
    const int32_t Index = ASIOGetCallback(Record, {}, {}, Message, {});
    ASIOReleaseCallback(Index);
    return Index;
  };
  const int32_t First = LowestFree();
  {
    TSRASIOAudioDevice Device;
    Prepare(Device, 0, 2, 2);
    ASSERT_TRUE(Device.Start());
    EXPECT_EQ(Device.GetCallbackIndex(), First);
    Device.Stop();
    ASSERT_TRUE(Device.Start());
    EXPECT_EQ(Device.GetCallbackIndex(), First + 1);
    Device.Close();
    EXPECT_EQ(LowestFree(), First + 1) << "the first start's entry stays busy";
  }
  EXPECT_EQ(LowestFree(), First) << "a destroyed device leaves no entry bound to it";

  // A device started and stopped without closing until no entry is left:
  // the start that finds none reports it and never reaches createBuffers.
  {
    TQvTestAsioConfig C = Config();
    C.Pacing = qvpManual;
    SetConfig(C);
    TSRASIOAudioDevice Device;
    Prepare(Device, 0, 1, 1);
    std::vector<std::string> Errors;
    Device.OnError = [&](TWBComponent*, const std::string& Text, int32_t, bool& Handled) {
      Errors.push_back(Text);
      Handled = true;
    };
    const int32_t CreatesBefore = Stats().CreateBuffersCalls;
    int Starts = 0;
    for (;;) {
      Device.SetEnabled(true);
      if (!Device.GetRunning()) break;
      ++Starts;
      Device.SetEnabled(false);
      ASSERT_LE(Starts, ASIOCallbackEntryCount);
    }
    EXPECT_EQ(Starts, ASIOCallbackEntryCount - First);
    EXPECT_EQ(LowestFree(), -1);
    EXPECT_EQ(Stats().CreateBuffersCalls - CreatesBefore, Starts) << "no null record reached the driver";
    ASSERT_EQ(Errors.size(), 1u);
    EXPECT_EQ(Errors[0], "Can't get callback - Not enough memory for completing the request");
    EXPECT_TRUE(Device.GetOpened());
    EXPECT_FALSE(Device.GetEnabled());
    Device.Close();
    EXPECT_EQ(Stats().BuffersCreated, 0);
  }
  EXPECT_EQ(LowestFree(), First) << "the entries went with the device";

  // Another holder of entry 0, and a device that opens and closes.
  PASIOCallbacks Record = nullptr;
  TASIOAsioMessageMethod Message{reinterpret_cast<void*>(2), [](void*, int32_t, int32_t, void*, double*) -> int32_t { return 7; }};
  if (First != 0) GTEST_SKIP() << "entry 0 is taken by someone else in this process";
  ASSERT_EQ(ASIOGetCallback(Record, {}, {}, Message, {}), 0);
  TSRASIOAudioDevice Device;
  Prepare(Device, 0, 0, 0);
  ASSERT_TRUE(Device.Open());
  Device.Close();
  EXPECT_EQ(Record->asioMessage(1, 2, nullptr, nullptr), 0) << "entry 0 was released";
  EXPECT_EQ(LowestFree(), 0);
}

// Each input wired straight to the output of the same number: what the driver
// captures is its own input, one buffer later.
void Loop(TSRASIOAudioDevice& Device) {
  for (int I = 0; I < 2; ++I)
    ASSERT_TRUE(Device.GetInputChannels().GetItem(I).GetOutputPin().Connect(Device.GetOutputChannels().GetItem(I).GetInputPin()));
}

bool CaptureIsDelayedInput(const TQvTestAsioApi& Api, int32_t Channel, int Switches, int32_t N) {
  std::vector<int32_t> Got(size_t(N) * size_t(Switches));
  if (Api.ReadCapture(0, Channel, Got.data(), int64_t(Got.size() * 4)) != int64_t(Got.size() * 4)) return false;
  for (int32_t P = 0; P < N * (Switches - 1); ++P)
    if (Got[size_t(P + N)] != QvTestAsioSignal(Channel, uint64_t(P))) return false;
  return true;
}

TEST_F(AsioDeviceTest, SurvivesDriversThatBehaveOddly) {
  const uint32_t Oddities[] = {qvbSwitchDuringCreateBuffers, qvbSwitchDuringStop, qvbAlwaysIndexZero,
                               qvbForceTimeInfo, qvbNoTimeInfoQuery, qvbFalseRateChange};
  for (uint32_t Odd : Oddities) {
    SCOPED_TRACE("behaviour " + std::to_string(Odd));
    Api->Reset(0);
    TQvTestAsioConfig C = Config();
    C.Pacing = qvpManual;
    C.Behaviours |= Odd;
    SetConfig(C);
    TSRASIOAudioDevice Device;
    Prepare(Device, 0, 2, 2, 64);
    Loop(Device);
    ASSERT_TRUE(Device.Start());
    ASSERT_TRUE(StepLockstep(Device, 6, 2));
    EXPECT_TRUE(CaptureIsDelayedInput(*Api, 0, 6, 64));
    EXPECT_TRUE(CaptureIsDelayedInput(*Api, 1, 6, 64));
    EXPECT_EQ(Device.GetStats().LostBuffers, 0u);
    Device.Stop();
    EXPECT_FALSE(Device.GetRunning());
    ASSERT_TRUE(WaitUntil([&] { return Stats().OddThreadsRunning == 0; }));
    if (Odd == qvbSwitchDuringCreateBuffers || Odd == qvbSwitchDuringStop) {
      EXPECT_EQ(Device.GetStats().SkippedSwitches, 1u) << "a switch outside the stream is ignored";
    }
    if (Odd == qvbNoTimeInfoQuery) {
      EXPECT_EQ(Stats().TimeInfoSwitches, 0);
    }
    if (Odd == qvbFalseRateChange) {
      EXPECT_EQ(Device.GetRunningSampleRate(), 44100.0);
    }
    Device.Close();
  }
}

TEST_F(AsioDeviceTest, ResetRequestsStopTheDeviceOnTheMainThread) {
  // Asked while starting: the start completes, then the main thread stops it.
  TQvTestAsioConfig C = Config();
  C.Behaviours |= qvbResetRequestOnStart;
  SetConfig(C);
  TSRASIOAudioDevice Device;
  Prepare(Device, 0, 2, 2);
  ASSERT_TRUE(Device.Start());
  EXPECT_EQ(Stats().ResetRequests, 1);
  ASSERT_TRUE(WaitUntil([&] { return !Device.GetRunning(); }));
  EXPECT_EQ(Stats().BuffersCreated, 0);
  // Asked from the driver's thread while it runs.
  Api->Reset(0);
  ASSERT_TRUE(Device.Start());
  int32_t Answer = 0;
  ASSERT_EQ(Api->Message(0, kAsioResetRequest, 0, &Answer), ASE_OK);
  ASSERT_TRUE(WaitUntil([&] { return !Device.GetRunning(); }));
  EXPECT_EQ(Stats().LastMessageAnswer, 1);
  EXPECT_TRUE(Device.GetOpened());
  // A device destroyed with a request still queued leaves nothing behind.
  {
    TSRASIOAudioDevice Gone;
    Gone.AsioMessage(kAsioResetRequest, 0, nullptr, nullptr);
  }
  EXPECT_EQ(Threading::ProcessMainThreadQueue(), 0);
}

// With pumping on, every exchange asks each connected output's source for
// more; without it, none does.
TEST_F(AsioDeviceTest, MasterPumpingAsksUpstreamAfterEachExchange) {
  TQvTestAsioConfig C = Config();
  C.Pacing = qvpManual;
  SetConfig(C);
  TSRASIOAudioDevice Device;
  Prepare(Device, 0, 0, 2);
  Testing::TTestSource Source(nullptr, 1, 16, 44100);
  ASSERT_TRUE(Source.Output.Connect(Device.GetOutputChannels().GetItem(1).GetInputPin()));
  ASSERT_TRUE(Device.Start());
  ASSERT_TRUE(StepLockstep(Device, 2, 0));
  Device.SetMasterPumping(true);
  ASSERT_TRUE(StepLockstep(Device, 3, 0));
  Device.Stop();
  EXPECT_EQ(Source.UpstreamIDs, std::vector<TPWOperationID>(3, poidMasterPump));
}

// A callback made from inside the device's own exchange (here: by the source
// it pumps) is ignored instead of waiting for the exchange to end.
class TReentrantSource : public TWBComponent {
 public:
  explicit TReentrantSource(TSRASIOAudioDevice& Device) : Output(*this, "Output"), FDevice(Device) {}
  ~TReentrantSource() override { BeginDestroy(); }
  void SourceDispatch(TPWBasicPin*, TPWBasicPin*, TPWOperationID, TPWOperation&, TPWNotifyStates&) override {
    FDevice.BufferSwitch(0, ASIOTrue);
    FDevice.BufferSwitchTimeInfo(nullptr, 1, ASIOTrue);
  }
  TSRPWAudioSourcePin Output;

 private:
  TSRASIOAudioDevice& FDevice;
};

TEST_F(AsioDeviceTest, CallbacksFromInsideTheExchangeAreIgnored) {
  TQvTestAsioConfig C = Config();
  C.Pacing = qvpManual;
  SetConfig(C);
  TSRASIOAudioDevice Device;
  Prepare(Device, 0, 0, 1);
  TReentrantSource Source(Device);
  ASSERT_TRUE(Source.Output.Connect(Device.GetOutputChannels().GetItem(0).GetInputPin()));
  Device.SetMasterPumping(true);
  ASSERT_TRUE(Device.Start());
  ASSERT_TRUE(StepLockstep(Device, 2, 0));
  EXPECT_EQ(Device.GetStats().Switches, 2u);
  EXPECT_EQ(Device.GetStats().SkippedSwitches, 4u);
  Device.Stop();
}

// Start, stop and close from the main thread while the driver's thread
// switches as fast as it can: no deadlock, no race, nothing left running.
TEST_F(AsioDeviceTest, StartStopCloseWhileTheDriverRuns) {
  TQvTestAsioConfig C = Config();
  C.Pacing = qvpFreeRunning;
  C.Behaviours |= qvbSwitchDuringStop;
  SetConfig(C);
  {
    TSRASIOAudioDevice Device;
    Prepare(Device, 0, 2, 2, 64);
    Loop(Device);
    for (int I = 0; I < 30; ++I) {
      ASSERT_TRUE(Device.Start());
      ASSERT_TRUE(WaitUntil([&] { return Device.GetStats().SubmittedBuffers >= 4; }));
      if (I % 3 == 0)
        Device.Close();
      else
        Device.Stop();
      EXPECT_FALSE(Device.GetRunning());
    }
    ASSERT_TRUE(Device.Start());
  }
  ASSERT_TRUE(WaitUntil([&] { return Api->BusyCount() == 0; }));
  EXPECT_EQ(Stats().LiveObjects, 0);
}

// Everything a user sets up on a device survives a document: the loaded
// device starts by itself (it was saved enabled) with the saved driver,
// rate, buffer size, clock and channels, and saves to the same document.
TEST_F(AsioDeviceTest, SettingsSurviveADocumentAndAnEnabledDeviceStartsWhenLoaded) {
  Srasioaudiodevice::RegisterPkg();
  TQvTestAsioConfig C = Config();
  C.Behaviours |= qvbAnyBufferSize;
  C.Pacing = qvpManual;
  SetConfig(C);
  std::string Text;
  {
    TWBComponent Form;
    auto* Device = new TSRASIOAudioDevice(&Form);
    Device->SetName("Card");
    Prepare(*Device, 0, 2, 2, 128);
    Device->GetInputChannels().GetItem(1).SetEnabled(false);
    Device->GetSampleRate().SetRate(48000);
    Device->GetClockSource().SetActieveIndex(1);
    Device->SetMasterPumping(true);
    Device->GetDevice().GetAlternativeDevices().Add().SetDeviceName(QvTestAsioNames[1]);
    Device->SetEnabled(true);
    ASSERT_TRUE(Device->GetRunning());
    Text = WriteDocument(SaveDocument({Device}));
    Device->SetEnabled(false);
  }
  EXPECT_NE(Text.find("\"Rate\": 48000.0"), std::string::npos) << Text;
  EXPECT_NE(Text.find("\"AlternativeDevices\""), std::string::npos) << Text;

  TWBComponent Form;
  std::vector<TWBComponent*> Made;
  TWBDocument Document;
  std::string Error;
  ASSERT_TRUE(ParseDocument(Text, Document, Error)) << Error;
  ASSERT_TRUE(LoadDocument(Document, Form, Made, Error)) << Error << "\n" << Text;
  auto* Device = dynamic_cast<TSRASIOAudioDevice*>(Made.at(0));
  ASSERT_NE(Device, nullptr);
  EXPECT_TRUE(Device->GetRunning()) << "a device saved enabled starts once it is loaded";
  EXPECT_EQ(Device->GetRunningSampleRate(), 48000.0);
  EXPECT_EQ(Device->GetBufferSize().GetRunningSize(), 128);
  EXPECT_EQ(Config().CurrentClock, 1) << "the saved clock was selected";
  EXPECT_FALSE(Device->GetInputChannels().GetItem(1).GetEnabled());
  EXPECT_TRUE(Device->GetMasterPumping());
  EXPECT_EQ(Device->GetDevice().GetAlternativeDevices().GetItem(0).GetDeviceName(), QvTestAsioNames[1]);
  EXPECT_EQ(WriteDocument(SaveDocument(Made)), Text);
  Device->SetEnabled(false);
}

}  // namespace
}  // namespace Quorvel
