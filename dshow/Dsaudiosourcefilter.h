// The push source filter that feeds a chain's audio into a filter graph
// (Windows only; the header compiles anywhere). Its output pin offers the
// given wave format (as a plain PCM header where one describes it, and as
// the extensible record), negotiates an allocator with the pin it connects
// to and delivers samples with the start and end times it is given.
#pragma once

#include <cstddef>
#include <cstdint>

#include "frame/Sraudioformat.h"

struct IBaseFilter;

namespace Quorvel {

class TDSAudioSourceFilter {
 public:
  // {AC11DC21-BDC9-49D9-BCAE-073AF5C1962C}
  static const TGUID ClassID;

  // [owning thread] A filter for Format; the graph gets it through GetFilter.
  explicit TDSAudioSourceFilter(const TSRWaveFormatExtensible& Format);
  ~TDSAudioSourceFilter();
  TDSAudioSourceFilter(const TDSAudioSourceFilter&) = delete;
  TDSAudioSourceFilter& operator=(const TDSAudioSourceFilter&) = delete;

  IBaseFilter* GetFilter() const;  // not counted; lives as long as this object
  bool IsConnected() const;
  // Bytes per sample buffer the allocator agreed to; 0 when not connected.
  int32_t GetBufferBytes() const;

  // [streaming thread, graph running] Delivers Bytes of audio with times in
  // 100-nanosecond units, split over as many samples as it takes. Answers the
  // DirectShow result (negative on failure).
  int32_t Deliver(const void* Data, size_t Bytes, int64_t Start, int64_t End);
  int32_t DeliverEndOfStream();

 private:
  class TFilter;
  TFilter* FFilter;  // counted COM object
};

}  // namespace Quorvel
