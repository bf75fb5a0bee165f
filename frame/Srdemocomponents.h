// Small ready-made components: a tone generator (source), a gain filter and
// a wave-file writer (sink). They make a chain runnable without any device
// and serve as examples of building on the frame.
#pragma once

#include <memory>
#include <string>

#include "frame/Srcommonfilter.h"
#include "frame/Wbcomponent.h"

namespace Quorvel {

namespace Platform {
class TAudioFileWriter;
}

// A sine tone on every channel. Push mode: Start, Generate blocks, Stop.
// Pull mode: each pump request from downstream produces one block.
class TSRToneGenerator : public TWBComponent {
 public:
  // The class's published properties (frame/Wbpersistence.h).
  static const TWBClassInfo& ClassInfo();
  const TWBClassInfo& GetClassInfo() const override { return ClassInfo(); }
  explicit TSRToneGenerator(TWBComponent* Owner = nullptr);
  ~TSRToneGenerator() override;

  TSRPWAudioSourcePin& GetOutputPin() { return FOutputPin; }
  // [main thread] Properties; they take effect at the next Start.
  void SetFrequency(double Value);
  double GetFrequency() const;
  void SetAmplitude(double Value);   // 0..1 of full scale
  double GetAmplitude() const;
  void SetSampleRate(double Value);
  double GetSampleRate() const;
  void SetChannels(unsigned Value);
  unsigned GetChannels() const;
  void SetBits(unsigned Value);      // 8, 16, 24 or 32
  unsigned GetBits() const;
  void SetBlockSize(size_t Value);
  size_t GetBlockSize() const;

  // [stream thread] Announces the format. Errors: "Invalid tone format".
  void Start();
  // [stream thread] Sends Count blocks; answers the frames sent.
  size_t Generate(size_t Count);
  void Stop();  // [stream thread]
  uint64_t GetFramesSent() const;

  void SourceDispatch(TPWBasicPin* SourcePin, TPWBasicPin* SinkPin, TPWOperationID ID, TPWOperation& Operation,
                      TPWNotifyStates& States) override;

 private:
  void SendBlock();
  TSRPWAudioSourcePin FOutputPin;
  double FFrequency = 440.0;
  double FAmplitude = 0.5;
  double FSampleRate = 44100.0;
  unsigned FChannels = 2;
  unsigned FBits = 16;
  size_t FBlockSize = 256;
  double FPhase = 0.0;
  bool FRunning = false;
  uint64_t FFramesSent = 0;
};

// Multiplies every sample by Gain, saturating.
class TSRGainFilter : public TSRCommonFilter {
 public:
  // The class's published properties (frame/Wbpersistence.h).
  static const TWBClassInfo& ClassInfo();
  const TWBClassInfo& GetClassInfo() const override { return ClassInfo(); }
  explicit TSRGainFilter(TWBComponent* Owner = nullptr) : TSRCommonFilter(Owner) {}
  ~TSRGainFilter() override { BeginDestroy(); }
  void SetGain(double Value);   // [any thread]
  double GetGain() const;

 protected:
  void InternalOperation(ISRAudioBuffer& InBuffer, ISRAudioBufferRef& OutBuffer, bool Pumped,
                         bool& SendOutput) override;

 private:
  std::atomic<double> FGain{1.0};
};

// Writes the stream that arrives to a wave file; counts what passed.
class TSRWaveFileWriter : public TWBComponent {
 public:
  // The class's published properties (frame/Wbpersistence.h).
  static const TWBClassInfo& ClassInfo();
  const TWBClassInfo& GetClassInfo() const override { return ClassInfo(); }
  explicit TSRWaveFileWriter(TWBComponent* Owner = nullptr);
  ~TSRWaveFileWriter() override;

  TSRPWAudioSinkPin& GetInputPin() { return FInputPin; }
  void SetFileName(const std::string& Value);  // [main thread]
  std::string GetFileName() const;
  uint64_t GetFramesWritten() const;   // [any thread]
  uint64_t GetBuffersWritten() const;
  int32_t GetPeak() const;             // largest absolute sample value seen
  bool IsWriting() const;

  // Errors: "Can't create file <name>: <reason>" (code -1), "Can't write file" (-2).
  void SinkDispatch(TPWBasicPin* SourcePin, TPWBasicPin* SinkPin, TPWOperationID ID, TPWOperation& Operation,
                    TPWNotifyStates& States) override;

 private:
  void CloseFile();
  TSRPWAudioSinkPin FInputPin;
  std::string FFileName;
  std::unique_ptr<Platform::TAudioFileWriter> FWriter;
  unsigned FChannels = 0;
  unsigned FBits = 0;
  std::atomic<uint64_t> FFrames{0};
  std::atomic<uint64_t> FBuffers{0};
  std::atomic<int32_t> FPeak{0};
};

}  // namespace Quorvel
