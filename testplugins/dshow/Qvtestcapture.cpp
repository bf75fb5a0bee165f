// The test capture filter: see Qvtestcapture.h for what it offers.
#include "testplugins/dshow/Qvtestcapture.h"

#include "dshow/Dspushfilter.h"

#include <olectl.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

using namespace Quorvel::Dshow;

namespace {

HMODULE GModule = nullptr;
std::atomic<long> GObjects{0}, GLocks{0};

enum TVariant {
  tvGood, tvNoNegotiation, tvNoStreamConfig, tvRefusesFormat, tvWrongType, tvNoClock, tvRefusesGraph, tvNoClass,
  tvCount
};
const wchar_t* const kNames[tvCount] = {
    L"" QVTESTCAPTURE_NAME,
    L"" QVTESTCAPTURE_NAME " (no negotiation)",
    L"" QVTESTCAPTURE_NAME " (no stream config)",
    L"" QVTESTCAPTURE_NAME " (refuses format)",
    L"" QVTESTCAPTURE_NAME " (wrong type)",
    L"" QVTESTCAPTURE_NAME " (no clock)",
    L"" QVTESTCAPTURE_NAME " (refuses graph)",
    L"" QVTESTCAPTURE_NAME " (no class)",
};
// {5E0C7A41-2D4B-4F0E-9C61-7B3A1D2E4F0n}, n the variant.
CLSID ClassId(int V) {
  return {0x5E0C7A41, 0x2D4B, 0x4F0E, {0x9C, 0x61, 0x7B, 0x3A, 0x1D, 0x2E, 0x4F, BYTE(V)}};
}

std::wstring ClassKey(int V) {
  wchar_t* Text = nullptr;
  const CLSID C = ClassId(V);
  StringFromCLSID(C, &Text);
  std::wstring Key = std::wstring(L"CLSID\\") + (Text ? Text : L"");
  CoTaskMemFree(Text);
  return Key;
}

bool SetString(HKEY Root, const std::wstring& Key, const wchar_t* Name, const wchar_t* Value) {
  HKEY K;
  if (RegCreateKeyExW(Root, Key.c_str(), 0, nullptr, 0, KEY_WRITE, nullptr, &K, nullptr) != ERROR_SUCCESS) return false;
  const LONG R = RegSetValueExW(K, Name, 0, REG_SZ, reinterpret_cast<const BYTE*>(Value),
                                DWORD((wcslen(Value) + 1) * sizeof(wchar_t)));
  RegCloseKey(K);
  return R == ERROR_SUCCESS;
}

WAVEFORMATEX Pcm(DWORD Rate, WORD Channels, WORD Bits) {
  WAVEFORMATEX F{};
  F.wFormatTag = WAVE_FORMAT_PCM;
  F.nChannels = Channels;
  F.nSamplesPerSec = Rate;
  F.wBitsPerSample = Bits;
  F.nBlockAlign = WORD(Channels * Bits / 8);
  F.nAvgBytesPerSec = Rate * F.nBlockAlign;
  return F;
}

class TCaptureFilter;

// The pin's extra interfaces: identity and counting belong to the pin.
class TStreamConfig final : public IAMStreamConfig {
 public:
  explicit TStreamConfig(TCaptureFilter& F) : FFilter(F) {}
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID Iid, void** Out) noexcept override;
  ULONG STDMETHODCALLTYPE AddRef() noexcept override;
  ULONG STDMETHODCALLTYPE Release() noexcept override;
  HRESULT STDMETHODCALLTYPE SetFormat(AM_MEDIA_TYPE* Type) noexcept override;
  HRESULT STDMETHODCALLTYPE GetFormat(AM_MEDIA_TYPE** Type) noexcept override;
  HRESULT STDMETHODCALLTYPE GetNumberOfCapabilities(int* Count, int* Size) noexcept override {
    if (!Count || !Size) return E_POINTER;
    *Count = 1;
    *Size = sizeof(AUDIO_STREAM_CONFIG_CAPS);
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetStreamCaps(int Index, AM_MEDIA_TYPE** Type, BYTE* Caps) noexcept override;

 private:
  TCaptureFilter& FFilter;
};

class TNegotiation final : public IAMBufferNegotiation {
 public:
  explicit TNegotiation(TCaptureFilter& F) : FFilter(F) {}
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID Iid, void** Out) noexcept override;
  ULONG STDMETHODCALLTYPE AddRef() noexcept override;
  ULONG STDMETHODCALLTYPE Release() noexcept override;
  HRESULT STDMETHODCALLTYPE SuggestAllocatorProperties(const ALLOCATOR_PROPERTIES* Props) noexcept override;
  HRESULT STDMETHODCALLTYPE GetAllocatorProperties(ALLOCATOR_PROPERTIES* Props) noexcept override;

