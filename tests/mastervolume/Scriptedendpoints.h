// Scripted Core Audio endpoints for the master-volume tests: an enumerator,
// collections, devices, property stores, endpoint volumes and meters built
// on the package's own interface declarations, over a script the test
// changes as it goes (levels other programs set, peaks that move, calls that
// fail). Installing a TScriptedSystem makes CreateDeviceEnumerator hand out
// its enumerator; every object counts itself, so a test can check that the
// component let go of everything it took.
#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "mastervolume/Mmdeviceapi.h"

namespace Quorvel::Testing {

using namespace Quorvel::Mmdeviceapi;

struct TScriptedEndpoint {
  std::string Id;
  std::string Name;
  EDataFlow Flow = eRender;
  bool Active = true;
  float Master = 1.0f;
  std::vector<float> Levels{1.0f, 1.0f};  // one per channel: GetChannelCount
  float Peak = 0.0f;
  std::vector<float> Peaks{0.0f, 0.0f};   // one per metering channel
  bool HasMeter = true;
  // Calls of this endpoint's objects that fail, by method name, with the
  // result they answer ("GetChannelsPeakValues", "OpenPropertyStore",
  // "Activate IAudioEndpointVolume", ...).
  std::map<std::string, THResult> Fail;
  // Every call made, in order, by method name.
  std::vector<std::string> Calls;
  std::vector<std::thread::id> CallThreads;
  uint32_t LastPeakRequest = 0;  // the channel count GetChannelsPeakValues was asked for

  THResult Call(const std::string& Method) {
    Calls.push_back(Method);
    CallThreads.push_back(std::this_thread::get_id());
    auto It = Fail.find(Method);
    return It == Fail.end() ? HrOk : It->second;
  }
  size_t CountCalls(const std::string& Method) const {
    size_t N = 0;
    for (const std::string& C : Calls) N += C == Method;
    return N;
  }
};

struct TScript {
  std::vector<std::shared_ptr<TScriptedEndpoint>> Endpoints;
  size_t DefaultEndpoint = 0;
  // Enumerator and collection calls that fail ("Create", "EnumAudioEndpoints",
  // "GetCount", "GetDefaultAudioEndpoint"), and collection items that cannot
  // be handed out (by index).
  std::map<std::string, THResult> Fail;
  std::vector<uint32_t> FailingItems;
  std::vector<std::string> Calls;
  EDataFlow LastDefaultFlow = EDataFlow_enum_count;
  ERole LastDefaultRole = ERole_enum_count;
  std::atomic<int> Live{0};  // scripted objects alive

  THResult Call(const std::string& Method) {
    Calls.push_back(Method);
    auto It = Fail.find(Method);
    return It == Fail.end() ? HrOk : It->second;
  }
  std::shared_ptr<TScriptedEndpoint> Add(const std::string& Id, const std::string& Name, size_t Channels = 2,
                                         EDataFlow Flow = eRender) {
    auto E = std::make_shared<TScriptedEndpoint>();
    E->Id = Id;
    E->Name = Name;
    E->Flow = Flow;
    E->Levels.assign(Channels, 1.0f);
    E->Peaks.assign(Channels, 0.0f);
    Endpoints.push_back(E);
    return E;
  }
};

// The reference counting and QueryInterface of every scripted object.
template <typename I>
class TScriptedObject : public I {
 public:
  TScriptedObject(TScript& Script, const TGUID& Iid) : FScript(Script), FIid(Iid) { ++FScript.Live; }
  virtual ~TScriptedObject() { --FScript.Live; }
  THResult QueryInterface(const TGUID& Iid, void** Object) override {
    if (!Object) return HrPointer;
    *Object = nullptr;
    if (!(Iid == IID_IUnknown || Iid == FIid)) return HrNoInterface;
    AddRef();
    *Object = static_cast<I*>(this);
    return HrOk;
  }
  uint32_t AddRef() override { return ++FRefs; }
  uint32_t Release() override {
    const uint32_t R = --FRefs;
    if (R == 0) delete this;
    return R;
  }

 protected:
  TScript& FScript;

