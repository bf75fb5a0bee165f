// The Windows multimedia mixer seam: the winmm mixer records with their
// published layouts, the mixer calls behind one small interface, and the
// hidden window that mixer notifications are posted to.
//
// The product always talks to the system's winmm (SystemMixerApi). Tests
// install another implementation with SetMixerApi (a scripted device for
// what a real driver does not show); the code above the seam is the same.
// The header includes no windows.h: handles travel as void*.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace Quorvel::Winmmmixer {

// winmm results, flags and messages used by the mixer (the values of
// MMSYSERR_*, MIXERR_*, CALLBACK_WINDOW, MIXER_OBJECTF_HMIXER, MIXER_GETLINEINFOF_*,
// MIXER_GETLINECONTROLSF_ALL and MM_MIXM_*).
constexpr uint32_t MmNoError = 0;
constexpr uint32_t MmError = 1;
constexpr uint32_t MmBadDeviceId = 2;
constexpr uint32_t MmInvalidHandle = 5;
constexpr uint32_t MmInvalidParam = 11;
constexpr uint32_t MixInvalidLine = 1024;
constexpr uint32_t MixInvalidControl = 1025;
constexpr uint32_t CallbackWindow = 0x00010000;
constexpr uint32_t ObjectHMixer = 0x80000000;
constexpr uint32_t LineInfoByDestination = 0;
constexpr uint32_t LineInfoBySource = 1;
constexpr uint32_t LineControlsAll = 0;
constexpr uint32_t MsgLineChange = 0x3D0;
constexpr uint32_t MsgControlChange = 0x3D1;
constexpr uint32_t ControlClassMask = 0xF0000000;

using TMixerChar = char16_t;  // WCHAR

#pragma pack(push, 1)
// MIXERCAPSW
struct TMixerCaps {
  uint16_t wMid;
  uint16_t wPid;
  uint32_t vDriverVersion;
  TMixerChar szPname[32];
  uint32_t fdwSupport;
  uint32_t cDestinations;
};

// MIXERLINEW
struct TMixerLine {
  uint32_t cbStruct;
  uint32_t dwDestination;
  uint32_t dwSource;
  uint32_t dwLineID;
  uint32_t fdwLine;
  uint64_t dwUser;  // DWORD_PTR
  uint32_t dwComponentType;
  uint32_t cChannels;
  uint32_t cConnections;
  uint32_t cControls;
  TMixerChar szShortName[16];
  TMixerChar szName[64];
  struct {
    uint32_t dwType;
    uint32_t dwDeviceID;
    uint16_t wMid;
    uint16_t wPid;
    uint32_t vDriverVersion;
    TMixerChar szPname[32];
  } Target;
};

// MIXERCONTROLW
struct TMixerControl {
  uint32_t cbStruct;
  uint32_t dwControlID;
  uint32_t dwControlType;
  uint32_t fdwControl;
  uint32_t cMultipleItems;
  TMixerChar szShortName[16];
  TMixerChar szName[64];
  // Bounds: lMinimum/lMaximum (dwMinimum/dwMaximum read the same bytes
  // unsigned); Metrics: cSteps or cbCustomData.
  struct {
    int32_t lMinimum;
    int32_t lMaximum;
    uint32_t dwReserved[4];
  } Bounds;
  struct {
    uint32_t cSteps;
    uint32_t dwReserved[5];
  } Metrics;
};

// MIXERLINECONTROLSW
struct TMixerLineControls {
  uint32_t cbStruct;
  uint32_t dwLineID;
  uint32_t dwControlID;  // or dwControlType, by the query's flags
  uint32_t cControls;
  uint32_t cbmxctrl;
  TMixerControl* pamxctrl;
};

// MIXERCONTROLDETAILS
struct TMixerControlDetails {
  uint32_t cbStruct;
  uint32_t dwControlID;
  uint32_t cChannels;
  union {
    void* hwndOwner;
    uint32_t cMultipleItems;
  };
  uint32_t cbDetails;
  void* paDetails;
};
#pragma pack(pop)

