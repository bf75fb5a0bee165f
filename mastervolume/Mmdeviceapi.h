// Core Audio's endpoint interfaces as the Windows SDK publishes them: the
// device enumerator, device collections, devices and their property stores,
// the endpoint notification client, the endpoint volume with its callback,
// and the peak meter; their interface identifiers, the enumerator's class
// identifier and the friendly-name property key.
//
// The package declares them itself (the MinGW headers lack some and clash
// with others), without windows.h: HRESULTs are int32_t, UINT and DWORD are
// uint32_t, BOOL is int32_t, wide strings are wchar_t (16 bits on Windows).
// On x64 there is one calling convention, so the C++ vtables below are the
// COM vtables; the method order of every interface is the published one.
// Do not use these declarations in a translation unit that also includes the
// system's mmdeviceapi.h or endpointvolume.h.
//
// Creating the enumerator goes through CreateDeviceEnumerator, which calls
// CoCreateInstance(CLSID_MMDeviceEnumerator, ..., CLSCTX_INPROC_SERVER,
// IID_IMMDeviceEnumerator, ...) unless a test installed a scripted
// enumerator with SetDeviceEnumeratorFactory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>

#include "platform/Guid.h"

namespace Quorvel::Mmdeviceapi {

static_assert(sizeof(void*) == 8, "the Core Audio declarations are made for 64-bit targets");

using THResult = int32_t;

// The results the package looks at or hands out (winerror.h values).
constexpr THResult HrOk = 0;
constexpr THResult HrFalse = 1;
constexpr THResult HrNotImpl = static_cast<THResult>(0x80004001);
constexpr THResult HrNoInterface = static_cast<THResult>(0x80004002);
constexpr THResult HrPointer = static_cast<THResult>(0x80004003);
constexpr THResult HrFail = static_cast<THResult>(0x80004005);
constexpr THResult HrClassNotRegistered = static_cast<THResult>(0x80040154);
constexpr THResult HrOutOfMemory = static_cast<THResult>(0x8007000E);
constexpr THResult HrInvalidArg = static_cast<THResult>(0x80070057);
constexpr THResult HrNotFound = static_cast<THResult>(0x80070490);  // HRESULT_FROM_WIN32(ERROR_NOT_FOUND)
inline bool Succeeded(THResult R) { return R >= 0; }
inline bool Failed(THResult R) { return R < 0; }

// EDataFlow, ERole (enumerations passed as 32-bit integers).
enum EDataFlow : int32_t { eRender = 0, eCapture = 1, eAll = 2, EDataFlow_enum_count = 3 };
enum ERole : int32_t { eConsole = 0, eMultimedia = 1, eCommunications = 2, ERole_enum_count = 3 };

// DEVICE_STATE_XXX, a mask for EnumAudioEndpoints.
constexpr uint32_t DeviceStateActive = 0x1;
constexpr uint32_t DeviceStateDisabled = 0x2;
constexpr uint32_t DeviceStateNotPresent = 0x4;
constexpr uint32_t DeviceStateUnplugged = 0x8;
constexpr uint32_t DeviceStateMaskAll = 0xF;
// STGM_READ for OpenPropertyStore; CLSCTX_INPROC_SERVER for Activate.
constexpr uint32_t StgmRead = 0x0;
constexpr uint32_t ClsctxInprocServer = 0x1;
// VT_EMPTY and VT_LPWSTR of a PROPVARIANT.
constexpr uint16_t VtEmpty = 0;
constexpr uint16_t VtLpwstr = 31;

// PROPERTYKEY.
struct TPropertyKey {
  TGUID fmtid;
  uint32_t pid;
};
static_assert(sizeof(TPropertyKey) == 20 && offsetof(TPropertyKey, pid) == 16, "PROPERTYKEY layout");

// PROPVARIANT: a type tag, three reserved words and a 16-byte union; only
// the wide-string member is read here.
struct TPropVariant {
  uint16_t vt;
  uint16_t wReserved1;
  uint16_t wReserved2;
  uint16_t wReserved3;
  union {
    wchar_t* pwszVal;
    uint64_t uhVal;
    struct {
      void* pvRecord;
      void* pRecInfo;
    } rec;
  };
};
static_assert(sizeof(TPropVariant) == 24 && offsetof(TPropVariant, pwszVal) == 8, "PROPVARIANT layout");

// AUDIO_VOLUME_NOTIFICATION_DATA: afChannelVolumes holds nChannels levels.
struct TAudioVolumeNotificationData {
  TGUID guidEventContext;
  int32_t bMuted;
  float fMasterVolume;
  uint32_t nChannels;
  float afChannelVolumes[1];
};
static_assert(sizeof(TAudioVolumeNotificationData) == 32 && offsetof(TAudioVolumeNotificationData, bMuted) == 16 &&
                  offsetof(TAudioVolumeNotificationData, fMasterVolume) == 20 &&
                  offsetof(TAudioVolumeNotificationData, nChannels) == 24 &&
                  offsetof(TAudioVolumeNotificationData, afChannelVolumes) == 28,
              "AUDIO_VOLUME_NOTIFICATION_DATA layout");

// ---- identifiers -----------------------------------------------------------

constexpr TGUID CLSID_MMDeviceEnumerator{0xBCDE0395, 0xE52F, 0x467C, {0x8E, 0x3D, 0xC4, 0x57, 0x92, 0x91, 0x69, 0x2E}};
constexpr TGUID IID_IUnknown{0x00000000, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};
constexpr TGUID IID_IMMDeviceEnumerator{0xA95664D2, 0x9614, 0x4F35, {0xA7, 0x46, 0xDE, 0x8D, 0xB6, 0x36, 0x17, 0xE6}};
constexpr TGUID IID_IMMDeviceCollection{0x0BD7A1BE, 0x7A1A, 0x44DB, {0x83, 0x97, 0xCC, 0x53, 0x92, 0x38, 0x7B, 0x5E}};
constexpr TGUID IID_IMMDevice{0xD666063F, 0x1587, 0x4E43, {0x81, 0xF1, 0xB9, 0x48, 0xE8, 0x07, 0x36, 0x3F}};
constexpr TGUID IID_IMMNotificationClient{0x7991EEC9, 0x7E89, 0x4D85, {0x83, 0x90, 0x6C, 0x70, 0x3C, 0xEC, 0x60, 0xC0}};
constexpr TGUID IID_IPropertyStore{0x886D8EEB, 0x8CF2, 0x4446, {0x8D, 0x02, 0xCD, 0xBA, 0x1D, 0xBD, 0xCF, 0x99}};
constexpr TGUID IID_IAudioEndpointVolume{0x5CDF2C82, 0x841E, 0x4546, {0x97, 0x22, 0x0C, 0xF7, 0x40, 0x78, 0x22, 0x9A}};
constexpr TGUID IID_IAudioEndpointVolumeCallback{
    0x657804FA, 0xD6AD, 0x4496, {0x8A, 0x60, 0x35, 0x27, 0x52, 0xAF, 0x4F, 0x89}};
constexpr TGUID IID_IAudioMeterInformation{0xC02216F6, 0x8C67, 0x4B5B, {0x9D, 0x00, 0xD0, 0x08, 0xE7, 0x3E, 0x00, 0x64}};
constexpr TPropertyKey PKEY_Device_FriendlyName{
    {0xA45C254E, 0xDF1C, 0x4EFD, {0x80, 0x20, 0x67, 0xD1, 0x46, 0xA8, 0x50, 0xE0}}, 14};

inline bool operator==(const TPropertyKey& A, const TPropertyKey& B) { return A.fmtid == B.fmtid && A.pid == B.pid; }

// ---- interfaces ------------------------------------------------------------

class IUnknown {
 public:
  virtual THResult QueryInterface(const TGUID& Iid, void** Object) = 0;
  virtual uint32_t AddRef() = 0;
  virtual uint32_t Release() = 0;

