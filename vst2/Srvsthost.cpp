#include "vst2/Srvsthost.h"

#include "frame/Wbpersistence.h"
#include "frame/Wbregistration.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <mutex>

#include "frame/Kbloadlibrary.h"
#include "frame/Srsamples.h"
#include "platform/Fpu.h"
#include "platform/Lowmemory.h"
#include "vst2/Srvsthosteditor.h"
#include "vst2/Srvsthostvstxml.h"

namespace Quorvel {

using Threading::TLockGuard;

const char* const kHostCanDoNames[18] = {
    "sendVstEvents", "sendVstMidiEvent", "sendVstTimeInfo", "receiveVstEvents", "receiveVstMidiEvent",
    "receiveVstTimeInfo", "reportConnectionChanges", "acceptIOChanges", "sizeWindow", "asyncProcessing",
    "offline", "supplyIdle", "supportShell", "openFileSelector", "closeFileSelector", "editFile",
    "shellCategory", "startStopProcess"};

namespace {

// Entry points run one at a time in the process. While one runs, the loading
// slot names its host, so that callbacks made before the plug-in has an
// effect record (or before the host wrote itself into it) find their host.
// Outside an entry-point call the slot is empty.
std::mutex GLoaderLock;
std::atomic<TSRVSTHost*> GLoadingHost{nullptr};

constexpr size_t kTimeInfoBytes = 4096;

// Effect flag bit for each plug-in capability member 0..17; members 10..15
// read bit 0 (the editor flag) and 16, 17 a bit beyond the flags (absent).
constexpr int kSuportFlagBits[18] = {1, 2, 3, 4, 5, 8, 9, 10, 11, 12, 0, 0, 0, 0, 0, 0, 16, 16};
const char* const kPlugInCanDoTexts[8] = {"sendVstEvents",       "sendVstMidiEvent", "receiveVstEvents",
                                          "receiveVstMidiEvent", "receiveVstTimeInfo", "offline",
                                          "midiProgramNames",    "bypass"};

// Copies Text into a plug-in's character buffer of Room bytes, terminated.
void CopyToPlugIn(const std::string& Text, void* Ptr, size_t Room) {
  if (!Ptr || Room == 0) return;
  const size_t N = std::min(Text.size(), Room - 1);
  std::memcpy(Ptr, Text.data(), N);
  static_cast<char*>(Ptr)[N] = '\0';
}

// Integer PCM (one channel) to the plug-in's float channel, divided by
// Scale. Scale is a power of two, so multiplying by its inverse is exact.
template <unsigned Bits, typename F>
void LoadLoop(const uint8_t* P, size_t Samples, double Inv, F* Out) {
  for (size_t J = 0; J < Samples; ++J) Out[J] = static_cast<F>(ReadPcmSample<Bits>(P + Bits / 8 * J) * Inv);
}

template <typename F>
void LoadChannel(const ISRAudioBuffer& Buffer, size_t Samples, double Scale, F* Out) {
  const double Inv = 1.0 / Scale;
  switch (Buffer.GetBits()) {
    case 16: LoadLoop<16>(Buffer.GetData(), Samples, Inv, Out); break;
    case 24: LoadLoop<24>(Buffer.GetData(), Samples, Inv, Out); break;
    case 32: LoadLoop<32>(Buffer.GetData(), Samples, Inv, Out); break;
    default:
      for (size_t J = 0; J < Samples; ++J) Out[J] = static_cast<F>(Buffer.GetSample(J, 0) * Inv);
      break;
  }
}

// The plug-in's float channel, multiplied by Scale and rounded by the shared
// sample rounding; counts the samples that were not finite.
template <typename F>
int32_t ToSample(F X, double Scale, double Lo, double Hi, size_t& NonFinite) {
  NonFinite += !std::isfinite(X);
  return RoundSample(static_cast<double>(X) * Scale, Lo, Hi);
}

template <unsigned Bits, typename F>
size_t StoreLoop(const F* In, size_t Samples, double Scale, uint8_t* P) {
  const double Lo = ISRAudioBuffer::MinValue(Bits), Hi = ISRAudioBuffer::MaxValue(Bits);
  size_t NonFinite = 0;
  for (size_t J = 0; J < Samples; ++J) WritePcmSample<Bits>(P + Bits / 8 * J, ToSample(In[J], Scale, Lo, Hi, NonFinite));
  return NonFinite;
}

template <typename F>
size_t StoreChannel(const F* In, size_t Samples, double Scale, ISRAudioBuffer& Buffer) {
  switch (Buffer.GetBits()) {
    case 16: return StoreLoop<16>(In, Samples, Scale, Buffer.GetData());
    case 24: return StoreLoop<24>(In, Samples, Scale, Buffer.GetData());
    case 32: return StoreLoop<32>(In, Samples, Scale, Buffer.GetData());
    default: {
      const unsigned Bits = Buffer.GetBits();
      const double Lo = ISRAudioBuffer::MinValue(Bits), Hi = ISRAudioBuffer::MaxValue(Bits);
      size_t NonFinite = 0;
      for (size_t J = 0; J < Samples; ++J) Buffer.SetSample(J, 0, ToSample(In[J], Scale, Lo, Hi, NonFinite));
      return NonFinite;
    }
  }
}

}  // namespace

// ---- construction ---------------------------------------------------------------

TSRVSTHost::TSRVSTHost(TWBComponent* Owner) : TSRBasicMultiInput(Owner, 0, 0) {
  FVstTimeInfo = static_cast<PVstTimeInfo>(Platform::AllocateLowMemory(kTimeInfoBytes));
  FTimeInfoLow = FVstTimeInfo != nullptr;
  if (!FVstTimeInfo) FVstTimeInfo = new TVstTimeInfo();
  *FVstTimeInfo = TVstTimeInfo{};
  FVstTimeInfo->SampleRate = 44100.0;
  FVstTimeInfo->TimeSigNumerator = 4;
  FVstTimeInfo->TimeSigDenominator = 4;
  FVstTimeInfo->SmpteFrameRate = 1;
}

TSRVSTHost::~TSRVSTHost() {
  BeginDestroy();
  Close();
  Threading::RemoveMainThreadProcs(this);
  if (FTimeInfoLow)
    Platform::FreeLowMemory(FVstTimeInfo, kTimeInfoBytes);
  else
    delete FVstTimeInfo;
}

TPWBasicPin* TSRVSTHost::CreateInputPin(size_t Index) {
  return new TSRPWQueuedAudioSinkPin(*this, "Input " + std::to_string(Index + 1));
}

TPWBasicPin* TSRVSTHost::CreateOutputPin(size_t Index) {
  return new TSRPWAudioSourcePin(*this, "Output " + std::to_string(Index + 1));
}

// ---- library life -------------------------------------------------------------------

std::string TSRVSTHost::GetFileName() const {
  std::lock_guard<std::mutex> G(FTextLock);
  return FFileName;
}

void TSRVSTHost::SetFileNameField(const std::string& Value) {
  std::lock_guard<std::mutex> G(FTextLock);
  FFileName = Value;
}

void TSRVSTHost::SetFileName(const std::string& Value) {
  {
    TLockGuard G(GetLock());
    if (Value == GetFileName()) return;
    SetFileNameField(Value);
  }
  FileNameChanged();
}

void TSRVSTHost::Loaded() {
  TSRBasicMultiInput::Loaded();
  FParameters.TryApplyValues();
}

void TSRVSTHost::FileNameChanged() {
  TLockGuard G(GetLock());
  const bool WasLoaded = FModule != nullptr;
  Close();
  Open();
  if (!WasLoaded) Close();
}

bool TSRVSTHost::GetOpened() const { return FEffect.load() != nullptr; }
PVSTEffect TSRVSTHost::GetEffect() const { return FEffect.load(); }

bool TSRVSTHost::Open() {
  if (FEffect.load()) return true;
  TLockGuard G(GetLock());
  const bool Result = IntOpen();
  if (Result) {
    VstDispatch(effOpen, 0, 0, nullptr, 0.0f);
    // A plug-in may settle its channels in effOpen: they are checked again.
    std::string Message;
    int32_t Code = 0;
    if (!CheckChannelCounts(FEffect.load(), Message, Code)) {
      Close();
      Error(Message, Code);
      return false;
    }
    // The plug-in knows the rate and block size before anything else.
    VstDispatch(effSetSampleRate, 0, 0, nullptr, static_cast<float>(FFormat.GetSampleRate()));
    VstDispatch(effSetBlockSize, 0, GetBlockSize(), nullptr, 0.0f);
    PopulateParams();
    PopulatePinNames();
    UpdateBypass();
    FParameters.TryApplyValues();  // values loaded with the component while it was closed
  }
  ApplyPendingTime();  // what the plug-in's own threads set while the lock was ours
  return Result;
}

bool TSRVSTHost::Open(const std::string& FileName) {
  TLockGuard G(GetLock());
  if (FileName != GetFileName()) {
    Close();
    SetFileNameField(FileName);
  }
  return Open();
}

bool TSRVSTHost::IntOpen() {
  if (FModule) return true;
  return LoadPlugIn(GetFileName());
}

bool TSRVSTHost::CheckChannelCounts(PVSTEffect Effect, std::string& Message, int32_t& Code) {
  if (!Effect) return true;
  // Read once each: the plug-in owns the record and may change it.
  const int32_t Counts[2] = {Effect->numInputs, Effect->numOutputs};
  for (int I = 0; I < 2; ++I) {
    if (Counts[I] >= 0 && Counts[I] <= kMaxPlugInChannels) continue;
    Message = std::string("Plug-in declares ") + std::to_string(Counts[I]) + (I == 0 ? " inputs" : " outputs") +
              ", allowed are 0 to " + std::to_string(kMaxPlugInChannels);
    Code = Counts[I];
    return false;
  }
  return true;
}

bool TSRVSTHost::LoadPlugIn(const std::string& FileName) {
  TLockGuard G(GetLock());
  Close();
  if (FileName.empty()) return false;
  if (!Platform::FileExists(FileName)) {
    Error("File " + FileName + " does not exist", -1);
    return false;
  }
  FModule = KBLoadLibrary(this, FileName, OnError);
  if (!FModule) return false;
  // "main" first, "VSTPluginMain" only when it is absent.
  FEntry = reinterpret_cast<TMainProc>(KBGetProcAddress(FModule, "main"));
  if (!FEntry) FEntry = reinterpret_cast<TMainProc>(KBGetProcAddress(FModule, "VSTPluginMain"));
  if (!FEntry) {
    Close();
    return false;
  }
  PVSTEffect Effect = nullptr;
  {
    std::lock_guard<std::mutex> Loader(GLoaderLock);
    GLoadingHost = this;
    Platform::ResetFloatingPointControlWord();
    try {
      Effect = FEntry(&TSRVSTHost::HostCallback);
    } catch (...) {
      Effect = nullptr;
    }
    Platform::ResetFloatingPointControlWord();
    GLoadingHost = nullptr;
  }
  if (!Effect) {
    Close();
    return false;
  }
  Effect->User = this;
  FEffect = Effect;
  std::string Message;
  int32_t Code = 0;
  if (!CheckChannelCounts(Effect, Message, Code)) {
    Close();
    Error(Message, Code);
    return false;
  }
  if (OnLoaded) OnLoaded(this);
  return true;
}

void TSRVSTHost::Close() {
  TLockGuard G(GetLock());
  if (!FModule) return;
  // The editor and the plug-in's windows go before the plug-in does.
  if (FEditor) {
    FEditor->Hide();
    FEditor->CloseAllWindows();
  }
  if (FEditorOpen) EditClose();
  VstDispatch(effClose, 0, 0, nullptr, 0.0f);
  ApplyPendingTime();
  KBFreeLibrary(FModule);
  FModule = nullptr;
  FEffect = nullptr;
  FEntry = nullptr;
}

// ---- dispatch -------------------------------------------------------------------------

int32_t TSRVSTHost::VstDispatch(TDispatcherOpcode Opcode, int32_t Index, int32_t Value, void* Ptr, float Opt) {
  PVSTEffect Effect = FEffect.load();
  if (!Effect || !Effect->Dispatcher) return 0;
  Platform::ResetFloatingPointControlWord();
  return static_cast<int32_t>(Effect->Dispatcher(Effect, Opcode, Index, Value, Ptr, Opt));
}

int32_t TSRVSTHost::PlugInDispatch(int32_t Opcode, int32_t Index, int32_t Value, void* Ptr, float Opt) {
  return VstDispatch(static_cast<TDispatcherOpcode>(Opcode), Index, Value, Ptr, Opt);
}

int32_t TSRVSTHost::Identify() { return VstDispatch(effIdentify); }

// ---- what the plug-in is --------------------------------------------------------------

#define QV_EFFECT_FIELD(Name, Field)          \
  int32_t TSRVSTHost::Name() const {          \
    PVSTEffect E = FEffect.load();            \
    return E ? E->Field : 0;                  \
  }
QV_EFFECT_FIELD(GetNumInputs, numInputs)
QV_EFFECT_FIELD(GetNumOutputs, numOutputs)
QV_EFFECT_FIELD(GetNumParams, numParams)
QV_EFFECT_FIELD(GetNumPrograms, numPrograms)
QV_EFFECT_FIELD(GetUniqueID, UniqueID)
QV_EFFECT_FIELD(GetVersion, Version)
QV_EFFECT_FIELD(GetInitialDelay, InitialDelay)
#undef QV_EFFECT_FIELD

TEffFlags TSRVSTHost::GetEffectFlags() const {
  PVSTEffect E = FEffect.load();
  return E ? E->EffectFlags : TEffFlags();
}

TSRVSTPlugInSuports TSRVSTHost::GetPlugInSuports() {
  TSRVSTPlugInSuports Result;
  const uint32_t Flags = GetEffectFlags().Mask();
  for (int M = 0; M < 18; ++M) {
    const int Bit = kSuportFlagBits[M];
    if (Bit <= 15 && (Flags >> Bit & 1u)) Result.Include(static_cast<TSRVSTPlugInSuportFlag>(M));
  }
  for (int M = 10; M < 18; ++M) {
    char Text[64];
    CopyToPlugIn(kPlugInCanDoTexts[M - 10], Text, sizeof Text);
    if (VstDispatch(effCanDo, 0, 0, Text, 0.0f) == 1) Result.Include(static_cast<TSRVSTPlugInSuportFlag>(M));
  }
  return Result;
}

// Asks the plug-in for a text into a zeroed buffer four times the 64 bytes
// the interface promises, as plug-ins overrun it.
std::string TSRVSTHost::GetEffectString(TDispatcherOpcode Opcode, int32_t Index) {
  if (!FEffect.load()) return {};
  char Text[257] = {};
  VstDispatch(Opcode, Index, 0, Text, 0.0f);
  Text[sizeof Text - 1] = '\0';
  return std::string(Text);
}

std::string TSRVSTHost::GetEffectName() { return GetEffectString(effGetEffectName, 0); }
std::string TSRVSTHost::GetVendorString() { return GetEffectString(effGetVendorString, 0); }
std::string TSRVSTHost::GetProductString() { return GetEffectString(effGetProductString, 0); }
int32_t TSRVSTHost::GetVendorVersion() { return VstDispatch(effGetVendorVersion); }
int32_t TSRVSTHost::GetVstVersion() { return VstDispatch(effGetVstVersion); }
int32_t TSRVSTHost::GetPlugCategory() { return VstDispatch(effGetPlugCategory); }
int32_t TSRVSTHost::GetTailSize() { return VstDispatch(effGetTailSize); }

int32_t TSRVSTHost::PlugInCanDo(const std::string& Text) {
  std::vector<char> Copy(Text.begin(), Text.end());
  Copy.push_back('\0');
  return VstDispatch(effCanDo, 0, 0, Copy.data(), 0.0f);
}

std::string TSRVSTHost::GetParameterName(int32_t Index) {
  if (Index < 0 || Index >= GetNumParams()) return {};
  return GetEffectString(effGetParamName, Index);
}
std::string TSRVSTHost::GetParameterLabel(int32_t Index) {
  if (Index < 0 || Index >= GetNumParams()) return {};
  return GetEffectString(effGetParamLabel, Index);
}
std::string TSRVSTHost::GetParameterDisplay(int32_t Index) {
  if (Index < 0 || Index >= GetNumParams()) return {};
  return GetEffectString(effGetParamDisplay, Index);
}

float TSRVSTHost::GetParameter(int32_t Index) {
  PVSTEffect E = FEffect.load();
  if (!E || !E->GetParameter || Index < 0 || Index >= E->numParams) return 0.0f;
  Platform::ResetFloatingPointControlWord();
  return E->GetParameter(E, Index);
}

void TSRVSTHost::SetParameter(int32_t Index, float Value) {
  PVSTEffect E = FEffect.load();
  if (!E || !E->SetParameter || Index < 0 || Index >= E->numParams) return;
  Platform::ResetFloatingPointControlWord();
  E->SetParameter(E, Index, Value);
}

bool TSRVSTHost::CanBeAutomated(int32_t Index) {
  if (Index < 0 || Index >= GetNumParams()) return false;
  return VstDispatch(effCanBeAutomated, Index) == 1;
}

int32_t TSRVSTHost::GetProgram() { return VstDispatch(effGetProgram); }

void TSRVSTHost::SetProgram(int32_t Index) {
  if (Index < 0 || Index >= GetNumPrograms()) return;
  VstDispatch(effSetProgram, 0, Index);
}

std::string TSRVSTHost::GetProgramName() { return GetEffectString(effGetProgramName, 0); }

std::string TSRVSTHost::GetProgramNameIndexed(int32_t Index) {
  if (Index < 0 || Index >= GetNumPrograms()) return {};
  return GetEffectString(effGetProgramNameIndexed, Index);
}

void TSRVSTHost::PopulateParams() {
  const int32_t N = std::clamp(GetNumParams(), 0, kMaxPlugInParameters);
  FParamNames.assign(static_cast<size_t>(N), std::string());
  for (int32_t I = 0; I < N; ++I) FParamNames[static_cast<size_t>(I)] = GetParameterName(I);
  // Fresh parameter objects, with what the plug-in's parameter-structure
  // description says of them. A missing or malformed one is no error.
  FParameters.Rebuild(N);
  std::vector<uint8_t> Document;
  TSRVSTXMLParameterStructure Structure;
  std::string Ignored;
  if (FindParameterStructureDocument(GetFileName(), FModule, Document) &&
      Structure.Parse(Document.data(), Document.size(), Ignored))
    Structure.Attach(FParameters);
  FPrograms.Rebuild(GetNumPrograms());
}

// One pin per plug-in channel, captioned by the plug-in's pin properties
// when it gives them ("Input 1" ... otherwise).
void TSRVSTHost::PopulatePinNames() {
  const size_t In = static_cast<size_t>(std::max(GetNumInputs(), 0));
  const size_t Out = static_cast<size_t>(std::max(GetNumOutputs(), 0));
  GetInputPins().SetCount(In);
  GetOutputPins().SetCount(Out);
  for (size_t Pass = 0; Pass < 2; ++Pass) {
    TPWPinList& Pins = Pass == 0 ? GetInputPins() : GetOutputPins();
    for (size_t I = 0, N = Pins.Count(); I < N; ++I) {
      TVstPinProperties Props{};
      std::string Name = (Pass == 0 ? "Input " : "Output ") + std::to_string(I + 1);
      if (VstDispatch(Pass == 0 ? effGetInputProperties : effGetOutputProperties, static_cast<int32_t>(I), 0, &Props,
                      0.0f) == 1) {
        Props.Caption[sizeof(Props.Caption) - 1] = '\0';
        if (Props.Caption[0]) Name = Props.Caption;
      }
      if (TPWBasicPin* Pin = Pins.Get(I)) Pin->SetName(Name);
    }
  }
}

// Plug-ins that do not claim "bypass" are not sent effSetBypass: some
// released plug-ins crash on a message they never expected.
void TSRVSTHost::UpdateBypass() {
  FPlugInBypasses = FEffect.load() && PlugInCanDo("bypass") == 1;
  if (!FPlugInBypasses) return;
  VstDispatch(effSetBypass, 0, FBypass ? 1 : 0, nullptr, 0.0f);
}

void TSRVSTHost::UpdatePanLawType() {
  switch (FPanLawType) {
    case TSRVSTPanLawType::vstkCurrent: break;
    case TSRVSTPanLawType::vstkLinearPanLaw: VstDispatch(effSetPanLaw, 0, kLinearPanLaw, nullptr, 0.0f); break;
    case TSRVSTPanLawType::vstkEqualPowerPanLaw:
      VstDispatch(effSetPanLaw, 0, kEqualPowerPanLaw, nullptr, 0.0f);
      break;
  }
}

// ---- properties -----------------------------------------------------------------------

// Setters take the component lock as every setter does; the values are
// atomic so that the host callback reads them without it.
#define QV_ATOMIC_PROPERTY(Type, Name, Field)            \
  Type TSRVSTHost::Get##Name() const { return Field.load(); } \
  void TSRVSTHost::Set##Name(Type Value) {               \
    TLockGuard G(GetLock());                             \
    Field.store(Value);                                  \
  }
