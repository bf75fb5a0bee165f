// The ASIO driver interface as the host sees it: the driver's COM interface
// IASIO, the records and codes that cross it, the callback record the host
// hands to the driver; the services that find and open installed drivers; and
// one flat function per driver method.
//
// Layouts are those of the published ASIO interface on 64-bit Windows: ASIO's
// `long` is 32 bits (int32_t here, so Linux builds keep the same layout), and
// the records are packed to 4 bytes. Sizes and every field offset are checked
// below at compile time, for Windows x64 and Linux x86_64 alike. On Windows a
// driver is a COM object and the C++ vtable of IASIO is its COM vtable; on
// Linux IASIO is simply the in-process interface drivers implement.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "platform/Guid.h"

namespace Quorvel {

static_assert(sizeof(void*) == 8, "the ASIO records are declared for 64-bit targets");

using TASIOBool = int32_t;
constexpr TASIOBool ASIOFalse = 0;
constexpr TASIOBool ASIOTrue = 1;

using TASIOSampleRate = double;

// ASIO error codes (results of the IASIO methods except init).
using TASIOError = int32_t;
constexpr TASIOError ASE_OK = 0;                  // plain success
constexpr TASIOError ASE_SUCCESS = 0x3f4847a0;    // success of future() and outputReady()
constexpr TASIOError ASE_NotPresent = -1000;      // hardware input or output not present or available
constexpr TASIOError ASE_HWMalfunction = -999;    // hardware malfunctioning
constexpr TASIOError ASE_InvalidParameter = -998; // input parameter invalid
constexpr TASIOError ASE_InvalidMode = -997;      // hardware in a bad mode or used in a bad mode
constexpr TASIOError ASE_SPNotAdvancing = -996;   // hardware not running when the sample position is asked
constexpr TASIOError ASE_NoClock = -995;          // sample clock or rate cannot be determined
constexpr TASIOError ASE_NoMemory = -994;         // not enough memory

// Sample types of a channel's buffers. MSB: big-endian, LSB: little-endian;
// Int32xxxNN: 32-bit containers holding NN significant bits, right aligned.
using TASIOSampleType = int32_t;
constexpr TASIOSampleType ASIOSTInt16MSB = 0;
constexpr TASIOSampleType ASIOSTInt24MSB = 1;   // packed 3 bytes, also used for 20 bits
constexpr TASIOSampleType ASIOSTInt32MSB = 2;
constexpr TASIOSampleType ASIOSTFloat32MSB = 3;
constexpr TASIOSampleType ASIOSTFloat64MSB = 4;
constexpr TASIOSampleType ASIOSTInt32MSB16 = 8;
constexpr TASIOSampleType ASIOSTInt32MSB18 = 9;
constexpr TASIOSampleType ASIOSTInt32MSB20 = 10;
constexpr TASIOSampleType ASIOSTInt32MSB24 = 11;
constexpr TASIOSampleType ASIOSTInt16LSB = 16;
constexpr TASIOSampleType ASIOSTInt24LSB = 17;  // packed 3 bytes, also used for 20 bits
constexpr TASIOSampleType ASIOSTInt32LSB = 18;
constexpr TASIOSampleType ASIOSTFloat32LSB = 19;
constexpr TASIOSampleType ASIOSTFloat64LSB = 20;
constexpr TASIOSampleType ASIOSTInt32LSB16 = 24;
constexpr TASIOSampleType ASIOSTInt32LSB18 = 25;
constexpr TASIOSampleType ASIOSTInt32LSB20 = 26;
constexpr TASIOSampleType ASIOSTInt32LSB24 = 27;
constexpr TASIOSampleType ASIOSTDSDInt8LSB1 = 32;  // 1-bit DSD, 8 samples a byte, first in the low bit
constexpr TASIOSampleType ASIOSTDSDInt8MSB1 = 33;  // 1-bit DSD, 8 samples a byte, first in the high bit
constexpr TASIOSampleType ASIOSTDSDInt8NER8 = 40;  // DSD, one sample a byte
constexpr TASIOSampleType ASIOSTLastEntry = 41;

// asioMessage selectors (driver to host).
constexpr int32_t kAsioSelectorSupported = 1;   // value: selector; 1 if the host supports it
constexpr int32_t kAsioEngineVersion = 2;       // the host's ASIO version (2)
constexpr int32_t kAsioResetRequest = 3;        // driver asks to be stopped, disposed and reopened
constexpr int32_t kAsioBufferSizeChange = 4;    // value: new buffer size
constexpr int32_t kAsioResyncRequest = 5;       // driver lost sync; the host should resynchronise
constexpr int32_t kAsioLatenciesChanged = 6;    // the host should ask for the latencies again
constexpr int32_t kAsioSupportsTimeInfo = 7;    // 1: the host takes bufferSwitchTimeInfo
constexpr int32_t kAsioSupportsTimeCode = 8;    // 1: the host reads the time code of ASIOTime
constexpr int32_t kAsioMMCCommand = 9;
constexpr int32_t kAsioSupportsInputMonitor = 10;
constexpr int32_t kAsioSupportsInputGain = 11;
constexpr int32_t kAsioSupportsInputMeter = 12;
constexpr int32_t kAsioSupportsOutputGain = 13;
constexpr int32_t kAsioSupportsOutputMeter = 14;
constexpr int32_t kAsioOverload = 15;
constexpr int32_t kAsioNumMessageSelectors = 16;

// future() selectors (host to driver); kAsioCanXxx take no parameter.
constexpr int32_t kAsioEnableTimeCodeRead = 1;
constexpr int32_t kAsioDisableTimeCodeRead = 2;
constexpr int32_t kAsioSetInputMonitor = 3;    // TASIOInputMonitor*
constexpr int32_t kAsioTransport = 4;          // TASIOTransportParameters*
constexpr int32_t kAsioSetInputGain = 5;       // TASIOChannelControls*
constexpr int32_t kAsioGetInputMeter = 6;      // TASIOChannelControls*
constexpr int32_t kAsioSetOutputGain = 7;      // TASIOChannelControls*
constexpr int32_t kAsioGetOutputMeter = 8;     // TASIOChannelControls*
constexpr int32_t kAsioCanInputMonitor = 9;
constexpr int32_t kAsioCanTimeInfo = 10;
constexpr int32_t kAsioCanTimeCode = 11;
constexpr int32_t kAsioCanTransport = 12;
constexpr int32_t kAsioCanInputGain = 13;
constexpr int32_t kAsioCanInputMeter = 14;
constexpr int32_t kAsioCanOutputGain = 15;
constexpr int32_t kAsioCanOutputMeter = 16;
constexpr int32_t kAsioOptionalOne = 17;
constexpr int32_t kAsioSetIoFormat = 0x23111961;    // TASIOIoFormat*
constexpr int32_t kAsioGetIoFormat = 0x23111983;    // TASIOIoFormat*
constexpr int32_t kAsioCanDoIoFormat = 0x23112004;  // TASIOIoFormat*
constexpr int32_t kAsioCanReportOverload = 0x24042012;
constexpr int32_t kAsioGetInternalBufferSamples = 0x25042012;  // TASIOInternalBufferInfo*

// Transport commands of TASIOTransportParameters.
constexpr int32_t kTransStart = 1;
constexpr int32_t kTransStop = 2;
constexpr int32_t kTransLocate = 3;
constexpr int32_t kTransPunchIn = 4;
constexpr int32_t kTransPunchOut = 5;
constexpr int32_t kTransArmOn = 6;
constexpr int32_t kTransArmOff = 7;
constexpr int32_t kTransMonitorOn = 8;
constexpr int32_t kTransMonitorOff = 9;
constexpr int32_t kTransArm = 10;
constexpr int32_t kTransMonitor = 11;

// Formats of TASIOIoFormat.
using TASIOIoFormatType = int32_t;
constexpr TASIOIoFormatType kASIOFormatInvalid = -1;
constexpr TASIOIoFormatType kASIOPCMFormat = 0;
constexpr TASIOIoFormatType kASIODSDFormat = 1;

// Flags of TAsioTimeInfo.flags.
constexpr uint32_t kSystemTimeValid = 1u << 0;
constexpr uint32_t kSamplePositionValid = 1u << 1;
constexpr uint32_t kSampleRateValid = 1u << 2;
constexpr uint32_t kSpeedValid = 1u << 3;
constexpr uint32_t kSampleRateChanged = 1u << 4;
constexpr uint32_t kClockSourceChanged = 1u << 5;

// Flags of TASIOTimeCode.flags.
constexpr uint32_t kTcValid = 1u << 0;
constexpr uint32_t kTcRunning = 1u << 1;
constexpr uint32_t kTcReverse = 1u << 2;
constexpr uint32_t kTcOnspeed = 1u << 3;
constexpr uint32_t kTcStill = 1u << 4;
constexpr uint32_t kTcSpeedValid = 1u << 8;

#pragma pack(push, 4)

// A 64-bit count as two 32-bit halves, high half first.
struct TASIOSamples {
  uint32_t hi;
  uint32_t lo;
};
// A system time in nanoseconds, as two 32-bit halves, high half first.
struct TASIOTimeStamp {
  uint32_t hi;
  uint32_t lo;
};

struct TASIOClockSource {
  int32_t index;              // as passed to setClockSource
  int32_t associatedChannel;  // -1: none
  int32_t associatedGroup;    // -1: none
  TASIOBool isCurrentSource;
  char name[32];
};

struct TASIOChannelInfo {
  int32_t channel;            // in: channel index
  TASIOBool isInput;          // in
  TASIOBool isActive;         // out
  int32_t channelGroup;       // out
  TASIOSampleType type;       // out
  char name[32];              // out
};

struct TASIOBufferInfo {
  TASIOBool isInput;          // in
  int32_t channelNum;         // in
  void* buffers[2];           // out: the two halves of the channel's double buffer
};

struct TASIOTimeCode {
  double speed;               // 0: stopped, 1: forward at nominal speed
  TASIOSamples timeCodeSamples;
  uint32_t flags;             // kTc...
  char future[64];
};

struct TAsioTimeInfo {
  double speed;
  TASIOTimeStamp systemTime;
  TASIOSamples samplePosition;
  TASIOSampleRate sampleRate;
  uint32_t flags;             // k...Valid, k...Changed
  char reserved[12];
};

struct TASIOTime {
  int32_t reserved[4];
  TAsioTimeInfo timeInfo;
  TASIOTimeCode timeCode;
};

// Callbacks from the driver: plain functions without a context argument.
using TASIOBufferSwitch = void (*)(int32_t DoubleBufferIndex, TASIOBool DirectProcess);
using TASIOSampleRateDidChange = void (*)(TASIOSampleRate Rate);
using TASIOAsioMessage = int32_t (*)(int32_t Selector, int32_t Value, void* Message, double* Opt);
using TASIOBufferSwitchTimeInfo = TASIOTime* (*)(TASIOTime* Params, int32_t DoubleBufferIndex,
                                                  TASIOBool DirectProcess);

struct TASIOCallbacks {
  TASIOBufferSwitch bufferSwitch;
  TASIOSampleRateDidChange sampleRateDidChange;
  TASIOAsioMessage asioMessage;
  TASIOBufferSwitchTimeInfo bufferSwitchTimeInfo;
};

// Parameters of some future() selectors.
struct TASIOInputMonitor {
  int32_t input;              // -1: all
  int32_t output;
  int32_t gain;               // 0 .. 0x7fffffff
  TASIOBool state;
  int32_t pan;                // 0: left .. 0x7fffffff: right
};

struct TASIOChannelControls {
  int32_t channel;
  TASIOBool isInput;
  int32_t gain;
  int32_t meter;
  char future[32];
};

struct TASIOTransportParameters {
  int32_t command;            // kTrans...
  TASIOSamples samplePosition;
  int32_t track;
  int32_t trackSwitches[16];  // one bit per track
  char future[64];
};

struct TASIOIoFormat {
  TASIOIoFormatType FormatType;
  char future[512 - sizeof(TASIOIoFormatType)];
};

struct TASIOInternalBufferInfo {
  int32_t inputSamples;
  int32_t outputSamples;
};

#pragma pack(pop)

using PASIOClockSource = TASIOClockSource*;
using PASIOChannelInfo = TASIOChannelInfo*;
using PASIOBufferInfo = TASIOBufferInfo*;
using PASIOTime = TASIOTime*;
using PASIOCallbacks = TASIOCallbacks*;

static_assert(sizeof(TASIOSamples) == 8 && offsetof(TASIOSamples, lo) == 4, "ASIOSamples layout");
static_assert(sizeof(TASIOTimeStamp) == 8 && offsetof(TASIOTimeStamp, lo) == 4, "ASIOTimeStamp layout");
static_assert(sizeof(TASIOClockSource) == 48, "ASIOClockSource layout");
static_assert(offsetof(TASIOClockSource, associatedChannel) == 4, "ASIOClockSource layout");
static_assert(offsetof(TASIOClockSource, associatedGroup) == 8, "ASIOClockSource layout");
static_assert(offsetof(TASIOClockSource, isCurrentSource) == 12, "ASIOClockSource layout");
static_assert(offsetof(TASIOClockSource, name) == 16, "ASIOClockSource layout");
static_assert(sizeof(TASIOChannelInfo) == 52, "ASIOChannelInfo layout");
static_assert(offsetof(TASIOChannelInfo, isInput) == 4, "ASIOChannelInfo layout");
static_assert(offsetof(TASIOChannelInfo, isActive) == 8, "ASIOChannelInfo layout");
static_assert(offsetof(TASIOChannelInfo, channelGroup) == 12, "ASIOChannelInfo layout");
static_assert(offsetof(TASIOChannelInfo, type) == 16, "ASIOChannelInfo layout");
static_assert(offsetof(TASIOChannelInfo, name) == 20, "ASIOChannelInfo layout");
static_assert(sizeof(TASIOBufferInfo) == 24, "ASIOBufferInfo layout");
static_assert(offsetof(TASIOBufferInfo, channelNum) == 4, "ASIOBufferInfo layout");
static_assert(offsetof(TASIOBufferInfo, buffers) == 8, "ASIOBufferInfo layout");
static_assert(sizeof(TASIOTimeCode) == 84, "ASIOTimeCode layout");
static_assert(offsetof(TASIOTimeCode, timeCodeSamples) == 8, "ASIOTimeCode layout");
static_assert(offsetof(TASIOTimeCode, flags) == 16, "ASIOTimeCode layout");
static_assert(offsetof(TASIOTimeCode, future) == 20, "ASIOTimeCode layout");
static_assert(sizeof(TAsioTimeInfo) == 48, "AsioTimeInfo layout");
static_assert(offsetof(TAsioTimeInfo, systemTime) == 8, "AsioTimeInfo layout");
static_assert(offsetof(TAsioTimeInfo, samplePosition) == 16, "AsioTimeInfo layout");
static_assert(offsetof(TAsioTimeInfo, sampleRate) == 24, "AsioTimeInfo layout");
static_assert(offsetof(TAsioTimeInfo, flags) == 32, "AsioTimeInfo layout");
static_assert(offsetof(TAsioTimeInfo, reserved) == 36, "AsioTimeInfo layout");
static_assert(sizeof(TASIOTime) == 148, "ASIOTime layout");
static_assert(offsetof(TASIOTime, timeInfo) == 16, "ASIOTime layout");
static_assert(offsetof(TASIOTime, timeCode) == 64, "ASIOTime layout");
static_assert(sizeof(TASIOCallbacks) == 32, "ASIOCallbacks layout");
static_assert(offsetof(TASIOCallbacks, sampleRateDidChange) == 8, "ASIOCallbacks layout");
static_assert(offsetof(TASIOCallbacks, asioMessage) == 16, "ASIOCallbacks layout");
static_assert(offsetof(TASIOCallbacks, bufferSwitchTimeInfo) == 24, "ASIOCallbacks layout");
static_assert(sizeof(TASIOInputMonitor) == 20 && offsetof(TASIOInputMonitor, pan) == 16, "ASIOInputMonitor layout");
static_assert(sizeof(TASIOChannelControls) == 48 && offsetof(TASIOChannelControls, future) == 16,
              "ASIOChannelControls layout");
static_assert(sizeof(TASIOTransportParameters) == 144, "ASIOTransportParameters layout");
static_assert(offsetof(TASIOTransportParameters, samplePosition) == 4, "ASIOTransportParameters layout");
static_assert(offsetof(TASIOTransportParameters, track) == 12, "ASIOTransportParameters layout");
static_assert(offsetof(TASIOTransportParameters, trackSwitches) == 16, "ASIOTransportParameters layout");
static_assert(offsetof(TASIOTransportParameters, future) == 80, "ASIOTransportParameters layout");
static_assert(sizeof(TASIOIoFormat) == 512, "ASIOIoFormat layout");
static_assert(sizeof(TASIOInternalBufferInfo) == 8, "ASIOInternalBufferInfo layout");

// Joins and splits the two halves of TASIOSamples / TASIOTimeStamp.
inline uint64_t ASIOToUInt64(const TASIOSamples& V) { return (uint64_t{V.hi} << 32) | V.lo; }
inline uint64_t ASIOToUInt64(const TASIOTimeStamp& V) { return (uint64_t{V.hi} << 32) | V.lo; }
inline TASIOSamples ASIOSamplesFrom(uint64_t V) {
  return TASIOSamples{static_cast<uint32_t>(V >> 32), static_cast<uint32_t>(V)};
}
inline TASIOTimeStamp ASIOTimeStampFrom(uint64_t V) {
  return TASIOTimeStamp{static_cast<uint32_t>(V >> 32), static_cast<uint32_t>(V)};
}

// The driver object. The first three methods are IUnknown's, the rest follow
// in the published order; the vtable of this class is the driver's COM
// vtable on Windows x64 (one calling convention there). A driver has no
// interface identifier of its own: it is created and queried with its CLSID.
// Objects are reference counted and never deleted through this interface.
class IASIO {
 public:
  // IUnknown. Results are HRESULTs (0: S_OK).
  virtual int32_t QueryInterface(const TGUID& Iid, void** Obj) = 0;
  virtual uint32_t AddRef() = 0;
  virtual uint32_t Release() = 0;

