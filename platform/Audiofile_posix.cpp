// PCM audio files through libsndfile. Reading accepts every format libsndfile
// knows; writing makes WAV files.
#include "platform/Audiofile.h"

#include <sndfile.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
#include <vector>

// 16- and 32-bit samples are copied in host order into a little-endian layout.
static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "little-endian host expected");

namespace Quorvel::Platform {
namespace {

// Samples converted per libsndfile call; bounds the scratch buffers whatever
// channel count a file claims.
constexpr size_t kChunkSamples = 65536;


std::string LastOpenError() {
  const char* Text = sf_strerror(nullptr);
  return Text && *Text ? Text : "cannot open the audio file";
}

class TSndfileReader final : public TAudioFileReader {
 public:
  enum class TDecode { Unsigned8, Int16, Int24, Int32, Float, Scaled };

  TSndfileReader(SNDFILE* File, const TAudioFileInfo& Info, TDecode Decode)
      : FFile(File), FInfo(Info), FDecode(Decode),
        FChunkFrames(std::max<size_t>(1, kChunkSamples / Info.Channels)) {}
  ~TSndfileReader() override { sf_close(FFile); }

  const TAudioFileInfo& Info() const override { return FInfo; }

  int64_t Read(void* Data, uint64_t Frames) override {
    if (Frames == 0) return 0;
    if (!Data) return -1;
    auto* Out = static_cast<uint8_t*>(Data);
    const size_t FrameBytes = size_t(FInfo.Channels) * FInfo.Bits / 8;
    uint64_t Done = 0;
    while (Done < Frames) {
      const size_t Want = size_t(std::min<uint64_t>(Frames - Done, FChunkFrames));
      const size_t Got = ReadChunk(Out + Done * FrameBytes, Want);
      Done += Got;
      if (Got < Want) break;
    }
    return int64_t(Done);
  }

 private:
  size_t ReadChunk(uint8_t* Out, size_t Frames) {
    const size_t Samples = Frames * FInfo.Channels;
    sf_count_t Got = 0;
    switch (FDecode) {
      case TDecode::Int16:
        FShorts.resize(Samples);
        Got = sf_readf_short(FFile, FShorts.data(), sf_count_t(Frames));
        std::memcpy(Out, FShorts.data(), size_t(Got) * FInfo.Channels * 2);
        break;
      case TDecode::Int32:
        FInts.resize(Samples);
        Got = sf_readf_int(FFile, FInts.data(), sf_count_t(Frames));
        std::memcpy(Out, FInts.data(), size_t(Got) * FInfo.Channels * 4);
        break;
      case TDecode::Unsigned8:
        // libsndfile scales to the top of an int; WAV stores 8-bit offset by 128.
        FInts.resize(Samples);
        Got = sf_readf_int(FFile, FInts.data(), sf_count_t(Frames));
        for (size_t I = 0; I < size_t(Got) * FInfo.Channels; ++I) Out[I] = uint8_t((FInts[I] >> 24) + 128);
        break;
      case TDecode::Int24:
        FInts.resize(Samples);
        Got = sf_readf_int(FFile, FInts.data(), sf_count_t(Frames));
        for (size_t I = 0; I < size_t(Got) * FInfo.Channels; ++I) {
          const uint32_t Value = uint32_t(FInts[I]) >> 8;
          Out[3 * I] = uint8_t(Value);
          Out[3 * I + 1] = uint8_t(Value >> 8);
          Out[3 * I + 2] = uint8_t(Value >> 16);
        }
        break;
      case TDecode::Float:
        Got = sf_readf_float(FFile, reinterpret_cast<float*>(Out), sf_count_t(Frames));
        break;
      case TDecode::Scaled:
        // Compressed data: libsndfile scales it to full-range 32-bit integers.
        FInts.resize(Samples);
        Got = sf_readf_int(FFile, FInts.data(), sf_count_t(Frames));
        std::memcpy(Out, FInts.data(), size_t(Got) * FInfo.Channels * 4);
        break;
    }
    return Got > 0 ? size_t(Got) : 0;
  }

  SNDFILE* FFile;
  TAudioFileInfo FInfo;
  TDecode FDecode;
  size_t FChunkFrames;
  std::vector<short> FShorts;
  std::vector<int> FInts;
};

class TSndfileWriter final : public TAudioFileWriter {
 public:
  TSndfileWriter(SNDFILE* File, const TAudioFileInfo& Info) : FFile(File), FInfo(Info) { FInfo.Frames = 0; }
  ~TSndfileWriter() override { Close(); }

  const TAudioFileInfo& Info() const override { return FInfo; }