QV_ATOMIC_PROPERTY(int32_t, HostVendorVersion, FHostVendorVersion)
QV_ATOMIC_PROPERTY(TSRVSTHostLanguage, HostLanguage, FHostLanguage)
QV_ATOMIC_PROPERTY(float, HostTempo, FHostTempo)
QV_ATOMIC_PROPERTY(int32_t, NumberAutomatable, FNumberAutomatable)
QV_ATOMIC_PROPERTY(bool, AutoIdle, FAutoIdle)
QV_ATOMIC_PROPERTY(int32_t, InputLatency, FInputLatency)
QV_ATOMIC_PROPERTY(int32_t, OutputLatency, FOutputLatency)
#undef QV_ATOMIC_PROPERTY

int32_t TSRVSTHost::GetHostVstVersion() const {
  TLockGuard G(GetLock());
  return FHostVstVersion;
}
void TSRVSTHost::SetHostVstVersion(int32_t Value) {
  TLockGuard G(GetLock());
  FHostVstVersion = Value;
}

TSRVSTHostSupports TSRVSTHost::GetHostSuports() const { return TSRVSTHostSupports::FromMask(FHostSuports.load()); }
void TSRVSTHost::SetHostSuports(TSRVSTHostSupports Value) {
  TLockGuard G(GetLock());
  FHostSuports.store(Value.Mask());
}

