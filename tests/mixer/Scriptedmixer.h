// A scripted winmm mixer for the system mixer's tests: several devices,
// destinations with source lines, controls of every class with values the
// test changes (meters that move, other programs writing), calls that fail
// when asked to, and change notifications posted to the window a device was
// opened with, as a driver posts them. Installing a TScriptedMixer makes the
// mixer seam use it until it goes. The calls may come from any thread; a test
// changes the script itself only while no other thread calls.
#pragma once

#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "platform/Winmmmixer.h"

namespace Quorvel::Testing {

using namespace Quorvel::Winmmmixer;

struct TScriptedControl {
  uint32_t Id = 0;
  uint32_t Type = 0;  // winmm dwControlType
  std::string ShortName;
  std::string Name;
  uint32_t Value = 0;
};

struct TScriptedLine {
  uint32_t ComponentType = 0;
  std::string ShortName;
  std::string Name;
  std::vector<TScriptedControl> Controls;
};

struct TScriptedDestination : TScriptedLine {
  std::vector<TScriptedLine> Sources;
};

struct TScriptedDevice {
  std::string Name;
  uint16_t Mid = 1;
  uint16_t Pid = 0;
  uint32_t DriverVersion = 0;
  std::vector<TScriptedDestination> Destinations;
  // Opens that fail before one succeeds; a device without notification
  // support refuses every open with a callback window.
  int FailingOpens = 0;
  bool WithoutNotifications = false;
  // Destinations and line ids whose queries fail.
  std::set<uint32_t> FailingDestinations;
  std::set<uint32_t> FailingControlLines;
};

class TScriptedMixer final : public IMixerApi {
 public:
  std::vector<TScriptedDevice> Devices;
  // Every call, in order: "Open 1 window", "Open 1 none", "Close", "Get 7", "Set 7 = 3", ...
  std::vector<std::string> Calls;

  TScriptedMixer() { SetMixerApi(this); }
  ~TScriptedMixer() override { SetMixerApi(nullptr); }

  // Line ids: the destination's own is (d + 1) << 16, its source s adds s + 1.
  static uint32_t LineId(uint32_t Destination, int Source = -1) { return ((Destination + 1) << 16) + (Source + 1); }

  // Another program (or the device itself) changes a value: the control
  // takes it and every open handle of the device with a window hears of it.
  void ChangeValue(uint32_t Device, uint32_t ControlId, uint32_t Value) {
    std::lock_guard<std::recursive_mutex> G(FLock);
    if (TScriptedControl* C = FindControl(Device, ControlId)) C->Value = Value;
    Notify(Device, MsgControlChange, ControlId);
  }
  void Notify(uint32_t Device, uint32_t Message, uint32_t Id) {
    std::lock_guard<std::recursive_mutex> G(FLock);
    for (const auto& [Handle, Open] : FOpen)
      if (Open.Device == Device && Open.Window) PostMixerMessage(Open.Window, Message, reinterpret_cast<uintptr_t>(Handle), static_cast<intptr_t>(static_cast<int32_t>(Id)));
  }
  TScriptedControl* FindControl(uint32_t Device, uint32_t ControlId) {
    if (Device >= Devices.size()) return nullptr;
    for (auto& D : Devices[Device].Destinations) {
      for (auto& C : D.Controls)
        if (C.Id == ControlId) return &C;
      for (auto& S : D.Sources)
        for (auto& C : S.Controls)
          if (C.Id == ControlId) return &C;
    }
    return nullptr;
  }
  size_t OpenCount() const {
    std::lock_guard<std::recursive_mutex> G(FLock);
    return FOpen.size();
  }

