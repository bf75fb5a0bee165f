// TSRMasterVolume: the volume of one Windows audio endpoint (Core Audio) as
// a component without an audio stream. It polls the endpoint on a
// main-thread timer and sends the levels and peak meters out of its pins;
// a level written to a volume pin sets the endpoint's level.
//
// Threads: everything belongs to the main thread, the timer's ticks
// included. A level that a connected pin writes into a volume pin is passed
// to the endpoint on the writer's thread, under the component's lock (the
// endpoint's objects are free-threaded).
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "frame/Pwpins.h"
#include "frame/Pwvaluepins.h"
#include "frame/Wbcomponent.h"
#include "frame/Wbtimer.h"
#include "mastervolume/Mmdeviceapi.h"

namespace Quorvel {

class TSRMasterVolume;

// Which text a device list carries for each endpoint.
enum class TSRMasterVolumeDeviceInfo { mvdiDisplayName, mvdiDeviceID, mvdiBoth };

// One endpoint description: a friendly name ("DEFAULT" in any letter case
// for the default render endpoint of the console role) and an identifier.
// Failures are reported through the owning component (none: not reported).
class TSRMasterVolumeDevice : public TWBPersistent {
 public:
  // OnChange runs after Name or DeviceID changed, outside any lock.
  using TChangeProc = std::function<void(TSRMasterVolumeDevice& Sender)>;
  explicit TSRMasterVolumeDevice(TSRMasterVolume* Owner, TChangeProc OnChange = nullptr);

  TSRMasterVolume* GetVolumeOwner() const { return FVolume; }
  std::string GetName() const;                     // [main thread]
  void SetName(const std::string& Value);          // [main thread] notifies when it changes
  std::string GetDeviceID() const;                 // [main thread]
  void SetDeviceID(const std::string& Value);      // [main thread] notifies when it changes
  // Copies Name and DeviceID of another description.
  bool Assign(const TWBPersistent& Source) override;

  // [main thread] The active endpoints of both directions, in enumeration
  // order, as friendly names, identifiers or "name - identifier". An endpoint
  // the collection cannot hand out is left out; the enumeration's own
  // failures are reported ("Create IMMDeviceEnumerator", "EnumAudioEndpoints",
  // "GetCount") and end the list.
  std::vector<std::string> GetDeviceList(TSRMasterVolumeDeviceInfo Info) const;
  std::vector<std::string> GetDeviceList() const { return GetDeviceList(TSRMasterVolumeDeviceInfo::mvdiDisplayName); }
  // [main thread] Replaces the content of Strings with that list.
  void GetDeviceList(std::vector<std::string>& Strings, TSRMasterVolumeDeviceInfo Info) const;
  // [main thread] The identifier of the first active endpoint called Name;
  // empty when there is none.
  std::string GetIDForName(const std::string& Name) const;

  // [main thread] Finds this description's endpoint through Enumerator:
  // "DEFAULT" opens the default render endpoint of the console role;
  // otherwise the first active endpoint whose identifier equals DeviceID or
  // whose friendly name equals Name (case-sensitive). False, without a
  // message, when none matches.
  bool TryOpenFrom(Mmdeviceapi::IMMDeviceEnumerator& Enumerator, Mmdeviceapi::TComPtr<Mmdeviceapi::IMMDevice>& Device);

 protected:
  bool CheckError(const std::string& Text, int32_t Result) const;
  Threading::ICriticalSection& GetLock() const;
  void Changed();
  // Takes Name and DeviceID of Source without notifying; true when either changed.
  bool CopyFrom(const TSRMasterVolumeDevice& Source);

 private:
  friend class TSRMasterVolumeDevices;  // copies items without a notification each
  TSRMasterVolume* FVolume;
  TChangeProc FOnChange;
  mutable Threading::TCriticalSection FOwnLock;
  std::string FName;
  std::string FDeviceID;
};

// The alternatives tried, in order, when the primary description opens nothing.
class TSRMasterVolumeDevices : public TWBPersistent {
 public:
  using TChangeProc = std::function<void(TSRMasterVolumeDevices& Sender)>;
  explicit TSRMasterVolumeDevices(TSRMasterVolume* Owner, TChangeProc OnChange = nullptr);
  ~TSRMasterVolumeDevices() override;

