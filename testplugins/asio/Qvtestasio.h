// The test ASIO driver: a driver that tests and the command-line host open
// like a real one, with a configurable "device" behind it.
//
// Two drivers, each a slot with a device of its own:
//
//   slot  key name (Software\ASIO)     CLSID                                    ThreadingModel
//   0     "Quorvel Test ASIO"          {5F6CEC0D-A43B-458E-BCC2-8E89E102A0E3}   Apartment
//   1     "Quorvel Test ASIO Float"    {E1B9BC87-0ECF-44B0-917A-12D727E865AA}   Both
//
// Windows: Qvtestasio.dll is a COM in-process server. DllRegisterServer
// writes HKCR\CLSID\{clsid}\InprocServer32 (the DLL's path) and
// HKLM\Software\ASIO\<name> ("CLSID", "Description"); the CTest fixture
// "qvtestasio_registered" runs "regsvr32 /s" on it in the build's Wine
// prefix. An object registered "Apartment" is created only from a
// single-threaded apartment (under Wine: E_NOINTERFACE from an MTA thread).
// Natively the same driver is a static library, and QvTestAsioRegisterDrivers
// puts the same names and CLSIDs into the in-process driver catalogue.
//
// Control: the extern "C" functions below, exported by the DLL. Tests reach
// them through QvTestAsioApi() (library qvtestasio_api), which loads the DLL
// from the path COM has registered, so the module COM loads and the one the
// test configures are the same; natively it answers the linked functions.
//
// The device of a slot holds the configuration, the failures to inject, the
// stream (buffers, driver thread, capture) and the counters. Driver objects
// are thin: every object of a slot talks to the same device, as programs
// opening the same card do; only one object at a time can hold buffers.
//
// What a driver object answers comes from the slot's current configuration
// at the time of the call (so it may be changed after the object exists).
// createBuffers fixes the stream's channels, sample types and buffer size;
// start fixes the rate, pacing and behaviours used by the driver thread.
//
// The driver thread (one per start, joined by stop) per buffer switch:
//   1. index: 0, 1, 0, 1, ... (always 0 with qvbAlwaysIndexZero);
//   2. fills every input channel's half [index] with the samples of sample
//      positions P .. P+N-1 (P = N * switches so far; see QvTestAsioSignal
//      and QvTestAsioEncode below, or the raw pattern of the configuration);
//   3. latches (P, now) for getSamplePosition;
//   4. calls bufferSwitchTimeInfo when the host answered 1 to
//      asioMessage(kAsioSupportsTimeInfo) in createBuffers (or when forced),
//      bufferSwitch otherwise, with the configured direct-process flag;
//   5. after the callback returns, copies every output channel's half [index]
//      into the channel's capture (first CaptureFrames / N switches only;
//      preallocated by createBuffers, nothing is allocated on this thread);
//   6. waits for the next switch: real time (N / rate after the previous
//      one, on a steady clock, the first one period after start), free
//      running, or manual (one switch per QvTestAsioStep permit).
// After stop returns no callback comes, unless an oddity asks for one.
// start, stop, createBuffers and disposeBuffers called from a callback (on a
// thread of the driver) answer ASE_InvalidMode: the thread cannot wait for
// itself. Hosts must not hold, while calling stop or disposeBuffers, a lock
// their callbacks wait for: both wait for the driver thread to end.
#pragma once

#include <cstdint>
#include <cstring>

#include "asio/Asiointerface.h"

