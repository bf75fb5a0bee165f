#include "media/Srdsfromsourcefilter.h"

#include "dshow/Dscom.h"

#include <cstring>

namespace Quorvel {

using Threading::TLockGuard;
using namespace Dshow;

namespace {

constexpr UINT EventMessage = WM_APP + 5;  // media events of the graph
const wchar_t* const WindowClass = L"QuorvelDSSourceWindow";

LRESULT CALLBACK SourceWindowProc(HWND Window, UINT Message, WPARAM WParam, LPARAM LParam) noexcept;

ATOM RegisterWindowClass() {
  static const ATOM Atom = [] {
    WNDCLASSEXW Class{};
    Class.cbSize = sizeof(Class);
    Class.lpfnWndProc = SourceWindowProc;
    Class.hInstance = GetModuleHandleW(nullptr);
    Class.lpszClassName = WindowClass;
    return RegisterClassExW(&Class);
  }();
  return Atom;
}

// The media type asked of the source.
bool SourceMediaType(const TSRWaveFormatExtensible& Format, TMediaType& Type) {
  WAVEFORMATEXTENSIBLE W;
  std::memcpy(&W, &Format, sizeof(W));
  return MakePreferredAudioMediaType(W, Type);
}

}  // namespace

struct TSRDSFromSourceFilter::TImpl {
  HWND Window = nullptr;
  TComPtr<IBaseFilter> Source;
  TComPtr<IAMBufferNegotiation> Negotiation;
  TComPtr<IReferenceClock> OwnClock;
};

namespace {

LRESULT CALLBACK SourceWindowProc(HWND Window, UINT Message, WPARAM WParam, LPARAM LParam) noexcept {
  auto* Owner = reinterpret_cast<TSRDSFromSourceFilter*>(GetWindowLongPtrW(Window, GWLP_USERDATA));
  if (Owner && (Message == TSRDSFromSourceFilter::StopMessage || Message == EventMessage)) {
    try {
      if (Message == TSRDSFromSourceFilter::StopMessage) {
        Owner->IntStop();
      } else {
        // The source ended or failed: the graph goes.
        int32_t Code = 0;
        intptr_t P1 = 0, P2 = 0;
        bool Stop = false;
        while (Owner->GetGraph().NextEvent(Code, P1, P2))
          if (Code == EC_COMPLETE || Code == EC_ERRORABORT || Code == EC_USERABORT || Code == EC_DEVICE_LOST)
            Stop = true;
        if (Stop) Owner->IntStop();
      }
    } catch (...) {
      // An unhandled component error must not unwind through the message loop.
    }
    return 0;
  }
  return DefWindowProcW(Window, Message, WParam, LParam);
}

}  // namespace

TSRDSFromSourceFilter::TSRDSFromSourceFilter(TWBComponent* Owner)
    : TWBComponent(Owner),
      FOutputPin(*this, "Output"),
      FClockPin(*this, "Clock"),
      FSourceFilter(TDSCategory::dcAudioCapture),
      FGraph([this](const std::string& Text, int32_t Code) { Error(Text, Code); }),
      FAudioFormat(this, &GetLock(), [this](TSRAudioFormatBasic&) { OnFormatChange(); }),
      FImpl(std::make_unique<TImpl>()) {
  if (RegisterWindowClass()) {
    FImpl->Window = CreateWindowExW(0, WindowClass, L"", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr,
                                    GetModuleHandleW(nullptr), nullptr);
    if (FImpl->Window) SetWindowLongPtrW(FImpl->Window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(this));
  }
  FGrabber.OnSample = [this](const uint8_t* Data, size_t Bytes, double Time) { Grabbed(Data, Bytes, Time); };
}

TSRDSFromSourceFilter::~TSRDSFromSourceFilter() {
  BeginDestroy();
  IntStop();
  if (FImpl->Window) {
    SetWindowLongPtrW(FImpl->Window, GWLP_USERDATA, 0);
    DestroyWindow(FImpl->Window);
  }
}

void TSRDSFromSourceFilter::SetAudioFormat(const TSRAudioFormatBasic& Value) { FAudioFormat.Assign(Value); }

void TSRDSFromSourceFilter::SetAudioFormat(const TSRWaveFormatExtensible& Value) { FAudioFormat.SetWaveFormat(Value); }

uint32_t TSRDSFromSourceFilter::GetBufferSize() const {
  TLockGuard G(GetLock());
  return FBufferSize;
}

void TSRDSFromSourceFilter::SetBufferSize(uint32_t Samples) {
  {
    TLockGuard G(GetLock());
    FBufferSize = Samples;
  }
  SetBufferSize();
}

void TSRDSFromSourceFilter::SetBufferSize() {
  TLockGuard G(GetLock());
  if (!FImpl->Negotiation) return;
  ALLOCATOR_PROPERTIES Props;
  Props.cBuffers = -1;  // -1: no preference
  Props.cbBuffer = long(FAudioFormat.GetWaveFormat().Format.nBlockAlign) * long(FBufferSize);
  Props.cbAlign = -1;
  Props.cbPrefix = -1;
  FImpl->Negotiation->SuggestAllocatorProperties(&Props);
}

TSRDSPumpType TSRDSFromSourceFilter::GetPumpType() const {
  TLockGuard G(GetLock());
  return FPumpType;
}

void TSRDSFromSourceFilter::SetPumpType(TSRDSPumpType Value) {
  TLockGuard G(GetLock());
  FPumpType = Value;
}

int32_t TSRDSFromSourceFilter::GetPumpPriority() const {
  TLockGuard G(GetLock());
  return FPumpPriority;
}

void TSRDSFromSourceFilter::SetPumpPriority(int32_t Value) {
  TLockGuard G(GetLock());
  FPumpPriority = Value;
}

TSRDSClockSource TSRDSFromSourceFilter::GetClockSource() const {
  TLockGuard G(GetLock());
  return FClockSource;
}

void TSRDSFromSourceFilter::SetClockSource(TSRDSClockSource Value) {
  TLockGuard G(GetLock());
  FClockSource = Value;
}

bool TSRDSFromSourceFilter::Open() { return BuildGraph(); }

void TSRDSFromSourceFilter::Close() {
  IntStop();
  DestroyGraph();
}

void TSRDSFromSourceFilter::Start() {
  if (!GetEnabled()) {
    SetEnabled(true);
    return;
  }
  bool Started = false;
  try {
    Started = TryStart();
  } catch (...) {
    SetEnabled(false);  // an unhandled build error leaves the component off as well
    throw;
  }
  if (!Started) SetEnabled(false);
}

void TSRDSFromSourceFilter::Stop() { IntStop(); }

bool TSRDSFromSourceFilter::TryStart() { return IntStart(); }

bool TSRDSFromSourceFilter::IntStart() {
  if (FRunning) return true;
  if (!BuildGraph()) return false;
  {
    TLockGuard G(GetLock());
    FFormatSent = false;
    FSequence = 0;
    FBuffersGrabbed = 0;
    FBuffersSent = 0;
    FFramesSent = 0;
    FRunning = true;
  }
  if (FAILED(FGraph.Run())) {
    IntStop();
    return false;
  }
  return true;
}

void TSRDSFromSourceFilter::IntStop() {
  // Samples arriving from now on are dropped; the graph stops without the
  // component lock, since its streaming thread may be waiting for that lock.
  FRunning = false;
  if (FGraph.Exists()) FGraph.Stop();
  TLockGuard G(GetLock());
  if (FFormatSent) {
    FFormatSent = false;
    FOutputPin.SendStop();
  }
  {
    std::lock_guard<std::mutex> Q(FQueueLock);
    for (auto& B : FQueue) B.Reset();
    FQueueHead = FQueueCount = 0;
  }
  DestroyGraph();
}

void TSRDSFromSourceFilter::RequestStop() {
  if (FImpl->Window) PostMessageW(FImpl->Window, StopMessage, 0, 0);
}

bool TSRDSFromSourceFilter::BuildGraph() {
  TLockGuard G(GetLock());
  if (FGraphBuilt) return true;
  // 1. Graph, capture graph builder, additional filters, media control.
  if (!FGraph.Create()) return false;
  // However the build leaves before it is done (a failed step, or the error
  // its report raises when nobody handles it), no half-built graph stays
  // behind holding the chosen filter.
  struct TUndo {
    TSRDSFromSourceFilter* Owner;
    ~TUndo() {
      if (Owner) Owner->DestroyGraph();
    }
  } Undo{this};
  // 2. The graph as a media filter.
  TComPtr<IMediaFilter> MediaFilter;
  if (!FGraph.Check(FGraph.GetGraph()->QueryInterface(IID_IMediaFilter, MediaFilter.PutVoid()),
                    "Can't obtain IMediaFilter."))
    return false;
  // 3. Our own reference clock, unless the source's timing is used.
  if (!UsesInternalClock()) {
    HRESULT R = CoCreateInstance(CLSID_SystemClock, nullptr, CLSCTX_INPROC_SERVER, IID_IReferenceClock,
                                 FImpl->OwnClock.PutVoid());
    if (SUCCEEDED(R)) R = MediaFilter->SetSyncSource(FImpl->OwnClock.Get());
    // Deliberately worded so: kept as the component always reported it.
    if (!FGraph.Check(R, "Can't obtain set custom clock source.")) return false;
  }
  // 4. Media events come to our window.
  FGraph.EnableEvents(FImpl->Window, EventMessage);
  // 5. The chosen filter's object.
  IMoniker* Moniker = FSourceFilter.GetMoniker();
  if (!FGraph.Check(Moniker ? S_OK : E_POINTER, "Can't create the DirectShow filter.")) return false;
  if (!FGraph.Check(Moniker->BindToObject(nullptr, nullptr, IID_IBaseFilter, FImpl->Source.PutVoid()),
                    "Can't create the DirectShow filter."))
    return false;
  // 6. Into the graph.
  if (!FGraph.Check(FGraph.GetGraph()->AddFilter(FImpl->Source.Get(), L"Source Filter"),
                    "Can't add the DirectShow filter."))
    return false;
  // 7. The user's set-up of the new filter.
  if (FSourceFilter.OnFilterCreated) FSourceFilter.OnFilterCreated(FImpl->Source.Get());
  // 8. Buffer negotiation on the source's output, when it has one.
  if (FAILED(FGraph.GetBuilder()->FindInterface(&PIN_CATEGORY_CAPTURE, &MEDIATYPE_Audio, FImpl->Source.Get(),
                                                IID_IAMBufferNegotiation, FImpl->Negotiation.PutVoid())))
    FImpl->Negotiation.Reset();
  // 9. The media type asked of the source.
  TMediaType Type;
  const TSRWaveFormatExtensible Wanted = FAudioFormat.GetWaveFormat();
  if (!SourceMediaType(Wanted, Type)) return false;
  // 10. The sample grabber, accepting only that type.
  if (!FGraph.Check(FGrabber.Create(FGraph.GetGraph(), L"Audio Grabber", Wanted), "Can't set audio sample grabber."))
    return false;
  // 11. The source produces that type.
  TComPtr<IAMStreamConfig> Config;
  if (!FGraph.Check(FGraph.GetBuilder()->FindInterface(&PIN_CATEGORY_CAPTURE, &MEDIATYPE_Audio, FImpl->Source.Get(),
                                                       IID_IAMStreamConfig, Config.PutVoid()),
                    "Can't set audio sample grabber format."))
    return false;
  if (!FGraph.Check(Config->SetFormat(&Type.Type), "Can't set desired audio format.")) return false;
  // 12. Buffers of the wanted size.
  SetBufferSize();
  // 13. Source into the grabber.
  if (!FGraph.Check(FGraph.GetBuilder()->RenderStream(nullptr, nullptr, FImpl->Source.Get(), nullptr,
                                                      FGrabber.GetFilter()),
                    "Can't set audio sample grabber."))
    return false;
  // 14. Built.
  if (!FGrabber.GetConnectedFormat(FStreamFormat)) FStreamFormat = Wanted;
  Undo.Owner = nullptr;
  FGraph.Register();
  FGraph.GraphChanged();
  FGraphBuilt = true;
  FGraph.GraphBuilt();
  return true;
}

void TSRDSFromSourceFilter::DestroyGraph() {
  TLockGuard G(GetLock());
  FGraphBuilt = false;
  FGraph.Destroy();
  FGrabber.Destroy();
  DisconnectInterfaces();
}

void TSRDSFromSourceFilter::DisconnectInterfaces() {
  TLockGuard G(GetLock());
  FImpl->Negotiation.Reset();
  FImpl->Source.Reset();
  FImpl->OwnClock.Reset();
}

bool TSRDSFromSourceFilter::HasBufferNegotiation() const {
  TLockGuard G(GetLock());
  return bool(FImpl->Negotiation);
}

void TSRDSFromSourceFilter::EnabledChanged() {
  if (IsLoading() || IsDesigning()) return;
  if (GetEnabled()) {
    try {
      TryStart();
    } catch (...) {
      SetEnabled(false);  // an unhandled build error leaves the component off as well
      throw;
    }
    if (!FGraphBuilt) SetEnabled(false);
  } else {
    IntStop();
  }
}

void TSRDSFromSourceFilter::OnFormatChange() {
  if (!FGraphBuilt || IsDestroying()) return;
  const bool WasRunning = FRunning;
  IntStop();
  if (WasRunning) TryStart();
}

void TSRDSFromSourceFilter::SendAudioFormat() {
  TLockGuard G(GetLock());
  FOutputPin.SendStartWave(FStreamFormat, UsesInternalClock());
  FFormatSent = true;
}

void TSRDSFromSourceFilter::Grabbed(const uint8_t* Data, size_t Bytes, double Time) {
  if (!FRunning) return;
  TLockGuard G(GetLock());
  if (!FRunning) return;
  const TWaveFormatEx& F = FStreamFormat.Format;
  if (F.nBlockAlign == 0 || F.nSamplesPerSec == 0) return;
  if (!FFormatSent) SendAudioFormat();
  const size_t Frames = Bytes / F.nBlockAlign;
  auto Buffer = TSRAudioBuffer::Create(F.nChannels, Frames, F.wBitsPerSample, F.nSamplesPerSec);
  if (Buffer->GetSize() < Frames * F.nBlockAlign) return;  // a shape the buffers cannot hold
  std::memcpy(Buffer->GetData(), Data, Frames * F.nBlockAlign);
  const int64_t Start = int64_t(Time * 1e7 + 0.5);
  Buffer->SetStreamTime(Start, Start + int64_t(Frames) * 10000000 / int64_t(F.nSamplesPerSec));
  Buffer->SetSequenceNumber(++FSequence);
  ++FBuffersGrabbed;
  if (FPumpType == TSRDSPumpType::ptPush && UsesInternalClock()) {
    Send(*Buffer);
    return;
  }
  std::lock_guard<std::mutex> Q(FQueueLock);
  if (FQueueCount == FQueue.size()) {  // full: the oldest goes
    FQueue[FQueueHead].Reset();
    FQueueHead = (FQueueHead + 1) % FQueue.size();
    --FQueueCount;
  }
  FQueue[(FQueueHead + FQueueCount) % FQueue.size()] = ISRAudioBufferRef(Buffer.Get());
  ++FQueueCount;
}

void TSRDSFromSourceFilter::Send(ISRAudioBuffer& Buffer) {
  FOutputPin.SubmitBuffer(&Buffer);
  ++FBuffersSent;
  FFramesSent += Buffer.GetSamples();
}

void TSRDSFromSourceFilter::SendQueued(size_t Count) {
  TLockGuard G(GetLock());
  if (!FRunning || !FFormatSent) return;
  for (size_t I = 0; I < Count; ++I) {
    ISRAudioBufferRef B;
    {
      std::lock_guard<std::mutex> Q(FQueueLock);
      if (FQueueCount == 0) return;
      B = std::move(FQueue[FQueueHead]);
      FQueueHead = (FQueueHead + 1) % FQueue.size();
      --FQueueCount;
    }
    Send(*B);
  }
}

void TSRDSFromSourceFilter::Clock() {
  if (!FRunning) return;
  if (ClockIsExternal()) TimerClock(true);
}

void TSRDSFromSourceFilter::TimerClock(bool Value) {
  if (Value) SendQueued(FQueue.size());
}

bool TSRDSFromSourceFilter::ClockIsExternal() const { return GetClockSource() == TSRDSClockSource::csExternal; }

bool TSRDSFromSourceFilter::UsesInternalClock() const { return !ClockIsExternal(); }

void TSRDSFromSourceFilter::RequestPump() { SendQueued(1); }

void TSRDSFromSourceFilter::SourceDispatch(TPWBasicPin* SourcePin, TPWBasicPin* SinkPin, TPWOperationID ID,
                                           TPWOperation& Operation, TPWNotifyStates& States) {
  if (SourcePin != &FOutputPin) return;
  DispatchOperation(ID, Operation);
  States.Include(TPWNotifyState::pnsHandled);
}

void TSRDSFromSourceFilter::DispatchOperation(TPWOperationID ID, TPWOperation& Operation) {
  if (ID == poidPumpRequest || ID == poidMasterPump) RequestPump();
}

void TSRDSFromSourceFilter::SinkDispatch(TPWBasicPin* SourcePin, TPWBasicPin* SinkPin, TPWOperationID ID,
                                         TPWOperation& Operation, TPWNotifyStates& States) {
  if (SinkPin != &FClockPin) return;
  ClockDispatchOperation(ID, Operation);
  States.Include(TPWNotifyState::pnsHandled);
}

void TSRDSFromSourceFilter::ClockDispatchOperation(TPWOperationID ID, TPWOperation& Operation) {
  if (ID != poidStop) Clock();
}

}  // namespace Quorvel
