// The file source and sink as a chain: float files stay float, the source's
// trailing silence and the sink's skipped frames shift and lengthen the
// output exactly.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <random>
#include <vector>

#include "tests/support/Scratchfolder.h"
#include "frame/Srfilecomponents.h"

using namespace Quorvel;
namespace fs = std::filesystem;

namespace {

class FileChain : public Testing::ScratchFolderTest {
 protected:
  template <typename T>
  void WriteFile(const char* Name, Platform::TAudioFileInfo Info, const std::vector<T>& Samples) {
    std::string Error;
    auto Writer = Platform::CreateAudioFile(PathOf(Name), Info, Error);
    ASSERT_NE(Writer, nullptr) << Error;
    ASSERT_TRUE(Writer->Write(Samples.data(), Samples.size() / Info.Channels));
    ASSERT_TRUE(Writer->Close());
  }
  template <typename T>
  std::vector<T> ReadFile(const char* Name, Platform::TAudioFileInfo& Info) {
    std::string Error;
    auto Reader = Platform::OpenAudioFileForReading(PathOf(Name), Error);
    EXPECT_NE(Reader, nullptr) << Error;
    if (!Reader) return {};
    Info = Reader->Info();
    std::vector<T> Samples(static_cast<size_t>(Info.Frames) * Info.Channels);
    EXPECT_EQ(Reader->Read(Samples.data(), Info.Frames), static_cast<int64_t>(Info.Frames));
    return Samples;
  }

  // File -> sink, channel for channel; answers the frames the source sent.
  uint64_t Copy(const char* From, const char* To, uint64_t Silence, uint64_t Skip, bool Float) {
    TSRAudioFileSource Source;
    Source.SetFileName(PathOf(From));
    Source.SetBlockSize(100);
    Source.SetTrailingSilence(Silence);
    EXPECT_TRUE(Source.Open());
    const size_t Channels = Source.GetOutputPins().Count();
    TSRAudioFileSink Sink(nullptr, Channels);
    Sink.SetFileName(PathOf(To));
    Sink.SetBufferSize(64);
    Sink.SetFloat(Float);
    Sink.SetSkipFrames(Skip);
    for (size_t C = 0; C < Channels; ++C) EXPECT_TRUE(Source.GetOutputPin(C)->Connect(*Sink.GetInputPin(C)));
    return Source.Run();
  }

};

}  // namespace

TEST_F(FileChain, FloatFilesStayFloatClippedAtFullScale) {
  // Multiples of 2^-31 survive the 32-bit integers of the chain exactly.
  const float Step = std::ldexp(1.0f, -31);
  const std::vector<float> In = {0.5f, -1.0f, 1.5f, -2.0f, 3 * Step, -0.25f, std::nanf(""), 0.0f};
  WriteFile("in.wav", {44100, 2, 32, true}, In);
  EXPECT_EQ(Copy("in.wav", "out.wav", 0, 0, true), 4u);
  Platform::TAudioFileInfo Info;
  const auto Out = ReadFile<float>("out.wav", Info);
  EXPECT_TRUE(Info.Float);
  EXPECT_EQ(Info.Channels, 2u);
  // Beyond full scale clips (the largest 32-bit sample reads back as 1.0); NaN becomes 0.
  EXPECT_EQ(Out, (std::vector<float>{0.5f, -1.0f, 1.0f, -1.0f, 3 * Step, -0.25f, 0.0f, 0.0f}));
}

TEST_F(FileChain, TrailingSilenceAndSkippedFramesShiftTheOutput) {
  std::vector<int16_t> In(1000);
  for (size_t I = 0; I < In.size(); ++I) In[I] = static_cast<int16_t>(I + 1);
  WriteFile("ramp.wav", {8000, 1, 16}, In);
  // 37 frames taken off the start, 37 + 250 frames of silence after the end:
  // the output is the input from frame 37 on, then 250 frames of silence.
  EXPECT_EQ(Copy("ramp.wav", "shifted.wav", 37 + 250, 37, false), 1000u + 37 + 250);
  Platform::TAudioFileInfo Info;
  const auto Out = ReadFile<int16_t>("shifted.wav", Info);
  std::vector<int16_t> Expected(In.begin() + 37, In.end());
  Expected.resize(1000 + 250, 0);
  EXPECT_EQ(Out, Expected);
  // Skipping more than the stream holds writes nothing and fails nothing.
  EXPECT_EQ(Copy("ramp.wav", "none.wav", 0, 5000, false), 1000u);
  EXPECT_TRUE(ReadFile<int16_t>("none.wav", Info).empty());
}
