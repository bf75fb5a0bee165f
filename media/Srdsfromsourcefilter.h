// The DirectShow source: audio out of any DirectShow filter the user picks
// (a capture device or a source filter). The component builds a graph of
// that filter and the system's sample grabber, and sends what the grabber
// receives out of its output pin: a start operation with the format first,
// then one buffer per grabbed sample, and a stop when the graph is torn
// down. Windows only; the header compiles anywhere.
//
// Starting (TryStart / IntStart, on the owning thread):
//   1. the graph is built (BuildGraph: every step reports its failure);
//   2. the graph runs; samples arrive on DirectShow's streaming thread.
// Stopping (IntStop, on the owning thread; other threads post a request to
// the component's window, message 0x8004):
//   1. the component stops taking samples, the graph stops (without the
//      component lock, since the streaming thread may be waiting for it);
//   2. the stop goes downstream, the graph and its interfaces are released.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>

#include "dshow/Cbsamplegrabber.h"
#include "dshow/Dsgraph.h"
#include "frame/Wbcomponent.h"

namespace Quorvel {

// Where the timing of the output comes from: the source's own (buffers leave
// as they are grabbed) or an external clock pin (each clock operation sends
// what was grabbed since).
enum class TSRDSClockSource { csInternal, csExternal };
// Push: buffers leave as they are grabbed (or clocked); pumped: a pump
// request from downstream takes one queued buffer.
enum class TSRDSPumpType { ptPush, ptPumped };

class TSRDSFromSourceFilter : public TWBComponent {
 public:
  // The message that runs IntStop on the window's thread.
  static constexpr uint32_t StopMessage = 0x8004;  // WM_APP + 4

  explicit TSRDSFromSourceFilter(TWBComponent* Owner = nullptr);
  ~TSRDSFromSourceFilter() override;

  TSRPWAudioSourcePin& GetOutputPin() { return FOutputPin; }
  // The external clock: any operation arriving here clocks the output.
  TWBPWSinkPin& GetClockPin() { return FClockPin; }
  // The filter the audio comes from (audio capture sources by default).
  TDSGraphFilter& GetSourceFilter() { return FSourceFilter; }
  TDSGraph& GetGraph() { return FGraph; }

  // [main thread] The format asked of the source filter.
  const TSRAudioFormatBasic& GetAudioFormat() const { return FAudioFormat; }
  void SetAudioFormat(const TSRAudioFormatBasic& Value);
  void SetAudioFormat(const TSRWaveFormatExtensible& Value);
  // [main thread] Samples per buffer asked of the source's allocator.
  uint32_t GetBufferSize() const;
  void SetBufferSize(uint32_t Samples);
  // [any thread] Applies the buffer size through the source's buffer
  // negotiation, when it has one.
  void SetBufferSize();
  TSRDSPumpType GetPumpType() const;
  void SetPumpType(TSRDSPumpType Value);       // [main thread]
  int32_t GetPumpPriority() const;
  void SetPumpPriority(int32_t Value);         // [main thread] kept for the pump thread's owner
  TSRDSClockSource GetClockSource() const;
  void SetClockSource(TSRDSClockSource Value); // [main thread] takes effect at the next build

  // [main thread] Open builds the graph; Close stops and releases it.
  bool Open();
  void Close();
  // [main thread] Start enables the component (which starts it); Stop disables it.
  void Start();
  void Stop();
  // [main thread] Builds and runs; false when the graph could not be built.
  bool TryStart();
  bool IntStart();
  void IntStop();
  // [any thread] Asks the owning thread to stop (posts StopMessage).
  void RequestStop();

  // [main thread] Answers whether the graph stands.
  bool BuildGraph();
  void DestroyGraph();
  void DisconnectInterfaces();

  // [stream thread] Announces the format of the grabbed samples.
  void SendAudioFormat();
  // [clock thread] An external clock tick: sends the buffers grabbed since.
  void Clock();
  void TimerClock(bool Value);
  bool ClockIsExternal() const;
  bool UsesInternalClock() const;
  // [stream thread] Sends one queued buffer (pumped mode).
  void RequestPump();

  bool IsGraphBuilt() const { return FGraphBuilt; }
  bool IsRunning() const { return FRunning; }
  bool HasBufferNegotiation() const;  // [main thread]
  uint64_t GetBuffersGrabbed() const { return FBuffersGrabbed; }
  uint64_t GetBuffersSent() const { return FBuffersSent; }
  uint64_t GetFramesSent() const { return FFramesSent; }

  void SourceDispatch(TPWBasicPin* SourcePin, TPWBasicPin* SinkPin, TPWOperationID ID, TPWOperation& Operation,
                      TPWNotifyStates& States) override;
  void SinkDispatch(TPWBasicPin* SourcePin, TPWBasicPin* SinkPin, TPWOperationID ID, TPWOperation& Operation,
                    TPWNotifyStates& States) override;
  void DispatchOperation(TPWOperationID ID, TPWOperation& Operation);
  void ClockDispatchOperation(TPWOperationID ID, TPWOperation& Operation);

  struct TImpl;  // window and COM state (implementation only)

 protected:
  void EnabledChanged() override;
  // The audio format changed: a running graph is built again with it.
  void OnFormatChange();

 private:
  void Grabbed(const uint8_t* Data, size_t Bytes, double Time);
  void Send(ISRAudioBuffer& Buffer);
  void SendQueued(size_t Count);
  TSRPWAudioSourcePin FOutputPin;
  TWBPWSinkPin FClockPin;
  TDSGraphFilter FSourceFilter;
  TDSGraph FGraph;
  TCBBasicSampleGrabber FGrabber;
  TSRAudioFormatBasic FAudioFormat;
  std::unique_ptr<TImpl> FImpl;
  uint32_t FBufferSize = 1024;
  TSRDSPumpType FPumpType = TSRDSPumpType::ptPush;
  int32_t FPumpPriority = 0;
  TSRDSClockSource FClockSource = TSRDSClockSource::csInternal;
  // The stream, guarded by the component lock.
  TSRWaveFormatExtensible FStreamFormat{};
  bool FFormatSent = false;
  uint64_t FSequence = 0;
  // Grabbed buffers waiting for a clock tick or a pump request: a fixed
  // ring, the oldest dropped when full. Its own short lock.
  std::mutex FQueueLock;
  std::array<ISRAudioBufferRef, 64> FQueue;
  size_t FQueueHead = 0, FQueueCount = 0;
  std::atomic<bool> FGraphBuilt{false};
  std::atomic<bool> FRunning{false};
  std::atomic<uint64_t> FBuffersGrabbed{0};
  std::atomic<uint64_t> FBuffersSent{0};
  std::atomic<uint64_t> FFramesSent{0};
};

}  // namespace Quorvel