namespace Quorvel {

constexpr int32_t QvTestAsioDriverCount = 2;
constexpr int32_t QvTestAsioMaxChannels = 32;      // per direction
constexpr int32_t QvTestAsioMaxRates = 8;
constexpr int32_t QvTestAsioMaxClocks = 4;
constexpr int32_t QvTestAsioMaxBufferSize = 32768; // frames
constexpr int32_t QvTestAsioMaxCaptureFrames = 1 << 20;
constexpr int32_t QvTestAsioMaxRawPattern = 64;    // bytes

// Registry key names (Software\ASIO) and class identifiers, by slot.
inline constexpr const char* QvTestAsioNames[QvTestAsioDriverCount] = {
    "Quorvel Test ASIO", "Quorvel Test ASIO Float"};
inline constexpr const char* QvTestAsioClsidTexts[QvTestAsioDriverCount] = {
    "{5F6CEC0D-A43B-458E-BCC2-8E89E102A0E3}", "{E1B9BC87-0ECF-44B0-917A-12D727E865AA}"};
inline constexpr TGUID QvTestAsioClsids[QvTestAsioDriverCount] = {
    {0x5F6CEC0Du, 0xA43Bu, 0x458Eu, {0xBC, 0xC2, 0x8E, 0x89, 0xE1, 0x02, 0xA0, 0xE3}},
    {0xE1B9BC87u, 0x0ECFu, 0x44B0u, {0x91, 0x7A, 0x12, 0xD7, 0x27, 0xE8, 0x65, 0xAA}}};

// How the driver thread paces its buffer switches.
enum TQvTestAsioPacing : int32_t {
  qvpRealTime = 0,     // one switch per N / rate seconds
  qvpFreeRunning = 1,  // as fast as the host returns
  qvpManual = 2,       // one switch per permit of QvTestAsioStep
};

// Behaviours, a bit set (TQvTestAsioConfig::Behaviours).
enum TQvTestAsioBehaviour : uint32_t {
  qvbOutputReady = 1u << 0,              // outputReady answers ASE_OK (else ASE_NotPresent)
  qvbNoTimeInfoQuery = 1u << 1,          // never asks kAsioSupportsTimeInfo: always bufferSwitch
  qvbForceTimeInfo = 1u << 2,            // bufferSwitchTimeInfo whatever the host answered
  qvbAlwaysIndexZero = 1u << 3,          // passes buffer index 0 on every switch
  qvbSwitchDuringCreateBuffers = 1u << 4,// a thread of its own calls the host once while createBuffers runs (and it waits for that call)
  qvbSwitchDuringStop = 1u << 5,         // a thread of its own calls the host once while stop runs (and it waits for that call)
  qvbFalseRateChange = 1u << 6,          // sampleRateDidChange(unchanged rate) after the first switch
  qvbResetRequestOnStart = 1u << 7,      // asioMessage(kAsioResetRequest) from start, after the thread began
  qvbAnyBufferSize = 1u << 8,            // createBuffers takes any size 1..QvTestAsioMaxBufferSize
};

// The methods whose result can be forced (QvTestAsioSetFailure).
enum TQvTestAsioMethod : int32_t {
  qvmInit,  // any code: init answers ASIOFalse
  qvmStart, qvmStop, qvmGetChannels, qvmGetLatencies, qvmGetBufferSize, qvmCanSampleRate,
  qvmGetSampleRate, qvmSetSampleRate, qvmGetClockSources, qvmSetClockSource, qvmGetSamplePosition,
  qvmGetChannelInfo, qvmCreateBuffers, qvmDisposeBuffers, qvmControlPanel, qvmFuture, qvmOutputReady,
  qvmCount
};

struct TQvTestAsioChannel {
  TASIOSampleType Type;  // any value; unknown ones are streamed as 4 bytes a sample
  int32_t Group;         // channelGroup
  char Name[32];
};

// Everything a test may configure. Read it with QvTestAsioGetConfig, change
// fields, write it back with QvTestAsioSetConfig.
struct TQvTestAsioConfig {
  char DriverName[32];           // getDriverName
  int32_t DriverVersion;         // getDriverVersion
  char ErrorMessage[124];        // getErrorMessage
  // getChannels answers these as they are (any value, negative or absurd
  // ones too); the stream and getChannelInfo use the first
  // clamp(count, 0, QvTestAsioMaxChannels) channels of the tables below.
  int32_t InputCount;
  int32_t OutputCount;
  TQvTestAsioChannel Inputs[QvTestAsioMaxChannels];
  TQvTestAsioChannel Outputs[QvTestAsioMaxChannels];
  // getBufferSize. Granularity > 0: sizes Min + k * Granularity; -1: powers
  // of two; 0: any size from Min to Max.
  int32_t MinSize;
  int32_t MaxSize;
  int32_t PreferredSize;
  int32_t Granularity;
  int32_t InputLatency;          // getLatencies
  int32_t OutputLatency;
  int32_t RateCount;             // canSampleRate / setSampleRate accept these
  double Rates[QvTestAsioMaxRates];
  double CurrentRate;            // getSampleRate; 0 answers ASE_NoClock
  int32_t ClockCount;            // getClockSources
  char ClockNames[QvTestAsioMaxClocks][32];
  int32_t CurrentClock;          // setClockSource changes it
  int32_t Pacing;                // TQvTestAsioPacing
  uint32_t Behaviours;           // TQvTestAsioBehaviour bits
  TASIOBool DirectProcess;       // passed with every switch
  int32_t MaxSwitches;           // the driver thread stops switching after so many (0: no limit)
  int32_t CaptureFrames;         // capture per output channel, in frames (0: none)
  uint8_t OutputFill;            // byte that fills output buffers when created
  // When RawPatternBytes > 0, input halves are filled by repeating these bytes
  // (from the first byte of each half) instead of the signal.
  int32_t RawPatternBytes;
  uint8_t RawPattern[QvTestAsioMaxRawPattern];
};

// Counters and state of a slot's device (QvTestAsioGetStats).
struct TQvTestAsioStats {
  int32_t LiveObjects;           // driver objects of the slot alive
  int32_t InitCalls;
  int64_t SysHandle;             // passed to the latest init
  int32_t CreateBuffersCalls;
  int32_t DisposeBuffersCalls;
  int32_t StartCalls;
  int32_t StopCalls;
  int32_t ControlPanelCalls;
  int32_t FutureCalls;
  int32_t OutputReadyCalls;
  int32_t BuffersCreated;        // 1 while buffers exist
  int32_t Running;               // 1 from a successful start to stop
  int32_t ThreadRunning;         // 1 while the driver thread exists (not yet joined)
  int32_t OddThreadsRunning;     // oddity threads not yet finished
  int32_t RequestedBufferSize;   // size asked of the latest createBuffers (0: none yet)
  int32_t TimeInfoAnswer;        // host's answer to kAsioSupportsTimeInfo (-1: not asked)
  int32_t StreamInputs;          // channels of the current (or last) stream
  int32_t StreamOutputs;
  int64_t Switches;              // switches made by the driver thread
  int64_t TimeInfoSwitches;      // of those, through bufferSwitchTimeInfo
  int64_t OddSwitches;           // switches made by oddity threads (not in Switches)
  int32_t LastIndex;             // buffer index of the latest switch (-1: none)
  int64_t SamplePosition;        // sample position of the latest switch
  int64_t CapturedSwitches;      // output halves held by the capture
  int32_t SampleRateChanges;     // sampleRateDidChange calls made
  int32_t ResetRequests;         // kAsioResetRequest messages sent by qvbResetRequestOnStart
  int32_t MessagesSent;          // messages sent for QvTestAsioSendMessage
  int32_t LastMessageAnswer;     // the host's answer to the latest of them
};

// ---------------------------------------------------------------------------
// The predictable input signal. Sample at position P of input channel C (P
// counts from 0 at start, C is the driver's channel number), as a 32-bit
// value:
//   high 16 bits = (P + 1) * 0x0123 + C * 0x1111          (mod 2^16)
//   low 16 bits  = P * 0x2B + (C + 1) * 0x81               (mod 2^16)
// The high half ramps, so lost or repeated blocks show in 16-bit types too,
// and its sign changes every ~115 samples.
inline int32_t QvTestAsioSignal(int32_t Channel, uint64_t Position) {
  const uint32_t P = static_cast<uint32_t>(Position);
  const uint32_t C = static_cast<uint32_t>(Channel);
  const uint32_t High = ((P + 1u) * 0x0123u + C * 0x1111u) & 0xFFFFu;
  const uint32_t Low = (P * 0x2Bu + (C + 1u) * 0x81u) & 0xFFFFu;
  return static_cast<int32_t>((High << 16) | Low);
}

// Bytes one sample of a type takes in a buffer: 2, 3, 4 or 8; 1 for
// DSDInt8NER8; 0 for the 1-bit DSD types (8 samples a byte); 4 for unknown
// types.
inline int32_t QvTestAsioSampleBytes(TASIOSampleType Type) {
  switch (Type) {
    case ASIOSTInt16MSB: case ASIOSTInt16LSB: return 2;
    case ASIOSTInt24MSB: case ASIOSTInt24LSB: return 3;
    case ASIOSTFloat64MSB: case ASIOSTFloat64LSB: return 8;
    case ASIOSTDSDInt8LSB1: case ASIOSTDSDInt8MSB1: return 0;
    case ASIOSTDSDInt8NER8: return 1;
    default: return 4;
  }
}

// Bytes of one half-buffer of Frames samples.
inline int64_t QvTestAsioHalfBytes(TASIOSampleType Type, int32_t Frames) {
  const int32_t Bytes = QvTestAsioSampleBytes(Type);
  return Bytes ? int64_t(Bytes) * Frames : (int64_t(Frames) + 7) / 8;
}

// Writes Value as one sample of Type at Dest (QvTestAsioSampleBytes bytes),
// by the rules a device uses for a 32-bit integer sample:
//   Int16: Value >> 16; Int24: Value >> 8 (3 bytes); Int32: Value;
//   Int32xxx16/18/20/24: Value >> (32 - bits), right aligned, sign extended;
//   Float32: float(Value) / 2147483648.0f; Float64: double(Value) / 2147483647.0;
//   MSB types big-endian, LSB types little-endian.
// DSDInt8NER8 and unknown types get the byte 0x69 (DSD silence); the 1-bit
// DSD types (no whole byte per sample) are filled with 0x69 per buffer.
inline void QvTestAsioEncode(TASIOSampleType Type, int32_t Value, void* Dest) {
  constexpr int32_t NarrowBits[4] = {16, 18, 20, 24};  // Int32xxx16, 18, 20, 24
  uint8_t Bytes[8] = {};
  int32_t Size = 4;
  bool Big = false;
  const auto PutInt = [&](uint64_t V, int32_t N) {
    Size = N;
    for (int32_t I = 0; I < N; ++I) Bytes[I] = uint8_t(V >> (8 * I));
  };
  switch (Type) {
    case ASIOSTInt16MSB: Big = true; [[fallthrough]];
    case ASIOSTInt16LSB: PutInt(uint32_t(Value >> 16), 2); break;
    case ASIOSTInt24MSB: Big = true; [[fallthrough]];
    case ASIOSTInt24LSB: PutInt(uint32_t(Value >> 8), 3); break;
    case ASIOSTInt32MSB: Big = true; [[fallthrough]];
    case ASIOSTInt32LSB: PutInt(uint32_t(Value), 4); break;
    case ASIOSTInt32MSB16: case ASIOSTInt32MSB18: case ASIOSTInt32MSB20: case ASIOSTInt32MSB24:
      Big = true;
      PutInt(uint32_t(Value >> (32 - NarrowBits[Type - ASIOSTInt32MSB16])), 4);
      break;
    case ASIOSTInt32LSB16: case ASIOSTInt32LSB18: case ASIOSTInt32LSB20: case ASIOSTInt32LSB24:
      PutInt(uint32_t(Value >> (32 - NarrowBits[Type - ASIOSTInt32LSB16])), 4);
      break;
    case ASIOSTFloat32MSB: Big = true; [[fallthrough]];
    case ASIOSTFloat32LSB: {
      const float F = float(Value) / 2147483648.0f;
      uint32_t Bits;
      std::memcpy(&Bits, &F, 4);
      PutInt(Bits, 4);
      break;
    }
    case ASIOSTFloat64MSB: Big = true; [[fallthrough]];
    case ASIOSTFloat64LSB: {
      const double D = double(Value) / 2147483647.0;
      uint64_t Bits;
      std::memcpy(&Bits, &D, 8);
      PutInt(Bits, 8);
      break;
    }
    case ASIOSTDSDInt8LSB1: case ASIOSTDSDInt8MSB1: return;
    default:
      Size = QvTestAsioSampleBytes(Type);
      std::memset(Bytes, 0x69, sizeof(Bytes));
      break;
  }
  uint8_t* Out = static_cast<uint8_t*>(Dest);
  for (int32_t I = 0; I < Size; ++I) Out[I] = Big ? Bytes[Size - 1 - I] : Bytes[I];
}

}  // namespace Quorvel

