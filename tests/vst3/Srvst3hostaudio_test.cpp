// The VST 3 host's audio path against the test module: what a stream start,
// each block and a stop send the plug-in, and what comes out of the pins.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "frame/Wbexception.h"
#include "tests/support/Alloccounter.h"
#include "tests/support/Testcomponents.h"
#include "tests/vst3/Vst3testmodule.h"
#include "vst3/Srvst3host.h"

using namespace Quorvel;
using namespace Quorvel::Testing;
namespace T3 = Quorvel::Qvtestvst3;

namespace {

constexpr size_t kBlock = 64;

// A host on the main test module's effect class, opened with the given bus
// layout and sample size, and an error log.
struct THostFixture {
  TVst3ModuleProbe Probe;
  TVst3ErrorLog Log;
  TSRVST3Host Host;
  explicit THostFixture(const std::string& Options = "", TSRVST3SampleSize Size = TSRVST3SampleSize::vst3ss32) {
    Probe.Options(Options);
    Log.Attach(Host);
    Host.SetBufferSize(kBlock);
    Host.SetSampleRate(48000);
    Host.SetSampleSize(Size);
    Host.SetFileName(QV_TESTVST3_MAIN);
    EXPECT_TRUE(Host.Open());
  }
};

// Channel c of frame i as TTestSource::SendRamp makes it.
int32_t Ramp(int32_t First, size_t I, unsigned C) { return First + static_cast<int32_t>(I + C * 1000); }

// What the host gives back for an input sample x through a plug-in gain:
// x / 2^bits, times the gain, times 2^bits, rounded ties to even.
int32_t ThroughGain(int32_t X, double Gain) { return static_cast<int32_t>(std::nearbyint(X * Gain)); }

}  // namespace

TEST(Srvst3hostAudio, StartsAndStopsWithTheRepeatedCallsAndNamesPinsAfterBuses) {
  THostFixture F("buses=2+1:2");
  // One pin per audio bus, named after it.
  ASSERT_EQ(F.Host.GetInputPins().Count(), 2u);
  ASSERT_EQ(F.Host.GetOutputPins().Count(), 1u);
  EXPECT_EQ(F.Host.GetInputPin(0)->GetName(), "Stereo In");
  EXPECT_EQ(F.Host.GetInputPin(1)->GetName(), "Aux 1 In");
  EXPECT_EQ(F.Host.GetOutputPin(0)->GetName(), "Stereo Out");

  TTestSource Source(nullptr, 2, 16, 48000);
  TRecordingSink Sink(nullptr, 1);
  ASSERT_TRUE(Source.Output.Connect(*F.Host.GetInputPin(0)));
  ASSERT_TRUE(F.Host.GetOutputPin(0)->Connect(*Sink.Inputs[0]));
  for (int Stream = 0; Stream < 2; ++Stream) {
    SCOPED_TRACE(Stream);
    F.Probe.Reset();
    F.Probe.Options("buses=2+1:2");
    Source.Start();
    // Setup and activation again although Open sent them, then processing on twice.
    EXPECT_EQ(F.Probe.CallsOf("Effect."),
              (std::vector<std::string>{"Effect.setupProcessing mode=0 size=0 block=64 rate=48000",
                                        "Effect.setActive 1", "Effect.setProcessing 1", "Effect.setProcessing 1"}));
    Source.SendRamp(0, kBlock);
    Source.Stop();
    // Processing off twice; deactivating is Close's.
    const auto Calls = F.Probe.CallsOf("Effect.");
    ASSERT_EQ(Calls.size(), 6u);
    EXPECT_EQ(Calls[4], "Effect.setProcessing 0");
    EXPECT_EQ(Calls[5], "Effect.setProcessing 0");
    const auto P = F.Probe.ProcessCalls();
    ASSERT_EQ(P.size(), 1u);
    EXPECT_EQ(P[0].Samples, int32_t(kBlock));
    EXPECT_EQ(P[0].ProcessMode, 0);
    EXPECT_EQ(P[0].SampleSize, 0);
    EXPECT_EQ(P[0].Inputs, 2);
    EXPECT_EQ(P[0].Outputs, 1);
    EXPECT_EQ(P[0].InputChannels[0], 2);
    EXPECT_EQ(P[0].InputChannels[1], 1);
    EXPECT_EQ(P[0].OutputChannels[0], 2);
    // Channel 0 of every bus is marked silent, kept as the component always did.
    EXPECT_EQ(P[0].InputSilence[0], 1u);
    EXPECT_EQ(P[0].InputSilence[1], 1u);
    EXPECT_EQ(P[0].OutputSilence[0], 1u);
    // The host's parameter changes (always empty) and its event list.
    EXPECT_EQ(P[0].ParameterChanges, 0);
    EXPECT_EQ(P[0].Events, 0);
  }
  EXPECT_TRUE(F.Log.Errors.empty());
  EXPECT_EQ(Sink.Count(poidSuppliedBuffer), 2u);
}