 private:
  TCaptureFilter& FFilter;
};

class TPinCategory final : public IKsPropertySet {
 public:
  explicit TPinCategory(TCaptureFilter& F) : FFilter(F) {}
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID Iid, void** Out) noexcept override;
  ULONG STDMETHODCALLTYPE AddRef() noexcept override;
  ULONG STDMETHODCALLTYPE Release() noexcept override;
  HRESULT STDMETHODCALLTYPE Set(REFGUID, DWORD, void*, DWORD, void*, DWORD) noexcept override {
    return E_PROP_ID_UNSUPPORTED;
  }
  HRESULT STDMETHODCALLTYPE Get(REFGUID Set, DWORD Id, void*, DWORD, void* Data, DWORD DataLength,
                                DWORD* Returned) noexcept override {
    if (Set != AMPROPSETID_Pin) return E_PROP_SET_UNSUPPORTED;
    if (Id != AMPROPERTY_PIN_CATEGORY) return E_PROP_ID_UNSUPPORTED;
    if (!Data && !Returned) return E_POINTER;
    if (Returned) *Returned = sizeof(GUID);
    if (!Data) return S_OK;
    if (DataLength < sizeof(GUID)) return E_UNEXPECTED;
    std::memcpy(Data, &PIN_CATEGORY_CAPTURE, sizeof(GUID));
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE QuerySupported(REFGUID Set, DWORD Id, DWORD* Support) noexcept override {
    if (Set != AMPROPSETID_Pin) return E_PROP_SET_UNSUPPORTED;
    if (Id != AMPROPERTY_PIN_CATEGORY) return E_PROP_ID_UNSUPPORTED;
    if (Support) *Support = KSPROPERTY_SUPPORT_GET;
    return S_OK;
  }

 private:
  TCaptureFilter& FFilter;
};

// The format tag of the "wrong type" variant: no codec or converter knows it.
constexpr WORD WrongTag = 0x2222;

class TCaptureFilter final : public TDSPushFilter {
 public:
  explicit TCaptureFilter(TVariant Variant)
      : TDSPushFilter(ClassId(Variant), L"Capture"), FVariant(Variant), FConfig(*this), FNegotiation(*this),
        FCategory(*this) {
    FFormat.Format = Pcm(44100, 2, 16);
    ++GObjects;
  }
  ~TCaptureFilter() override {
    EndThread();
    --GObjects;
  }

  HRESULT STDMETHODCALLTYPE SetSyncSource(IReferenceClock* Clock) noexcept override {
    if (FVariant == tvNoClock && Clock) return E_FAIL;
    return TDSPushFilter::SetSyncSource(Clock);
  }
  HRESULT STDMETHODCALLTYPE JoinFilterGraph(IFilterGraph* Graph, LPCWSTR Name) noexcept override {
    if (FVariant == tvRefusesGraph && Graph) return E_FAIL;
    return TDSPushFilter::JoinFilterGraph(Graph, Name);
  }

