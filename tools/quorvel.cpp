// The package's command-line host. For now: `demo` runs a chain built from
// the frame's own components (tone generator -> gain filter -> wave file).
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>

#include "frame/Srdemocomponents.h"
#include "frame/Wbbuffers.h"

using namespace Quorvel;

namespace {

int Usage() {
  std::fprintf(stderr,
               "usage: quorvel demo [-o out.wav] [-f frequency] [-g gain] [-s seconds]\n"
               "  demo   a generated tone through a gain filter into a wave file\n");
  return 2;
}

bool ParseDouble(const char* Text, double& Value) {
  char* End = nullptr;
  Value = std::strtod(Text, &End);
  return End && *End == '\0' && End != Text;
}

int Demo(int Argc, char** Argv) {
  std::string Output = "quorvel-demo.wav";
  double Frequency = 440.0, Gain = 0.5, Seconds = 2.0;
  for (int I = 0; I < Argc; ++I) {
    const std::string A = Argv[I];
    if (I + 1 >= Argc) return Usage();
    const char* V = Argv[++I];
    bool Ok = true;
    if (A == "-o")
      Output = V;
    else if (A == "-f")
      Ok = ParseDouble(V, Frequency) && Frequency > 0;
    else if (A == "-g")
      Ok = ParseDouble(V, Gain) && Gain >= 0;
    else if (A == "-s")
      Ok = ParseDouble(V, Seconds) && Seconds > 0 && Seconds <= 3600;
    else
      return Usage();
    if (!Ok) {
      std::fprintf(stderr, "quorvel: bad value for %s: %s\n", A.c_str(), V);
      return 2;
    }
  }

  TWBComponent Form;  // owns the chain
  auto* Tone = new TSRToneGenerator(&Form);
  auto* Filter = new TSRGainFilter(&Form);
  auto* Writer = new TSRWaveFileWriter(&Form);
  Tone->SetName("Tone");
  Filter->SetName("Gain");
  Writer->SetName("Writer");
  Tone->SetFrequency(Frequency);
  Tone->SetAmplitude(0.8);
  Filter->SetGain(Gain);
  Writer->SetFileName(Output);
  Tone->GetOutputPin().Connect(Filter->GetInputPin());
  Filter->GetOutputPin()->Connect(Writer->GetInputPin());

  const auto Before = GetBufferPoolStats();
  const size_t Blocks = static_cast<size_t>(Seconds * Tone->GetSampleRate() / Tone->GetBlockSize() + 0.5);
  Tone->Start();
  Tone->Generate(Blocks);
  Tone->Stop();
  const auto After = GetBufferPoolStats();

  std::printf("chain: %s; %s\n", Tone->GetOutputPin().GetDisplayName().c_str(),
              Filter->GetOutputPin()->GetDisplayName().c_str());
  std::printf("tone: %.1f Hz, %u channels, %u bits, %.0f Hz sample rate, amplitude 0.8, gain %.2f\n", Frequency,
              Tone->GetChannels(), Tone->GetBits(), Tone->GetSampleRate(), Gain);
  std::printf("passed: %llu buffers, %llu frames (%.2f s), peak %d of 32767\n",
              static_cast<unsigned long long>(Writer->GetBuffersWritten()),
              static_cast<unsigned long long>(Writer->GetFramesWritten()),
              static_cast<double>(Writer->GetFramesWritten()) / Tone->GetSampleRate(), Writer->GetPeak());
  std::printf("buffer pool: %llu heap allocations, %llu reuses\n",
              static_cast<unsigned long long>(After.HeapAllocations - Before.HeapAllocations),
              static_cast<unsigned long long>(After.PoolHits - Before.PoolHits));
  std::printf("written: %s\n", Output.c_str());
  return Writer->GetFramesWritten() == Blocks * Tone->GetBlockSize() ? 0 : 1;
}

}  // namespace

int main(int Argc, char** Argv) {
  if (Argc < 2) return Usage();
  try {
    if (std::strcmp(Argv[1], "demo") == 0) return Demo(Argc - 2, Argv + 2);
    return Usage();
  } catch (const std::exception& E) {
    std::fprintf(stderr, "quorvel: %s\n", E.what());
    return 1;
  }
}