TEST(Srvst3hostAudio, ScalesEachChannelThroughThePlugInIn32And64Bits) {
  // The module multiplies by the gain and swaps the channels of each bus:
  // what comes out shows each channel went in and came back at its place,
  // in the precision the host announced.
  for (const auto Size : {TSRVST3SampleSize::vst3ss32, TSRVST3SampleSize::vst3ss64})
    for (const unsigned Bits : {16u, 24u, 32u}) {
      SCOPED_TRACE(testing::Message() << "64-bit " << (Size == TSRVST3SampleSize::vst3ss64) << ", bits " << Bits);
      THostFixture F("gain=0.5,map=swap", Size);
      TTestSource Source(nullptr, 2, Bits, 48000);
      TRecordingSink Sink(nullptr, 1);
      ASSERT_TRUE(Source.Output.Connect(*F.Host.GetInputPin(0)));
      ASSERT_TRUE(F.Host.GetOutputPin(0)->Connect(*Sink.Inputs[0]));
      Source.Start();
      const int32_t First = -int32_t(kBlock) - 1;  // odd and even, negative and positive samples
      Source.SendRamp(First, kBlock * 2 + 10);        // two blocks and a shorter last one
      Source.Stop();
      ASSERT_TRUE(F.Log.Errors.empty()) << F.Log.Errors[0].first;
      EXPECT_EQ(Sink.BlockSizes, (std::vector<size_t>{kBlock, kBlock, 10}));
      ASSERT_EQ(Sink.Channels[0].size(), 2u);
      ASSERT_EQ(Sink.Channels[0][0].size(), kBlock * 2 + 10);
      for (size_t I = 0; I < kBlock * 2 + 10; ++I) {
        ASSERT_EQ(Sink.Channels[0][0][I], ThroughGain(Ramp(First, I, 1), 0.5)) << I;
        ASSERT_EQ(Sink.Channels[0][1][I], ThroughGain(Ramp(First, I, 0), 0.5)) << I;
      }
      const auto P = F.Probe.ProcessCalls();
      ASSERT_EQ(P.size(), 3u);
      EXPECT_EQ(P[0].SampleSize, Size == TSRVST3SampleSize::vst3ss64 ? 1 : 0);
      EXPECT_EQ(P[2].Samples, 10) << "the last block tells its own length";
      EXPECT_EQ(F.Host.GetDoublePrecision(), Size == TSRVST3SampleSize::vst3ss64);
    }
}

TEST(Srvst3hostAudio, FullScaleIsTwoToTheBitsAndOutputsSaturate) {
  // 2^bits, not 2^(bits-1): 16384 reaches the plug-in as 0.25 and a gain of
  // 4 brings it to 1.0, which leaves as 65536 and saturates to 32767.
  THostFixture F("gain=4");
  TTestSource Source(nullptr, 1, 16, 48000);
  TRecordingSink Sink(nullptr, 1);
  ASSERT_TRUE(Source.Output.Connect(*F.Host.GetInputPin(0)));
  ASSERT_TRUE(F.Host.GetOutputPin(0)->Connect(*Sink.Inputs[0]));
  Source.Start();
  auto B = TSRAudioBuffer::Create(1, kBlock, 16, 48000);
  for (size_t I = 0; I < kBlock; ++I) B->SetSample(I, 0, I % 2 ? 16384 : -4096);
  Source.Output.SubmitBuffer(B);
  Source.Stop();
  ASSERT_EQ(Sink.Samples[0].size(), kBlock);
  EXPECT_EQ(Sink.Samples[0][0], -16384);
  EXPECT_EQ(Sink.Samples[0][1], 32767);
}

