// Audio files as components: a source that streams a file's channels out of
// one mono pin each, and a sink that interleaves one mono pin per channel
// into a file. Files are integer PCM WAV (8, 16, 24 or 32 bits) or 32-bit
// float WAV; float samples travel the chain as 32-bit integers at full scale.
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "frame/Srbasicmultiinput.h"
#include "platform/Audiofile.h"

namespace Quorvel {

class TSRAudioFileSource : public TWBComponent {
 public:
  // The class's published properties (frame/Wbpersistence.h).
  static const TWBClassInfo& ClassInfo();
  const TWBClassInfo& GetClassInfo() const override { return ClassInfo(); }
  explicit TSRAudioFileSource(TWBComponent* Owner = nullptr);
  ~TSRAudioFileSource() override;

  void SetFileName(const std::string& Value);  // [main thread] closes an open file
  std::string GetFileName() const;
  void SetBlockSize(size_t Value);             // [main thread] frames per buffer (default 1024)
  size_t GetBlockSize() const;
  // [main thread] Frames of silence sent after the file's end, before the
  // stop (default 0): room for what a filter downstream still has to say.
  void SetTrailingSilence(uint64_t Frames);
  uint64_t GetTrailingSilence() const;

  // [main thread] Opens the file and makes one output pin per channel.
  // Failure is reported as "Can't open file <name>: <reason>" (code -1).
  bool Open();
  void Close();
  bool IsOpen() const;
  Platform::TAudioFileInfo GetInfo() const;   // zeros when closed
  TPWPinList& GetOutputPins() { return FOutputPins; }
  TSRPWAudioSourcePin* GetOutputPin(size_t Index);

  // [main thread] Streams the whole file from its start: start-wave, buffers
  // of BlockSize frames, the trailing silence, stop. Progress (frames sent,
  // frames in the file plus the silence) runs after each buffer and may answer
  // false to end early. Answers the frames sent, silence included. A failed
  // read is reported as "Can't read file <name>" (-2).
  uint64_t Run(const std::function<bool(uint64_t Done, uint64_t Total)>& Progress = nullptr);

 protected:
  void Loaded() override;

 private:
  std::string FFileName;
  size_t FBlockSize = 1024;
  uint64_t FTrailingSilence = 0;
  std::unique_ptr<Platform::TAudioFileReader> FReader;
  TPWPinList FOutputPins;
};

class TSRAudioFileSink : public TSRBasicMultiInput {
 public:
  // The class's published properties (frame/Wbpersistence.h).
  static const TWBClassInfo& ClassInfo();
  const TWBClassInfo& GetClassInfo() const override { return ClassInfo(); }
  // One input pin per channel of the file.
  explicit TSRAudioFileSink(TWBComponent* Owner = nullptr, size_t Channels = 2);
  ~TSRAudioFileSink() override;

  void SetFileName(const std::string& Value);  // [main thread] takes effect at the next stream
  std::string GetFileName() const;
  // [main thread] Write 32-bit float samples (from a 32-bit stream at full
  // scale) instead of integers; takes effect at the next stream.
  void SetFloat(bool Value);
  bool GetFloat() const;
  // [main thread] Frames dropped at the start of each stream before anything
  // is written (default 0): a filter's delay taken off its output.
  void SetSkipFrames(uint64_t Frames);
  uint64_t GetSkipFrames() const;
  uint64_t GetFramesWritten() const;           // [any thread]
  // [main thread] Largest absolute sample value seen on each channel.
  std::vector<int32_t> GetPeaks() const;

 protected:
  // Errors: "Can't create file <name>: <reason>" (-1), "Can't write file <name>" (-2).
  void StreamStarted() override;
  void CalculateSendOutput() override;
  void IntStop() override;

 private:
  std::string FFileName;
  std::unique_ptr<Platform::TAudioFileWriter> FWriter;
  ISRAudioBufferRef FFrames;  // one interleaved block
  std::vector<int32_t> FPeaks;
  std::vector<float> FFloats;  // one interleaved block as floats
  bool FFloat = false;
  uint64_t FSkipFrames = 0;
  uint64_t FSkipLeft = 0;
  std::atomic<uint64_t> FWritten{0};
};

}  // namespace Quorvel