 protected:
  ~IUnknown() = default;  // objects go with their last Release
};

class IPropertyStore : public IUnknown {
 public:
  virtual THResult GetCount(uint32_t* Props) = 0;
  virtual THResult GetAt(uint32_t Prop, TPropertyKey* Key) = 0;
  virtual THResult GetValue(const TPropertyKey& Key, TPropVariant* Value) = 0;
  virtual THResult SetValue(const TPropertyKey& Key, const TPropVariant& Value) = 0;
  virtual THResult Commit() = 0;

 protected:
  ~IPropertyStore() = default;
};

class IMMDevice : public IUnknown {
 public:
  virtual THResult Activate(const TGUID& Iid, uint32_t ClsCtx, TPropVariant* ActivationParams, void** Interface) = 0;
  virtual THResult OpenPropertyStore(uint32_t StgmAccess, IPropertyStore** Properties) = 0;
  // The identifier is allocated with CoTaskMemAlloc; the caller frees it.
  virtual THResult GetId(wchar_t** Id) = 0;
  virtual THResult GetState(uint32_t* State) = 0;

 protected:
  ~IMMDevice() = default;
};

class IMMDeviceCollection : public IUnknown {
 public:
  virtual THResult GetCount(uint32_t* Devices) = 0;
  virtual THResult Item(uint32_t Device, IMMDevice** Result) = 0;