  uint32_t GetNumDevs() override {
    std::lock_guard<std::recursive_mutex> G(FLock);
    return static_cast<uint32_t>(Devices.size());
  }
  uint32_t GetDevCaps(uintptr_t DeviceId, TMixerCaps& Caps) override {
    std::lock_guard<std::recursive_mutex> G(FLock);
    if (DeviceId >= Devices.size()) {
      // A handle asks for the caps of its device.
      const auto It = FOpen.find(reinterpret_cast<void*>(DeviceId));
      if (It == FOpen.end()) return MmBadDeviceId;
      DeviceId = It->second.Device;
    }
    const TScriptedDevice& D = Devices[DeviceId];
    Caps = TMixerCaps{};
    Caps.wMid = D.Mid;
    Caps.wPid = D.Pid;
    Caps.vDriverVersion = D.DriverVersion;
    SetRecordText(Caps.szPname, 32, D.Name);
    Caps.cDestinations = static_cast<uint32_t>(D.Destinations.size());
    return MmNoError;
  }
  uint32_t Open(void*& Mixer, uint32_t DeviceId, uintptr_t Callback, uintptr_t, uint32_t Flags) override {
    std::lock_guard<std::recursive_mutex> G(FLock);
    const bool WithWindow = (Flags & CallbackWindow) != 0;
    Calls.push_back("Open " + std::to_string(DeviceId) + (WithWindow ? " window" : " none"));
    Mixer = nullptr;
    if (DeviceId >= Devices.size()) return MmBadDeviceId;
    TScriptedDevice& D = Devices[DeviceId];
    if (D.FailingOpens > 0) {
      --D.FailingOpens;
      return MmError;
    }
    if (WithWindow && D.WithoutNotifications) return MmInvalidParam;
    Mixer = reinterpret_cast<void*>(static_cast<uintptr_t>(0x10000 + ++FNextHandle));
    FOpen[Mixer] = {DeviceId, WithWindow ? reinterpret_cast<void*>(Callback) : nullptr};
    return MmNoError;
  }
  uint32_t Close(void* Mixer) override {
    std::lock_guard<std::recursive_mutex> G(FLock);
    Calls.push_back("Close");
    return FOpen.erase(Mixer) ? MmNoError : MmInvalidHandle;
  }
  uint32_t GetLineInfo(void* Mixer, TMixerLine& Line, uint32_t Flags) override {
    std::lock_guard<std::recursive_mutex> G(FLock);
    const TScriptedDevice* D = DeviceOf(Mixer);
    if (!D || Line.cbStruct != sizeof(TMixerLine)) return MmInvalidHandle;
    const uint32_t Dst = Line.dwDestination;
    if (Dst >= D->Destinations.size() || D->FailingDestinations.count(Dst)) return MixInvalidLine;
    const TScriptedDestination& Destination = D->Destinations[Dst];
    if (Flags == LineInfoByDestination) {
      Fill(Line, Destination, Dst, -1);
      Line.cConnections = static_cast<uint32_t>(Destination.Sources.size());
      return MmNoError;
    }
    if (Flags == LineInfoBySource && Line.dwSource < Destination.Sources.size()) {
      Fill(Line, Destination.Sources[Line.dwSource], Dst, static_cast<int>(Line.dwSource));
      return MmNoError;
    }
    return MixInvalidLine;
  }
  uint32_t GetLineControls(void* Mixer, TMixerLineControls& Query, uint32_t Flags) override {
    std::lock_guard<std::recursive_mutex> G(FLock);
    const TScriptedDevice* D = DeviceOf(Mixer);
    if (!D || Query.cbStruct != sizeof(TMixerLineControls) || Query.cbmxctrl != sizeof(TMixerControl) ||
        Flags != LineControlsAll)
      return MmInvalidParam;
    if (D->FailingControlLines.count(Query.dwLineID)) return MmError;
    const TScriptedLine* Line = LineOf(*D, Query.dwLineID);
    if (!Line) return MixInvalidLine;
    if (Query.cControls != Line->Controls.size()) return MmInvalidParam;
    for (size_t I = 0; I < Line->Controls.size(); ++I) {
      TMixerControl& R = Query.pamxctrl[I];
      const TScriptedControl& C = Line->Controls[I];
      R = TMixerControl{};
      R.cbStruct = sizeof(TMixerControl);
      R.dwControlID = C.Id;
      R.dwControlType = C.Type;
      SetRecordText(R.szShortName, 16, C.ShortName);
      SetRecordText(R.szName, 64, C.Name);
    }
    return MmNoError;
  }
  uint32_t GetControlDetails(void* Mixer, TMixerControlDetails& Details, uint32_t Flags) override {
    std::lock_guard<std::recursive_mutex> G(FLock);
    Calls.push_back("Get " + std::to_string(Details.dwControlID));
    TScriptedControl* C = Check(Mixer, Details, Flags);
    if (!C) return MixInvalidControl;
    *static_cast<uint32_t*>(Details.paDetails) = C->Value;
    return MmNoError;
  }
  uint32_t SetControlDetails(void* Mixer, TMixerControlDetails& Details, uint32_t Flags) override {
    std::lock_guard<std::recursive_mutex> G(FLock);
    TScriptedControl* C = Check(Mixer, Details, Flags);
    const uint32_t Value = Details.paDetails ? *static_cast<const uint32_t*>(Details.paDetails) : 0;
    Calls.push_back("Set " + std::to_string(Details.dwControlID) + " = " + std::to_string(static_cast<int32_t>(Value)));
    if (!C) return MixInvalidControl;
    C->Value = Value;
    Notify(FOpen[Mixer].Device, MsgControlChange, C->Id);
    return MmNoError;
  }