TEST(Srvst3hostAudio, ChannelsAndBusesTheStreamLacksAreSilent) {
  // A mono stream into a stereo bus: channel 1 of the bus gets zeros (the
  // swapped output channel 0 shows it), and the output's channel 1 has no
  // place in the mono working buffer.
  {
    THostFixture F("map=swap");
    TTestSource Source(nullptr, 1, 16, 48000);
    TRecordingSink Sink(nullptr, 1);
    ASSERT_TRUE(Source.Output.Connect(*F.Host.GetInputPin(0)));
    ASSERT_TRUE(F.Host.GetOutputPin(0)->Connect(*Sink.Inputs[0]));
    Source.Start();
    Source.SendRamp(100, kBlock * 2);
    Source.Stop();
    ASSERT_EQ(Sink.Channels[0].size(), 1u);
    ASSERT_EQ(Sink.Channels[0][0].size(), kBlock * 2);
    for (int32_t X : Sink.Channels[0][0]) ASSERT_EQ(X, 0);
  }
  // An auxiliary bus without a pin keeps its blocks' zeros; with its pin it
  // carries the pin's samples.
  for (const bool AuxPin : {false, true}) {
    SCOPED_TRACE(AuxPin);
    THostFixture F("buses=2+1:2+1");
    ASSERT_EQ(F.Host.GetInputPins().Count(), 2u);
    if (!AuxPin) F.Host.GetInputPins().SetCount(1);
    TTestSource Main(nullptr, 2, 16, 48000), Aux(nullptr, 2, 16, 48000);
    TRecordingSink Sink(nullptr, 2);
    ASSERT_TRUE(Main.Output.Connect(*F.Host.GetInputPin(0)));
    if (AuxPin) {
      ASSERT_TRUE(Aux.Output.Connect(*F.Host.GetInputPin(1)));
    }
    ASSERT_TRUE(F.Host.GetOutputPin(0)->Connect(*Sink.Inputs[0]));
    ASSERT_TRUE(F.Host.GetOutputPin(1)->Connect(*Sink.Inputs[1]));
    Main.Start();
    if (AuxPin) Aux.Start();
    Main.SendRamp(10, kBlock);
    if (AuxPin) Aux.SendRamp(-500, kBlock);
    Main.Stop();
    if (AuxPin) Aux.Stop();
    ASSERT_EQ(Sink.Samples[0].size(), kBlock);
    ASSERT_EQ(Sink.Samples[1].size(), kBlock);
    for (size_t I = 0; I < kBlock; ++I) {
      ASSERT_EQ(Sink.Channels[0][1][I], Ramp(10, I, 1));
      ASSERT_EQ(Sink.Samples[1][I], AuxPin ? Ramp(-500, I, 0) : 0) << I;
    }
    const auto P = F.Probe.ProcessCalls();
    ASSERT_EQ(P.size(), 1u);
    EXPECT_EQ(P[0].Inputs, 2);
    EXPECT_EQ(P[0].InputChannels[1], 1);
    EXPECT_EQ(P[0].OutputChannels[1], 1);
  }
}

TEST(Srvst3hostAudio, ADisabledHostPassesInputsThroughWithoutProcessing) {
  THostFixture F("gain=0.5");
  F.Host.SetEnabled(false);
  TTestSource Source(nullptr, 2, 24, 48000);
  TRecordingSink Sink(nullptr, 1);
  ASSERT_TRUE(Source.Output.Connect(*F.Host.GetInputPin(0)));
  ASSERT_TRUE(F.Host.GetOutputPin(0)->Connect(*Sink.Inputs[0]));
  Source.Start();
  Source.SendRamp(7, kBlock + 3);
  Source.Stop();
  EXPECT_TRUE(F.Probe.ProcessCalls().empty());
  ASSERT_EQ(Sink.Channels[0].size(), 2u);
  ASSERT_EQ(Sink.Channels[0][1].size(), kBlock + 3);
  for (size_t I = 0; I < kBlock + 3; ++I) ASSERT_EQ(Sink.Channels[0][1][I], Ramp(7, I, 1));
}

