// Chains a user builds around the VST 3 host, end to end: a WAV file through
// the test module into another file, and a VST 2 plug-in feeding the VST 3
// module. Components with a pin per channel meet the host's pin per bus
// through the channel joiner and splitter.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "frame/Srchannelcomponents.h"
#include "frame/Srfilecomponents.h"
#include "platform/Audiofile.h"
#include "tests/support/Scratchfolder.h"
#include "tests/support/Testcomponents.h"
#include "tests/vst2/Vst2testplugins.h"
#include "tests/vst3/Vst3testmodule.h"
#include "vst2/Srvsthost.h"
#include "vst3/Srvst3host.h"

using namespace Quorvel;
using namespace Quorvel::Testing;

namespace {

// The sample of frame I, channel C of the input files.
int32_t Signal(size_t I, unsigned C) {
  return static_cast<int32_t>(std::lround(20000.0 * std::sin(0.01 * double(I) * (C + 1)))) + int32_t(C);
}

// Through the host and the module at gain G: x / 2^bits * G * 2^bits, rounded.
int32_t ThroughGain(int32_t X, double G) { return static_cast<int32_t>(std::nearbyint(X * G)); }

class Vst3Chain : public ScratchFolderTest {};

}  // namespace

TEST_F(Vst3Chain, AFileGoesThroughTheModuleIntoAFile) {
  // Blocks of 100 frames from the file, 64 through the host: the joiner and
  // the host re-block, and the last block is short.
  constexpr size_t Frames = 1000;
  const std::string In = PathOf("in.wav"), Out = PathOf("out.wav");
  {
    std::string Error;
    Platform::TAudioFileInfo Info;
    Info.SampleRate = 44100;
    Info.Channels = 2;
    Info.Bits = 16;
    auto W = Platform::CreateAudioFile(In, Info, Error);
    ASSERT_TRUE(W) << Error;
    std::vector<int16_t> Data;
    for (size_t I = 0; I < Frames; ++I)
      for (unsigned C = 0; C < 2; ++C) Data.push_back(static_cast<int16_t>(Signal(I, C)));
    ASSERT_TRUE(W->Write(Data.data(), Frames));
    ASSERT_TRUE(W->Close());
  }
  for (const auto Size : {TSRVST3SampleSize::vst3ss32, TSRVST3SampleSize::vst3ss64}) {
    SCOPED_TRACE(Size == TSRVST3SampleSize::vst3ss64 ? "64-bit" : "32-bit");
    TVst3ModuleProbe Probe;
    Probe.Options("gain=0.5,map=swap");
    TVst3ErrorLog Log;
    TSRAudioFileSource Source;
    TSRChannelJoiner Joiner(nullptr, 2);
    TSRVST3Host Host;
    TSRChannelSplitter Splitter(nullptr, 2);
    TSRAudioFileSink Sink(nullptr, 2);
    for (TWBComponent* C : std::initializer_list<TWBComponent*>{&Source, &Joiner, &Host, &Splitter, &Sink})
      Log.Attach(*C);
    Source.SetFileName(In);
    Source.SetBlockSize(100);
    ASSERT_TRUE(Source.Open());
    Host.SetSampleRate(44100);
    Host.SetBufferSize(64);
    Host.SetSampleSize(Size);
    Host.SetFileName(QV_TESTVST3_MAIN);
    ASSERT_TRUE(Host.Open());
    Sink.SetFileName(Out);
    for (size_t C = 0; C < 2; ++C) {
      ASSERT_TRUE(Source.GetOutputPin(C)->Connect(*Joiner.GetInputPin(C)));
      ASSERT_TRUE(Splitter.GetOutputPin(C)->Connect(*Sink.GetInputPin(C)));
    }
    ASSERT_TRUE(Joiner.GetOutputPin(0)->Connect(*Host.GetInputPin(0)));
    ASSERT_TRUE(Host.GetOutputPin(0)->Connect(*Splitter.GetInputPin(0)));
    EXPECT_EQ(Source.Run(), Frames);
    ASSERT_TRUE(Log.Errors.empty()) << Log.Errors[0].first;
    EXPECT_EQ(Sink.GetFramesWritten(), Frames);

    std::string Error;
    auto R = Platform::OpenAudioFileForReading(Out, Error);
    ASSERT_TRUE(R) << Error;
    ASSERT_EQ(R->Info().Channels, 2u);
    ASSERT_EQ(R->Info().Bits, 16u);
    std::vector<int16_t> Got(Frames * 2);
    ASSERT_EQ(R->Read(Got.data(), Frames), int64_t(Frames));
    for (size_t I = 0; I < Frames; ++I) {
      ASSERT_EQ(Got[I * 2], ThroughGain(Signal(I, 1), 0.5)) << I;
      ASSERT_EQ(Got[I * 2 + 1], ThroughGain(Signal(I, 0), 0.5)) << I;
    }
    const auto P = Probe.ProcessCalls();
    ASSERT_EQ(P.size(), (Frames + 63) / 64);
    EXPECT_EQ(P.back().Samples, int32_t(Frames % 64));
    EXPECT_EQ(P[0].SampleSize, Size == TSRVST3SampleSize::vst3ss64 ? 1 : 0);
  }
}

