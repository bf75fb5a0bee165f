// Base of audio filters with one input and one output pin: it turns the
// operations arriving at the pins into calls of a few virtual operations.
//
// Buffers delivered along pins are lent for the duration of the call: a
// sender may reuse its buffer for the next block, so a receiver that keeps
// samples beyond the call copies them.
#pragma once

#include "frame/Sraudioformat.h"
#include "frame/Wbcomponent.h"

namespace Quorvel {

class TSRCommonFilter : public TWBComponent {
 public:
  // The class's published properties (frame/Wbpersistence.h).
  static const TWBClassInfo& ClassInfo();
  const TWBClassInfo& GetClassInfo() const override { return ClassInfo(); }
  explicit TSRCommonFilter(TWBComponent* Owner = nullptr);
  ~TSRCommonFilter() override;

  TSRPWAudioSinkPin& GetInputPin() { return FInputPin; }
  virtual TSRPWAudioSourcePin* GetOutputPin() { return &FOutputPin; }
  // The format of the running stream, as announced by the last start.
  const TSRAudioFormatBasic& GetFormat() const { return FFormat; }
  bool IsStreaming() const { return FStreaming.load(); }  // [any thread]

  // [stream thread, holding the lock] Dispatch of operations from the pins.
  void SinkDispatch(TPWBasicPin* SourcePin, TPWBasicPin* SinkPin, TPWOperationID ID, TPWOperation& Operation,
                    TPWNotifyStates& States) override;
  void SourceDispatch(TPWBasicPin* SourcePin, TPWBasicPin* SinkPin, TPWOperationID ID, TPWOperation& Operation,
                      TPWNotifyStates& States) override;

 protected:
  // A stream with a new format starts. The base records the format; when
  // the component may start it announces the output format downstream.
  virtual void AudioStreamStart(TPWStartWaveOperation& Operation);
  // The stream ended; the base sends the stop downstream.
  virtual void StreamStop();
  // One data buffer (not audio) from input to output. The base passes it on unchanged.
  virtual void IntBufferOperation(IWBDataBuffer& InBuffer, IWBDataBufferRef& OutBuffer);
  // Any other operation; the base forwards it downstream unchanged.
  virtual void IntSingleOperation(TPWOperation& Operation);
  // One audio buffer. OutBuffer starts as the input itself (pass-through);
  // clear SendOutput to send nothing. Pumped tells that a pump request
  // caused the buffer.
  virtual void InternalOperation(ISRAudioBuffer& InBuffer, ISRAudioBufferRef& OutBuffer, bool Pumped,
                                 bool& SendOutput);
  // Pull mode: the base forwards each request upstream through the input pin.
  virtual void MasterPump(TPWOperation& Operation);
  virtual void PumpRequest(TPWOperation& Operation);
  virtual void StartPump(TPWOperation& Operation);
  // Whether a stream may start now; the base says yes.
  virtual bool CanStart() { return true; }
  // Whether anything consumes the output.
  virtual bool NeedsOutput() { return FOutputPin.IsConnected(); }
  // The format announced downstream; the base announces the input format.
  virtual TSRWaveFormatExtensible GetOutputFormat() { return FFormat.GetWaveFormat(); }

  TSRAudioFormatBasic FFormat;

 private:
  TSRPWAudioSinkPin FInputPin;
  TSRPWAudioSourcePin FOutputPin;
  std::atomic<bool> FStreaming{false};
  std::atomic<bool> FPumped{false};
};

}  // namespace Quorvel
