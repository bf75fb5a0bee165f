#include "vst2/Srvsteffectintf.h"

#include <cmath>
#include <cstddef>
#include <limits>
#include <type_traits>

namespace Quorvel {

// ---------------------------------------------------------------------------
// Layout checks against the published 64-bit VST 2 layouts. A mismatch here is
// a plug-in reading or writing the wrong bytes.

#define QUORVEL_VST2_AT(Record, Field, Offset) \
  static_assert(offsetof(Record, Field) == (Offset), #Record "::" #Field " offset")
#define QUORVEL_VST2_SIZE(Record, Size)                                            \
  static_assert(sizeof(Record) == (Size), #Record " size");                        \
  static_assert(std::is_standard_layout<Record>::value, #Record " standard layout"); \
  static_assert(std::is_trivially_copyable<Record>::value, #Record " trivially copyable")

static_assert(sizeof(TEffFlags) == 4 && alignof(TEffFlags) == 4, "a flag set is one 32-bit word");
static_assert(sizeof(TDispatcherOpcode) == 4 && sizeof(TVstSpeakerType) == 4 &&
                  sizeof(TVSTEventType) == 4 && sizeof(TVstFileCommand) == 4,
              "enumerations travel as 32-bit values");

static_assert(effSetSampleRate == 10 && effEditTop == 20 && effCopyProgram == 30 &&
                  effOfflineRun == 40 && effVendorSpecific == 50 && effEditKeyUp == 60 &&
                  effShellGetNextPlugin == 70 && effGetNumMidiOutputChannels == 79,
              "dispatcher opcode numbers");
static_assert(audioMasterTempoAt == 10 && audioMasterGetPreviousPlug == 20 &&
                  audioMasterSetOutputSampleRate == 30 && audioMasterCloseWindow == 40 &&
                  audioMasterGetInputSpeakerArrangement == 49,
              "host callback opcode numbers");
static_assert(etSysEx == 6 && vpcGenerator == 11 && stLfe2 == 19 && kVstLangJapanese == 6 &&
                  vooQueryFiles == 6 && kVstDirectorySelect == 3,
              "enumeration values");
static_assert(TEffFlags{TEffFlag::effFlagsIsSynth}.Mask() == 0x100 &&
                  TEffFlags{TEffFlag::effFlagsCanDoubleReplacing}.Mask() == 0x1000 &&
                  TVstTimeInfoFlags{TVstTimeInfoFlag::kVstClockValid}.Mask() == 0x8000 &&
                  TVstOfflineTaskFlags{TVstOfflineTaskFlag::votNoThread}.Mask() == 0x10000 &&
                  TVstAudioFileFlags{TVstAudioFileFlag::vafWantSelect}.Mask() == 0x10000,
              "flag bit numbers");

QUORVEL_VST2_SIZE(TVSTEffect, 192);
QUORVEL_VST2_AT(TVSTEffect, Magic, 0);
QUORVEL_VST2_AT(TVSTEffect, Dispatcher, 8);
QUORVEL_VST2_AT(TVSTEffect, Process, 16);
QUORVEL_VST2_AT(TVSTEffect, SetParameter, 24);
QUORVEL_VST2_AT(TVSTEffect, GetParameter, 32);
QUORVEL_VST2_AT(TVSTEffect, numPrograms, 40);
QUORVEL_VST2_AT(TVSTEffect, numParams, 44);
QUORVEL_VST2_AT(TVSTEffect, numInputs, 48);
QUORVEL_VST2_AT(TVSTEffect, numOutputs, 52);
QUORVEL_VST2_AT(TVSTEffect, EffectFlags, 56);
QUORVEL_VST2_AT(TVSTEffect, reservedForHost, 64);
QUORVEL_VST2_AT(TVSTEffect, resvd2, 72);
QUORVEL_VST2_AT(TVSTEffect, InitialDelay, 80);
QUORVEL_VST2_AT(TVSTEffect, RealQualities, 84);
QUORVEL_VST2_AT(TVSTEffect, OffQualities, 88);
QUORVEL_VST2_AT(TVSTEffect, IORatio, 92);
QUORVEL_VST2_AT(TVSTEffect, vObject, 96);
QUORVEL_VST2_AT(TVSTEffect, User, 104);
QUORVEL_VST2_AT(TVSTEffect, UniqueID, 112);
QUORVEL_VST2_AT(TVSTEffect, Version, 116);
QUORVEL_VST2_AT(TVSTEffect, ProcessReplacing, 120);
QUORVEL_VST2_AT(TVSTEffect, ProcessDoubleReplacing, 128);
QUORVEL_VST2_AT(TVSTEffect, Future, 136);

QUORVEL_VST2_SIZE(TVstEvent, 32);
QUORVEL_VST2_AT(TVstEvent, EventType, 0);
QUORVEL_VST2_AT(TVstEvent, ByteSize, 4);
QUORVEL_VST2_AT(TVstEvent, DeltaFrames, 8);
QUORVEL_VST2_AT(TVstEvent, Flags, 12);
QUORVEL_VST2_AT(TVstEvent, Data, 16);

QUORVEL_VST2_SIZE(TVstEvents, 32);
QUORVEL_VST2_AT(TVstEvents, numEvents, 0);
QUORVEL_VST2_AT(TVstEvents, Reserved, 8);
QUORVEL_VST2_AT(TVstEvents, Events, 16);

QUORVEL_VST2_SIZE(TVstMidiEvent, 32);
QUORVEL_VST2_AT(TVstMidiEvent, EventType, 0);
QUORVEL_VST2_AT(TVstMidiEvent, ByteSize, 4);
QUORVEL_VST2_AT(TVstMidiEvent, DeltaFrames, 8);
QUORVEL_VST2_AT(TVstMidiEvent, Flags, 12);
QUORVEL_VST2_AT(TVstMidiEvent, NoteLength, 16);
QUORVEL_VST2_AT(TVstMidiEvent, NoteOffset, 20);
QUORVEL_VST2_AT(TVstMidiEvent, MidiData, 24);
QUORVEL_VST2_AT(TVstMidiEvent, Detune, 28);
QUORVEL_VST2_AT(TVstMidiEvent, NoteOffVelocity, 29);
QUORVEL_VST2_AT(TVstMidiEvent, Reserved1, 30);
QUORVEL_VST2_AT(TVstMidiEvent, Reserved2, 31);

QUORVEL_VST2_SIZE(TVstMidiSysexEvent, 48);
QUORVEL_VST2_AT(TVstMidiSysexEvent, EventType, 0);
QUORVEL_VST2_AT(TVstMidiSysexEvent, ByteSize, 4);
QUORVEL_VST2_AT(TVstMidiSysexEvent, DeltaFrames, 8);
QUORVEL_VST2_AT(TVstMidiSysexEvent, Flags, 12);
QUORVEL_VST2_AT(TVstMidiSysexEvent, dumpBytes, 16);
QUORVEL_VST2_AT(TVstMidiSysexEvent, resvd1, 24);
QUORVEL_VST2_AT(TVstMidiSysexEvent, sysexDump, 32);
QUORVEL_VST2_AT(TVstMidiSysexEvent, resvd2, 40);

QUORVEL_VST2_SIZE(TVstTimeInfo, 88);
QUORVEL_VST2_AT(TVstTimeInfo, SamplePos, 0);
QUORVEL_VST2_AT(TVstTimeInfo, SampleRate, 8);
QUORVEL_VST2_AT(TVstTimeInfo, NanoSeconds, 16);
QUORVEL_VST2_AT(TVstTimeInfo, ppqPos, 24);
QUORVEL_VST2_AT(TVstTimeInfo, Tempo, 32);
QUORVEL_VST2_AT(TVstTimeInfo, BarStartPos, 40);
QUORVEL_VST2_AT(TVstTimeInfo, CycleStartPos, 48);
QUORVEL_VST2_AT(TVstTimeInfo, CycleEndPos, 56);
QUORVEL_VST2_AT(TVstTimeInfo, TimeSigNumerator, 64);
QUORVEL_VST2_AT(TVstTimeInfo, TimeSigDenominator, 68);
QUORVEL_VST2_AT(TVstTimeInfo, SmpteOffset, 72);
QUORVEL_VST2_AT(TVstTimeInfo, SmpteFrameRate, 76);
QUORVEL_VST2_AT(TVstTimeInfo, SamplesToNextClock, 80);
QUORVEL_VST2_AT(TVstTimeInfo, Flags, 84);

QUORVEL_VST2_SIZE(TVstVariableIo, 40);
QUORVEL_VST2_AT(TVstVariableIo, Inputs, 0);
QUORVEL_VST2_AT(TVstVariableIo, Outputs, 8);
QUORVEL_VST2_AT(TVstVariableIo, numSamplesInput, 16);
QUORVEL_VST2_AT(TVstVariableIo, numSamplesOutput, 20);
QUORVEL_VST2_AT(TVstVariableIo, numSamplesInputProcessed, 24);
QUORVEL_VST2_AT(TVstVariableIo, numSamplesOutputProcessed, 32);

QUORVEL_VST2_SIZE(TVstParameterProperties, 152);
QUORVEL_VST2_AT(TVstParameterProperties, StepFloat, 0);
QUORVEL_VST2_AT(TVstParameterProperties, SmallStepFloat, 4);
QUORVEL_VST2_AT(TVstParameterProperties, LargeStepFloat, 8);
QUORVEL_VST2_AT(TVstParameterProperties, Caption, 12);
QUORVEL_VST2_AT(TVstParameterProperties, Flags, 76);
QUORVEL_VST2_AT(TVstParameterProperties, MinInteger, 80);
QUORVEL_VST2_AT(TVstParameterProperties, MaxInteger, 84);
QUORVEL_VST2_AT(TVstParameterProperties, StepInteger, 88);
QUORVEL_VST2_AT(TVstParameterProperties, LargeStepInteger, 92);
QUORVEL_VST2_AT(TVstParameterProperties, ShortLabel, 96);
QUORVEL_VST2_AT(TVstParameterProperties, DisplayIndex, 104);
QUORVEL_VST2_AT(TVstParameterProperties, Category, 106);
QUORVEL_VST2_AT(TVstParameterProperties, numParametersInCategory, 108);
QUORVEL_VST2_AT(TVstParameterProperties, Reserved, 110);
QUORVEL_VST2_AT(TVstParameterProperties, CategoryLabel, 112);
QUORVEL_VST2_AT(TVstParameterProperties, Future, 136);

QUORVEL_VST2_SIZE(TVstPinProperties, 128);
QUORVEL_VST2_AT(TVstPinProperties, Caption, 0);
QUORVEL_VST2_AT(TVstPinProperties, Flags, 64);
QUORVEL_VST2_AT(TVstPinProperties, ArrangementType, 68);
QUORVEL_VST2_AT(TVstPinProperties, ShortLabel, 72);
QUORVEL_VST2_AT(TVstPinProperties, Future, 80);

QUORVEL_VST2_SIZE(TVstSpeakerProperties, 112);
QUORVEL_VST2_AT(TVstSpeakerProperties, Azimuth, 0);
QUORVEL_VST2_AT(TVstSpeakerProperties, Elevation, 4);
QUORVEL_VST2_AT(TVstSpeakerProperties, Radius, 8);
QUORVEL_VST2_AT(TVstSpeakerProperties, Reserved, 12);
QUORVEL_VST2_AT(TVstSpeakerProperties, Name, 16);
QUORVEL_VST2_AT(TVstSpeakerProperties, vType, 80);
QUORVEL_VST2_AT(TVstSpeakerProperties, Future, 84);

QUORVEL_VST2_SIZE(TVstSpeakerArrangement, 904);
QUORVEL_VST2_AT(TVstSpeakerArrangement, vType, 0);
QUORVEL_VST2_AT(TVstSpeakerArrangement, numChannels, 4);
QUORVEL_VST2_AT(TVstSpeakerArrangement, Speakers, 8);

QUORVEL_VST2_SIZE(TMidiProgramName, 80);
QUORVEL_VST2_AT(TMidiProgramName, ThisProgramIndex, 0);
QUORVEL_VST2_AT(TMidiProgramName, Name, 4);
QUORVEL_VST2_AT(TMidiProgramName, MidiProgram, 68);
QUORVEL_VST2_AT(TMidiProgramName, MidiBankMsb, 69);
QUORVEL_VST2_AT(TMidiProgramName, MidiBankLsb, 70);
QUORVEL_VST2_AT(TMidiProgramName, Reserved, 71);
QUORVEL_VST2_AT(TMidiProgramName, ParentCategoryIndex, 72);
QUORVEL_VST2_AT(TMidiProgramName, Flags, 76);

QUORVEL_VST2_SIZE(TMidiProgramCategory, 76);
QUORVEL_VST2_AT(TMidiProgramCategory, ThisCategoryIndex, 0);
QUORVEL_VST2_AT(TMidiProgramCategory, Name, 4);
QUORVEL_VST2_AT(TMidiProgramCategory, ParentCategoryIndex, 68);
QUORVEL_VST2_AT(TMidiProgramCategory, Flags, 72);

QUORVEL_VST2_SIZE(TMidiKeyName, 80);
QUORVEL_VST2_AT(TMidiKeyName, ThisProgramIndex, 0);
QUORVEL_VST2_AT(TMidiKeyName, ThisKeyNumber, 4);
QUORVEL_VST2_AT(TMidiKeyName, KeyName, 8);
QUORVEL_VST2_AT(TMidiKeyName, Reserved, 72);
QUORVEL_VST2_AT(TMidiKeyName, Flags, 76);

QUORVEL_VST2_SIZE(TVstWindow, 272);
QUORVEL_VST2_AT(TVstWindow, Title, 0);
QUORVEL_VST2_AT(TVstWindow, xPos, 128);
QUORVEL_VST2_AT(TVstWindow, yPos, 130);
QUORVEL_VST2_AT(TVstWindow, Width, 132);
QUORVEL_VST2_AT(TVstWindow, Height, 134);
QUORVEL_VST2_AT(TVstWindow, Style, 136);
QUORVEL_VST2_AT(TVstWindow, Parent, 144);
QUORVEL_VST2_AT(TVstWindow, userHandle, 152);
QUORVEL_VST2_AT(TVstWindow, winHandle, 160);
QUORVEL_VST2_AT(TVstWindow, Future, 168);

QUORVEL_VST2_SIZE(TVstKeyCode, 8);
QUORVEL_VST2_AT(TVstKeyCode, Character, 0);
QUORVEL_VST2_AT(TVstKeyCode, Virt, 4);
QUORVEL_VST2_AT(TVstKeyCode, Modifier, 5);

QUORVEL_VST2_SIZE(TVstFileType, 408);
QUORVEL_VST2_AT(TVstFileType, name, 0);
QUORVEL_VST2_AT(TVstFileType, macType, 128);
QUORVEL_VST2_AT(TVstFileType, dosType, 136);
QUORVEL_VST2_AT(TVstFileType, unixType, 144);
QUORVEL_VST2_AT(TVstFileType, mimeType1, 152);
QUORVEL_VST2_AT(TVstFileType, mimeType2, 280);

QUORVEL_VST2_SIZE(TVstFileSelect, 1216);
QUORVEL_VST2_AT(TVstFileSelect, Command, 0);
QUORVEL_VST2_AT(TVstFileSelect, vType, 4);
QUORVEL_VST2_AT(TVstFileSelect, MacCreator, 8);
QUORVEL_VST2_AT(TVstFileSelect, nbFileTypes, 12);
QUORVEL_VST2_AT(TVstFileSelect, FileTypes, 16);
QUORVEL_VST2_AT(TVstFileSelect, Title, 24);
QUORVEL_VST2_AT(TVstFileSelect, InitialPath, 1048);
QUORVEL_VST2_AT(TVstFileSelect, ReturnPath, 1056);
QUORVEL_VST2_AT(TVstFileSelect, SizeReturnPath, 1064);
QUORVEL_VST2_AT(TVstFileSelect, ReturnMultiplePaths, 1072);
QUORVEL_VST2_AT(TVstFileSelect, nbReturnPath, 1080);
QUORVEL_VST2_AT(TVstFileSelect, Reserved, 1088);
QUORVEL_VST2_AT(TVstFileSelect, Future, 1096);

QUORVEL_VST2_SIZE(TVstPatchChunkInfo, 64);
QUORVEL_VST2_AT(TVstPatchChunkInfo, version, 0);
QUORVEL_VST2_AT(TVstPatchChunkInfo, pluginUniqueID, 4);
QUORVEL_VST2_AT(TVstPatchChunkInfo, pluginVersion, 8);
QUORVEL_VST2_AT(TVstPatchChunkInfo, numElements, 12);
QUORVEL_VST2_AT(TVstPatchChunkInfo, future, 16);

QUORVEL_VST2_SIZE(TERect, 8);
QUORVEL_VST2_AT(TERect, Top, 0);
QUORVEL_VST2_AT(TERect, Left, 2);
QUORVEL_VST2_AT(TERect, Bottom, 4);
QUORVEL_VST2_AT(TERect, Right, 6);

QUORVEL_VST2_SIZE(TVstOfflineTask, 1896);
QUORVEL_VST2_AT(TVstOfflineTask, processName, 0);
QUORVEL_VST2_AT(TVstOfflineTask, ReadPosition, 96);
QUORVEL_VST2_AT(TVstOfflineTask, WritePosition, 104);
QUORVEL_VST2_AT(TVstOfflineTask, ReadCount, 112);
QUORVEL_VST2_AT(TVstOfflineTask, WriteCount, 116);
QUORVEL_VST2_AT(TVstOfflineTask, SizeInputBuffer, 120);
QUORVEL_VST2_AT(TVstOfflineTask, SizeOutputBuffer, 124);
QUORVEL_VST2_AT(TVstOfflineTask, InputBuffer, 128);
QUORVEL_VST2_AT(TVstOfflineTask, OutputBuffer, 136);
QUORVEL_VST2_AT(TVstOfflineTask, PositionToProcessFrom, 144);
QUORVEL_VST2_AT(TVstOfflineTask, NumFramesToProcess, 152);
QUORVEL_VST2_AT(TVstOfflineTask, MaxFramesToWrite, 160);
QUORVEL_VST2_AT(TVstOfflineTask, ExtraBuffer, 168);
QUORVEL_VST2_AT(TVstOfflineTask, Value, 176);
QUORVEL_VST2_AT(TVstOfflineTask, Index, 180);
QUORVEL_VST2_AT(TVstOfflineTask, NumFramesInSourceFile, 184);
QUORVEL_VST2_AT(TVstOfflineTask, SourceSampleRate, 192);
QUORVEL_VST2_AT(TVstOfflineTask, DestinationSampleRate, 200);
QUORVEL_VST2_AT(TVstOfflineTask, NumSourceChannels, 208);
QUORVEL_VST2_AT(TVstOfflineTask, NumDestinationChannels, 212);
QUORVEL_VST2_AT(TVstOfflineTask, SourceFormat, 216);
QUORVEL_VST2_AT(TVstOfflineTask, DestinationFormat, 220);
QUORVEL_VST2_AT(TVstOfflineTask, OutputText, 224);
QUORVEL_VST2_AT(TVstOfflineTask, Progress, 736);
QUORVEL_VST2_AT(TVstOfflineTask, ProgressMode, 744);
QUORVEL_VST2_AT(TVstOfflineTask, ProgressText, 748);
QUORVEL_VST2_AT(TVstOfflineTask, Flags, 848);
QUORVEL_VST2_AT(TVstOfflineTask, ReturnValue, 852);
QUORVEL_VST2_AT(TVstOfflineTask, HostOwned, 856);
QUORVEL_VST2_AT(TVstOfflineTask, PlugOwned, 864);
QUORVEL_VST2_AT(TVstOfflineTask, Future, 872);

QUORVEL_VST2_SIZE(TVstAudioFile, 296);
QUORVEL_VST2_AT(TVstAudioFile, Flags, 0);
QUORVEL_VST2_AT(TVstAudioFile, HostOwned, 8);
QUORVEL_VST2_AT(TVstAudioFile, PlugOwned, 16);
QUORVEL_VST2_AT(TVstAudioFile, Name, 24);
QUORVEL_VST2_AT(TVstAudioFile, UniqueId, 124);
QUORVEL_VST2_AT(TVstAudioFile, SampleRate, 128);
QUORVEL_VST2_AT(TVstAudioFile, NumChannels, 136);
QUORVEL_VST2_AT(TVstAudioFile, NumFrames, 144);
QUORVEL_VST2_AT(TVstAudioFile, Format, 152);
QUORVEL_VST2_AT(TVstAudioFile, EditCursorPosition, 160);
QUORVEL_VST2_AT(TVstAudioFile, SelectionStart, 168);
QUORVEL_VST2_AT(TVstAudioFile, SelectionSize, 176);
QUORVEL_VST2_AT(TVstAudioFile, SelectedChannelsMask, 184);
QUORVEL_VST2_AT(TVstAudioFile, NumMarkers, 188);
QUORVEL_VST2_AT(TVstAudioFile, TimeRulerUnit, 192);
QUORVEL_VST2_AT(TVstAudioFile, TimeRulerOffset, 200);
QUORVEL_VST2_AT(TVstAudioFile, Tempo, 208);
QUORVEL_VST2_AT(TVstAudioFile, TimeSigNumerator, 216);
QUORVEL_VST2_AT(TVstAudioFile, TimeSigDenominator, 220);
QUORVEL_VST2_AT(TVstAudioFile, TicksPerBlackNote, 224);
QUORVEL_VST2_AT(TVstAudioFile, SmpteFrameRate, 228);
QUORVEL_VST2_AT(TVstAudioFile, Future, 232);

QUORVEL_VST2_SIZE(TVstAudioFileMarker, 56);
QUORVEL_VST2_AT(TVstAudioFileMarker, Position, 0);
QUORVEL_VST2_AT(TVstAudioFileMarker, Name, 8);
QUORVEL_VST2_AT(TVstAudioFileMarker, vType, 40);
QUORVEL_VST2_AT(TVstAudioFileMarker, Id, 44);
QUORVEL_VST2_AT(TVstAudioFileMarker, Reserved, 48);

// Preset and bank file heads: the offsets are those of the file.
QUORVEL_VST2_SIZE(TFXPreset, 56);
QUORVEL_VST2_AT(TFXPreset, chunkMagic, 0);
QUORVEL_VST2_AT(TFXPreset, ByteSize, 4);
QUORVEL_VST2_AT(TFXPreset, fxMagic, 8);
QUORVEL_VST2_AT(TFXPreset, version, 12);
QUORVEL_VST2_AT(TFXPreset, fxID, 16);
QUORVEL_VST2_AT(TFXPreset, fxVersion, 20);
QUORVEL_VST2_AT(TFXPreset, numParams, 24);
QUORVEL_VST2_AT(TFXPreset, prgName, 28);

QUORVEL_VST2_SIZE(TFXChunkSet, 60);
QUORVEL_VST2_AT(TFXChunkSet, fxID, 16);
QUORVEL_VST2_AT(TFXChunkSet, numPrograms, 24);
QUORVEL_VST2_AT(TFXChunkSet, prgName, 28);
QUORVEL_VST2_AT(TFXChunkSet, chunkSize, 56);

QUORVEL_VST2_SIZE(TFXSet, 156);
QUORVEL_VST2_AT(TFXSet, fxID, 16);
QUORVEL_VST2_AT(TFXSet, numPrograms, 24);
QUORVEL_VST2_AT(TFXSet, future, 28);

QUORVEL_VST2_SIZE(TFXChunkBank, 160);
QUORVEL_VST2_AT(TFXChunkBank, fxID, 16);
QUORVEL_VST2_AT(TFXChunkBank, numPrograms, 24);
QUORVEL_VST2_AT(TFXChunkBank, future, 28);
QUORVEL_VST2_AT(TFXChunkBank, chunkSize, 156);

#undef QUORVEL_VST2_AT
#undef QUORVEL_VST2_SIZE

// ---------------------------------------------------------------------------
// Helpers

double FMod(double X, double Y) noexcept {
  const double Quotient = X / Y;
  if (Y == 0.0 || std::isnan(Quotient) || std::isinf(X))
    return std::numeric_limits<double>::quiet_NaN();
  int32_t Truncated;
  if (Quotient >= 2147483647.0)
    Truncated = std::numeric_limits<int32_t>::max();
  else if (Quotient <= -2147483648.0)
    Truncated = std::numeric_limits<int32_t>::min();
  else
    Truncated = static_cast<int32_t>(Quotient);  // in range: truncates towards zero
  // Also keeps X for an infinite Y, where 0 * Y would be NaN.
  if (Truncated == 0) return X;
  return X - static_cast<double>(Truncated) * Y;
}

double gapSmallValue(double Value, double MaxValue) noexcept {
  return std::pow(MaxValue, Value);
}

double invGapSmallValue(double Value, double MaxValue) noexcept {
  if (Value == 0.0) return 0.0;
  return std::log(Value) / std::log(MaxValue);
}

namespace {

// Key numbers by virtual key number; index 0 and anything past the end is no key.
constexpr uint8_t KVirtualKeyNumbers[] = {
    0,                                           // 0: none
    8, 9, 12, 13, 19, 27, 32,                    // back, tab, clear, return, pause, escape, space
    34, 35, 36,                                  // next, end, home
    37, 38, 39, 40,                              // left, up, right, down
    38, 40,                                      // page up, page down (as up and down)
    41, 42, 13, 44, 45, 46, 47,                  // select, print, enter, snapshot, insert, delete, help
    48, 49, 50, 51, 52, 53, 54, 55, 56, 57,      // numeric pad 0..9 (the digit characters)
    106, 107, 108, 109, 110, 111,                // multiply, add, separator, subtract, decimal, divide
    112, 113, 114, 115, 116, 117,                // F1..F6
    118, 119, 120, 121, 122, 123,                // F7..F12
    144, 145,                                    // num lock, scroll lock
    16, 17, 18,                                  // shift, control, alternate
    93,                                          // equals
};
static_assert(sizeof(KVirtualKeyNumbers) == 58, "virtual keys 0..57");

}  // namespace

int32_t KeyCodeToInteger(const TVstKeyCode& KeyCode) noexcept {
  if (KeyCode.Character != 0) {
    // Unsigned arithmetic: no overflow for a character near the 32-bit minimum.
    return (KeyCode.Modifier & 1u) == 0
               ? KeyCode.Character
               : static_cast<int32_t>(static_cast<uint32_t>(KeyCode.Character) - 32u);
  }
  if (KeyCode.Virt >= sizeof(KVirtualKeyNumbers)) return 0;
  return KVirtualKeyNumbers[KeyCode.Virt];
}

namespace {

struct TOpcodeName {
  TDispatcherOpcode Opcode;
  const char* Name;
};

// Pairs the name with its enumerator, so a name can neither be misspelt nor
// land at another opcode's number (checked below).
#define QUORVEL_OPCODE_NAME(Opcode) TOpcodeName{Opcode, #Opcode}
constexpr TOpcodeName KOpcodeNames[] = {
    QUORVEL_OPCODE_NAME(effOpen),
    QUORVEL_OPCODE_NAME(effClose),
    QUORVEL_OPCODE_NAME(effSetProgram),
    QUORVEL_OPCODE_NAME(effGetProgram),
    QUORVEL_OPCODE_NAME(effSetProgramName),
    QUORVEL_OPCODE_NAME(effGetProgramName),
    QUORVEL_OPCODE_NAME(effGetParamLabel),
    QUORVEL_OPCODE_NAME(effGetParamDisplay),
    QUORVEL_OPCODE_NAME(effGetParamName),
    QUORVEL_OPCODE_NAME(effGetVu),
    QUORVEL_OPCODE_NAME(effSetSampleRate),
    QUORVEL_OPCODE_NAME(effSetBlockSize),
    QUORVEL_OPCODE_NAME(effMainsChanged),
    QUORVEL_OPCODE_NAME(effEditGetRect),
    QUORVEL_OPCODE_NAME(effEditOpen),
    QUORVEL_OPCODE_NAME(effEditClose),
    QUORVEL_OPCODE_NAME(effEditDraw),
    QUORVEL_OPCODE_NAME(effEditMouse),
    QUORVEL_OPCODE_NAME(effEditKey),
    QUORVEL_OPCODE_NAME(effEditIdle),
    QUORVEL_OPCODE_NAME(effEditTop),
    QUORVEL_OPCODE_NAME(effEditSleep),
    QUORVEL_OPCODE_NAME(effIdentify),
    QUORVEL_OPCODE_NAME(effGetChunk),
    QUORVEL_OPCODE_NAME(effSetChunk),
    QUORVEL_OPCODE_NAME(effProcessEvents),
    QUORVEL_OPCODE_NAME(effCanBeAutomated),
    QUORVEL_OPCODE_NAME(effString2Parameter),
    QUORVEL_OPCODE_NAME(effGetNumProgramCategories),
    QUORVEL_OPCODE_NAME(effGetProgramNameIndexed),
    QUORVEL_OPCODE_NAME(effCopyProgram),
    QUORVEL_OPCODE_NAME(effConnectInput),
    QUORVEL_OPCODE_NAME(effConnectOutput),
    QUORVEL_OPCODE_NAME(effGetInputProperties),
    QUORVEL_OPCODE_NAME(effGetOutputProperties),
    QUORVEL_OPCODE_NAME(effGetPlugCategory),
    QUORVEL_OPCODE_NAME(effGetCurrentPosition),
    QUORVEL_OPCODE_NAME(effGetDestinationBuffer),
    QUORVEL_OPCODE_NAME(effOfflineNotify),
    QUORVEL_OPCODE_NAME(effOfflinePrepare),
    QUORVEL_OPCODE_NAME(effOfflineRun),
    QUORVEL_OPCODE_NAME(effProcessVarIo),
    QUORVEL_OPCODE_NAME(effSetSpeakerArrangement),
    QUORVEL_OPCODE_NAME(effSetBlockSizeAndSampleRate),
    QUORVEL_OPCODE_NAME(effSetBypass),
    QUORVEL_OPCODE_NAME(effGetEffectName),
    QUORVEL_OPCODE_NAME(effGetErrorText),
    QUORVEL_OPCODE_NAME(effGetVendorString),
    QUORVEL_OPCODE_NAME(effGetProductString),
    QUORVEL_OPCODE_NAME(effGetVendorVersion),
    QUORVEL_OPCODE_NAME(effVendorSpecific),
    QUORVEL_OPCODE_NAME(effCanDo),
    QUORVEL_OPCODE_NAME(effGetTailSize),
    QUORVEL_OPCODE_NAME(effIdle),
    QUORVEL_OPCODE_NAME(effGetIcon),
    QUORVEL_OPCODE_NAME(effSetViewPosition),
    QUORVEL_OPCODE_NAME(effGetParameterProperties),
    QUORVEL_OPCODE_NAME(effKeysRequired),
    QUORVEL_OPCODE_NAME(effGetVstVersion),
    QUORVEL_OPCODE_NAME(effEditKeyDown),
    QUORVEL_OPCODE_NAME(effEditKeyUp),
    QUORVEL_OPCODE_NAME(effSetEditKnobMode),
    QUORVEL_OPCODE_NAME(effGetMidiProgramName),
    QUORVEL_OPCODE_NAME(effGetCurrentMidiProgram),
    QUORVEL_OPCODE_NAME(effGetMidiProgramCategory),
    QUORVEL_OPCODE_NAME(effHasMidiProgramsChanged),
    QUORVEL_OPCODE_NAME(effGetMidiKeyName),
    QUORVEL_OPCODE_NAME(effBeginSetProgram),
    QUORVEL_OPCODE_NAME(effEndSetProgram),
    QUORVEL_OPCODE_NAME(effGetSpeakerArrangement),
    QUORVEL_OPCODE_NAME(effShellGetNextPlugin),
    QUORVEL_OPCODE_NAME(effStartProcess),
    QUORVEL_OPCODE_NAME(effStopProcess),
    QUORVEL_OPCODE_NAME(effSetTotalSampleToProcess),
    QUORVEL_OPCODE_NAME(effSetPanLaw),
    QUORVEL_OPCODE_NAME(effBeginLoadBank),
    QUORVEL_OPCODE_NAME(effBeginLoadProgram),
    QUORVEL_OPCODE_NAME(effSetProcessPrecision),
    QUORVEL_OPCODE_NAME(effGetNumMidiInputChannels),
    QUORVEL_OPCODE_NAME(effGetNumMidiOutputChannels),
};
#undef QUORVEL_OPCODE_NAME

constexpr bool OpcodeNamesInOrder() {
  int32_t Expected = 0;
  for (const TOpcodeName& Entry : KOpcodeNames)
    if (Entry.Opcode != Expected++) return false;
  return Expected == effGetNumMidiOutputChannels + 1;
}
static_assert(OpcodeNamesInOrder(), "one name per dispatcher opcode, in opcode order");

}  // namespace

std::string Opcode2String(TDispatcherOpcode Opcode) {
  const int32_t Number = Opcode;
  if (Number >= 0 && Number < static_cast<int32_t>(sizeof(KOpcodeNames) / sizeof(KOpcodeNames[0])))
    return KOpcodeNames[Number].Name;
  return "unkown opcode: " + std::to_string(Number);
}

}  // namespace Quorvel
