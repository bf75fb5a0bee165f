// The test DMO (Qvtestdmo.h): a COM in-process server with three classes.
#include "testplugins/dmo/Qvtestdmo.h"

// clang-format off
#include <windows.h>
#include <olectl.h>
#include <mmreg.h>
#include <dmo.h>
#include <dmoreg.h>
#include <medparam.h>
#include <uuids.h>
// clang-format on

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>
#include <mutex>
#include <new>
#include <string>

namespace {

// Stream information flags (the SDK headers at hand lack them): whole
// samples (1) of a fixed size (4), for inputs and outputs alike.
constexpr DWORD kStreamWholeFixedSamples = 0x1 | 0x4;

enum TVariant { tvMain, tvTwoStreams, tvFailingTypes, tvCount };

// {5A1C3E70-9B2D-4F4E-8C61-0D7E2B9A4101} and the next two.
const CLSID kClassIds[tvCount] = {
    {0x5a1c3e70, 0x9b2d, 0x4f4e, {0x8c, 0x61, 0x0d, 0x7e, 0x2b, 0x9a, 0x41, 0x01}},
    {0x5a1c3e70, 0x9b2d, 0x4f4e, {0x8c, 0x61, 0x0d, 0x7e, 0x2b, 0x9a, 0x41, 0x02}},
    {0x5a1c3e70, 0x9b2d, 0x4f4e, {0x8c, 0x61, 0x0d, 0x7e, 0x2b, 0x9a, 0x41, 0x03}},
};
const wchar_t* const kNames[tvCount] = {L"" QVTESTDMO_NAME, L"" QVTESTDMO_TWO_STREAMS_NAME,
                                        L"" QVTESTDMO_FAILING_TYPES_NAME};

HMODULE GModule = nullptr;
std::atomic<long> GLocks{0};
std::mutex GStateLock;
QvTestDmoState GState = {};

template <typename F>
void WithState(F&& Change) {
  std::lock_guard<std::mutex> G(GStateLock);
  Change(GState);
}

// The offered types in order; rate 0 is the type without a wave format.
struct TTypeShape {
  DWORD Rate;
  WORD Channels;
};
const TTypeShape kTypes[] = {{44100, 2}, {0, 0}, {48000, 2}, {48000, 1}};
constexpr DWORD kTypeCount = 4;
constexpr DWORD kMaxFramesPerCall = 256;

WAVEFORMATEX WaveFormat(const TTypeShape& T) {
  WAVEFORMATEX F = {};
  F.wFormatTag = WAVE_FORMAT_PCM;
  F.nChannels = T.Channels;
  F.nSamplesPerSec = T.Rate;
  F.wBitsPerSample = 16;
  F.nBlockAlign = WORD(T.Channels * 2);
  F.nAvgBytesPerSec = T.Rate * F.nBlockAlign;
  return F;
}

HRESULT FillType(DWORD Index, DMO_MEDIA_TYPE* Type) {
  if (Index >= kTypeCount) return DMO_E_NO_MORE_ITEMS;
  if (!Type) return S_OK;
  std::memset(Type, 0, sizeof *Type);
  Type->majortype = MEDIATYPE_Audio;
  Type->subtype = MEDIASUBTYPE_PCM;
  Type->bFixedSizeSamples = TRUE;
  Type->lSampleSize = kTypes[Index].Channels * 2;
  if (kTypes[Index].Rate == 0) {
    Type->formattype = FORMAT_None;
    return S_OK;
  }
  Type->formattype = FORMAT_WaveFormatEx;
  Type->cbFormat = sizeof(WAVEFORMATEX);
  Type->pbFormat = static_cast<BYTE*>(CoTaskMemAlloc(sizeof(WAVEFORMATEX)));
  if (!Type->pbFormat) return E_OUTOFMEMORY;
  const WAVEFORMATEX F = WaveFormat(kTypes[Index]);
  std::memcpy(Type->pbFormat, &F, sizeof F);
  return S_OK;
}

// The offered shape that Type is, or -1.
int MatchType(const DMO_MEDIA_TYPE* Type) {
  if (!Type || Type->majortype != MEDIATYPE_Audio || Type->subtype != MEDIASUBTYPE_PCM ||
      Type->formattype != FORMAT_WaveFormatEx || Type->cbFormat < sizeof(WAVEFORMATEX) || !Type->pbFormat)
    return -1;
  const auto* F = reinterpret_cast<const WAVEFORMATEX*>(Type->pbFormat);
  for (DWORD I = 0; I < kTypeCount; ++I)
    if (kTypes[I].Rate && F->wFormatTag == WAVE_FORMAT_PCM && F->nSamplesPerSec == kTypes[I].Rate &&
        F->nChannels == kTypes[I].Channels && F->wBitsPerSample == 16)
      return int(I);
  return -1;
}

class TTestDmo final : public IMediaObject, public IMediaObjectInPlace, public IMediaParams {
 public:
  explicit TTestDmo(TVariant Variant) : FVariant(Variant) {
    WithState([](QvTestDmoState& S) { ++S.Objects; });
  }
  ~TTestDmo() {
    if (FInput) FInput->Release();
    WithState([](QvTestDmoState& S) { --S.Objects; });
  }