 private:
  const TGUID FIid;
  std::atomic<uint32_t> FRefs{1};
};

class TScriptedStore final : public TScriptedObject<IPropertyStore> {
 public:
  TScriptedStore(TScript& S, std::shared_ptr<TScriptedEndpoint> E)
      : TScriptedObject(S, IID_IPropertyStore), FEndpoint(std::move(E)) {}
  THResult GetCount(uint32_t* Props) override {
    *Props = 1;
    return HrOk;
  }
  THResult GetAt(uint32_t Prop, TPropertyKey* Key) override {
    if (Prop != 0) return HrInvalidArg;
    *Key = PKEY_Device_FriendlyName;
    return HrOk;
  }
  THResult GetValue(const TPropertyKey& Key, TPropVariant* Value) override {
    *Value = TPropVariant{};
    if (const THResult R = FEndpoint->Call("GetValue"); Failed(R)) return R;
    if (!(Key == PKEY_Device_FriendlyName)) return HrOk;  // VT_EMPTY, as for an unknown key
    Value->vt = VtLpwstr;
    Value->pwszVal = TaskMemString(FEndpoint->Name);
    return HrOk;
  }
  THResult SetValue(const TPropertyKey&, const TPropVariant&) override { return HrNotImpl; }
  THResult Commit() override { return HrNotImpl; }

 private:
  std::shared_ptr<TScriptedEndpoint> FEndpoint;
};

class TScriptedVolume final : public TScriptedObject<IAudioEndpointVolume> {
 public:
  TScriptedVolume(TScript& S, std::shared_ptr<TScriptedEndpoint> E)
      : TScriptedObject(S, IID_IAudioEndpointVolume), FEndpoint(std::move(E)) {}
  THResult RegisterControlChangeNotify(IAudioEndpointVolumeCallback*) override { return HrNotImpl; }
  THResult UnregisterControlChangeNotify(IAudioEndpointVolumeCallback*) override { return HrNotImpl; }
  THResult GetChannelCount(uint32_t* Count) override {
    if (const THResult R = FEndpoint->Call("GetChannelCount"); Failed(R)) return R;
    *Count = static_cast<uint32_t>(FEndpoint->Levels.size());
    return HrOk;
  }
  THResult SetMasterVolumeLevel(float, const TGUID*) override { return HrNotImpl; }
  THResult SetMasterVolumeLevelScalar(float Level, const TGUID* Context) override {
    if (const THResult R = FEndpoint->Call("SetMasterVolumeLevelScalar"); Failed(R)) return R;
    if (!(Level >= 0.0f && Level <= 1.0f) || Context) return HrInvalidArg;
    FEndpoint->Master = Level;
    return HrOk;
  }
  THResult GetMasterVolumeLevel(float*) override { return HrNotImpl; }
  THResult GetMasterVolumeLevelScalar(float* Level) override {
    if (const THResult R = FEndpoint->Call("GetMasterVolumeLevelScalar"); Failed(R)) return R;
    *Level = FEndpoint->Master;
    return HrOk;
  }
  THResult SetChannelVolumeLevel(uint32_t, float, const TGUID*) override { return HrNotImpl; }
  THResult SetChannelVolumeLevelScalar(uint32_t Channel, float Level, const TGUID* Context) override {
    if (const THResult R = FEndpoint->Call("SetChannelVolumeLevelScalar"); Failed(R)) return R;
    if (Channel >= FEndpoint->Levels.size() || !(Level >= 0.0f && Level <= 1.0f) || Context) return HrInvalidArg;
    FEndpoint->Levels[Channel] = Level;
    return HrOk;
  }
  THResult GetChannelVolumeLevel(uint32_t, float*) override { return HrNotImpl; }
  THResult GetChannelVolumeLevelScalar(uint32_t Channel, float* Level) override {
    if (const THResult R = FEndpoint->Call("GetChannelVolumeLevelScalar"); Failed(R)) return R;
    if (Channel >= FEndpoint->Levels.size()) return HrInvalidArg;
    *Level = FEndpoint->Levels[Channel];
    return HrOk;
  }
  THResult SetMute(int32_t, const TGUID*) override { return HrNotImpl; }
  THResult GetMute(int32_t*) override { return HrNotImpl; }
  THResult GetVolumeStepInfo(uint32_t*, uint32_t*) override { return HrNotImpl; }
  THResult VolumeStepUp(const TGUID*) override { return HrNotImpl; }
  THResult VolumeStepDown(const TGUID*) override { return HrNotImpl; }
  THResult QueryHardwareSupport(uint32_t*) override { return HrNotImpl; }
  THResult GetVolumeRange(float*, float*, float*) override { return HrNotImpl; }