TSRVSTPrecision TSRVSTHost::GetPrecision() const {
  TLockGuard G(GetLock());
  return FPrecision;
}
void TSRVSTHost::SetPrecision(TSRVSTPrecision Value) {
  TLockGuard G(GetLock());
  FPrecision = Value;
}

std::string TSRVSTHost::GetHostVendorString() const {
  std::lock_guard<std::mutex> G(FTextLock);
  return FHostVendorString;
}
void TSRVSTHost::SetHostVendorString(const std::string& Value) {
  TLockGuard G(GetLock());
  std::lock_guard<std::mutex> T(FTextLock);
  FHostVendorString = Value;
}
std::string TSRVSTHost::GetHostProductString() const {
  std::lock_guard<std::mutex> G(FTextLock);
  return FHostProductString;
}
void TSRVSTHost::SetHostProductString(const std::string& Value) {
  TLockGuard G(GetLock());
  std::lock_guard<std::mutex> T(FTextLock);
  FHostProductString = Value;
}

void TSRVSTHost::SetSampleRate(double Value) {
  if (!(Value > 0.0) || !std::isfinite(Value)) return;
  TLockGuard G(GetLock());
  if (IsStreaming()) return;  // the running stream's format stays as it came
  FFormat.SetSampleRate(Value);
  FVstTimeInfo->SampleRate = Value;
  VstDispatch(effSetSampleRate, 0, 0, nullptr, static_cast<float>(Value));
}
double TSRVSTHost::GetSampleRate() const { return FFormat.GetSampleRate(); }