TEST_F(Vst3Chain, AVst2PlugInFeedsTheModuleInOneChain) {
  // Two mono sources -> the VST 2 test plug-in at half gain -> joined -> the
  // VST 3 module at gain 4, channels swapped -> split -> recorded.
  TVst3ModuleProbe Probe;
  Probe.Options("gain=4,map=swap");
  TVst3ErrorLog Log;
  TTestSource Left(nullptr, 1, 24, 48000), Right(nullptr, 1, 24, 48000);
  TSRVSTHost Vst2;
  TSRChannelJoiner Joiner(nullptr, 2);
  TSRVST3Host Vst3;
  TSRChannelSplitter Splitter(nullptr, 2);
  TRecordingSink Sink(nullptr, 2);
  for (TWBComponent* C : std::initializer_list<TWBComponent*>{&Vst2, &Joiner, &Vst3, &Splitter})
    Log.Attach(*C);
  Vst2.SetFileName(PlugInPath("qvtestvst2"));
  Vst2.SetBufferSize(32);
  ASSERT_TRUE(Vst2.Open());
  Vst2.SetProgram(1);  // "Half"
  Vst3.SetBufferSize(48);
  Vst3.SetSampleRate(48000);
  Vst3.SetFileName(QV_TESTVST3_MAIN);
  ASSERT_TRUE(Vst3.Open());
  ASSERT_TRUE(Left.Output.Connect(*Vst2.GetInputPin(0)));
  ASSERT_TRUE(Right.Output.Connect(*Vst2.GetInputPin(1)));
  for (size_t C = 0; C < 2; ++C) {
    ASSERT_TRUE(Vst2.GetOutputPin(C)->Connect(*Joiner.GetInputPin(C)));
    ASSERT_TRUE(Splitter.GetOutputPin(C)->Connect(*Sink.Inputs[C]));
  }
  ASSERT_TRUE(Joiner.GetOutputPin(0)->Connect(*Vst3.GetInputPin(0)));
  ASSERT_TRUE(Vst3.GetOutputPin(0)->Connect(*Splitter.GetInputPin(0)));
  Left.Start();
  Right.Start();
  Left.SendRamp(1000, 200);
  Right.SendRamp(-3000, 200);
  Left.Stop();
  Right.Stop();
  ASSERT_TRUE(Log.Errors.empty()) << Log.Errors[0].first;
  ASSERT_EQ(Sink.Samples[0].size(), 200u);
  ASSERT_EQ(Sink.Samples[1].size(), 200u);
  // Half (rounded in the VST 2 stage), then four times, swapped.
  for (size_t I = 0; I < 200; ++I) {
    ASSERT_EQ(Sink.Samples[0][I], ThroughGain(ThroughGain(-3000 + int32_t(I), 0.5), 4)) << I;
    ASSERT_EQ(Sink.Samples[1][I], ThroughGain(ThroughGain(1000 + int32_t(I), 0.5), 4)) << I;
  }
  EXPECT_EQ(Sink.Count(poidStop), 2u);
}