  bool Write(const void* Data, uint64_t Frames) override {
    if (!FFile) return false;
    if (Frames == 0) return true;
    if (!Data) return false;
    // The caller's layout is the WAV data chunk's own, so the bytes go to the
    // file unchanged.
    const auto* In = static_cast<const uint8_t*>(Data);
    const uint64_t FrameBytes = uint64_t(FInfo.Channels) * FInfo.Bits / 8;
    const uint64_t ChunkFrames = std::max<uint64_t>(1, (uint64_t(1) << 24) / FrameBytes);
    for (uint64_t Done = 0; Done < Frames;) {
      const uint64_t Count = std::min(Frames - Done, ChunkFrames);
      const sf_count_t Bytes = sf_count_t(Count * FrameBytes);
      if (sf_write_raw(FFile, In + Done * FrameBytes, Bytes) != Bytes) return false;
      Done += Count;
      FInfo.Frames += Count;
    }
    return true;
  }

  bool Close() override {
    if (FFile) {
      FClosedCleanly = sf_close(FFile) == 0;
      FFile = nullptr;
    }
    return FClosedCleanly;
  }

 private:
  SNDFILE* FFile;
  TAudioFileInfo FInfo;
  bool FClosedCleanly = true;
};

}  // namespace

std::unique_ptr<TAudioFileReader> OpenAudioFileForReading(const std::string& FileName, std::string& ErrorText) {
  SF_INFO SfInfo{};
  SNDFILE* File = sf_open(FileName.c_str(), SFM_READ, &SfInfo);
  if (!File) {
    ErrorText = LastOpenError();
    return nullptr;
  }
  const auto Fail = [&](const char* Reason) {
    sf_close(File);
    ErrorText = Reason;
    return nullptr;
  };
  if (SfInfo.channels < 1) return Fail("the audio file has no channels");
  if (SfInfo.channels > 65535) return Fail("the audio file has too many channels");
  if (SfInfo.samplerate < 1) return Fail("the audio file has no sample rate");

  TAudioFileInfo Info;
  Info.SampleRate = uint32_t(SfInfo.samplerate);
  Info.Channels = uint16_t(SfInfo.channels);
  Info.Frames = SfInfo.frames > 0 ? uint64_t(SfInfo.frames) : 0;
  auto Decode = TSndfileReader::TDecode::Scaled;
  Info.Bits = 32;
  switch (SfInfo.format & SF_FORMAT_SUBMASK) {
    case SF_FORMAT_PCM_U8:
    case SF_FORMAT_PCM_S8:
      Decode = TSndfileReader::TDecode::Unsigned8;
      Info.Bits = 8;
      break;
    case SF_FORMAT_PCM_16:
      Decode = TSndfileReader::TDecode::Int16;
      Info.Bits = 16;
      break;
    case SF_FORMAT_PCM_24:
      Decode = TSndfileReader::TDecode::Int24;
      Info.Bits = 24;
      break;
    case SF_FORMAT_PCM_32:
      Decode = TSndfileReader::TDecode::Int32;
      break;
    case SF_FORMAT_FLOAT:
    case SF_FORMAT_DOUBLE:
      Decode = TSndfileReader::TDecode::Float;
      Info.Float = true;
      break;
    default:
      break;
  }
  ErrorText.clear();
  return std::make_unique<TSndfileReader>(File, Info, Decode);
}

std::unique_ptr<TAudioFileWriter> CreateAudioFile(const std::string& FileName, const TAudioFileInfo& Info,
                                                  std::string& ErrorText) {
  if (!CheckWriterInfo(Info, ErrorText)) return nullptr;
  SF_INFO SfInfo{};
  SfInfo.samplerate = int(Info.SampleRate);
  SfInfo.channels = int(Info.Channels);
  const int Subformat = Info.Float       ? SF_FORMAT_FLOAT
                        : Info.Bits == 8  ? SF_FORMAT_PCM_U8
                        : Info.Bits == 16 ? SF_FORMAT_PCM_16
                        : Info.Bits == 24 ? SF_FORMAT_PCM_24
                                          : SF_FORMAT_PCM_32;
  SfInfo.format = SF_FORMAT_WAV | Subformat;
  if (!sf_format_check(&SfInfo)) {
    ErrorText = "a WAV file cannot hold " + std::to_string(Info.Channels) + " channels";
    return nullptr;
  }
  SNDFILE* File = sf_open(FileName.c_str(), SFM_WRITE, &SfInfo);
  if (!File) {
    ErrorText = LastOpenError();
    return nullptr;
  }
  ErrorText.clear();
  return std::make_unique<TSndfileWriter>(File, Info);
}

bool WriteEncodedWave(const std::string&, const TEncodedWave&, std::string& ErrorText) {
  ErrorText = "encoded WAV files are written on Windows only";
  return false;
}

bool ReadEncodedWave(const std::string&, TEncodedWave&, std::string& ErrorText) {
  ErrorText = "encoded WAV files are read on Windows only";
  return false;
}

}  // namespace Quorvel::Platform
