#include <gtest/gtest.h>

#include <thread>

#include "frame/Srbasicmultiinput.h"
#include "frame/Srdemocomponents.h"
#include "frame/Wbthreadedfilter.h"
#include "tests/support/Alloccounter.h"
#include "tests/support/Testcomponents.h"

using namespace Quorvel;
using namespace Quorvel::Testing;

namespace {
std::vector<int32_t> Ramp(int32_t First, size_t Count) {
  std::vector<int32_t> V(Count);
  for (size_t I = 0; I < Count; ++I) V[I] = First + static_cast<int32_t>(I);
  return V;
}

// Two sources into a two-input mixer, each mixer output into the sink.
void WireTwoInputs(TTestSource& A, TTestSource& B, TSRBasicMultiInput& Mixer, TRecordingSink& Sink) {
  ASSERT_TRUE(A.Output.Connect(*Mixer.GetInputPin(0)));
  ASSERT_TRUE(B.Output.Connect(*Mixer.GetInputPin(1)));
  ASSERT_TRUE(Mixer.GetOutputPin(0)->Connect(*Sink.Inputs[0]));
  ASSERT_TRUE(Mixer.GetOutputPin(1)->Connect(*Sink.Inputs[1]));
  A.Start();
  B.Start();
}
}  // namespace

TEST(MultiInput, UnevenArrivalGivesExactGapFreeBlocks) {
  TTestSource Left, Right;
  TSRGainFilter Filter;  // gain 1: the filter is on the path but changes nothing
  TSRBasicMultiInput Mixer(nullptr, 3, 3);
  TRecordingSink Sink(nullptr, 3);
  Mixer.SetBufferSize(256);
  ASSERT_TRUE(Left.Output.Connect(Filter.GetInputPin()));
  ASSERT_TRUE(Filter.GetOutputPin()->Connect(*Mixer.GetInputPin(0)));
  ASSERT_TRUE(Right.Output.Connect(*Mixer.GetInputPin(1)));
  for (size_t I = 0; I < 3; ++I) ASSERT_TRUE(Mixer.GetOutputPin(I)->Connect(*Sink.Inputs[I]));

  Left.Start();
  Right.Start();
  EXPECT_EQ(Sink.Count(poidStartWave), 3u) << "the outputs start once, with the first input";
  // 64 at a time on one pin, 100 at a time on the other, interleaved.
  int32_t L = 0, R = 0;
  for (int I = 0; I < 50; ++I) {
    Left.SendRamp(L, 64);
    L += 64;
    if (I % 2 == 0) {
      Right.SendRamp(10000 + R, 100);
      R += 100;
    }
  }
  EXPECT_EQ(Sink.Count(poidStop), 0u);
  Left.Stop();
  EXPECT_EQ(Sink.Count(poidStop), 0u) << "the right input is still running";
  Right.Stop();
  EXPECT_EQ(Sink.Count(poidStop), 3u);
  EXPECT_EQ(Sink.Events.back().ID, poidStop) << "stop follows the last buffer";

  // 3200 left samples, 2500 right: blocks of 256 then one final block.
  ASSERT_EQ(Sink.Samples[0].size(), 3200u);
  EXPECT_EQ(Sink.Samples[0], Ramp(0, 3200));
  std::vector<int32_t> ExpectedRight = Ramp(10000, 2500);
  ExpectedRight.resize(3200, 0);  // silence after the right stream ended
  EXPECT_EQ(Sink.Samples[1], ExpectedRight);
  EXPECT_EQ(Sink.Samples[2], std::vector<int32_t>(3200, 0)) << "an unconnected input reads as silence";
  for (size_t I = 0; I + 3 < Sink.BlockSizes.size(); ++I) EXPECT_EQ(Sink.BlockSizes[I], 256u);
  EXPECT_EQ(Sink.BlockSizes.back(), 3200u % 256u);
}

TEST(MultiInput, InputsFedFromTwoThreadsStayAligned) {
  TTestSource Left, Right;
  TSRBasicMultiInput Mixer(nullptr, 2, 2);
  TRecordingSink Sink(nullptr, 2);
  Mixer.SetBufferSize(128);
  WireTwoInputs(Left, Right, Mixer, Sink);
  constexpr int32_t Total = 64 * 100;  // both threads send the same count in different chunk sizes
  std::thread A([&] {
    for (int32_t At = 0; At < Total; At += 64) Left.SendRamp(At, 64);
    Left.Stop();
  });
  std::thread B([&] {
    for (int32_t At = 0; At < Total; At += 80) Right.SendRamp(20000 + At, 80);
    Right.Stop();
  });
  A.join();
  B.join();
  EXPECT_EQ(Sink.Samples[0], Ramp(0, Total));
  EXPECT_EQ(Sink.Samples[1], Ramp(20000, Total));
  EXPECT_EQ(Sink.Count(poidStop), 2u);
}

