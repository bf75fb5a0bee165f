#include "dshow/Dspushfilter.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <new>

namespace Quorvel::Dshow {

namespace {

// Enumerates the filter's single pin.
class TEnumPins final : public TComObject<IEnumPins, IID_IEnumPins> {
 public:
  TEnumPins(IPin* Pin, ULONG Position) : FPin(Pin), FPosition(Position) {}
  HRESULT STDMETHODCALLTYPE Next(ULONG Count, IPin** Pins, ULONG* Fetched) noexcept override {
    if (!Pins) return E_POINTER;
    if (Count > 1 && !Fetched) return E_INVALIDARG;
    ULONG N = 0;
    while (N < Count && FPosition < 1) {
      Pins[N] = FPin.Get();
      Pins[N]->AddRef();
      ++N;
      ++FPosition;
    }
    if (Fetched) *Fetched = N;
    return N == Count ? S_OK : S_FALSE;
  }
  HRESULT STDMETHODCALLTYPE Skip(ULONG Count) noexcept override {
    const ULONG Left = 1 - FPosition;
    FPosition += std::min(Count, Left);
    return Count <= Left ? S_OK : S_FALSE;
  }
  HRESULT STDMETHODCALLTYPE Reset() noexcept override {
    FPosition = 0;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE Clone(IEnumPins** Enum) noexcept override {
    if (!Enum) return E_POINTER;
    *Enum = new (std::nothrow) TEnumPins(FPin.Get(), FPosition);
    return *Enum ? S_OK : E_OUTOFMEMORY;
  }

 private:
  TComPtr<IPin> FPin;
  ULONG FPosition;
};

// Enumerates the media types the filter offers, asking it each time.
class TEnumMediaTypes final : public TComObject<IEnumMediaTypes, IID_IEnumMediaTypes> {
 public:
  // Holds the filter (and with it the pin) for as long as it lives.
  TEnumMediaTypes(TDSPushFilter& Filter, ULONG Position) : FHold(&Filter), FFilter(&Filter), FPosition(Position) {}
  HRESULT STDMETHODCALLTYPE Next(ULONG Count, AM_MEDIA_TYPE** Types, ULONG* Fetched) noexcept override {
    if (!Types) return E_POINTER;
    if (Count > 1 && !Fetched) return E_INVALIDARG;
    ULONG N = 0;
    while (N < Count) {
      TMediaType T;
      if (!FFilter->GetMediaType(int(FPosition), T)) break;
      Types[N] = CreateMediaType(T.Type);
      if (!Types[N]) break;
      ++N;
      ++FPosition;
    }
    if (Fetched) *Fetched = N;
    return N == Count ? S_OK : S_FALSE;
  }
  HRESULT STDMETHODCALLTYPE Skip(ULONG Count) noexcept override {
    for (ULONG I = 0; I < Count; ++I) {
      TMediaType T;
      if (!FFilter->GetMediaType(int(FPosition), T)) return S_FALSE;
      ++FPosition;
    }
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE Reset() noexcept override {
    FPosition = 0;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE Clone(IEnumMediaTypes** Enum) noexcept override {
    if (!Enum) return E_POINTER;
    *Enum = new (std::nothrow) TEnumMediaTypes(*FFilter, FPosition);
    return *Enum ? S_OK : E_OUTOFMEMORY;
  }

 private:
  TComPtr<IBaseFilter> FHold;
  TDSPushFilter* FFilter;
  ULONG FPosition;
};

// Whether a partly given type (GUID_NULL meaning any) admits the full type.
bool Matches(const AM_MEDIA_TYPE& Partial, const AM_MEDIA_TYPE& Full) {
  if (Partial.majortype != GUID_NULL && Partial.majortype != Full.majortype) return false;
  if (Partial.subtype != GUID_NULL && Partial.subtype != Full.subtype) return false;
  if (Partial.formattype != GUID_NULL && Partial.formattype != Full.formattype) return false;
  if (Partial.formattype != GUID_NULL && Partial.cbFormat &&
      (Partial.cbFormat != Full.cbFormat || std::memcmp(Partial.pbFormat, Full.pbFormat, Full.cbFormat) != 0))
    return false;
  return true;
}

bool IsComplete(const AM_MEDIA_TYPE& T) {
  return T.majortype != GUID_NULL && T.subtype != GUID_NULL && T.formattype != GUID_NULL;
}

}  // namespace

// ---- pin -----------------------------------------------------------------

TDSPushPin::TDSPushPin(TDSPushFilter& Filter, std::wstring Name) : FFilter(Filter), FName(std::move(Name)) {}

TDSPushPin::~TDSPushPin() {
  JoinEndOfStream();
  ReleaseConnection();
}

HRESULT TDSPushPin::QueryInterface(REFIID Iid, void** Out) noexcept {
  if (!Out) return E_POINTER;
  *Out = nullptr;
  if (Iid == IID_IUnknown || Iid == IID_IPin) {
    *Out = static_cast<IPin*>(this);
    AddRef();
    return S_OK;
  }
  return FFilter.QueryPinInterface(Iid, Out);
}

ULONG TDSPushPin::AddRef() noexcept { return FFilter.AddRef(); }
ULONG TDSPushPin::Release() noexcept { return FFilter.Release(); }

HRESULT TDSPushPin::Connect(IPin* ReceivePin, const AM_MEDIA_TYPE* Type) noexcept {
  if (!ReceivePin) return E_POINTER;
  std::lock_guard<std::recursive_mutex> G(FLock);
  if (FConnected) return VFW_E_ALREADY_CONNECTED;
  if (FFilter.GetFilterState() != State_Stopped) return VFW_E_NOT_STOPPED;
  if (Type && IsComplete(*Type)) {
    if (!FFilter.CheckMediaType(*Type)) return VFW_E_TYPE_NOT_ACCEPTED;
    return TryConnect(ReceivePin, *Type);
  }
  HRESULT Last = VFW_E_NO_ACCEPTABLE_TYPES;
  // Our own types first, in order of preference...
  for (int I = 0;; ++I) {
    TMediaType T;
    if (!FFilter.GetMediaType(I, T)) break;
    if (Type && !Matches(*Type, T.Type)) continue;
    const HRESULT R = TryConnect(ReceivePin, T.Type);
    if (SUCCEEDED(R)) return R;
    Last = R;
  }
  // ...then what the other pin proposes that we can produce.
  TComPtr<IEnumMediaTypes> Enum;
  if (SUCCEEDED(ReceivePin->EnumMediaTypes(Enum.Put())) && Enum) {
    for (int Guard = 0; Guard < 1000; ++Guard) {
      AM_MEDIA_TYPE* Proposed = nullptr;
      ULONG Got = 0;
      if (Enum->Next(1, &Proposed, &Got) != S_OK || Got != 1 || !Proposed) break;
      HRESULT R = VFW_E_TYPE_NOT_ACCEPTED;
      if ((!Type || Matches(*Type, *Proposed)) && FFilter.CheckMediaType(*Proposed)) R = TryConnect(ReceivePin, *Proposed);
      DeleteMediaType(Proposed);
      if (SUCCEEDED(R)) return R;
      Last = R;
    }
  }
  return Last;
}

HRESULT TDSPushPin::TryConnect(IPin* ReceivePin, const AM_MEDIA_TYPE& Type) {
  PIN_DIRECTION Direction;
  if (FAILED(ReceivePin->QueryDirection(&Direction)) || Direction != PINDIR_INPUT) return VFW_E_INVALID_DIRECTION;
  HRESULT R = ReceivePin->ReceiveConnection(this, &Type);
  if (FAILED(R)) return R;
  FConnected = TComPtr<IPin>(ReceivePin);
  FType = TMediaType();
  CopyMediaType(FType.Type, Type);
  R = ReceivePin->QueryInterface(IID_IMemInputPin, FInput.PutVoid());
  if (SUCCEEDED(R)) R = DecideAllocator();
  if (FAILED(R)) {
    ReceivePin->Disconnect();
    ReleaseConnection();
    return R;
  }
  return S_OK;
}

HRESULT TDSPushPin::DecideAllocator() {
  ALLOCATOR_PROPERTIES Request{};
  FInput->GetAllocatorRequirements(&Request);  // E_NOTIMPL: no wishes
  ALLOCATOR_PROPERTIES Props{};
  FFilter.DecideBufferSize(FType.Type, Request, Props);
  // The downstream pin's allocator when it offers one, else a memory allocator.
  for (int Attempt = 0; Attempt < 2; ++Attempt) {
    TComPtr<IMemAllocator> A;
    HRESULT R = Attempt == 0 ? FInput->GetAllocator(A.Put())
                             : CoCreateInstance(CLSID_MemoryAllocator, nullptr, CLSCTX_INPROC_SERVER, IID_IMemAllocator,
                                                A.PutVoid());
    if (FAILED(R) || !A) continue;
    ALLOCATOR_PROPERTIES Actual{};
    R = A->SetProperties(&Props, &Actual);
    if (FAILED(R) || Actual.cbBuffer <= 0) continue;
    R = FInput->NotifyAllocator(A.Get(), FALSE);
    if (FAILED(R)) continue;
    FAllocator = A;
    FProps = Actual;
    return S_OK;
  }
  return VFW_E_NO_ALLOCATOR;
}

void TDSPushPin::ReleaseConnection() {
  std::lock_guard<std::mutex> S(FStreamLock);
  FAllocator.Reset();
  FInput.Reset();
  FConnected.Reset();
  FType = TMediaType();
  FProps = ALLOCATOR_PROPERTIES{};
}

HRESULT TDSPushPin::ReceiveConnection(IPin*, const AM_MEDIA_TYPE*) noexcept { return E_UNEXPECTED; }

HRESULT TDSPushPin::Disconnect() noexcept {
  std::lock_guard<std::recursive_mutex> G(FLock);
  if (FFilter.GetFilterState() != State_Stopped) return VFW_E_NOT_STOPPED;
  if (!FConnected) return S_FALSE;
  if (FAllocator) FAllocator->Decommit();
  ReleaseConnection();
  return S_OK;
}

HRESULT TDSPushPin::ConnectedTo(IPin** Pin) noexcept {
  if (!Pin) return E_POINTER;
  std::lock_guard<std::recursive_mutex> G(FLock);
  *Pin = FConnected.Get();
  if (!*Pin) return VFW_E_NOT_CONNECTED;
  (*Pin)->AddRef();
  return S_OK;
}

HRESULT TDSPushPin::ConnectionMediaType(AM_MEDIA_TYPE* Type) noexcept {
  if (!Type) return E_POINTER;
  std::lock_guard<std::recursive_mutex> G(FLock);
  if (!FConnected) {
    *Type = AM_MEDIA_TYPE{};
    return VFW_E_NOT_CONNECTED;
  }
  return CopyMediaType(*Type, FType.Type) ? S_OK : E_OUTOFMEMORY;
}

HRESULT TDSPushPin::QueryPinInfo(PIN_INFO* Info) noexcept {
  if (!Info) return E_POINTER;
  Info->pFilter = &FFilter;
  FFilter.AddRef();
  Info->dir = PINDIR_OUTPUT;
  const size_t N = std::min(FName.size(), size_t(MAX_PIN_NAME - 1));
  std::memcpy(Info->achName, FName.c_str(), N * sizeof(wchar_t));
  Info->achName[N] = 0;
  return S_OK;
}

HRESULT TDSPushPin::QueryDirection(PIN_DIRECTION* Direction) noexcept {
  if (!Direction) return E_POINTER;
  *Direction = PINDIR_OUTPUT;
  return S_OK;
}

HRESULT TDSPushPin::QueryId(LPWSTR* Id) noexcept {
  if (!Id) return E_POINTER;
  const size_t Bytes = (FName.size() + 1) * sizeof(wchar_t);
  *Id = static_cast<LPWSTR>(CoTaskMemAlloc(Bytes));
  if (!*Id) return E_OUTOFMEMORY;
  std::memcpy(*Id, FName.c_str(), Bytes);
  return S_OK;
}

HRESULT TDSPushPin::QueryAccept(const AM_MEDIA_TYPE* Type) noexcept {
  if (!Type) return E_POINTER;
  return FFilter.CheckMediaType(*Type) ? S_OK : S_FALSE;
}

HRESULT TDSPushPin::EnumMediaTypes(IEnumMediaTypes** Enum) noexcept {
  if (!Enum) return E_POINTER;
  *Enum = new (std::nothrow) TEnumMediaTypes(FFilter, 0);
  return *Enum ? S_OK : E_OUTOFMEMORY;
}

HRESULT TDSPushPin::QueryInternalConnections(IPin**, ULONG*) noexcept { return E_NOTIMPL; }
HRESULT TDSPushPin::EndOfStream() noexcept { return E_UNEXPECTED; }
HRESULT TDSPushPin::BeginFlush() noexcept { return E_UNEXPECTED; }
HRESULT TDSPushPin::EndFlush() noexcept { return E_UNEXPECTED; }
HRESULT TDSPushPin::NewSegment(REFERENCE_TIME, REFERENCE_TIME, double) noexcept { return S_OK; }

bool TDSPushPin::IsConnected() const {
  std::lock_guard<std::recursive_mutex> G(FLock);
  return bool(FConnected);
}

bool TDSPushPin::GetConnectionType(TMediaType& Type) const {
  std::lock_guard<std::recursive_mutex> G(FLock);
  if (!FConnected) return false;
  Type = FType;
  return true;
}

ALLOCATOR_PROPERTIES TDSPushPin::GetAllocatorProperties() const {
  std::lock_guard<std::recursive_mutex> G(FLock);
  return FProps;
}

HRESULT TDSPushPin::Active() {
  std::lock_guard<std::recursive_mutex> G(FLock);
  FDiscontinuity = true;
  return FAllocator ? FAllocator->Commit() : S_OK;
}

void TDSPushPin::Inactive() {
  std::lock_guard<std::recursive_mutex> G(FLock);
  if (FAllocator) FAllocator->Decommit();
}

HRESULT TDSPushPin::Deliver(const BYTE* Data, size_t Size, REFERENCE_TIME Start, REFERENCE_TIME End) noexcept {
  std::lock_guard<std::mutex> S(FStreamLock);
  if (!FInput || !FAllocator) return VFW_E_NOT_CONNECTED;
  size_t Done = 0;
  do {
    TComPtr<IMediaSample> Sample;
    HRESULT R = FAllocator->GetBuffer(Sample.Put(), nullptr, nullptr, 0);
    if (FAILED(R)) return R;
    BYTE* Memory = nullptr;
    R = Sample->GetPointer(&Memory);
    if (FAILED(R)) return R;
    const long Room = Sample->GetSize();
    if (Room <= 0) return VFW_E_BUFFER_OVERFLOW;
    const size_t Part = std::min(Size - Done, size_t(Room));
    if (Part) std::memcpy(Memory, Data + Done, Part);
    Sample->SetActualDataLength(long(Part));
    // Times of a part in proportion to its bytes.
    REFERENCE_TIME PartStart = Start, PartEnd = End;
    if (Size) {
      PartStart = Start + (End - Start) * REFERENCE_TIME(Done) / REFERENCE_TIME(Size);
      PartEnd = Start + (End - Start) * REFERENCE_TIME(Done + Part) / REFERENCE_TIME(Size);
    }
    Sample->SetTime(&PartStart, &PartEnd);
    Sample->SetSyncPoint(TRUE);
    Sample->SetDiscontinuity(FDiscontinuity ? TRUE : FALSE);
    FDiscontinuity = false;
    R = FInput->Receive(Sample.Get());
    if (R != S_OK) return FAILED(R) ? R : VFW_E_WRONG_STATE;  // S_FALSE: the pin wants no more
    Done += Part;
  } while (Done < Size);
  return S_OK;
}

HRESULT TDSPushPin::DeliverEndOfStream(uint32_t TimeoutMs) noexcept {
  TComPtr<IPin> Peer;
  {
    std::lock_guard<std::recursive_mutex> G(FLock);
    Peer = FConnected;
  }
  if (!Peer) return VFW_E_NOT_CONNECTED;
  JoinEndOfStream();
  struct TCall {
    std::mutex Lock;
    std::condition_variable Done;
    bool Finished = false;
    HRESULT Result = S_OK;
  };
  auto Call = std::make_shared<TCall>();
  try {
    FEndThread = std::thread([this, Peer, Call]() mutable {
      HRESULT R;
      {
        std::lock_guard<std::mutex> S(FStreamLock);
        R = Peer->EndOfStream();
      }
      Peer.Reset();
      std::lock_guard<std::mutex> L(Call->Lock);
      Call->Finished = true;
      Call->Result = R;
      Call->Done.notify_all();
    });
  } catch (...) {
    return E_OUTOFMEMORY;
  }
  std::unique_lock<std::mutex> L(Call->Lock);
  if (!Call->Done.wait_for(L, std::chrono::milliseconds(TimeoutMs), [&] { return Call->Finished; }))
    return VFW_E_TIMEOUT;
  return Call->Result;
}

void TDSPushPin::JoinEndOfStream() noexcept {
  if (FEndThread.joinable()) FEndThread.join();
}

// ---- filter ----------------------------------------------------------------

TDSPushFilter::TDSPushFilter(const CLSID& Class, std::wstring PinName) : FClass(Class), FPin(*this, std::move(PinName)) {}

TDSPushFilter::~TDSPushFilter() = default;

HRESULT TDSPushFilter::QueryInterface(REFIID Iid, void** Out) noexcept {
  if (!Out) return E_POINTER;
  if (Iid == IID_IUnknown || Iid == IID_IPersist || Iid == IID_IMediaFilter || Iid == IID_IBaseFilter) {
    *Out = static_cast<IBaseFilter*>(this);
    AddRef();
    return S_OK;
  }
  *Out = nullptr;
  return E_NOINTERFACE;
}

ULONG TDSPushFilter::AddRef() noexcept { return ++FRefs; }

ULONG TDSPushFilter::Release() noexcept {
  const ULONG R = --FRefs;
  if (R == 0) delete this;
  return R;
}

HRESULT TDSPushFilter::GetClassID(CLSID* Class) noexcept {
  if (!Class) return E_POINTER;
  *Class = FClass;
  return S_OK;
}

HRESULT TDSPushFilter::Stop() noexcept {
  // The allocator is decommitted before the filter lock is taken, so a
  // delivery waiting for a buffer returns and lets the stop through.
  FPin.Inactive();
  // Downstream filters stop first, which ends a renderer's wait for the end
  // of stream: its sender is done or about to be.
  FPin.JoinEndOfStream();
  std::lock_guard<std::recursive_mutex> G(FLock);
  const FILTER_STATE Old = FState;
  FState = State_Stopped;
  if (Old != State_Stopped) StateChanged(Old, State_Stopped);
  return S_OK;
}

HRESULT TDSPushFilter::Pause() noexcept {
  std::lock_guard<std::recursive_mutex> G(FLock);
  const FILTER_STATE Old = FState;
  if (Old == State_Stopped) {
    const HRESULT R = FPin.Active();
    if (FAILED(R)) return R;
  }
  FState = State_Paused;
  if (Old != State_Paused) StateChanged(Old, State_Paused);
  return S_OK;
}

HRESULT TDSPushFilter::Run(REFERENCE_TIME Start) noexcept {
  std::lock_guard<std::recursive_mutex> G(FLock);
  if (FState == State_Stopped) {
    const HRESULT R = Pause();
    if (FAILED(R)) return R;
  }
  const FILTER_STATE Old = FState;
  FStart = Start;
  FState = State_Running;
  if (Old != State_Running) StateChanged(Old, State_Running);
  return S_OK;
}

HRESULT TDSPushFilter::GetState(DWORD, FILTER_STATE* State) noexcept {
  if (!State) return E_POINTER;
  std::lock_guard<std::recursive_mutex> G(FLock);
  *State = FState;
  return S_OK;
}

HRESULT TDSPushFilter::SetSyncSource(IReferenceClock* Clock) noexcept {
  std::lock_guard<std::recursive_mutex> G(FLock);
  FClock = TComPtr<IReferenceClock>(Clock);
  return S_OK;
}

HRESULT TDSPushFilter::GetSyncSource(IReferenceClock** Clock) noexcept {
  if (!Clock) return E_POINTER;
  std::lock_guard<std::recursive_mutex> G(FLock);
  *Clock = FClock.Get();
  if (*Clock) (*Clock)->AddRef();
  return S_OK;
}

HRESULT TDSPushFilter::EnumPins(IEnumPins** Enum) noexcept {
  if (!Enum) return E_POINTER;
  *Enum = new (std::nothrow) TEnumPins(&FPin, 0);
  return *Enum ? S_OK : E_OUTOFMEMORY;
}

HRESULT TDSPushFilter::FindPin(LPCWSTR Id, IPin** Pin) noexcept {
  if (!Id || !Pin) return E_POINTER;
  if (FPin.GetName() != Id) {
    *Pin = nullptr;
    return VFW_E_NOT_FOUND;
  }
  *Pin = &FPin;
  FPin.AddRef();
  return S_OK;
}

HRESULT TDSPushFilter::QueryFilterInfo(FILTER_INFO* Info) noexcept {
  if (!Info) return E_POINTER;
  std::lock_guard<std::recursive_mutex> G(FLock);
  const size_t N = std::min(FName.size(), size_t(MAX_FILTER_NAME - 1));
  std::memcpy(Info->achName, FName.c_str(), N * sizeof(wchar_t));
  Info->achName[N] = 0;
  Info->pGraph = FGraph;
  if (FGraph) FGraph->AddRef();
  return S_OK;
}

HRESULT TDSPushFilter::JoinFilterGraph(IFilterGraph* Graph, LPCWSTR Name) noexcept {
  std::lock_guard<std::recursive_mutex> G(FLock);
  FGraph = Graph;  // not counted: the graph holds the filter
  FName = Name ? Name : L"";
  return S_OK;
}

HRESULT TDSPushFilter::QueryVendorInfo(LPWSTR*) noexcept { return E_NOTIMPL; }

FILTER_STATE TDSPushFilter::GetFilterState() const {
  std::lock_guard<std::recursive_mutex> G(FLock);
  return FState;
}

IFilterGraph* TDSPushFilter::GetGraph() const {
  std::lock_guard<std::recursive_mutex> G(FLock);
  return FGraph;
}

bool TDSPushFilter::GetStreamTime(REFERENCE_TIME& Time) const {
  std::lock_guard<std::recursive_mutex> G(FLock);
  if (!FClock || FState != State_Running) return false;
  REFERENCE_TIME Now = 0;
  if (FAILED(FClock->GetTime(&Now))) return false;
  Time = Now - FStart;
  return true;
}

}  // namespace Quorvel::Dshow
