// The media commands' shared pieces, and `quorvel log`: a WAV file's samples
// through the raw logger into a file of bare sample bytes, as the stream's
// PCM or (on Windows, with --format) as a codec's output.
#include "tools/Quorvelmedia.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "frame/Srsamples.h"
#include "frame/Wbstreams.h"
#include "media/Srrawlogger.h"
#include "tools/Quorvelcli.h"

namespace Quorvel::Cli {

// ---- TWaveStreamSource ----------------------------------------------------------------

TWaveStreamSource::TWaveStreamSource() : TWBComponent(nullptr), FOutputPin(*this, "Output") {}

TWaveStreamSource::~TWaveStreamSource() { BeginDestroy(); }

std::string TWaveStreamSource::Open(const std::string& FileName) {
  std::string Why;
  FReader = Platform::OpenAudioFileForReading(FileName, Why);
  if (!FReader) return "cannot read " + FileName + ": " + Why;
  FInfo = FReader->Info();
  if (FInfo.Channels == 0 || FInfo.Channels > 65535) return FileName + " has " + std::to_string(FInfo.Channels) + " channels";
  return std::string();
}

uint64_t TWaveStreamSource::Run(size_t BlockSize, const std::function<bool()>& Started,
                                const std::function<void(uint64_t, uint64_t)>& Progress, std::string& Error) {
  Threading::TLockGuard G(GetLock());
  Error.clear();
  if (!FReader) {
    Error = "no file is open";
    return 0;
  }
  const auto Channels = static_cast<uint16_t>(FInfo.Channels);
  const auto Bits = static_cast<uint16_t>(FInfo.Bits);
  FOutputPin.SendStartWave(MakeWaveFormat(FInfo.SampleRate, Channels, Bits));
  uint64_t Sent = 0;
  if (!Started || Started()) {
    std::vector<float> Floats(FInfo.Float ? BlockSize * Channels : 0);
    for (;;) {
      auto Buffer = TSRAudioBuffer::Create(Channels, BlockSize, Bits, FInfo.SampleRate);
      if (!Buffer || Buffer->GetSamples() != BlockSize) {
        Error = "no memory for a buffer of " + std::to_string(BlockSize) + " frames";
        break;
      }
      const int64_t Got = FReader->Read(FInfo.Float ? static_cast<void*>(Floats.data()) : Buffer->GetData(), BlockSize);
      if (Got < 0) {
        Error = "the file could not be read to its end";
        break;
      }
      if (Got == 0) break;
      const size_t Frames = static_cast<size_t>(Got);
      // Float samples travel as 32-bit integers at full scale.
      for (size_t I = 0; FInfo.Float && I < Frames; ++I)
        for (unsigned C = 0; C < Channels; ++C)
          Buffer->SetSample(I, C, RoundFullScale32(Floats[I * Channels + C]));
      Buffer->SetSampleCount(Frames);
      FOutputPin.SubmitBuffer(Buffer);
      Sent += Frames;
      if (Progress) Progress(Sent, FInfo.Frames);
    }
  }
  FOutputPin.SendStop();
  return Sent;
}

// ---- TWaveSink --------------------------------------------------------------------------

TWaveSink::TWaveSink(std::string FileName, uint64_t Limit)
    : TWBComponent(nullptr), FInputPin(*this, "Input"), FFileName(std::move(FileName)), FLimit(Limit) {}

TWaveSink::~TWaveSink() {
  BeginDestroy();
  Close();
}

std::string TWaveSink::Close() {
  if (FWriter && !FWriter->Close() && FError.empty()) FError = "cannot finish " + FFileName;
  FWriter.reset();
  return FError;
}

double TWaveSink::GetPeakDecibels() const {
  const double Full = std::ldexp(1.0, static_cast<int>(std::min<unsigned>(FInfo.Bits ? FInfo.Bits : 16, 32)) - 1);
  return FPeak > 0 ? 20.0 * std::log10(FPeak / Full) : -INFINITY;
}

void TWaveSink::SinkDispatch(TPWBasicPin*, TPWBasicPin*, TPWOperationID ID, TPWOperation& Operation,
                             TPWNotifyStates& States) {
  Threading::TLockGuard G(GetLock());
  States.Include(TPWNotifyState::pnsHandled);
  if (ID == poidStartWave) {
    Close();
    const auto& F = static_cast<TPWStartWaveOperation&>(Operation).GetFormat().Format;
    FInfo = Platform::TAudioFileInfo();
    FInfo.SampleRate = F.nSamplesPerSec;
    FInfo.Channels = F.nChannels;
    FInfo.Bits = F.wBitsPerSample;
    std::string Why;
    FWriter = Platform::CreateAudioFile(FFileName, FInfo, Why);
    if (!FWriter && FError.empty()) FError = "cannot write " + FFileName + ": " + Why;
  } else if (ID == poidSuppliedBuffer) {
    const ISRAudioBuffer* B = static_cast<TPWSuppliedBufferOperation&>(Operation).GetAudioBuffer();
    if (!FWriter || !B || FFrames >= FLimit) return;
    if (B->GetChannels() != FInfo.Channels || B->GetBits() != FInfo.Bits) {
      if (FError.empty()) FError = "a buffer does not match the stream's format";
      return;
    }
    const size_t Frames = static_cast<size_t>(std::min<uint64_t>(B->GetSamples(), FLimit - FFrames));
    for (size_t I = 0; I < Frames; ++I)
      for (unsigned C = 0; C < B->GetChannels(); ++C)
        FPeak = std::max(FPeak, static_cast<int32_t>(std::min<int64_t>(std::llabs(int64_t(B->GetSample(I, C))), INT32_MAX)));
    if (!FWriter->Write(B->GetData(), Frames)) {
      if (FError.empty()) FError = "cannot write " + FFileName;
      FWriter.reset();
      return;
    }
    FFrames += Frames;
  } else if (ID == poidStop) {
    Close();
  }
}

// ---- names ------------------------------------------------------------------------------

const std::vector<TCodecName>& CodecNames() {
  static const std::vector<TCodecName> Names = {
      {"pcm", 0x0001},     {"ms-adpcm", 0x0002}, {"alaw", 0x0006},      {"mulaw", 0x0007},
      {"ima-adpcm", 0x0011}, {"gsm610", 0x0031}, {"mpeg-layer3", 0x0055}};
  return Names;
}

std::string CodecName(uint16_t Tag) {
  for (const TCodecName& N : CodecNames())
    if (N.Tag == Tag) return N.Name;
  char Text[16];
  std::snprintf(Text, sizeof Text, "0x%04X", unsigned(Tag));
  return Text;
}

std::string PcmText(const Platform::TAudioFileInfo& Info) {
  return std::to_string(Info.SampleRate) + " Hz, " + std::to_string(Info.Channels) +
         (Info.Channels == 1 ? " channel, " : " channels, ") + std::to_string(Info.Bits) + "-bit " +
         (Info.Float ? "float" : "PCM");
}

std::string DescribeFormat(const std::vector<uint8_t>& Format) {
  if (Format.size() < sizeof(TWaveFormatEx)) return "no format";
  TWaveFormatEx F;
  std::memcpy(&F, Format.data(), sizeof F);
  return std::to_string(F.nSamplesPerSec) + " Hz, " + std::to_string(F.nChannels) +
         (F.nChannels == 1 ? " channel, " : " channels, ") + std::to_string(F.wBitsPerSample) + " bits";
}

// ---- quorvel log ------------------------------------------------------------------------

int Log(const TArgs& Args) {
  std::string Input, Output, FormatName;
  bool Quiet = false;
  TArgs None;
  if (const int Rc = ParseOptions(
          Args,
          {{"-i", true, [&](const std::string& V) { return !(Input = V).empty(); }, "the input file"},
           {"-o", true, [&](const std::string& V) { return !(Output = V).empty(); }, "the output file"},
           {"--format", true, [&](const std::string& V) { return !(FormatName = V).empty(); }, "a format name"},
           {"-q", false, [&](const std::string&) { return Quiet = true; }, ""}},
          None, 0))
    return Rc;
  if (Input.empty() || Output.empty()) return Usage();
  if (const std::string Problem = CheckExistingFile("input file", Input); !Problem.empty()) return Fail(Problem);

  TWaveStreamSource Source;
  if (const std::string Why = Source.Open(Input); !Why.empty()) return Fail(Why);
  const Platform::TAudioFileInfo Info = Source.GetInfo();
  std::vector<uint8_t> Format;
  if (!FormatName.empty())
    if (const std::string Why = FindCodecFormat(FormatName, Info.SampleRate, Info.Channels, Format); !Why.empty())
      return Fail(Why);
  TOutputFile File;
  if (!File.Prepare(Output, {{"the input file", Input}})) return 1;

  TReports Reports;
  TSRRawLogger Logger;
  Reports.Attach(Logger);
  Logger.SetFileName(File.GetWorkName());
  if (!Format.empty()) Logger.GetAudioCompressions().Add()->SetFormat(Format);
  if (!Source.GetOutputPin().Connect(Logger.GetInputPin())) return Fail("cannot connect the file to the logger");
  TProgressBar Bar(!Quiet);
  std::string ReadError;
  bool Refused = false;
  const uint64_t Frames = Source.Run(
      4096,
      [&] {
        // The logger falls back to plain PCM when the codec refuses; here that is a failure.
        Refused = !Format.empty() && !Logger.IsCompressing();
        return !Refused;
      },
      [&](uint64_t Done, uint64_t Total) { Bar.Show(Done, Total); }, ReadError);
  Bar.Finish();
  if (!Reports.Empty()) return Fail(Reports.First());
  if (Refused) return Fail("the codecs refuse to compress " + PcmText(Info) + " to " + FormatName);
  if (!ReadError.empty()) return Fail(Input + ": " + ReadError);
  const int64_t Size = TWBFileStream(File.GetWorkName(), Platform::TFileOpenMode::fomRead).GetSize();
  std::printf("logged %llu frames (%.2f s) of %u Hz, %u channels, %u bits: %lld bytes of %s\n",
              static_cast<unsigned long long>(Frames), Info.SampleRate ? double(Frames) / Info.SampleRate : 0.0,
              Info.SampleRate, Info.Channels, unsigned(Info.Bits), static_cast<long long>(Size),
              Format.empty() ? "PCM" : (CodecName(reinterpret_cast<const TWaveFormatEx*>(Format.data())->wFormatTag) +
                                        " (" + DescribeFormat(Format) + ")").c_str());
  if (!File.Commit()) return 1;
  std::printf("written: %s\n", Output.c_str());
  return 0;
}

}  // namespace Quorvel::Cli