void TSRVSTHost::SetBufferSize(size_t Value) {
  TLockGuard G(GetLock());
  TSRBasicMultiInput::SetBufferSize(std::min<size_t>(Value, INT32_MAX));
  FBlockSize.store(static_cast<int32_t>(TSRBasicMultiInput::GetBufferSize()));
  if (!IsStreaming()) VstDispatch(effSetBlockSize, 0, GetBlockSize(), nullptr, 0.0f);
}

int32_t TSRVSTHost::GetParameterQuantization(int32_t) const { return FParameterQuantization.load(); }
void TSRVSTHost::SetParameterQuantization(int32_t Value) {
  TLockGuard G(GetLock());
  FParameterQuantization.store(Value);
}

TSRVSTPanLawType TSRVSTHost::GetPanLawType() const {
  TLockGuard G(GetLock());
  return FPanLawType;
}
void TSRVSTHost::SetPanLawType(TSRVSTPanLawType Value) {
  TLockGuard G(GetLock());
  FPanLawType = Value;
  UpdatePanLawType();
}

bool TSRVSTHost::GetBypass() const {
  TLockGuard G(GetLock());
  return FBypass;
}
void TSRVSTHost::SetBypass(bool Value) {
  TLockGuard G(GetLock());
  if (FBypass == Value) return;
  FBypass = Value;
  UpdateBypass();
}

bool TSRVSTHost::GetDoublePrecision() const {
  TLockGuard G(GetLock());
  return FStream.Double;
}

double TSRVSTHost::GetOutputSampleRate() const { return FOutputSampleRate.load(); }
void TSRVSTHost::SetOutputSampleRate(float Value) { FOutputSampleRate.store(Value); }

bool TSRVSTHost::GetWantsMidi() const { return FWantMidi.load(); }

bool TSRVSTHost::GetMasterCanDo(const std::string& Text) const {
  const TSRVSTHostSupports Supports = GetHostSuports();
  for (int I = 0; I < 18; ++I)
    if (Text == kHostCanDoNames[I]) return Supports.Contains(static_cast<TSRVSTHostSupportsFlag>(I));
  return false;
}

