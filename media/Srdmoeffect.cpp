#include "media/Srdmoeffect.h"

#include "frame/Wbregistration.h"
#include "platform/Kbdevicelistform.h"
#include "platform/Win32text_win32.h"

// clang-format off
#include <windows.h>
#include <mmreg.h>
#include <dmo.h>
#include <dmoreg.h>
#include <medparam.h>
#include <uuids.h>
// clang-format on

#include <atomic>
#include <cassert>
#include <cstring>

namespace Quorvel {

using Threading::TLockGuard;

namespace {

// An IMediaBuffer over memory the effect owns. It lives as long as the
// effect's stream state; references only count (the DMO may hold one while
// it works through the input).
class TMediaBufferOver final : public IMediaBuffer {
 public:
  void Reset(BYTE* Data, DWORD Length, DWORD MaxLength) {
    FData = Data;
    FLength = Length;
    FMaxLength = MaxLength;
  }
  DWORD Length() const { return FLength; }
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID Iid, void** Out) noexcept override {
    if (!Out) return E_POINTER;
    if (Iid != IID_IUnknown && Iid != IID_IMediaBuffer) {
      *Out = nullptr;
      return E_NOINTERFACE;
    }
    *Out = static_cast<IMediaBuffer*>(this);
    AddRef();
    return S_OK;
  }
  ULONG STDMETHODCALLTYPE AddRef() noexcept override { return ULONG(++FRefs); }
  ULONG STDMETHODCALLTYPE Release() noexcept override { return ULONG(--FRefs); }
  HRESULT STDMETHODCALLTYPE SetLength(DWORD Length) noexcept override {
    if (Length > FMaxLength) return E_INVALIDARG;
    FLength = Length;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetMaxLength(DWORD* MaxLength) noexcept override {
    if (!MaxLength) return E_POINTER;
    *MaxLength = FMaxLength;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetBufferAndLength(BYTE** Data, DWORD* Length) noexcept override {
    if (!Data && !Length) return E_POINTER;
    if (Data) *Data = FData;
    if (Length) *Length = FLength;
    return S_OK;
  }

 private:
  std::atomic<long> FRefs{1};
  BYTE* FData = nullptr;
  DWORD FLength = 0, FMaxLength = 0;
};

// A DMO media type that frees its format block when it goes.
struct TMediaType {
  DMO_MEDIA_TYPE Type{};
  bool Held = false;
  ~TMediaType() { Free(); }
  void Free() {
    // What MoFreeMediaType does (MinGW declares it without C linkage): the
    // format block and the format object go.
    if (Held) {
      if (Type.pbFormat) CoTaskMemFree(Type.pbFormat);
      if (Type.pUnk) Type.pUnk->Release();
    }
    Type = DMO_MEDIA_TYPE{};
    Held = false;
  }
  const WAVEFORMATEX* Wave() const {
    return Held && Type.formattype == FORMAT_WaveFormatEx && Type.cbFormat >= sizeof(WAVEFORMATEX) && Type.pbFormat
               ? reinterpret_cast<const WAVEFORMATEX*>(Type.pbFormat)
               : nullptr;
  }
};

// Type Index of stream 0 on one side.
HRESULT GetType(IMediaObject* Dmo, TSRDMOMediaType::TSide Side, DWORD Index, TMediaType& Out) {
  Out.Free();
  const HRESULT R = Side == TSRDMOMediaType::TSide::dsInput ? Dmo->GetInputType(0, Index, &Out.Type)
                                                            : Dmo->GetOutputType(0, Index, &Out.Type);
  Out.Held = R == S_OK;
  return R;
}

struct TShape {
  unsigned Channels, Rate, Bits;
};

// Whether candidate C replaces the best so far B for the wanted W: channels,
// then rate, then bits. The order of these tests is deliberate and decides
// ties; kept as the component always chose.
bool Replaces(const TShape& B, const TShape& C, const TShape& W) {
  if (C.Channels < B.Channels) {
    if (C.Channels < W.Channels) return false;
    if (C.Channels > W.Channels) return true;
  }
  if (C.Rate < B.Rate) {
    if (C.Rate < W.Rate) return false;
    if (C.Rate > W.Rate) return true;
  }
  if (C.Bits < B.Bits) {
    if (C.Bits < W.Bits) return false;
    if (C.Bits > W.Bits) return true;
  }
  return W.Channels > B.Channels || W.Rate > B.Rate || W.Bits > B.Bits;
}

TShape ShapeOf(const WAVEFORMATEX& F) { return {F.nChannels, F.nSamplesPerSec, F.wBitsPerSample}; }

// Walks the audio-effect DMOs; Visit answers false to stop.
template <typename F>
void EnumerateDmos(F&& Visit) {
  IEnumDMO* Enum = nullptr;
  if (FAILED(DMOEnum(DMOCATEGORY_AUDIO_EFFECT, DMO_ENUMF_INCLUDE_KEYED, 0, nullptr, 0, nullptr, &Enum)) || !Enum)
    return;
  for (int Guard = 0; Guard < 100000; ++Guard) {
    CLSID Class;
    WCHAR* Name = nullptr;
    DWORD Fetched = 0;
    if (Enum->Next(1, &Class, &Name, &Fetched) != S_OK || Fetched != 1) break;
    const std::string Text = Name ? Platform::FromUtf16(Name) : std::string();
    if (Name) CoTaskMemFree(Name);
    if (!Visit(Class, Text)) break;
  }
  Enum->Release();
}

bool FindDmo(const std::string& Name, CLSID& Class) {
  bool Found = false;
  EnumerateDmos([&](const CLSID& C, const std::string& Text) {
    if (Text != Name) return true;
    Class = C;
    Found = true;
    return false;
  });
  return Found;
}

// COM for the calling thread while a temporary DMO is asked for its types;
// a thread that already has COM keeps its own.
class TComScope {
 public:
  TComScope() : FOwn(SUCCEEDED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED))) {}
  ~TComScope() {
    if (FOwn) CoUninitialize();
  }

