// The VST 3 test module: a factory with four classes (a component with a
// separate controller, that controller, a component that is its own
// controller, and a component that names no controller), written from the
// published interface facts. Every call the host makes is recorded; knobs
// make chosen steps fail. One source, built once per variant:
//   QV_VARIANT_MAIN             the classes in the order above
//   QV_VARIANT_CONTROLLERFIRST  the controller class listed first
//   QV_VARIANT_NOFACTORY2       the factory offers no IPluginFactory2
//   QV_VARIANT_FAILENTRY        the entry function refuses
//   QV_VARIANT_NOENTRY          no entry or exit function
//   QV_VARIANT_NOFACTORY        no GetPluginFactory
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "testplugins/vst2/Qveditorview.h"
#include "testplugins/vst3/Qvtestvst3.h"

#ifdef _WIN32
#define QV_EXPORT extern "C" __declspec(dllexport)
#else
#define QV_EXPORT extern "C" __attribute__((visibility("default")))
#endif

using namespace Quorvel;
using namespace Quorvel::Vst3hostintf;
using namespace Quorvel::Qvtestvst3;

namespace {

constexpr TResult kOk = Platform::Vst3ResultToModule(Platform::kVst3ResultOk);
constexpr TResult kFalse = Platform::Vst3ResultToModule(Platform::kVst3ResultFalse);
constexpr TResult kNoInterface = Platform::Vst3ResultToModule(Platform::kVst3NoInterface);
constexpr TResult kInvalidArgument = Platform::Vst3ResultToModule(Platform::kVst3InvalidArgument);
constexpr TResult kNotImplemented = Platform::Vst3ResultToModule(Platform::kVst3NotImplemented);

// ---- record and knobs ------------------------------------------------------------

std::mutex GLock;
std::vector<std::string> GCalls;
// For each call, the thread it came on: 0 for the first thread seen, 1 for the next, ...
std::vector<int32_t> GCallThreads;
std::vector<std::thread::id> GThreads;
std::vector<std::string> GFailSteps;
int32_t GFailResult = Platform::kVst3InternalError;
std::atomic<int32_t> GLive{0};
// The bus layout (under GLock) and the processing knobs (read by process
// without the lock).
std::vector<int32_t> GInputBuses{2}, GOutputBuses{2};
std::atomic<double> GGain{1.0};
std::atomic<bool> GSwap{false};
std::atomic<bool> GFailProcess{false};
std::atomic<int32_t> GFailCode{Platform::kVst3InternalError};
TProcessRecord GProcessRecords[kProcessRecordCapacity];
std::atomic<int32_t> GProcessCalls{0};
std::atomic<int32_t> GHostReferences{0};
// The rectangle the view asks for (under GLock).
TViewRect GResizeRect{0, 0, kResizedViewWidth, kResizedViewHeight};

void Record(const std::string& Line) {
  std::lock_guard<std::mutex> G(GLock);
  GCalls.push_back(Line);
  const std::thread::id Self = std::this_thread::get_id();
  size_t T = 0;
  while (T < GThreads.size() && GThreads[T] != Self) ++T;
  if (T == GThreads.size()) GThreads.push_back(Self);
  GCallThreads.push_back(static_cast<int32_t>(T));
}

bool Fails(const char* Step) {
  std::lock_guard<std::mutex> G(GLock);
  for (const auto& S : GFailSteps)
    if (S == Step) return true;
  return false;
}

TResult Failure() {
  std::lock_guard<std::mutex> G(GLock);
  return Platform::Vst3ResultToModule(GFailResult);
}

std::vector<int32_t> ParseBuses(const std::string& Text) {
  std::vector<int32_t> Buses;
  size_t Start = 0;
  while (Start < Text.size()) {
    size_t End = Text.find('+', Start);
    if (End == std::string::npos) End = Text.size();
    Buses.push_back(static_cast<int32_t>(std::strtol(Text.c_str() + Start, nullptr, 10)));
    Start = End + 1;
  }
  return Buses;
}

void ApplyOptions(const char* Options) {
  std::lock_guard<std::mutex> G(GLock);
  std::string Text = Options ? Options : "";
  size_t Start = 0;
  while (Start <= Text.size()) {
    size_t End = Text.find(',', Start);
    if (End == std::string::npos) End = Text.size();
    const std::string Item = Text.substr(Start, End - Start);
    if (Item.rfind("fail=", 0) == 0) GFailSteps.push_back(Item.substr(5));
    if (Item == "fail=process") GFailProcess = true;
    if (Item.rfind("result=", 0) == 0) {
      GFailResult = static_cast<int32_t>(std::strtoul(Item.c_str() + 7, nullptr, 16));
      GFailCode = GFailResult;
    }
    if (Item.rfind("buses=", 0) == 0) {
      const size_t Colon = Item.find(':');
      GInputBuses = ParseBuses(Item.substr(6, Colon == std::string::npos ? std::string::npos : Colon - 6));
      GOutputBuses = Colon == std::string::npos ? std::vector<int32_t>{} : ParseBuses(Item.substr(Colon + 1));
    }
    if (Item.rfind("gain=", 0) == 0) GGain = std::strtod(Item.c_str() + 5, nullptr);
    if (Item == "map=swap") GSwap = true;
    if (Item.rfind("viewresize=", 0) == 0) {
      long V[4] = {0, 0, 0, 0};
      const char* P = Item.c_str() + 11;
      for (long& X : V) {
        char* End = nullptr;
        X = std::strtol(P, &End, 10);
        P = *End == ':' ? End + 1 : End;
      }
      GResizeRect = TViewRect{int32_t(V[0]), int32_t(V[1]), int32_t(V[2]), int32_t(V[3])};
    }
    Start = End + 1;
  }
}

int32_t BusChannels(int32_t Direction, int32_t Index) {
  std::lock_guard<std::mutex> G(GLock);
  const std::vector<int32_t>& Buses = Direction == kInput ? GInputBuses : GOutputBuses;
  return Index >= 0 && size_t(Index) < Buses.size() ? Buses[size_t(Index)] : -1;
}

int32_t BusCount(int32_t Direction) {
  std::lock_guard<std::mutex> G(GLock);
  return static_cast<int32_t>((Direction == kInput ? GInputBuses : GOutputBuses).size());
}

// Keeps what one process call carried, without allocating.
void RecordProcess(const TVST3ProcessData& Data) {
  const int32_t Index = GProcessCalls.fetch_add(1);
  if (Index >= kProcessRecordCapacity) return;
  TProcessRecord& R = GProcessRecords[Index];
  R = TProcessRecord{};
  R.Samples = Data.numSamples;
  R.SampleSize = Data.symbolicSampleSize;
  R.ProcessMode = Data.processMode;
  R.Inputs = Data.numInputs;
  R.Outputs = Data.numOutputs;
  for (int32_t B = 0; B < kRecordedBuses; ++B) {
    if (B < Data.numInputs && Data.inputs) {
      R.InputChannels[B] = Data.inputs[B].numChannels;
      R.InputSilence[B] = Data.inputs[B].silenceFlags;
    }
    if (B < Data.numOutputs && Data.outputs) {
      R.OutputChannels[B] = Data.outputs[B].numChannels;
      R.OutputSilence[B] = Data.outputs[B].silenceFlags;
    }
  }
  R.Events = Data.inputEvents ? Data.inputEvents->getEventCount() : -1;
  R.ParameterChanges = Data.inputParameterChanges ? Data.inputParameterChanges->getParameterCount() : -1;
}

// Output channel = gain x the mapped input channel of the same bus.
template <typename F>
void ProcessBuses(TVST3ProcessData& Data, double Gain, bool Swap) {
  const int32_t Samples = Data.numSamples;
  for (int32_t O = 0; O < Data.numOutputs; ++O) {
    TVST3AudioBusBuffers& Out = Data.outputs[O];
    const TVST3AudioBusBuffers* In = O < Data.numInputs ? &Data.inputs[O] : nullptr;
    for (int32_t C = 0; C < Out.numChannels; ++C) {
      auto* Dst = static_cast<F*>(Out.Buffer[C]);
      const int32_t From = !In ? -1 : Swap ? In->numChannels - 1 - C : C;
      const F* Src = In && From >= 0 && From < In->numChannels ? static_cast<const F*>(In->Buffer[From]) : nullptr;
      for (int32_t S = 0; S < Samples; ++S) Dst[S] = Src ? static_cast<F>(Src[S] * Gain) : F(0);
    }
  }
}

void Copy(char* Field, size_t Size, const char* Text) {
  std::strncpy(Field, Text, Size - 1);
  Field[Size - 1] = 0;
}

void Copy16(char16* Field, const char* Text) {
  size_t I = 0;
  for (; Text[I] && I < 127; ++I) Field[I] = static_cast<char16>(static_cast<unsigned char>(Text[I]));
  Field[I] = 0;
}

std::string InterfaceName(const TGUID& IID) {
  if (IID == IID_IComponent) return "IComponent";
  if (IID == IID_IEditController) return "IEditController";
  if (IID == IID_IAudioProcessor) return "IAudioProcessor";
  return "other";
}

// ---- the plug-in objects ---------------------------------------------------------

// The controller's editor view: a window of its own inside the host's that
// paints kViewColours, served on X11 through the host's run loop (its
// connection's descriptor). It records what the host asks of it.
class TView;
std::atomic<TView*> GAttachedView{nullptr};

#ifdef _WIN32
constexpr const char* kOwnPlatformType = kPlatformTypeHWND;
#else
constexpr const char* kOwnPlatformType = kPlatformTypeX11EmbedWindowID;
#endif

class TView final : public IPlugView, public IEventHandler {
 public:
  explicit TView(std::string Role) : FRole(std::move(Role)) { ++GLive; }
  TView(const TView&) = delete;
  TView& operator=(const TView&) = delete;
  TResult queryInterface(const TGUID& IID, void** Obj) override {
    if (!Obj) return kInvalidArgument;
    *Obj = nullptr;
    if (IID == IID_IFUnknown || IID == IID_IPlugView) *Obj = static_cast<IPlugView*>(this);
    if (IID == IID_IEventHandler) *Obj = static_cast<IEventHandler*>(this);
    if (!*Obj) return kNoInterface;
    addRef();
    return kOk;
  }
  uint32_t addRef() override { return ++FRefs; }
  uint32_t release() override {
    const uint32_t Left = --FRefs;
    if (Left == 0) delete this;
    return Left;
  }
  TResult isPlatformTypeSupported(TFIDString Type) override {
    Record(FRole + ".view isPlatformTypeSupported " + (Type ? Type : "(null)"));
    return Type && std::strcmp(Type, kOwnPlatformType) == 0 ? kOk : kFalse;
  }
  TResult attached(void* Parent, TFIDString Type) override {
    Record(FRole + ".view attached " + (Type ? Type : "(null)"));
    if (FWindow || !Parent || !Type || std::strcmp(Type, kOwnPlatformType) != 0) return kFalse;
    FWindow = Qvtestplugin::OpenEditorView(Parent, FWidth, FHeight);
    if (!FWindow) return kFalse;
    Qvtestplugin::PaintEditorView(FWindow, kViewColours, kViewBlocks);
    const int Descriptor = Qvtestplugin::EditorViewDescriptor(FWindow);
    if (FRunLoop && Descriptor >= 0) FRunLoop->registerEventHandler(this, Descriptor);
    GAttachedView = this;
    return kOk;
  }
  TResult removed() override {
    Record(FRole + ".view removed");
    if (!FWindow) return kFalse;
    if (FRunLoop) FRunLoop->unregisterEventHandler(this);
    Qvtestplugin::CloseEditorView(FWindow);
    FWindow = nullptr;
    GAttachedView = nullptr;
    return kOk;
  }
  TResult onWheel(float) override { return kFalse; }
  TResult onKeyDown(char16, int16_t, int16_t) override { return kFalse; }
  TResult onKeyUp(char16, int16_t, int16_t) override { return kFalse; }
  TResult getSize(TViewRect* Size) override {
    Record(FRole + ".view getSize");
    if (!Size) return kInvalidArgument;
    *Size = TViewRect{0, 0, FWidth, FHeight};
    return kOk;
  }
  TResult onSize(TViewRect* NewSize) override {
    if (!NewSize) return kInvalidArgument;
    Record(FRole + ".view onSize " + std::to_string(NewSize->GetWidth()) + "x" + std::to_string(NewSize->GetHeight()));
    FWidth = NewSize->GetWidth();
    FHeight = NewSize->GetHeight();
    if (FWindow) Qvtestplugin::ResizeEditorView(FWindow, FWidth, FHeight);
    return kOk;
  }
  TResult onFocus(TBool State) override {
    Record(FRole + ".view onFocus " + std::to_string(State));
    return kOk;
  }
  TResult setFrame(IPlugFrame* Frame) override {
    Record(FRole + ".view setFrame " + (Frame ? "set" : "null"));
    if (FRunLoop) FRunLoop->release();
    FRunLoop = nullptr;
    if (FFrame) FFrame->release();
    FFrame = Frame;
    if (!Frame) return kOk;
    Frame->addRef();
    void* Obj = nullptr;
    if (Frame->queryInterface(IID_IRunLoop, &Obj) == kOk) FRunLoop = static_cast<IRunLoop*>(Obj);
    return kOk;
  }
  TResult canResize() override { return kOk; }
  TResult checkSizeConstraint(TViewRect*) override { return kOk; }