 protected:
  ~IMMDeviceCollection() = default;
};

class IMMNotificationClient : public IUnknown {
 public:
  virtual THResult OnDeviceStateChanged(const wchar_t* DeviceId, uint32_t NewState) = 0;
  virtual THResult OnDeviceAdded(const wchar_t* DeviceId) = 0;
  virtual THResult OnDeviceRemoved(const wchar_t* DeviceId) = 0;
  virtual THResult OnDefaultDeviceChanged(EDataFlow Flow, ERole Role, const wchar_t* DefaultDeviceId) = 0;
  virtual THResult OnPropertyValueChanged(const wchar_t* DeviceId, const TPropertyKey Key) = 0;

 protected:
  ~IMMNotificationClient() = default;
};

class IMMDeviceEnumerator : public IUnknown {
 public:
  virtual THResult EnumAudioEndpoints(EDataFlow DataFlow, uint32_t StateMask, IMMDeviceCollection** Devices) = 0;
  virtual THResult GetDefaultAudioEndpoint(EDataFlow DataFlow, ERole Role, IMMDevice** Endpoint) = 0;
  virtual THResult GetDevice(const wchar_t* Id, IMMDevice** Device) = 0;
  virtual THResult RegisterEndpointNotificationCallback(IMMNotificationClient* Client) = 0;
  virtual THResult UnregisterEndpointNotificationCallback(IMMNotificationClient* Client) = 0;

 protected:
  ~IMMDeviceEnumerator() = default;
};

class IAudioEndpointVolumeCallback : public IUnknown {
 public:
  virtual THResult OnNotify(TAudioVolumeNotificationData* Notify) = 0;

 protected:
  ~IAudioEndpointVolumeCallback() = default;
};

// EventContext: the caller's GUID handed to callbacks, or nullptr.
class IAudioEndpointVolume : public IUnknown {
 public:
  virtual THResult RegisterControlChangeNotify(IAudioEndpointVolumeCallback* Notify) = 0;
  virtual THResult UnregisterControlChangeNotify(IAudioEndpointVolumeCallback* Notify) = 0;
  virtual THResult GetChannelCount(uint32_t* ChannelCount) = 0;
  virtual THResult SetMasterVolumeLevel(float LevelDB, const TGUID* EventContext) = 0;
  virtual THResult SetMasterVolumeLevelScalar(float Level, const TGUID* EventContext) = 0;
  virtual THResult GetMasterVolumeLevel(float* LevelDB) = 0;
  virtual THResult GetMasterVolumeLevelScalar(float* Level) = 0;
  virtual THResult SetChannelVolumeLevel(uint32_t Channel, float LevelDB, const TGUID* EventContext) = 0;
  virtual THResult SetChannelVolumeLevelScalar(uint32_t Channel, float Level, const TGUID* EventContext) = 0;
  virtual THResult GetChannelVolumeLevel(uint32_t Channel, float* LevelDB) = 0;
  virtual THResult GetChannelVolumeLevelScalar(uint32_t Channel, float* Level) = 0;
  virtual THResult SetMute(int32_t Mute, const TGUID* EventContext) = 0;
  virtual THResult GetMute(int32_t* Mute) = 0;
  virtual THResult GetVolumeStepInfo(uint32_t* Step, uint32_t* StepCount) = 0;
  virtual THResult VolumeStepUp(const TGUID* EventContext) = 0;
  virtual THResult VolumeStepDown(const TGUID* EventContext) = 0;
  virtual THResult QueryHardwareSupport(uint32_t* HardwareSupportMask) = 0;
  virtual THResult GetVolumeRange(float* MinDB, float* MaxDB, float* IncrementDB) = 0;