static_assert(sizeof(TMixerCaps) == 80, "MIXERCAPSW");
static_assert(offsetof(TMixerCaps, szPname) == 8 && offsetof(TMixerCaps, cDestinations) == 76, "MIXERCAPSW");
static_assert(sizeof(TMixerLine) == 284, "MIXERLINEW");
static_assert(offsetof(TMixerLine, dwUser) == 20 && offsetof(TMixerLine, dwComponentType) == 28, "MIXERLINEW");
static_assert(offsetof(TMixerLine, szShortName) == 44 && offsetof(TMixerLine, szName) == 76, "MIXERLINEW");
static_assert(offsetof(TMixerLine, Target) == 204, "MIXERLINEW");
static_assert(sizeof(TMixerControl) == 228, "MIXERCONTROLW");
static_assert(offsetof(TMixerControl, szShortName) == 20 && offsetof(TMixerControl, szName) == 52, "MIXERCONTROLW");
static_assert(offsetof(TMixerControl, Bounds) == 180 && offsetof(TMixerControl, Metrics) == 204, "MIXERCONTROLW");
static_assert(sizeof(TMixerLineControls) == 28 && offsetof(TMixerLineControls, pamxctrl) == 20, "MIXERLINECONTROLSW");
static_assert(sizeof(TMixerControlDetails) == 32, "MIXERCONTROLDETAILS");
static_assert(offsetof(TMixerControlDetails, cbDetails) == 20 && offsetof(TMixerControlDetails, paDetails) == 24,
              "MIXERCONTROLDETAILS");

// Fixed-length record text (stops at the first 0) to UTF-8, and back (cut
// to fit, always 0-terminated).
std::string RecordText(const TMixerChar* Text, size_t Capacity);
void SetRecordText(TMixerChar* Text, size_t Capacity, const std::string& Value);

// The winmm mixer functions, one method each, with their results (MMRESULT)
// and flags as winmm defines them. Mixer handles and callback windows are
// opaque. Implementations are called on the main thread, except the two
// value calls, which come from whatever thread reads or writes an item.
class IMixerApi {
 public:
  virtual ~IMixerApi() = default;
  virtual uint32_t GetNumDevs() = 0;
  virtual uint32_t GetDevCaps(uintptr_t DeviceId, TMixerCaps& Caps) = 0;
  virtual uint32_t Open(void*& Mixer, uint32_t DeviceId, uintptr_t Callback, uintptr_t Instance, uint32_t Flags) = 0;
  virtual uint32_t Close(void* Mixer) = 0;
  virtual uint32_t GetLineInfo(void* Mixer, TMixerLine& Line, uint32_t Flags) = 0;
  virtual uint32_t GetLineControls(void* Mixer, TMixerLineControls& Controls, uint32_t Flags) = 0;
  virtual uint32_t GetControlDetails(void* Mixer, TMixerControlDetails& Details, uint32_t Flags) = 0;
  virtual uint32_t SetControlDetails(void* Mixer, TMixerControlDetails& Details, uint32_t Flags) = 0;
};

// The system's winmm (Windows); elsewhere a mixer without devices.
IMixerApi& SystemMixerApi();
// [main thread] The implementation in use: the one set with SetMixerApi, or
// the system's. SetMixerApi(nullptr) restores the system's; the caller keeps
// ownership of what it sets and must outlive its use.
IMixerApi& GetMixerApi();
void SetMixerApi(IMixerApi* Api);

// The hidden window that receives a mixer's notifications on the thread that
// made it, which is also the thread that destroys it. Handler gets each message and answers whether it handled it;
// what it leaves is passed on to the system's default handling.
class TMixerNotifyWindow {
 public:
  using THandler = std::function<bool(uint32_t Message, uintptr_t WParam, intptr_t LParam)>;
  // [main thread] Creates the window; GetHandle is null when that failed.
  explicit TMixerNotifyWindow(THandler Handler);
  ~TMixerNotifyWindow();
  TMixerNotifyWindow(const TMixerNotifyWindow&) = delete;
  TMixerNotifyWindow& operator=(const TMixerNotifyWindow&) = delete;
  // The window as mixerOpen's callback (an HWND on Windows).
  void* GetHandle() const;

  struct TImpl;  // the platform's window state

 private:
  std::unique_ptr<TImpl> FImpl;
};

// [any thread] Posts a message to a notification window, as a driver does;
// false when it could not be posted (no such window, or its thread's queue
// is full: 10000 messages waiting, Windows' default limit).
bool PostMixerMessage(void* Window, uint32_t Message, uintptr_t WParam, intptr_t LParam);
// [the window's thread] Delivers the mixer messages waiting for this
// thread's windows when it is called (those posted meanwhile wait for the
// next call); answers how many were delivered. On Windows the thread's own
// message loop delivers them too; elsewhere this is the only way.
int DeliverPostedMixerMessages();

}  // namespace Quorvel::Winmmmixer
