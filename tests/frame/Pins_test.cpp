#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "frame/Pwvaluepins.h"
#include "frame/Srdemocomponents.h"
#include "tests/support/Testcomponents.h"

using namespace Quorvel;
using namespace Quorvel::Testing;

namespace {

// Sinks that log into one shared list, to see the order across components.
class TOrderSink : public TWBComponent {
 public:
  TOrderSink(int Id, std::vector<std::pair<int, TPWOperationID>>& Log) : Input(*this, "In"), FId(Id), FLog(Log) {}
  ~TOrderSink() override { BeginDestroy(); }
  void SinkDispatch(TPWBasicPin* Source, TPWBasicPin* Sink, TPWOperationID ID, TPWOperation&,
                    TPWNotifyStates& States) override {
    EXPECT_EQ(Sink, &Input);
    FLog.emplace_back(FId, ID);
    States.Include(TPWNotifyState::pnsHandled);
  }
  TSRPWAudioSinkPin Input;

 private:
  int FId;
  std::vector<std::pair<int, TPWOperationID>>& FLog;
};

}  // namespace

TEST(Pins, OperationsReachEverySinkInConnectionOrder) {
  std::vector<std::pair<int, TPWOperationID>> Log;
  TTestSource Source;
  TOrderSink A(1, Log), B(2, Log), C(3, Log);
  ASSERT_TRUE(Source.Output.Connect(B.Input));
  ASSERT_TRUE(Source.Output.Connect(A.Input));
  ASSERT_TRUE(Source.Output.Connect(C.Input));
  Source.Start();
  Source.SendRamp(0, 16);
  TPWWBPauseOperation Pause;
  TPWNotifyStates States;
  Source.Output.Notify(Pause, States);
  EXPECT_TRUE(States.Contains(TPWNotifyState::pnsHandled));
  Source.Stop();
  const std::vector<std::pair<int, TPWOperationID>> Expected = {
      {2, poidStartWave},      {1, poidStartWave},      {3, poidStartWave}, {2, poidSuppliedBuffer},
      {1, poidSuppliedBuffer}, {3, poidSuppliedBuffer}, {2, poidPause},     {1, poidPause},
      {3, poidPause},          {2, poidStop},           {1, poidStop},      {3, poidStop}};
  EXPECT_EQ(Log, Expected);
}

TEST(Pins, ConnectionRulesAndDisconnectFromEitherSide) {
  TTestSource Source, Other;
  TRecordingSink Sink;
  TPWIntegerStatePin Number(Sink, "Number");
  EXPECT_FALSE(Source.Output.Connect(Other.Output)) << "source to source";
  EXPECT_FALSE(Sink.Inputs[0]->Connect(*Sink.Inputs[0])) << "a sink pin cannot send";
  EXPECT_FALSE(Source.Output.Connect(Number)) << "audio into an integer pin";
  ASSERT_TRUE(Source.Output.Connect(*Sink.Inputs[0]));
  EXPECT_FALSE(Source.Output.Connect(*Sink.Inputs[0])) << "twice";
  EXPECT_TRUE(Sink.Inputs[0]->IsConnected());
  Source.SetName("Src");
  Sink.SetName("Rec");
  EXPECT_EQ(Source.Output.GetDisplayName(), "Src.Output -> Rec.In0");
  EXPECT_EQ(Sink.Inputs[0]->GetDisplayName(), "Rec.In0 <- Src.Output");

  EXPECT_TRUE(Sink.Inputs[0]->Disconnect(Source.Output)) << "disconnect from the sink side";
  EXPECT_FALSE(Source.Output.Disconnect(*Sink.Inputs[0]));
  Source.Start();
  EXPECT_TRUE(Sink.Events.empty());

  // A destroyed sink component leaves no dangling connection behind.
  auto* Temp = new TRecordingSink;
  ASSERT_TRUE(Source.Output.Connect(*Temp->Inputs[0]));
  EXPECT_EQ(Source.Output.GetSinkCount(), 1u);
  delete Temp;
  EXPECT_EQ(Source.Output.GetSinkCount(), 0u);
  Source.SendRamp(0, 4);  // must not touch the freed sink
}