  bool GetMediaType(int Index, TMediaType& Type) override {
    if (Index != 0) return false;
    std::lock_guard<std::recursive_mutex> G(FLock);
    WAVEFORMATEXTENSIBLE F = FFormat;
    if (FVariant == tvWrongType) F.Format = Pcm(F.Format.nSamplesPerSec, F.Format.nChannels, F.Format.wBitsPerSample),
                                 F.Format.wFormatTag = WrongTag;
    return MakeAudioMediaType(F.Format, Type);
  }
  bool CheckMediaType(const AM_MEDIA_TYPE& Type) override {
    TMediaType Mine;
    if (!GetMediaType(0, Mine)) return false;
    const WAVEFORMATEX* W = WaveFormatOf(Type);
    const WAVEFORMATEX* M = WaveFormatOf(Mine.Type);
    return Type.majortype == MEDIATYPE_Audio && W && M && W->wFormatTag == M->wFormatTag &&
           W->nChannels == M->nChannels && W->nSamplesPerSec == M->nSamplesPerSec &&
           W->wBitsPerSample == M->wBitsPerSample;
  }
  void DecideBufferSize(const AM_MEDIA_TYPE& Type, const ALLOCATOR_PROPERTIES& Request,
                        ALLOCATOR_PROPERTIES& Props) override {
    const WAVEFORMATEX* W = WaveFormatOf(Type);
    const long Align = W && W->nBlockAlign ? W->nBlockAlign : 1;
    std::lock_guard<std::recursive_mutex> G(FLock);
    Props.cBuffers = FSuggested.cBuffers > 0 ? FSuggested.cBuffers : std::max<long>(4, Request.cBuffers);
    Props.cbBuffer = FSuggested.cbBuffer > 0 ? FSuggested.cbBuffer : 441 * Align;
    Props.cbBuffer = std::max(Props.cbBuffer, Request.cbBuffer) / Align * Align;
    if (Props.cbBuffer <= 0) Props.cbBuffer = Align;
    Props.cbAlign = 1;
    Props.cbPrefix = 0;
  }
  HRESULT QueryPinInterface(REFIID Iid, void** Out) override {
    if (Iid == IID_IAMStreamConfig && FVariant != tvNoStreamConfig) {
      *Out = static_cast<IAMStreamConfig*>(&FConfig);
    } else if (Iid == IID_IAMBufferNegotiation && FVariant != tvNoNegotiation) {
      *Out = static_cast<IAMBufferNegotiation*>(&FNegotiation);
    } else if (Iid == IID_IKsPropertySet) {
      *Out = static_cast<IKsPropertySet*>(&FCategory);
    } else {
      return E_NOINTERFACE;
    }
    AddRef();
    return S_OK;
  }
  void StateChanged(FILTER_STATE Old, FILTER_STATE New) override {
    if (New == State_Running && !FThread.joinable()) {
      FEnd = false;
      FThread = std::thread([this] { Produce(); });
    } else if (New != State_Running) {
      EndThread();
    }
  }

