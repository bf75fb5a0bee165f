// The endpoint interfaces and TSRMasterVolume over the system's own Core
// Audio (under Wine: the ALSA null device, a render and a capture endpoint
// whose volume is real and whose channel calls and meter are not).
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "frame/Threading.h"
#include "mastervolume/Srmastervolume.h"

using namespace Quorvel;
using namespace Quorvel::Mmdeviceapi;

namespace Quorvel::Testing {
bool RunningUnderWine();
}

namespace {

using Quorvel::Testing::RunningUnderWine;

struct TEndpoint {
  std::string Id, Name;
};

// The active endpoints as the interfaces list them, checked call by call.
std::vector<TEndpoint> ListEndpoints(IMMDeviceEnumerator& Enumerator) {
  std::vector<TEndpoint> List;
  IMMDeviceCollection* Raw = nullptr;
  EXPECT_EQ(Enumerator.EnumAudioEndpoints(eAll, DeviceStateActive, &Raw), HrOk);
  if (!Raw) return List;
  const auto Collection = TComPtr<IMMDeviceCollection>::Attach(Raw);
  uint32_t Count = 0;
  EXPECT_EQ(Collection->GetCount(&Count), HrOk);
  for (uint32_t I = 0; I < Count; ++I) {
    IMMDevice* Item = nullptr;
    EXPECT_EQ(Collection->Item(I, &Item), HrOk);
    if (!Item) continue;
    const auto Device = TComPtr<IMMDevice>::Attach(Item);
    uint32_t State = 0;
    EXPECT_EQ(Device->GetState(&State), HrOk);
    EXPECT_EQ(State, DeviceStateActive);
    TEndpoint E;
    EXPECT_TRUE(ReadDeviceId(*Device, E.Id));
    EXPECT_TRUE(ReadFriendlyName(*Device, E.Name));
    List.push_back(E);
  }
  return List;
}

TComPtr<IMMDeviceEnumerator> SystemEnumerator() {
  IMMDeviceEnumerator* Raw = nullptr;
  EXPECT_EQ(CreateDeviceEnumerator(&Raw), HrOk);
  return TComPtr<IMMDeviceEnumerator>::Attach(Raw);
}

// The declarations meet the real objects: identifiers, method order and records.
TEST(CoreAudio, TheDeclaredInterfacesReachTheSystemsEndpoints) {
  const auto Enumerator = SystemEnumerator();
  ASSERT_TRUE(Enumerator);
  void* Same = nullptr;
  ASSERT_EQ(Enumerator->QueryInterface(IID_IMMDeviceEnumerator, &Same), HrOk);
  static_cast<IUnknown*>(Same)->Release();
  EXPECT_EQ(Enumerator->QueryInterface(IID_IAudioMeterInformation, &Same), HrNoInterface);

  const std::vector<TEndpoint> Endpoints = ListEndpoints(*Enumerator);
  ASSERT_GE(Endpoints.size(), 2u) << "a render and a capture endpoint";
  for (const TEndpoint& E : Endpoints) {
    EXPECT_FALSE(E.Id.empty());
    EXPECT_FALSE(E.Name.empty());
    // GetDevice, the third method, finds each by its identifier.
    IMMDevice* Raw = nullptr;
    ASSERT_EQ(Enumerator->GetDevice(ToWide(E.Id).c_str(), &Raw), HrOk) << E.Id;
    const auto Device = TComPtr<IMMDevice>::Attach(Raw);
    std::string Id;
    EXPECT_TRUE(ReadDeviceId(*Device, Id));
    EXPECT_EQ(Id, E.Id);
  }

  IMMDevice* RawDefault = nullptr;
  ASSERT_EQ(Enumerator->GetDefaultAudioEndpoint(eRender, eConsole, &RawDefault), HrOk);
  const auto Default = TComPtr<IMMDevice>::Attach(RawDefault);
  std::string DefaultId;
  ASSERT_TRUE(ReadDeviceId(*Default, DefaultId));
  EXPECT_TRUE(std::any_of(Endpoints.begin(), Endpoints.end(), [&](const TEndpoint& E) { return E.Id == DefaultId; }));

  // The endpoint volume: the master level is real.
  void* RawVolume = nullptr;
  ASSERT_EQ(Default->Activate(IID_IAudioEndpointVolume, ClsctxInprocServer, nullptr, &RawVolume), HrOk);
  const auto Volume = TComPtr<IAudioEndpointVolume>::Attach(static_cast<IAudioEndpointVolume*>(RawVolume));
  float Level = -1.0f;
  EXPECT_EQ(Volume->GetMasterVolumeLevelScalar(&Level), HrOk);
  EXPECT_TRUE(Level >= 0.0f && Level <= 1.0f) << Level;
  int32_t Mute = -1;
  EXPECT_EQ(Volume->GetMute(&Mute), HrOk);
  EXPECT_TRUE(Mute == 0 || Mute == 1);
  uint32_t Channels = 0;
  void* Meter = nullptr;
  const THResult MeterResult = Default->Activate(IID_IAudioMeterInformation, ClsctxInprocServer, nullptr, &Meter);
  if (RunningUnderWine()) {
    // Wine's endpoint is at full level, without channel calls and without a meter.
    EXPECT_FLOAT_EQ(Level, 1.0f);
    EXPECT_EQ(Volume->GetChannelCount(&Channels), HrNotImpl);
    EXPECT_EQ(MeterResult, HrNoInterface);
    EXPECT_EQ(Meter, nullptr);
  } else {
    EXPECT_EQ(Volume->GetChannelCount(&Channels), HrOk);
    EXPECT_GE(Channels, 1u);
    ASSERT_EQ(MeterResult, HrOk);
    const auto Peaks = TComPtr<IAudioMeterInformation>::Attach(static_cast<IAudioMeterInformation*>(Meter));
    float Peak = -1.0f;
    EXPECT_EQ(Peaks->GetPeakValue(&Peak), HrOk);
    EXPECT_TRUE(Peak >= 0.0f && Peak <= 1.0f) << Peak;
  }
}

class MasterVolumeOnWine : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!RunningUnderWine()) GTEST_SKIP() << "these tests check what Wine's endpoints give and leave out";
    Threading::SetMainThread();
    Threading::ProcessMainThreadQueue();
    const auto Enumerator = SystemEnumerator();
    ASSERT_TRUE(Enumerator);
    Endpoints = ListEndpoints(*Enumerator);
    ASSERT_GE(Endpoints.size(), 2u);
    IMMDevice* Raw = nullptr;
    ASSERT_EQ(Enumerator->GetDefaultAudioEndpoint(eRender, eConsole, &Raw), HrOk);
    ReadFriendlyName(*TComPtr<IMMDevice>::Attach(Raw), DefaultName);
  }
  void Watch(TSRMasterVolume& Volume, bool Raise = false) {
    Volume.OnError = [this, Raise](TWBComponent*, const std::string& Text, int32_t Code, bool& Handled) {
      Errors.push_back(Text);
      Codes.push_back(Code);
      Handled = !Raise;
    };
    Volume.OnWarning = [this](TWBComponent*, const std::string& Text, int32_t Code) {
      Warnings.push_back(Text);
      Codes.push_back(Code);
    };
  }
  std::vector<TEndpoint> Endpoints;
  std::string DefaultName;
  std::vector<std::string> Errors, Warnings;
  std::vector<int32_t> Codes;
};