  // Prepares the driver; SysHandle is the application's main window (Windows).
  virtual TASIOBool init(void* SysHandle) = 0;
  virtual void getDriverName(char* Name) = 0;           // at most 32 bytes, zero terminated
  virtual int32_t getDriverVersion() = 0;
  virtual void getErrorMessage(char* Text) = 0;         // at most 124 bytes, zero terminated
  virtual TASIOError start() = 0;
  virtual TASIOError stop() = 0;
  virtual TASIOError getChannels(int32_t* NumInputChannels, int32_t* NumOutputChannels) = 0;
  virtual TASIOError getLatencies(int32_t* InputLatency, int32_t* OutputLatency) = 0;
  virtual TASIOError getBufferSize(int32_t* MinSize, int32_t* MaxSize, int32_t* PreferredSize,
                                   int32_t* Granularity) = 0;
  virtual TASIOError canSampleRate(TASIOSampleRate SampleRate) = 0;
  virtual TASIOError getSampleRate(TASIOSampleRate* SampleRate) = 0;
  virtual TASIOError setSampleRate(TASIOSampleRate SampleRate) = 0;
  virtual TASIOError getClockSources(TASIOClockSource* Clocks, int32_t* NumSources) = 0;
  virtual TASIOError setClockSource(int32_t Reference) = 0;
  virtual TASIOError getSamplePosition(TASIOSamples* SamplePosition, TASIOTimeStamp* TimeStamp) = 0;
  virtual TASIOError getChannelInfo(TASIOChannelInfo* Info) = 0;
  virtual TASIOError createBuffers(TASIOBufferInfo* BufferInfos, int32_t NumChannels, int32_t BufferSize,
                                   TASIOCallbacks* Callbacks) = 0;
  virtual TASIOError disposeBuffers() = 0;
  virtual TASIOError controlPanel() = 0;
  virtual TASIOError future(int32_t Selector, void* Opt) = 0;
  virtual TASIOError outputReady() = 0;