// audioMasterTempoAt answers beats per minute times 10000.
int32_t TSRVSTHost::GetTempoAnswer() const {
  return static_cast<int32_t>(std::lround(static_cast<double>(GetHostTempo()) * 10000.0));
}

bool TSRVSTHost::GetIsPinConnected(int32_t Index, bool Input) {
  // The pin lists share the component lock: asked only when it is free (or
  // ours), so that a plug-in's own thread never waits for it; else false.
  if (!GetLock().TryEnter()) return false;
  TPWPinList& Pins = Input ? GetInputPins() : GetOutputPins();
  bool Connected = false;
  if (Index >= 0 && static_cast<size_t>(Index) < Pins.CountLocked()) {
    TPWBasicPin* Pin = Pins.GetLocked(static_cast<size_t>(Index));
    Connected = Pin && Pin->IsConnected();
  }
  GetLock().Leave();
  return Connected;
}

std::string TSRVSTHost::GetMasterGetDirectory() const {
  const std::string File = GetFileName();
  const size_t Slash = File.find_last_of("/\\");
  return Slash == std::string::npos ? std::string() : File.substr(0, Slash + 1);
}

void TSRVSTHost::SetTimeInfo(TVstTimeInfoFlags Flags, const TVstTimeInfo* Info) {
  {
    std::lock_guard<std::mutex> G(FTimeLock);
    if (Info) {
      FPendingTime.Fields |= Flags.Mask();
      using F = TVstTimeInfoFlag;
      TVstTimeInfo& P = FPendingTime.Info;
      if (Flags.Contains(F::kVstNanosValid)) P.NanoSeconds = Info->NanoSeconds;
      if (Flags.Contains(F::kVstPpqPosValid)) P.ppqPos = Info->ppqPos;
      if (Flags.Contains(F::kVstTempoValid)) P.Tempo = Info->Tempo;
      if (Flags.Contains(F::kVstBarsValid)) P.BarStartPos = Info->BarStartPos;
      if (Flags.Contains(F::kVstCyclePosValid)) {
        P.CycleStartPos = Info->CycleStartPos;
        P.CycleEndPos = Info->CycleEndPos;
      }
      if (Flags.Contains(F::kVstTimeSigValid)) {
        P.TimeSigNumerator = Info->TimeSigNumerator;
        P.TimeSigDenominator = Info->TimeSigDenominator;
      }
      if (Flags.Contains(F::kVstSmpteValid)) {
        P.SmpteOffset = Info->SmpteOffset;
        P.SmpteFrameRate = Info->SmpteFrameRate;
      }
      if (Flags.Contains(F::kVstClockValid)) P.SamplesToNextClock = Info->SamplesToNextClock;
    }
    FPendingTime.Flags = Flags;
    FTimePending.store(true, std::memory_order_release);
  }
  if (GetLock().TryEnter()) {
    ApplyPendingTime();
    GetLock().Leave();
  }
}

void TSRVSTHost::ApplyPendingTime() {
  if (!FTimePending.load(std::memory_order_acquire)) return;
  std::unique_lock<std::mutex> G(FTimeLock, std::try_to_lock);
  if (!G.owns_lock()) return;
  using F = TVstTimeInfoFlag;
  const TVstTimeInfoFlags Fields = TVstTimeInfoFlags::FromMask(FPendingTime.Fields);
  const TVstTimeInfo& P = FPendingTime.Info;
  TVstTimeInfo& T = *FVstTimeInfo;
  if (Fields.Contains(F::kVstNanosValid)) T.NanoSeconds = P.NanoSeconds;
  if (Fields.Contains(F::kVstPpqPosValid)) T.ppqPos = P.ppqPos;
  if (Fields.Contains(F::kVstTempoValid)) T.Tempo = P.Tempo;
  if (Fields.Contains(F::kVstBarsValid)) T.BarStartPos = P.BarStartPos;
  if (Fields.Contains(F::kVstCyclePosValid)) {
    T.CycleStartPos = P.CycleStartPos;
    T.CycleEndPos = P.CycleEndPos;
  }
  if (Fields.Contains(F::kVstTimeSigValid)) {
    T.TimeSigNumerator = P.TimeSigNumerator;
    T.TimeSigDenominator = P.TimeSigDenominator;
  }
  if (Fields.Contains(F::kVstSmpteValid)) {
    T.SmpteOffset = P.SmpteOffset;
    T.SmpteFrameRate = P.SmpteFrameRate;
  }
  if (Fields.Contains(F::kVstClockValid)) T.SamplesToNextClock = P.SamplesToNextClock;
  T.Flags = FPendingTime.Flags;
  FPendingTime.Fields = 0;
  FTimePending.store(false, std::memory_order_relaxed);
}

// ---- power, idle, events ----------------------------------------------------------------

void TSRVSTHost::Resume() { VstDispatch(effMainsChanged, 0, 1, nullptr, 0.0f); }
// Sends the same value as Resume: kept as the component always did.
void TSRVSTHost::Suspend() { VstDispatch(effMainsChanged, 0, 1, nullptr, 0.0f); }

void TSRVSTHost::Idle() {
  // A plug-in that asks for idle again from inside its idle call would never end.
  if (FIdling.exchange(true)) return;
  VstDispatch(effIdle, 0, 0, nullptr, 0.0f);
  FIdling.store(false);
}

void TSRVSTHost::ResumeStream() {
  Resume();
  FStream.MainsOn = true;
}

void TSRVSTHost::EnabledChanged() {
  // Enabled mid-stream: the plug-in is powered on before it processes.
  TLockGuard G(GetLock());
  if (GetEnabled() && IsStreaming() && !FStream.MainsOn) ResumeStream();
}

int32_t TSRVSTHost::ProcessEvents(const TVstEvents& Events) {
  return VstDispatch(effProcessEvents, 0, 0, const_cast<TVstEvents*>(&Events), 0.0f);
}

void TSRVSTHost::DoWantMidi() { FWantMidi = true; }

void TSRVSTHost::DoIOChanged(PVSTEffect Effect) {
  // Counts out of range are reported and change nothing. Otherwise the pins
  // follow now when no stream runs and the lock is free (Open re-reads them
  // itself after effOpen); a running stream keeps its channel arrays, with
  // stand-ins for added channels, until the next stream start.
  std::string Message;
  int32_t Code = 0;
  if (!CheckChannelCounts(FEffect.load(), Message, Code)) {
    Warning(Message, Code);
  } else if (!IsStreaming() && GetLock().TryEnter()) {
    if (!IsStreaming()) PopulatePinNames();
    GetLock().Leave();
  }
  if (OnIOChanged) OnIOChanged(this);
}

