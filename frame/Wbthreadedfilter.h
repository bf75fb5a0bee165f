// A filter that processes on a thread of its own. Operations arriving at
// its input are queued (buffers copied into pooled buffers) and handled in
// order on the processing thread, which also sends the results on. A full
// queue makes the sender wait for room, so nothing is dropped.
#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <vector>

#include "frame/Sraudioformat.h"
#include "frame/Wbcomponent.h"

namespace Quorvel {

using IWBFilterThread = Threading::IProcessingThread;

class TWBBasicTypedThreadedFilter : public TWBComponent {
 public:
  explicit TWBBasicTypedThreadedFilter(TWBComponent* Owner = nullptr, size_t QueueCapacity = 64);
  ~TWBBasicTypedThreadedFilter() override;

  TSRPWAudioSinkPin& GetInputPin() { return *FInputPin; }
  TSRPWAudioSourcePin& GetOutputPin() { return FOutputPin; }
  bool IsEnabled() const { return GetEnabled(); }
  const TSRAudioFormatBasic& GetFormat() const { return FFormat; }
  // [not the processing thread] Waits until every queued operation is handled.
  bool WaitUntilIdle(int64_t TimeoutMs);

  // [stream thread] Queues the operation; called without the component lock.
  void SinkDispatch(TPWBasicPin* SourcePin, TPWBasicPin* SinkPin, TPWOperationID ID, TPWOperation& Operation,
                    TPWNotifyStates& States) override;
  void SourceDispatch(TPWBasicPin* SourcePin, TPWBasicPin* SinkPin, TPWOperationID ID, TPWOperation& Operation,
                      TPWNotifyStates& States) override;

 protected:
  // Makes the processing thread; called on first use.
  virtual void CreateProcessingThread();
  // Asks upstream for more data.
  virtual void FilterPump();
  // [processing thread, holding the lock] One buffer: processes it (unless
  // disabled, which passes it through) and sends the result on.
  virtual void BufferOperation(ISRAudioBuffer& InBuffer);
  // [processing thread, holding the lock] The processing itself; OutBuffer
  // starts as the input (pass-through); leave it empty to send nothing.
  virtual void IntSingleBufferOperation(ISRAudioBuffer& InBuffer, ISRAudioBufferRef& OutBuffer);
  // [processing thread, holding the lock] A stream starts / stops.
  virtual void StreamStart(const TSRWaveFormatExtensible& Format, bool RealTime);
  virtual void StreamStop();
  // [processing thread, holding the lock] Sends an operation out of the output pin.
  virtual void OutputPinsNotify(TPWOperation& Operation);
  void EnabledChanged() override {}

  TSRAudioFormatBasic FFormat;

 private:
  struct TItem {
    TPWOperationID ID = 0;
    ISRAudioBufferRef Buffer;
    TSRWaveFormatExtensible Format{};
    double SampleRate = 0.0;
    bool RealTime = false;
  };
  class TInputPin;
  void Enqueue(TItem&& Item);
  void Process(IWBFilterThread& Thread);

  std::unique_ptr<TSRPWAudioSinkPin> FInputPin;
  TSRPWAudioSourcePin FOutputPin;
  std::mutex FQueueMutex;
  std::condition_variable FQueueCond;
  std::vector<TItem> FQueue;  // ring of fixed capacity
  size_t FHead = 0;
  size_t FCount = 0;
  bool FBusy = false;
  bool FClosing = false;
  std::unique_ptr<Threading::TProcessingThread> FThread;
};

}  // namespace Quorvel
