// Base of components that combine several input streams into blocks of
// output (the plug-in hosts among them). Each input pin queues the samples
// that arrive on it; whenever every active input holds a block's worth, the
// component produces one block (CalculateSendOutput). Inputs that are not
// connected read as silence, so do inputs whose stream has stopped.
#pragma once

#include <vector>

#include "frame/Sraudioformat.h"
#include "frame/Wbcomponent.h"

namespace Quorvel {

// An audio sink pin that keeps a copy of what arrives, sample-exact, in a
// ring of its own. Its memory grows only when more is held than ever before.
class TSRPWQueuedAudioSinkPin : public TSRPWAudioSinkPin {
 public:
  TSRPWQueuedAudioSinkPin(IPWPinOwner& Owner, std::string Name) : TSRPWAudioSinkPin(Owner, std::move(Name)) {}

  // [holding the owner's lock] Loads exactly Buffer's length: queued frames
  // first (converted to the buffer's width and channel count), silence for
  // the rest. Answers the frames taken from the queue.
  size_t StretchLoadBuffer(ISRAudioBuffer& Buffer);
  size_t StretchLoadBuffer(const ISRAudioBufferRef& Buffer) { return Buffer ? StretchLoadBuffer(*Buffer) : 0; }
  // [holding the owner's lock] Appends a copy of Buffer's frames.
  void Push(const ISRAudioBuffer& Buffer);
  // [holding the owner's lock] Drops up to Frames queued frames; answers how many.
  size_t Skip(size_t Frames);
  size_t GetQueuedSamples() const { return FCount; }  // [holding the owner's lock]
  void Clear();                                        // [holding the owner's lock]
  // [holding the owner's lock] Makes room for Frames frames of the given shape.
  void Prepare(unsigned Channels, unsigned Bits, size_t Frames);

  // Stream state of this input, kept by the owner.
  bool Started = false;
  bool Stopped = false;
  // The multi-input component whose input list holds this pin, and the pin's
  // place in it; set when the list creates the pin.
  const void* InputOf = nullptr;
  size_t InputIndex = 0;

 private:
  std::vector<uint8_t> FRing;
  size_t FHead = 0;   // byte offset of the oldest frame
  size_t FCount = 0;  // frames held
  unsigned FChannels = 0;
  unsigned FBits = 0;
};

class TSRBasicMultiInput : public TWBComponent {
 public:
  // The class's published properties (frame/Wbpersistence.h).
  static const TWBClassInfo& ClassInfo();
  const TWBClassInfo& GetClassInfo() const override { return ClassInfo(); }
  TSRBasicMultiInput(TWBComponent* Owner, size_t InputCount, size_t OutputCount);
  ~TSRBasicMultiInput() override;

  TPWPinList& GetInputPins() { return FInputPins; }
  TPWPinList& GetOutputPins() { return FOutputPins; }
  TSRPWQueuedAudioSinkPin* GetInputPin(size_t Index);
  TSRPWAudioSourcePin* GetOutputPin(size_t Index);
  const TSRAudioFormatBasic& GetFormat() const { return FFormat; }

  // [main thread] Samples per output block (default 256, at least 1).
  void SetBufferSize(size_t Value);
  size_t GetBufferSize() const;
  // [main thread] When set (the default) the outputs stop once every input stopped.
  void SetStopOnNoStreams(bool Value) { FStopOnNoStreams = Value; }
  bool GetStopOnNoStreams() const { return FStopOnNoStreams; }
  bool IsStreaming() const { return FStreaming.load(); }  // [any thread]
  // [main thread] A fixed block rate for components that pace themselves; 0 (the default) follows the stream.
  void SetPresetRate(double Value) { FPresetRate = Value > 0.0 ? Value : 0.0; }
  double GetPresetRate() const { return FPresetRate.load(); }

  void SinkDispatch(TPWBasicPin* SourcePin, TPWBasicPin* SinkPin, TPWOperationID ID, TPWOperation& Operation,
                    TPWNotifyStates& States) override;
  void SourceDispatch(TPWBasicPin* SourcePin, TPWBasicPin* SinkPin, TPWOperationID ID, TPWOperation& Operation,
                      TPWNotifyStates& States) override;

  // [any thread] Produces every block that can be produced now.
  void MainTrySend();

 protected:
  // The stream has started (format known); allocate what every block needs.
  // The base makes the working buffer (one channel of the stream's width).
  virtual void StreamStarted();
  // Produce one block of GetCurrentBlockSize() samples. The base passes input
  // i straight to output i through the working buffer.
  virtual void CalculateSendOutput();
  // The stream stopped; release what StreamStarted allocated.
  virtual void IntStop();
  // Samples per output block.
  virtual size_t GetOutputBufferSize() { return GetBufferSize(); }
  // The format announced on output pin Index; the base sends the working buffer's shape.
  virtual TSRWaveFormatExtensible GetOutputFormat(size_t Index);
  // The rate blocks are produced at, in samples per second: the preset rate
  // when one is set (UsePresetCalculateRate), otherwise the stream's.
  virtual double CalculateRate() { return UsePresetCalculateRate() ? FPresetRate.load() : FFormat.GetSampleRate(); }
  virtual bool UsePresetCalculateRate() { return FPresetRate.load() > 0.0; }
  // Whether the outputs should stop now: every started input has stopped.
  virtual bool GetShouldStop();
  // Pull mode: asks every connected input that lacks a block for more.
  virtual void MasterPumpRequest();
  virtual void PassTroughMasterPump(TPWOperation& Operation);
  // Produces blocks while every active input holds one.
  void TrySend();
  // Samples in the block being produced (shorter for the final block).
  size_t GetCurrentBlockSize() const { return FCurrentBlockSize; }
  // [holding the lock] Pin access without taking the lock again.
  TSRPWQueuedAudioSinkPin* InputAt(size_t Index) const;
  TSRPWAudioSourcePin* OutputAt(size_t Index) const;
  virtual TPWBasicPin* CreateInputPin(size_t Index);
  virtual TPWBasicPin* CreateOutputPin(size_t Index);

  TSRAudioFormatBasic FFormat;
  ISRAudioBufferRef FWorkBuffer;

 private:
  bool HasBlock(size_t Samples);
  void RestartScan(size_t Samples);
  void ProduceBlock(size_t Samples);
  void FinishStream();
  TPWPinList FInputPins;
  TPWPinList FOutputPins;
  size_t FBufferSize = 256;
  size_t FCurrentBlockSize = 0;
  bool FStopOnNoStreams = true;
  std::atomic<double> FPresetRate{0.0};
  std::atomic<bool> FStreaming{false};
  bool FSending = false;
  // HasBlock resumes where it last stopped: until the next block is produced,
  // inputs before FScanFrom already hold a block or owe nothing, because
  // queues only grow and inputs only stop between blocks. This keeps the cost
  // of a block linear in the number of inputs however the samples arrive.
  size_t FScanFrom = 0;
  size_t FScanBlock = 0;
  bool FScanAny = false;
  std::vector<size_t> FQueuedBefore;
  std::vector<TSRPWQueuedAudioSinkPin*> FPumpPins;
};

}  // namespace Quorvel