// ---------------------------------------------------------------------------
// Control functions of the driver. Slot: 0 .. QvTestAsioDriverCount - 1.
// Results: ASE_OK, or ASE_InvalidParameter for a bad slot or argument. All
// [main thread] unless marked; none may be called from a driver callback.
extern "C" {
// The slot's built-in configuration (what QvTestAsioReset restores).
int32_t QvTestAsioDefaultConfig(int32_t Slot, Quorvel::TQvTestAsioConfig* Config) noexcept;
int32_t QvTestAsioGetConfig(int32_t Slot, Quorvel::TQvTestAsioConfig* Config) noexcept;
// Checks and takes a configuration (channel counts: any value),
// 1 <= MinSize <= PreferredSize <= MaxSize <= QvTestAsioMaxBufferSize,
// 0 <= RateCount <= QvTestAsioMaxRates with rates > 0, 0 <= ClockCount <=
// QvTestAsioMaxClocks, a known pacing, 0 <= CaptureFrames <=
// QvTestAsioMaxCaptureFrames, 0 <= RawPatternBytes <= QvTestAsioMaxRawPattern.
int32_t QvTestAsioSetConfig(int32_t Slot, const Quorvel::TQvTestAsioConfig* Config) noexcept;
// From now on Method succeeds AfterCalls more times, then answers Code on
// every call (init: ASIOFalse). Code 0 clears the failure.
int32_t QvTestAsioSetFailure(int32_t Slot, int32_t Method, int32_t Code, int32_t AfterCalls) noexcept;
// Stops and disposes a stream still held, restores the built-in
// configuration, clears failures and counters (LiveObjects stays).
int32_t QvTestAsioReset(int32_t Slot) noexcept;
// [any thread]
int32_t QvTestAsioGetStats(int32_t Slot, Quorvel::TQvTestAsioStats* Stats) noexcept;
// Copies the capture of output channel OutputChannel (the driver's channel
// number) from its start: up to MaxBytes bytes of the switches captured so
// far, in the channel's sample type. Answers the bytes copied, or -1 when the
// stream has no buffers for that channel.
int64_t QvTestAsioReadCapture(int32_t Slot, int32_t OutputChannel, void* Dest, int64_t MaxBytes) noexcept;
// Sends asioMessage(Selector, Value, nullptr, nullptr) to the host of the
// current stream. While the driver thread runs, the message is posted to it
// and sent from it as soon as it waits (one at a time: ASE_InvalidMode while
// one is pending); its answer shows in the stats. Otherwise it is sent from
// the calling thread before this returns, the answer in *Answer. ASE_NotPresent
// without buffers.
int32_t QvTestAsioSendMessage(int32_t Slot, int32_t Selector, int32_t Value, int32_t* Answer) noexcept;
// [any thread] Manual pacing: lets the driver thread make Switches more switches.
int32_t QvTestAsioStep(int32_t Slot, int32_t Switches) noexcept;
// A new driver object of the slot holding one reference, without COM or the
// catalogue; nullptr for a bad slot.
Quorvel::IASIO* QvTestAsioCreate(int32_t Slot) noexcept;
// [any thread] Driver objects of all slots alive plus threads of the driver
// not yet finished: 0 means nothing of the driver is left running.
int32_t QvTestAsioBusyCount(void) noexcept;
}