  int GetCount() const;                                 // [main thread]
  TSRMasterVolumeDevice& GetItem(int Index) const;      // [main thread] 0 <= Index < GetCount()
  TSRMasterVolumeDevice& Add();                         // [main thread] an empty description at the end
  void Delete(int Index);                               // [main thread] ignored out of range
  void Clear();                                         // [main thread]
  // Replaces the items with copies of another collection's.
  bool Assign(const TWBPersistent& Source) override;

 private:
  friend class TSRMasterVolumePrimaryDevice;  // copies its alternatives with one notification for both
  void Changed();
  // Replaces the items with copies of Source's, without notifying.
  void CopyItems(const TSRMasterVolumeDevices& Source);
  TSRMasterVolume* FVolume;
  TChangeProc FOnChange;
  std::vector<std::unique_ptr<TSRMasterVolumeDevice>> FItems;
};

// The component's Device property: the description, its alternatives, and
// the endpoint that is open.
class TSRMasterVolumePrimaryDevice : public TSRMasterVolumeDevice {
 public:
  TSRMasterVolumePrimaryDevice(TSRMasterVolume* Owner, TChangeProc OnChange);
  ~TSRMasterVolumePrimaryDevice() override;

  TSRMasterVolumeDevices& GetAlternativeDevices() { return FAlternativeDevices; }
  const TSRMasterVolumeDevices& GetAlternativeDevices() const { return FAlternativeDevices; }
  // Copies Name, DeviceID and, from another primary description, the
  // alternatives; the owner hears of it once, after all of it is copied.
  bool Assign(const TWBPersistent& Source) override;

  // [main thread] Creates the enumerator ("Create IMMDeviceEnumerator"), then
  // tries this description and each alternative in order; the first that
  // opens wins, and its friendly name is read. False when none opens.
  bool TryOpen();
  bool IsOpened() const;                                // [main thread]
  void Close();                                         // [main thread] lets the endpoint go
  // [main thread] The open endpoint (null when closed) and its friendly name.
  Mmdeviceapi::TComPtr<Mmdeviceapi::IMMDevice> GetMMDevice() const { return FMMDevice; }
  std::string GetOpenedName() const { return FOpenedName; }

  // [main thread] Lets the user pick an endpoint by friendly name (the
  // current Name shown selected); true and Name set when confirmed, false
  // and nothing changed on cancel.
  bool ShowDeviceSelctDialog();  // Deliberately misspelt: kept as the component's published name.

 private:
  TSRMasterVolumeDevices FAlternativeDevices;
  Mmdeviceapi::TComPtr<Mmdeviceapi::IMMDevice> FMMDevice;
  std::string FOpenedName;
};

// The component. Its life:
//
// Start (TryStart) [main thread, under the component lock]; when Enabled and
// not designing, on enabling, on a change of the device, and when loading ends:
//   1. Device.TryOpen(); false ends here.
//   2. Activate the endpoint's IAudioEndpointVolume, then its
//      IAudioMeterInformation (each an error under that name). A refused
//      interface stays null and its pins are left alone.
//   3. UpdatePins once, then the refresh timer runs.
//   An exception from a report undoes what was done (IntStop) and passes on.
//
// Stop (IntStop) [main thread]: the timer stops, both interfaces go, and
// the device closes.
//
// Refresh (UpdatePins) [main thread, each tick and once at start]:
//   1. GetChannelCount and GetMeteringChannelCount (warnings).
//   2. NumChannels other than 1: each channel below both NumChannels and the
//      endpoint's count sends GetChannelVolumeLevelScalar to its volume pin;
//      then GetChannelsPeakValues for all metering channels, and each
//      channel below both counts sends its peak to its peak pin.
//   3. NumChannels 1: GetMasterVolumeLevelScalar to the volume pin and
//      GetPeakValue to the peak pin.
//   A failed call (a warning under its name) skips its own pins this tick.
class TSRMasterVolume : public TWBComponent {
 public:
  // The class's published properties (frame/Wbpersistence.h): Enabled,
  // Device with its alternatives, NumChannels, RefreshInterval.
  static const TWBClassInfo& ClassInfo();
  const TWBClassInfo& GetClassInfo() const override { return ClassInfo(); }
  explicit TSRMasterVolume(TWBComponent* Owner = nullptr);
  ~TSRMasterVolume() override;