void TSRVSTHost::DoNeedIdle() {
  if (GetAutoIdle()) Idle();
  if (OnNeedIdle) OnNeedIdle(this);
}

void TSRVSTHost::DoSizeWindow(int32_t Width, int32_t Height) {
  // Only a form of the host's own (or the application's handler) is sized;
  // without one the plug-in is not even asked for its vendor.
  const bool Form = FEditor && FEditor->GetHasForm();
  if (!OnSizeWindow && !Form) return;
  std::string Vendor = GetVendorString();
  std::transform(Vendor.begin(), Vendor.end(), Vendor.begin(),
                 [](unsigned char C) { return static_cast<char>(std::toupper(C)); });
  // Deliberately ignored for these two vendors, whose editors size themselves: kept as the component always did.
  if (Vendor.find("DASH") != std::string::npos || Vendor.find("WUSIK") != std::string::npos) return;
  if (OnSizeWindow) OnSizeWindow(this, Width, Height);
  // Windows belong to the main thread; a request from another thread waits there.
  if (Form) Threading::MainThreadExecute(this, false, [this, Width, Height] { FEditor->SizeForm(Width, Height); });
}

void TSRVSTHost::DoUpdateDisplay() {
  if (OnUpdateDisplay) OnUpdateDisplay(this);
}

int32_t TSRVSTHost::DoBeginEdit(int32_t Index) {
  bool Handled = false;
  if (OnBeginEdit) OnBeginEdit(this, Index, Handled);
  return Handled ? 1 : 0;
}

int32_t TSRVSTHost::DoEndEdit(int32_t Index) {
  bool Handled = false;
  if (OnEndEdit) OnEndEdit(this, Index, Handled);
  return Handled ? 1 : 0;
}

// ---- the host callback ----------------------------------------------------------------------

intptr_t TSRVSTHost::HostCallback(PVSTEffect Effect, int32_t Opcode, int32_t Index, intptr_t Value, void* Ptr,
                                  float Opt) noexcept {
  TSRVSTHost* Host = nullptr;
  if (Effect && Effect->User) Host = static_cast<TSRVSTHost*>(Effect->User);
  if (!Host) Host = GLoadingHost.load();
  if (!Host) return 0;
  Platform::ResetFloatingPointControlWord();
  try {
    if (Opcode == audioMasterGetTime) {
      // The record lives below 2 GB, so its 32-bit answer is its address.
      // Where the system gave no low memory, the whole address is answered:
      // a truncated one would point the plug-in at memory that is not ours.
      const intptr_t Address = reinterpret_cast<intptr_t>(Host->GetVstTimeInfoPtr());
      return Host->FTimeInfoLow ? static_cast<intptr_t>(static_cast<int32_t>(Address)) : Address;
    }
    return static_cast<intptr_t>(Host->HandleCallback(Effect, Opcode, Index, Value, Ptr, Opt));
  } catch (...) {
    return 0;
  }
}

int32_t TSRVSTHost::HandleCallback(PVSTEffect Effect, int32_t Opcode, int32_t Index, intptr_t Value, void* Ptr,
                                   float Opt) {
  switch (Opcode) {
    case audioMasterAutomate: DoMasterAutomate(Index, static_cast<int32_t>(Value)); return 0;
    // The only answer read under the component lock: kept as the component always did.
    case audioMasterVersion: return GetHostVstVersion();
    case audioMasterCurrentId: Identify(); return 0;
    case audioMasterIdle: DoMasterIdle(); return 0;
    case audioMasterPinConnected: GetIsPinConnected(Index, Value == 0); return 0;
    case audioMasterWantMidi: DoWantMidi(); return 0;
    case audioMasterProcessEvents:
      // Events from the plug-in reach OnPlugInEvents; the host's own
      // ProcessEvents sends events the other way, to the plug-in.
      if (Ptr && OnPlugInEvents) OnPlugInEvents(this, *static_cast<const TVstEvents*>(Ptr));
      return 0;
    case audioMasterSetTime:
      SetTimeInfo(TVstTimeInfoFlags::FromMask(static_cast<uint32_t>(Value) & 0xFFFFu),
                  static_cast<const TVstTimeInfo*>(Ptr));
      return 0;
    case audioMasterTempoAt: return GetTempoAnswer();
    case audioMasterGetNumAutomatableParameters: return GetNumberAutomatable();
    case audioMasterGetParameterQuantization: return GetParameterQuantization(static_cast<int32_t>(Value));
    case audioMasterIOChanged: DoIOChanged(Effect); return 0;
    case audioMasterNeedIdle: DoNeedIdle(); return 0;
    case audioMasterSizeWindow: DoSizeWindow(Index, static_cast<int32_t>(Value)); return 0;
    case audioMasterGetSampleRate: return static_cast<int32_t>(std::lround(GetSampleRate()));
    case audioMasterGetBlockSize: return GetBlockSize();
    case audioMasterGetInputLatency: return GetInputLatency();
    case audioMasterGetOutputLatency: return GetOutputLatency();
    case audioMasterWillReplaceOrAccumulate: return 1;
    case audioMasterGetCurrentProcessLevel: return 2;
    case audioMasterGetAutomationState: return 4;
    case audioMasterSetOutputSampleRate: SetOutputSampleRate(Opt); return 0;
    case audioMasterGetSpeakerArrangement: return GetOutputSpeakerArrangement();
    // The plug-in's buffer for these strings holds 64 bytes: longer texts are cut there.
    case audioMasterGetVendorString: CopyToPlugIn(GetHostVendorString(), Ptr, 64); return 0;
    case audioMasterGetProductString: CopyToPlugIn(GetHostProductString(), Ptr, 64); return 0;
    case audioMasterCanDo:
      // Evaluated, but the plug-in is answered 0 whatever the host claims.
      if (Ptr) GetMasterCanDo(std::string(static_cast<const char*>(Ptr)));
      return 0;
    case audioMasterGetLanguage: return static_cast<int32_t>(GetHostLanguage());
    case audioMasterOpenWindow: DoOpenWindow(Ptr); return 0;
    case audioMasterCloseWindow: DoCloseWindow(Ptr); return 0;
    case audioMasterGetDirectory: GetMasterGetDirectory(); return 0;
    case audioMasterUpdateDisplay: DoUpdateDisplay(); return 1;
    case audioMasterBeginEdit: return DoBeginEdit(Index);
    case audioMasterEndEdit: return DoEndEdit(Index);
    case audioMasterOpenFileSelector: return DoOpenFileSelector(Ptr);
    case audioMasterCloseFileSelector: return DoCloseFileSelector(Ptr);
    default: return 0;
  }
}