 private:
  std::shared_ptr<TScriptedEndpoint> FEndpoint;
};

class TScriptedMeter final : public TScriptedObject<IAudioMeterInformation> {
 public:
  TScriptedMeter(TScript& S, std::shared_ptr<TScriptedEndpoint> E)
      : TScriptedObject(S, IID_IAudioMeterInformation), FEndpoint(std::move(E)) {}
  THResult GetPeakValue(float* Peak) override {
    if (const THResult R = FEndpoint->Call("GetPeakValue"); Failed(R)) return R;
    *Peak = FEndpoint->Peak;
    return HrOk;
  }
  THResult GetMeteringChannelCount(uint32_t* Count) override {
    if (const THResult R = FEndpoint->Call("GetMeteringChannelCount"); Failed(R)) return R;
    *Count = static_cast<uint32_t>(FEndpoint->Peaks.size());
    return HrOk;
  }
  THResult GetChannelsPeakValues(uint32_t Count, float* Peaks) override {
    FEndpoint->LastPeakRequest = Count;
    if (const THResult R = FEndpoint->Call("GetChannelsPeakValues"); Failed(R)) return R;
    // As the system does: the count must be the metering channel count.
    if (Count != FEndpoint->Peaks.size() || !Peaks) return HrInvalidArg;
    for (uint32_t C = 0; C < Count; ++C) Peaks[C] = FEndpoint->Peaks[C];
    return HrOk;
  }
  THResult QueryHardwareSupport(uint32_t*) override { return HrNotImpl; }

 private:
  std::shared_ptr<TScriptedEndpoint> FEndpoint;
};

class TScriptedDevice final : public TScriptedObject<IMMDevice> {
 public:
  TScriptedDevice(TScript& S, std::shared_ptr<TScriptedEndpoint> E)
      : TScriptedObject(S, IID_IMMDevice), FEndpoint(std::move(E)) {}
  THResult Activate(const TGUID& Iid, uint32_t ClsCtx, TPropVariant*, void** Interface) override {
    *Interface = nullptr;
    if (ClsCtx != ClsctxInprocServer) return HrInvalidArg;
    if (Iid == IID_IAudioEndpointVolume) {
      if (const THResult R = FEndpoint->Call("Activate IAudioEndpointVolume"); Failed(R)) return R;
      *Interface = static_cast<IAudioEndpointVolume*>(new TScriptedVolume(FScript, FEndpoint));
      return HrOk;
    }
    if (Iid == IID_IAudioMeterInformation) {
      if (const THResult R = FEndpoint->Call("Activate IAudioMeterInformation"); Failed(R)) return R;
      if (!FEndpoint->HasMeter) return HrNoInterface;
      *Interface = static_cast<IAudioMeterInformation*>(new TScriptedMeter(FScript, FEndpoint));
      return HrOk;
    }
    return HrNoInterface;
  }
  THResult OpenPropertyStore(uint32_t Access, IPropertyStore** Store) override {
    *Store = nullptr;
    if (const THResult R = FEndpoint->Call("OpenPropertyStore"); Failed(R)) return R;
    if (Access != StgmRead) return HrInvalidArg;
    *Store = new TScriptedStore(FScript, FEndpoint);
    return HrOk;
  }
  THResult GetId(wchar_t** Id) override {
    *Id = nullptr;
    if (const THResult R = FEndpoint->Call("GetId"); Failed(R)) return R;
    *Id = TaskMemString(FEndpoint->Id);
    return *Id ? HrOk : HrOutOfMemory;
  }
  THResult GetState(uint32_t* State) override {
    *State = FEndpoint->Active ? DeviceStateActive : DeviceStateDisabled;
    return HrOk;
  }
  const std::shared_ptr<TScriptedEndpoint>& Endpoint() const { return FEndpoint; }