TEST_F(MasterVolumeOnWine, ListsTheEndpointsInTheThreeFormsAndFindsTheirIdentifiers) {
  TSRMasterVolume Volume;
  Watch(Volume);
  auto& Device = Volume.GetDevice();
  const auto Names = Device.GetDeviceList();
  const auto Ids = Device.GetDeviceList(TSRMasterVolumeDeviceInfo::mvdiDeviceID);
  const auto Both = Device.GetDeviceList(TSRMasterVolumeDeviceInfo::mvdiBoth);
  ASSERT_EQ(Names.size(), Endpoints.size());
  ASSERT_EQ(Ids.size(), Endpoints.size());
  ASSERT_EQ(Both.size(), Endpoints.size());
  for (size_t I = 0; I < Endpoints.size(); ++I) {
    EXPECT_EQ(Names[I], Endpoints[I].Name);
    EXPECT_EQ(Ids[I], Endpoints[I].Id);
    EXPECT_EQ(Both[I], Endpoints[I].Name + " - " + Endpoints[I].Id);
    EXPECT_EQ(Device.GetIDForName(Names[I]), Ids[I]);
  }
  EXPECT_EQ(Device.GetIDForName("no endpoint has this name"), "");
  EXPECT_TRUE(Errors.empty());
  EXPECT_TRUE(Warnings.empty());
}

