#include "dshow/Dsaudiosourcefilter.h"

#include "dshow/Dspushfilter.h"

#include <algorithm>
#include <cstring>

namespace Quorvel {

using namespace Dshow;

const TGUID TDSAudioSourceFilter::ClassID = {0xAC11DC21, 0xBDC9, 0x49D9, {0xBC, 0xAE, 0x07, 0x3A, 0xF5, 0xC1, 0x96, 0x2C}};

namespace {

CLSID ToClsid(const TGUID& G) {
  CLSID C;
  std::memcpy(&C, &G, sizeof(C));
  return C;
}

bool SameShape(const WAVEFORMATEX& A, const WAVEFORMATEX& B) {
  return A.nChannels == B.nChannels && A.nSamplesPerSec == B.nSamplesPerSec && A.wBitsPerSample == B.wBitsPerSample &&
         A.nBlockAlign == B.nBlockAlign;
}

}  // namespace

class TDSAudioSourceFilter::TFilter final : public TDSPushFilter {
 public:
  explicit TFilter(const TSRWaveFormatExtensible& Format) : TDSPushFilter(ToClsid(ClassID), L"Audio Out") {
    std::memcpy(&FFormat, &Format, sizeof(FFormat));
    FFormat.Format.wFormatTag = WAVE_FORMAT_EXTENSIBLE;
    FFormat.Format.cbSize = sizeof(WAVEFORMATEXTENSIBLE) - sizeof(WAVEFORMATEX);
  }

  bool GetMediaType(int Index, TMediaType& Type) override {
    // A plain header first where it says everything (integer PCM, at most
    // two channels, whole bytes), since many renderers and writers know only
    // that form; the extensible record always.
    const WAVEFORMATEX& F = FFormat.Format;
    const bool Plain = F.nChannels <= 2 && F.wBitsPerSample <= 16 && FFormat.SubFormat == MEDIASUBTYPE_PCM;
    if (Index == 0) return MakePreferredAudioMediaType(FFormat, Type);
    if (Plain && Index == 1) return MakeAudioMediaType(FFormat.Format, Type);
    return false;
  }

  bool CheckMediaType(const AM_MEDIA_TYPE& Type) override {
    if (Type.majortype != MEDIATYPE_Audio) return false;
    const WAVEFORMATEX* W = WaveFormatOf(Type);
    if (!W || !SameShape(*W, FFormat.Format)) return false;
    if (W->wFormatTag == WAVE_FORMAT_PCM) return FFormat.SubFormat == MEDIASUBTYPE_PCM;
    if (W->wFormatTag == WAVE_FORMAT_EXTENSIBLE && W->cbSize >= 22 && Type.cbFormat >= sizeof(WAVEFORMATEXTENSIBLE))
      return reinterpret_cast<const WAVEFORMATEXTENSIBLE*>(W)->SubFormat == FFormat.SubFormat;
    return false;
  }

  void DecideBufferSize(const AM_MEDIA_TYPE&, const ALLOCATOR_PROPERTIES& Request,
                        ALLOCATOR_PROPERTIES& Props) override {
    // A tenth of a second per sample, whole frames; more when asked.
    const long Align = std::max<long>(1, FFormat.Format.nBlockAlign);
    long Bytes = long(FFormat.Format.nAvgBytesPerSec / 10) / Align * Align;
    Bytes = std::max({Bytes, Align, Request.cbBuffer});
    Props.cBuffers = std::max<long>(8, Request.cBuffers);
    Props.cbBuffer = Bytes;
    Props.cbAlign = std::max<long>(1, Request.cbAlign);
    Props.cbPrefix = std::max<long>(0, Request.cbPrefix);
  }

 private:
  WAVEFORMATEXTENSIBLE FFormat{};
};

TDSAudioSourceFilter::TDSAudioSourceFilter(const TSRWaveFormatExtensible& Format) : FFilter(new TFilter(Format)) {}

TDSAudioSourceFilter::~TDSAudioSourceFilter() { FFilter->Release(); }

IBaseFilter* TDSAudioSourceFilter::GetFilter() const { return FFilter; }

bool TDSAudioSourceFilter::IsConnected() const { return FFilter->GetPin().IsConnected(); }

int32_t TDSAudioSourceFilter::GetBufferBytes() const { return FFilter->GetPin().GetAllocatorProperties().cbBuffer; }

int32_t TDSAudioSourceFilter::Deliver(const void* Data, size_t Bytes, int64_t Start, int64_t End) {
  return FFilter->GetPin().Deliver(static_cast<const BYTE*>(Data), Bytes, Start, End);
}

int32_t TDSAudioSourceFilter::DeliverEndOfStream() { return FFilter->GetPin().DeliverEndOfStream(); }

}  // namespace Quorvel