TEST(Pins, DisconnectAndDestroyWhileAnotherThreadStreams) {
  TTestSource Source(nullptr, 2, 16, 48000);
  TSRGainFilter Filter;
  ASSERT_TRUE(Source.Output.Connect(Filter.GetInputPin()));
  std::atomic<bool> Done{false};
  std::atomic<int> BadBuffers{0};
  // Each buffer must arrive whole: channel 0 a ramp, channel 1 the ramp + 1000.
  class TCheckSink : public TWBComponent {
   public:
    explicit TCheckSink(std::atomic<int>& Bad) : Input(*this, "In"), FBad(Bad) {}
    ~TCheckSink() override { BeginDestroy(); }
    void SinkDispatch(TPWBasicPin*, TPWBasicPin*, TPWOperationID ID, TPWOperation& Op, TPWNotifyStates&) override {
      if (ID != poidSuppliedBuffer) return;
      const ISRAudioBuffer* B = static_cast<TPWSuppliedBufferOperation&>(Op).GetAudioBuffer();
      for (size_t I = 1; I < B->GetSamples(); ++I)
        if (B->GetSample(I, 0) != B->GetSample(I - 1, 0) + 1 || B->GetSample(I, 1) != B->GetSample(I, 0) + 1000) {
          ++FBad;
          return;
        }
      ++Received;
    }
    TSRPWAudioSinkPin Input;
    std::atomic<int> Received{0};

   private:
    std::atomic<int>& FBad;
  };

  Source.Start();
  std::thread Streamer([&] {
    int32_t Next = 0;
    while (!Done.load()) {
      Source.SendRamp(Next % 20000, 64);
      Next += 64;
    }
    Source.Stop();
  });
  TCheckSink Stable(BadBuffers);
  ASSERT_TRUE(Filter.GetOutputPin()->Connect(Stable.Input));
  // At least 200 rounds, and on until the streamer got buffers through (a
  // slow scheduler may not run it at all during the first rounds).
  const auto Deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  for (int Round = 0; Round < 200 || (Stable.Received.load() < 20 && std::chrono::steady_clock::now() < Deadline);
       ++Round) {
    auto* Sink = new TCheckSink(BadBuffers);
    Filter.GetOutputPin()->Connect(Sink->Input);
    std::this_thread::yield();
    if (Round % 2)
      Sink->Input.Disconnect(*Filter.GetOutputPin());
    delete Sink;  // connected or not: destroying must wait out a buffer in flight
    Filter.GetOutputPin()->Disconnect(Stable.Input);
    Filter.GetOutputPin()->Connect(Stable.Input);
  }
  Done = true;
  Streamer.join();
  EXPECT_EQ(BadBuffers.load(), 0);
  EXPECT_GT(Stable.Received.load(), 0);
}

TEST(Pins, PinListAddsSwapsAndRebuildsThroughCallbacks) {
  TWBComponent Owner;
  TPWPinList List(Owner, Owner.GetLock(), {TPWPinCategory::pcAudio}, true);
  TPWIntegerStatePin Foreign(Owner, "Number");
  EXPECT_EQ(List.Add(&Foreign), -1) << "category not in the list";
  int Created = 0, Destroyed = 0;
  List.OnCreatePin = [&](TPWPinList&, size_t I) -> TPWBasicPin* {
    ++Created;
    return new TSRPWAudioSinkPin(Owner, "P" + std::to_string(I));
  };
  List.OnDestroyPin = [&](TPWPinList&, TPWBasicPin* P) {
    ++Destroyed;
    delete P;
  };
  List.SetCount(4);
  ASSERT_EQ(List.Count(), 4u);
  EXPECT_EQ(List[2]->GetName(), "P2");
  TPWBasicPin* P1 = List[1];
  EXPECT_TRUE(List.Swap(1, 3));
  EXPECT_EQ(List.IndexOf(P1), 3);
  EXPECT_FALSE(List.Swap(0, 4));
  List.SetCount(2);
  EXPECT_EQ(Destroyed, 2);
  EXPECT_EQ(List.IndexOf(P1), -1);
  TPWBasicPin* Taken = List[0];
  EXPECT_EQ(List.Remove(Taken), 0);  // the caller now owns it
  delete Taken;
  EXPECT_EQ(List.Count(), 1u);
  EXPECT_FALSE(List.Delete(5));
  EXPECT_EQ(Created, 4);
}

TEST(ValuePins, StateValuesFlowClampAndNotify) {
  TWBComponent A, B, C;
  TPWIntRangedSourcePin Meter(A, "Meter", 0, 100, 10);
  TPWIntAndRangedStatePin Fader(B, "Fader", -10, 50, 0);
  TPWIntegerStatePin Mirror(C, "Mirror");
  std::vector<int64_t> Seen;
  Fader.OnValueChanged = [&](TPWIntegerPinBase&, int64_t V) { Seen.push_back(V); };
  ASSERT_TRUE(Meter.Connect(Fader));
  ASSERT_TRUE(Fader.Connect(Mirror));
  Meter.SetValue(30);
  EXPECT_EQ(Fader.GetValue(), 30);
  EXPECT_EQ(Mirror.GetValue(), 30) << "a state pin passes changes on";
  Meter.SetValue(1000);
  EXPECT_EQ(Meter.GetValue(), 100);
  EXPECT_EQ(Fader.GetValue(), 50) << "clamped to the receiving pin's range";
  Meter.SetValue(100);  // unchanged: nothing is sent
  EXPECT_EQ(Seen, (std::vector<int64_t>{30, 50}));
  Fader.SetRange(0, 20);
  EXPECT_EQ(Fader.GetValue(), 20);
  EXPECT_EQ(Mirror.GetValue(), 20);

  TPWBoolSourcePin Flag(A, "Flag");
  TPWBoolStatePin Switch(B, "Switch");
  ASSERT_TRUE(Flag.Connect(Switch));
  Flag.SetValue(true);
  EXPECT_TRUE(Switch.GetValue());
  TPWRealRangedSourcePin Peak(A, "Peak", 0.0, 1.0, 0.0);
  TPWRealStatePin Level(B, "Level");
  ASSERT_TRUE(Peak.Connect(Level));
  Peak.SetValue(1.5);
  EXPECT_DOUBLE_EQ(Level.GetValue(), 1.0);
}