 private:
  bool FOwn;
};

}  // namespace

// ---------------------------------------------------------------------------
// The DMO support object: the DMO's interfaces once created, the parameter
// set and the envelope time format.

class TCBDMOFilter {
 public:
  explicit TCBDMOFilter(TWBComponent* Owner) : Parameters(Owner), TimeFormat(Owner) {}
  ~TCBDMOFilter() { ReleaseObjects(); }

  HRESULT Create(const std::string& Name) {
    ReleaseObjects();
    CLSID Class;
    if (!FindDmo(Name, Class)) return REGDB_E_CLASSNOTREG;
    const HRESULT R = CoCreateInstance(Class, nullptr, CLSCTX_INPROC, IID_IMediaObject,
                                       reinterpret_cast<void**>(&MediaObject));
    if (FAILED(R)) {
      MediaObject = nullptr;
      return R;
    }
    if (FAILED(MediaObject->QueryInterface(IID_IMediaObjectInPlace, reinterpret_cast<void**>(&InPlace))))
      InPlace = nullptr;
    return S_OK;
  }
  // Applies the stored parameters and time format through the DMO's
  // parameter interface (when it has one).
  void AplyParams() {
    if (!MediaObject) return;
    IMediaParams* Params = nullptr;
    if (FAILED(MediaObject->QueryInterface(IID_IMediaParams, reinterpret_cast<void**>(&Params))) || !Params) return;
    if (TimeFormat.IsSet()) {
      GUID Format;
      std::memcpy(&Format, &TimeFormat.GetFormat(), sizeof Format);
      Params->SetTimeFormat(Format, TimeFormat.GetUnit());
    }
    for (const auto& V : Parameters.GetValues()) Params->SetParam(V.Index, V.Value);
    Params->Release();
  }
  void ReleaseObjects() {
    if (MediaObject) {
      MediaObject->Flush();
      MediaObject->FreeStreamingResources();
    }
    if (InPlace) InPlace->Release();
    if (MediaObject) MediaObject->Release();
    InPlace = nullptr;
    MediaObject = nullptr;
    Ready = false;
  }
  // The support object's own extra properties.
  void DefinePropertiesInt(TWBFiler& Filer) {
    Filer.DefineProperty(
        "DMOParameters",
        [this](TWBReader& R) {
          // Pairs of index and value.
          Parameters.Clear();
          while (!R.EndOfList()) {
            int64_t Index = 0;
            double Value = 0;
            if (!R.ReadInteger(Index) || !R.ReadFloat(Value)) break;
            if (Index >= 0 && Index <= int64_t(UINT32_MAX)) Parameters.SetValue(uint32_t(Index), float(Value));
          }
        },
        [this](TWBWriter& W) {
          for (const auto& V : Parameters.GetValues()) {
            W.WriteInteger(V.Index);
            W.WriteFloat(V.Value);
          }
        },
        !Parameters.GetValues().empty());
    Filer.DefineProperty(
        "DMOTimeFormat",
        [this](TWBReader& R) {
          std::vector<uint8_t> Format;
          int64_t Unit = 0;
          if (R.ReadBinary(Format) && R.ReadInteger(Unit) && Format.size() == sizeof(TGUID) &&
              Unit >= 0 && Unit <= int64_t(UINT32_MAX)) {
            TGUID G;
            std::memcpy(&G, Format.data(), sizeof G);
            TimeFormat.SetFormat(G, uint32_t(Unit));
          }
        },
        [this](TWBWriter& W) {
          const auto* Bytes = reinterpret_cast<const uint8_t*>(&TimeFormat.GetFormat());
          W.WriteBinary(std::vector<uint8_t>(Bytes, Bytes + sizeof(TGUID)));
          W.WriteInteger(TimeFormat.GetUnit());
        },
        TimeFormat.IsSet());
  }