namespace Quorvel {

// The control functions, as a test reaches them.
struct TQvTestAsioApi {
  decltype(&QvTestAsioDefaultConfig) DefaultConfig;
  decltype(&QvTestAsioGetConfig) GetConfig;
  decltype(&QvTestAsioSetConfig) SetConfig;
  decltype(&QvTestAsioSetFailure) SetFailure;
  decltype(&QvTestAsioReset) Reset;
  decltype(&QvTestAsioGetStats) GetStats;
  decltype(&QvTestAsioReadCapture) ReadCapture;
  decltype(&QvTestAsioSendMessage) Message;  // (not "SendMessage": a macro of windows.h)
  decltype(&QvTestAsioStep) Step;
  decltype(&QvTestAsioCreate) Create;
  decltype(&QvTestAsioBusyCount) BusyCount;
  // The module's unload test: on Windows the DLL's DllCanUnloadNow (0: S_OK,
  // 1: S_FALSE); natively 0 exactly when BusyCount answers 0.
  int32_t (*CanUnloadNow)();
};

// [main thread] The control functions of the driver module: natively the
// linked ones; on Windows those of Qvtestasio.dll, loaded (once, never
// unloaded) from the path the build registers with COM. nullptr when the DLL
// cannot be loaded or lacks a function. Library qvtestasio_api.
const TQvTestAsioApi* QvTestAsioApi();

// [main thread] Installs both drivers where hosts look for them: natively the
// in-process catalogue (keys in slot order, "clsid" values, class factories);
// on Windows the DLL's DllRegisterServer (registry, HKLM and HKCR). Remove
// undoes it. Library qvtestasio_api.
bool QvTestAsioRegisterDrivers();
bool QvTestAsioUnregisterDrivers();

}  // namespace Quorvel