TEST(Srvst3hostAudio, AFailedProcessLeavesItsBlockUnsentAndTheNextIsProcessed) {
  THostFixture F;
  TTestSource Source(nullptr, 1, 16, 48000);
  TRecordingSink Sink(nullptr, 1);
  ASSERT_TRUE(Source.Output.Connect(*F.Host.GetInputPin(0)));
  ASSERT_TRUE(F.Host.GetOutputPin(0)->Connect(*Sink.Inputs[0]));
  Source.Start();
  F.Probe.Options("fail=process,result=80070057");
  Source.SendRamp(0, kBlock);
  EXPECT_EQ(Sink.Count(poidSuppliedBuffer), 0u);
  ASSERT_EQ(F.Log.Errors.size(), 1u);
  EXPECT_EQ(F.Log.Errors[0].first, "Can't process. - Invalid Argument");
  EXPECT_EQ(uint32_t(F.Log.Errors[0].second), 0x80070057u);
  F.Probe.Reset();
  Source.SendRamp(kBlock, kBlock);
  ASSERT_EQ(Sink.Samples[0].size(), kBlock);
  EXPECT_EQ(Sink.Samples[0][0], int32_t(kBlock));
  // Unhandled, the failure raises at whoever drove the block.
  F.Host.OnError = nullptr;
  F.Probe.Options("fail=process");
  EXPECT_THROW(Source.SendRamp(0, kBlock), EWBException);
  EXPECT_EQ(Sink.Count(poidSuppliedBuffer), 1u);
  F.Probe.Reset();
  F.Log.Attach(F.Host);
  Source.Stop();
}

TEST(Srvst3hostAudio, StartAndStopFailuresAreReportedAndStopTheirSequence) {
  struct TCase {
    const char* Fail;
    const char* Message;
    std::vector<std::string> Calls;  // the effect's calls over one start, block and stop
    size_t Processed;
  };
  // A start that stops early sends no process and no block; the stop still
  // turns processing off.
  const TCase Cases[] = {
      {"setupProcessing", "Can't setup processing. - Internal Error",
       {"Effect.setupProcessing mode=0 size=0 block=64 rate=48000", "Effect.setProcessing 0",
        "Effect.setProcessing 0"},
       0},
      {"setActive", "Can't activate VST3 audio processor (effect). - Internal Error",
       {"Effect.setupProcessing mode=0 size=0 block=64 rate=48000", "Effect.setActive 1", "Effect.setProcessing 0",
        "Effect.setProcessing 0"},
       0},
      // Processing that would not start still processes: the record is built.
      {"startProcessing", "Can't start processing. - Internal Error",
       {"Effect.setupProcessing mode=0 size=0 block=64 rate=48000", "Effect.setActive 1", "Effect.setProcessing 1",
        "Effect.setProcessing 0", "Effect.setProcessing 0"},
       1},
      {"stopProcessing", "Can't stop processing. - Internal Error",
       {"Effect.setupProcessing mode=0 size=0 block=64 rate=48000", "Effect.setActive 1", "Effect.setProcessing 1",
        "Effect.setProcessing 1", "Effect.setProcessing 0"},
       1},
  };
  for (const TCase& C : Cases) {
    SCOPED_TRACE(C.Fail);
    THostFixture F;
    TTestSource Source(nullptr, 1, 16, 48000);
    TRecordingSink Sink(nullptr, 1);
    ASSERT_TRUE(Source.Output.Connect(*F.Host.GetInputPin(0)));
    ASSERT_TRUE(F.Host.GetOutputPin(0)->Connect(*Sink.Inputs[0]));
    F.Probe.Reset();
    F.Probe.Options(std::string("fail=") + C.Fail);
    Source.Start();
    Source.SendRamp(0, kBlock);
    Source.Stop();
    ASSERT_EQ(F.Log.Errors.size(), 1u);
    EXPECT_EQ(F.Log.Errors[0].first, C.Message);
    EXPECT_EQ(F.Probe.CallsOf("Effect."), C.Calls);
    EXPECT_EQ(F.Probe.ProcessCalls().size(), C.Processed);
    EXPECT_EQ(Sink.Count(poidSuppliedBuffer), C.Processed);
  }
}