TEST(MultiInput, WaitsForEveryActiveInputAndConvertsWidths) {
  TTestSource A(nullptr, 1, 16), B(nullptr, 1, 24);
  TSRBasicMultiInput Mixer(nullptr, 2, 2);
  TRecordingSink Sink(nullptr, 2);
  Mixer.SetBufferSize(100);
  WireTwoInputs(A, B, Mixer, Sink);
  A.SendRamp(0, 150);
  EXPECT_TRUE(Sink.Samples[0].empty()) << "input 1 has started but holds nothing yet";
  B.SendRamp(256, 99);
  EXPECT_TRUE(Sink.Samples[0].empty());
  B.SendRamp(256 + 99, 1);
  ASSERT_EQ(Sink.Samples[1].size(), 100u);
  // The stream's width is the first input's (16 bits): 24-bit input is shifted down.
  EXPECT_EQ(Sink.Samples[1][0], 1);
  EXPECT_EQ(Sink.Samples[1][99], (256 + 99) >> 8);
  EXPECT_EQ(Sink.Formats[0].Format.wBitsPerSample, 16);
}

TEST(MultiInput, AnInputThatJoinsBeforeTheScannedOnesIsWaitedFor) {
  TTestSource A, B, C;
  TSRBasicMultiInput Mixer(nullptr, 3, 3);
  TRecordingSink Sink(nullptr, 3);
  Mixer.SetBufferSize(100);
  ASSERT_TRUE(A.Output.Connect(*Mixer.GetInputPin(0)));
  ASSERT_TRUE(B.Output.Connect(*Mixer.GetInputPin(1)));
  ASSERT_TRUE(C.Output.Connect(*Mixer.GetInputPin(2)));
  for (size_t I = 0; I < 3; ++I) ASSERT_TRUE(Mixer.GetOutputPin(I)->Connect(*Sink.Inputs[I]));
  B.Start();
  C.Start();
  B.SendRamp(100, 100);  // input 2 still owes its block
  A.Start();             // input 1 joins, before the inputs already looked at
  C.SendRamp(200, 100);
  EXPECT_TRUE(Sink.Samples[0].empty()) << "input 1 joined and owes a block";
  A.SendRamp(0, 100);
  ASSERT_EQ(Sink.Samples[0].size(), 100u);
  EXPECT_EQ(Sink.Samples[0], Ramp(0, 100));
  EXPECT_EQ(Sink.Samples[1], Ramp(100, 100));
  EXPECT_EQ(Sink.Samples[2], Ramp(200, 100));
  // The next block again waits for every input, whatever order they fill in.
  C.SendRamp(300, 100);
  A.SendRamp(400, 50);
  B.SendRamp(500, 100);
  EXPECT_EQ(Sink.Samples[0].size(), 100u);
  A.SendRamp(450, 50);
  EXPECT_EQ(Sink.Samples[1].size(), 200u);
}

TEST(Filter, DisabledPassesThroughAndPumpPullsFromTheSource) {
  TSRToneGenerator Tone;
  TSRGainFilter Filter;
  TRecordingSink Sink;
  Tone.SetChannels(1);
  Tone.SetBlockSize(32);
  Filter.SetGain(0.5);
  Tone.GetOutputPin().Connect(Filter.GetInputPin());
  Filter.GetOutputPin()->Connect(*Sink.Inputs[0]);
  Tone.Start();
  Tone.Generate(1);
  ASSERT_EQ(Sink.Samples[0].size(), 32u);
  const int32_t Halved = Sink.Samples[0][5];
  Filter.SetEnabled(false);
  Tone.Start();  // same phase again
  Tone.Generate(1);
  ASSERT_EQ(Sink.Samples[0].size(), 64u);
  EXPECT_NEAR(Sink.Samples[0][32 + 5], 2 * Halved, 1) << "a disabled filter passes buffers unchanged";

  // Pull mode: a pump request from the sink travels up and brings one block.
  Sink.Inputs[0]->PumpRequest();
  Sink.Inputs[0]->PumpRequest();
  EXPECT_EQ(Sink.Samples[0].size(), 128u);
}

