#include "dshow/Cbsamplegrabber.h"

#include "dshow/Dscom.h"

#include <qedit.h>

#include <cstring>

namespace Quorvel {

using namespace Dshow;

namespace {

// The system's sample grabber filter.
const CLSID CLSID_QvSampleGrabber = {0xC1F400A0, 0x3F08, 0x11D3, {0x9F, 0x0B, 0x00, 0x60, 0x08, 0x03, 0x9E, 0x37}};

// The grabber calls BufferCB on the streaming thread with each sample's bytes.
class TCallback final : public TComObject<ISampleGrabberCB, IID_ISampleGrabberCB> {
 public:
  explicit TCallback(TCBBasicSampleGrabber& Owner) : FOwner(&Owner) {}
  HRESULT STDMETHODCALLTYPE SampleCB(double, IMediaSample*) noexcept override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE BufferCB(double Time, BYTE* Buffer, long Length) noexcept override {
    TCBBasicSampleGrabber* Owner = FOwner.load();
    if (!Owner || !Buffer || Length <= 0 || !Owner->OnSample) return S_OK;
    try {
      Owner->OnSample(Buffer, size_t(Length), Time);
    } catch (...) {
      // Nothing may cross into the graph's thread.
    }
    return S_OK;
  }
  void Detach() { FOwner.store(nullptr); }

 private:
  std::atomic<TCBBasicSampleGrabber*> FOwner;
};

}  // namespace

struct TCBBasicSampleGrabber::TImpl {
  TComPtr<IBaseFilter> Filter;
  TComPtr<ISampleGrabber> Grabber;
  TCallback* Callback = nullptr;
};

TCBBasicSampleGrabber::TCBBasicSampleGrabber() : FImpl(std::make_unique<TImpl>()) {}

TCBBasicSampleGrabber::~TCBBasicSampleGrabber() { Destroy(); }

int32_t TCBBasicSampleGrabber::Create(IGraphBuilder* Graph, const std::wstring& Name,
                                      const TSRWaveFormatExtensible& Format) {
  Destroy();
  if (!Graph) return E_POINTER;
  auto& I = *FImpl;
  HRESULT R = CoCreateInstance(CLSID_QvSampleGrabber, nullptr, CLSCTX_INPROC_SERVER, IID_IBaseFilter,
                               I.Filter.PutVoid());
  if (SUCCEEDED(R)) R = I.Filter->QueryInterface(IID_ISampleGrabber, I.Grabber.PutVoid());
  TMediaType Type;
  if (SUCCEEDED(R)) {
    WAVEFORMATEXTENSIBLE W;
    std::memcpy(&W, &Format, sizeof(W));
    if (!MakePreferredAudioMediaType(W, Type)) R = E_OUTOFMEMORY;
  }
  if (SUCCEEDED(R)) R = I.Grabber->SetMediaType(&Type.Type);
  if (SUCCEEDED(R)) R = I.Grabber->SetOneShot(FALSE);
  if (SUCCEEDED(R)) R = I.Grabber->SetBufferSamples(FALSE);
  if (SUCCEEDED(R)) {
    I.Callback = new TCallback(*this);
    R = I.Grabber->SetCallback(I.Callback, 1);
  }
  if (SUCCEEDED(R)) R = Graph->AddFilter(I.Filter.Get(), Name.c_str());
  if (FAILED(R)) Destroy();
  return R;
}

IBaseFilter* TCBBasicSampleGrabber::GetFilter() const { return FImpl->Filter.Get(); }

bool TCBBasicSampleGrabber::GetConnectedFormat(TSRWaveFormatExtensible& Format) const {
  if (!FImpl->Grabber) return false;
  TMediaType Type;
  if (FAILED(FImpl->Grabber->GetConnectedMediaType(&Type.Type))) return false;
  const WAVEFORMATEX* W = WaveFormatOf(Type.Type);
  if (!W) return false;
  Format = MakeWaveFormat(W->nSamplesPerSec, W->nChannels, W->wBitsPerSample);
  if (W->wFormatTag == WAVE_FORMAT_EXTENSIBLE && Type.Type.cbFormat >= sizeof(WAVEFORMATEXTENSIBLE))
    std::memcpy(&Format, W, sizeof(Format));
  return true;
}

void TCBBasicSampleGrabber::Destroy() {
  auto& I = *FImpl;
  if (I.Grabber) I.Grabber->SetCallback(nullptr, 1);
  if (I.Callback) {
    I.Callback->Detach();
    I.Callback->Release();
    I.Callback = nullptr;
  }
  I.Grabber.Reset();
  I.Filter.Reset();
}

}  // namespace Quorvel