  TCBDMOParameters Parameters;
  TCBDMOEnvelopeTimeFormat TimeFormat;
  IMediaObject* MediaObject = nullptr;
  IMediaObjectInPlace* InPlace = nullptr;
  // The running stream: the chosen formats, the buffers handed to the DMO
  // and the output block (grown only when a longer input arrives).
  bool Ready = false;
  WAVEFORMATEX InFormat{}, OutFormat{};
  TMediaBufferOver InBuffer, OutBuffer;
  // The input block's bytes as the DMO sees them: a DMO may keep the input
  // buffer past ProcessInput, so it points into memory the effect owns rather
  // than into the incoming block, which its sender may free or reuse.
  std::vector<BYTE> InCopy;
  ISRAudioBufferRef Output;
};

// ---------------------------------------------------------------------------

void TCBDMOParameters::SetValue(uint32_t Index, float Value) {
  for (auto& V : FValues)
    if (V.Index == Index) {
      V.Value = Value;
      return;
    }
  FValues.push_back({Index, Value});
}

bool TCBDMOParameters::GetValue(uint32_t Index, float& Value) const {
  for (const auto& V : FValues)
    if (V.Index == Index) {
      Value = V.Value;
      return true;
    }
  return false;
}

bool TCBDMOParameters::Assign(const TWBPersistent& Source) {
  const auto* S = dynamic_cast<const TCBDMOParameters*>(&Source);
  if (!S) return false;
  if (S != this) FValues = S->FValues;
  return true;
}

void TCBDMOEnvelopeTimeFormat::SetFormat(const TGUID& Format, uint32_t Unit) {
  FFormat = Format;
  FUnit = Unit;
  FSet = true;
}

bool TCBDMOEnvelopeTimeFormat::Assign(const TWBPersistent& Source) {
  const auto* S = dynamic_cast<const TCBDMOEnvelopeTimeFormat*>(&Source);
  if (!S) return false;
  FFormat = S->FFormat;
  FUnit = S->FUnit;
  FSet = S->FSet;
  return true;
}

// ---------------------------------------------------------------------------
// TSRDMOMediaType

TSRDMOMediaType::TSRDMOMediaType(TSRDMOEffect& Owner, TSide Side) : TWBPersistent(&Owner), FEffect(Owner), FSide(Side) {}

void TSRDMOMediaType::SetAutoSelect(bool Value) {
  TLockGuard G(FEffect.GetLock());
  FAutoSelect = Value;
}

void TSRDMOMediaType::Selected(uint16_t Channels, uint32_t Rate, uint16_t Bits) {
  FChannels = Channels;
  FSampleRate = Rate;
  FBits = Bits;
  FKnown = true;
}

namespace {

// Runs Use with the effect's DMO, or with a temporary one of its name.
template <typename F>
bool WithDmo(TCBDMOFilter& Filter, const std::string& Name, F&& Use) {
  if (Filter.MediaObject) {
    Use(Filter.MediaObject);
    return true;
  }
  TComScope Com;
  CLSID Class;
  IMediaObject* Dmo = nullptr;
  if (Name.empty() || !FindDmo(Name, Class) ||
      FAILED(CoCreateInstance(Class, nullptr, CLSCTX_INPROC, IID_IMediaObject, reinterpret_cast<void**>(&Dmo))) ||
      !Dmo)
    return false;
  Use(Dmo);
  Dmo->Release();
  return true;
}

}  // namespace