 private:
  std::shared_ptr<TScriptedEndpoint> FEndpoint;
};

class TScriptedCollection final : public TScriptedObject<IMMDeviceCollection> {
 public:
  TScriptedCollection(TScript& S, std::vector<std::shared_ptr<TScriptedEndpoint>> Items)
      : TScriptedObject(S, IID_IMMDeviceCollection), FItems(std::move(Items)) {}
  THResult GetCount(uint32_t* Count) override {
    if (const THResult R = FScript.Call("GetCount"); Failed(R)) return R;
    *Count = static_cast<uint32_t>(FItems.size());
    return HrOk;
  }
  THResult Item(uint32_t Index, IMMDevice** Device) override {
    *Device = nullptr;
    FScript.Calls.push_back("Item");
    if (Index >= FItems.size()) return HrInvalidArg;
    for (uint32_t F : FScript.FailingItems)
      if (F == Index) return HrNotFound;
    *Device = new TScriptedDevice(FScript, FItems[Index]);
    return HrOk;
  }

 private:
  std::vector<std::shared_ptr<TScriptedEndpoint>> FItems;
};

class TScriptedEnumerator final : public TScriptedObject<IMMDeviceEnumerator> {
 public:
  explicit TScriptedEnumerator(TScript& S) : TScriptedObject(S, IID_IMMDeviceEnumerator) {}
  THResult EnumAudioEndpoints(EDataFlow Flow, uint32_t StateMask, IMMDeviceCollection** Devices) override {
    *Devices = nullptr;
    if (const THResult R = FScript.Call("EnumAudioEndpoints"); Failed(R)) return R;
    std::vector<std::shared_ptr<TScriptedEndpoint>> Items;
    for (const auto& E : FScript.Endpoints) {
      const uint32_t State = E->Active ? DeviceStateActive : DeviceStateDisabled;
      if ((State & StateMask) && (Flow == eAll || Flow == E->Flow)) Items.push_back(E);
    }
    *Devices = new TScriptedCollection(FScript, std::move(Items));
    return HrOk;
  }
  THResult GetDefaultAudioEndpoint(EDataFlow Flow, ERole Role, IMMDevice** Endpoint) override {
    *Endpoint = nullptr;
    FScript.LastDefaultFlow = Flow;
    FScript.LastDefaultRole = Role;
    if (const THResult R = FScript.Call("GetDefaultAudioEndpoint"); Failed(R)) return R;
    if (FScript.DefaultEndpoint >= FScript.Endpoints.size()) return HrNotFound;
    *Endpoint = new TScriptedDevice(FScript, FScript.Endpoints[FScript.DefaultEndpoint]);
    return HrOk;
  }
  THResult GetDevice(const wchar_t* Id, IMMDevice** Device) override {
    *Device = nullptr;
    const std::string Wanted = FromWide(Id);
    for (const auto& E : FScript.Endpoints)
      if (E->Id == Wanted) {
        *Device = new TScriptedDevice(FScript, E);
        return HrOk;
      }
    return HrNotFound;
  }
  THResult RegisterEndpointNotificationCallback(IMMNotificationClient*) override { return HrNotImpl; }
  THResult UnregisterEndpointNotificationCallback(IMMNotificationClient*) override { return HrNotImpl; }
};

// Installs Script as the system's endpoints for its lifetime.
class TScriptedSystem {
 public:
  explicit TScriptedSystem(TScript& Script) {
    SetDeviceEnumeratorFactory([&Script](IMMDeviceEnumerator** Enumerator) -> THResult {
      if (const THResult R = Script.Call("Create"); Failed(R)) return R;
      *Enumerator = new TScriptedEnumerator(Script);
      return HrOk;
    });
  }
  ~TScriptedSystem() { SetDeviceEnumeratorFactory(nullptr); }
  TScriptedSystem(const TScriptedSystem&) = delete;
  TScriptedSystem& operator=(const TScriptedSystem&) = delete;
};

}  // namespace Quorvel::Testing
