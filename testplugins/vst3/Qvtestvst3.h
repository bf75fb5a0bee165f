// What the VST 3 test modules share with the tests that load them: their
// classes, their fixed answers, and the C functions they export beside the
// module entry points to read the record of calls, turn knobs and count
// their live objects. Each call is recorded with its arguments and the
// thread it came on.
//
// A test reaches these functions by loading the module's library a second
// time with the platform loader while a host holds it. The record lives in
// the module, so all objects of one module share it.
//
// Knobs (QvTest3SetOptions, or the QVTEST_VST3_OPTIONS environment variable
// read when the factory is taken): a comma-separated list of
//   fail=<step>   the step answers the failure result: factoryInfo,
//                 classInfo, createInstance (the component), initialize,
//                 controllerInitialize, setupProcessing, setActive, process,
//                 getState, controllerGetState (a separate controller's
//                 only), getControllerClassId, audioProcessor (the
//                 component offers none), countClasses (answers -3),
//                 nullInstance (the component's creation succeeds with nothing),
//                 startProcessing / stopProcessing (setProcessing(1) / (0))
//   result=<hex>  the failure result, in its Windows value (default 0x80004005)
//   buses=<in>:<out>  the audio buses, each side a '+'-list of channel counts
//                 (default 2:2); bus 0 is the main bus ("Stereo In", "Mono In",
//                 "<n>ch In"), the others auxiliary ("Aux 1 In", ...)
//   gain=<x>      what process multiplies by (default 1)
//   map=swap      output channel c takes input channel n-1-c of its bus
//                 (default: channel c)
//   viewresize=<left>:<top>:<right>:<bottom>  the rectangle the editor view
//                 asks its frame for (default 0:0:kResizedViewWidth:kResizedViewHeight)
//
// Processing: output bus o comes from input bus o (silence when there is no
// such bus or channel), in 32 or 64 bits as the process data says. Each call
// is also kept as a TProcessRecord (without allocating) for the tests.
#pragma once

#include <cstdint>

#include "vst3/Vst3hostintf.h"

namespace Quorvel::Qvtestvst3 {

// Class identifiers (four published-style words each).
constexpr TGUID kEffectCID = Vst3hostintf::MakeVST3UID(0x51764533, 0x45464601, 0x8A11C0DE, 0x00000001);
constexpr TGUID kControllerCID = Vst3hostintf::MakeVST3UID(0x51764533, 0x43544C02, 0x8A11C0DE, 0x00000002);
constexpr TGUID kSingleCID = Vst3hostintf::MakeVST3UID(0x51764533, 0x53474C03, 0x8A11C0DE, 0x00000003);
constexpr TGUID kAloneCID = Vst3hostintf::MakeVST3UID(0x51764533, 0x414C4E04, 0x8A11C0DE, 0x00000004);
// Names the records use for the objects of each class.
constexpr const char* kEffectName = "Quorvel Test Effect";
constexpr const char* kControllerName = "Quorvel Test Controller";
constexpr const char* kSingleName = "Quorvel Test Single";
constexpr const char* kAloneName = "Quorvel Test Alone";

constexpr const char* kVendor = "Quorvel";
constexpr const char* kURL = "https://quorvel.invalid/test";
constexpr const char* kEMail = "test@quorvel.invalid";
// Classes discardable, component non-discardable, unicode, and bit 4 (not a flag).
constexpr int32_t kFactoryFlags = 1 | 4 | 8 | 16;
constexpr const char* kClassVersion = "1.2.3";
constexpr const char* kSdkVersion = "VST 3.7.0";
constexpr const char* kSubCategories = "Fx|Test";

// Parameters of the controllers: "Gain" (dB, continuous, default 0.5) and "Mode" (3 steps).
constexpr uint32_t kGainID = 100;
constexpr uint32_t kModeID = 101;
// The component's state: one double, the gain. A separate controller's
// state: two doubles, the gain and the mode.
constexpr int32_t kStateBytes = 8;
constexpr int32_t kControllerStateBytes = 16;

// The message a component sends its peer when connected.
constexpr const char* kHelloMessage = "QvHello";
constexpr const char* kHelloAttribute = "Answer";
constexpr int64_t kHelloValue = 42;

// The controller's editor view: its size, the colour blocks it paints
// (0x00RRGGBB, left to right across its width), and the size it asks its
// frame for once the Mode parameter is set while it is attached.
constexpr int32_t kViewWidth = 320;
constexpr int32_t kViewHeight = 200;
constexpr int32_t kViewBlocks = 4;
constexpr uint32_t kViewColours[kViewBlocks] = {0xC03020, 0x20A040, 0x3050D0, 0xE0C040};
constexpr int32_t kResizedViewWidth = 400;
constexpr int32_t kResizedViewHeight = 240;

constexpr const char* kOptionsVariable = "QVTEST_VST3_OPTIONS";

// One process call as the module saw it; the first kRecordedBuses buses.
constexpr int32_t kRecordedBuses = 4;
struct TProcessRecord {
  int32_t Samples;         // numSamples
  int32_t SampleSize;      // symbolicSampleSize
  int32_t ProcessMode;
  int32_t Inputs, Outputs; // numInputs, numOutputs
  int32_t InputChannels[kRecordedBuses];
  int32_t OutputChannels[kRecordedBuses];
  uint64_t InputSilence[kRecordedBuses];
  uint64_t OutputSilence[kRecordedBuses];
  int32_t Events;            // input events; -1 without a list
  int32_t ParameterChanges;  // input parameter changes; -1 without them
};
// Records kept since the last reset (later calls are counted only).
constexpr int32_t kProcessRecordCapacity = 4096;

// Exported functions.
using TResetFunc = void (*)();
using TSetOptionsFunc = void (*)(const char* Options);
// Copies the record (one call a line) into Buffer; answers its full length.
using TGetCallsFunc = int32_t (*)(char* Buffer, int32_t Size);
// Copies, for each recorded call, the thread it came on (0 the first thread
// seen since the last reset, 1 the next, ...); answers the number of calls.
using TGetCallThreadsFunc = int32_t (*)(int32_t* Buffer, int32_t Size);
// Copies up to Size records of the process calls since the last reset;
// answers how many calls there were.
using TGetProcessCallsFunc = int32_t (*)(TProcessRecord* Buffer, int32_t Size);
// Plug-in objects alive (factory included) and references held on host objects.
using TCountFunc = int32_t (*)();
constexpr const char* kResetName = "QvTest3Reset";
constexpr const char* kSetOptionsName = "QvTest3SetOptions";
constexpr const char* kGetCallsName = "QvTest3GetCalls";
constexpr const char* kGetCallThreadsName = "QvTest3GetCallThreads";
constexpr const char* kGetProcessCallsName = "QvTest3GetProcessCalls";
constexpr const char* kLiveObjectsName = "QvTest3LiveObjects";
constexpr const char* kHostReferencesName = "QvTest3HostReferences";

}  // namespace Quorvel::Qvtestvst3