void TSRDMOMediaType::GetMediaTypes(std::vector<std::string>* List) const {
  assert(List && "GetMediaTypes needs a list");
  if (!List) return;
  List->clear();
  TLockGuard G(FEffect.GetLock());
  WithDmo(*FEffect.FFilter, FEffect.FDmoName, [&](IMediaObject* Dmo) {
    TMediaType Type;
    for (DWORD Index = 0; Index < 4096 && GetType(Dmo, FSide, Index, Type) == S_OK; ++Index) {
      const WAVEFORMATEX* W = Type.Wave();
      if (!W) continue;
      List->push_back(std::to_string(List->size()) + ". Channels : " + std::to_string(W->nChannels) +
                      " Rate : " + std::to_string(W->nSamplesPerSec) + " Bits : " + std::to_string(W->wBitsPerSample));
    }
  });
}

std::vector<std::string> TSRDMOMediaType::GetMediaTypes() const {
  std::vector<std::string> List;
  GetMediaTypes(&List);
  return List;
}

bool TSRDMOMediaType::SetTypeIndex(int32_t Index) {
  TLockGuard G(FEffect.GetLock());
  if (Index < 0) return false;
  bool Done = false;
  WithDmo(*FEffect.FFilter, FEffect.FDmoName, [&](IMediaObject* Dmo) {
    TMediaType Type;
    if (GetType(Dmo, FSide, DWORD(Index), Type) != S_OK) return;
    FTypeIndex = Index;
    if (const WAVEFORMATEX* W = Type.Wave())
      Selected(W->nChannels, W->nSamplesPerSec, W->wBitsPerSample);
    else
      FKnown = false;  // a type without a wave format has no channels, rate or bits
    Done = true;
  });
  return Done;
}

void TSRDMOMediaType::AdjustIndex() {
  const size_t Listed = GetMediaTypes().size();
  TLockGuard G(FEffect.GetLock());
  if (FTypeIndex < 0 || size_t(FTypeIndex) >= Listed) FTypeIndex = 0;
}

bool TSRDMOMediaType::ShowDialog() {
  const std::vector<std::string> Types = GetMediaTypes();
  std::vector<std::string> Items{"Auto Select"};
  Items.insert(Items.end(), Types.begin(), Types.end());
  TKBDeviceListForm Form;
  Form.SetCaption("Select Audio Format");
  Form.SetItems(Items);
  const size_t Shown = GetAutoSelect() ? 0 : size_t(GetTypeIndex()) + 1;
  if (Shown < Items.size()) Form.SetPreselected(Items[Shown]);
  if (!Form.Execute()) return false;
  size_t Chosen = 0;
  while (Chosen < Items.size() && Items[Chosen] != Form.GetSelected()) ++Chosen;
  if (Chosen >= Items.size()) return false;
  TLockGuard G(FEffect.GetLock());
  if (Chosen == 0) {
    FAutoSelect = true;
  } else {
    // Deliberately the position in the list of wave-format types, used as
    // the DMO's own type index: kept as the component always did. Set
    // through SetTypeIndex, so the kept format is that of the type used.
    SetTypeIndex(int32_t(Chosen - 1));
    FAutoSelect = false;
  }
  return true;
}

bool TSRDMOMediaType::Assign(const TWBPersistent& Source) {
  const auto* S = dynamic_cast<const TSRDMOMediaType*>(&Source);
  if (!S) return false;
  if (S == this) return true;
  FTypeIndex = S->FTypeIndex;
  FAutoSelect = S->FAutoSelect;
  FKnown = S->FKnown;
  FChannels = S->FChannels;
  FSampleRate = S->FSampleRate;
  FBits = S->FBits;
  return true;
}

// ---------------------------------------------------------------------------
// TSRDMOEffect

