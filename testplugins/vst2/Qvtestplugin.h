// What the VST 2 test plug-ins share with the tests that load them: their
// fixed answers, the record of every call a host makes into them, and the
// C functions they export beside their entry points to read those records,
// turn behaviour knobs and call the host back on demand.
//
// A test reaches these functions by loading the plug-in's file a second time
// with the platform loader (the same module, reference counted) while a host
// holds it, and looking the names up. The records live in the module, so all
// effects made by one plug-in file share them.
#pragma once

#include <cstdint>

#include "vst2/Srvsteffectintf.h"

namespace Quorvel {

// ---------------------------------------------------------------------------
// Fixed answers.

constexpr int32_t kQvTestUniqueId = FourCharToLong('Q', 'v', 'T', '2');  // main and "main"-only
constexpr int32_t kQvTestUniqueIdMainEntry = FourCharToLong('Q', 'v', 'T', 'm');    // "both", via "main"
constexpr int32_t kQvTestUniqueIdPluginMain = FourCharToLong('Q', 'v', 'T', 'v');   // "both", via "VSTPluginMain"
constexpr int32_t kQvTestUniqueIdAccumulating = FourCharToLong('Q', 'v', 'T', 'a');
constexpr int32_t kQvTestUniqueIdDouble = FourCharToLong('Q', 'v', 'T', 'd');
constexpr int32_t kQvTestUniqueIdNull = FourCharToLong('Q', 'v', 'T', '0');
constexpr int32_t kQvTestUniqueIdMono = FourCharToLong('Q', 'v', 'T', '1');
constexpr int32_t kQvTestUniqueIdChunks = FourCharToLong('Q', 'v', 'T', 'c');

constexpr const char* kQvTestEffectName = "Quorvel Test Plug-in";
constexpr const char* kQvTestNullEffectName = "Quorvel Null Plug-in";
constexpr const char* kQvTestVendor = "Quorvel";
// Vendors whose editors' resize requests hosts ignore ("DASH", "WUSIK").
constexpr const char* kQvTestVendorDash = "Quorvel Dashboard";
constexpr const char* kQvTestVendorWusik = "wusik test";
constexpr const char* kQvTestProduct = "Quorvel Test Fixtures";
constexpr int32_t kQvTestVersion = 1000;  // effect record Version and effGetVendorVersion
constexpr int32_t kQvTestVstVersion = 2400;
constexpr int32_t kQvTestInitialDelay = 7;
constexpr int32_t kQvTestTailSize = 100;
constexpr int32_t kQvTestIdentify = FourCharToLong('N', 'v', 'E', 'f');

// Parameters: output = input x 2 x Gain; Channel Map >= 0.5 swaps the two
// channels; Frozen does nothing to the sound and is not automatable.
enum TQvTestParameter : int32_t { qpGain, qpChannelMap, qpFrozen, qpCount };
// Programs, each a set of the three values above (Gain, Channel Map, Frozen):
// "Unity" (0.5, 0, 0), "Half" (0.25, 0, 0), "Swapped" (0.5, 1, 0), "Silent" (0, 0, 1).
constexpr int32_t kQvTestNumPrograms = 4;
constexpr int32_t kQvTestProgramNameLength = 24;  // characters kept of a program name, by default

// audioMasterGetTime is asked with these flags (Value) on every processed block.
constexpr TVstTimeInfoFlags kQvTestTimeFlags{TVstTimeInfoFlag::kVstPpqPosValid,
                                             TVstTimeInfoFlag::kVstTempoValid,
                                             TVstTimeInfoFlag::kVstTimeSigValid};

// ---------------------------------------------------------------------------
// The editor (the "Editor" variant only): a window of kQvTestEditorWidth x
// kQvTestEditorHeight inside the host's window, painted as kQvTestEditorBlocks
// blocks side by side, each as wide as the window over kQvTestEditorBlocks
// (the last takes the rest), whose colours follow the Gain parameter. The
// editor paints when it opens, when its window is exposed and, on
// effEditIdle, when Gain changed since it last painted. effSetViewPosition
// moves its window inside the host's.

constexpr int32_t kQvTestUniqueIdEditor = FourCharToLong('Q', 'v', 'T', 'e');
constexpr int32_t kQvTestEditorWidth = 240;
constexpr int32_t kQvTestEditorHeight = 120;
constexpr int32_t kQvTestEditorBlocks = 4;

// Block's colour (0x00RRGGBB) for a Gain value.
constexpr uint32_t QvTestEditorColour(int32_t Block, float Gain) noexcept {
  const uint32_t L = static_cast<uint32_t>((Gain < 0.0f ? 0.0f : Gain > 1.0f ? 1.0f : Gain) * 255.0f + 0.5f);
  switch (Block) {
    case 0: return L << 16 | 0x20u << 8 | 0x40u;
    case 1: return 0x20u << 16 | L << 8 | 0x80u;
    case 2: return 0xC0u << 16 | 0x40u << 8 | L;
    default: return (255u - L) << 16 | (255u - L) << 8 | 0x10u;
  }
}

// The window the editor asks the host for ("OpenWindow").
constexpr const char* kQvTestWindowTitle = "Quorvel Test Window";
constexpr int16_t kQvTestWindowX = 30, kQvTestWindowY = 40, kQvTestWindowWidth = 150, kQvTestWindowHeight = 90;

// ---------------------------------------------------------------------------
// The record of calls. Each call into the plug-in (and each call the plug-in
// makes into the host) takes the next record when it starts, so the order of
// records is the order in which calls began; a call's record is complete once
// the call returns.

enum TQvTestRecordKind : int32_t {
  qrEntry,  // an entry point ran: Opcode 0 "VSTPluginMain", 1 "main"; Result the effect
  qrDispatch,
  qrProcess,  // the accumulating routine
  qrProcessReplacing,
  qrProcessDoubleReplacing,
  qrSetParameter,  // Index, Opt the value
  qrGetParameter,  // Index, Opt the value answered
  qrHostCallback,  // a call from the plug-in into the host: Result the answer
};

enum TQvTestEntry : int32_t { qeVSTPluginMain, qeMain };

#pragma pack(push, 8)
struct TQvTestRecord {
  int32_t Kind;          // TQvTestRecordKind
  int32_t Opcode;        // dispatcher or host-callback opcode; entry: TQvTestEntry
  int32_t Index;
  int32_t SampleFrames;  // process calls
  int64_t Value;
  int64_t Result;        // dispatcher result, host answer
  uint64_t Ptr;          // the pointer argument's address
  uint64_t Effect;       // the effect record's address (0 for a call without one)
  float Opt;
  uint32_t Thread;       // hash of the calling thread's identity
  // Process calls: 64 when the channel blocks were read as doubles, else 32.
  int32_t Precision;
  // Process calls: input channels; effProcessEvents: events delivered;
  // effSetChunk: 1 when the chunk was taken.
  int32_t Count;
  // Process calls: the first sample of input channels 0 and 1 as received.
  // audioMasterGetTime: [0] SampleRate read through the answer, [1] 1 when the
  // answer pointed at readable memory (0 for null or unreadable answers).
  double Input[2];
  // Texts handed in (effCanDo, effSetProgramName, effString2Parameter,
  // audioMasterCanDo) or handed out (names, labels, displays, strings, pin
  // captions), cut to 63 characters.
  char Text[64];
  // The floating-point rounding mode the call found: fegetround(), with the
  // SSE rounding bits (0 for nearest) in bits 16..17 on x86. Host callbacks:
  // the mode the plug-in left before calling.
  int32_t Rounding;
  // Entry-point calls: how many entry-point calls of this file were running
  // when this one began (1 when they never overlap). Process calls: 1 when
  // every channel pointer the plug-in declares was non-null, else 0.
  int32_t Concurrent;
};
#pragma pack(pop)

constexpr int32_t kQvTestRecordCapacity = 65536;  // later records are dropped

// ---------------------------------------------------------------------------
// Exported C functions. [any thread] unless noted.

// Points Records at the first record and answers how many are complete.
using TQvTestGetRecordsFunc = int32_t (*)(const TQvTestRecord** Records);
// Forgets every record. Only while nothing calls into the plug-in.
using TQvTestClearRecordsFunc = void (*)();
// Sets a behaviour knob; answers 1 for a known name, 0 otherwise. Knobs:
//   "FixedOutput"         every output sample is this value (NaN: off, the default)
//   "CallHostInProcess"   1 (default): audioMasterGetTime on every block; 0: not
//   "ProgramNameIndexed"  1 (default): effGetProgramNameIndexed answers; 0: answers 0
//   "ProgramNameLength"   characters of a program name kept and handed out
//                         (default kQvTestProgramNameLength, at most 63)
//   "InitialDelay"        samples reported in initialDelay, and the output really
//                         is delayed by that many samples (first 64 channels);
//                         unset (the default): kQvTestInitialDelay is reported
//                         and the output is not delayed
//   "TailSize"            the answer to effGetTailSize (default kQvTestTailSize)
//   "NumInputs"           declared input channels, any 32-bit value (default:
//                         the variant's); "NumOutputs" likewise
//   "NumPrograms"         declared program count, any 32-bit value (default 4)
//   "CanDoBypass"         the answer to effCanDo("bypass"): 1 (default), 0, -1
//   "CrashInProcess"      1: the process routines write through a null pointer
//   "HasEditor"           1: effFlagsHasEditor is set (there is no editor)
//   "Vendor"              effGetVendorString: 0 kQvTestVendor (default),
//                         1 kQvTestVendorDash, 2 kQvTestVendorWusik
//   "ThreadedCallbacks"   1: effOpen and effClose start a thread that calls the
//                         host with every opcode of kQvTestThreadedOpcodes and
//                         join it before they return
//   "DirtyFpu"            1: every call into the host is made with the rounding
//                         mode set upwards (restored when the host returns)
//   "EmptyDisplay"        1: effGetParamDisplay hands out an empty text
//   "EditorWidth", "EditorHeight"  the "Editor" variant's size: at its next
//                         effEditIdle an open editor that has another size
//                         takes this one and asks the host with
//                         audioMasterSizeWindow (default kQvTestEditorWidth,
//                         kQvTestEditorHeight)
//   "OpenWindow"          at the next effEditIdle, asks the host for a window
//                         (audioMasterOpenWindow, kQvTestWindow*) with this
//                         Style (0 or -1), once per setting; "CloseWindow" 1:
//                         at the next effEditIdle asks the host to close it
//   "Reset"               every knob back to its default
// Knobs marked "declared" or read at creation apply to effects created after
// the change. The knobs are also read from the environment variable
// kQvTestOptionsVariable ("Name=Value,Name=Value", numbers as strtod reads
// them) each time an effect is created, so that other processes can set them.
using TQvTestSetOptionFunc = int32_t (*)(const char* Name, double Value);
// Calls the host callback with these arguments for Effect (made by this
// plug-in file) or, for a null Effect, the callback the last entry-point call
// received; answers the host's answer (0 when there is no callback).
using TQvTestCallHostFunc = intptr_t (*)(PVSTEffect Effect, int32_t Opcode, int32_t Index,
                                        intptr_t Value, void* Ptr, float Opt);

constexpr const char* kQvTestOptionsVariable = "QVTEST_VST2_OPTIONS";

// What the "ThreadedCallbacks" thread asks the host, in this order
// (audioMasterSetTime with kVstTempoValid and a tempo of 133).
constexpr int32_t kQvTestThreadedOpcodes[] = {
    audioMasterPinConnected,    audioMasterSetTime,           audioMasterTempoAt,
    audioMasterGetNumAutomatableParameters, audioMasterGetParameterQuantization,
    audioMasterIOChanged,       audioMasterNeedIdle,          audioMasterSizeWindow,
    audioMasterGetSampleRate,   audioMasterGetBlockSize,      audioMasterGetInputLatency,
    audioMasterGetOutputLatency, audioMasterSetOutputSampleRate, audioMasterGetVendorString,
    audioMasterGetProductString, audioMasterCanDo,            audioMasterGetLanguage,
    audioMasterGetDirectory};

constexpr const char* kQvTestGetRecordsName = "QvTestGetRecords";
constexpr const char* kQvTestClearRecordsName = "QvTestClearRecords";
constexpr const char* kQvTestSetOptionName = "QvTestSetOption";
constexpr const char* kQvTestCallHostName = "QvTestCallHost";

}  // namespace Quorvel
