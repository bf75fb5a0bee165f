// The endpoint descriptions, the master-volume component and its refresh.
#include "mastervolume/Srmastervolume.h"

#include <algorithm>
#include <cctype>
#include <cmath>

#include "frame/Wbpersistence.h"
#include "frame/Wbregistration.h"
#include "platform/Kbdevicelistform.h"

namespace Quorvel {

using namespace Mmdeviceapi;
using Threading::TLockGuard;

namespace {

// A call that succeeded without handing out its object failed all the same.
THResult Checked(THResult Result, const void* Object) { return Succeeded(Result) && !Object ? HrPointer : Result; }

std::string UpperCase(std::string Text) {
  for (char& C : Text) C = static_cast<char>(std::toupper(static_cast<unsigned char>(C)));
  return Text;
}

bool IsDefaultName(const std::string& Name) { return UpperCase(Name) == "DEFAULT"; }

}  // namespace

// ---------------------------------------------------------------------------
// TSRMasterVolumeDevice

TSRMasterVolumeDevice::TSRMasterVolumeDevice(TSRMasterVolume* Owner, TChangeProc OnChange)
    : TWBPersistent(Owner), FVolume(Owner), FOnChange(std::move(OnChange)) {}

Threading::ICriticalSection& TSRMasterVolumeDevice::GetLock() const {
  return FVolume ? FVolume->GetLock() : FOwnLock;
}

void TSRMasterVolumeDevice::Changed() {
  if (FOnChange) FOnChange(*this);
}

bool TSRMasterVolumeDevice::CheckError(const std::string& Text, int32_t Result) const {
  return FVolume ? FVolume->CheckError(Text, Result) : Succeeded(Result);
}

std::string TSRMasterVolumeDevice::GetName() const {
  TLockGuard G(GetLock());
  return FName;
}

void TSRMasterVolumeDevice::SetName(const std::string& Value) {
  {
    TLockGuard G(GetLock());
    if (FName == Value) return;
    FName = Value;
  }
  Changed();
}

std::string TSRMasterVolumeDevice::GetDeviceID() const {
  TLockGuard G(GetLock());
  return FDeviceID;
}

void TSRMasterVolumeDevice::SetDeviceID(const std::string& Value) {
  {
    TLockGuard G(GetLock());
    if (FDeviceID == Value) return;
    FDeviceID = Value;
  }
  Changed();
}

bool TSRMasterVolumeDevice::CopyFrom(const TSRMasterVolumeDevice& Source) {
  if (&Source == this) return false;
  const std::string Name = Source.GetName(), Id = Source.GetDeviceID();
  TLockGuard G(GetLock());
  if (FName == Name && FDeviceID == Id) return false;
  FName = Name;
  FDeviceID = Id;
  return true;
}

bool TSRMasterVolumeDevice::Assign(const TWBPersistent& Source) {
  const auto* Other = dynamic_cast<const TSRMasterVolumeDevice*>(&Source);
  if (!Other) return TWBPersistent::Assign(Source);
  if (CopyFrom(*Other)) Changed();
  return true;
}

namespace {

// The active endpoints of both directions; enumeration failures are reported
// through Device's owner and answer false.
bool EnumerateActive(const std::function<bool(const std::string&, int32_t)>& Check, IMMDeviceEnumerator& Enumerator,
                     TComPtr<IMMDeviceCollection>& Collection, uint32_t& Count) {
  IMMDeviceCollection* Raw = nullptr;
  const THResult R = Enumerator.EnumAudioEndpoints(eAll, DeviceStateActive, &Raw);
  if (!Check("EnumAudioEndpoints", Checked(R, Raw))) return false;
  Collection = TComPtr<IMMDeviceCollection>::Attach(Raw);
  Count = 0;
  return Check("GetCount", Collection->GetCount(&Count));
}

// Item Index of the collection, or null when the collection cannot hand it out.
TComPtr<IMMDevice> ItemAt(IMMDeviceCollection& Collection, uint32_t Index) {
  IMMDevice* Raw = nullptr;
  if (Failed(Collection.Item(Index, &Raw)) || !Raw) return nullptr;
  return TComPtr<IMMDevice>::Attach(Raw);
}

}  // namespace

std::vector<std::string> TSRMasterVolumeDevice::GetDeviceList(TSRMasterVolumeDeviceInfo Info) const {
  std::vector<std::string> List;
  const auto Check = [this](const std::string& Text, int32_t R) { return CheckError(Text, R); };
  IMMDeviceEnumerator* RawEnumerator = nullptr;
  const THResult R = CreateDeviceEnumerator(&RawEnumerator);
  if (!Check("Create IMMDeviceEnumerator", Checked(R, RawEnumerator))) return List;
  const auto Enumerator = TComPtr<IMMDeviceEnumerator>::Attach(RawEnumerator);
  TComPtr<IMMDeviceCollection> Collection;
  uint32_t Count = 0;
  if (!EnumerateActive(Check, *Enumerator, Collection, Count)) return List;
  const bool WantName = Info != TSRMasterVolumeDeviceInfo::mvdiDeviceID;
  const bool WantId = Info != TSRMasterVolumeDeviceInfo::mvdiDisplayName;
  for (uint32_t I = 0; I < Count; ++I) {
    const TComPtr<IMMDevice> Device = ItemAt(*Collection, I);
    if (!Device) continue;
    std::string Name, Id;
    if (WantName) ReadFriendlyName(*Device, Name);
    if (WantId) ReadDeviceId(*Device, Id);
    if (Info == TSRMasterVolumeDeviceInfo::mvdiBoth)
      List.push_back(Name + " - " + Id);
    else
      List.push_back(WantName ? Name : Id);
  }
  return List;
}

void TSRMasterVolumeDevice::GetDeviceList(std::vector<std::string>& Strings, TSRMasterVolumeDeviceInfo Info) const {
  Strings = GetDeviceList(Info);
}

std::string TSRMasterVolumeDevice::GetIDForName(const std::string& Name) const {
  const auto Check = [this](const std::string& Text, int32_t R) { return CheckError(Text, R); };
  IMMDeviceEnumerator* RawEnumerator = nullptr;
  const THResult R = CreateDeviceEnumerator(&RawEnumerator);
  if (!Check("Create IMMDeviceEnumerator", Checked(R, RawEnumerator))) return std::string();
  const auto Enumerator = TComPtr<IMMDeviceEnumerator>::Attach(RawEnumerator);
  TComPtr<IMMDeviceCollection> Collection;
  uint32_t Count = 0;
  if (!EnumerateActive(Check, *Enumerator, Collection, Count)) return std::string();
  for (uint32_t I = 0; I < Count; ++I) {
    const TComPtr<IMMDevice> Device = ItemAt(*Collection, I);
    std::string Friendly, Id;
    if (Device && ReadFriendlyName(*Device, Friendly) && Friendly == Name && ReadDeviceId(*Device, Id)) return Id;
  }
  return std::string();
}

bool TSRMasterVolumeDevice::TryOpenFrom(IMMDeviceEnumerator& Enumerator, TComPtr<IMMDevice>& Device) {
  const auto Check = [this](const std::string& Text, int32_t R) { return CheckError(Text, R); };
  const std::string Name = GetName(), WantedId = GetDeviceID();
  if (IsDefaultName(Name)) {
    IMMDevice* Raw = nullptr;
    const THResult R = Enumerator.GetDefaultAudioEndpoint(eRender, eConsole, &Raw);
    if (!Check("GetDefaultAudioEndpoint", Checked(R, Raw))) return false;
    Device = TComPtr<IMMDevice>::Attach(Raw);
    return true;
  }
  TComPtr<IMMDeviceCollection> Collection;
  uint32_t Count = 0;
  if (!EnumerateActive(Check, Enumerator, Collection, Count)) return false;
  for (uint32_t I = 0; I < Count; ++I) {
    TComPtr<IMMDevice> Item = ItemAt(*Collection, I);
    if (!Item) continue;
    std::string Id, Friendly;
    if ((!WantedId.empty() && ReadDeviceId(*Item, Id) && Id == WantedId) ||
        (ReadFriendlyName(*Item, Friendly) && Friendly == Name)) {
      Device = std::move(Item);
      return true;
    }
  }
  return false;
}

// ---------------------------------------------------------------------------
// TSRMasterVolumeDevices

TSRMasterVolumeDevices::TSRMasterVolumeDevices(TSRMasterVolume* Owner, TChangeProc OnChange)
    : TWBPersistent(Owner), FVolume(Owner), FOnChange(std::move(OnChange)) {}

TSRMasterVolumeDevices::~TSRMasterVolumeDevices() = default;

void TSRMasterVolumeDevices::Changed() {
  if (FOnChange) FOnChange(*this);
}

int TSRMasterVolumeDevices::GetCount() const { return static_cast<int>(FItems.size()); }

TSRMasterVolumeDevice& TSRMasterVolumeDevices::GetItem(int Index) const { return *FItems.at(static_cast<size_t>(Index)); }

TSRMasterVolumeDevice& TSRMasterVolumeDevices::Add() {
  FItems.push_back(std::make_unique<TSRMasterVolumeDevice>(FVolume, [this](TSRMasterVolumeDevice&) { Changed(); }));
  TSRMasterVolumeDevice& Item = *FItems.back();
  Changed();
  return Item;
}

void TSRMasterVolumeDevices::Delete(int Index) {
  if (Index < 0 || Index >= GetCount()) return;
  FItems.erase(FItems.begin() + Index);
  Changed();
}

void TSRMasterVolumeDevices::Clear() {
  if (FItems.empty()) return;
  FItems.clear();
  Changed();
}

void TSRMasterVolumeDevices::CopyItems(const TSRMasterVolumeDevices& Source) {
  if (&Source == this) return;
  std::vector<std::unique_ptr<TSRMasterVolumeDevice>> Items;
  for (const auto& Item : Source.FItems) {
    Items.push_back(std::make_unique<TSRMasterVolumeDevice>(FVolume, [this](TSRMasterVolumeDevice&) { Changed(); }));
    Items.back()->FName = Item->GetName();
    Items.back()->FDeviceID = Item->GetDeviceID();
  }
  FItems = std::move(Items);
}

bool TSRMasterVolumeDevices::Assign(const TWBPersistent& Source) {
  const auto* Other = dynamic_cast<const TSRMasterVolumeDevices*>(&Source);
  if (!Other) return TWBPersistent::Assign(Source);
  if (Other == this) return true;
  CopyItems(*Other);
  Changed();
  return true;
}

// ---------------------------------------------------------------------------
// TSRMasterVolumePrimaryDevice

TSRMasterVolumePrimaryDevice::TSRMasterVolumePrimaryDevice(TSRMasterVolume* Owner, TChangeProc OnChange)
    : TSRMasterVolumeDevice(Owner, OnChange),
      FAlternativeDevices(Owner, [this](TSRMasterVolumeDevices&) { Changed(); }) {}

TSRMasterVolumePrimaryDevice::~TSRMasterVolumePrimaryDevice() = default;

bool TSRMasterVolumePrimaryDevice::Assign(const TWBPersistent& Source) {
  const auto* Other = dynamic_cast<const TSRMasterVolumePrimaryDevice*>(&Source);
  if (!Other) return TSRMasterVolumeDevice::Assign(Source);
  if (Other == this) return true;
  // Everything first, then one notification: a restart on a half-copied
  // description would open (or report) what the copy does not describe.
  CopyFrom(*Other);
  FAlternativeDevices.CopyItems(Other->FAlternativeDevices);
  Changed();
  return true;
}

bool TSRMasterVolumePrimaryDevice::TryOpen() {
  TLockGuard G(GetLock());
  Close();
  IMMDeviceEnumerator* RawEnumerator = nullptr;
  const THResult R = CreateDeviceEnumerator(&RawEnumerator);
  if (!CheckError("Create IMMDeviceEnumerator", Checked(R, RawEnumerator))) return false;
  const auto Enumerator = TComPtr<IMMDeviceEnumerator>::Attach(RawEnumerator);
  TComPtr<IMMDevice> Device;
  bool Opened = TryOpenFrom(*Enumerator, Device);
  for (int I = 0; !Opened && I < FAlternativeDevices.GetCount(); ++I)
    Opened = FAlternativeDevices.GetItem(I).TryOpenFrom(*Enumerator, Device);
  if (!Opened) return false;
  FMMDevice = std::move(Device);
  FOpenedName.clear();
  ReadFriendlyName(*FMMDevice, FOpenedName);
  return true;
}

bool TSRMasterVolumePrimaryDevice::IsOpened() const {
  TLockGuard G(GetLock());
  return static_cast<bool>(FMMDevice);
}

void TSRMasterVolumePrimaryDevice::Close() {
  TLockGuard G(GetLock());
  FMMDevice.Reset();
  FOpenedName.clear();
}

bool TSRMasterVolumePrimaryDevice::ShowDeviceSelctDialog() {
  TKBDeviceListForm Form;
  Form.SetCaption("Select Audio Endpoint");
  Form.SetItems(GetDeviceList());
  Form.SetPreselected(GetName());
  if (!Form.Execute()) return false;
  SetName(Form.GetSelected());
  return true;
}

// ---------------------------------------------------------------------------
// TSRMasterVolume

TSRMasterVolume::TSRMasterVolume(TWBComponent* Owner)
    : TWBComponent(Owner),
      FDevice(this, [this](TSRMasterVolumeDevice& Sender) { NotifyProp(Sender); }),
      FVolumePins(*this, GetLock(), TPWPinCategories{TPWPinCategory::pcReal}, true),
      FPeakPins(*this, GetLock(), TPWPinCategories{TPWPinCategory::pcReal}, true) {
  FTimer.SetInterval(FRefreshInterval);
  FTimer.OnTimer = [this](TWBTimer&) { UpdatePins(); };
  FVolumePins.OnCreatePin = [this](TPWPinList&, size_t Index) -> TPWBasicPin* {
    const double Level = FNumChannels == 1 ? GetVolume() : ReadChannelVolume(static_cast<uint32_t>(Index));
    auto* Pin = new TPWRealRangedStatePin(*this, "Volume" + std::to_string(Index + 1), 0.0, 1.0,
                                          std::isfinite(Level) ? Level : 0.0);
    Pin->OnValueChanged = [this](TPWRealPinBase& P, double Value) { VolumePinWritten(P, Value); };
    return Pin;
  };
  FPeakPins.OnCreatePin = [this](TPWPinList&, size_t Index) -> TPWBasicPin* {
    return new TPWRealRangedSourcePin(*this, "Peak" + std::to_string(Index + 1), 0.0, 1.0, 0.0);
  };
  UpdateChannelCount();
}

TSRMasterVolume::~TSRMasterVolume() {
  BeginDestroy();
  IntStop();
  FVolumePins.Clear();
  FPeakPins.Clear();
}

uint32_t TSRMasterVolume::GetNumChannels() const {
  TLockGuard G(GetLock());
  return FNumChannels;
}

void TSRMasterVolume::SetNumChannels(uint32_t Value) {
  TLockGuard G(GetLock());
  if (Value == FNumChannels) return;
  if (Value > MaxNumChannels) {
    Error("NumChannels", HrInvalidArg);
    return;
  }
  FNumChannels = Value;
  UpdateChannelCount();
}

uint32_t TSRMasterVolume::GetRefreshInterval() const {
  TLockGuard G(GetLock());
  return FRefreshInterval;
}

void TSRMasterVolume::SetRefreshInterval(uint32_t Value) {
  TLockGuard G(GetLock());
  FRefreshInterval = Value;
  FTimer.SetInterval(Value);
}

TPWRealRangedStatePin* TSRMasterVolume::GetVolumePin(size_t Index) const {
  return static_cast<TPWRealRangedStatePin*>(FVolumePins.Get(Index));
}

TPWRealRangedSourcePin* TSRMasterVolume::GetPeakPin(size_t Index) const {
  return static_cast<TPWRealRangedSourcePin*>(FPeakPins.Get(Index));
}

bool TSRMasterVolume::GetStarted() const {
  TLockGuard G(GetLock());
  return FRun.Started;
}

double TSRMasterVolume::GetVolume() {
  TLockGuard G(GetLock());
  float Level = 0.0f;
  if (!FRun.EndpointVolume ||
      !CheckWarning("GetMasterVolumeLevelScalar", FRun.EndpointVolume->GetMasterVolumeLevelScalar(&Level)))
    return 0.0;
  return Level;
}

void TSRMasterVolume::SetVolume(double Level) {
  TLockGuard G(GetLock());
  if (!FRun.EndpointVolume) return;
  CheckWarning("SetMasterVolumeLevelScalar",
               FRun.EndpointVolume->SetMasterVolumeLevelScalar(static_cast<float>(Level), nullptr));
}

double TSRMasterVolume::ReadChannelVolume(uint32_t Index) {
  TLockGuard G(GetLock());
  uint32_t Count = 0;
  float Level = 0.0f;
  if (!FRun.EndpointVolume || !CheckWarning("GetChannelCount", FRun.EndpointVolume->GetChannelCount(&Count)) ||
      Index >= Count ||
      !CheckWarning("GetChannelVolumeLevelScalar", FRun.EndpointVolume->GetChannelVolumeLevelScalar(Index, &Level)))
    return 0.0;
  return Level;
}

double TSRMasterVolume::GetChannelVolume(uint32_t Index) { return ReadChannelVolume(Index); }

void TSRMasterVolume::SetChannelVolume(uint32_t Index, double Level) {
  TLockGuard G(GetLock());
  uint32_t Count = 0;
  if (!FRun.EndpointVolume || !CheckWarning("GetChannelCount", FRun.EndpointVolume->GetChannelCount(&Count)) ||
      Index >= Count)
    return;
  CheckWarning("SetChannelVolumeLevelScalar",
               FRun.EndpointVolume->SetChannelVolumeLevelScalar(Index, static_cast<float>(Level), nullptr));
}

void TSRMasterVolume::VolumePinWritten(TPWRealPinBase& Pin, double Level) {
  TLockGuard G(GetLock());
  const int Index = FVolumePins.IndexOf(&Pin);
  if (Index < 0 || !FRun.Started) return;
  if (FNumChannels == 1)
    SetVolume(Level);
  else
    SetChannelVolume(static_cast<uint32_t>(Index), Level);
}

void TSRMasterVolume::UpdateChannelCount() {
  TLockGuard G(GetLock());
  FVolumePins.SetCount(FNumChannels);
  FPeakPins.SetCount(FNumChannels);
}

// The report's text is the failed call's name only, without a description
// of the code: the code itself follows in the message.
bool TSRMasterVolume::CheckError(const std::string& Text, int32_t Result) {
  if (Succeeded(Result)) return true;
  Error(Text, Result);
  return false;
}

bool TSRMasterVolume::CheckWarning(const std::string& Text, int32_t Result) {
  if (Succeeded(Result)) return true;
  Warning(Text, Result);
  return false;
}

namespace {

// A level or peak from the endpoint; one that is not a number is not sent.
template <typename TPin>
void SendLevel(TPin* Pin, float Level) {
  if (Pin && std::isfinite(Level)) Pin->SetValue(Level);
}

// More metering channels than any endpoint has: the count is not believed.
constexpr uint32_t kMaxMeteringChannels = 4096;

}  // namespace

void TSRMasterVolume::UpdatePins() {
  TLockGuard G(GetLock());
  if (!FRun.Started) return;
  IAudioEndpointVolume* Volume = FRun.EndpointVolume.Get();
  IAudioMeterInformation* Meter = FRun.Meter.Get();
  uint32_t ChannelCount = 0, MeterCount = 0;
  // Deliberately asked for on every tick, with one channel too (where they go
  // unused): kept so that an endpoint's refusals are reported the same way
  // in both modes.
  const bool HaveChannels = Volume && CheckWarning("GetChannelCount", Volume->GetChannelCount(&ChannelCount));
  bool HaveMeters = Meter && CheckWarning("GetMeteringChannelCount", Meter->GetMeteringChannelCount(&MeterCount));
  if (HaveMeters && MeterCount > kMaxMeteringChannels) {
    Warning("GetMeteringChannelCount", HrInvalidArg);
    HaveMeters = false;
  }

  if (FNumChannels != 1) {
    if (HaveChannels) {
      const uint32_t N = std::min(FNumChannels, ChannelCount);
      for (uint32_t C = 0; C < N; ++C) {
        float Level = 0.0f;
        if (CheckWarning("GetChannelVolumeLevelScalar", Volume->GetChannelVolumeLevelScalar(C, &Level)))
          SendLevel(GetVolumePin(C), Level);
      }
    }
    if (HaveMeters && MeterCount > 0) {
      if (FRun.Peaks.size() < MeterCount) FRun.Peaks.resize(MeterCount);
      std::fill(FRun.Peaks.begin(), FRun.Peaks.begin() + MeterCount, 0.0f);
      if (CheckWarning("GetChannelsPeakValues", Meter->GetChannelsPeakValues(MeterCount, FRun.Peaks.data()))) {
        const uint32_t N = std::min(FNumChannels, MeterCount);
        for (uint32_t C = 0; C < N; ++C) SendLevel(GetPeakPin(C), FRun.Peaks[C]);
      }
    }
  } else {
    float Level = 0.0f, Peak = 0.0f;
    if (Volume && CheckWarning("GetMasterVolumeLevelScalar", Volume->GetMasterVolumeLevelScalar(&Level)))
      SendLevel(GetVolumePin(0), Level);
    if (Meter && CheckWarning("GetPeakValue", Meter->GetPeakValue(&Peak))) SendLevel(GetPeakPin(0), Peak);
  }
}

bool TSRMasterVolume::TryStart() {
  TLockGuard G(GetLock());
  if (FRun.Started) return true;
  if (!GetEnabled() || IsDesigning() || IsLoading() || IsDestroying()) return false;
  try {
    if (!FDevice.TryOpen()) return false;
    const TComPtr<IMMDevice> Device = FDevice.GetMMDevice();
    void* Volume = nullptr;
    THResult R = Device->Activate(IID_IAudioEndpointVolume, ClsctxInprocServer, nullptr, &Volume);
    if (Succeeded(R) && Volume)
      FRun.EndpointVolume = TComPtr<IAudioEndpointVolume>::Attach(static_cast<IAudioEndpointVolume*>(Volume));
    FRun.Started = true;  // from here on IntStop has something to undo
    CheckError("IAudioEndpointVolume", Checked(R, Volume));
    void* Meter = nullptr;
    R = Device->Activate(IID_IAudioMeterInformation, ClsctxInprocServer, nullptr, &Meter);
    if (Succeeded(R) && Meter)
      FRun.Meter = TComPtr<IAudioMeterInformation>::Attach(static_cast<IAudioMeterInformation*>(Meter));
    CheckError("IAudioMeterInformation", Checked(R, Meter));
    UpdatePins();
    FTimer.SetInterval(FRefreshInterval);
    FTimer.SetEnabled(true);
  } catch (...) {
    IntStop();
    throw;
  }
  return true;
}

void TSRMasterVolume::IntStop() {
  TLockGuard G(GetLock());
  FTimer.SetEnabled(false);
  FRun.EndpointVolume.Reset();
  FRun.Meter.Reset();
  FRun.Started = false;
  FDevice.Close();
}

void TSRMasterVolume::EnabledChanged() {
  TWBComponent::EnabledChanged();
  if (IsDesigning() || IsLoading()) return;
  if (GetEnabled())
    TryStart();
  else
    IntStop();
}

void TSRMasterVolume::NotifyProp(TWBPersistent&) { DoDeviceChanged(); }

void TSRMasterVolume::DoDeviceChanged() {
  if (IsDesigning() || IsLoading() || IsDestroying() || !GetEnabled()) return;
  TLockGuard G(GetLock());
  IntStop();
  TryStart();
}

void TSRMasterVolume::Loaded() {
  if (GetEnabled() && !IsDesigning()) TryStart();
}

// ---------------------------------------------------------------------------
// Published properties and registration

namespace {

const TWBClassInfo& DeviceItemClass() {
  static const TWBClassInfo Info = MakeClassInfo(
      "TSRMasterVolumeDevice", nullptr,
      {Property("Name", &TSRMasterVolumeDevice::GetName, &TSRMasterVolumeDevice::SetName, std::string()),
       Property("DeviceID", &TSRMasterVolumeDevice::GetDeviceID, &TSRMasterVolumeDevice::SetDeviceID, std::string())});
  return Info;
}

const TWBClassInfo& PrimaryDeviceClass() {
  using D = TSRMasterVolumePrimaryDevice;
  static const TWBClassInfo Info = MakeClassInfo(
      "TSRMasterVolumePrimaryDevice", nullptr,
      {Property("Name", &D::GetName, &D::SetName, std::string()),
       Property("DeviceID", &D::GetDeviceID, &D::SetDeviceID, std::string()),
       Collection<D>(
           "AlternativeDevices", DeviceItemClass(),
           [](D& Device) { return static_cast<size_t>(Device.GetAlternativeDevices().GetCount()); },
           [](D& Device, size_t N, std::string& Why) {
             if (N > 1024) {
               Why = std::to_string(N) + " alternative devices are more than a component can try";
               return false;
             }
             auto& Items = Device.GetAlternativeDevices();
             Items.Clear();
             for (size_t I = 0; I < N; ++I) Items.Add();
             return true;
           },
           [](D& Device, size_t I) -> void* { return &Device.GetAlternativeDevices().GetItem(static_cast<int>(I)); })});
  return Info;
}

// NumChannels refuses, with the reason, what the setter would report as an error.
TWBPropertyInfo NumChannelsProperty() {
  TWBPropertyInfo P = Property("NumChannels", &TSRMasterVolume::GetNumChannels, &TSRMasterVolume::SetNumChannels,
                               uint32_t(2));
  P.Set = [](void* O, const TWBValue& V, std::string& Why) {
    int64_t N = 0;
    if (!V.AsInteger(N) || N < 0 || N > TSRMasterVolume::MaxNumChannels) {
      Why = "property NumChannels: " + V.Describe() + " is not a channel count from 0 to " +
            std::to_string(TSRMasterVolume::MaxNumChannels);
      return false;
    }
    static_cast<TSRMasterVolume*>(O)->SetNumChannels(static_cast<uint32_t>(N));
    return true;
  };
  return P;
}

}  // namespace

const TWBClassInfo& TSRMasterVolume::ClassInfo() {
  using C = TSRMasterVolume;
  static const TWBClassInfo Info = MakeClassInfo(
      "TSRMasterVolume", &TWBComponent::ClassInfo(),
      {Group("Device", &C::GetDevice, PrimaryDeviceClass()), NumChannelsProperty(),
       Property("RefreshInterval", &C::GetRefreshInterval, &C::SetRefreshInterval, uint32_t(100))},
      Factory<TSRMasterVolume>());
  return Info;
}

namespace Srmastervolume {

void RegisterPkg() { Design::Components::RegisterComponents({&TSRMasterVolume::ClassInfo()}); }
void UnregisterPkg() { Design::Components::UnregisterComponents({&TSRMasterVolume::ClassInfo()}); }

}  // namespace Srmastervolume

}  // namespace Quorvel
