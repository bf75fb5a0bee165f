// Every VST 2 library that Debian's plug-in packages install, through
// TSRVSTHost: open it, stream a second of a 440 Hz tone through its pins,
// check what comes out, close and unload it.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "tests/support/Testcomponents.h"
#include "tests/vst2/Debianplugins.h"
#include "vst2/Srvsthost.h"

using namespace Quorvel;
using namespace Quorvel::Testing;

namespace {

// A mono 16-bit 440 Hz tone at half scale, sent in 441-sample buffers.
class TToneSource : public TWBComponent {
 public:
  TToneSource() : Output(*this, "Tone") {}
  ~TToneSource() override { BeginDestroy(); }
  void Run(double Seconds) {
    Output.SendStartWave(MakeWaveFormat(44100, 1, 16));
    auto B = TSRAudioBuffer::Create(1, 441, 16, 44100);
    const size_t Total = static_cast<size_t>(Seconds * 44100);
    for (size_t Sent = 0; Sent < Total; Sent += 441) {
      for (size_t I = 0; I < 441; ++I)
        B->SetSample(I, 0, static_cast<int32_t>(16384 * std::sin(2 * M_PI * 440.0 * double(Sent + I) / 44100.0)));
      Output.SubmitBuffer(B);
    }
    Output.SendStop();
  }
  TSRPWAudioSourcePin Output;
};

enum class TOutcome { Processed, Failed, Refused };

// Opens Path, streams a second through it and checks the result.
TOutcome RunPlugIn(const std::string& Path) {
  TSRVSTHost Host;
  std::vector<std::string> Errors;
  Host.OnError = [&](TWBComponent*, const std::string& Message, int32_t, bool& Handled) {
    Errors.push_back(Message);
    Handled = true;
  };
  if (std::getenv("QV_TRACE")) std::fprintf(stderr, "%s\n", Path.c_str());
  Host.SetFileName(Path);
  if (!Host.Open()) return TOutcome::Refused;

  bool Ok = true;
  auto Check = [&](bool Condition, const std::string& What) {
    EXPECT_TRUE(Condition) << Path << ": " << What;
    Ok = Ok && Condition;
  };
  const size_t Ins = Host.GetInputPins().Count(), Outs = Host.GetOutputPins().Count();
  Check(Ins == static_cast<size_t>(Host.GetNumInputs()) && Outs == static_cast<size_t>(Host.GetNumOutputs()),
        "one pin per plug-in channel");
  // An instrument has no inputs; a surplus input pin (never read) clocks its blocks.
  if (Ins == 0) Host.GetInputPins().SetCount(1);
  TToneSource Tone;
  TRecordingSink Sink(nullptr, Outs);
  for (size_t I = 0; I < Host.GetInputPins().Count(); ++I) Check(Tone.Output.Connect(*Host.GetInputPin(I)), "connect");
  for (size_t I = 0; I < Outs; ++I) Check(Host.GetOutputPin(I)->Connect(*Sink.Inputs[I]), "connect");
  Tone.Run(1.0);

  int32_t Peak = 0;
  for (size_t I = 0; I < Outs; ++I) {
    Check(Sink.Samples[I].size() == 44100u, "a second of audio on output " + std::to_string(I));
    for (int32_t V : Sink.Samples[I]) Peak = std::max(Peak, std::abs(V));
  }
  Check(Host.GetNonFiniteCount() == 0, "NaN or infinite samples");
  // Effects with inputs answer a tone; analysers (meters, profilers) may stay silent.
  if (Ins > 0 && Outs > 0 && Host.GetPlugCategory() != vpcAnalysis) Check(Peak > 0, "silent on a tone");
  Check(Errors.empty(), Errors.empty() ? std::string() : Errors[0]);
  Host.Close();
  Check(!Host.GetOpened(), "closed");
  return Ok ? TOutcome::Processed : TOutcome::Failed;
}

}  // namespace

TEST(DebianPlugIns, EveryInstalledLibraryLoadsProcessesAndUnloads) {
  size_t Libraries = 0, Loaded = 0, Processed = 0, Refused = 0;
  for (const auto& Package : DebianPlugInPackages()) {
    const auto Files = InstalledLibraries(Package);
    EXPECT_FALSE(Files.empty()) << Package << " is not installed (scripts/setup.sh installs it)";
    for (const auto& File : Files) {
      ++Libraries;
      const TOutcome Outcome = RunPlugIn(File);
      Loaded += Outcome != TOutcome::Refused;
      Processed += Outcome == TOutcome::Processed;
      Refused += Outcome == TOutcome::Refused;
    }
  }
  std::printf("Debian VST 2 libraries: %zu found, %zu loaded, %zu processed, %zu refused\n", Libraries, Loaded,
              Processed, Refused);
  EXPECT_EQ(Processed, Loaded) << "every library that opened must play";
  // The lsp package carries one shared library of common code that is not a
  // plug-in; everything else must open.
  EXPECT_LE(Refused, 1u);
  EXPECT_GE(Processed, 100u);
}
