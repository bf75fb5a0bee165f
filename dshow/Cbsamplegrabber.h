// The system's sample grabber in a filter graph (Windows only; the header
// compiles anywhere): created with the media type it must accept, added to
// a graph, and delivering every sample that passes it to OnSample on the
// graph's streaming thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "frame/Sraudioformat.h"

struct IBaseFilter;
struct IGraphBuilder;

namespace Quorvel {

class TCBBasicSampleGrabber {
 public:
  // Data and Bytes are the sample's bytes, Time its start in seconds.
  using TSampleProc = std::function<void(const uint8_t* Data, size_t Bytes, double Time)>;
  TCBBasicSampleGrabber();
  ~TCBBasicSampleGrabber();
  TCBBasicSampleGrabber(const TCBBasicSampleGrabber&) = delete;
  TCBBasicSampleGrabber& operator=(const TCBBasicSampleGrabber&) = delete;

  // [owning thread] Creates the grabber, sets the audio media type of Format
  // on it (before the graph is rendered, so the connection takes that type)
  // and adds it to Graph under Name. Answers the first failing result.
  int32_t Create(IGraphBuilder* Graph, const std::wstring& Name, const TSRWaveFormatExtensible& Format);
  IBaseFilter* GetFilter() const;  // not counted; nullptr before Create
  // [owning thread] The wave format of the connection once connected.
  bool GetConnectedFormat(TSRWaveFormatExtensible& Format) const;
  // [owning thread, graph stopped] Stops the callbacks and lets the grabber go.
  void Destroy();

  TSampleProc OnSample;  // set before the graph runs

 private:
  struct TImpl;
  std::unique_ptr<TImpl> FImpl;
};

}  // namespace Quorvel