 protected:
  IASIO() = default;
  ~IASIO() = default;
  IASIO(const IASIO&) = default;
  IASIO& operator=(const IASIO&) = default;
};

// ---------------------------------------------------------------------------
// Finding and opening drivers.
//
// Installed drivers are the sub-keys of HKEY_LOCAL_MACHINE "Software\ASIO",
// each naming its COM class in the string value "clsid" (on systems without
// a registry, the in-process catalogue of platform/Asiodrivers.h). Nothing
// here raises: a missing key or value, a text that is no CLSID or a failed
// activation all end in false, the all-zero GUID or a null driver.
//
// COM apartment: ASIO drivers are usually registered with ThreadingModel
// "Apartment" and are then created only on a thread that is a single-threaded
// COM apartment (elsewhere activation fails). These functions do not
// initialise COM themselves, because the apartment kind belongs to the
// thread's owner: the application calls ASIOInitializeComForThisThread (or
// CoInitialize) on its main thread before opening drivers, as every ASIO host
// does, and uses each driver on the thread that opened it.

// A counted reference to a driver object: AddRef when taken, Release when let go.
class IASIORef {
 public:
  IASIORef() noexcept = default;
  IASIORef(std::nullptr_t) noexcept {}
  explicit IASIORef(IASIO* P) noexcept : FPtr(P) { if (FPtr) FPtr->AddRef(); }
  IASIORef(const IASIORef& O) noexcept : IASIORef(O.FPtr) {}
  IASIORef(IASIORef&& O) noexcept : FPtr(O.Detach()) {}
  ~IASIORef() { if (FPtr) FPtr->Release(); }
  IASIORef& operator=(IASIORef O) noexcept { std::swap(FPtr, O.FPtr); return *this; }