  // IUnknown
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID Iid, void** Out) override {
    if (!Out) return E_POINTER;
    if (Iid == IID_IUnknown || Iid == IID_IMediaObject)
      *Out = static_cast<IMediaObject*>(this);
    else if (Iid == IID_IMediaObjectInPlace)
      *Out = static_cast<IMediaObjectInPlace*>(this);
    else if (Iid == IID_IMediaParams)
      *Out = static_cast<IMediaParams*>(this);
    else {
      *Out = nullptr;
      return E_NOINTERFACE;
    }
    AddRef();
    return S_OK;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ULONG(++FRefs); }
  ULONG STDMETHODCALLTYPE Release() override {
    const long N = --FRefs;
    if (N == 0) delete this;
    return ULONG(N);
  }

  // IMediaObject
  HRESULT STDMETHODCALLTYPE GetStreamCount(DWORD* Inputs, DWORD* Outputs) override {
    if (!Inputs || !Outputs) return E_POINTER;
    *Inputs = FVariant == tvTwoStreams ? 2 : 1;
    *Outputs = 1;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetInputStreamInfo(DWORD Stream, DWORD* Flags) override {
    if (!Flags) return E_POINTER;
    if (!ValidInput(Stream)) return DMO_E_INVALIDSTREAMINDEX;
    *Flags = kStreamWholeFixedSamples;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetOutputStreamInfo(DWORD Stream, DWORD* Flags) override {
    if (!Flags) return E_POINTER;
    if (Stream != 0) return DMO_E_INVALIDSTREAMINDEX;
    *Flags = kStreamWholeFixedSamples;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetInputType(DWORD Stream, DWORD Index, DMO_MEDIA_TYPE* Type) override {
    return ValidInput(Stream) ? FillType(Index, Type) : DMO_E_INVALIDSTREAMINDEX;
  }
  HRESULT STDMETHODCALLTYPE GetOutputType(DWORD Stream, DWORD Index, DMO_MEDIA_TYPE* Type) override {
    return Stream == 0 ? FillType(Index, Type) : DMO_E_INVALIDSTREAMINDEX;
  }
  HRESULT STDMETHODCALLTYPE SetInputType(DWORD Stream, const DMO_MEDIA_TYPE* Type, DWORD Flags) override {
    if (!ValidInput(Stream)) return DMO_E_INVALIDSTREAMINDEX;
    return SetType(FIn, Type, Flags);
  }
  HRESULT STDMETHODCALLTYPE SetOutputType(DWORD Stream, const DMO_MEDIA_TYPE* Type, DWORD Flags) override {
    if (Stream != 0) return DMO_E_INVALIDSTREAMINDEX;
    return SetType(FOut, Type, Flags);
  }
  HRESULT STDMETHODCALLTYPE GetInputCurrentType(DWORD Stream, DMO_MEDIA_TYPE* Type) override {
    if (!ValidInput(Stream)) return DMO_E_INVALIDSTREAMINDEX;
    return FIn < 0 ? DMO_E_TYPE_NOT_SET : FillType(DWORD(FIn), Type);
  }
  HRESULT STDMETHODCALLTYPE GetOutputCurrentType(DWORD Stream, DMO_MEDIA_TYPE* Type) override {
    if (Stream != 0) return DMO_E_INVALIDSTREAMINDEX;
    return FOut < 0 ? DMO_E_TYPE_NOT_SET : FillType(DWORD(FOut), Type);
  }
  HRESULT STDMETHODCALLTYPE GetInputSizeInfo(DWORD Stream, DWORD* Size, DWORD* Lookahead, DWORD* Alignment) override {
    if (!Size || !Lookahead || !Alignment) return E_POINTER;
    if (!ValidInput(Stream)) return DMO_E_INVALIDSTREAMINDEX;
    if (FIn < 0) return DMO_E_TYPE_NOT_SET;
    *Size = kTypes[FIn].Channels * 2;
    *Lookahead = 0;
    *Alignment = 1;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetOutputSizeInfo(DWORD Stream, DWORD* Size, DWORD* Alignment) override {
    if (!Size || !Alignment) return E_POINTER;
    if (Stream != 0) return DMO_E_INVALIDSTREAMINDEX;
    if (FOut < 0) return DMO_E_TYPE_NOT_SET;
    *Size = kTypes[FOut].Channels * 2;
    *Alignment = 1;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetInputMaxLatency(DWORD, REFERENCE_TIME* Latency) override {
    if (!Latency) return E_POINTER;
    *Latency = 0;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE SetInputMaxLatency(DWORD, REFERENCE_TIME) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE Flush() override {
    DropInput();
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE Discontinuity(DWORD Stream) override {
    return ValidInput(Stream) ? S_OK : DMO_E_INVALIDSTREAMINDEX;
  }
  HRESULT STDMETHODCALLTYPE AllocateStreamingResources() override { return S_OK; }
  HRESULT STDMETHODCALLTYPE FreeStreamingResources() override { return S_OK; }
  HRESULT STDMETHODCALLTYPE GetInputStatus(DWORD Stream, DWORD* Flags) override {
    if (!Flags) return E_POINTER;
    if (!ValidInput(Stream)) return DMO_E_INVALIDSTREAMINDEX;
    *Flags = FInput ? 0 : DMO_INPUT_STATUSF_ACCEPT_DATA;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE ProcessInput(DWORD Stream, IMediaBuffer* Buffer, DWORD, REFERENCE_TIME,
                                         REFERENCE_TIME) override {
    if (!Buffer) return E_POINTER;
    if (!ValidInput(Stream)) return DMO_E_INVALIDSTREAMINDEX;
    if (FIn < 0 || FOut < 0) return DMO_E_TYPE_NOT_SET;
    if (FInput) return DMO_E_NOTACCEPTING;
    BYTE* Data = nullptr;
    DWORD Length = 0;
    if (FAILED(Buffer->GetBufferAndLength(&Data, &Length))) return E_FAIL;
    if (Length == 0) return S_FALSE;
    Buffer->AddRef();
    FInput = Buffer;
    FInData = Data;
    FInLength = Length;
    FInUsed = 0;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE ProcessOutput(DWORD, DWORD Count, DMO_OUTPUT_DATA_BUFFER* Buffers,
                                          DWORD* Status) override {
    if (!Buffers || !Status || Count != 1) return E_INVALIDARG;
    *Status = 0;
    Buffers[0].dwStatus = 0;
    WithState([](QvTestDmoState& S) { ++S.ProcessOutputCalls; });
    if (!FInput) return S_FALSE;
    if (!Buffers[0].pBuffer) return E_POINTER;
    BYTE* Out = nullptr;
    DWORD Used = 0, Max = 0;
    if (FAILED(Buffers[0].pBuffer->GetBufferAndLength(&Out, &Used)) || FAILED(Buffers[0].pBuffer->GetMaxLength(&Max)))
      return E_FAIL;
    const unsigned InChannels = kTypes[FIn].Channels, OutChannels = kTypes[FOut].Channels;
    const DWORD InFrames = (FInLength - FInUsed) / (InChannels * 2);
    const DWORD Room = (Max - std::min(Used, Max)) / (OutChannels * 2);
    const DWORD Frames = std::min({InFrames, Room, kMaxFramesPerCall});
    const auto* In = reinterpret_cast<const int16_t*>(FInData + FInUsed);
    auto* Dest = reinterpret_cast<int16_t*>(Out + Used);
    for (DWORD F = 0; F < Frames; ++F)
      for (unsigned C = 0; C < OutChannels; ++C)
        Dest[F * OutChannels + C] = Scale(In[F * InChannels + std::min(C, InChannels - 1)]);
    Buffers[0].pBuffer->SetLength(Used + Frames * OutChannels * 2);
    FInUsed += Frames * InChannels * 2;
    if ((FInLength - FInUsed) / (InChannels * 2) > 0) {
      Buffers[0].dwStatus = DMO_OUTPUT_DATA_BUFFERF_INCOMPLETE;
      WithState([](QvTestDmoState& S) { ++S.IncompleteAnswers; });
    } else {
      DropInput();
    }
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE Lock(LONG) override { return S_OK; }

  // IMediaObjectInPlace
  HRESULT STDMETHODCALLTYPE Process(ULONG Size, BYTE* Data, REFERENCE_TIME, DWORD) override {
    if (!Data && Size) return E_POINTER;
    auto* Samples = reinterpret_cast<int16_t*>(Data);
    for (ULONG I = 0; I < Size / 2; ++I) Samples[I] = Scale(Samples[I]);
    WithState([](QvTestDmoState& S) { ++S.InPlaceCalls; });
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE Clone(IMediaObjectInPlace** Copy) override {
    if (!Copy) return E_POINTER;
    auto* Dmo = new (std::nothrow) TTestDmo(FVariant);
    if (!Dmo) return E_OUTOFMEMORY;
    Dmo->FIn = FIn;
    Dmo->FOut = FOut;
    Dmo->FGain = FGain;
    *Copy = static_cast<IMediaObjectInPlace*>(Dmo);
    Dmo->AddRef();
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetLatency(REFERENCE_TIME* Latency) override {
    if (!Latency) return E_POINTER;
    *Latency = 0;
    return S_OK;
  }

  // IMediaParams: parameter 0 is the gain (0..2).
  HRESULT STDMETHODCALLTYPE GetParam(DWORD Index, MP_DATA* Value) override {
    if (!Value) return E_POINTER;
    if (Index != 0) return E_INVALIDARG;
    *Value = FGain;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE SetParam(DWORD Index, MP_DATA Value) override {
    if (Index != 0 || !(Value >= 0 && Value <= 2)) return E_INVALIDARG;
    FGain = Value;
    WithState([Value](QvTestDmoState& S) {
      ++S.SetParamCalls;
      S.LastParamValue = Value;
    });
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE AddEnvelope(DWORD, DWORD, MP_ENVELOPE_SEGMENT*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE FlushEnvelope(DWORD, REFERENCE_TIME, REFERENCE_TIME) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE SetTimeFormat(GUID Format, MP_TIMEDATA Unit) override {
    WithState([&](QvTestDmoState& S) {
      ++S.TimeFormatCalls;
      std::memcpy(S.LastTimeFormat, &Format, 16);
      S.LastTimeUnit = Unit;
    });
    return S_OK;
  }

 private:
  bool ValidInput(DWORD Stream) const { return Stream < (FVariant == tvTwoStreams ? 2u : 1u); }
  HRESULT SetType(int& Slot, const DMO_MEDIA_TYPE* Type, DWORD Flags) {
    if (Flags & DMO_SET_TYPEF_CLEAR) {
      Slot = -1;
      return S_OK;
    }
    const int Match = MatchType(Type);
    if (Match < 0 || FVariant == tvFailingTypes) return DMO_E_TYPE_NOT_ACCEPTED;
    if (!(Flags & DMO_SET_TYPEF_TEST_ONLY)) Slot = Match;
    return S_OK;
  }
  int16_t Scale(int16_t V) const {
    const long S = std::lround(double(V) * FGain);
    return int16_t(std::clamp<long>(S, -32768, 32767));
  }
  void DropInput() {
    if (FInput) FInput->Release();
    FInput = nullptr;
    FInLength = FInUsed = 0;
  }

  std::atomic<long> FRefs{0};
  TVariant FVariant;
  int FIn = -1, FOut = -1;
  float FGain = 0.5f;
  IMediaBuffer* FInput = nullptr;
  BYTE* FInData = nullptr;
  DWORD FInLength = 0, FInUsed = 0;
};

class TFactory final : public IClassFactory {
 public:
  explicit TFactory(TVariant Variant) : FVariant(Variant) {}
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID Iid, void** Out) override {
    if (!Out) return E_POINTER;
    if (Iid != IID_IUnknown && Iid != IID_IClassFactory) {
      *Out = nullptr;
      return E_NOINTERFACE;
    }
    *Out = this;
    AddRef();
    return S_OK;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return 2; }   // static objects
  ULONG STDMETHODCALLTYPE Release() override { return 1; }
  HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* Outer, REFIID Iid, void** Out) override {
    if (!Out) return E_POINTER;
    *Out = nullptr;
    if (Outer) return CLASS_E_NOAGGREGATION;
    auto* Dmo = new (std::nothrow) TTestDmo(FVariant);
    if (!Dmo) return E_OUTOFMEMORY;
    Dmo->AddRef();
    const HRESULT Result = static_cast<IMediaObject*>(Dmo)->QueryInterface(Iid, Out);
    static_cast<IMediaObject*>(Dmo)->Release();
    return Result;
  }
  HRESULT STDMETHODCALLTYPE LockServer(BOOL Lock) override {
    GLocks += Lock ? 1 : -1;
    return S_OK;
  }

 private:
  TVariant FVariant;
};

TFactory GFactories[tvCount] = {TFactory(tvMain), TFactory(tvTwoStreams), TFactory(tvFailingTypes)};

std::wstring ClassKey(int Variant) {
  wchar_t Text[64];
  StringFromGUID2(kClassIds[Variant], Text, 64);
  return std::wstring(L"CLSID\\") + Text;
}

bool SetString(HKEY Root, const std::wstring& Key, const wchar_t* Name, const std::wstring& Value) {
  HKEY H = nullptr;
  if (RegCreateKeyExW(Root, Key.c_str(), 0, nullptr, 0, KEY_WRITE, nullptr, &H, nullptr) != ERROR_SUCCESS) return false;
  const LONG R = RegSetValueExW(H, Name, 0, REG_SZ, reinterpret_cast<const BYTE*>(Value.c_str()),
                                DWORD((Value.size() + 1) * sizeof(wchar_t)));
  RegCloseKey(H);
  return R == ERROR_SUCCESS;
}

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
  for (int V = 0; V < tvCount; ++V)
    if (Class == kClassIds[V]) return GFactories[V].QueryInterface(Iid, Out);
  return CLASS_E_CLASSNOTAVAILABLE;
}

STDAPI DllCanUnloadNow() {
  long Objects = 0;
  WithState([&](QvTestDmoState& S) { Objects = long(S.Objects); });
  return Objects == 0 && GLocks == 0 ? S_OK : S_FALSE;
}

STDAPI DllRegisterServer() {
  wchar_t Path[MAX_PATH];
  const DWORD N = GetModuleFileNameW(GModule, Path, MAX_PATH);
  if (N == 0 || N >= MAX_PATH) return SELFREG_E_CLASS;
  DMO_PARTIAL_MEDIATYPE Types[1] = {{MEDIATYPE_Audio, MEDIASUBTYPE_PCM}};
  for (int V = 0; V < tvCount; ++V) {
    const std::wstring Server = ClassKey(V) + L"\\InprocServer32";
    if (!SetString(HKEY_CLASSES_ROOT, ClassKey(V), nullptr, kNames[V]) ||
        !SetString(HKEY_CLASSES_ROOT, Server, nullptr, Path) ||
        !SetString(HKEY_CLASSES_ROOT, Server, L"ThreadingModel", L"Both"))
      return SELFREG_E_CLASS;
    if (FAILED(DMORegister(const_cast<wchar_t*>(kNames[V]), kClassIds[V], DMOCATEGORY_AUDIO_EFFECT, 0, 1, Types, 1,
                           Types)))
      return SELFREG_E_CLASS;
  }
  return S_OK;
}

STDAPI DllUnregisterServer() {
  bool Ok = true;
  for (int V = 0; V < tvCount; ++V) {
    Ok = SUCCEEDED(DMOUnregister(kClassIds[V], DMOCATEGORY_AUDIO_EFFECT)) && Ok;
    Ok = RegDeleteTreeW(HKEY_CLASSES_ROOT, ClassKey(V).c_str()) == ERROR_SUCCESS && Ok;
  }
  return Ok ? S_OK : SELFREG_E_CLASS;
}

extern "C" void QvTestDmoGetState(QvTestDmoState* State, int32_t Reset) {
  WithState([&](QvTestDmoState& S) {
    if (State) *State = S;
    if (Reset) {
      const uint32_t Objects = S.Objects;
      S = QvTestDmoState{};
      S.Objects = Objects;
    }
  });
}