  // IEventHandler: the connection has events; an exposed window is painted.
  void onFDIsSet(int) override {
    if (FWindow && Qvtestplugin::ProcessEditorViewEvents(FWindow))
      Qvtestplugin::PaintEditorView(FWindow, kViewColours, kViewBlocks);
  }

  // Asks the frame for the resized view.
  void RequestResize() {
    TViewRect Size{};
    {
      std::lock_guard<std::mutex> G(GLock);
      Size = GResizeRect;
    }
    const int64_t Width = int64_t(Size.right) - Size.left, Height = int64_t(Size.bottom) - Size.top;
    const TResult R = FFrame ? FFrame->resizeView(this, &Size) : kFalse;
    Record(FRole + ".view resizeView " + std::to_string(Width) + "x" + std::to_string(Height) +
           (R == kOk ? " ok" : " refused"));
  }

 private:
  ~TView() {
    if (FWindow) Qvtestplugin::CloseEditorView(FWindow);
    if (GAttachedView == this) GAttachedView = nullptr;
    if (FRunLoop) FRunLoop->release();
    if (FFrame) FFrame->release();
    Record(FRole + ".view released");
    --GLive;
  }
  std::string FRole;
  std::atomic<uint32_t> FRefs{1};
  int32_t FWidth = kViewWidth, FHeight = kViewHeight;
  Qvtestplugin::TEditorView* FWindow = nullptr;
  IPlugFrame* FFrame = nullptr;
  IRunLoop* FRunLoop = nullptr;
};

enum class TKind { Effect, Controller, Single, Alone };

const char* RoleOf(TKind Kind) {
  switch (Kind) {
    case TKind::Effect: return "Effect";
    case TKind::Controller: return "Controller";
    case TKind::Single: return "Single";
    default: return "Alone";
  }
}

// One class for every role: which interfaces it answers depends on the role.
class TPlugObject final : public IComponent,
                          public IAudioProcessor,
                          public IEditController,
                          public IEditController2,
                          public IConnectionPoint {
 public:
  explicit TPlugObject(TKind Kind) : FKind(Kind), FRole(RoleOf(Kind)) { ++GLive; }
  TPlugObject(const TPlugObject&) = delete;
  TPlugObject& operator=(const TPlugObject&) = delete;

  bool IsComponent() const { return FKind != TKind::Controller; }
  bool IsController() const { return FKind == TKind::Controller || FKind == TKind::Single; }

  // IFUnknown
  TResult queryInterface(const TGUID& IID, void** Obj) override {
    if (!Obj) return kInvalidArgument;
    *Obj = nullptr;
    if (IID == IID_IFUnknown || IID == IID_IPluginBase)
      *Obj = IsComponent() ? static_cast<IPluginBase*>(static_cast<IComponent*>(this))
                           : static_cast<IPluginBase*>(static_cast<IEditController*>(this));
    else if (IID == IID_IComponent && IsComponent())
      *Obj = static_cast<IComponent*>(this);
    else if (IID == IID_IAudioProcessor && IsComponent() && !Fails("audioProcessor"))
      *Obj = static_cast<IAudioProcessor*>(this);
    else if (IID == IID_IEditController && IsController())
      *Obj = static_cast<IEditController*>(this);
    else if (IID == IID_IEditController2 && IsController())
      *Obj = static_cast<IEditController2*>(this);
    else if (IID == IID_IConnectionPoint)
      *Obj = static_cast<IConnectionPoint*>(this);
    if (!*Obj) return kNoInterface;
    addRef();
    return kOk;
  }
  uint32_t addRef() override { return ++FRefs; }
  uint32_t release() override {
    const uint32_t Left = --FRefs;
    if (Left == 0) delete this;
    return Left;
  }

  // IPluginBase (of both the component and the controller)
  TResult initialize(IFUnknown* Context) override {
    Record(FRole + ".initialize");
    if (Fails(FKind == TKind::Controller ? "controllerInitialize" : "initialize")) return Failure();
    if (!Context) return kInvalidArgument;
    if (!FContext) {
      void* Obj = nullptr;
      if (Context->queryInterface(IID_IHostApplication, &Obj) != kOk || !Obj) return kNoInterface;
      FContext = static_cast<IHostApplication*>(Obj);
      ++GHostReferences;
    }
    char16 Name[128] = {};
    const TResult NameResult = FContext->getName(Name);
    // The host writes an address there rather than text: a non-zero first
    // eight bytes and no readable name.
    uint64_t FirstBytes = 0;
    std::memcpy(&FirstBytes, Name, sizeof FirstBytes);
    Record(FRole + ".getName result=" + std::to_string(NameResult) + (FirstBytes ? " address" : " empty"));
    return kOk;
  }
  TResult terminate() override {
    Record(FRole + ".terminate");
    ReleaseContext();
    return kOk;
  }

  // IComponent
  TResult getControllerClassId(TGUID* ClassID) override {
    Record(FRole + ".getControllerClassId");
    if (Fails("getControllerClassId")) return Failure();
    if (!ClassID) return kInvalidArgument;
    *ClassID = FKind == TKind::Effect ? kControllerCID : kNullUID;
    return kOk;
  }
  TResult setIoMode(int32_t) override { return kOk; }
  int32_t getBusCount(int32_t Type, int32_t Dir) override { return Type == kAudio ? BusCount(Dir) : 0; }
  TResult getBusInfo(int32_t Type, int32_t Dir, int32_t Index, TBusInfo& Bus) override {
    const int32_t Channels = Type == kAudio ? BusChannels(Dir, Index) : -1;
    if (Channels < 0) return kInvalidArgument;
    Bus = TBusInfo{};
    Bus.mediaType = kAudio;
    Bus.direction = Dir;
    Bus.channelCount = Channels;
    const char* Side = Dir == kInput ? " In" : " Out";
    const std::string Name = Index > 0        ? "Aux " + std::to_string(Index) + Side
                             : Channels == 2 ? std::string("Stereo") + Side
                             : Channels == 1 ? std::string("Mono") + Side
                                             : std::to_string(Channels) + "ch" + Side;
    Copy16(Bus.name, Name.c_str());
    Bus.busType = Index > 0 ? 1 : 0;  // main, then auxiliary
    Bus.flags = 1;
    return kOk;
  }
  TResult getRoutingInfo(TRoutingInfo&, TRoutingInfo&) override { return kNotImplemented; }
  TResult activateBus(int32_t, int32_t, int32_t, TBool) override { return kOk; }
  TResult setActive(TBool State) override {
    Record(FRole + ".setActive " + std::to_string(State));
    if (State && Fails("setActive")) return Failure();
    return kOk;
  }
  // setState and getState serve the component and, for the single object,
  // the controller as well: one object, one state. A component's state is
  // its gain (kStateBytes); a separate controller's is its gain and mode
  // (kControllerStateBytes), so that a file tells the two apart.
  TResult setState(IBStream* State) override {
    Record(FRole + ".setState");
    if (!State) return kInvalidArgument;
    double Values[2] = {FGain, FMode};
    const int32_t Size = FKind == TKind::Controller ? kControllerStateBytes : kStateBytes;
    int32_t Read = -1;
    if (State->read(Values, Size, &Read) != kOk || Read != Size) return kFalse;
    FGain = Values[0];
    FMode = Values[1];
    return kOk;
  }
  TResult getState(IBStream* State) override {
    if (Fails("getState") || (FKind == TKind::Controller && Fails("controllerGetState"))) {
      Record(FRole + ".getState failed");
      return Failure();
    }
    if (!State) return kInvalidArgument;
    int32_t Written = -1;
    double Values[2] = {FGain, FMode};
    const TResult R =
        State->write(Values, FKind == TKind::Controller ? kControllerStateBytes : kStateBytes, &Written);
    Record(FRole + ".getState wrote=" + std::to_string(Written));
    return R;
  }

  // IAudioProcessor
  TResult setBusArrangements(TSpeakerArrangement*, int32_t, TSpeakerArrangement*, int32_t) override { return kOk; }
  TResult getBusArrangement(int32_t Dir, int32_t Index, TSpeakerArrangement& Arr) override {
    const int32_t Channels = BusChannels(Dir, Index);
    if (Channels < 0) return kInvalidArgument;
    Arr = Channels >= 64 ? ~TSpeakerArrangement(0) : (TSpeakerArrangement(1) << Channels) - 1;  // the first speakers
    return kOk;
  }
  TResult canProcessSampleSize(int32_t) override { return kOk; }
  uint32_t getLatencySamples() override { return 0; }
  TResult setupProcessing(TProcessSetup& Setup) override {
    char Text[160];
    std::snprintf(Text, sizeof Text, "%s.setupProcessing mode=%d size=%d block=%d rate=%g", FRole.c_str(),
                  Setup.processMode, Setup.symbolicSampleSize, Setup.maxSamplesPerBlock, Setup.sampleRate);
    Record(Text);
    return Fails("setupProcessing") ? Failure() : kOk;
  }
  TResult setProcessing(TBool State) override {
    Record(FRole + ".setProcessing " + std::to_string(State));
    return Fails(State ? "startProcessing" : "stopProcessing") ? Failure() : kOk;
  }
  TResult process(TVST3ProcessData& Data) override {
    RecordProcess(Data);
    if (GFailProcess) return Platform::Vst3ResultToModule(GFailCode.load());
    if (Data.numSamples < 0 || (Data.numInputs > 0 && !Data.inputs) || (Data.numOutputs > 0 && !Data.outputs))
      return kInvalidArgument;
    if (Data.symbolicSampleSize == kSample64)
      ProcessBuses<double>(Data, GGain, GSwap);
    else
      ProcessBuses<float>(Data, GGain, GSwap);
    return kOk;
  }
  uint32_t getTailSamples() override { return 0; }

  // IEditController
  TResult setComponentState(IBStream* State) override {
    if (!State) return kInvalidArgument;
    double Gain = 0;
    int32_t Read = -1;
    const TResult R = State->read(&Gain, kStateBytes, &Read);
    Record(FRole + ".setComponentState read=" + std::to_string(Read));
    if (R == kOk && Read == kStateBytes) FGain = Gain;
    return kOk;
  }
  int32_t getParameterCount() override { return 2; }
  TResult getParameterInfo(int32_t Index, TVST3ParameterInfo& Info) override {
    if (Index < 0 || Index > 1) return kInvalidArgument;
    Info = TVST3ParameterInfo{};
    Info.id = Index == 0 ? kGainID : kModeID;
    Copy16(Info.title, Index == 0 ? "Gain" : "Mode");
    Copy16(Info.shortTitle, Index == 0 ? "Gn" : "Md");
    Copy16(Info.units, Index == 0 ? "dB" : "");
    Info.stepCount = Index == 0 ? 0 : 2;
    Info.defaultNormalizedValue = Index == 0 ? 0.5 : 0.0;
    Info.flags = 1;  // automatable
    return kOk;
  }
  TResult getParamStringByValue(TParamID ID, TParamValue Value, char16* String) override {
    if (!String || (ID != kGainID && ID != kModeID)) return kInvalidArgument;
    char Text[64];
    if (ID == kGainID)
      std::snprintf(Text, sizeof Text, "%.2f dB", Value * 24.0 - 12.0);
    else
      std::snprintf(Text, sizeof Text, "Mode %d", static_cast<int>(Value * 2.0 + 0.5));
    Copy16(String, Text);
    return kOk;
  }
  TResult getParamValueByString(TParamID, char16*, TParamValue&) override { return kNotImplemented; }
  TParamValue normalizedParamToPlain(TParamID, TParamValue Value) override { return Value; }
  TParamValue plainParamToNormalized(TParamID, TParamValue Value) override { return Value; }
  TParamValue getParamNormalized(TParamID ID) override { return ID == kGainID ? FGain : ID == kModeID ? FMode : 0.0; }
  TResult setParamNormalized(TParamID ID, TParamValue Value) override {
    if (ID == kGainID) FGain = Value;
    else if (ID == kModeID) FMode = Value;
    else return kInvalidArgument;
    if (ID == kModeID && GAttachedView) GAttachedView.load()->RequestResize();
    return kOk;
  }
  TResult setComponentHandler(IComponentHandler* Handler) override {
    Record(FRole + ".setComponentHandler " + (Handler ? "set" : "null"));
    if (Handler == FHandler) return kOk;
    if (Handler) {
      Handler->addRef();
      ++GHostReferences;
    }
    ReleaseHandler();
    FHandler = Handler;
    return kOk;
  }
  IPlugView* createView(TFIDString Name) override {
    Record(FRole + ".createView " + (Name ? Name : "(null)"));
    if (!Name || std::strcmp(Name, "editor") != 0) return nullptr;
    return new TView(FRole);
  }

  // IEditController2
  TResult setKnobMode(int32_t) override { return kOk; }
  TResult openHelp(TBool) override { return kFalse; }
  TResult openAboutBox(TBool) override { return kFalse; }

  // IConnectionPoint: a peer is told hello through a message of the host's.
  TResult connect(IConnectionPoint* Other) override {
    Record(FRole + ".connect");
    if (!Other) return kInvalidArgument;
    if (FPeer) return kFalse;
    Other->addRef();
    FPeer = Other;
    if (FContext) {
      void* Obj = nullptr;
      TGUID CID = IID_IMessage, IID = IID_IMessage;
      if (FContext->createInstance(&CID, &IID, &Obj) == kOk && Obj) {
        auto* Message = static_cast<IMessage*>(Obj);
        Message->setMessageID(kHelloMessage);
        if (IAttributeList* Attributes = Message->getAttributes())
          Attributes->setInt(kHelloAttribute, kHelloValue);
        Other->notify(Message);
        Message->release();
      }
    }
    return kOk;
  }
  TResult disconnect(IConnectionPoint* Other) override {
    Record(FRole + ".disconnect");
    if (!Other || Other != FPeer) return kInvalidArgument;
    ReleasePeer();
    return kOk;
  }
  TResult notify(IMessage* Message) override {
    if (!Message) return kInvalidArgument;
    int64_t Value = -1;
    IAttributeList* Attributes = Message->getAttributes();
    if (Attributes) Attributes->getInt(kHelloAttribute, Value);
    const char* ID = Message->getMessageID();
    Record(FRole + ".notify " + (ID ? ID : "?") + " " + std::to_string(Value));
    return kOk;
  }

 private:
  ~TPlugObject() {
    ReleasePeer();
    ReleaseHandler();
    ReleaseContext();
    --GLive;
  }
  void ReleaseContext() {
    if (!FContext) return;
    FContext->release();
    FContext = nullptr;
    --GHostReferences;
  }
  void ReleaseHandler() {
    if (!FHandler) return;
    FHandler->release();
    FHandler = nullptr;
    --GHostReferences;
  }
  void ReleasePeer() {
    if (!FPeer) return;
    IConnectionPoint* Peer = FPeer;
    FPeer = nullptr;
    Peer->release();
  }

  TKind FKind;
  std::string FRole;
  std::atomic<uint32_t> FRefs{1};
  IHostApplication* FContext = nullptr;
  IComponentHandler* FHandler = nullptr;
  IConnectionPoint* FPeer = nullptr;
  double FGain = 0.5;
  double FMode = 0.0;
};

// ---- the factory -------------------------------------------------------------------

struct TClassEntry {
  TGUID CID;
  TKind Kind;
  const char* Category;
  const char* Name;
};

#if defined(QV_VARIANT_CONTROLLERFIRST)
const TClassEntry kClasses[] = {
    {kControllerCID, TKind::Controller, kVstComponentControllerClass, kControllerName},
    {kEffectCID, TKind::Effect, kVstAudioEffectClass, kEffectName},
    {kSingleCID, TKind::Single, kVstAudioEffectClass, kSingleName},
    {kAloneCID, TKind::Alone, kVstAudioEffectClass, kAloneName}};
#else
const TClassEntry kClasses[] = {
    {kEffectCID, TKind::Effect, kVstAudioEffectClass, kEffectName},
    {kControllerCID, TKind::Controller, kVstComponentControllerClass, kControllerName},
    {kSingleCID, TKind::Single, kVstAudioEffectClass, kSingleName},
    {kAloneCID, TKind::Alone, kVstAudioEffectClass, kAloneName}};
#endif
constexpr int32_t kClassCount = sizeof(kClasses) / sizeof(kClasses[0]);

#if defined(QV_VARIANT_NOFACTORY2)
constexpr bool kOffersFactory2 = false;
#else
constexpr bool kOffersFactory2 = true;
#endif

class TFactory final : public IPluginFactory2 {
 public:
  TFactory() { ++GLive; }
  TResult queryInterface(const TGUID& IID, void** Obj) override {
    if (!Obj) return kInvalidArgument;
    *Obj = nullptr;
    if (IID == IID_IFUnknown || IID == IID_IPluginFactory || (kOffersFactory2 && IID == IID_IPluginFactory2))
      *Obj = static_cast<IPluginFactory2*>(this);
    if (!*Obj) return kNoInterface;
    addRef();
    return kOk;
  }
  uint32_t addRef() override { return ++FRefs; }
  uint32_t release() override;