TEST(ThreadedFilter, ProcessesInOrderOnItsOwnThread) {
  TTestSource Source;
  TWBBasicTypedThreadedFilter Filter(nullptr, 4);  // a small queue: senders must wait for room
  TRecordingSink Sink;
  Source.Output.Connect(Filter.GetInputPin());
  Filter.GetOutputPin().Connect(*Sink.Inputs[0]);
  Source.Start();
  for (int I = 0; I < 40; ++I) Source.SendRamp(I * 10, 10);
  Source.Stop();
  ASSERT_TRUE(Filter.WaitUntilIdle(10000));
  Threading::TLockGuard G(Sink.GetLock());
  EXPECT_EQ(Sink.Samples[0], Ramp(0, 400));
  ASSERT_FALSE(Sink.Events.empty());
  EXPECT_EQ(Sink.Events.front().ID, poidStartWave);
  EXPECT_EQ(Sink.Events.back().ID, poidStop);
}

TEST(Errors, ReachOnErrorAndRaiseWithTheExactText) {
  TSRToneGenerator Tone;
  Tone.SetBits(12);
  std::string Message;
  int32_t Code = 0;
  TWBComponent* Sender = nullptr;
  Tone.OnError = [&](TWBComponent* S, const std::string& M, int32_t C, bool& Handled) {
    Sender = S;
    Message = M;
    Code = C;
  };
  try {
    Tone.Start();
    FAIL() << "an unhandled error raises";
  } catch (const EWBException& E) {
    EXPECT_STREQ(E.what(), "Invalid tone format - 4294967295 - FFFFFFFF");
  }
  EXPECT_EQ(Sender, &Tone);
  EXPECT_EQ(Message, "Invalid tone format");
  EXPECT_EQ(Code, -1);

  Tone.OnError = [](TWBComponent*, const std::string&, int32_t, bool& Handled) { Handled = true; };
  EXPECT_NO_THROW(Tone.Start());
  Tone.OnError = nullptr;
  Tone.SetDesigning(true);
  EXPECT_NO_THROW(Tone.Start()) << "the designer never raises";

  TWBComponent Plain;
  std::string Warned;
  Plain.OnWarning = [&](TWBComponent*, const std::string& M, int32_t C) { Warned = M + "/" + std::to_string(C); };
  EXPECT_NO_THROW(Plain.Warning("Can't get latencies", -999));
  EXPECT_EQ(Warned, "Can't get latencies/-999");
  EXPECT_THROW(Plain.Error("x", 1), EWBException);
}

TEST(Component, OwnerDestroysOwnedComponentsAndTracksState) {
  static int Alive = 0;
  struct TCounted : TWBComponent {
    explicit TCounted(TWBComponent* O) : TWBComponent(O) { ++Alive; }
    ~TCounted() override { --Alive; }
  };
  {
    TWBComponent Form;
    auto* A = new TCounted(&Form);
    new TCounted(&Form);
    EXPECT_EQ(Form.GetComponentCount(), 2u);
    delete A;  // leaves its owner's list
    EXPECT_EQ(Form.GetComponentCount(), 1u);
    Form.BeginLoading();
    EXPECT_TRUE(Form.IsLoading());
    Form.EndLoading();
    EXPECT_FALSE(Form.IsLoading());
  }
  EXPECT_EQ(Alive, 0);
}

TEST(SteadyState, ChainMakesNoHeapAllocationPerBlock) {
  // tone -> gain -> multi-input -> counting sink
  struct TCountSink : TWBComponent {
    TCountSink() : Input(*this, "In") {}
    ~TCountSink() override { BeginDestroy(); }
    void SinkDispatch(TPWBasicPin*, TPWBasicPin*, TPWOperationID ID, TPWOperation& Op, TPWNotifyStates&) override {
      if (ID == poidSuppliedBuffer) Frames += static_cast<TPWSuppliedBufferOperation&>(Op).GetAudioBuffer()->GetSamples();
    }
    TSRPWAudioSinkPin Input;
    size_t Frames = 0;
  };
  TSRToneGenerator Tone;
  TSRGainFilter Gain;
  TSRBasicMultiInput Mixer(nullptr, 1, 1);
  TCountSink Sink;
  Tone.SetChannels(1);
  Tone.SetBlockSize(128);
  Mixer.SetBufferSize(256);
  Tone.GetOutputPin().Connect(Gain.GetInputPin());
  Gain.GetOutputPin()->Connect(*Mixer.GetInputPin(0));
  Mixer.GetOutputPin(0)->Connect(Sink.Input);
  Tone.Start();
  Tone.Generate(16);  // warm the pool and the queues
  const uint64_t Before = HeapAllocationCount();
  Tone.Generate(1000);
  const uint64_t After = HeapAllocationCount();
  EXPECT_EQ(After - Before, 0u);
  EXPECT_EQ(Sink.Frames, 1016u * 128u);
}
