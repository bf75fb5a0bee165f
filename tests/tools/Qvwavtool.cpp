// A helper of the command-line tests, not part of the product: makes a test
// tone and measures how close one WAV file is to another.
//   qvwavtool tone OUT.wav RATE CHANNELS FRAMES
//       a 16-bit sine, 0.5 of full scale, 440 Hz on channel 0 and 660 Hz on
//       the others
//   qvwavtool snr REFERENCE.wav TEST.wav [GAIN]
//       prints "frames R T snr X" where X (dB) compares TEST with REFERENCE
//       times GAIN (default 1), channel by channel, at the delay of TEST
//       (0 to 2000 frames) that suits best: codecs may delay their output
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "platform/Audiofile.h"

using namespace Quorvel::Platform;

namespace {

bool ReadAll(const char* Name, TAudioFileInfo& Info, std::vector<int16_t>& Samples) {
  std::string Why;
  auto Reader = OpenAudioFileForReading(Name, Why);
  if (!Reader) {
    std::fprintf(stderr, "qvwavtool: %s: %s\n", Name, Why.c_str());
    return false;
  }
  Info = Reader->Info();
  if (Info.Bits != 16 || Info.Float) {
    std::fprintf(stderr, "qvwavtool: %s is not 16-bit PCM\n", Name);
    return false;
  }
  Samples.resize(size_t(Info.Frames) * Info.Channels);
  const int64_t Got = Reader->Read(Samples.data(), Info.Frames);
  if (Got < 0) return false;
  Samples.resize(size_t(Got) * Info.Channels);
  return true;
}

int Tone(int Argc, char** Argv) {
  if (Argc != 6) return 2;
  TAudioFileInfo Info;
  Info.SampleRate = uint32_t(std::atol(Argv[3]));
  Info.Channels = uint32_t(std::atol(Argv[4]));
  Info.Bits = 16;
  const size_t Frames = size_t(std::atol(Argv[5]));
  std::vector<int16_t> Samples(Frames * Info.Channels);
  for (size_t I = 0; I < Frames; ++I)
    for (uint32_t C = 0; C < Info.Channels; ++C)
      Samples[I * Info.Channels + C] =
          int16_t(std::lround(16384.0 * std::sin(2 * 3.14159265358979 * (C ? 660.0 : 440.0) * double(I) / Info.SampleRate)));
  std::string Why;
  auto Writer = CreateAudioFile(Argv[2], Info, Why);
  if (!Writer || !Writer->Write(Samples.data(), Frames) || !Writer->Close()) {
    std::fprintf(stderr, "qvwavtool: %s: %s\n", Argv[2], Why.c_str());
    return 1;
  }
  return 0;
}

int Snr(int Argc, char** Argv) {
  if (Argc != 4 && Argc != 5) return 2;
  const double Gain = Argc == 5 ? std::atof(Argv[4]) : 1.0;
  TAudioFileInfo R, T;
  std::vector<int16_t> Ref, Test;
  if (!ReadAll(Argv[2], R, Ref) || !ReadAll(Argv[3], T, Test)) return 1;
  if (R.Channels != T.Channels) {
    std::fprintf(stderr, "qvwavtool: %u channels against %u\n", R.Channels, T.Channels);
    return 1;
  }
  const size_t Channels = R.Channels, RefFrames = Ref.size() / Channels, TestFrames = Test.size() / Channels;
  double Best = -1000;
  for (size_t Lag = 0; Lag <= 2000 && Lag < TestFrames; ++Lag) {
    const size_t N = std::min(RefFrames, TestFrames - Lag);
    if (N < RefFrames / 2) break;
    double Signal = 0, Noise = 0;
    for (size_t I = 0; I < N * Channels; ++I) {
      const double Want = Gain * Ref[I];
      const double Error = double(Test[I + Lag * Channels]) - Want;
      Signal += Want * Want;
      Noise += Error * Error;
    }
    Best = std::max(Best, 10 * std::log10(Signal / std::max(Noise, 1e-3)));
  }
  std::printf("frames %zu %zu snr %.1f\n", RefFrames, TestFrames, Best);
  return 0;
}

}  // namespace

int main(int Argc, char** Argv) {
  const std::string Command = Argc > 1 ? Argv[1] : "";
  const int Rc = Command == "tone" ? Tone(Argc, Argv) : Command == "snr" ? Snr(Argc, Argv) : 2;
  if (Rc == 2) std::fprintf(stderr, "usage: qvwavtool tone OUT RATE CHANNELS FRAMES | snr REF TEST [GAIN]\n");
  return Rc;
}
