// The channel joiner and splitter: which channel goes where, silence for what
// is missing, and no allocation per block.
#include <gtest/gtest.h>

#include "frame/Srchannelcomponents.h"
#include "tests/support/Alloccounter.h"
#include "tests/support/Testcomponents.h"

using namespace Quorvel;
using namespace Quorvel::Testing;

TEST(ChannelComponents, JoinAndSplitKeepEachChannelInItsPlace) {
  // Three mono inputs, the middle one without a stream, joined and split into
  // four: channel 1 and the channel the stream lacks are silent.
  TTestSource A(nullptr, 1, 24, 48000), C(nullptr, 1, 16, 48000);
  TSRChannelJoiner Joiner(nullptr, 3);
  TSRChannelSplitter Splitter(nullptr, 4);
  TRecordingSink Joined(nullptr, 1), Sink(nullptr, 4);
  Joiner.SetBufferSize(32);
  Splitter.SetBufferSize(32);
  ASSERT_EQ(Joiner.GetInputPin(2)->GetName(), "Channel 3");
  ASSERT_EQ(Splitter.GetOutputPin(3)->GetName(), "Channel 4");
  ASSERT_EQ(Joiner.GetOutputPin(0)->GetName(), "Output");
  ASSERT_EQ(Splitter.GetInputPin(0)->GetName(), "Input");
  ASSERT_TRUE(A.Output.Connect(*Joiner.GetInputPin(0)));
  ASSERT_TRUE(C.Output.Connect(*Joiner.GetInputPin(2)));
  ASSERT_TRUE(Joiner.GetOutputPin(0)->Connect(*Splitter.GetInputPin(0)));
  ASSERT_TRUE(Joiner.GetOutputPin(0)->Connect(*Joined.Inputs[0]));
  for (size_t O = 0; O < 4; ++O) ASSERT_TRUE(Splitter.GetOutputPin(O)->Connect(*Sink.Inputs[O]));
  A.Start();
  C.Start();
  A.SendRamp(100, 70);
  C.SendRamp(-7, 70);
  A.Stop();
  C.Stop();
  ASSERT_EQ(Joined.Formats.size(), 1u);
  EXPECT_EQ(Joined.Formats[0].Format.nChannels, 3u);
  EXPECT_EQ(Joined.Formats[0].Format.wBitsPerSample, 24u);  // the first stream's width
  ASSERT_EQ(Sink.Formats.size(), 4u);
  EXPECT_EQ(Sink.Formats[3].Format.nChannels, 1u);
  EXPECT_EQ(Sink.BlockSizes.size(), 3u * 4u);  // 32, 32, 6 on each output
  for (size_t O = 0; O < 4; ++O) ASSERT_EQ(Sink.Samples[O].size(), 70u);
  for (size_t I = 0; I < 70; ++I) {
    ASSERT_EQ(Sink.Samples[0][I], 100 + int32_t(I));
    ASSERT_EQ(Sink.Samples[1][I], 0);
    ASSERT_EQ(Sink.Samples[2][I], (-7 + int32_t(I)) * 256);  // 16 bits widened to 24
    ASSERT_EQ(Sink.Samples[3][I], 0);
  }
  EXPECT_EQ(Sink.Count(poidStop), 4u);
}

namespace {

class TNullSink : public TWBComponent {
 public:
  TNullSink() : Input(*this, "In") {}
  ~TNullSink() override { BeginDestroy(); }
  void SinkDispatch(TPWBasicPin*, TPWBasicPin*, TPWOperationID, TPWOperation&, TPWNotifyStates& States) override {
    States.Include(TPWNotifyState::pnsHandled);
  }
  TSRPWAudioSinkPin Input;
};

}  // namespace

TEST(ChannelComponents, ABlockAllocatesNothing) {
  TTestSource L(nullptr, 1, 16, 48000), R(nullptr, 1, 16, 48000);
  TSRChannelJoiner Joiner(nullptr, 2);
  TSRChannelSplitter Splitter(nullptr, 2);
  TNullSink Out[2];
  Joiner.SetBufferSize(64);
  Splitter.SetBufferSize(64);
  ASSERT_TRUE(L.Output.Connect(*Joiner.GetInputPin(0)));
  ASSERT_TRUE(R.Output.Connect(*Joiner.GetInputPin(1)));
  ASSERT_TRUE(Joiner.GetOutputPin(0)->Connect(*Splitter.GetInputPin(0)));
  for (size_t O = 0; O < 2; ++O) ASSERT_TRUE(Splitter.GetOutputPin(O)->Connect(Out[O].Input));
  L.Start();
  R.Start();
  auto B = TSRAudioBuffer::Create(1, 64, 16, 48000);
  for (int I = 0; I < 4; ++I) {
    L.Output.SubmitBuffer(B);
    R.Output.SubmitBuffer(B);
  }
  const uint64_t Before = HeapAllocationCount();
  for (int I = 0; I < 200; ++I) {
    L.Output.SubmitBuffer(B);
    R.Output.SubmitBuffer(B);
  }
  EXPECT_EQ(HeapAllocationCount() - Before, 0u);
  L.Stop();
  R.Stop();
}
