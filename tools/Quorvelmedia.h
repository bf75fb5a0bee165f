// What the media commands share (dmo, acm, encode, decode, log): a WAV file
// streamed out of one pin with all its channels, a sink that writes one pin's
// stream to a WAV file, and the names of the codec formats. Everything runs
// on the program's main thread.
#pragma once

#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "frame/Wbcomponent.h"
#include "platform/Audiofile.h"

namespace Quorvel::Cli {

// Streams a WAV file out of one pin, all channels interleaved in each buffer:
// start-wave, buffers of BlockSize frames, stop. Integer PCM goes as it is
// stored; float files go as 32-bit integers at full scale.
class TWaveStreamSource : public TWBComponent {
 public:
  TWaveStreamSource();
  ~TWaveStreamSource() override;
  TSRPWAudioSourcePin& GetOutputPin() { return FOutputPin; }
  // Prints nothing; answers the reason when the file cannot be read.
  std::string Open(const std::string& FileName);
  const Platform::TAudioFileInfo& GetInfo() const { return FInfo; }
  // Started runs after the start-wave went out and may answer false to end
  // the stream there. Progress (frames sent, frames in all) runs after each
  // buffer. Answers the frames sent; a read error leaves its reason in Error.
  uint64_t Run(size_t BlockSize, const std::function<bool()>& Started,
               const std::function<void(uint64_t, uint64_t)>& Progress, std::string& Error);

 private:
  TSRPWAudioSourcePin FOutputPin;
  std::unique_ptr<Platform::TAudioFileReader> FReader;
  Platform::TAudioFileInfo FInfo;
};

// Writes the PCM stream reaching its pin to a WAV file, at most Limit frames
// of it, and keeps the largest absolute sample value.
class TWaveSink : public TWBComponent {
 public:
  explicit TWaveSink(std::string FileName, uint64_t Limit = std::numeric_limits<uint64_t>::max());
  ~TWaveSink() override;
  TSRPWAudioSinkPin& GetInputPin() { return FInputPin; }
  // Finishes the file; the first error of the stream, or "".
  std::string Close();
  const Platform::TAudioFileInfo& GetInfo() const { return FInfo; }
  uint64_t GetFrames() const { return FFrames; }
  int32_t GetPeak() const { return FPeak; }
  // Peak relative to full scale, in dB.
  double GetPeakDecibels() const;

  void SinkDispatch(TPWBasicPin* SourcePin, TPWBasicPin* SinkPin, TPWOperationID ID, TPWOperation& Operation,
                    TPWNotifyStates& States) override;

 private:
  TSRPWAudioSinkPin FInputPin;
  std::string FFileName;
  uint64_t FLimit;
  std::unique_ptr<Platform::TAudioFileWriter> FWriter;
  Platform::TAudioFileInfo FInfo;
  uint64_t FFrames = 0;
  int32_t FPeak = 0;
  std::string FError;
};

// The codecs' format tags by short, stable names.
struct TCodecName {
  const char* Name;  // "ima-adpcm"
  uint16_t Tag;
};
const std::vector<TCodecName>& CodecNames();
// "ima-adpcm", or "0x0055" for a tag without a short name.
std::string CodecName(uint16_t Tag);

// The format record Name stands for, for a stream of Rate and Channels: a
// short name takes the first format of its tag at that rate and channel
// count (Rate 0: any); an exact name is a format as `quorvel acm list`
// prints it. Answers "" and fills Format, or the reason. Where there is no
// ACM every name is refused with the reason.
std::string FindCodecFormat(const std::string& Name, uint32_t Rate, uint32_t Channels, std::vector<uint8_t>& Format);
// "44100 Hz, 2 channels, 16-bit PCM"
std::string PcmText(const Platform::TAudioFileInfo& Info);
// "8000 Hz, 1 channel, 4 bits" for a format record's header.
std::string DescribeFormat(const std::vector<uint8_t>& Format);

}  // namespace Quorvel::Cli
