#include "vst3/Srvst3host.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <new>

#include "frame/Kbloadlibrary.h"
#include "frame/Srsamples.h"
#include "frame/Wbpersistence.h"
#include "frame/Wbregistration.h"
#include "platform/Utf8.h"
#include "vst3/Vst3presetfile.h"

namespace Quorvel {

using Threading::TLockGuard;
using namespace Vst3hostintf;
using namespace Vst3hostobjects;

namespace {

constexpr TResult kModuleOk = ModuleResult(Platform::kVst3ResultOk);

// A fixed-size character field of a record, up to its first zero.
template <size_t N>
std::string FieldText(const char (&Field)[N]) {
  return std::string(Field, strnlen(Field, N));
}

using Utf8::AppendUtf8;

// UTF-16 text of at most N units (up to its first zero) as UTF-8; a lone
// surrogate becomes U+FFFD.
std::string Utf16ToUtf8(const char16_t* Text, size_t N) {
  std::string Out;
  for (size_t I = 0; I < N && Text[I]; ++I) {
    uint32_t C = Text[I];
    if (C >= 0xD800 && C < 0xDC00 && I + 1 < N && Text[I + 1] >= 0xDC00 && Text[I + 1] < 0xE000) {
      C = 0x10000 + ((C - 0xD800) << 10) + (Text[I + 1] - 0xDC00u);
      ++I;
    } else if (C >= 0xD800 && C < 0xE000) {
      C = 0xFFFD;
    }
    AppendUtf8(Out, C);
  }
  return Out;
}

std::u16string Utf8ToUtf16(const std::string& Text) {
  std::u16string Out;
  for (size_t I = 0; I < Text.size();) {
    const auto B = static_cast<uint8_t>(Text[I]);
    uint32_t C = 0xFFFD;
    size_t Len = 1;
    if (B < 0x80) {
      C = B;
    } else if ((B >> 5) == 6 && I + 1 < Text.size()) {
      C = (B & 0x1Fu) << 6 | (static_cast<uint8_t>(Text[I + 1]) & 0x3Fu);
      Len = 2;
    } else if ((B >> 4) == 14 && I + 2 < Text.size()) {
      C = (B & 0x0Fu) << 12 | (static_cast<uint8_t>(Text[I + 1]) & 0x3Fu) << 6 |
          (static_cast<uint8_t>(Text[I + 2]) & 0x3Fu);
      Len = 3;
    } else if ((B >> 3) == 30 && I + 3 < Text.size()) {
      C = (B & 0x07u) << 18 | (static_cast<uint8_t>(Text[I + 1]) & 0x3Fu) << 12 |
          (static_cast<uint8_t>(Text[I + 2]) & 0x3Fu) << 6 | (static_cast<uint8_t>(Text[I + 3]) & 0x3Fu);
      Len = 4;
    }
    I += Len;
    if (C >= 0x10000) {
      Out += static_cast<char16_t>(0xD800 + ((C - 0x10000) >> 10));
      Out += static_cast<char16_t>(0xDC00 + ((C - 0x10000) & 0x3FF));
    } else {
      Out += static_cast<char16_t>(C);
    }
  }
  return Out;
}

// "{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}" back to an identifier in the
// module byte order; false for any other text.
bool UIDFromString(const std::string& Text, TGUID& ID) {
  unsigned V[11];
  char Tail = 0;
  if (Text.size() != 38 ||
      std::sscanf(Text.c_str(), "{%8x-%4x-%4x-%2x%2x-%2x%2x%2x%2x%2x%2x}%c", &V[0], &V[1], &V[2], &V[3], &V[4], &V[5],
                  &V[6], &V[7], &V[8], &V[9], &V[10], &Tail) != 11)
    return false;
  ID = MakeVST3UID(V[0], V[1] << 16 | V[2], V[3] << 24 | V[4] << 16 | V[5] << 8 | V[6],
                   V[7] << 24 | V[8] << 16 | V[9] << 8 | V[10]);
  return true;
}

// A plug-in declaring more buses, or more channels on a bus, than this gets
// this many: a bus arrangement names at most 64 speakers.
constexpr int32_t kMaxAudioBuses = 64;
constexpr int32_t kMaxBusChannels = 64;

// ---- sample conversion between the frame's interleaved integer buffers and
// the plug-in's channel blocks ----

template <unsigned Bits, typename F>
void LoadLoop(const uint8_t* P, size_t Stride, size_t Samples, double Inv, F* Out) {
  for (size_t S = 0; S < Samples; ++S, P += Stride) Out[S] = static_cast<F>(ReadPcmSample<Bits>(P) * Inv);
}

// Channel C of the buffer, divided by Scale, into a plug-in channel. Scale is
// a power of two, so multiplying by its inverse is exact.
template <typename F>
void LoadChannel(const ISRAudioBuffer& Buffer, unsigned C, double Scale, F* Out) {
  const size_t Samples = Buffer.GetSamples(), Stride = Buffer.GetFrameBytes();
  const uint8_t* P = Buffer.GetData() + size_t(C) * Buffer.GetBytesPerSample();
  const double Inv = 1.0 / Scale;
  switch (Buffer.GetBits()) {
    case 16: LoadLoop<16>(P, Stride, Samples, Inv, Out); break;
    case 24: LoadLoop<24>(P, Stride, Samples, Inv, Out); break;
    case 32: LoadLoop<32>(P, Stride, Samples, Inv, Out); break;
    default:
      for (size_t S = 0; S < Samples; ++S) Out[S] = static_cast<F>(Buffer.GetSample(S, C) * Inv);
      break;
  }
}

template <unsigned Bits, typename F>
void StoreLoop(const F* In, size_t Samples, double Scale, uint8_t* P, size_t Stride) {
  const double Lo = ISRAudioBuffer::MinValue(Bits), Hi = ISRAudioBuffer::MaxValue(Bits);
  for (size_t S = 0; S < Samples; ++S, P += Stride)
    WritePcmSample<Bits>(P, RoundSample(static_cast<double>(In[S]) * Scale, Lo, Hi));
}

// A plug-in channel, multiplied by Scale and rounded, into channel C of the buffer.
template <typename F>
void StoreChannel(const F* In, double Scale, ISRAudioBuffer& Buffer, unsigned C) {
  const size_t Samples = Buffer.GetSamples(), Stride = Buffer.GetFrameBytes();
  uint8_t* P = Buffer.GetData() + size_t(C) * Buffer.GetBytesPerSample();
  switch (Buffer.GetBits()) {
    case 16: StoreLoop<16>(In, Samples, Scale, P, Stride); break;
    case 24: StoreLoop<24>(In, Samples, Scale, P, Stride); break;
    case 32: StoreLoop<32>(In, Samples, Scale, P, Stride); break;
    default: {
      const unsigned Bits = Buffer.GetBits();
      const double Lo = ISRAudioBuffer::MinValue(Bits), Hi = ISRAudioBuffer::MaxValue(Bits);
      for (size_t S = 0; S < Samples; ++S)
        Buffer.SetSample(S, C, RoundSample(static_cast<double>(In[S]) * Scale, Lo, Hi));
      break;
    }
  }
}

}  // namespace

// ---- class information -------------------------------------------------------------

TSRVST3ClassInfo::TSRVST3ClassInfo(const TVST3ClassInfo& Info)
    : FID(Info.cid), FCardinality(Info.cardinality), FCategory(FieldText(Info.category)),
      FName(FieldText(Info.name)) {}

TSRVST3ProcessorInfo2::TSRVST3ProcessorInfo2(const TVST3ClassInfo2& Info)
    : FFlags(Info.classFlags), FSubCategories(FieldText(Info.subCategories)), FVendor(FieldText(Info.vendor)),
      FVersion(FieldText(Info.version)), FSdkVersion(FieldText(Info.sdkVersion)) {
  FID = Info.cid;
  FCardinality = Info.cardinality;
  FCategory = FieldText(Info.category);
  FName = FieldText(Info.name);
}

int TSRVST3ClassInfos::GetCount() {
  if (!FCreated) {
    FHost.IntOpenNoID();
    if (!FHost.FFactory) return 0;
    const int32_t Count = FHost.FFactory->countClasses();
    FItems.assign(size_t(std::max(Count, 0)), nullptr);
    FCreated = true;
  }
  return static_cast<int>(FItems.size());
}

TSRVST3ClassInfoRef TSRVST3ClassInfos::GetItem(int Index) {
  FHost.IntOpenNoID();
  GetCount();
  if (!FCreated || Index < 0 || size_t(Index) >= FItems.size())
    throw EWBException("List index out of bounds (" + std::to_string(Index) + ")");
  TSRVST3ClassInfoRef& Slot = FItems[size_t(Index)];
  if (Slot) return Slot;
  if (FHost.FFactory2) {
    TVST3ClassInfo2 Info{};
    if (!FHost.Check(FHost.FFactory2->getClassInfo2(Index, &Info), "Can't get extended class information."))
      return nullptr;
    Slot = std::make_shared<TSRVST3ProcessorInfo2>(Info);
  } else if (FHost.FFactory) {
    TVST3ClassInfo Info{};
    if (!FHost.Check(FHost.FFactory->getClassInfo(Index, &Info), "Can't get class information.")) return nullptr;
    Slot = std::make_shared<TSRVST3ClassInfo>(Info);
  }
  return Slot;
}

void TSRVST3ClassInfos::Clear() {
  FItems.clear();
  FCreated = false;
}

// ---- the chosen class --------------------------------------------------------------

TGUID TSRVST3Processor::GetID() const { return FClassInfo ? FClassInfo->GetID() : kNullUID; }
std::string TSRVST3Processor::GetName() const { return FClassInfo ? FClassInfo->GetName() : std::string(); }

template <typename TMatch>
void TSRVST3Processor::Choose(TMatch Match) {
  TLockGuard G(FHost.GetLock());
  const bool WasOpened = FHost.FState.Opened;
  FHost.IntOpenNoID();
  TSRVST3ClassInfoRef Chosen = std::make_shared<TSRVST3ClassInfo>();
  const int Count = FHost.FClassInfos.GetCount();
  for (int I = 0; I < Count; ++I) {
    TSRVST3ClassInfoRef Item = FHost.FClassInfos.GetItem(I);
    if (Item && Match(Item)) {
      Chosen = Item;
      break;
    }
  }
  FClassInfo = Chosen;
  FHost.Close();
  if (WasOpened) FHost.Open();
}

void TSRVST3Processor::SetID(const TGUID& Value) {
  if (GetID() == Value) return;  // with no class chosen the current identifier is the null one
  Choose([&Value](const TSRVST3ClassInfoRef& I) { return I->GetID() == Value; });
  FHost.PropertiesChanged();
}

void TSRVST3Processor::SetName(const std::string& Value) {
  if (GetName() == Value) return;  // with no class chosen the current name is empty
  Choose([&Value](const TSRVST3ClassInfoRef& I) { return I->GetName() == Value; });
}

void TSRVST3Processor::SetClassInfo(const TSRVST3ClassInfoRef& Value) {
  if (FClassInfo == Value) return;
  Choose([&Value](const TSRVST3ClassInfoRef& I) { return I == Value; });
}

// ---- the host -----------------------------------------------------------------------

TSRVST3Host::TSRVST3Host(TWBComponent* Owner) : TSRBasicMultiInput(Owner, 0, 0) {}

TSRVST3Host::~TSRVST3Host() {
  BeginDestroy();
  Close();
}

std::string TSRVST3Host::GetFileName() const {
  TLockGuard G(GetLock());
  return FFileName;
}

void TSRVST3Host::SetFileName(const std::string& Value) {
  TLockGuard G(GetLock());
  if (Value == FFileName) return;
  FFileName = Value;
  FileNameChanged();
}

void TSRVST3Host::FileNameChanged() {
  TLockGuard G(GetLock());
  const bool WasOpened = FState.Opened;
  Close();
  if (FClassInfos.GetCount() > 0) {
    // Deliberately the factory's first class whatever its category: kept so,
    // a module listing its controller first gets the controller chosen.
    const TSRVST3ClassInfoRef First = FClassInfos.GetItem(0);
    FProcessor.SetID(First ? First->GetID() : kNullUID);
  } else {
    FProcessor.SetName(std::string());
  }
  if (WasOpened) Open();
  PropertiesChanged();
}

bool TSRVST3Host::LoadPlugIn(const std::string& FileName) {
  TLockGuard G(GetLock());
  if (FModule) return true;
  Close();
  if (FileName.empty()) return false;
  const std::string Library = Platform::Vst3ModuleLibrary(FileName);
  if (!Platform::FileExists(Library)) {
    ReportError("File " + Library + " does not exist.", -1);
    return false;
  }
  FModule = KBLoadLibrary(this, Library, OnError);
  return FModule != nullptr;
}

bool TSRVST3Host::IntOpenNoID() {
  TLockGuard G(GetLock());
  if (FState.Opened) return true;
  if (!LoadPlugIn(GetFileName())) return false;
  // The entry function and the factory are taken once per load: a module
  // counts its entries, and one exit ends them.
  if (!FFactory) {
    if (void* Entry = KBGetProcAddress(FModule, Platform::kVst3EntryName)) {
      bool Entered = false;
      try {
        Entered = Platform::CallVst3Entry(Entry, FModule);
      } catch (...) {
        Entered = false;
      }
      if (!Entered) {
        ReportError("Can't initialize plugin internally.", -1);
        return false;
      }
    }
    auto GetFactory = reinterpret_cast<TGetFactoryProc>(KBGetProcAddress(FModule, "GetPluginFactory"));
    if (!GetFactory) return false;
    // The entry answers a reference of the caller's.
    FFactory = TVST3Ref<IPluginFactory>::Adopt(GetFactory());
    if (!FFactory) return false;
    FFactory2 = FFactory.Query<IPluginFactory2>();
    if (OnLoaded) OnLoaded(this);
  }
  const bool Read = ReadFactoryInfo();
  return Read && !FHostContext;
}

bool TSRVST3Host::ReadFactoryInfo() {
  if (!FFactory) return false;
  TVST3FactoryInfo Info{};
  if (!Check(FFactory->getFactoryInfo(&Info), "Can't get VST3 factory information.")) return false;
  FFactoryInfo.Vendor = FieldText(Info.vendor);
  FFactoryInfo.URL = FieldText(Info.url);
  FFactoryInfo.EMail = FieldText(Info.email);
  TSRVST3FactoryFlags Flags;
  if (Info.flags & kClassesDiscardable) Flags.Include(TSRVST3FactoryFlag::vst3ffClassesDiscardable);
  if (Info.flags & kLicenseCheck) Flags.Include(TSRVST3FactoryFlag::vst3ffLicenseCheck);
  if (Info.flags & kComponentNonDiscardable) Flags.Include(TSRVST3FactoryFlag::vst3ffComponentNonDiscardable);
  if (Info.flags & kUnicode) Flags.Include(TSRVST3FactoryFlag::vst3ffUnicode);
  FFactoryInfo.Flags = Flags;
  return true;
}

bool TSRVST3Host::FillFactoryInfo() {
  TLockGuard G(GetLock());
  return ReadFactoryInfo();
}

bool TSRVST3Host::IntOpenID() {
  TLockGuard G(GetLock());
  if (FState.ComponentCreated) return true;
  if (!IntOpenNoID()) return false;
  const TGUID ClassID = FProcessor.GetID();
  if (IsNullUID(ClassID)) {
    Close();
    return false;
  }
  FHostContext = TVST3Ref<TVST3Notifications>::Adopt(new TVST3Notifications(this));
  FComponentHandler = TVST3Ref<IComponentHandler>::Share(FHostContext.Get());
  FInputParameterChanges = TVST3Ref<TParameterChanges>::Adopt(new TParameterChanges());
  FInputEvents = TVST3Ref<TEventList>::Adopt(new TEventList(kInputEventCapacity));
  IFUnknown* Context = static_cast<IHostApplication*>(FHostContext.Get());

  void* Obj = nullptr;
  const TResult Created = FFactory->createInstance(&ClassID, &IID_IComponent, &Obj);
  FComponent = TVST3Ref<IComponent>::Adopt(Created == kModuleOk ? static_cast<IComponent*>(Obj) : nullptr);
  if (!Check(Created, "Can't get processor.")) return false;
  if (!FComponent) return false;
  if (!Check(FComponent->initialize(Context), "Can't create VST3 processor component.")) return false;

  FController = FComponent.Query<IEditController>();
  if (!FController) {
    TGUID ControllerID = kNullUID;
    if (FComponent->getControllerClassId(&ControllerID) == kModuleOk && !IsNullUID(ControllerID)) {
      Obj = nullptr;
      if (FFactory->createInstance(&ControllerID, &IID_IEditController, &Obj) == kModuleOk && Obj) {
        FController = TVST3Ref<IEditController>::Adopt(static_cast<IEditController*>(Obj));
        char Text[160];
        std::snprintf(Text, sizeof Text, "Can't create VST3 edit controller.\r\nEditor class ID: %s",
                      VST3UIDToString(ControllerID).c_str());
        if (!Check(FController->initialize(Context), Text)) return false;
      }
    }
  }
  FState.ComponentCreated = true;
  return true;
}

bool TSRVST3Host::Open() {
  TLockGuard G(GetLock());
  if (FState.Opened) {
    ReadFactoryInfo();
    return true;
  }
  if (!IntOpenID()) return false;
  if (FController) {
    FController2 = FController.Query<IEditController2>();
    FController->setComponentHandler(FComponentHandler.Get());
    TVST3Ref<IConnectionPoint> ComponentPoint = FComponent.Query<IConnectionPoint>();
    TVST3Ref<IConnectionPoint> ControllerPoint = FController.Query<IConnectionPoint>();
    if (ComponentPoint && ControllerPoint) {
      ComponentPoint->connect(ControllerPoint.Get());
      ControllerPoint->connect(ComponentPoint.Get());
      FState.Connected = true;
    }
    auto State = TVST3Ref<TMemoryBStream>::Adopt(new TMemoryBStream());
    if (FComponent->getState(State.Get()) == kModuleOk) {
      State->seek(0, kIBSeekSet, nullptr);
      FController->setComponentState(State.Get());
    }
  }
  void* Processor = nullptr;
  TResult Asked = FComponent->queryInterface(IID_IAudioProcessor, &Processor);
  if (Asked == kModuleOk && !Processor) Asked = ModuleResult(Platform::kVst3NoInterface);
  FAudioProcessor = TVST3Ref<IAudioProcessor>::Adopt(Asked == kModuleOk ? static_cast<IAudioProcessor*>(Processor)
                                                                         : nullptr);
  if (!Check(Asked, "Can't get VST3 audio processor (effect).")) return false;
  FState.Double = FSampleSize == TSRVST3SampleSize::vst3ss64;
  FProcessSetup = TProcessSetup{};
  FProcessSetup.processMode = kRealtime;
  FProcessSetup.symbolicSampleSize = FState.Double ? kSample64 : kSample32;
  FProcessSetup.maxSamplesPerBlock = static_cast<int32_t>(std::min<size_t>(GetBufferSize(), INT32_MAX));
  FProcessSetup.sampleRate = static_cast<double>(static_cast<int64_t>(FFormat.GetSampleRate()));
  if (!Check(FAudioProcessor->setupProcessing(FProcessSetup), "Can't setup processing.")) return false;
  if (!Check(FComponent->setActive(1), "Can't activate VST3 audio processor (effect).")) return false;
  FState.Active = true;
  FProcessData = TVST3ProcessData{};
  // The editor's view; a window shows it later.
  if (FController) FView = TVST3Ref<IPlugView>::Adopt(FController->createView("editor"));
  BuildParameterList();
  PopulatePinNames();
  FState.Opened = true;
  return true;
}

void TSRVST3Host::Close() {
  TLockGuard G(GetLock());
  if (!FModule) return;
  FState.Opened = false;
  FState.ComponentCreated = false;
  FClassInfos.Clear();
  HideEditor();
  FView.Clear();
  FParameters.clear();
  if (FController) {
    TVST3Ref<IConnectionPoint> ComponentPoint = FComponent.Query<IConnectionPoint>();
    TVST3Ref<IConnectionPoint> ControllerPoint = FController.Query<IConnectionPoint>();
    if (FState.Connected && ComponentPoint && ControllerPoint) {
      ComponentPoint->disconnect(ControllerPoint.Get());
      ControllerPoint->disconnect(ComponentPoint.Get());
      FState.Connected = false;
    }
    FController->setComponentHandler(nullptr);
    FController->terminate();
  }
  if (FState.Active) {
    FComponent->setActive(0);
    // Deliberately only an activated component is terminated: kept so, one
    // created but never activated is released without terminate.
    FComponent->terminate();
    FState.Active = false;
  }
  FComponent.Clear();
  FController2.Clear();
  FController.Clear();
  FAudioProcessor.Clear();
  FFactory2.Clear();
  FFactory.Clear();
  if (void* Exit = KBGetProcAddress(FModule, Platform::kVst3ExitName)) {
    try {
      Platform::CallVst3Exit(Exit);
    } catch (...) {
    }
  }
  KBFreeLibrary(FModule);
  if (FHostContext) FHostContext->Detach();
  FHostContext.Clear();
  FComponentHandler.Clear();
  FInputParameterChanges.Clear();
  FInputEvents.Clear();
  FModule = nullptr;
  FState = TOpenState{};
}

std::string TSRVST3Host::ResultName(int32_t Result) {
  switch (static_cast<uint32_t>(Result)) {
    case 0x80004002u: return "No Interface";
    case 0x80070057u: return "Invalid Argument";
    case 0x80004001u: return "Not Implemented";
    case 0x80004005u: return "Internal Error";
    case 0x8000FFFFu: return "Not Initialized";
    case 0x8007000Eu: return "Out Of Memory";
    default: return "An unknown error has occured.";  // the component's spelling, kept
  }
}

bool TSRVST3Host::Check(TResult ModuleResultValue, const std::string& Text) {
  const int32_t Result = Platform::Vst3ResultFromModule(ModuleResultValue);
  if (Result == Platform::kVst3ResultOk) return true;
  ReportError(Text + " - " + ResultName(Result), Result);
  return false;
}

// ---- buses and parameters ---------------------------------------------------------

int32_t TSRVST3Host::GetBusCount(TMediaTypes Type, TBusDirections Direction) {
  TLockGuard G(GetLock());
  return FComponent ? std::max(FComponent->getBusCount(Type, Direction), 0) : 0;
}

bool TSRVST3Host::GetBusInfo(TMediaTypes Type, TBusDirections Direction, int32_t Index, TSRVST3BusInfo& Info) {
  TLockGuard G(GetLock());
  if (!FComponent) return false;
  TBusInfo Bus{};
  if (FComponent->getBusInfo(Type, Direction, Index, Bus) != kModuleOk) return false;
  Info.MediaType = Bus.mediaType;
  Info.Direction = Bus.direction;
  Info.ChannelCount = Bus.channelCount;
  Info.Name = Utf16ToUtf8(Bus.name, 128);
  Info.BusType = Bus.busType;
  Info.Flags = Bus.flags;
  return true;
}

void TSRVST3Host::BuildParameterList() {
  FParameters.clear();
  if (!FController) return;
  const int32_t Count = FController->getParameterCount();
  for (int32_t I = 0; I < Count; ++I) {
    TVST3ParameterInfo Info{};
    if (FController->getParameterInfo(I, Info) != kModuleOk) continue;
    TSRVST3ParameterInfo P;
    P.ID = Info.id;
    P.Title = Utf16ToUtf8(Info.title, 128);
    P.ShortTitle = Utf16ToUtf8(Info.shortTitle, 128);
    P.Units = Utf16ToUtf8(Info.units, 128);
    P.StepCount = Info.stepCount;
    P.DefaultNormalizedValue = Info.defaultNormalizedValue;
    P.UnitID = Info.unitId;
    P.Flags = Info.flags;
    FParameters.push_back(std::move(P));
  }
}

const TSRVST3ParameterInfo& TSRVST3Host::GetParameterInfo(int32_t Index) const {
  if (Index < 0 || size_t(Index) >= FParameters.size())
    throw EWBException("List index out of bounds (" + std::to_string(Index) + ")");
  return FParameters[size_t(Index)];
}

double TSRVST3Host::GetParameterValue(uint32_t ID) {
  TLockGuard G(GetLock());
  return FController ? FController->getParamNormalized(ID) : 0.0;
}

void TSRVST3Host::SetParameterValue(uint32_t ID, double Value) {
  TLockGuard G(GetLock());
  if (FController && std::isfinite(Value)) FController->setParamNormalized(ID, std::clamp(Value, 0.0, 1.0));
}

std::string TSRVST3Host::GetParameterDisplay(uint32_t ID, double Value) {
  TLockGuard G(GetLock());
  if (!FController) return {};
  TString128 Text{};
  if (FController->getParamStringByValue(ID, Value, Text) != kModuleOk) return {};
  return Utf16ToUtf8(Text, 128);
}

void TSRVST3Host::PopulatePinNames() {
  for (const TBusDirections Direction : {kInput, kOutput}) {
    TPWPinList& Pins = Direction == kInput ? GetInputPins() : GetOutputPins();
    const int32_t Count = std::clamp(FComponent->getBusCount(kAudio, Direction), 0, kMaxAudioBuses);
    Pins.SetCount(size_t(Count));
    for (int32_t I = 0; I < Count; ++I) {
      std::string Name = (Direction == kInput ? "Input " : "Output ") + std::to_string(I + 1);
      TBusInfo Bus{};
      if (FComponent->getBusInfo(kAudio, Direction, I, Bus) == kModuleOk && Bus.name[0])
        Name = Utf16ToUtf8(Bus.name, 128);
      if (TPWBasicPin* Pin = Pins.Get(size_t(I))) Pin->SetName(Name);
    }
  }
}

// ---- audio --------------------------------------------------------------------------

void TSRVST3Host::BuildBuses(TBusDirections Direction, std::vector<TVST3AudioBusBuffers>& Buses,
                             std::vector<TBusBlocks>& Blocks, size_t BlockBytes) {
  const int32_t Count = std::clamp(FComponent->getBusCount(kAudio, Direction), 0, kMaxAudioBuses);
  Buses.assign(size_t(Count), TVST3AudioBusBuffers{});
  Blocks.assign(size_t(Count), TBusBlocks{});
  for (size_t I = 0; I < Buses.size(); ++I) {
    TBusInfo Info{};
    const int32_t Channels = FComponent->getBusInfo(kAudio, Direction, static_cast<int32_t>(I), Info) == kModuleOk
                                 ? std::clamp(Info.channelCount, 0, kMaxBusChannels)
                                 : 0;
    TBusBlocks& B = Blocks[I];
    B.Blocks.resize(size_t(Channels));
    B.Addresses.resize(size_t(Channels));
    for (size_t C = 0; C < B.Blocks.size(); ++C) {
      B.Blocks[C] = TWBBlockBuffer::Create(BlockBytes, 0);
      B.Addresses[C] = B.Blocks[C]->GetData();
    }
    Buses[I].numChannels = Channels;
    // Deliberately channel 0 marked silent, once, and never changed: kept as
    // the component always set it.
    Buses[I].silenceFlags = 1;
    Buses[I].Buffer = B.Addresses.data();
  }
}

void TSRVST3Host::StreamStarted() {
  TLockGuard G(GetLock());
  FAudio.Built = false;
  FWorkBuffer.Reset();
  if (!Open() || !FAudioProcessor) return;
  const size_t Block = std::max<size_t>(GetOutputBufferSize(), 1);
  FWorkBuffer =
      TSRAudioBuffer::Create(FFormat.GetCountChannels(), Block, FFormat.GetBits(), FFormat.GetSampleRate());
  // Setup and activation are sent again at every start, although Open sent them.
  FState.Double = FSampleSize == TSRVST3SampleSize::vst3ss64;
  FProcessSetup = TProcessSetup{};
  FProcessSetup.processMode = kRealtime;
  FProcessSetup.symbolicSampleSize = FState.Double ? kSample64 : kSample32;
  FProcessSetup.maxSamplesPerBlock = static_cast<int32_t>(std::min<size_t>(Block, INT32_MAX));
  FProcessSetup.sampleRate = static_cast<double>(static_cast<int64_t>(FFormat.GetSampleRate()));
  if (!Check(FAudioProcessor->setupProcessing(FProcessSetup), "Can't setup processing.")) return;
  if (!Check(FComponent->setActive(1), "Can't activate VST3 audio processor (effect).")) return;
  FState.Active = true;

  FProcessData = TVST3ProcessData{};
  // Room for 64-bit samples whatever the precision.
  BuildBuses(kInput, FAudio.Inputs, FAudio.InputBlocks, Block * 8);
  BuildBuses(kOutput, FAudio.Outputs, FAudio.OutputBlocks, Block * 8);
  FProcessData.processMode = kRealtime;
  FProcessData.symbolicSampleSize = FState.Double ? kSample64 : kSample32;
  FProcessData.numSamples = FProcessSetup.maxSamplesPerBlock;
  FProcessData.numInputs = static_cast<int32_t>(FAudio.Inputs.size());
  FProcessData.numOutputs = static_cast<int32_t>(FAudio.Outputs.size());
  FProcessData.inputs = FAudio.Inputs.data();
  FProcessData.outputs = FAudio.Outputs.data();
  FProcessData.inputParameterChanges = FInputParameterChanges.Get();
  FProcessData.outputParameterChanges = nullptr;
  FProcessData.inputEvents = FInputEvents.Get();
  FProcessData.outputEvents = nullptr;
  FAudio.Double = FState.Double;
  FAudio.Built = true;

  if (Check(FAudioProcessor->setProcessing(1), "Can't start processing."))
    FAudioProcessor->setProcessing(1);  // Deliberately sent twice, its answer unread: kept as the component always did.
}

void TSRVST3Host::CalculateSendOutput() {
  // The working buffer's capacity is the block size of the start, so a block
  // never outgrows the channel blocks even if BufferSize changed since.
  if (!FWorkBuffer || !FWorkBuffer->SetSampleCount(GetCurrentBlockSize())) return;
  ISRAudioBuffer& Work = *FWorkBuffer;
  const size_t InPins = GetInputPins().CountLocked(), OutPins = GetOutputPins().CountLocked();
  if (!GetEnabled()) {
    for (size_t I = 0, N = std::min(InPins, OutPins); I < N; ++I) {
      InputAt(I)->StretchLoadBuffer(Work);
      OutputAt(I)->SubmitBuffer(FWorkBuffer);
    }
    return;
  }
  // A start that failed built no buses: its blocks send nothing rather than
  // hand the plug-in a record it was not set up for.
  if (!FAudio.Built) return;
  const size_t Samples = Work.GetSamples();
  const unsigned Channels = Work.GetChannels();
  // 2^bits rather than 2^(bits-1): a full-scale sample reaches the plug-in as
  // +-0.5, kept as the component always scaled it.
  const double Scale = static_cast<double>(int64_t(2) << (Work.GetBits() - 1));
  // The precision of the start, even when the host is closed or opened again since.
  const bool Double = FAudio.Double;
  // The buses the record names, never more than the host's own arrays hold
  // (the plug-in may write to the record). Opening again mid-stream clears
  // the record, so a new instance is given no buses and nothing is sent.
  const size_t InBuses = std::min(FAudio.InputBlocks.size(), size_t(std::max(FProcessData.numInputs, 0)));
  for (size_t I = 0, N = std::min(InPins, InBuses); I < N; ++I) {
    InputAt(I)->StretchLoadBuffer(Work);
    const std::vector<void*>& Addresses = FAudio.InputBlocks[I].Addresses;
    for (size_t C = 0; C < Addresses.size(); ++C) {
      if (C >= Channels)
        std::memset(Addresses[C], 0, Samples * (Double ? sizeof(double) : sizeof(float)));
      else if (Double)
        LoadChannel(Work, unsigned(C), Scale, static_cast<double*>(Addresses[C]));
      else
        LoadChannel(Work, unsigned(C), Scale, static_cast<float*>(Addresses[C]));
    }
  }
  // The last block of a stream may be shorter than the others.
  FProcessData.numSamples = static_cast<int32_t>(Samples);
  if (FAudioProcessor && !Check(FAudioProcessor->process(FProcessData), "Can't process.")) return;
  const size_t OutBuses = std::min(FAudio.OutputBlocks.size(), size_t(std::max(FProcessData.numOutputs, 0)));
  for (size_t O = 0, N = std::min(OutPins, OutBuses); O < N; ++O) {
    const std::vector<void*>& Addresses = FAudio.OutputBlocks[O].Addresses;
    for (size_t C = 0, M = std::min<size_t>(Addresses.size(), Channels); C < M; ++C) {
      if (Double)
        StoreChannel(static_cast<const double*>(Addresses[C]), Scale, Work, unsigned(C));
      else
        StoreChannel(static_cast<const float*>(Addresses[C]), Scale, Work, unsigned(C));
    }
    OutputAt(O)->SubmitBuffer(FWorkBuffer);
  }
}

void TSRVST3Host::IntStop() {
  TLockGuard G(GetLock());
  // Without a processor (the host could not open) there is nothing to stop,
  // so neither call is sent; the blocks go all the same.
  if (FAudioProcessor) {
    // A failed stop keeps the blocks until the next start.
    if (!Check(FAudioProcessor->setProcessing(0), "Can't stop processing.")) return;
    FAudioProcessor->setProcessing(0);  // Deliberately sent twice, its answer unread: kept as the component always did.
  }
  // setActive(false) is Close's.
  FAudio = TAudioState{};
  FProcessData.numInputs = FProcessData.numOutputs = 0;
  FProcessData.inputs = FProcessData.outputs = nullptr;
}

// ---- settings ---------------------------------------------------------------------

std::string TSRVST3Host::GetHostName() const {
  TLockGuard G(GetLock());
  return Utf16ToUtf8(FHostName.c_str(), FHostName.size());
}

void TSRVST3Host::SetHostName(const std::string& Value) {
  TLockGuard G(GetLock());
  FHostName = Utf8ToUtf16(Value);
}

void TSRVST3Host::SetSampleSize(TSRVST3SampleSize Value) {
  TLockGuard G(GetLock());
  FSampleSize = Value;
}

void TSRVST3Host::SetSampleRate(double Value) {
  if (!(Value > 0.0) || !std::isfinite(Value)) return;
  TLockGuard G(GetLock());
  if (IsStreaming()) return;
  FFormat.SetSampleRate(Value);
}

// ---- published properties ------------------------------------------------------

template <>
struct TWBEnumNames<TSRVST3SampleSize> {
  static constexpr const char* const Names[] = {"vst3ss32", "vst3ss64"};
};

namespace {

// The chosen class as an extra property after the published ones (FileName
// included): its identifier in registry form and its name.
TWBClassInfo WithProcessor(TWBClassInfo Info) {
  Info.DefineProperties = [](void* Object, TWBFiler& Filer) {
    auto* Host = static_cast<TSRVST3Host*>(Object);
    Filer.DefineProperty(
        "Processor",
        [Host](TWBReader& R) {
          std::string Text, Name;
          TGUID ID{};
          if (R.ReadString(Text) && UIDFromString(Text, ID)) {
            R.ReadString(Name);
            Host->GetProcessor().SetID(ID);
          }
        },
        [Host](TWBWriter& W) {
          W.WriteListBegin();
          W.WriteString(VST3UIDToString(Host->GetProcessor().GetID()));
          W.WriteString(Host->GetProcessor().GetName());
          W.WriteListEnd();
        },
        Host->GetProcessor().GetAvailable());
  };
  return Info;
}

}  // namespace

const TWBClassInfo& TSRVST3Host::ClassInfo() {
  using H = TSRVST3Host;
  static const TWBClassInfo Info = WithProcessor(MakeClassInfo(
      "TSRVST3Host", &TSRBasicMultiInput::ClassInfo(),
      {PropertyOf<H, size_t>(
           "BufferSize", [](H& O) { return O.GetBufferSize(); }, [](H& O, size_t V) { O.SetBufferSize(V); },
           size_t(256)),
       Property("SampleRate", &H::GetSampleRate, &H::SetSampleRate, 44100.0),
       Property("SampleSize", &H::GetSampleSize, &H::SetSampleSize, TSRVST3SampleSize::vst3ss32),
       Property("HostName", &H::GetHostName, &H::SetHostName, std::string("Quorvel")),
       Property("FileName", &H::GetFileName, &H::SetFileName, std::string())},
      Factory<TSRVST3Host>()));
  return Info;
}

namespace Srvst3host {

void RegisterPkg() { Design::Components::RegisterComponents({&TSRVST3Host::ClassInfo()}); }
void UnregisterPkg() { Design::Components::UnregisterComponents({&TSRVST3Host::ClassInfo()}); }

}  // namespace Srvst3host

}  // namespace Quorvel

