// Reading and writing PCM audio files (WAV) through the system's own file
// library: libsndfile natively, the multimedia RIFF (mmio) functions on Windows.
// Natively every format libsndfile decodes is read (compressed WAV such as
// ADPCM, GSM and u-law included); on Windows integer PCM of any valid width in
// an 8-, 16-, 24- or 32-bit container and 32- or 64-bit float WAV files.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace Quorvel::Platform {

struct TAudioFileInfo {
  uint32_t SampleRate = 0;
  uint32_t Channels = 0;    // at most 65535 in a WAV file
  uint16_t Bits = 0;        // 8, 16, 24 or 32: the width of the samples delivered or taken
  // The samples are 32-bit IEEE floats (Bits 32), full scale +-1.0, as
  // delivered and taken; a 64-bit float file is delivered as 32-bit floats.
  bool Float = false;
  uint64_t Frames = 0;      // frames in the file (reader only)
};

class TAudioFileReader {
 public:
  virtual ~TAudioFileReader() = default;
  virtual const TAudioFileInfo& Info() const = 0;
  // Reads up to Frames frames of interleaved little-endian samples as Info
  // describes them (integer PCM, 24-bit packed in 3 bytes, or 32-bit floats)
  // into Data; answers the number of frames read, 0 at the end, -1 on a read
  // error.
  virtual int64_t Read(void* Data, uint64_t Frames) = 0;
};

class TAudioFileWriter {
 public:
  virtual ~TAudioFileWriter() = default;
  virtual const TAudioFileInfo& Info() const = 0;
  // Writes Frames frames laid out as the reader delivers them; false on error.
  virtual bool Write(const void* Data, uint64_t Frames) = 0;
  // Finishes the file (header sizes); also done by the destructor.
  virtual bool Close() = 0;
};

// Whether a writer can be made for Info (bit depth, channels, rate); the
// reason in ErrorText when not.
bool CheckWriterInfo(const TAudioFileInfo& Info, std::string& ErrorText);

// Answer nullptr on failure with the reason in ErrorText.
std::unique_ptr<TAudioFileReader> OpenAudioFileForReading(const std::string& FileName, std::string& ErrorText);
std::unique_ptr<TAudioFileWriter> CreateAudioFile(const std::string& FileName, const TAudioFileInfo& Info,
                                                  std::string& ErrorText);

// A WAV file of any encoding as its format record and its data bytes, for
// codecs that make and take the bytes themselves: the format chunk holds the
// codec's WAVEFORMATEX with its cbSize extra bytes, a "fact" chunk the sample
// frames the data decodes to, then the data chunk. Windows only (mmio);
// elsewhere both answer false.
struct TEncodedWave {
  std::vector<uint8_t> Format;  // at least the 18-byte header and its cbSize extra bytes
  uint32_t SampleFrames = 0;    // 0 when a file read has no fact chunk
  std::vector<uint8_t> Data;
};
bool WriteEncodedWave(const std::string& FileName, const TEncodedWave& Wave, std::string& ErrorText);
// Reads the whole file; a PCM format chunk of 16 bytes is answered with cbSize 0.
bool ReadEncodedWave(const std::string& FileName, TEncodedWave& Wave, std::string& ErrorText);

}  // namespace Quorvel::Platform