TSRDMOEffect::TSRDMOEffect(TWBComponent* Owner)
    : TSRCommonFilter(Owner),
      FFilter(std::make_unique<TCBDMOFilter>(this)),
      FInputMediaType(std::make_unique<TSRDMOMediaType>(*this, TSRDMOMediaType::TSide::dsInput)),
      FOutputMediaType(std::make_unique<TSRDMOMediaType>(*this, TSRDMOMediaType::TSide::dsOutput)) {}

TSRDMOEffect::~TSRDMOEffect() {
  BeginDestroy();
  TLockGuard G(GetLock());
  FFilter->ReleaseObjects();
}

std::vector<std::string> TSRDMOEffect::GetDmoNames() {
  std::vector<std::string> Names;
  GetDmoNames(Names);
  return Names;
}

void TSRDMOEffect::GetDmoNames(std::vector<std::string>& List) {
  List.clear();
  EnumerateDmos([&](const CLSID&, const std::string& Name) {
    List.push_back(Name);
    return true;
  });
}

bool TSRDMOEffect::ShowDmoSelectDialog() {
  TKBDeviceListForm Form;
  Form.SetCaption("Select DMO");
  Form.SetItems(GetDmoNames());
  Form.SetPreselected(GetDmoName());
  if (!Form.Execute()) return false;
  SetDmoName(Form.GetSelected());
  return true;
}

std::string TSRDMOEffect::GetDmoName() const {
  TLockGuard G(GetLock());
  return FDmoName;
}

void TSRDMOEffect::SetDmoName(const std::string& Value) {
  TLockGuard G(GetLock());
  FDmoName = Value;
}

TCBDMOParameters& TSRDMOEffect::GetParameters() { return FFilter->Parameters; }

void TSRDMOEffect::SetParameters(const TCBDMOParameters& Value) {
  TLockGuard G(GetLock());
  FFilter->Parameters.Assign(Value);
}

TCBDMOEnvelopeTimeFormat& TSRDMOEffect::GetTimeFormatProp() { return FFilter->TimeFormat; }

void TSRDMOEffect::SetTimeFormatProp(const TCBDMOEnvelopeTimeFormat& Value) {
  TLockGuard G(GetLock());
  FFilter->TimeFormat.Assign(Value);
}

void TSRDMOEffect::SetInputMediaType(const TSRDMOMediaType& Value) {
  TLockGuard G(GetLock());
  FInputMediaType->Assign(Value);
}

void TSRDMOEffect::SetOutputMediaType(const TSRDMOMediaType& Value) {
  TLockGuard G(GetLock());
  FOutputMediaType->Assign(Value);
}

bool TSRDMOEffect::IsProcessing() const {
  TLockGuard G(GetLock());
  return FFilter->Ready;
}

bool TSRDMOEffect::CanStart() { return FFilter->Ready; }

TSRWaveFormatExtensible TSRDMOEffect::GetOutputFormat() {
  const WAVEFORMATEX& F = FFilter->OutFormat;
  return MakeWaveFormat(F.nSamplesPerSec, F.nChannels, F.wBitsPerSample);
}

namespace {

// Chooses and sets the type of one side; false when none could be set.
bool ChooseType(IMediaObject* Dmo, TSRDMOMediaType& Side, const TShape& Wanted, WAVEFORMATEX& Chosen) {
  TMediaType Best, Candidate;
  if (Side.GetAutoSelect()) {
    for (DWORD Index = 0; Index < 4096 && GetType(Dmo, Side.GetSide(), Index, Candidate) == S_OK; ++Index) {
      const WAVEFORMATEX* C = Candidate.Wave();
      if (!C) continue;
      const TShape Shape = ShapeOf(*C);
      const bool Exact =
          Shape.Channels == Wanted.Channels && Shape.Rate == Wanted.Rate && Shape.Bits == Wanted.Bits;
      if (Exact || !Best.Held || Replaces(ShapeOf(*Best.Wave()), Shape, Wanted)) {
        Best.Free();
        std::swap(Best.Type, Candidate.Type);
        Best.Held = true;
        Candidate.Held = false;
      }
      if (Exact) break;
    }
  } else if (Side.GetTypeIndex() >= 0) {
    GetType(Dmo, Side.GetSide(), DWORD(Side.GetTypeIndex()), Best);
  }
  const WAVEFORMATEX* W = Best.Wave();
  if (!W || W->wBitsPerSample % 8 || W->wBitsPerSample < 8 || W->wBitsPerSample > 32 || !W->nChannels) return false;
  const HRESULT R = Side.GetSide() == TSRDMOMediaType::TSide::dsInput ? Dmo->SetInputType(0, &Best.Type, 0)
                                                                      : Dmo->SetOutputType(0, &Best.Type, 0);
  if (FAILED(R)) return false;
  Chosen = *W;
  return true;
}

}  // namespace