// ---- preset files ------------------------------------------------------------------

namespace Quorvel {

using namespace Vst3hostintf;
using namespace Vst3hostobjects;

void TSRVST3Host::SavePreset(TWBStream& Stream, const std::string& MetaInfo) {
  TLockGuard G(GetLock());
  if (!FComponent && !Open()) {
    if (!FComponent) Check(ModuleResult(Platform::kVst3NotInitialized), "Can't save VST3 preset file.");
    return;
  }
  if (MetaInfo.size() > size_t(INT32_MAX)) {  // more than a chunk can hold
    Check(ModuleResult(Platform::kVst3InvalidArgument), "Can't save VST3 preset file.");
    return;
  }
  auto Out = TVST3Ref<TFileBStream>::Adopt(new TFileBStream(Stream));
  const int32_t Saved =
      Vst3presetfile::SavePreset(Out.Get(), FProcessor.GetID(), FComponent.Get(), FController.Get(),
                                 MetaInfo.empty() ? nullptr : MetaInfo.data(), static_cast<int32_t>(MetaInfo.size()));
  Check(ModuleResult(Saved), "Can't save VST3 preset file.");
}

void TSRVST3Host::SavePreset(const std::string& FileName, const std::string& MetaInfo) {
  TWBFileStream File(FileName, Platform::TFileOpenMode::fomCreate, Platform::TFileShareMode::fsmDenyWrite);
  if (!File.IsOpen()) {
    ReportError(FileName + ": " + File.GetOpenError(), -1);
    return;
  }
  SavePreset(static_cast<TWBStream&>(File), MetaInfo);
}

void TSRVST3Host::LoadPreset(TWBStream& Stream) {
  TLockGuard G(GetLock());
  auto In = TVST3Ref<TFileBStream>::Adopt(new TFileBStream(Stream));
  Vst3presetfile::TVST3PresetFile File(In.Get());
  if (!Check(ModuleResult(File.ReadChunkList() ? Platform::kVst3ResultOk : Platform::kVst3ResultFalse),
             "Can't load VST3 preset file."))
    return;
  // A file that reads: its states go to the chosen class's objects when it names that class.
  if (!FComponent || File.GetClassID() != FProcessor.GetID() || !File.Contains(Vst3presetfile::kComponentState)) {
    Check(ModuleResult(Platform::kVst3InvalidArgument), "Can't load VST3 preset file.");
    return;
  }
  TVST3Ref<IBStream> Component = File.ChunkStream(Vst3presetfile::kComponentState);
  if (!Check(FComponent->setState(Component.Get()), "Can't load VST3 preset file.")) return;
  if (!FController) return;
  Component->seek(0, kIBSeekSet, nullptr);
  FController->setComponentState(Component.Get());
  if (TVST3Ref<IBStream> Controller = File.ChunkStream(Vst3presetfile::kControllerState))
    Check(FController->setState(Controller.Get()), "Can't load VST3 preset file.");
}

void TSRVST3Host::LoadPreset(const std::string& FileName) {
  TWBFileStream File(FileName, Platform::TFileOpenMode::fomRead, Platform::TFileShareMode::fsmDenyWrite);
  if (!File.IsOpen()) {
    ReportError(FileName + ": " + File.GetOpenError(), -1);
    return;
  }
  LoadPreset(static_cast<TWBStream&>(File));
}

}  // namespace Quorvel
