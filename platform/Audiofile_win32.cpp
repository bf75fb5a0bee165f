// PCM WAV files through the multimedia RIFF functions (mmio). The file is
// opened with CreateFileW and handed to mmio as a handle, so that any Unicode
// name works (mmio would take a '+' in a name for a compound-file element) and
// open failures carry the system's reason.
#include "platform/Audiofile.h"

#include <windows.h>
#include <mmsystem.h>
#include <mmreg.h>

#include "platform/Win32text_win32.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
#include <vector>

namespace Quorvel::Platform {
namespace {

// mmio keeps file offsets in a LONG.
constexpr uint64_t kMaxFileSize = 0x7FFFFFFF;
// RIFF header, the largest format chunk and the data chunk header.
constexpr uint64_t kMaxHeaderSize = 12 + 8 + 40 + 8;
// Bytes handed to one mmioRead or mmioWrite call.
constexpr uint64_t kMaxTransfer = 1 << 24;

const FOURCC kWave = mmioFOURCC('W', 'A', 'V', 'E');
const FOURCC kFmt = mmioFOURCC('f', 'm', 't', ' ');
const FOURCC kData = mmioFOURCC('d', 'a', 't', 'a');
// Every WAVE_FORMAT_EXTENSIBLE sub-format GUID ends this way; its first four
// bytes hold the plain format tag.
const uint8_t kSubFormatTail[12] = {0x00, 0x00, 0x10, 0x00, 0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71};


uint16_t Le16(const uint8_t* At) { return uint16_t(At[0] | At[1] << 8); }
uint32_t Le32(const uint8_t* At) { return uint32_t(Le16(At)) | uint32_t(Le16(At + 2)) << 16; }
void Put16(std::vector<uint8_t>& Out, uint32_t Value) {
  Out.push_back(uint8_t(Value));
  Out.push_back(uint8_t(Value >> 8));
}
void Put32(std::vector<uint8_t>& Out, uint32_t Value) {
  Put16(Out, Value);
  Put16(Out, Value >> 16);
}

// Opens the file and gives it to mmio, which closes the handle with mmioClose.
HMMIO OpenMmio(const std::string& FileName, bool Create, std::string& ErrorText) {
  std::wstring Path;
  if (FileName.empty() || !ToUtf16(FileName, Path)) {
    ErrorText = FileName.empty() ? "empty file name" : "file name is not valid UTF-8";
    return nullptr;
  }
  HANDLE Handle = Create ? CreateFileW(Path.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                       CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr)
                         : CreateFileW(Path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                       FILE_ATTRIBUTE_NORMAL, nullptr);
  if (Handle == INVALID_HANDLE_VALUE) {
    ErrorText = SystemMessage(GetLastError(), FileName);
    return nullptr;
  }
  if (!Create) {
    LARGE_INTEGER Size{};
    if (!GetFileSizeEx(Handle, &Size)) {
      ErrorText = SystemMessage(GetLastError(), FileName);
      CloseHandle(Handle);
      return nullptr;
    }
    if (uint64_t(Size.QuadPart) > kMaxFileSize) {
      CloseHandle(Handle);
      ErrorText = "WAV files of 2 GiB or more are not supported";
      return nullptr;
    }
  }
  // Kernel handles have 32 significant bits, so one fits the DWORD mmio keeps.
  MMIOINFO Info{};
  Info.adwInfo[0] = DWORD(reinterpret_cast<uintptr_t>(Handle));
  HMMIO File = mmioOpenW(nullptr, &Info, (Create ? MMIO_READWRITE : MMIO_READ) | MMIO_ALLOCBUF);
  if (!File) {
    CloseHandle(Handle);
    ErrorText = "cannot open the file for RIFF access (error " + std::to_string(Info.wErrorRet) + ")";
  }
  return File;
}

enum class TEncoding { Pcm, Float32, Float64 };

class TMmioReader final : public TAudioFileReader {
 public:
  TMmioReader(HMMIO File, const TAudioFileInfo& Info, TEncoding Encoding, uint32_t BlockAlign)
      : FFile(File), FInfo(Info), FEncoding(Encoding), FBlockAlign(BlockAlign), FFramesLeft(Info.Frames) {}
  ~TMmioReader() override { mmioClose(FFile, 0); }