// ---- audio --------------------------------------------------------------------------------------

void TSRVSTHost::StreamStarted() {
  Open();
  FBlockSize.store(static_cast<int32_t>(std::min<size_t>(TSRBasicMultiInput::GetBufferSize(), INT32_MAX)));
  const size_t B = static_cast<size_t>(std::max(GetBlockSize(), 1));
  PVSTEffect E = FEffect.load();
  TStreamState& S = FStream;
  std::string Message;
  int32_t Code = 0;
  S.Usable = E && CheckChannelCounts(E, Message, Code);
  if (E && !S.Usable) Warning(Message, Code);  // counts changed since open: nothing is processed
  S.Inputs = S.Usable ? static_cast<size_t>(E->numInputs) : 0;
  S.Outputs = S.Usable ? static_cast<size_t>(E->numOutputs) : 0;
  S.Block = B;
  S.MainsOn = false;
  S.InBlocks.assign(S.Inputs, {});
  S.OutBlocks.assign(S.Outputs, {});
  FWorkBuffer = TSRAudioBuffer::Create(1, B, FFormat.GetBits(), FFormat.GetSampleRate());
  for (auto& Block : S.InBlocks) Block = TWBBlockBuffer::Create(B * 8, 0);
  for (auto& Block : S.OutBlocks) Block = TWBBlockBuffer::Create(B * 8, 0);
  S.Silence = TWBBlockBuffer::Create(B * 8, 0);
  S.Discard = TWBBlockBuffer::Create(B * 8, 0);
  // Every entry the plug-in may index holds a block: its own channels, then
  // the stand-ins for channels it may declare before the next start.
  S.InAddrs.assign(kMaxPlugInChannels, S.Silence->GetData());
  S.OutAddrs.assign(kMaxPlugInChannels, S.Discard->GetData());
  for (size_t I = 0; I < S.Inputs; ++I) S.InAddrs[I] = S.InBlocks[I]->GetData();
  for (size_t I = 0; I < S.Outputs; ++I) S.OutAddrs[I] = S.OutBlocks[I]->GetData();
  S.Double = false;
  if (FPrecision == TSRVSTPrecision::vstp32) {
    VstDispatch(effSetProcessPrecision, 0, pp32, nullptr, 0.0f);
  } else if (GetEffectFlags().Contains(TEffFlag::effFlagsCanDoubleReplacing)) {
    S.Double = VstDispatch(effSetProcessPrecision, 0, pp64, nullptr, 0.0f) != 0;
  }
  UpdatePanLawType();
  ApplyPendingTime();
  const double Rate = FFormat.GetSampleRate();
  {
    // A fresh transport: playing from sample 0 at the host's tempo.
    using F = TVstTimeInfoFlag;
    FVstTimeInfo->SampleRate = Rate;
    FVstTimeInfo->SamplePos = 0.0;
    FVstTimeInfo->ppqPos = 0.0;
    FVstTimeInfo->Tempo = GetHostTempo();
    FVstTimeInfo->Flags = TVstTimeInfoFlags{F::kVstTransportChanged, F::kVstTransportPlaying, F::kVstPpqPosValid,
                                            F::kVstTempoValid, F::kVstTimeSigValid};
  }
  VstDispatch(effSetSampleRate, 0, 0, nullptr, static_cast<float>(Rate));
  VstDispatch(effSetBlockSize, 0, static_cast<int32_t>(B), nullptr, 0.0f);
  VstDispatch(effSetBlockSizeAndSampleRate, 0, static_cast<int32_t>(B), nullptr, static_cast<float>(Rate));
  if (GetEnabled()) ResumeStream();
}

void TSRVSTHost::IntStop() {
  // The scratch arrays stay until the next stream start; only the working
  // buffer goes, as in the base. The transport stops.
  TSRBasicMultiInput::IntStop();
  FVstTimeInfo->Flags.Exclude(TVstTimeInfoFlag::kVstTransportPlaying);
  FVstTimeInfo->Flags.Include(TVstTimeInfoFlag::kVstTransportChanged);
}

void TSRVSTHost::PassThrough() {
  for (size_t I = 0, N = std::min(GetInputPins().CountLocked(), GetOutputPins().CountLocked()); I < N; ++I) {
    InputAt(I)->StretchLoadBuffer(*FWorkBuffer);
    OutputAt(I)->SubmitBuffer(FWorkBuffer);
  }
}

void TSRVSTHost::CalculateSendOutput() {
  const size_t Samples = GetCurrentBlockSize();
  if (!FWorkBuffer || !FWorkBuffer->SetSampleCount(Samples)) return;
  ApplyPendingTime();
  // Disabled, or bypassed with a plug-in that does not bypass itself: the
  // host passes the audio through.
  if (!GetEnabled() || (FBypass && !FPlugInBypasses)) {
    PassThrough();
    return;
  }
  // Enabled since the stream started, before the enabling thread could say so.
  if (!FStream.MainsOn) ResumeStream();
  ProcessBlock(std::min(Samples, FStream.Block));
}