void TSRDMOEffect::AudioStreamStart(TPWStartWaveOperation& Operation) {
  TLockGuard G(GetLock());
  TCBDMOFilter& F = *FFilter;
  F.ReleaseObjects();
  const TSRWaveFormatExtensible& In = Operation.GetFormat();
  const TShape Wanted{In.Format.nChannels, In.Format.nSamplesPerSec, In.Format.wBitsPerSample};
  bool Ok = SUCCEEDED(F.Create(FDmoName));
  if (Ok) {
    F.AplyParams();
    DWORD Inputs = 0, Outputs = 0;
    Ok = SUCCEEDED(F.MediaObject->GetStreamCount(&Inputs, &Outputs)) && Inputs == 1 && Outputs == 1 &&
         ChooseType(F.MediaObject, *FInputMediaType, Wanted, F.InFormat) &&
         ChooseType(F.MediaObject, *FOutputMediaType, Wanted, F.OutFormat);
  }
  if (Ok) {
    FInputMediaType->Selected(F.InFormat.nChannels, F.InFormat.nSamplesPerSec, F.InFormat.wBitsPerSample);
    FOutputMediaType->Selected(F.OutFormat.nChannels, F.OutFormat.nSamplesPerSec, F.OutFormat.wBitsPerSample);
    F.MediaObject->AllocateStreamingResources();
    F.Output = TSRAudioBuffer::Create(F.OutFormat.nChannels, 4096, F.OutFormat.wBitsPerSample,
                                      F.OutFormat.nSamplesPerSec);
    F.Ready = true;
  } else {
    F.ReleaseObjects();
    Warning("Can't start DMO " + FDmoName, -1);
  }
  TSRCommonFilter::AudioStreamStart(Operation);
  // A format the frame refuses starts no stream, and no stop will come to
  // release the DMO: release it now.
  if (!IsStreaming()) F.ReleaseObjects();
}

void TSRDMOEffect::StreamStop() {
  {
    TLockGuard G(GetLock());
    FFilter->ReleaseObjects();
  }
  TSRCommonFilter::StreamStop();
}

void TSRDMOEffect::InternalOperation(ISRAudioBuffer& InBuffer, ISRAudioBufferRef& OutBuffer, bool Pumped,
                                     bool& SendOutput) {
  TLockGuard G(GetLock());
  TCBDMOFilter& F = *FFilter;
  SendOutput = false;
  if (!F.Ready || InBuffer.GetSize() == 0 || InBuffer.GetSize() > 0x7FFFFFFF) return;
  if (F.InCopy.size() < InBuffer.GetSize()) F.InCopy.resize(InBuffer.GetSize());  // grows only for a longer block
  std::memcpy(F.InCopy.data(), InBuffer.GetData(), InBuffer.GetSize());
  F.InBuffer.Reset(F.InCopy.data(), DWORD(InBuffer.GetSize()), DWORD(InBuffer.GetSize()));
  if (FAILED(F.MediaObject->ProcessInput(0, &F.InBuffer, DMO_INPUT_DATA_BUFFERF_SYNCPOINT, 0, 0))) return;

  // Room for the input's length at the output's rate, and some more.
  const size_t OutFrameBytes = size_t(F.OutFormat.nBlockAlign ? F.OutFormat.nBlockAlign : 1);
  const double Ratio = F.InFormat.nSamplesPerSec ? double(F.OutFormat.nSamplesPerSec) / F.InFormat.nSamplesPerSec : 1;
  const size_t Wanted = size_t(double(InBuffer.GetSamples()) * Ratio) + 64;
  if (F.Output->GetCapacity() < Wanted)
    F.Output = TSRAudioBuffer::Create(F.OutFormat.nChannels, Wanted, F.OutFormat.wBitsPerSample,
                                      F.OutFormat.nSamplesPerSec);
  const size_t Capacity = F.Output->GetCapacity();
  F.Output->SetSampleCount(Capacity);
  size_t Filled = 0;
  for (;;) {
    const size_t Room = (Capacity - Filled) * OutFrameBytes;
    F.OutBuffer.Reset(F.Output->GetData() + Filled * OutFrameBytes, 0, DWORD(Room));
    DMO_OUTPUT_DATA_BUFFER Out = {};
    Out.pBuffer = &F.OutBuffer;
    DWORD Status = 0;
    const HRESULT R = F.MediaObject->ProcessOutput(DMO_PROCESS_OUTPUT_DISCARD_WHEN_NO_BUFFER, 1, &Out, &Status);
    if (R != S_OK) break;
    const size_t Produced = F.OutBuffer.Length() / OutFrameBytes;
    Filled += Produced;
    if (!(Out.dwStatus & DMO_OUTPUT_DATA_BUFFERF_INCOMPLETE)) break;
    if (Filled == Capacity) {
      // The block is full and the DMO has more: send this part first.
      F.Output->SetSampleCount(Filled);
      GetOutputPin()->SubmitBuffer(F.Output);
      F.Output->SetSampleCount(Capacity);
      Filled = 0;
    } else if (Produced == 0) {
      break;  // more to come but nothing made with room to spare: the DMO is stuck
    }
  }
  if (Filled == 0) return;
  F.Output->SetSampleCount(Filled);
  OutBuffer = F.Output;
  SendOutput = true;
}