  TResult getFactoryInfo(TVST3FactoryInfo* Info) override {
    Record("Factory.getFactoryInfo");
    if (Fails("factoryInfo")) return Failure();
    if (!Info) return kInvalidArgument;
    *Info = TVST3FactoryInfo{};
    Copy(Info->vendor, sizeof Info->vendor, kVendor);
    Copy(Info->url, sizeof Info->url, kURL);
    Copy(Info->email, sizeof Info->email, kEMail);
    Info->flags = kFactoryFlags;
    return kOk;
  }
  int32_t countClasses() override {
    Record("Factory.countClasses");
    return Fails("countClasses") ? -3 : kClassCount;
  }
  TResult getClassInfo(int32_t Index, TVST3ClassInfo* Info) override {
    Record("Factory.getClassInfo " + std::to_string(Index));
    if (Fails("classInfo")) return Failure();
    if (!Info || Index < 0 || Index >= kClassCount) return kInvalidArgument;
    *Info = TVST3ClassInfo{};
    Info->cid = kClasses[Index].CID;
    Info->cardinality = kManyInstances;
    Copy(Info->category, sizeof Info->category, kClasses[Index].Category);
    Copy(Info->name, sizeof Info->name, kClasses[Index].Name);
    return kOk;
  }
  TResult getClassInfo2(int32_t Index, TVST3ClassInfo2* Info) override {
    Record("Factory.getClassInfo2 " + std::to_string(Index));
    if (Fails("classInfo")) return Failure();
    if (!Info || Index < 0 || Index >= kClassCount) return kInvalidArgument;
    *Info = TVST3ClassInfo2{};
    Info->cid = kClasses[Index].CID;
    Info->cardinality = kManyInstances;
    Copy(Info->category, sizeof Info->category, kClasses[Index].Category);
    Copy(Info->name, sizeof Info->name, kClasses[Index].Name);
    Info->classFlags = 1;
    Copy(Info->subCategories, sizeof Info->subCategories, kSubCategories);
    Copy(Info->vendor, sizeof Info->vendor, kVendor);
    Copy(Info->version, sizeof Info->version, kClassVersion);
    Copy(Info->sdkVersion, sizeof Info->sdkVersion, kSdkVersion);
    return kOk;
  }
  TResult createInstance(const TGUID* CID, const TGUID* IID, void** Obj) override {
    if (!Obj) return kInvalidArgument;
    *Obj = nullptr;
    if (!CID || !IID) return kInvalidArgument;
    const TClassEntry* Entry = nullptr;
    for (const auto& C : kClasses)
      if (C.CID == *CID) Entry = &C;
    Record(std::string("Factory.createInstance ") + (Entry ? RoleOf(Entry->Kind) : "unknown") + " " +
           InterfaceName(*IID));
    if (!Entry) return kInvalidArgument;
    if (Entry->Kind != TKind::Controller && Fails("createInstance")) return Failure();
    if (Entry->Kind != TKind::Controller && Fails("nullInstance")) return kOk;  // success, and nothing
    auto* Object = new TPlugObject(Entry->Kind);
    const TResult R = static_cast<IComponent*>(Object)->queryInterface(*IID, Obj);
    static_cast<IComponent*>(Object)->release();
    return R;
  }