  // More channels than this are refused (each has two pins).
  static constexpr uint32_t MaxNumChannels = 1024;

  // ---- properties [main thread] ----
  TSRMasterVolumePrimaryDevice& GetDevice() { return FDevice; }
  void SetDevice(const TSRMasterVolumePrimaryDevice& Value) { FDevice.Assign(Value); }
  // The number of channel pins of each kind (default 2). 1 carries the
  // master level and the overall peak; others one level and peak per
  // channel. Above MaxNumChannels: an error ("NumChannels", E_INVALIDARG)
  // and nothing changes.
  uint32_t GetNumChannels() const;
  void SetNumChannels(uint32_t Value);
  // Milliseconds between refreshes (default 100; 0 ticks every millisecond).
  uint32_t GetRefreshInterval() const;
  void SetRefreshInterval(uint32_t Value);
  // The endpoint's master level, 0.0 to 1.0 (Get/SetMasterVolumeLevelScalar,
  // warnings); 0.0 while stopped or when the call fails.
  double GetVolume();
  void SetVolume(double Level);
  // One channel's level: GetChannelCount first (a warning); an index at or
  // above the endpoint's count does nothing (and reads 0.0).
  double GetChannelVolume(uint32_t Index);
  void SetChannelVolume(uint32_t Index, double Level);

  // Volume pins ("Volume1", ...; 0.0 to 1.0, written levels go to the
  // endpoint) and peak pins ("Peak1", ...; 0.0 to 1.0, send only).
  TPWPinList& GetVolumePins() { return FVolumePins; }
  TPWPinList& GetPeakPins() { return FPeakPins; }
  TPWRealRangedStatePin* GetVolumePin(size_t Index) const;
  TPWRealRangedSourcePin* GetPeakPin(size_t Index) const;

  // ---- run time [main thread] ----
  bool GetStarted() const;                   // the endpoint is open and polled
  bool GetTimerEnabled() const { return FTimer.GetEnabled(); }
  // The refresh: the timer calls it on every tick.
  void UpdatePins();
  // Makes both pin lists exactly NumChannels long, deleting from the end or
  // appending; a new volume pin starts at the channel's current level (the
  // master level with NumChannels 1), a new peak pin at 0.0.
  void UpdateChannelCount();

  // ---- reports ----
  // A negative Result is reported (Error or Warning with Text and Result);
  // the answer is whether the call succeeded.
  bool CheckError(const std::string& Text, int32_t Result);
  bool CheckWarning(const std::string& Text, int32_t Result);

 protected:
  void EnabledChanged() override;
  void Loaded() override;
  // Device (its name, identifier or an alternative) changed; Sender is Device.
  void NotifyProp(TWBPersistent& Sender);
  // The device description changed: a running component restarts on it.
  void DoDeviceChanged();
  bool TryStart();
  void IntStop();

 private:
  // What runs between TryStart and IntStop.
  struct TRunState {
    bool Started = false;
    Mmdeviceapi::TComPtr<Mmdeviceapi::IAudioEndpointVolume> EndpointVolume;
    Mmdeviceapi::TComPtr<Mmdeviceapi::IAudioMeterInformation> Meter;
    std::vector<float> Peaks;  // GetChannelsPeakValues' buffer, kept between ticks
  };
  void VolumePinWritten(TPWRealPinBase& Pin, double Level);
  double ReadChannelVolume(uint32_t Index);

  TSRMasterVolumePrimaryDevice FDevice;
  uint32_t FNumChannels = 2;
  uint32_t FRefreshInterval = 100;
  TRunState FRun;
  TWBTimer FTimer;
  TPWPinList FVolumePins;
  TPWPinList FPeakPins;
};

// The unit's registration entry: hands TSRMasterVolume to the component catalogue.
namespace Srmastervolume {
void RegisterPkg();
void UnregisterPkg();
}  // namespace Srmastervolume

}  // namespace Quorvel
