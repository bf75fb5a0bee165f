// The DirectShow sink: audio arriving at its input pin is fed through our
// push source filter into a filter graph, which renders it into the filter
// the user picked (an audio renderer, or a writer such as a multiplexer
// feeding a file writer). Windows only; the header compiles anywhere.
//
// Life of a stream:
//   1. a start operation sets the audio format and begins audio
//      (BeginAudio): timing state reset, graph built and run;
//   2. each buffer is time-stamped (IntRenderAudio) and delivered;
//   3. a stop operation ends it (EndAVI): end of stream, graph destroyed.
// The next start begins again at 1.
#pragma once

#include <cstdint>
#include <memory>

#include "dshow/Dsgraph.h"
#include "frame/Wbcomponent.h"

namespace Quorvel {

class TDSAudioSourceFilter;

class TSRDSToSinkFilter : public TWBComponent {
 public:
  explicit TSRDSToSinkFilter(TWBComponent* Owner = nullptr);
  ~TSRDSToSinkFilter() override;

  TSRPWAudioSinkPin& GetInputPin() { return FInputPin; }
  // The filter the audio is rendered into (audio renderers by default).
  TDSGraphFilter& GetSinkFilter() { return FSinkFilter; }

  // [stream thread] The operations arriving at the input pin.
  void SinkDispatch(TPWBasicPin* SourcePin, TPWBasicPin* SinkPin, TPWOperationID ID, TPWOperation& Operation,
                    TPWNotifyStates& States) override;
  void AudioSinkDispatch(TPWOperationID ID, TPWOperation& Operation);

  // [stream thread] Resets the timing state and builds the graph.
  void BeginAudio();
  // [stream thread] Time-stamps Buffer and, when Send, delivers it.
  void RenderAudio(bool Send, ISRAudioBuffer& Buffer);
  // [main thread, stream stopped] The format of the incoming stream.
  void SetAudioFormat(const TSRWaveFormatExtensible& Format);
  void ClearAudioFormat();
  // Builds the graph when it is missing; answers the helper.
  TDSGraph& GetGraph();
  void BuildGraph();
  void DestroyGraph();
  void DisconnectInterfaces();
  // Ends the stream when audio was begun.
  void TryEndAVI();
  void EndAVI();

  // [any thread] Where the stream stands.
  bool IsGraphBuilt() const;
  bool IsAudioBegun() const;
  bool IsStreamEnded() const;
  int64_t GetNextStartTime() const;  // 100-nanosecond units
  // The result of the last delivery into the graph (0 when none failed).
  int32_t GetLastDeliveryResult() const;

 protected:
  virtual void IntRenderAudio(bool Send, ISRAudioBuffer& Buffer);

 private:
  TSRPWAudioSinkPin FInputPin;
  TDSGraphFilter FSinkFilter;
  TDSGraph FGraph;
  std::unique_ptr<TDSAudioSourceFilter> FSource;
  TSRWaveFormatExtensible FFormat{};
  // Timing of the stream, guarded by the component lock.
  struct TTiming {
    uint64_t LastSequence = 0;
    int64_t NextStart = 0;
    int64_t LastStreamTime = 0;
  } FTiming;
  std::atomic<int32_t> FLastDelivery{0};
  std::atomic<bool> FFirstBuffer{false};
  std::atomic<bool> FGraphBuilt{false};
  std::atomic<bool> FStreamEnded{false};
  std::atomic<bool> FAudioBegun{false};
};

}  // namespace Quorvel