  // IAMStreamConfig
  HRESULT SetFormat(const AM_MEDIA_TYPE* Type) {
    if (!Type) return E_POINTER;
    if (FVariant == tvRefusesFormat) return VFW_E_INVALIDMEDIATYPE;
    const WAVEFORMATEX* W = WaveFormatOf(*Type);
    // Integer PCM, as a plain header or as the extensible record.
    const bool Extensible = W && W->wFormatTag == WAVE_FORMAT_EXTENSIBLE && W->cbSize >= 22 &&
                            Type->cbFormat >= sizeof(WAVEFORMATEXTENSIBLE) &&
                            reinterpret_cast<const WAVEFORMATEXTENSIBLE*>(W)->SubFormat == MEDIASUBTYPE_PCM;
    if (Type->majortype != MEDIATYPE_Audio || !W || (W->wFormatTag != WAVE_FORMAT_PCM && !Extensible))
      return VFW_E_INVALIDMEDIATYPE;
    const WORD Bits = W->wBitsPerSample;
    if ((Bits != 8 && Bits != 16 && Bits != 24 && Bits != 32) || W->nChannels < 1 || W->nChannels > 8 ||
        W->nSamplesPerSec < 1000 || W->nSamplesPerSec > 192000)
      return VFW_E_INVALIDMEDIATYPE;
    if (GetFilterState() != State_Stopped) return VFW_E_NOT_STOPPED;
    if (GetPin().IsConnected()) return VFW_E_ALREADY_CONNECTED;
    std::lock_guard<std::recursive_mutex> G(FLock);
    FFormat = WAVEFORMATEXTENSIBLE{};
    std::memcpy(&FFormat, W, Extensible ? sizeof(WAVEFORMATEXTENSIBLE) : sizeof(WAVEFORMATEX));
    if (!Extensible) FFormat.Format.cbSize = 0;
    return S_OK;
  }
  HRESULT GetFormat(AM_MEDIA_TYPE** Type) {
    if (!Type) return E_POINTER;
    TMediaType T;
    if (!GetMediaType(0, T)) return E_FAIL;
    *Type = CreateMediaType(T.Type);
    return *Type ? S_OK : E_OUTOFMEMORY;
  }
  HRESULT GetStreamCaps(int Index, AM_MEDIA_TYPE** Type, BYTE* Caps) {
    if (!Type || !Caps) return E_POINTER;
    if (Index != 0) return S_FALSE;
    auto* C = reinterpret_cast<AUDIO_STREAM_CONFIG_CAPS*>(Caps);
    *C = AUDIO_STREAM_CONFIG_CAPS{};
    C->guid = MEDIATYPE_Audio;
    C->MinimumChannels = 1;
    C->MaximumChannels = 8;
    C->ChannelsGranularity = 1;
    C->MinimumBitsPerSample = 8;
    C->MaximumBitsPerSample = 32;
    C->BitsPerSampleGranularity = 8;
    C->MinimumSampleFrequency = 1000;
    C->MaximumSampleFrequency = 192000;
    C->SampleFrequencyGranularity = 1;
    return GetFormat(Type);
  }
  // IAMBufferNegotiation
  HRESULT Suggest(const ALLOCATOR_PROPERTIES* Props) {
    if (!Props) return E_POINTER;
    std::lock_guard<std::recursive_mutex> G(FLock);
    FSuggested = *Props;
    return S_OK;
  }
  HRESULT GetProperties(ALLOCATOR_PROPERTIES* Props) {
    if (!Props) return E_POINTER;
    if (!GetPin().IsConnected()) return VFW_E_NOT_CONNECTED;
    *Props = GetPin().GetAllocatorProperties();
    return S_OK;
  }

 private:
  void EndThread() {
    FEnd = true;
    if (FThread.joinable()) FThread.join();
  }
  // Delivers the signal until the frames are out or the graph leaves running.
  void Produce() {
    TMediaType Type;
    if (!GetPin().GetConnectionType(Type)) return;
    const WAVEFORMATEX* W = WaveFormatOf(Type.Type);
    if (!W || !W->nBlockAlign) return;
    const size_t Frame = W->nBlockAlign, Bytes = W->wBitsPerSample / 8;
    const size_t PerBuffer = std::max<size_t>(1, size_t(GetPin().GetAllocatorProperties().cbBuffer) / Frame);
    std::vector<BYTE> Data(PerBuffer * Frame);
    uint64_t N = 0;
    while (!FEnd && N < QVTESTCAPTURE_FRAMES) {
      const size_t Count = size_t(std::min<uint64_t>(PerBuffer, QVTESTCAPTURE_FRAMES - N));
      for (size_t I = 0; I < Count; ++I) {
        for (unsigned C = 0; C < W->nChannels; ++C) {
          int32_t V = QvTestCaptureValue(N + I, C, W->wBitsPerSample);
          if (W->wBitsPerSample == 8) V += 128;
          std::memcpy(&Data[I * Frame + C * Bytes], &V, Bytes);  // little-endian: the low bytes
        }
      }
      const REFERENCE_TIME Start = REFERENCE_TIME(N) * 10000000 / W->nSamplesPerSec;
      const REFERENCE_TIME End = REFERENCE_TIME(N + Count) * 10000000 / W->nSamplesPerSec;
      if (GetPin().Deliver(Data.data(), Count * Frame, Start, End) != S_OK) return;
      N += Count;
    }
    if (!FEnd) GetPin().DeliverEndOfStream();
  }