 protected:
  ~IAudioEndpointVolume() = default;
};

class IAudioMeterInformation : public IUnknown {
 public:
  virtual THResult GetPeakValue(float* Peak) = 0;
  virtual THResult GetMeteringChannelCount(uint32_t* ChannelCount) = 0;
  virtual THResult GetChannelsPeakValues(uint32_t ChannelCount, float* PeakValues) = 0;
  virtual THResult QueryHardwareSupport(uint32_t* HardwareSupportMask) = 0;

 protected:
  ~IAudioMeterInformation() = default;
};

// ---- references and helpers --------------------------------------------------

// A counted reference to a COM interface: Release when let go. Put() hands
// an out-parameter slot to a call that returns a new reference.
template <typename T>
class TComPtr {
 public:
  TComPtr() noexcept = default;
  TComPtr(std::nullptr_t) noexcept {}
  TComPtr(const TComPtr& O) noexcept : FPtr(O.FPtr) { if (FPtr) FPtr->AddRef(); }
  TComPtr(TComPtr&& O) noexcept : FPtr(std::exchange(O.FPtr, nullptr)) {}
  ~TComPtr() { Reset(); }
  TComPtr& operator=(TComPtr O) noexcept {
    std::swap(FPtr, O.FPtr);
    return *this;
  }
  // Takes a reference the caller already holds (no AddRef).
  static TComPtr Attach(T* P) noexcept {
    TComPtr R;
    R.FPtr = P;
    return R;
  }
  T* Get() const noexcept { return FPtr; }
  T* operator->() const noexcept { return FPtr; }
  T& operator*() const noexcept { return *FPtr; }
  explicit operator bool() const noexcept { return FPtr != nullptr; }
  T** Put() noexcept {
    Reset();
    return &FPtr;
  }
  void Reset() noexcept {
    if (T* P = std::exchange(FPtr, nullptr)) P->Release();
  }

 private:
  T* FPtr = nullptr;
};

// [main thread] Makes the calling thread a COM apartment if it is none and
// creates the enumerator (or asks the installed factory). Answers the call's
// result; Enumerator holds a new reference on success.
THResult CreateDeviceEnumerator(IMMDeviceEnumerator** Enumerator);
// What tests install instead of the system's enumerator; an empty function
// restores CoCreateInstance.
using TDeviceEnumeratorFactory = std::function<THResult(IMMDeviceEnumerator** Enumerator)>;
void SetDeviceEnumeratorFactory(TDeviceEnumeratorFactory Factory);

// CoTaskMemAlloc / CoTaskMemFree, and PropVariantClear.
void* TaskMemAlloc(size_t Bytes);
void TaskMemFree(void* Memory);
void ClearPropVariant(TPropVariant& Value);

// UTF-16 (wchar_t on Windows) to UTF-8 and back; a lone surrogate becomes U+FFFD.
std::string FromWide(const wchar_t* Text);
std::wstring ToWide(const std::string& Text);
// A copy of Text in task memory (as GetId hands out identifiers); nullptr when out of memory.
wchar_t* TaskMemString(const std::string& Text);

// The endpoint's identifier (GetId, freed here) and friendly name (its
// property store's PKEY_Device_FriendlyName); false when the call failed.
bool ReadDeviceId(IMMDevice& Device, std::string& Id);
bool ReadFriendlyName(IMMDevice& Device, std::string& Name);

}  // namespace Quorvel::Mmdeviceapi