  const TAudioFileInfo& Info() const override { return FInfo; }

  int64_t Read(void* Data, uint64_t Frames) override {
    if (Frames == 0) return 0;
    if (!Data) return -1;
    auto* Out = static_cast<uint8_t*>(Data);
    const uint64_t OutFrameBytes = uint64_t(FInfo.Channels) * FInfo.Bits / 8;
    const uint64_t ChunkFrames = std::max<uint64_t>(1, kMaxTransfer / FBlockAlign);
    uint64_t Done = 0;
    Frames = std::min(Frames, FFramesLeft);
    while (Done < Frames) {
      const uint64_t Want = std::min(Frames - Done, ChunkFrames);
      const int64_t Got = ReadChunk(Out + Done * OutFrameBytes, Want);
      if (Got < 0) return Done ? int64_t(Done) : -1;
      Done += uint64_t(Got);
      FFramesLeft -= uint64_t(Got);
      if (uint64_t(Got) < Want) {
        FFramesLeft = 0;  // the file ended early
        break;
      }
    }
    return int64_t(Done);
  }

 private:
  int64_t ReadChunk(uint8_t* Out, uint64_t Frames) {
    const LONG Bytes = LONG(Frames * FBlockAlign);
    // Integer PCM and 32-bit floats are stored exactly as delivered.
    uint8_t* Target = Out;
    if (FEncoding == TEncoding::Float64) {
      FScratch.resize(size_t(Bytes));
      Target = FScratch.data();
    }
    const LONG Got = mmioRead(FFile, reinterpret_cast<HPSTR>(Target), Bytes);
    if (Got < 0) return -1;
    const uint64_t GotFrames = uint64_t(Got) / FBlockAlign;
    const size_t Samples = size_t(GotFrames) * FInfo.Channels;
    // 64-bit floats are narrowed to 32 bits.
    for (size_t I = 0; I < Samples && FEncoding == TEncoding::Float64; ++I) {
      double Value;
      std::memcpy(&Value, Target + 8 * I, 8);
      const float Single = static_cast<float>(Value);
      std::memcpy(Out + 4 * I, &Single, 4);
    }
    return int64_t(GotFrames);
  }

  HMMIO FFile;
  TAudioFileInfo FInfo;
  TEncoding FEncoding;
  uint32_t FBlockAlign;
  uint64_t FFramesLeft;
  std::vector<uint8_t> FScratch;
};

class TMmioWriter final : public TAudioFileWriter {
 public:
  TMmioWriter(HMMIO File, const TAudioFileInfo& Info, const MMCKINFO& Riff, const MMCKINFO& Data)
      : FFile(File), FInfo(Info), FRiff(Riff), FData(Data) {
    FInfo.Frames = 0;
  }
  ~TMmioWriter() override { Close(); }

  const TAudioFileInfo& Info() const override { return FInfo; }

  bool Write(const void* Data, uint64_t Frames) override {
    if (!FFile || !FWriteOk) return false;
    if (Frames == 0) return true;
    if (!Data) return false;
    const uint64_t FrameBytes = uint64_t(FInfo.Channels) * FInfo.Bits / 8;
    if (Frames > (kMaxFileSize - kMaxHeaderSize - FDataBytes) / FrameBytes) return false;
    // The caller's layout is the WAV data chunk's own.
    const auto* In = static_cast<const char*>(Data);
    for (uint64_t Left = Frames * FrameBytes; Left > 0;) {
      const LONG Count = LONG(std::min(Left, kMaxTransfer));
      if (mmioWrite(FFile, In, Count) != Count) {
        FWriteOk = false;
        return false;
      }
      In += Count;
      Left -= uint64_t(Count);
      FDataBytes += uint64_t(Count);
    }
    FInfo.Frames += Frames;
    return true;
  }

