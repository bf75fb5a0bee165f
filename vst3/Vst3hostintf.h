// The part of the VST 3 plug-in interface that the host speaks: interfaces
// with their identifiers, the records that cross the module boundary, the
// module's factory entry, and the keyboard code conversions of the editor.
// Declarations only; no state.
//
// Every interface derives from IFUnknown (queryInterface, addRef, release
// in its first three slots); methods answer a 32-bit result. Identifiers are
// 16 bytes in the module byte order of the system (platform/Vst3module.h),
// and results cross the boundary in the system's values: the host converts
// them with Platform::Vst3ResultFromModule/Vst3ResultToModule.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/Guid.h"
#include "platform/Vst3module.h"

namespace Quorvel::Vst3hostintf {

// ---- basic and pointer types ------------------------------------------------

using TResult = int32_t;
using TBool = uint8_t;
using char8 = char;
using char16 = char16_t;
using TParamID = uint32_t;
using TParamValue = double;
using TUnitID = int32_t;
using TProgramListID = int32_t;
using TSpeakerArrangement = uint64_t;
using TSpeaker = uint64_t;
using TString128 = char16[128];
using TFIDString = const char8*;

using PInt8 = int8_t*;
using PUInt8 = uint8_t*;
using PUChar = unsigned char*;
using PChar8 = char8*;
using PChar16 = char16*;
using PInt16 = int16_t*;
using PUInt16 = uint16_t*;
using PInt32 = int32_t*;
using PUInt32 = uint32_t*;
using PInt64 = int64_t*;
using PUInt64 = uint64_t*;
using PVST3ProgramListID = TProgramListID*;
using PSpeakerArrangement = TSpeakerArrangement*;
using PSpeaker = TSpeaker*;
using TSpeakerArrangementArray = TSpeakerArrangement[1];  // open array: as many as the bus count
using PSpeakerArrangementArray = TSpeakerArrangement*;

enum TMediaTypes : int32_t { kAudio = 0, kEvent = 1 };
enum TBusDirections : int32_t { kInput = 0, kOutput = 1 };
enum TSymbolicSampleSizes : int32_t { kSample32 = 0, kSample64 = 1 };
enum TProcessModes : int32_t { kRealtime = 0, kPrefetch = 1, kOffline = 2 };
// IComponentHandler::restartComponent flags (the host looks at kIoChanged).
enum TRestartFlags : int32_t { kReloadComponent = 1, kIoChanged = 2, kParamValuesChanged = 4, kLatencyChanged = 8 };
// TVST3FactoryInfo::flags.
enum TFactoryFlags : int32_t {
  kClassesDiscardable = 1, kLicenseCheck = 2, kComponentNonDiscardable = 8, kUnicode = 16
};
// The published cardinality of a class that may be instantiated many times.
constexpr int32_t kManyInstances = 0x7FFFFFFF;

// The published class categories.
constexpr const char* kVstAudioEffectClass = "Audio Module Class";
constexpr const char* kVstComponentControllerClass = "Component Controller Class";

// An identifier from its four published 32-bit words, in the system's module byte order.
constexpr TGUID MakeVST3UID(uint32_t L1, uint32_t L2, uint32_t L3, uint32_t L4) {
  const auto Swap32 = [](uint32_t V) {
    return (V >> 24) | ((V >> 8) & 0xFF00u) | ((V << 8) & 0xFF0000u) | (V << 24);
  };
  const auto Swap16 = [](uint32_t V) { return static_cast<uint16_t>(((V >> 8) & 0xFFu) | ((V & 0xFFu) << 8)); };
  const bool Com = Platform::kVst3ComByteOrder;
  return TGUID{Com ? L1 : Swap32(L1),
               Com ? static_cast<uint16_t>(L2 >> 16) : Swap16(L2 >> 16),
               Com ? static_cast<uint16_t>(L2 & 0xFFFFu) : Swap16(L2 & 0xFFFFu),
               {static_cast<uint8_t>(L3 >> 24), static_cast<uint8_t>(L3 >> 16), static_cast<uint8_t>(L3 >> 8),
                static_cast<uint8_t>(L3), static_cast<uint8_t>(L4 >> 24), static_cast<uint8_t>(L4 >> 16),
                static_cast<uint8_t>(L4 >> 8), static_cast<uint8_t>(L4)}};
}

// "{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}": the registry form of a module's
// identifier, read in the system's module byte order.
std::string VST3UIDToString(const TGUID& ID);
// The null identifier (all 16 bytes zero).
constexpr TGUID kNullUID{0, 0, 0, {0, 0, 0, 0, 0, 0, 0, 0}};
inline bool IsNullUID(const TGUID& ID) { return ID == kNullUID; }

// ---- records ------------------------------------------------------------------

#pragma pack(push, 8)

struct TVST3FactoryInfo {
  char8 vendor[64];
  char8 url[256];
  char8 email[128];
  int32_t flags;
};

struct TVST3ClassInfo {
  TGUID cid;
  int32_t cardinality;
  char8 category[32];
  char8 name[64];
};

struct TVST3ClassInfo2 {
  TGUID cid;
  int32_t cardinality;
  char8 category[32];
  char8 name[64];
  uint32_t classFlags;
  char8 subCategories[128];
  char8 vendor[64];
  char8 version[64];
  char8 sdkVersion[64];
};

struct TViewRect {
  int32_t left;
  int32_t top;
  int32_t right;
  int32_t bottom;
  int32_t GetWidth() const { return right - left; }
  int32_t GetHeight() const { return bottom - top; }
};

struct TBusInfo {
  int32_t mediaType;
  int32_t direction;
  int32_t channelCount;
  TString128 name;
  int32_t busType;
  uint32_t flags;
};

struct TRoutingInfo {
  int32_t mediaType;
  int32_t busIndex;
  int32_t channel;
};

struct TFrameRate {
  uint32_t framesPerSecond;
  uint32_t flags;
};

struct TChord {
  uint8_t keyNote;
  uint8_t rootNote;
  int16_t chordMask;
};

struct TProcessContext {
  uint32_t state;
  double sampleRate;
  int64_t projectTimeSamples;
  int64_t systemTime;
  int64_t continousTimeSamples;  // the published spelling
  double projectTimeMusic;
  double barPositionMusic;
  double cycleStartMusic;
  double cycleEndMusic;
  double tempo;
  int32_t timeSigNumerator;
  int32_t timeSigDenominator;
  TChord chord;
  int32_t smpteOffsetSubframes;
  TFrameRate frameRate;
  int32_t samplesToNextClock;
};

struct TVST3NoteOnEvent {
  int16_t channel;
  int16_t pitch;
  float tuning;
  float velocity;
  int32_t length;
  int32_t noteId;
};

// Declared without the published trailing tuning: the union with the larger
// note-on record keeps the event's size.
struct TVST3NoteOffEvent {
  int16_t channel;
  int16_t pitch;
  float velocity;
  int32_t noteId;
};

struct TVST3DataEvent {
  uint32_t size;
  uint32_t vType;  // the published "type"
  const uint8_t* bytes;
};

enum TEventTypes : uint16_t { kNoteOnEvent = 0, kNoteOffEvent = 1, kDataEvent = 2 };

struct TVstEvent {
  int32_t busIndex;
  int32_t sampleOffset;
  double ppqPosition;
  uint16_t flags;
  uint16_t eventType;  // the published "type"
  union {
    TVST3NoteOnEvent noteOn;
    TVST3NoteOffEvent noteOff;
    TVST3DataEvent data;
  };
};

struct TProcessSetup {
  int32_t processMode;
  int32_t symbolicSampleSize;
  int32_t maxSamplesPerBlock;
  double sampleRate;
};

struct TVST3AudioBusBuffers {
  int32_t numChannels;
  uint64_t silenceFlags;
  void** Buffer;  // float** or double**, as the symbolic sample size says
};

class IParameterChanges;
class IEventList;

struct TVST3ProcessData {
  int32_t processMode;
  int32_t symbolicSampleSize;
  int32_t numSamples;
  int32_t numInputs;
  int32_t numOutputs;
  TVST3AudioBusBuffers* inputs;
  TVST3AudioBusBuffers* outputs;
  IParameterChanges* inputParameterChanges;
  IParameterChanges* outputParameterChanges;
  IEventList* inputEvents;
  IEventList* outputEvents;
  TProcessContext* processContext;
};

struct TVST3ParameterInfo {
  TParamID id;
  TString128 title;
  TString128 shortTitle;
  TString128 units;
  int32_t stepCount;
  TParamValue defaultNormalizedValue;
  TUnitID unitId;
  int32_t flags;
};

struct TVST3UnitInfo {
  TUnitID id;
  TUnitID parentUnitId;
  TString128 name;
  TProgramListID programListId;
};

struct TVST3ProgramListInfo {
  TProgramListID id;
  TString128 name;
  int32_t programCount;
};

#pragma pack(pop)

// The x64 layouts (Windows and Linux alike).
static_assert(sizeof(TVST3FactoryInfo) == 452 && offsetof(TVST3FactoryInfo, url) == 64 &&
              offsetof(TVST3FactoryInfo, email) == 320 && offsetof(TVST3FactoryInfo, flags) == 448, "factory info");
static_assert(sizeof(TVST3ClassInfo) == 116 && offsetof(TVST3ClassInfo, cardinality) == 16 &&
              offsetof(TVST3ClassInfo, category) == 20 && offsetof(TVST3ClassInfo, name) == 52, "class info");
static_assert(sizeof(TVST3ClassInfo2) == 440 && offsetof(TVST3ClassInfo2, classFlags) == 116 &&
              offsetof(TVST3ClassInfo2, subCategories) == 120 && offsetof(TVST3ClassInfo2, vendor) == 248 &&
              offsetof(TVST3ClassInfo2, version) == 312 && offsetof(TVST3ClassInfo2, sdkVersion) == 376,
              "class info 2");
static_assert(sizeof(TViewRect) == 16 && offsetof(TViewRect, bottom) == 12, "view rect");
static_assert(sizeof(TBusInfo) == 276 && offsetof(TBusInfo, name) == 12 && offsetof(TBusInfo, busType) == 268 &&
              offsetof(TBusInfo, flags) == 272, "bus info");
static_assert(sizeof(TRoutingInfo) == 12 && offsetof(TRoutingInfo, channel) == 8, "routing info");
static_assert(sizeof(TFrameRate) == 8 && sizeof(TChord) == 4 && offsetof(TChord, chordMask) == 2, "frame rate, chord");
static_assert(sizeof(TProcessContext) == 112 && offsetof(TProcessContext, sampleRate) == 8 &&
              offsetof(TProcessContext, continousTimeSamples) == 32 && offsetof(TProcessContext, tempo) == 72 &&
              offsetof(TProcessContext, timeSigNumerator) == 80 && offsetof(TProcessContext, chord) == 88 &&
              offsetof(TProcessContext, smpteOffsetSubframes) == 92 && offsetof(TProcessContext, frameRate) == 96 &&
              offsetof(TProcessContext, samplesToNextClock) == 104, "process context");
static_assert(sizeof(TVST3NoteOnEvent) == 20 && offsetof(TVST3NoteOnEvent, noteId) == 16, "note on");
static_assert(sizeof(TVST3NoteOffEvent) == 12 && offsetof(TVST3NoteOffEvent, noteId) == 8, "note off");
static_assert(sizeof(TVST3DataEvent) == 16 && offsetof(TVST3DataEvent, bytes) == 8, "data event");
static_assert(sizeof(TVstEvent) == 48 && offsetof(TVstEvent, ppqPosition) == 8 && offsetof(TVstEvent, flags) == 16 &&
              offsetof(TVstEvent, eventType) == 18 && offsetof(TVstEvent, noteOn) == 24, "event");
static_assert(sizeof(TProcessSetup) == 24 && offsetof(TProcessSetup, sampleRate) == 16, "process setup");
static_assert(sizeof(TVST3AudioBusBuffers) == 24 && offsetof(TVST3AudioBusBuffers, silenceFlags) == 8 &&
              offsetof(TVST3AudioBusBuffers, Buffer) == 16, "audio bus buffers");
static_assert(sizeof(TVST3ProcessData) == 80 && offsetof(TVST3ProcessData, inputs) == 24 &&
              offsetof(TVST3ProcessData, inputParameterChanges) == 40 &&
              offsetof(TVST3ProcessData, inputEvents) == 56 && offsetof(TVST3ProcessData, processContext) == 72,
              "process data");
static_assert(sizeof(TVST3ParameterInfo) == 792 && offsetof(TVST3ParameterInfo, title) == 4 &&
              offsetof(TVST3ParameterInfo, shortTitle) == 260 && offsetof(TVST3ParameterInfo, units) == 516 &&
              offsetof(TVST3ParameterInfo, stepCount) == 772 &&
              offsetof(TVST3ParameterInfo, defaultNormalizedValue) == 776 &&
              offsetof(TVST3ParameterInfo, unitId) == 784 && offsetof(TVST3ParameterInfo, flags) == 788,
              "parameter info");
static_assert(sizeof(TVST3UnitInfo) == 268 && offsetof(TVST3UnitInfo, programListId) == 264, "unit info");
static_assert(sizeof(TVST3ProgramListInfo) == 264 && offsetof(TVST3ProgramListInfo, programCount) == 260,
              "program list info");

// ---- interfaces, in the published method order ---------------------------------

// The published interface identifiers.
constexpr TGUID IID_IFUnknown = MakeVST3UID(0x00000000, 0x00000000, 0xC0000000, 0x00000046);
constexpr TGUID IID_IPluginBase = MakeVST3UID(0x22888DDB, 0x156E45AE, 0x8358B348, 0x08190625);
constexpr TGUID IID_IPluginFactory = MakeVST3UID(0x7A4D811C, 0x52114A1F, 0xAED9D2EE, 0x0B43BF9F);
constexpr TGUID IID_IPluginFactory2 = MakeVST3UID(0x0007B650, 0xF24B4C0B, 0xA464EDB9, 0xF00B2ABB);
constexpr TGUID IID_IBStream = MakeVST3UID(0xC3BF6EA2, 0x30994752, 0x9B6BF990, 0x1EE33E9B);
constexpr TGUID IID_IPlugView = MakeVST3UID(0x5BC32507, 0xD06049EA, 0xA6151B52, 0x2B755B29);
constexpr TGUID IID_IPlugFrame = MakeVST3UID(0x367FAF01, 0xAFA94693, 0x8D4DA2A0, 0xED0882A3);
constexpr TGUID IID_IAttributeList = MakeVST3UID(0x1E5F0AEB, 0xCC7F4533, 0xA2544011, 0x38AD5EE4);
constexpr TGUID IID_IComponent = MakeVST3UID(0xE831FF31, 0xF2D54301, 0x928EBBEE, 0x25697802);
constexpr TGUID IID_IParamValueQueue = MakeVST3UID(0x01263A18, 0xED074F6F, 0x98C9D356, 0x4686F9BA);
constexpr TGUID IID_IParameterChanges = MakeVST3UID(0xA4779663, 0x0BB64A56, 0xB44384A8, 0x466FEB9D);
constexpr TGUID IID_IEventList = MakeVST3UID(0x3A2C4214, 0x346349FE, 0xB2C4F397, 0xB9695A44);
constexpr TGUID IID_IAudioProcessor = MakeVST3UID(0x42043F99, 0xB7DA453C, 0xA569E79D, 0x9AAEC33D);
constexpr TGUID IID_IMessage = MakeVST3UID(0x936F033B, 0xC6C047DB, 0xBB0882F8, 0x13C1E613);
constexpr TGUID IID_IConnectionPoint = MakeVST3UID(0x70A4156F, 0x6E6E4026, 0x989148BF, 0xAA60D8D1);
constexpr TGUID IID_IHostApplication = MakeVST3UID(0x58E595CC, 0xDB2D4969, 0x8B6AAF8C, 0x36A664E5);
constexpr TGUID IID_IComponentHandler = MakeVST3UID(0x93A0BEA3, 0x0BD045DB, 0x8E890B0C, 0xC1E46AC6);
constexpr TGUID IID_IEditController = MakeVST3UID(0xDCD7BBE3, 0x7742448D, 0xA874AACC, 0x979C759E);
constexpr TGUID IID_IEditController2 = MakeVST3UID(0x7F4EFE59, 0xF3204967, 0xAC27A3AE, 0xAFB63038);
constexpr TGUID IID_IMidiMapping = MakeVST3UID(0xDF0FF9F7, 0x49B74669, 0xB63AB732, 0x7ADBF5E5);
constexpr TGUID IID_IUnitHandler = MakeVST3UID(0x4B5147F8, 0x4654486B, 0x8DAB30BA, 0x163A3C56);
constexpr TGUID IID_IUnitInfo = MakeVST3UID(0x3D4BD6B5, 0x913A4FD2, 0xA886E768, 0xA5EB92C1);
constexpr TGUID IID_IProgramListData = MakeVST3UID(0x8683B01F, 0x7B354F70, 0xA2651DEC, 0x353AF4FF);
constexpr TGUID IID_IUnitData = MakeVST3UID(0x6C389611, 0xD391455D, 0xB870B833, 0x94A0EFDD);
constexpr TGUID IID_IEventHandler = MakeVST3UID(0x561E65C9, 0x13A0496F, 0x813A2C35, 0x654D7983);
constexpr TGUID IID_ITimerHandler = MakeVST3UID(0x10BDD94F, 0x41424774, 0x821FAD8F, 0xECA72CA9);
constexpr TGUID IID_IRunLoop = MakeVST3UID(0x18C35366, 0x97764F1A, 0x9C5B8385, 0x7A871389);


class IFUnknown {
 public:
  static const TGUID& iid() { return IID_IFUnknown; }
  virtual TResult queryInterface(const TGUID& IID, void** Obj) = 0;
  virtual uint32_t addRef() = 0;
  virtual uint32_t release() = 0;
};

class IPluginBase : public IFUnknown {
 public:
  static const TGUID& iid() { return IID_IPluginBase; }
  virtual TResult initialize(IFUnknown* Context) = 0;
  virtual TResult terminate() = 0;
};

class IPluginFactory : public IFUnknown {
 public:
  static const TGUID& iid() { return IID_IPluginFactory; }
  virtual TResult getFactoryInfo(TVST3FactoryInfo* Info) = 0;
  virtual int32_t countClasses() = 0;
  virtual TResult getClassInfo(int32_t Index, TVST3ClassInfo* Info) = 0;
  virtual TResult createInstance(const TGUID* CID, const TGUID* IID, void** Obj) = 0;
};

class IPluginFactory2 : public IPluginFactory {
 public:
  static const TGUID& iid() { return IID_IPluginFactory2; }
  virtual TResult getClassInfo2(int32_t Index, TVST3ClassInfo2* Info) = 0;
};

// seek modes
enum TStreamSeekMode : int32_t { kIBSeekSet = 0, kIBSeekCur = 1, kIBSeekEnd = 2 };

class IBStream : public IFUnknown {
 public:
  static const TGUID& iid() { return IID_IBStream; }
  virtual TResult read(void* Buffer, int32_t NumBytes, int32_t* NumBytesRead) = 0;
  virtual TResult write(void* Buffer, int32_t NumBytes, int32_t* NumBytesWritten) = 0;
  virtual TResult seek(int64_t Pos, int32_t Mode, int64_t* Result) = 0;
  virtual TResult tell(int64_t* Pos) = 0;
};

class IPlugFrame;

class IPlugView : public IFUnknown {
 public:
  static const TGUID& iid() { return IID_IPlugView; }
  virtual TResult isPlatformTypeSupported(TFIDString Type) = 0;
  virtual TResult attached(void* Parent, TFIDString Type) = 0;
  virtual TResult removed() = 0;
  virtual TResult onWheel(float Distance) = 0;
  virtual TResult onKeyDown(char16 Key, int16_t KeyCode, int16_t Modifiers) = 0;
  virtual TResult onKeyUp(char16 Key, int16_t KeyCode, int16_t Modifiers) = 0;
  virtual TResult getSize(TViewRect* Size) = 0;
  virtual TResult onSize(TViewRect* NewSize) = 0;
  virtual TResult onFocus(TBool State) = 0;
  virtual TResult setFrame(IPlugFrame* Frame) = 0;
  virtual TResult canResize() = 0;
  virtual TResult checkSizeConstraint(TViewRect* Rect) = 0;
};

class IPlugFrame : public IFUnknown {
 public:
  static const TGUID& iid() { return IID_IPlugFrame; }
  virtual TResult resizeView(IPlugView* View, TViewRect* NewSize) = 0;
};

// Editor view platform types (IPlugView::attached).
constexpr const char* kPlatformTypeHWND = "HWND";
constexpr const char* kPlatformTypeX11EmbedWindowID = "X11EmbedWindowID";

// The run loop a host offers through its plug frame where the window system
// has none of its own (X11): a plug-in registers a descriptor to be told
// when it is readable, and timers.
class IEventHandler : public IFUnknown {
 public:
  static const TGUID& iid() { return IID_IEventHandler; }
  virtual void onFDIsSet(int FileDescriptor) = 0;
};

class ITimerHandler : public IFUnknown {
 public:
  static const TGUID& iid() { return IID_ITimerHandler; }
  virtual void onTimer() = 0;
};

class IRunLoop : public IFUnknown {
 public:
  static const TGUID& iid() { return IID_IRunLoop; }
  virtual TResult registerEventHandler(IEventHandler* Handler, int FileDescriptor) = 0;
  virtual TResult unregisterEventHandler(IEventHandler* Handler) = 0;
  virtual TResult registerTimer(ITimerHandler* Handler, uint64_t Milliseconds) = 0;
  virtual TResult unregisterTimer(ITimerHandler* Handler) = 0;
};

class IAttributeList : public IFUnknown {
 public:
  static const TGUID& iid() { return IID_IAttributeList; }
  using TAttrID = const char8*;
  virtual TResult setInt(TAttrID ID, int64_t Value) = 0;
  virtual TResult getInt(TAttrID ID, int64_t& Value) = 0;
  virtual TResult setFloat(TAttrID ID, double Value) = 0;
  virtual TResult getFloat(TAttrID ID, double& Value) = 0;
  virtual TResult setString(TAttrID ID, const char16* String) = 0;
  virtual TResult getString(TAttrID ID, char16* String, uint32_t SizeInBytes) = 0;
  virtual TResult setBinary(TAttrID ID, const void* Data, uint32_t SizeInBytes) = 0;
  virtual TResult getBinary(TAttrID ID, const void*& Data, uint32_t& SizeInBytes) = 0;
};

class IComponent : public IPluginBase {
 public:
  static const TGUID& iid() { return IID_IComponent; }
  virtual TResult getControllerClassId(TGUID* ClassID) = 0;
  virtual TResult setIoMode(int32_t Mode) = 0;
  virtual int32_t getBusCount(int32_t Type, int32_t Dir) = 0;
  virtual TResult getBusInfo(int32_t Type, int32_t Dir, int32_t Index, TBusInfo& Bus) = 0;
  virtual TResult getRoutingInfo(TRoutingInfo& InInfo, TRoutingInfo& OutInfo) = 0;
  virtual TResult activateBus(int32_t Type, int32_t Dir, int32_t Index, TBool State) = 0;
  virtual TResult setActive(TBool State) = 0;
  virtual TResult setState(IBStream* State) = 0;
  virtual TResult getState(IBStream* State) = 0;
};

class IParamValueQueue : public IFUnknown {
 public:
  static const TGUID& iid() { return IID_IParamValueQueue; }
  virtual TParamID getParameterId() = 0;
  virtual int32_t getPointCount() = 0;
  virtual TResult getPoint(int32_t Index, int32_t& SampleOffset, TParamValue& Value) = 0;
  virtual TResult addPoint(int32_t SampleOffset, TParamValue Value, int32_t& Index) = 0;
};

class IParameterChanges : public IFUnknown {
 public:
  static const TGUID& iid() { return IID_IParameterChanges; }
  virtual int32_t getParameterCount() = 0;
  virtual IParamValueQueue* getParameterData(int32_t Index) = 0;
  virtual IParamValueQueue* addParameterData(const TParamID& ID, int32_t& Index) = 0;
};

class IEventList : public IFUnknown {
 public:
  static const TGUID& iid() { return IID_IEventList; }
  virtual int32_t getEventCount() = 0;
  virtual TResult getEvent(int32_t Index, TVstEvent& Event) = 0;
  virtual TResult addEvent(TVstEvent& Event) = 0;
};

class IAudioProcessor : public IFUnknown {
 public:
  static const TGUID& iid() { return IID_IAudioProcessor; }
  virtual TResult setBusArrangements(TSpeakerArrangement* Inputs, int32_t NumIns, TSpeakerArrangement* Outputs,
                                     int32_t NumOuts) = 0;
  virtual TResult getBusArrangement(int32_t Dir, int32_t Index, TSpeakerArrangement& Arr) = 0;
  virtual TResult canProcessSampleSize(int32_t SymbolicSampleSize) = 0;
  virtual uint32_t getLatencySamples() = 0;
  virtual TResult setupProcessing(TProcessSetup& Setup) = 0;
  virtual TResult setProcessing(TBool State) = 0;
  virtual TResult process(TVST3ProcessData& Data) = 0;
  virtual uint32_t getTailSamples() = 0;
};

class IMessage : public IFUnknown {
 public:
  static const TGUID& iid() { return IID_IMessage; }
  virtual TFIDString getMessageID() = 0;
  virtual void setMessageID(TFIDString ID) = 0;
  virtual IAttributeList* getAttributes() = 0;
};

class IConnectionPoint : public IFUnknown {
 public:
  static const TGUID& iid() { return IID_IConnectionPoint; }
  virtual TResult connect(IConnectionPoint* Other) = 0;
  virtual TResult disconnect(IConnectionPoint* Other) = 0;
  virtual TResult notify(IMessage* Message) = 0;
};

class IHostApplication : public IFUnknown {
 public:
  static const TGUID& iid() { return IID_IHostApplication; }
  virtual TResult getName(char16* Name) = 0;  // a TString128
  virtual TResult createInstance(TGUID* CID, TGUID* IID, void** Obj) = 0;
};

class IComponentHandler : public IFUnknown {
 public:
  static const TGUID& iid() { return IID_IComponentHandler; }
  virtual TResult beginEdit(TParamID ID) = 0;
  virtual TResult performEdit(TParamID ID, TParamValue ValueNormalized) = 0;
  virtual TResult endEdit(TParamID ID) = 0;
  virtual TResult restartComponent(int32_t Flags) = 0;
};

class IEditController : public IPluginBase {
 public:
  static const TGUID& iid() { return IID_IEditController; }
  virtual TResult setComponentState(IBStream* State) = 0;
  virtual TResult setState(IBStream* State) = 0;
  virtual TResult getState(IBStream* State) = 0;
  virtual int32_t getParameterCount() = 0;
  virtual TResult getParameterInfo(int32_t ParamIndex, TVST3ParameterInfo& Info) = 0;
  virtual TResult getParamStringByValue(TParamID ID, TParamValue ValueNormalized, char16* String) = 0;
  virtual TResult getParamValueByString(TParamID ID, char16* String, TParamValue& ValueNormalized) = 0;
  virtual TParamValue normalizedParamToPlain(TParamID ID, TParamValue ValueNormalized) = 0;
  virtual TParamValue plainParamToNormalized(TParamID ID, TParamValue PlainValue) = 0;
  virtual TParamValue getParamNormalized(TParamID ID) = 0;
  virtual TResult setParamNormalized(TParamID ID, TParamValue Value) = 0;
  virtual TResult setComponentHandler(IComponentHandler* Handler) = 0;
  virtual IPlugView* createView(TFIDString Name) = 0;
};

class IEditController2 : public IFUnknown {
 public:
  static const TGUID& iid() { return IID_IEditController2; }
  virtual TResult setKnobMode(int32_t Mode) = 0;
  virtual TResult openHelp(TBool OnlyCheck) = 0;
  virtual TResult openAboutBox(TBool OnlyCheck) = 0;
};

class IMidiMapping : public IFUnknown {
 public:
  static const TGUID& iid() { return IID_IMidiMapping; }
  virtual TResult getMidiControllerAssignment(int32_t BusIndex, int16_t Channel, int16_t MidiControllerNumber,
                                              TParamID& ID) = 0;
};

class IUnitHandler : public IFUnknown {
 public:
  static const TGUID& iid() { return IID_IUnitHandler; }
  virtual TResult notifyUnitSelection(TUnitID UnitId) = 0;
  virtual TResult notifyProgramListChange(TProgramListID ListId, int32_t ProgramIndex) = 0;
};

class IUnitInfo : public IFUnknown {
 public:
  static const TGUID& iid() { return IID_IUnitInfo; }
  virtual int32_t getUnitCount() = 0;
  virtual TResult getUnitInfo(int32_t UnitIndex, TVST3UnitInfo& Info) = 0;
  virtual int32_t getProgramListCount() = 0;
  virtual TResult getProgramListInfo(int32_t ListIndex, TVST3ProgramListInfo& Info) = 0;
  virtual TResult getProgramName(TProgramListID ListId, int32_t ProgramIndex, char16* Name) = 0;
  virtual TResult getProgramInfo(TProgramListID ListId, int32_t ProgramIndex, const char8* AttributeId,
                                 char16* AttributeValue) = 0;
  virtual TResult hasProgramPitchNames(TProgramListID ListId, int32_t ProgramIndex) = 0;
  virtual TResult getProgramPitchName(TProgramListID ListId, int32_t ProgramIndex, int16_t MidiPitch,
                                      char16* Name) = 0;
  virtual TUnitID getSelectedUnit() = 0;
  virtual TResult selectUnit(TUnitID UnitId) = 0;
  virtual TResult getUnitByBus(int32_t Type, int32_t Dir, int32_t BusIndex, int32_t Channel, TUnitID& UnitId) = 0;
  virtual TResult setUnitProgramData(int32_t ListOrUnitId, int32_t ProgramIndex, IBStream* Data) = 0;
};

class IProgramListData : public IFUnknown {
 public:
  static const TGUID& iid() { return IID_IProgramListData; }
  virtual TResult programDataSupported(TProgramListID ListId) = 0;
  virtual TResult getProgramData(TProgramListID ListId, int32_t ProgramIndex, IBStream* Data) = 0;
  virtual TResult setProgramData(TProgramListID ListId, int32_t ProgramIndex, IBStream* Data) = 0;
};

class IUnitData : public IFUnknown {
 public:
  static const TGUID& iid() { return IID_IUnitData; }
  virtual TResult unitDataSupported(TUnitID UnitId) = 0;
  virtual TResult getUnitData(TUnitID UnitId, IBStream* Data) = 0;
  virtual TResult setUnitData(TUnitID UnitId, IBStream* Data) = 0;
};

// The module's factory entry ("GetPluginFactory").
using TGetFactoryProc = IPluginFactory* (*)();

// ---- keyboard codes ------------------------------------------------------------

// '0'..'9' and 'A'..'Z' give the character's code plus 80, a space 7
// (KEY_SPACE), anything else 0.
uint16_t VST3CharToVirtualKeyCode(char C);
// Codes from 128 give the code minus 80, 7 a space, other codes 0.
char VST3VirtualKeyCodeToChar(uint8_t Code);
// The first entry of kVST3SpecialKeys equal to a Windows virtual-key code
// gives its position plus 1; false (Code untouched) when none matches.
bool VST3ConvertSpecialCode(uint16_t WindowsKey, uint16_t& Code);
// The Windows virtual keys in the order of the VST 3 key codes 1..64.
extern const uint16_t kVST3SpecialKeys[64];

}  // namespace Quorvel::Vst3hostintf