 private:
  struct TOpen {
    uint32_t Device;
    void* Window;
  };
  const TScriptedDevice* DeviceOf(void* Mixer) const {
    const auto It = FOpen.find(Mixer);
    return It == FOpen.end() ? nullptr : &Devices[It->second.Device];
  }
  static const TScriptedLine* LineOf(const TScriptedDevice& D, uint32_t LineId) {
    for (uint32_t Dst = 0; Dst < D.Destinations.size(); ++Dst) {
      if (LineId == TScriptedMixer::LineId(Dst)) return &D.Destinations[Dst];
      for (uint32_t S = 0; S < D.Destinations[Dst].Sources.size(); ++S)
        if (LineId == TScriptedMixer::LineId(Dst, static_cast<int>(S))) return &D.Destinations[Dst].Sources[S];
    }
    return nullptr;
  }
  static void Fill(TMixerLine& Line, const TScriptedLine& From, uint32_t Dst, int Source) {
    const uint32_t Size = Line.cbStruct;
    Line = TMixerLine{};
    Line.cbStruct = Size;
    Line.dwDestination = Dst;
    Line.dwSource = Source < 0 ? 0 : static_cast<uint32_t>(Source);
    Line.dwLineID = LineId(Dst, Source);
    Line.dwComponentType = From.ComponentType;
    Line.cChannels = 2;
    Line.cControls = static_cast<uint32_t>(From.Controls.size());
    SetRecordText(Line.szShortName, 16, From.ShortName);
    SetRecordText(Line.szName, 64, From.Name);
  }
  // The one shape of request the model makes: 32 bytes, one channel, a 4-byte value.
  TScriptedControl* Check(void* Mixer, const TMixerControlDetails& Details, uint32_t Flags) {
    const auto It = FOpen.find(Mixer);
    if (It == FOpen.end() || Flags != ObjectHMixer || Details.cbStruct != 32 || Details.cChannels != 1 ||
        Details.cMultipleItems != 0 || Details.cbDetails != 4 || !Details.paDetails)
      return nullptr;
    return FindControl(It->second.Device, Details.dwControlID);
  }
  mutable std::recursive_mutex FLock;
  std::map<void*, TOpen> FOpen;
  uintptr_t FNextHandle = 0;
};

}  // namespace Quorvel::Testing