TEST_F(MasterVolumeOnWine, OpensTheDefaultInAnyCaseByNameAndByIdentifierAndReadsTheMasterLevel) {
  TSRMasterVolume Volume;
  Watch(Volume);
  Volume.SetNumChannels(1);
  auto& Device = Volume.GetDevice();
  for (const char* Name : {"DEFAULT", "default", "Default"}) {
    Errors.clear();
    Device.SetName(Name);
    ASSERT_TRUE(Volume.GetStarted()) << Name;
    EXPECT_EQ(Device.GetOpenedName(), DefaultName) << Name;
    // Wine refuses the meter: the error path, handled here.
    EXPECT_EQ(Errors, std::vector<std::string>{"IAudioMeterInformation"});
  }
  EXPECT_EQ(Codes.front(), HrNoInterface);
  // The master level reaches the single volume pin; the peak stays at 0.
  EXPECT_DOUBLE_EQ(Volume.GetVolumePin(0)->GetValue(), 1.0);
  EXPECT_DOUBLE_EQ(Volume.GetPeakPin(0)->GetValue(), 0.0);
  EXPECT_DOUBLE_EQ(Volume.GetVolume(), 1.0);

  for (const TEndpoint& E : Endpoints) {
    Device.SetDeviceID("");
    Device.SetName(E.Name);
    EXPECT_EQ(Device.GetOpenedName(), E.Name);
    Device.SetName("not an endpoint's name");
    EXPECT_FALSE(Volume.GetStarted());
    Device.SetDeviceID(E.Id);
    EXPECT_TRUE(Volume.GetStarted()) << E.Id;
    EXPECT_EQ(Device.GetOpenedName(), E.Name);
  }
}

TEST_F(MasterVolumeOnWine, WhatWineLeavesOutIsReportedWithTheCallsNamesAndCodes) {
  {
    TSRMasterVolume Volume;
    Watch(Volume, true);
    try {
      Volume.GetDevice().SetName("DEFAULT");
      FAIL() << "no exception";
    } catch (const EWBException& E) {
      EXPECT_STREQ(E.what(), "IAudioMeterInformation - 2147500034 - 80004002");
    }
    EXPECT_FALSE(Volume.GetStarted());
    EXPECT_FALSE(Volume.GetDevice().IsOpened());
  }
  Errors.clear();
  Codes.clear();
  TSRMasterVolume Volume;
  Watch(Volume);
  Volume.GetDevice().SetName("DEFAULT");
  ASSERT_TRUE(Volume.GetStarted());
  // Per-channel refreshes ask for the channel count, which Wine does not implement.
  EXPECT_EQ(Warnings, std::vector<std::string>{"GetChannelCount"});
  Warnings.clear();
  Codes.clear();
  Volume.SetChannelVolume(0, 0.5);
  Volume.SetVolume(0.5);
  EXPECT_EQ(Warnings, (std::vector<std::string>{"GetChannelCount", "SetMasterVolumeLevelScalar"}));
  EXPECT_EQ(Codes, (std::vector<int32_t>{HrNotImpl, HrNotImpl}));
  EXPECT_DOUBLE_EQ(Volume.GetVolume(), 1.0) << "Wine keeps its level";
}

TEST_F(MasterVolumeOnWine, TheRefreshTimerTicksOnTheMainThread) {
  TSRMasterVolume Volume;
  Watch(Volume);
  Volume.SetRefreshInterval(1);
  Volume.GetDevice().SetName("DEFAULT");
  ASSERT_TRUE(Volume.GetTimerEnabled());
  // Each refresh warns once (GetChannelCount): count ticks by their warnings.
  const auto Main = std::this_thread::get_id();
  bool OnMain = true;
  Volume.OnWarning = [&](TWBComponent*, const std::string& Text, int32_t) {
    Warnings.push_back(Text);
    OnMain = OnMain && std::this_thread::get_id() == Main;
  };
  Warnings.clear();
  for (int I = 0; I < 2000 && Warnings.size() < 3; ++I) Threading::WaitAndProcessMainThreadQueue(50);
  EXPECT_GE(Warnings.size(), 3u);
  EXPECT_TRUE(OnMain);
  Volume.SetEnabled(false);
  const size_t AtStop = Warnings.size();
  Threading::ProcessMainThreadQueue();
  EXPECT_EQ(Warnings.size(), AtStop);
}

}  // namespace