 private:
  ~TFactory() { --GLive; }
  std::atomic<uint32_t> FRefs{1};
};

TFactory* GFactory = nullptr;  // under GLock

uint32_t TFactory::release() {
  std::lock_guard<std::mutex> G(GLock);
  const uint32_t Left = --FRefs;
  if (Left == 0) {
    GFactory = nullptr;
    delete this;
  }
  return Left;
}

}  // namespace

// ---- exports ---------------------------------------------------------------------

#if !defined(QV_VARIANT_NOENTRY)
#ifdef _WIN32
QV_EXPORT bool InitDll() {
#else
QV_EXPORT bool ModuleEntry(void*) {
#endif
  Record("Entry");
#if defined(QV_VARIANT_FAILENTRY)
  return false;
#else
  return true;
#endif
}

#ifdef _WIN32
QV_EXPORT bool ExitDll() {
#else
QV_EXPORT bool ModuleExit() {
#endif
  Record("Exit");
  return true;
}
#endif

#if !defined(QV_VARIANT_NOFACTORY)
QV_EXPORT IPluginFactory* GetPluginFactory() {
  Record("GetPluginFactory");
  if (const char* Options = std::getenv(kOptionsVariable)) ApplyOptions(Options);
  std::lock_guard<std::mutex> G(GLock);
  if (GFactory) {
    GFactory->addRef();
  } else {
    GFactory = new TFactory();
  }
  return GFactory;
}
#endif

QV_EXPORT void QvTest3Reset() {
  std::lock_guard<std::mutex> G(GLock);
  GCalls.clear();
  GCallThreads.clear();
  GThreads.clear();
  GFailSteps.clear();
  GFailResult = Platform::kVst3InternalError;
  GFailCode = GFailResult;
  GFailProcess = false;
  GInputBuses = {2};
  GOutputBuses = {2};
  GGain = 1.0;
  GSwap = false;
  GResizeRect = TViewRect{0, 0, kResizedViewWidth, kResizedViewHeight};
  GProcessCalls = 0;
}

QV_EXPORT void QvTest3SetOptions(const char* Options) { ApplyOptions(Options); }

QV_EXPORT int32_t QvTest3GetCalls(char* Buffer, int32_t Size) {
  std::lock_guard<std::mutex> G(GLock);
  std::string All;
  for (const auto& C : GCalls) All += C + "\n";
  if (Buffer && Size > 0) {
    const size_t N = std::min(All.size(), size_t(Size - 1));
    std::memcpy(Buffer, All.data(), N);
    Buffer[N] = 0;
  }
  return static_cast<int32_t>(All.size());
}

QV_EXPORT int32_t QvTest3GetCallThreads(int32_t* Buffer, int32_t Size) {
  std::lock_guard<std::mutex> G(GLock);
  for (int32_t I = 0; Buffer && I < Size && size_t(I) < GCallThreads.size(); ++I) Buffer[I] = GCallThreads[size_t(I)];
  return static_cast<int32_t>(GCallThreads.size());
}

QV_EXPORT int32_t QvTest3GetProcessCalls(TProcessRecord* Buffer, int32_t Size) {
  const int32_t Calls = GProcessCalls.load();
  for (int32_t I = 0; Buffer && I < Size && I < Calls && I < kProcessRecordCapacity; ++I) Buffer[I] = GProcessRecords[I];
  return Calls;
}

QV_EXPORT int32_t QvTest3LiveObjects() { return GLive.load(); }
QV_EXPORT int32_t QvTest3HostReferences() { return GHostReferences.load(); }