void TSRVSTHost::ProcessBlock(size_t Samples) {
  PVSTEffect E = FEffect.load();
  TStreamState& S = FStream;
  const size_t InPins = GetInputPins().CountLocked(), OutPins = GetOutputPins().CountLocked();
  const unsigned Bits = FWorkBuffer->GetBits();
  // 2^bits: a full-scale sample reaches the plug-in as +-0.5, kept as the
  // component always scaled it.
  const double Scale = static_cast<double>(int64_t(2) << (Bits - 1));
  const bool Double = S.Double;
  for (size_t I = 0, N = std::min(InPins, S.Inputs); I < N; ++I) {
    InputAt(I)->StretchLoadBuffer(*FWorkBuffer);
    if (Double)
      LoadChannel(*FWorkBuffer, Samples, Scale, static_cast<double*>(S.InAddrs[I]));
    else
      LoadChannel(*FWorkBuffer, Samples, Scale, static_cast<float*>(S.InAddrs[I]));
  }
  // Channels declared since the start: the plug-in gets a pointer for each,
  // as long as there are no more than the arrays hold.
  const int32_t DeclaredIn = E ? E->numInputs : 0, DeclaredOut = E ? E->numOutputs : 0;
  const bool Fits = S.Usable && DeclaredIn >= 0 && DeclaredIn <= kMaxPlugInChannels && DeclaredOut >= 0 &&
                    DeclaredOut <= kMaxPlugInChannels;
  if (Fits && static_cast<size_t>(DeclaredIn) > S.Inputs) std::memset(S.Silence->GetData(), 0, S.Silence->GetSize());
  if (E && Fits) {
    const int32_t Frames = static_cast<int32_t>(Samples);
    auto** Ins = reinterpret_cast<PPSingle>(S.InAddrs.data());
    auto** Outs = reinterpret_cast<PPSingle>(S.OutAddrs.data());
    Platform::ResetFloatingPointControlWord();
    if (E->EffectFlags.Contains(TEffFlag::effFlagsCanReplacing) && E->ProcessReplacing) {
      E->ProcessReplacing(E, Ins, Outs, Frames);
    } else {
      // The accumulating routine adds to cleared outputs; a plug-in without
      // one leaves them silent rather than repeating the previous block.
      for (auto& Block : S.OutBlocks) std::memset(Block->GetData(), 0, Block->GetSize());
      std::memset(S.Discard->GetData(), 0, S.Discard->GetSize());
      if (E->Process) E->Process(E, Ins, Outs, Frames);
    }
  } else {
    for (auto& Block : S.OutBlocks) std::memset(Block->GetData(), 0, Block->GetSize());
  }
  // Advance the transport past this block.
  FVstTimeInfo->SamplePos += static_cast<double>(Samples);
  if (FVstTimeInfo->SampleRate > 0.0)
    FVstTimeInfo->ppqPos = FVstTimeInfo->SamplePos / FVstTimeInfo->SampleRate * FVstTimeInfo->Tempo / 60.0;
  FVstTimeInfo->Flags.Exclude(TVstTimeInfoFlag::kVstTransportChanged);
  for (size_t I = 0, N = std::min(OutPins, S.Outputs); I < N; ++I) {
    const size_t NonFinite =
        Double ? StoreChannel(static_cast<const double*>(S.OutAddrs[I]), Samples, Scale, *FWorkBuffer)
               : StoreChannel(static_cast<const float*>(S.OutAddrs[I]), Samples, Scale, *FWorkBuffer);
    if (NonFinite) FNonFinite.fetch_add(NonFinite, std::memory_order_relaxed);
    OutputAt(I)->SubmitBuffer(FWorkBuffer);
  }
}

// ---- published properties ---------------------------------------------------

template <>
struct TWBEnumNames<TSRVSTPrecision> {
  static constexpr const char* const Names[] = {"vstp32", "vstp64"};
};
template <>
struct TWBEnumNames<TSRVSTPanLawType> {
  static constexpr const char* const Names[] = {"vstkCurrent", "vstkLinearPanLaw", "vstkEqualPowerPanLaw"};
};
template <>
struct TWBEnumNames<TSRVSTHostLanguage> {
  static constexpr const char* const Names[] = {"vstlLangUnknown", "vstlLangEnglish", "vstlLangGerman",
                                                "vstlLangFrench",  "vstlLangItalian", "vstlLangSpanish",
                                                "vstlLangJapanese"};
};

namespace {

// The plug-in's parameter values as an extra property, streamed after the
// published ones (FileName included): a host that is closed when they load
// applies them when it opens.
TWBClassInfo WithParameterValues(TWBClassInfo Info) {
  Info.DefineProperties = [](void* Object, TWBFiler& Filer) {
    TSRVSTParameters& P = static_cast<TSRVSTHost*>(Object)->GetParameters();
    Filer.DefineProperty(
        "ParameterValues", [&P](TWBReader& R) { P.ReadData(R); }, [&P](TWBWriter& W) { P.WriteData(W); },
        P.HasData());
  };
  return Info;
}

}  // namespace

const TWBClassInfo& TSRVSTHost::ClassInfo() {
  using H = TSRVSTHost;
  // FileName comes last: setting it opens the plug-in, which then hears the
  // rate, block size and host answers loaded before it.
  static const TWBClassInfo Info = WithParameterValues(MakeClassInfo(
      "TSRVSTHost", &TSRBasicMultiInput::ClassInfo(),
      {PropertyOf<H, size_t>(
           "BufferSize", [](H& O) { return O.GetBufferSize(); }, [](H& O, size_t V) { O.SetBufferSize(V); },
           size_t(256)),
       Property("SampleRate", &H::GetSampleRate, &H::SetSampleRate, 44100.0),
       Property("Precision", &H::GetPrecision, &H::SetPrecision, TSRVSTPrecision::vstp32),
       Property("PanLawType", &H::GetPanLawType, &H::SetPanLawType, TSRVSTPanLawType::vstkCurrent),
       Property("Bypass", &H::GetBypass, &H::SetBypass, false),
       Property("HostVstVersion", &H::GetHostVstVersion, &H::SetHostVstVersion, int32_t(2400)),
       Property("HostVendorString", &H::GetHostVendorString, &H::SetHostVendorString, std::string("Quorvel")),
       Property("HostProductString", &H::GetHostProductString, &H::SetHostProductString,
                std::string("Quorvel VST Host")),
       Property("HostVendorVersion", &H::GetHostVendorVersion, &H::SetHostVendorVersion, int32_t(1)),
       Property("HostLanguage", &H::GetHostLanguage, &H::SetHostLanguage, TSRVSTHostLanguage::vstlLangEnglish),
       PropertyOf<H, uint32_t>(
           "HostSuports", [](H& O) { return static_cast<uint32_t>(O.GetHostSuports().Mask()); },
           [](H& O, uint32_t V) { O.SetHostSuports(TSRVSTHostSupports::FromMask(V)); }, kDefaultHostSupportsMask),
       Property("HostTempo", &H::GetHostTempo, &H::SetHostTempo, 120.0f),
       Property("NumberAutomatable", &H::GetNumberAutomatable, &H::SetNumberAutomatable, int32_t(0)),
       PropertyOf<H, int32_t>(
           "ParameterQuantization", [](H& O) { return O.GetParameterQuantization(); },
           [](H& O, int32_t V) { O.SetParameterQuantization(V); }, int32_t(0)),
       Property("AutoIdle", &H::GetAutoIdle, &H::SetAutoIdle, false),
       Property("InputLatency", &H::GetInputLatency, &H::SetInputLatency, int32_t(0)),
       Property("OutputLatency", &H::GetOutputLatency, &H::SetOutputLatency, int32_t(0)),
       Property("FileName", &H::GetFileName, &H::SetFileName, std::string())},
      Factory<TSRVSTHost>()));
  return Info;
}

namespace Srvsthost {

void RegisterPkg() { Design::Components::RegisterComponents({&TSRVSTHost::ClassInfo()}); }
void UnregisterPkg() { Design::Components::UnregisterComponents({&TSRVSTHost::ClassInfo()}); }

}  // namespace Srvsthost

}  // namespace Quorvel