// ---------------------------------------------------------------------------
// Published properties

const TWBClassInfo& TSRDMOMediaType::ClassInfo() {
  static const TWBClassInfo Info = [] {
    TWBClassInfo I = MakeClassInfo(
        "TSRDMOMediaType", nullptr,
        {Property("AutoSelect", &TSRDMOMediaType::GetAutoSelect, &TSRDMOMediaType::SetAutoSelect, true)});
    I.DefineProperties = [](void* Object, TWBFiler& Filer) {
      auto& T = *static_cast<TSRDMOMediaType*>(Object);
      Filer.DefineProperty(
          "MediaTypeInfo",
          [&T](TWBReader& R) {
            int64_t Index = 0, Channels = 0, Rate = 0, Bits = 0;
            if (!R.ReadInteger(Index) || !R.ReadInteger(Channels) || !R.ReadInteger(Rate) || !R.ReadInteger(Bits))
              return;
            if (Index < INT32_MIN || Index > INT32_MAX || Channels < 0 || Channels > 0xFFFF || Rate < 0 ||
                Rate > int64_t(UINT32_MAX) || Bits < 0 || Bits > 0xFFFF)
              return;
            T.FTypeIndex = int32_t(Index);
            if (Channels || Rate || Bits) T.Selected(uint16_t(Channels), uint32_t(Rate), uint16_t(Bits));
          },
          [&T](TWBWriter& W) {
            W.WriteInteger(T.FTypeIndex);
            W.WriteInteger(T.FChannels);
            W.WriteInteger(T.FSampleRate);
            W.WriteInteger(T.FBits);
          },
          T.FTypeIndex != 0 || T.FKnown);
    };
    return I;
  }();
  return Info;
}

const TWBClassInfo& TSRDMOEffect::ClassInfo() {
  static const TWBClassInfo Info = [] {
    TWBClassInfo I = MakeClassInfo(
        "TSRDMOEffect", &TSRCommonFilter::ClassInfo(),
        {Property("DmoName", &TSRDMOEffect::GetDmoName, &TSRDMOEffect::SetDmoName, std::string()),
         Group("InputMediaType", &TSRDMOEffect::GetInputMediaType, TSRDMOMediaType::ClassInfo()),
         Group("OutputMediaType", &TSRDMOEffect::GetOutputMediaType, TSRDMOMediaType::ClassInfo())},
        Factory<TSRDMOEffect>());
    I.DefineProperties = [](void* Object, TWBFiler& Filer) {
      static_cast<TSRDMOEffect*>(Object)->FFilter->DefinePropertiesInt(Filer);
    };
    return I;
  }();
  return Info;
}

namespace Srdmoeffect {
void RegisterPkg() { Design::Components::RegisterComponents({&TSRDMOEffect::ClassInfo()}); }
void UnregisterPkg() { Design::Components::UnregisterComponents({&TSRDMOEffect::ClassInfo()}); }
}  // namespace Srdmoeffect

}  // namespace Quorvel