TEST(Srvst3hostAudio, ClosingOrOpeningMidStreamKeepsTheStartsPrecisionAndTheRecordsBuses) {
  // A stereo stream in 64-bit samples through a gain of 0.5.
  THostFixture F("gain=0.5", TSRVST3SampleSize::vst3ss64);
  TTestSource Source(nullptr, 2, 16, 48000);
  TRecordingSink Sink(nullptr, 1);
  ASSERT_TRUE(Source.Output.Connect(*F.Host.GetInputPin(0)));
  ASSERT_TRUE(F.Host.GetOutputPin(0)->Connect(*Sink.Inputs[0]));
  Source.Start();
  auto Block = [&](int32_t Value) {
    auto B = TSRAudioBuffer::Create(2, kBlock, 16, 48000);
    for (size_t I = 0; I < kBlock; ++I) {
      B->SetSample(I, 0, Value);
      B->SetSample(I, 1, -Value);
    }
    Source.Output.SubmitBuffer(B);
  };
  Block(1000);
  ASSERT_EQ(Sink.Samples[0].size(), kBlock);
  EXPECT_EQ(Sink.Samples[0].back(), 500);
  // Closed, nothing processes: the output blocks go out as the plug-in left
  // them, still read as 64-bit samples.
  F.Host.Close();
  Block(3000);
  ASSERT_EQ(Sink.Channels[0].size(), 2u);
  ASSERT_EQ(Sink.Samples[0].size(), 2 * kBlock);
  for (size_t I = kBlock; I < 2 * kBlock; ++I) {
    ASSERT_EQ(Sink.Channels[0][0][I], 500) << I;
    ASSERT_EQ(Sink.Channels[0][1][I], -500) << I;
  }
  // Opened again, the new instance gets the cleared record: no buses, and
  // the stale blocks of the first instance are not sent.
  ASSERT_TRUE(F.Host.Open());
  F.Probe.Reset();
  F.Probe.Options("gain=0.5");
  Block(3000);
  EXPECT_EQ(Sink.Samples[0].size(), 2 * kBlock);
  const auto P = F.Probe.ProcessCalls();
  ASSERT_EQ(P.size(), 1u);
  EXPECT_EQ(P[0].Inputs, 0);
  EXPECT_EQ(P[0].Outputs, 0);
  Source.Stop();
  EXPECT_TRUE(F.Log.Errors.empty());
}

namespace {

// A sink that only counts, so that the allocation count is the host's.
class TCountingSink : public TWBComponent {
 public:
  TCountingSink() : TWBComponent(nullptr), Input(*this, "In") {}
  ~TCountingSink() override { BeginDestroy(); }
  void SinkDispatch(TPWBasicPin*, TPWBasicPin*, TPWOperationID ID, TPWOperation&, TPWNotifyStates& States) override {
    Buffers += ID == poidSuppliedBuffer;
    States.Include(TPWNotifyState::pnsHandled);
  }
  TSRPWAudioSinkPin Input;
  size_t Buffers = 0;
};

}  // namespace

TEST(Srvst3hostAudio, ABlockAllocatesNothing) {
  for (const auto Size : {TSRVST3SampleSize::vst3ss32, TSRVST3SampleSize::vst3ss64}) {
    THostFixture F("buses=2+1:2+1", Size);
    TTestSource Main(nullptr, 2, 24, 48000), Aux(nullptr, 1, 24, 48000);
    TCountingSink Out, AuxOut;
    ASSERT_TRUE(Main.Output.Connect(*F.Host.GetInputPin(0)));
    ASSERT_TRUE(Aux.Output.Connect(*F.Host.GetInputPin(1)));
    ASSERT_TRUE(F.Host.GetOutputPin(0)->Connect(Out.Input));
    ASSERT_TRUE(F.Host.GetOutputPin(1)->Connect(AuxOut.Input));
    Main.Start();
    Aux.Start();
    auto MB = TSRAudioBuffer::Create(2, kBlock, 24, 48000), AB = TSRAudioBuffer::Create(1, kBlock, 24, 48000);
    for (int I = 0; I < 10; ++I) {
      Main.Output.SubmitBuffer(MB);
      Aux.Output.SubmitBuffer(AB);
    }
    const uint64_t Before = HeapAllocationCount();
    for (int I = 0; I < 500; ++I) {
      Main.Output.SubmitBuffer(MB);
      Aux.Output.SubmitBuffer(AB);
    }
    EXPECT_EQ(HeapAllocationCount() - Before, 0u);
    EXPECT_EQ(Out.Buffers, 510u);
    Main.Stop();
    Aux.Stop();
  }
}