  friend class TStreamConfig;
  friend class TNegotiation;
  TVariant FVariant;
  TStreamConfig FConfig;
  TNegotiation FNegotiation;
  TPinCategory FCategory;
  WAVEFORMATEXTENSIBLE FFormat{};  // a plain header when cbSize is 0
  ALLOCATOR_PROPERTIES FSuggested{};
  std::atomic<bool> FEnd{false};
  std::thread FThread;
};

HRESULT TStreamConfig::QueryInterface(REFIID Iid, void** Out) noexcept { return FFilter.GetPin().QueryInterface(Iid, Out); }
ULONG TStreamConfig::AddRef() noexcept { return FFilter.AddRef(); }
ULONG TStreamConfig::Release() noexcept { return FFilter.Release(); }
HRESULT TStreamConfig::SetFormat(AM_MEDIA_TYPE* Type) noexcept { return FFilter.SetFormat(Type); }
HRESULT TStreamConfig::GetFormat(AM_MEDIA_TYPE** Type) noexcept { return FFilter.GetFormat(Type); }
HRESULT TStreamConfig::GetStreamCaps(int Index, AM_MEDIA_TYPE** Type, BYTE* Caps) noexcept {
  return FFilter.GetStreamCaps(Index, Type, Caps);
}
HRESULT TNegotiation::QueryInterface(REFIID Iid, void** Out) noexcept { return FFilter.GetPin().QueryInterface(Iid, Out); }
ULONG TNegotiation::AddRef() noexcept { return FFilter.AddRef(); }
ULONG TNegotiation::Release() noexcept { return FFilter.Release(); }
HRESULT TNegotiation::SuggestAllocatorProperties(const ALLOCATOR_PROPERTIES* Props) noexcept {
  return FFilter.Suggest(Props);
}
HRESULT TNegotiation::GetAllocatorProperties(ALLOCATOR_PROPERTIES* Props) noexcept {
  return FFilter.GetProperties(Props);
}
HRESULT TPinCategory::QueryInterface(REFIID Iid, void** Out) noexcept { return FFilter.GetPin().QueryInterface(Iid, Out); }
ULONG TPinCategory::AddRef() noexcept { return FFilter.AddRef(); }
ULONG TPinCategory::Release() noexcept { return FFilter.Release(); }

class TFactory final : public IClassFactory {
 public:
  explicit TFactory(TVariant Variant) : FVariant(Variant) {}
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID Iid, void** Out) noexcept override {
    if (!Out) return E_POINTER;
    if (Iid != IID_IUnknown && Iid != IID_IClassFactory) {
      *Out = nullptr;
      return E_NOINTERFACE;
    }
    *Out = static_cast<IClassFactory*>(this);
    AddRef();
    return S_OK;
  }
  ULONG STDMETHODCALLTYPE AddRef() noexcept override { return 2; }   // static objects
  ULONG STDMETHODCALLTYPE Release() noexcept override { return 1; }
  HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* Outer, REFIID Iid, void** Out) noexcept override {
    if (!Out) return E_POINTER;
    *Out = nullptr;
    if (Outer) return CLASS_E_NOAGGREGATION;
    auto* F = new (std::nothrow) TCaptureFilter(FVariant);
    if (!F) return E_OUTOFMEMORY;
    const HRESULT R = F->QueryInterface(Iid, Out);
    F->Release();
    return R;
  }
  HRESULT STDMETHODCALLTYPE LockServer(BOOL Lock) noexcept override {
    Lock ? ++GLocks : --GLocks;
    return S_OK;
  }

 private:
  TVariant FVariant;
};

TFactory GFactories[tvCount] = {TFactory(tvGood),      TFactory(tvNoNegotiation), TFactory(tvNoStreamConfig),
                                TFactory(tvRefusesFormat), TFactory(tvWrongType), TFactory(tvNoClock),
                                TFactory(tvRefusesGraph),  TFactory(tvNoClass)};

}  // namespace