  bool Close() override {
    if (FFile) {
      // Ascending out of the chunks writes their final sizes (and the data chunk's pad byte).
      bool Ok = FWriteOk;
      Ok = mmioAscend(FFile, &FData, 0) == MMSYSERR_NOERROR && Ok;
      Ok = mmioAscend(FFile, &FRiff, 0) == MMSYSERR_NOERROR && Ok;
      Ok = mmioClose(FFile, 0) == MMSYSERR_NOERROR && Ok;
      FFile = nullptr;
      FClosedCleanly = Ok;
    }
    return FClosedCleanly;
  }

 private:
  HMMIO FFile;
  TAudioFileInfo FInfo;
  MMCKINFO FRiff;
  MMCKINFO FData;
  uint64_t FDataBytes = 0;
  bool FWriteOk = true;
  bool FClosedCleanly = true;
};

// What the format chunk says, checked against what the reader can deliver.
bool ParseFormat(const uint8_t* Body, uint32_t Size, TAudioFileInfo& Info, TEncoding& Encoding,
                 uint32_t& BlockAlign, std::string& ErrorText) {
  uint32_t Tag = Le16(Body);
  const uint16_t Channels = Le16(Body + 2);
  const uint32_t Rate = Le32(Body + 4);
  BlockAlign = Le16(Body + 12);
  const uint16_t Bits = Le16(Body + 14);
  if (Tag == WAVE_FORMAT_EXTENSIBLE) {
    if (Size < 40) {
      ErrorText = "the WAV file's extensible format chunk is too short";
      return false;
    }
    if (std::memcmp(Body + 28, kSubFormatTail, sizeof kSubFormatTail) != 0) {
      ErrorText = "unsupported WAV sub-format";
      return false;
    }
    Tag = Le32(Body + 24);
  }
  if (Channels == 0) {
    ErrorText = "the WAV file has no channels";
    return false;
  }
  if (Rate == 0) {
    ErrorText = "the WAV file has no sample rate";
    return false;
  }
  // Integer samples of fewer valid bits (12, 20, ...) sit left-justified in a
  // container of whole bytes, so they are read as the container's width.
  const uint32_t Container = BlockAlign % Channels == 0 ? BlockAlign / Channels * 8 : 0;
  if (Tag == WAVE_FORMAT_PCM && Bits >= 1 && Bits <= Container && Container <= 32) {
    Encoding = TEncoding::Pcm;
  } else if (Tag == WAVE_FORMAT_IEEE_FLOAT && (Bits == 32 || Bits == 64) && Container == Bits) {
    Encoding = Bits == 32 ? TEncoding::Float32 : TEncoding::Float64;
  } else {
    ErrorText = "unsupported WAV encoding (format tag " + std::to_string(Tag) + ", " + std::to_string(Bits) +
                " bits per sample" + (Tag == WAVE_FORMAT_PCM || Tag == WAVE_FORMAT_IEEE_FLOAT
                                          ? ", block alignment " + std::to_string(BlockAlign)
                                          : std::string(": compressed WAV files are read by the Linux build only")) +
                ")";
    return false;
  }
  Info.SampleRate = Rate;
  Info.Channels = Channels;
  Info.Bits = Encoding == TEncoding::Pcm ? uint16_t(Container) : 32;
  Info.Float = Encoding != TEncoding::Pcm;
  return true;
}

std::unique_ptr<TAudioFileReader> ReadHeader(HMMIO File, std::string& ErrorText) {
  // Offsets are computed here rather than left to mmio's chunk search, so that
  // absurd chunk sizes end the walk instead of wrapping its 32-bit offsets.
  const LONG FileSize = mmioSeek(File, 0, SEEK_END);
  MMCKINFO Riff{};
  if (FileSize < 12 || mmioSeek(File, 0, SEEK_SET) != 0 || mmioDescend(File, &Riff, nullptr, 0) != MMSYSERR_NOERROR ||
      Riff.ckid != FOURCC_RIFF || Riff.fccType != kWave) {
    ErrorText = "not a WAV file (no RIFF WAVE header)";
    return nullptr;
  }
  const uint64_t End = uint64_t(FileSize);
  TAudioFileInfo Info;
  TEncoding Encoding = TEncoding::Pcm;
  uint32_t BlockAlign = 0;
  bool HaveFormat = false;
  for (uint64_t At = uint64_t(Riff.dwDataOffset) + 4; At + 8 <= End;) {
    MMCKINFO Chunk{};
    if (mmioSeek(File, LONG(At), SEEK_SET) != LONG(At) || mmioDescend(File, &Chunk, nullptr, 0) != MMSYSERR_NOERROR)
      break;
    const uint64_t BodyEnd = uint64_t(Chunk.dwDataOffset) + Chunk.cksize;
    if (Chunk.ckid == kFmt) {
      uint8_t Body[40] = {};
      const LONG Wanted = LONG(std::min<uint32_t>(Chunk.cksize, sizeof Body));
      if (Chunk.cksize < 16 || BodyEnd > End || mmioRead(File, reinterpret_cast<HPSTR>(Body), Wanted) != Wanted) {
        ErrorText = "the WAV file's format chunk is too short";
        return nullptr;
      }
      if (!ParseFormat(Body, Chunk.cksize, Info, Encoding, BlockAlign, ErrorText)) return nullptr;
      HaveFormat = true;
    } else if (Chunk.ckid == kData) {
      if (!HaveFormat) break;
      // A data chunk claiming more than the file holds (an unfinished recording) yields what is there.
      Info.Frames = (std::min(BodyEnd, End) - Chunk.dwDataOffset) / BlockAlign;
      if (mmioSeek(File, LONG(Chunk.dwDataOffset), SEEK_SET) != LONG(Chunk.dwDataOffset)) break;
      ErrorText.clear();
      return std::make_unique<TMmioReader>(File, Info, Encoding, BlockAlign);
    }
    At = BodyEnd + (Chunk.cksize & 1);
  }
  ErrorText = HaveFormat ? "the WAV file has no data chunk" : "the WAV file has no format chunk";
  return nullptr;
}

std::vector<uint8_t> FormatChunk(const TAudioFileInfo& Info) {
  const uint32_t BlockAlign = uint32_t(Info.Channels) * Info.Bits / 8;
  // Plain PCM or float where every reader understands it; the extensible form
  // for more channels or bits, as the format asks.
  const uint32_t Tag = Info.Float ? WAVE_FORMAT_IEEE_FLOAT : WAVE_FORMAT_PCM;
  const bool Plain = Info.Channels <= 2 && (Info.Bits <= 16 || Info.Float);
  std::vector<uint8_t> Body;
  Put16(Body, Plain ? Tag : WAVE_FORMAT_EXTENSIBLE);
  Put16(Body, Info.Channels);
  Put32(Body, Info.SampleRate);
  Put32(Body, Info.SampleRate * BlockAlign);
  Put16(Body, BlockAlign);
  Put16(Body, Info.Bits);
  if (!Plain) {
    Put16(Body, 22);
    Put16(Body, Info.Bits);
    // Speaker positions only where the channel count implies them.
    Put32(Body, Info.Channels == 1 ? SPEAKER_FRONT_CENTER
                : Info.Channels == 2 ? SPEAKER_FRONT_LEFT | SPEAKER_FRONT_RIGHT
                                     : 0);
    Put32(Body, Tag);
    Body.insert(Body.end(), kSubFormatTail, kSubFormatTail + sizeof kSubFormatTail);
  }
  return Body;
}

}  // namespace

std::unique_ptr<TAudioFileReader> OpenAudioFileForReading(const std::string& FileName, std::string& ErrorText) {
  HMMIO File = OpenMmio(FileName, false, ErrorText);
  if (!File) return nullptr;
  auto Reader = ReadHeader(File, ErrorText);
  if (!Reader) mmioClose(File, 0);
  return Reader;
}

std::unique_ptr<TAudioFileWriter> CreateAudioFile(const std::string& FileName, const TAudioFileInfo& Info,
                                                  std::string& ErrorText) {
  if (!CheckWriterInfo(Info, ErrorText)) return nullptr;
  if (uint64_t(Info.SampleRate) * Info.Channels * Info.Bits / 8 > UINT32_MAX) {
    ErrorText = "invalid sample rate " + std::to_string(Info.SampleRate);
    return nullptr;
  }
  HMMIO File = OpenMmio(FileName, true, ErrorText);
  if (!File) return nullptr;
  const std::vector<uint8_t> Format = FormatChunk(Info);
  MMCKINFO Riff{}, Fmt{}, Data{};
  Riff.fccType = kWave;
  Fmt.ckid = kFmt;
  Fmt.cksize = DWORD(Format.size());
  Data.ckid = kData;
  const LONG FormatSize = LONG(Format.size());
  if (mmioCreateChunk(File, &Riff, MMIO_CREATERIFF) != MMSYSERR_NOERROR ||
      mmioCreateChunk(File, &Fmt, 0) != MMSYSERR_NOERROR ||
      mmioWrite(File, reinterpret_cast<const char*>(Format.data()), FormatSize) != FormatSize ||
      mmioAscend(File, &Fmt, 0) != MMSYSERR_NOERROR || mmioCreateChunk(File, &Data, 0) != MMSYSERR_NOERROR) {
    mmioClose(File, 0);
    std::wstring Path;
    if (ToUtf16(FileName, Path)) DeleteFileW(Path.c_str());
    ErrorText = "cannot write the WAV header";
    return nullptr;
  }
  ErrorText.clear();
  return std::make_unique<TMmioWriter>(File, Info, Riff, Data);
}

namespace {

// Largest format record read: the header and 64 KiB of extra bytes at most.
constexpr uint32_t kMaxFormatRecord = 18 + 0xFFFF;
const FOURCC kFact = mmioFOURCC('f', 'a', 'c', 't');

bool WriteChunk(HMMIO File, FOURCC Id, const uint8_t* Body, uint64_t Size) {
  MMCKINFO Chunk{};
  Chunk.ckid = Id;
  if (mmioCreateChunk(File, &Chunk, 0) != MMSYSERR_NOERROR) return false;
  for (uint64_t At = 0; At < Size;) {
    const LONG Count = LONG(std::min(Size - At, kMaxTransfer));
    if (mmioWrite(File, reinterpret_cast<const char*>(Body + At), Count) != Count) return false;
    At += uint64_t(Count);
  }
  return mmioAscend(File, &Chunk, 0) == MMSYSERR_NOERROR;
}

}  // namespace

bool WriteEncodedWave(const std::string& FileName, const TEncodedWave& Wave, std::string& ErrorText) {
  if (Wave.Format.size() < 18 || Wave.Format.size() != 18u + Le16(Wave.Format.data() + 16)) {
    ErrorText = "the format record is not a WAVEFORMATEX with its extra bytes";
    return false;
  }
  if (Wave.Data.size() > kMaxFileSize - 12 - 8 - Wave.Format.size() - 12 - 8) {
    ErrorText = "WAV files of 2 GiB or more are not supported";
    return false;
  }
  HMMIO File = OpenMmio(FileName, true, ErrorText);
  if (!File) return false;
  MMCKINFO Riff{};
  Riff.fccType = kWave;
  std::vector<uint8_t> Fact;
  Put32(Fact, Wave.SampleFrames);
  bool Ok = mmioCreateChunk(File, &Riff, MMIO_CREATERIFF) == MMSYSERR_NOERROR &&
            WriteChunk(File, kFmt, Wave.Format.data(), Wave.Format.size()) &&
            WriteChunk(File, kFact, Fact.data(), Fact.size()) &&
            WriteChunk(File, kData, Wave.Data.data(), Wave.Data.size()) &&
            mmioAscend(File, &Riff, 0) == MMSYSERR_NOERROR;
  Ok = mmioClose(File, 0) == MMSYSERR_NOERROR && Ok;
  if (!Ok) ErrorText = "cannot write " + FileName;
  return Ok;
}

bool ReadEncodedWave(const std::string& FileName, TEncodedWave& Wave, std::string& ErrorText) {
  HMMIO File = OpenMmio(FileName, false, ErrorText);
  if (!File) return false;
  struct TCloser {
    HMMIO F;
    ~TCloser() { mmioClose(F, 0); }
  } Closer{File};
  const LONG FileSize = mmioSeek(File, 0, SEEK_END);
  MMCKINFO Riff{};
  if (FileSize < 12 || mmioSeek(File, 0, SEEK_SET) != 0 || mmioDescend(File, &Riff, nullptr, 0) != MMSYSERR_NOERROR ||
      Riff.ckid != FOURCC_RIFF || Riff.fccType != kWave) {
    ErrorText = "not a WAV file (no RIFF WAVE header)";
    return false;
  }
  const uint64_t End = uint64_t(FileSize);
  Wave = TEncodedWave();
  for (uint64_t At = uint64_t(Riff.dwDataOffset) + 4; At + 8 <= End;) {
    MMCKINFO Chunk{};
    if (mmioSeek(File, LONG(At), SEEK_SET) != LONG(At) || mmioDescend(File, &Chunk, nullptr, 0) != MMSYSERR_NOERROR)
      break;
    const uint64_t BodyEnd = uint64_t(Chunk.dwDataOffset) + Chunk.cksize;
    const uint64_t Available = std::min(BodyEnd, End) - Chunk.dwDataOffset;
    if (Chunk.ckid == kFmt && Wave.Format.empty()) {
      std::vector<uint8_t> Body(size_t(std::min<uint64_t>(Available, kMaxFormatRecord)));
      if (Chunk.cksize < 16 || Body.size() < 16 ||
          mmioRead(File, reinterpret_cast<HPSTR>(Body.data()), LONG(Body.size())) != LONG(Body.size())) {
        ErrorText = "the WAV file's format chunk is too short";
        return false;
      }
      // A plain PCM chunk stops before cbSize.
      if (Body.size() < 18) Body.resize(18, 0);
      const size_t Record = 18u + Le16(Body.data() + 16);
      if (Body.size() < Record) {
        ErrorText = "the WAV file's format chunk is shorter than its extra bytes say";
        return false;
      }
      Body.resize(Record);
      Wave.Format = std::move(Body);
    } else if (Chunk.ckid == kFact && Available >= 4) {
      uint8_t Body[4];
      if (mmioRead(File, reinterpret_cast<HPSTR>(Body), 4) == 4) Wave.SampleFrames = Le32(Body);
    } else if (Chunk.ckid == kData) {
      if (Wave.Format.empty()) break;
      // A data chunk claiming more than the file holds (an unfinished recording) yields what is there.
      Wave.Data.resize(size_t(Available));
      for (uint64_t Done = 0; Done < Available;) {
        const LONG Count = LONG(std::min(Available - Done, kMaxTransfer));
        if (mmioRead(File, reinterpret_cast<HPSTR>(Wave.Data.data() + Done), Count) != Count) {
          ErrorText = "cannot read the WAV file's data";
          return false;
        }
        Done += uint64_t(Count);
      }
      ErrorText.clear();
      return true;
    }
    At = BodyEnd + (Chunk.cksize & 1);
  }
  ErrorText = Wave.Format.empty() ? "the WAV file has no format chunk" : "the WAV file has no data chunk";
  return false;
}

}  // namespace Quorvel::Platform