  IASIO* Get() const noexcept { return FPtr; }
  IASIO* operator->() const noexcept { return FPtr; }
  IASIO& operator*() const noexcept { return *FPtr; }
  explicit operator bool() const noexcept { return FPtr != nullptr; }
  IASIO* Detach() noexcept { IASIO* P = FPtr; FPtr = nullptr; return P; }
  void Reset() noexcept { IASIORef().Swap(*this); }
  void Swap(IASIORef& O) noexcept { std::swap(FPtr, O.FPtr); }
  friend bool operator==(const IASIORef& A, const IASIORef& B) { return A.FPtr == B.FPtr; }
  friend bool operator!=(const IASIORef& A, const IASIORef& B) { return A.FPtr != B.FPtr; }

 private:
  IASIO* FPtr = nullptr;
};

// [main thread] Makes the calling thread a single-threaded COM apartment if
// it is none yet. False when it is already multithreaded or COM failed. Does
// nothing and answers true where there is no COM.
bool ASIOInitializeComForThisThread();
// [main thread] Appends the installed drivers' key names to List in the order
// the registry enumerates them (no sorting, filtering or duplicate removal).
// False when List is null or the root key cannot be opened; true otherwise,
// also when there is no driver.
bool ASIOGetDriverNames(std::vector<std::string>* List);
// [main thread] The CLSID named by driver key Name, or the all-zero GUID.
TGUID ASIOGetDriverIDByname(const std::string& Name);
// [main thread] Opens the driver of key Name (see ASIOOpenDriver), or null.
IASIORef ASIOOpenDriverByname(const std::string& Name);
// [main thread] Creates the driver object of class Clsid in process, asking it
// for its own CLSID as interface identifier (drivers have no other). Null on
// failure. The result holds the reference; the driver goes when the last
// IASIORef to it goes.
IASIORef ASIOOpenDriver(const TGUID& Clsid);
// True for the all-zero GUID ("no driver identifier").
bool ASIOIsNullID(const TGUID& Id);

// ---------------------------------------------------------------------------
// One function per driver method. Each holds a reference to Driver for the
// duration of the call and answers the method's result unchanged; none
// interprets error codes. [the thread that opened the driver]
// A null Driver answers ASE_NotPresent (ASIOFalse, 0 or an empty text for the
// methods without an error code) without calling anything.

TASIOBool ASIOInit(IASIO* Driver, void* SysHandle);     // SysHandle: the application's main window
std::string ASIOGetDriverName(IASIO* Driver);           // from a 32-byte 8-bit text
int32_t ASIOGetDriverVersion(IASIO* Driver);
std::string ASIOGetErrorMessage(IASIO* Driver);         // from a 124-byte 8-bit text
TASIOError ASIOStart(IASIO* Driver);
TASIOError ASIOStop(IASIO* Driver);
TASIOError ASIOGetChannels(IASIO* Driver, int32_t& NumInputChannels, int32_t& NumOutputChannels);
TASIOError ASIOGetLatencies(IASIO* Driver, int32_t& InputLatency, int32_t& OutputLatency);
TASIOError ASIOGetBufferSize(IASIO* Driver, int32_t& MinSize, int32_t& MaxSize, int32_t& PreferredSize,
                             int32_t& Granularity);
TASIOError ASIOCanSampleRate(IASIO* Driver, TASIOSampleRate SampleRate);
TASIOError ASIOGetSampleRate(IASIO* Driver, TASIOSampleRate& SampleRate);
TASIOError ASIOSetSampleRate(IASIO* Driver, TASIOSampleRate SampleRate);
// Clocks: room for NumSources records; NumSources: in the room, out the count.
TASIOError ASIOGetClockSources(IASIO* Driver, TASIOClockSource* Clocks, int32_t& NumSources);
TASIOError ASIOSetClockSource(IASIO* Driver, int32_t Index);
TASIOError ASIOGetSamplePosition(IASIO* Driver, TASIOSamples& SamplePosition, TASIOTimeStamp& TimeStamp);
TASIOError ASIOGetChannelInfo(IASIO* Driver, TASIOChannelInfo& Info);
// BufferInfos: NumChannels records. Callbacks must stay valid until
// ASIODisposeBuffers (the records of Srasiocallbackentries are).
TASIOError ASIOCreateBuffers(IASIO* Driver, TASIOBufferInfo* BufferInfos, int32_t NumChannels, int32_t BufferSize,
                             TASIOCallbacks* Callbacks);
TASIOError ASIODisposeBuffers(IASIO* Driver);
TASIOError ASIOControlPanel(IASIO* Driver);
TASIOError ASIOFuture(IASIO* Driver, int32_t Selector, void* Parameter);
TASIOError ASIOOutputReady(IASIO* Driver);

}  // namespace Quorvel
