// Host-side declaration of the VST 2 binary interface: the effect record a
// plug-in returns from its entry point, the function types in it, the
// dispatcher and host-callback opcodes, the flag sets, and the records passed
// by pointer through the dispatcher and the callback. Also the preset and bank
// file records and a few small helpers.
//
// Every record here is a layout shared with plug-ins built by others. The
// layouts are those of 64-bit targets (Windows x64 and Linux x86_64: 8-byte
// pointers, natural alignment); Srvsteffectintf.cpp checks the size and every
// field offset at compile time. Fixed-width types only: `long` differs between
// the two platforms.
#pragma once

#include <cstdint>
#include <string>

#include "frame/Wbset.h"

namespace Quorvel {

static_assert(sizeof(void*) == 8, "the VST 2 records are declared for 64-bit targets");

struct TVSTEffect;
using PVSTEffect = TVSTEffect*;

using PSingle = float*;
using PPSingle = float**;  // array of channel pointers
using PDouble = double*;
using PPDouble = double**;

// ---------------------------------------------------------------------------
// Function types. x64 Windows and x86_64 Linux each have a single calling
// convention, which is the one plug-ins use, so none is spelled out.

// The host callback. Its result is pointer-sized, as plug-ins declare it and
// read it (the whole result register). The host's answers are 32-bit values,
// sign-extended into that width.
using TAudioMasterCallbackFunc = intptr_t (*)(PVSTEffect Effect, int32_t Opcode, int32_t Index,
                                             intptr_t Value, void* Ptr, float Opt);
// The plug-in's entry point ("VSTPluginMain" or "main").
using TMainProc = PVSTEffect (*)(TAudioMasterCallbackFunc audioMaster);
using TDispatcherFunc = intptr_t (*)(PVSTEffect Effect, int32_t Opcode, int32_t Index,
                                     intptr_t Value, void* Ptr, float Opt);
using TProcessProc = void (*)(PVSTEffect Effect, PPSingle Inputs, PPSingle Outputs,
                              int32_t Sampleframes);
using TProcessDoubleProc = void (*)(PVSTEffect Effect, PPDouble Inputs, PPDouble Outputs,
                                    int32_t Sampleframes);
using TSetParameterProc = void (*)(PVSTEffect Effect, int32_t Index, float Parameter);
using TGetParameterFunc = float (*)(PVSTEffect Effect, int32_t Index);

// ---------------------------------------------------------------------------
// Opcodes and enumerations. Plain enumerations over int32_t: their names carry
// their own prefixes, they travel in 32-bit fields and arguments, and a
// plug-in may send any 32-bit value, which such an enumeration can hold.

enum TVstProcessPrecision : int32_t { pp32, pp64 };

enum TDispatcherOpcode : int32_t {
  effOpen, effClose, effSetProgram, effGetProgram, effSetProgramName, effGetProgramName,
  effGetParamLabel, effGetParamDisplay, effGetParamName, effGetVu,
  effSetSampleRate,  // 10
  effSetBlockSize, effMainsChanged, effEditGetRect, effEditOpen, effEditClose, effEditDraw,
  effEditMouse, effEditKey, effEditIdle,
  effEditTop,  // 20
  effEditSleep, effIdentify, effGetChunk, effSetChunk, effProcessEvents, effCanBeAutomated,
  effString2Parameter, effGetNumProgramCategories, effGetProgramNameIndexed,
  effCopyProgram,  // 30
  effConnectInput, effConnectOutput, effGetInputProperties, effGetOutputProperties,
  effGetPlugCategory, effGetCurrentPosition, effGetDestinationBuffer, effOfflineNotify,
  effOfflinePrepare,
  effOfflineRun,  // 40
  effProcessVarIo, effSetSpeakerArrangement, effSetBlockSizeAndSampleRate, effSetBypass,
  effGetEffectName, effGetErrorText, effGetVendorString, effGetProductString,
  effGetVendorVersion,
  effVendorSpecific,  // 50
  effCanDo, effGetTailSize, effIdle, effGetIcon, effSetViewPosition, effGetParameterProperties,
  effKeysRequired, effGetVstVersion, effEditKeyDown,
  effEditKeyUp,  // 60
  effSetEditKnobMode, effGetMidiProgramName, effGetCurrentMidiProgram, effGetMidiProgramCategory,
  effHasMidiProgramsChanged, effGetMidiKeyName, effBeginSetProgram, effEndSetProgram,
  effGetSpeakerArrangement,
  effShellGetNextPlugin,  // 70
  effStartProcess, effStopProcess, effSetTotalSampleToProcess, effSetPanLaw, effBeginLoadBank,
  effBeginLoadProgram, effSetProcessPrecision, effGetNumMidiInputChannels,
  effGetNumMidiOutputChannels  // 79
};

enum TAudioMasterOpcode : int32_t {
  audioMasterAutomate, audioMasterVersion, audioMasterCurrentId, audioMasterIdle,
  audioMasterPinConnected, audioMasterUnused, audioMasterWantMidi, audioMasterGetTime,
  audioMasterProcessEvents, audioMasterSetTime,
  audioMasterTempoAt,  // 10
  audioMasterGetNumAutomatableParameters, audioMasterGetParameterQuantization,
  audioMasterIOChanged, audioMasterNeedIdle, audioMasterSizeWindow, audioMasterGetSampleRate,
  audioMasterGetBlockSize, audioMasterGetInputLatency, audioMasterGetOutputLatency,
  audioMasterGetPreviousPlug,  // 20
  audioMasterGetNextPlug, audioMasterWillReplaceOrAccumulate, audioMasterGetCurrentProcessLevel,
  audioMasterGetAutomationState, audioMasterOfflineStart, audioMasterOfflineRead,
  audioMasterOfflineWrite, audioMasterOfflineGetCurrentPass, audioMasterOfflineGetCurrentMetaPass,
  audioMasterSetOutputSampleRate,  // 30
  audioMasterGetSpeakerArrangement, audioMasterGetVendorString, audioMasterGetProductString,
  audioMasterGetVendorVersion, audioMasterVendorSpecific, audioMasterSetIcon, audioMasterCanDo,
  audioMasterGetLanguage, audioMasterOpenWindow,
  audioMasterCloseWindow,  // 40
  audioMasterGetDirectory, audioMasterUpdateDisplay, audioMasterBeginEdit, audioMasterEndEdit,
  audioMasterOpenFileSelector, audioMasterCloseFileSelector, audioMasterEditFile,
  audioMasterGetChunkFile,
  audioMasterGetInputSpeakerArrangement  // 49
};

enum TVSTEventType : int32_t { etNone, etMidi, etAudio, etVideo, etParameter, etTrigger, etSysEx };

enum TVstHostLanguage : int32_t {
  kVstLangUnknown, kVstLangEnglish, kVstLangGerman, kVstLangFrench, kVstLangItalian,
  kVstLangSpanish, kVstLangJapanese
};

enum TVstPluginCategory : int32_t {
  vpcUnknown, vpcEffect, vpcSynth, vpcAnalysis, vpcMastering, vpcSpacializer, vpcRoomFx,
  vpcSurroundFx, vpcRestoration, vpcOfflineProcess, vpcShell, vpcGenerator
};

enum TVstSpeakerType : int32_t {
  stMono, stLeft, stRight, stCenter, stLfe, stLs, stRs, stLc, stRc, stSurround, stSl, stSr,
  stTm, stTfl, stTfc, stTfr, stTrl, stTrc, stTrr, stLfe2
};

enum TVstOfflineOption : int32_t {
  vooAudio, vooPeaks, vooParameter, vooMarker, vooCursor, vooSelection, vooQueryFiles
};

enum TVstFileCommand : int32_t {
  kVstFileLoad, kVstFileSave, kVstMultipleFilesLoad, kVstDirectorySelect
};

enum TVstFileTypeType : int32_t { kVstFileType };

enum TVstPanLawType : int32_t { kLinearPanLaw, kEqualPowerPanLaw };

// ---------------------------------------------------------------------------
// Flag sets: bit N of the 32-bit flag word is the member with ordinal N.

enum class TEffFlag {
  effFlagsHasEditor, effFlagsHasClip, effFlagsHasVu, effFlagsCanMono, effFlagsCanReplacing,
  effFlagsProgramChunks, effFlagsUnused1, effFlagsUnused2, effFlagsIsSynth,
  effFlagsNoSoundInStop, effFlagsExtIsAsync, effFlagsExtHasBuffer, effFlagsCanDoubleReplacing
};
using TEffFlags = TSet<TEffFlag, uint32_t>;

enum class TVstTimeInfoFlag {
  kVstTransportChanged, kVstTransportPlaying, kVstTransportCycleActive, kVstTransportRecording,
  kVstTransportUnused1, kVstTransportUnused2, kVstAutomationWriting, kVstAutomationReading,
  kVstNanosValid, kVstPpqPosValid, kVstTempoValid, kVstBarsValid, kVstCyclePosValid,
  kVstTimeSigValid, kVstSmpteValid, kVstClockValid
};
using TVstTimeInfoFlags = TSet<TVstTimeInfoFlag, uint32_t>;

enum class TVstMidiEventFlag { kVstMidiEventIsRealtime };
using TVstMidiEventFlags = TSet<TVstMidiEventFlag, uint32_t>;

enum class TVstParameterPropertiesFlag {
  kVstParameterIsSwitch, kVstParameterUsesIntegerMinMax, kVstParameterUsesFloatStep,
  kVstParameterUsesIntStep, kVstParameterSupportsDisplayIndex,
  kVstParameterSupportsDisplayCategory, kVstParameterCanRamp
};
using TVstParameterPropertiesFlags = TSet<TVstParameterPropertiesFlag, uint32_t>;

enum class TVstPinPropertiesFlag { vppIsActive, vppIsStereo, vppUseSpeaker };
using TVstPinPropertiesFlags = TSet<TVstPinPropertiesFlag, uint32_t>;

enum class TMidiProgramNameFlag { mpnIsOmni };
using TMidiProgramNameFlags = TSet<TMidiProgramNameFlag, uint32_t>;

enum class TVstOfflineTaskFlag {
  votUnvalidParameter, votNewFile, votUnused1, votUnused2, votUnused3, votUnused4, votUnused5,
  votUnused6, votUnused7, votUnused8, votPlugError, votInterleavedAudio, votTempOutputFile,
  votFloatOutputFile, votRandomWrite, votStretch, votNoThread
};
using TVstOfflineTaskFlags = TSet<TVstOfflineTaskFlag, uint32_t>;

enum class TVstAudioFileFlag {
  vafReadOnly, vafNoRateConversion, vafNoChannelChange, vafUnused1, vafUnused2, vafUnused3,
  vafUnused4, vafUnused5, vafUnused6, vafUnused7, vafCanProcessSelection, vafNoCrossfade,
  vafWantRead, vafWantWrite, vafWantWriteMarker, vafWantMoveCursor, vafWantSelect
};
using TVstAudioFileFlags = TSet<TVstAudioFileFlag, uint32_t>;

// ---------------------------------------------------------------------------
// Records. Text fields are 8-bit and zero-terminated within their length.

#pragma pack(push, 8)

struct TVSTEffect {
  int32_t Magic;  // FourCharToLong('V','s','t','P')
  TDispatcherFunc Dispatcher;
  TProcessProc Process;  // accumulating; deprecated
  TSetParameterProc SetParameter;
  TGetParameterFunc GetParameter;
  int32_t numPrograms;
  int32_t numParams;
  int32_t numInputs;
  int32_t numOutputs;
  TEffFlags EffectFlags;
  intptr_t reservedForHost;
  intptr_t resvd2;
  int32_t InitialDelay;  // latency in samples
  int32_t RealQualities;  // unused
  int32_t OffQualities;   // unused
  float IORatio;
  void* vObject;  // the plug-in's own object
  void* User;     // free for the host's own reference
  int32_t UniqueID;  // four-character identifier
  int32_t Version;
  TProcessProc ProcessReplacing;
  TProcessDoubleProc ProcessDoubleReplacing;
  uint8_t Future[56];
};

struct TVstEvent {
  TVSTEventType EventType;
  int32_t ByteSize;  // size of the event without EventType and ByteSize
  int32_t DeltaFrames;
  int32_t Flags;
  uint8_t Data[16];
};
using PVstEvent = TVstEvent*;

// Declared with two slots; the sender allocates as many as it sends.
struct TVstEvents {
  int32_t numEvents;
  intptr_t Reserved;
  PVstEvent Events[2];
};
using PVstEvents = TVstEvents*;

struct TVstMidiEvent {
  TVSTEventType EventType;  // etMidi
  int32_t ByteSize;
  int32_t DeltaFrames;
  TVstMidiEventFlags Flags;
  int32_t NoteLength;
  int32_t NoteOffset;
  uint8_t MidiData[4];
  int8_t Detune;
  uint8_t NoteOffVelocity;
  uint8_t Reserved1;
  uint8_t Reserved2;
};
using PVstMidiEvent = TVstMidiEvent*;

struct TVstMidiSysexEvent {
  TVSTEventType EventType;  // etSysEx
  int32_t ByteSize;
  int32_t DeltaFrames;
  int32_t Flags;
  int32_t dumpBytes;
  intptr_t resvd1;
  uint8_t* sysexDump;
  intptr_t resvd2;
};
using PVstMidiSysexEvent = TVstMidiSysexEvent*;

struct TVstTimeInfo {
  double SamplePos;
  double SampleRate;
  double NanoSeconds;
  double ppqPos;
  double Tempo;
  double BarStartPos;
  double CycleStartPos;
  double CycleEndPos;
  int32_t TimeSigNumerator;
  int32_t TimeSigDenominator;
  int32_t SmpteOffset;
  int32_t SmpteFrameRate;
  int32_t SamplesToNextClock;
  TVstTimeInfoFlags Flags;
};
using PVstTimeInfo = TVstTimeInfo*;

struct TVstVariableIo {
  PPSingle Inputs;
  PPSingle Outputs;
  int32_t numSamplesInput;
  int32_t numSamplesOutput;
  int32_t* numSamplesInputProcessed;
  int32_t* numSamplesOutputProcessed;
};
using PVstVariableIo = TVstVariableIo*;

struct TVstParameterProperties {
  float StepFloat;
  float SmallStepFloat;
  float LargeStepFloat;
  char Caption[64];
  TVstParameterPropertiesFlags Flags;
  int32_t MinInteger;
  int32_t MaxInteger;
  int32_t StepInteger;
  int32_t LargeStepInteger;
  char ShortLabel[8];
  int16_t DisplayIndex;
  int16_t Category;
  int16_t numParametersInCategory;
  int16_t Reserved;
  char CategoryLabel[24];
  uint8_t Future[16];
};
using PVstParameterProperties = TVstParameterProperties*;

struct TVstPinProperties {
  char Caption[64];
  TVstPinPropertiesFlags Flags;
  int32_t ArrangementType;
  char ShortLabel[8];
  uint8_t Future[48];
};
using PVstPinProperties = TVstPinProperties*;

struct TVstSpeakerProperties {
  float Azimuth;
  float Elevation;
  float Radius;
  float Reserved;
  char Name[64];
  TVstSpeakerType vType;
  uint8_t Future[28];
};
using PVstSpeakerProperties = TVstSpeakerProperties*;

struct TVstSpeakerArrangement {
  int32_t vType;  // arrangement type
  int32_t numChannels;
  TVstSpeakerProperties Speakers[8];
};
using PVstSpeakerArrangement = TVstSpeakerArrangement*;

struct TMidiProgramName {
  int32_t ThisProgramIndex;
  char Name[64];
  int8_t MidiProgram;
  int8_t MidiBankMsb;
  int8_t MidiBankLsb;
  int8_t Reserved;
  int32_t ParentCategoryIndex;
  TMidiProgramNameFlags Flags;
};
using PMidiProgramName = TMidiProgramName*;

struct TMidiProgramCategory {
  int32_t ThisCategoryIndex;
  char Name[64];
  int32_t ParentCategoryIndex;
  int32_t Flags;
};
using PMidiProgramCategory = TMidiProgramCategory*;

struct TMidiKeyName {
  int32_t ThisProgramIndex;
  int32_t ThisKeyNumber;
  char KeyName[64];
  int32_t Reserved;
  int32_t Flags;
};
using PMidiKeyName = TMidiKeyName*;

struct TVstWindow {
  char Title[128];
  int16_t xPos;
  int16_t yPos;
  int16_t Width;
  int16_t Height;
  int32_t Style;
  void* Parent;
  void* userHandle;
  void* winHandle;
  uint8_t Future[104];
};
using PVstWindow = TVstWindow*;

struct TVstKeyCode {
  int32_t Character;
  uint8_t Virt;      // virtual key number, see KeyCodeToInteger
  uint8_t Modifier;  // bit 0: shift
};
using PVstKeyCode = TVstKeyCode*;

struct TVstFileType {
  char name[128];
  char macType[8];
  char dosType[8];
  char unixType[8];
  char mimeType1[128];
  char mimeType2[128];
};
using PVstFileType = TVstFileType*;

struct TVstFileSelect {
  TVstFileCommand Command;
  TVstFileTypeType vType;
  int32_t MacCreator;
  int32_t nbFileTypes;
  PVstFileType FileTypes;
  char Title[1024];
  char* InitialPath;
  char* ReturnPath;
  int32_t SizeReturnPath;
  char** ReturnMultiplePaths;
  int32_t nbReturnPath;
  intptr_t Reserved;
  uint8_t Future[116];
};
using PVstFileSelect = TVstFileSelect*;

struct TVstPatchChunkInfo {
  int32_t version;
  int32_t pluginUniqueID;
  int32_t pluginVersion;
  int32_t numElements;
  uint8_t future[48];
};
using PVstPatchChunkInfo = TVstPatchChunkInfo*;

struct TERect {
  int16_t Top;
  int16_t Left;
  int16_t Bottom;
  int16_t Right;
};
using PERect = TERect*;
using PPERect = TERect**;  // effEditGetRect answers through this

// Offline processing. Declared for completeness; the host never fills them.
struct TVstOfflineTask {
  char processName[96];
  double ReadPosition;
  double WritePosition;
  int32_t ReadCount;
  int32_t WriteCount;
  int32_t SizeInputBuffer;
  int32_t SizeOutputBuffer;
  void* InputBuffer;
  void* OutputBuffer;
  double PositionToProcessFrom;
  double NumFramesToProcess;
  double MaxFramesToWrite;
  void* ExtraBuffer;
  int32_t Value;
  int32_t Index;
  double NumFramesInSourceFile;
  double SourceSampleRate;
  double DestinationSampleRate;
  int32_t NumSourceChannels;
  int32_t NumDestinationChannels;
  int32_t SourceFormat;
  int32_t DestinationFormat;
  char OutputText[512];
  double Progress;
  int32_t ProgressMode;
  char ProgressText[100];
  TVstOfflineTaskFlags Flags;
  int32_t ReturnValue;
  void* HostOwned;
  void* PlugOwned;
  uint8_t Future[1024];
};
using PVstOfflineTask = TVstOfflineTask*;

struct TVstAudioFile {
  TVstAudioFileFlags Flags;
  void* HostOwned;
  void* PlugOwned;
  char Name[100];
  int32_t UniqueId;
  double SampleRate;
  int32_t NumChannels;
  double NumFrames;
  int32_t Format;
  double EditCursorPosition;
  double SelectionStart;
  double SelectionSize;
  int32_t SelectedChannelsMask;
  int32_t NumMarkers;
  int32_t TimeRulerUnit;
  double TimeRulerOffset;
  double Tempo;
  int32_t TimeSigNumerator;
  int32_t TimeSigDenominator;
  int32_t TicksPerBlackNote;
  int32_t SmpteFrameRate;
  uint8_t Future[64];
};
using PVstAudioFile = TVstAudioFile*;

struct TVstAudioFileMarker {
  double Position;
  char Name[32];
  int32_t vType;
  int32_t Id;
  int32_t Reserved;
};
using PVstAudioFileMarker = TVstAudioFileMarker*;

#pragma pack(pop)

// ---------------------------------------------------------------------------
// Preset (.fxp) and bank (.fxb) file headers. In a file every field is
// big-endian, so these records hold the file's bytes; whoever fills or reads
// them converts. Each record is the fixed head exactly as a reader reads it;
// the variable part follows it in the file:
//   TFXPreset     parameter values, 4 x numParams bytes (32-bit floats)
//   TFXChunkSet   chunkSize bytes of the plug-in's program chunk
//   TFXSet        numPrograms parameter-form presets (TFXPreset + values)
//   TFXChunkBank  chunkSize bytes of the plug-in's bank chunk

// No padding anywhere in these; 4 keeps the fields naturally aligned.
#pragma pack(push, 4)

struct TFXPreset {
  int32_t chunkMagic;  // 'CcnK'
  int32_t ByteSize;    // size of the rest of the file
  int32_t fxMagic;     // 'FxCk'
  int32_t version;     // 1
  int32_t fxID;        // the plug-in's unique identifier
  int32_t fxVersion;
  int32_t numParams;
  char prgName[28];
};
using PFXPreset = TFXPreset*;

struct TFXChunkSet {
  int32_t chunkMagic;  // 'CcnK'
  int32_t ByteSize;
  int32_t fxMagic;     // 'FPCh'
  int32_t version;
  int32_t fxID;
  int32_t fxVersion;
  int32_t numPrograms;
  char prgName[28];
  int32_t chunkSize;
};
using PFXChunkSet = TFXChunkSet*;

struct TFXSet {
  int32_t chunkMagic;  // 'CcnK'
  int32_t ByteSize;
  int32_t fxMagic;     // 'FxBk'
  int32_t version;
  int32_t fxID;
  int32_t fxVersion;
  int32_t numPrograms;
  uint8_t future[128];
};
using PFXSet = TFXSet*;

struct TFXChunkBank {
  int32_t chunkMagic;  // 'CcnK'
  int32_t ByteSize;
  int32_t fxMagic;     // 'FBCh'
  int32_t version;
  int32_t fxID;
  int32_t fxVersion;
  int32_t numPrograms;
  uint8_t future[128];
  int32_t chunkSize;
};
using PFXChunkBank = TFXChunkBank*;

#pragma pack(pop)

// ---------------------------------------------------------------------------
// Helpers. All are pure functions: [any thread].

// First character in the top byte: FourCharToLong('V','s','t','P') == 0x56737450.
// Characters are taken as unsigned bytes.
constexpr int32_t FourCharToLong(char C1, char C2, char C3, char C4) noexcept {
  return static_cast<int32_t>((uint32_t{static_cast<uint8_t>(C1)} << 24) |
                              (uint32_t{static_cast<uint8_t>(C2)} << 16) |
                              (uint32_t{static_cast<uint8_t>(C3)} << 8) |
                              uint32_t{static_cast<uint8_t>(C4)});
}

// Arguments in reading order, stored in the record's order (top, left, bottom, right).
constexpr TERect MakeERect(int16_t Left, int16_t Top, int16_t Right, int16_t Bottom) noexcept {
  return TERect{Top, Left, Bottom, Right};
}

// X - trunc(X / Y) * Y with the quotient truncated towards zero to a 32-bit
// integer, so the remainder keeps the sign of X. A quotient beyond the 32-bit
// range is saturated to it (the result is then no longer a remainder). NaN when
// Y is 0, X is infinite, or either argument is NaN.
double FMod(double X, double Y) noexcept;

// MaxValue raised to the power Value: maps a linear 0..1 control to a curve.
double gapSmallValue(double Value, double MaxValue) noexcept;

// Inverse of gapSmallValue: the logarithm of Value to the base MaxValue, and 0
// for Value 0. Base 1 has no logarithm (the result is infinite or NaN).
double invGapSmallValue(double Value, double MaxValue) noexcept;

// Key number of an editor key event. A character wins over the virtual key;
// with shift the character is answered as Character - 32 (the upper-case
// letter, for letters). Virtual keys map to Windows virtual-key numbers with
// deliberate exceptions: page up and page down answer 38 and 40 (the codes of
// up and down), the numeric pad answers the digit characters '0'..'9', and
// equals answers 93. Unknown virtual keys answer 0.
int32_t KeyCodeToInteger(const TVstKeyCode& KeyCode) noexcept;

// The opcode's name ("effOpen" .. "effGetNumMidiOutputChannels"); any other
// value gives "unkown opcode: " and the number in decimal (that spelling is
// intended and kept).
std::string Opcode2String(TDispatcherOpcode Opcode);

}  // namespace Quorvel