extern "C" BOOL WINAPI DllMain(HINSTANCE Instance, DWORD Reason, LPVOID) {
  if (Reason == DLL_PROCESS_ATTACH) {
    GModule = Instance;
    DisableThreadLibraryCalls(Instance);
  }
  return TRUE;
}

STDAPI DllGetClassObject(REFCLSID Class, REFIID Iid, void** Out) {
  if (!Out) return E_POINTER;
  *Out = nullptr;
  // The "no class" variant is registered but never made.
  for (int V = 0; V < tvNoClass; ++V)
    if (Class == ClassId(V)) return GFactories[V].QueryInterface(Iid, Out);
  return CLASS_E_CLASSNOTAVAILABLE;
}

STDAPI DllCanUnloadNow() { return GObjects == 0 && GLocks == 0 ? S_OK : S_FALSE; }

STDAPI DllRegisterServer() {
  wchar_t Path[MAX_PATH];
  const DWORD N = GetModuleFileNameW(GModule, Path, MAX_PATH);
  if (N == 0 || N >= MAX_PATH) return SELFREG_E_CLASS;
  const bool Com = SUCCEEDED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED));
  HRESULT Result = S_OK;
  TComPtr<IFilterMapper2> Mapper;
  if (FAILED(CoCreateInstance(CLSID_FilterMapper2, nullptr, CLSCTX_INPROC_SERVER, IID_IFilterMapper2,
                              Mapper.PutVoid())))
    Result = SELFREG_E_CLASS;
  REGPINTYPES Types = {&MEDIATYPE_Audio, &MEDIASUBTYPE_PCM};
  REGFILTERPINS2 Pin{};
  Pin.dwFlags = REG_PINFLAG_B_OUTPUT;
  Pin.cInstances = 1;
  Pin.nMediaTypes = 1;
  Pin.lpMediaType = &Types;
  Pin.clsPinCategory = &PIN_CATEGORY_CAPTURE;
  REGFILTER2 Filter{};
  Filter.dwVersion = 2;
  Filter.dwMerit = MERIT_DO_NOT_USE;
  Filter.cPins2 = 1;
  Filter.rgPins2 = &Pin;
  for (int V = 0; V < tvCount && SUCCEEDED(Result); ++V) {
    const std::wstring Server = ClassKey(V) + L"\\InprocServer32";
    if (!SetString(HKEY_CLASSES_ROOT, ClassKey(V), nullptr, kNames[V]) ||
        !SetString(HKEY_CLASSES_ROOT, Server, nullptr, Path) ||
        !SetString(HKEY_CLASSES_ROOT, Server, L"ThreadingModel", L"Both") ||
        FAILED(Mapper->RegisterFilter(ClassId(V), kNames[V], nullptr, &CLSID_AudioInputDeviceCategory, kNames[V],
                                      &Filter)))
      Result = SELFREG_E_CLASS;
  }
  Mapper.Reset();
  if (Com) CoUninitialize();
  return Result;
}

STDAPI DllUnregisterServer() {
  const bool Com = SUCCEEDED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED));
  bool Ok = true;
  TComPtr<IFilterMapper2> Mapper;
  if (SUCCEEDED(CoCreateInstance(CLSID_FilterMapper2, nullptr, CLSCTX_INPROC_SERVER, IID_IFilterMapper2,
                                 Mapper.PutVoid()))) {
    for (int V = 0; V < tvCount; ++V)
      Ok = SUCCEEDED(Mapper->UnregisterFilter(&CLSID_AudioInputDeviceCategory, kNames[V], ClassId(V))) && Ok;
  }
  for (int V = 0; V < tvCount; ++V) Ok = RegDeleteTreeW(HKEY_CLASSES_ROOT, ClassKey(V).c_str()) == ERROR_SUCCESS && Ok;
  Mapper.Reset();
  if (Com) CoUninitialize();
  return Ok ? S_OK : SELFREG_E_CLASS;
}
