// Base of the file loggers: a sink at the end of a chain with one audio input
// pin, a target file name and the enabled state. It turns the stream's
// operations into three calls that a logger overrides: BeginAudio when a
// stream starts, RenderAudio for each buffer and EndAudio when it stops.
#pragma once

#include <string>

#include "frame/Sraudioformat.h"
#include "frame/Wbbuffers.h"
#include "frame/Wbcomponent.h"

namespace Quorvel {

class TSRCommonLogger : public TWBComponent {
 public:
  // The class's published properties (frame/Wbpersistence.h): Enabled and FileName.
  static const TWBClassInfo& ClassInfo();
  const TWBClassInfo& GetClassInfo() const override { return ClassInfo(); }
  explicit TSRCommonLogger(TWBComponent* Owner = nullptr);
  ~TSRCommonLogger() override;

  TSRPWAudioSinkPin& GetInputPin() { return FInputPin; }
  void SetFileName(const std::string& Value);  // [main thread] takes effect at the next stream
  std::string GetFileName() const;             // [any thread]
  // [any thread] Whether a stream would be logged now: enabled, with a file name.
  virtual bool HasTarget() const;
  bool IsLogging() const { return FLogging.load(); }  // [any thread] between BeginAudio and EndAudio

  // [stream thread, holding the lock] Start-wave, buffers and stop from the input pin.
  void SinkDispatch(TPWBasicPin* SourcePin, TPWBasicPin* SinkPin, TPWOperationID ID, TPWOperation& Operation,
                    TPWNotifyStates& States) override;

 protected:
  // [stream thread] A stream starts with this format.
  virtual void BeginAudio(const TSRWaveFormatExtensible* Format) {}
  // [stream thread] One buffer of the running stream; answers whether it was taken.
  virtual bool RenderAudio(ISRAudioBuffer& Buffer) { return true; }
  // [stream thread] The stream stopped, or a new one starts over it.
  virtual void EndAudio() {}
  // Ends a running stream: EndAudio, once. A concrete logger's destructor
  // calls it, so that a logger destroyed mid-stream closes its file.
  void CloseLog();

 private:
  TSRPWAudioSinkPin FInputPin;
  std::string FFileName;
  std::atomic<bool> FLogging{false};
};

}  // namespace Quorvel
