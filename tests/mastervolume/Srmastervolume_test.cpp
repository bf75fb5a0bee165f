// TSRMasterVolume over scripted endpoints: what Wine's Core Audio does not
// give (channel levels, meters, several endpoints with their own channel
// counts, calls that fail when asked to). Ticks are driven by calling
// UpdatePins, except where the timer itself is under test.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <thread>
#include <vector>

#include "frame/Threading.h"
#include "frame/Wbdocument.h"
#include "frame/Wbpersistence.h"
#include "mastervolume/Srmastervolume.h"
#include "platform/Kbdevicelistform.h"
#include "tests/mastervolume/Scriptedendpoints.h"

using namespace Quorvel;
using namespace Quorvel::Testing;

namespace {

// Pins of another component, to read what the master volume sends and to
// write levels into its volume pins.
class TPinPeer : public TWBComponent {
 public:
  explicit TPinPeer(size_t Count) {
    for (size_t I = 0; I < Count; ++I) Pins.push_back(std::make_unique<TPWRealStatePin>(*this, "P" + std::to_string(I)));
  }
  ~TPinPeer() override { BeginDestroy(); }
  std::vector<std::unique_ptr<TPWRealStatePin>> Pins;
};

struct TReport {
  bool IsError;
  std::string Text;
  int32_t Code;
};

class MasterVolume : public ::testing::Test {
 protected:
  void SetUp() override {
    Threading::SetMainThread();
    Threading::ProcessMainThreadQueue();
    Speakers = Script.Add("{0.0.0.00000000}.{speakers}", "Speakers", 4);
    Headset = Script.Add("{0.0.0.00000000}.{headset}", "Headset", 2);
    Mic = Script.Add("{0.0.1.00000000}.{mic}", "Microphone", 1, eCapture);
    Script.DefaultEndpoint = 1;
  }
  void TearDown() override { EXPECT_EQ(Script.Live.load(), 0) << "a scripted object was not released"; }

  // Collects reports; errors are handled unless Raise.
  void Watch(TSRMasterVolume& Volume, bool Raise = false) {
    Volume.OnError = [this, Raise](TWBComponent*, const std::string& Text, int32_t Code, bool& Handled) {
      Reports.push_back({true, Text, Code});
      Handled = !Raise;
    };
    Volume.OnWarning = [this](TWBComponent*, const std::string& Text, int32_t Code) {
      Reports.push_back({false, Text, Code});
    };
  }
  std::vector<std::string> Texts(bool Errors) const {
    std::vector<std::string> T;
    for (const TReport& R : Reports)
      if (R.IsError == Errors) T.push_back(R.Text);
    return T;
  }
  static double Value(TPWBasicPin* Pin) { return static_cast<TPWRealPinBase*>(Pin)->GetValue(); }

  TScript Script;
  TScriptedSystem System{Script};
  std::shared_ptr<TScriptedEndpoint> Speakers, Headset, Mic;
  std::vector<TReport> Reports;
};

TEST_F(MasterVolume, ListsActiveEndpointsInEveryFormAndFindsIdentifiersByName) {
  Script.Add("{0.0.0.00000000}.{gone}", "Unplugged", 2)->Active = false;
  Script.Add("{0.0.0.00000000}.{twin}", "Speakers", 2);
  TSRMasterVolume Volume;
  Watch(Volume);
  auto& Device = Volume.GetDevice();
  EXPECT_EQ(Device.GetDeviceList(),
            (std::vector<std::string>{"Speakers", "Headset", "Microphone", "Speakers"}));
  EXPECT_EQ(Device.GetDeviceList(TSRMasterVolumeDeviceInfo::mvdiDeviceID),
            (std::vector<std::string>{Speakers->Id, Headset->Id, Mic->Id, "{0.0.0.00000000}.{twin}"}));
  std::vector<std::string> Both{"stale"};
  Device.GetDeviceList(Both, TSRMasterVolumeDeviceInfo::mvdiBoth);
  ASSERT_EQ(Both.size(), 4u);
  EXPECT_EQ(Both[1], "Headset - " + Headset->Id);
  // The first endpoint of a name wins; names compare exactly.
  EXPECT_EQ(Device.GetIDForName("Speakers"), Speakers->Id);
  EXPECT_EQ(Device.GetIDForName("Microphone"), Mic->Id);
  EXPECT_EQ(Device.GetIDForName("speakers"), "");
  EXPECT_EQ(Device.GetIDForName("Unplugged"), "");

  // An endpoint the collection cannot hand out is left out without a word;
  // one whose name cannot be read keeps its place with an empty name.
  Script.FailingItems = {1};
  Mic->Fail["OpenPropertyStore"] = HrFail;
  EXPECT_EQ(Device.GetDeviceList(), (std::vector<std::string>{"Speakers", "", "Speakers"}));
  EXPECT_TRUE(Reports.empty());

  // The enumeration's own failures are errors under the call's name, and end the list.
  for (const char* Call : {"Create", "EnumAudioEndpoints", "GetCount"}) {
    Script.Fail = {{Call, HrOutOfMemory}};
    Reports.clear();
    EXPECT_TRUE(Device.GetDeviceList(TSRMasterVolumeDeviceInfo::mvdiBoth).empty()) << Call;
    EXPECT_EQ(Device.GetIDForName("Speakers"), "") << Call;
    ASSERT_EQ(Reports.size(), 2u) << Call;
    EXPECT_EQ(Reports[0].Text, std::string(Call) == "Create" ? "Create IMMDeviceEnumerator" : Call);
    EXPECT_EQ(Reports[0].Code, HrOutOfMemory);
  }
}

TEST_F(MasterVolume, OpensTheDefaultByNameByIdentifierOrAnAlternative) {
  TSRMasterVolume Volume;
  Watch(Volume);
  auto& Device = Volume.GetDevice();
  for (const char* Name : {"DEFAULT", "default", "Default", "dEfAuLt"}) {
    Device.SetName(Name);
    EXPECT_TRUE(Volume.GetStarted()) << Name;
    EXPECT_EQ(Device.GetOpenedName(), "Headset") << Name;
    EXPECT_EQ(Script.LastDefaultFlow, eRender);
    EXPECT_EQ(Script.LastDefaultRole, eConsole);
  }
  Device.SetName("Speakers");
  EXPECT_EQ(Device.GetOpenedName(), "Speakers");
  Device.SetName("Microphone");
  EXPECT_EQ(Device.GetOpenedName(), "Microphone") << "both directions are searched";

  // Identifier or name, whichever matches first in enumeration order.
  Device.SetDeviceID(Mic->Id);
  Device.SetName("Headset");
  EXPECT_EQ(Device.GetOpenedName(), "Headset");
  Device.SetName("No such endpoint");
  EXPECT_EQ(Device.GetOpenedName(), "Microphone") << "opened by identifier";

  // Nothing matches: stopped, and nothing said. Names compare exactly.
  Device.SetDeviceID("");
  Device.SetName("speakers");
  EXPECT_FALSE(Volume.GetStarted());
  EXPECT_FALSE(Device.IsOpened());
  EXPECT_FALSE(Volume.GetTimerEnabled());

  // Alternatives are tried in order; the first that opens wins.
  auto& Alternatives = Device.GetAlternativeDevices();
  Alternatives.Add().SetName("Also missing");
  Alternatives.Add().SetDeviceID(Speakers->Id);
  Alternatives.Add().SetName("Default");
  EXPECT_TRUE(Volume.GetStarted());
  EXPECT_EQ(Device.GetOpenedName(), "Speakers");
  Alternatives.Delete(1);
  EXPECT_EQ(Device.GetOpenedName(), "Headset");
  EXPECT_TRUE(Reports.empty());

  // The default endpoint cannot be had: an error under the call's name, and
  // the next alternative is tried.
  Script.Fail["GetDefaultAudioEndpoint"] = HrNotFound;
  auto& Last = Alternatives.Add();
  Reports.clear();
  Last.SetName("Speakers");
  EXPECT_EQ(Device.GetOpenedName(), "Speakers");
  EXPECT_EQ(Texts(true), std::vector<std::string>{"GetDefaultAudioEndpoint"});

  // Another component given this device opens the same way, once, on the
  // whole description.
  TSRMasterVolume Copy;
  Watch(Copy);
  Reports.clear();
  Script.Calls.clear();
  Copy.SetDevice(Device);
  EXPECT_EQ(Copy.GetDevice().GetName(), "speakers");
  ASSERT_EQ(Copy.GetDevice().GetAlternativeDevices().GetCount(), 3);
  EXPECT_EQ(Copy.GetDevice().GetAlternativeDevices().GetItem(1).GetName(), "Default");
  EXPECT_EQ(Copy.GetDevice().GetOpenedName(), "Speakers");
  EXPECT_EQ(std::count(Script.Calls.begin(), Script.Calls.end(), "Create"), 1);
  EXPECT_EQ(Texts(true), std::vector<std::string>{"GetDefaultAudioEndpoint"});

  // An unhandled error while the copy opens leaves the copy whole.
  TSRMasterVolume Source, Raising;
  Watch(Source);
  Source.SetEnabled(false);
  Source.GetDevice().SetName("Default");
  Source.GetDevice().GetAlternativeDevices().Add().SetName("Speakers");
  Watch(Raising, true);
  EXPECT_THROW(Raising.SetDevice(Source.GetDevice()), EWBException);
  EXPECT_EQ(Raising.GetDevice().GetName(), "Default");
  ASSERT_EQ(Raising.GetDevice().GetAlternativeDevices().GetCount(), 1);
  EXPECT_EQ(Raising.GetDevice().GetAlternativeDevices().GetItem(0).GetName(), "Speakers");
  EXPECT_FALSE(Raising.GetStarted());
}

TEST_F(MasterVolume, ReportsFailedCallsByNameAndRaisesUnhandledErrorsWithCodes) {
  {
    TSRMasterVolume Volume;
    Watch(Volume, true);
    Script.Fail["Create"] = HrClassNotRegistered;
    try {
      Volume.GetDevice().SetName("DEFAULT");
      FAIL() << "no exception";
    } catch (const EWBException& E) {
      EXPECT_STREQ(E.what(), "Create IMMDeviceEnumerator - 2147746132 - 80040154");
    }
    EXPECT_FALSE(Volume.GetStarted());
  }
  Script.Fail.clear();
  Reports.clear();
  // The meter refused: reported; handled, the volume is still served.
  Headset->HasMeter = false;
  {
    TSRMasterVolume Volume;
    Watch(Volume);
    Headset->Master = 0.5f;
    Volume.SetNumChannels(1);
    Volume.GetDevice().SetName("DEFAULT");
    ASSERT_EQ(Reports.size(), 1u);
    EXPECT_TRUE(Reports[0].IsError);
    EXPECT_EQ(Reports[0].Text, "IAudioMeterInformation");
    EXPECT_EQ(Reports[0].Code, HrNoInterface);
    EXPECT_TRUE(Volume.GetStarted());
    EXPECT_TRUE(Volume.GetTimerEnabled());
    EXPECT_DOUBLE_EQ(Value(Volume.GetVolumePin(0)), 0.5);
    EXPECT_DOUBLE_EQ(Value(Volume.GetPeakPin(0)), 0.0);
    EXPECT_EQ(Headset->CountCalls("GetPeakValue"), 0u);
  }
  // Unhandled, the exception carries the text and the code, and the start is undone.
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
    EXPECT_FALSE(Volume.GetTimerEnabled());
    EXPECT_EQ(Script.Live.load(), 0) << "the endpoint volume and device were let go";
  }
  // The endpoint volume refused: the meters still run.
  Headset->HasMeter = true;
  Headset->Fail["Activate IAudioEndpointVolume"] = HrNotImpl;
  {
    TSRMasterVolume Volume;
    Reports.clear();
    Watch(Volume);
    Headset->Peaks = {0.25f, 0.75f};
    Volume.GetDevice().SetName("DEFAULT");
    EXPECT_EQ(Texts(true), std::vector<std::string>{"IAudioEndpointVolume"});
    EXPECT_DOUBLE_EQ(Value(Volume.GetPeakPin(1)), 0.75);
    EXPECT_DOUBLE_EQ(Volume.GetVolume(), 0.0);
  }
}

TEST_F(MasterVolume, EachTickSendsLevelsAndPeaksPerChannelAndFollowsOtherPrograms) {
  TSRMasterVolume Volume;
  Watch(Volume);
  TPinPeer Peer(4);
  ASSERT_EQ(Volume.GetVolumePins().Count(), 2u) << "two channels by default";
  ASSERT_TRUE(Volume.GetPeakPin(0)->Connect(*Peer.Pins[0]));
  ASSERT_TRUE(Volume.GetVolumePin(1)->Connect(*Peer.Pins[1]));
  Speakers->Levels = {0.1f, 0.2f, 0.3f, 0.4f};
  Speakers->Peaks = {0.5f, 0.6f, 0.7f, 0.8f};
  Volume.GetDevice().SetName("Speakers");
  ASSERT_TRUE(Volume.GetStarted());
  EXPECT_DOUBLE_EQ(Value(Volume.GetVolumePin(0)), 0.1f);
  EXPECT_DOUBLE_EQ(Value(Volume.GetVolumePin(1)), 0.2f);
  EXPECT_DOUBLE_EQ(Value(Volume.GetPeakPin(1)), 0.6f);
  EXPECT_EQ(Speakers->LastPeakRequest, 4u) << "peaks are asked for every metering channel";
  EXPECT_DOUBLE_EQ(Peer.Pins[0]->GetValue(), 0.5f) << "values leave on the pins";
  EXPECT_DOUBLE_EQ(Peer.Pins[1]->GetValue(), 0.2f);

  // Another program turns the volume down; the meters move: the next tick shows it.
  Speakers->Levels[1] = 0.9f;
  Speakers->Peaks[0] = 0.05f;
  Volume.UpdatePins();
  EXPECT_DOUBLE_EQ(Peer.Pins[1]->GetValue(), 0.9f);
  EXPECT_DOUBLE_EQ(Peer.Pins[0]->GetValue(), 0.05f);

  // A failing call skips its own pins for that tick only, with a warning.
  Speakers->Levels = {0.11f, 0.22f, 0.33f, 0.44f};
  Speakers->Peaks = {0.15f, 0.25f, 0.35f, 0.45f};
  Speakers->Fail["GetChannelsPeakValues"] = HrFail;
  Volume.UpdatePins();
  EXPECT_DOUBLE_EQ(Value(Volume.GetVolumePin(0)), 0.11f);
  EXPECT_DOUBLE_EQ(Value(Volume.GetPeakPin(0)), 0.05f);
  Speakers->Fail = {{"GetChannelVolumeLevelScalar", HrFail}};
  Volume.UpdatePins();
  EXPECT_DOUBLE_EQ(Value(Volume.GetPeakPin(0)), 0.15f);
  Speakers->Levels[1] = 0.66f;
  Speakers->Fail = {{"GetChannelCount", HrFail}, {"GetMeteringChannelCount", HrFail}};
  Speakers->Peaks[1] = 0.99f;
  Volume.UpdatePins();
  EXPECT_DOUBLE_EQ(Value(Volume.GetPeakPin(1)), 0.25f);
  EXPECT_EQ(Texts(false), (std::vector<std::string>{"GetChannelsPeakValues", "GetChannelVolumeLevelScalar",
                                                    "GetChannelVolumeLevelScalar", "GetChannelCount",
                                                    "GetMeteringChannelCount"}));
  EXPECT_TRUE(Volume.GetTimerEnabled()) << "the timer goes on";
  EXPECT_DOUBLE_EQ(Value(Volume.GetVolumePin(1)), 0.22f);
  Speakers->Fail.clear();
  Volume.UpdatePins();
  EXPECT_DOUBLE_EQ(Value(Volume.GetVolumePin(1)), 0.66f);
  EXPECT_DOUBLE_EQ(Value(Volume.GetPeakPin(1)), 0.99f);

  // More pins than the endpoint has channels: those beyond stay as they were.
  Volume.SetNumChannels(6);
  ASSERT_EQ(Volume.GetPeakPins().Count(), 6u);
  EXPECT_DOUBLE_EQ(Value(Volume.GetVolumePin(3)), 0.44f) << "a new pin starts at its channel's level";
  EXPECT_DOUBLE_EQ(Value(Volume.GetVolumePin(4)), 0.0);
  Speakers->Levels = {0.5f, 0.5f, 0.5f, 0.5f};
  Speakers->Peaks = {0.5f, 0.5f, 0.5f, 0.5f};
  const size_t LevelCalls = Speakers->CountCalls("GetChannelVolumeLevelScalar");
  Volume.UpdatePins();
  EXPECT_EQ(Speakers->CountCalls("GetChannelVolumeLevelScalar") - LevelCalls, 4u) << "only the endpoint's channels";
  EXPECT_DOUBLE_EQ(Value(Volume.GetVolumePin(3)), 0.5);
  EXPECT_DOUBLE_EQ(Value(Volume.GetPeakPin(3)), 0.5);
  EXPECT_DOUBLE_EQ(Value(Volume.GetVolumePin(5)), 0.0);
  EXPECT_DOUBLE_EQ(Value(Volume.GetPeakPin(5)), 0.0);
}

TEST_F(MasterVolume, OneChannelCarriesTheMasterLevelAndZeroChannelsHaveNoPins) {
  TSRMasterVolume Volume;
  Watch(Volume);
  TPinPeer Peer(1);
  Headset->Master = 0.4f;
  Headset->Peak = 0.3f;
  Volume.GetDevice().SetName("DEFAULT");
  TPWBasicPin* First = Volume.GetVolumePin(0);
  ASSERT_TRUE(First->Connect(*Peer.Pins[0]));
  Volume.SetNumChannels(1);
  ASSERT_EQ(Volume.GetVolumePins().Count(), 1u);
  EXPECT_EQ(Volume.GetVolumePin(0), First) << "the pins shrink from the end";
  EXPECT_TRUE(First->IsConnected());
  Volume.UpdatePins();
  EXPECT_DOUBLE_EQ(Peer.Pins[0]->GetValue(), 0.4f);
  EXPECT_DOUBLE_EQ(Value(Volume.GetPeakPin(0)), 0.3f);
  EXPECT_EQ(Headset->CountCalls("GetPeakValue"), 1u);

  Volume.SetNumChannels(0);
  EXPECT_EQ(Volume.GetVolumePins().Count(), 0u);
  EXPECT_EQ(Volume.GetPeakPins().Count(), 0u);
  EXPECT_TRUE(Volume.GetPins().empty());
  const size_t Before = Headset->Calls.size();
  Volume.UpdatePins();
  // The counts are still asked for; no level or peak is.
  EXPECT_EQ(std::vector<std::string>(Headset->Calls.begin() + Before, Headset->Calls.end()),
            (std::vector<std::string>{"GetChannelCount", "GetMeteringChannelCount", "GetChannelsPeakValues"}));

  // Too many channels are refused and change nothing.
  Volume.SetNumChannels(TSRMasterVolume::MaxNumChannels + 1);
  EXPECT_EQ(Volume.GetNumChannels(), 0u);
  EXPECT_EQ(Texts(true), std::vector<std::string>{"NumChannels"});
}

TEST_F(MasterVolume, WrittenLevelsSetTheEndpointAndIndicesPastTheChannelsDoNothing) {
  TSRMasterVolume Volume;
  Watch(Volume);
  TPinPeer Peer(2);
  Volume.SetNumChannels(3);
  ASSERT_TRUE(Peer.Pins[0]->Connect(*Volume.GetVolumePin(1)));
  ASSERT_TRUE(Peer.Pins[1]->Connect(*Volume.GetVolumePin(2)));
  Peer.Pins[0]->SetValue(0.3);
  EXPECT_EQ(Headset->CountCalls("SetChannelVolumeLevelScalar"), 0u) << "nothing is set while stopped";

  Volume.GetDevice().SetName("DEFAULT");
  Peer.Pins[0]->SetValue(0.25);
  EXPECT_FLOAT_EQ(Headset->Levels[1], 0.25f);
  EXPECT_DOUBLE_EQ(Value(Volume.GetVolumePin(1)), 0.25);
  // Channel 3 of a two-channel endpoint: asked for the count, then nothing.
  Peer.Pins[1]->SetValue(0.5);
  EXPECT_EQ(Headset->CountCalls("SetChannelVolumeLevelScalar"), 1u);
  Volume.SetChannelVolume(2, 0.1);
  Volume.SetChannelVolume(7, 0.1);
  EXPECT_EQ(Headset->CountCalls("SetChannelVolumeLevelScalar"), 1u);
  EXPECT_DOUBLE_EQ(Volume.GetChannelVolume(5), 0.0);
  Volume.SetChannelVolume(0, 0.75);
  EXPECT_DOUBLE_EQ(Volume.GetChannelVolume(0), 0.75);

  // With one channel the pin is the master level.
  Volume.SetNumChannels(1);
  ASSERT_TRUE(Peer.Pins[0]->Connect(*Volume.GetVolumePin(0)));
  Peer.Pins[0]->SetValue(0.6);
  EXPECT_FLOAT_EQ(Headset->Master, 0.6f);
  Volume.SetVolume(0.2);
  EXPECT_DOUBLE_EQ(Volume.GetVolume(), 0.2f);
  // A level written on another thread reaches the endpoint there, under the component's lock.
  std::thread([&] { Peer.Pins[0]->SetValue(0.35); }).join();
  EXPECT_FLOAT_EQ(Headset->Master, 0.35f);
  EXPECT_NE(Headset->CallThreads.back(), std::this_thread::get_id());
  Volume.SetVolume(0.2);

  // The endpoint's refusals are warnings under the call's name.
  Headset->Fail["SetMasterVolumeLevelScalar"] = HrNotImpl;
  Volume.SetVolume(0.9);
  Headset->Fail = {{"GetChannelCount", HrNotImpl}};
  Volume.SetChannelVolume(0, 0.9);
  EXPECT_EQ(Texts(false), (std::vector<std::string>{"SetMasterVolumeLevelScalar", "GetChannelCount"}));
  EXPECT_FLOAT_EQ(Headset->Master, 0.2f);
  EXPECT_TRUE(Texts(true).empty());
}

TEST_F(MasterVolume, TheTimerTicksOnTheMainThreadUntilStopped) {
  TSRMasterVolume Volume;
  Watch(Volume);
  Volume.SetRefreshInterval(1);
  EXPECT_FALSE(Volume.GetTimerEnabled()) << "disabled until started";
  Volume.GetDevice().SetName("Speakers");
  ASSERT_TRUE(Volume.GetTimerEnabled());
  // Ticks arrive through the main-thread queue; the peak moves meanwhile.
  Speakers->Peaks = {0.0f, 0.0f, 0.0f, 0.0f};
  Volume.UpdatePins();
  Speakers->Peaks[0] = 0.7f;
  for (int I = 0; I < 2000 && Value(Volume.GetPeakPin(0)) != 0.7f; ++I) Threading::WaitAndProcessMainThreadQueue(50);
  EXPECT_FLOAT_EQ(static_cast<float>(Value(Volume.GetPeakPin(0))), 0.7f);
  for (const std::thread::id& T : Speakers->CallThreads) EXPECT_EQ(T, std::this_thread::get_id());

  // Disabled: stopped, and a tick still queued does nothing.
  Volume.SetEnabled(false);
  EXPECT_FALSE(Volume.GetStarted());
  EXPECT_FALSE(Volume.GetTimerEnabled());
  EXPECT_FALSE(Volume.GetDevice().IsOpened());
  const size_t Calls = Speakers->Calls.size();
  Threading::ProcessMainThreadQueue();
  EXPECT_EQ(Speakers->Calls.size(), Calls);
  // A disabled component does not open on a device change; enabling starts it.
  Volume.GetDevice().SetName("Headset");
  EXPECT_FALSE(Volume.GetStarted());
  Volume.SetEnabled(true);
  EXPECT_EQ(Volume.GetDevice().GetOpenedName(), "Headset");
}

TEST_F(MasterVolume, SavesAndLoadsItsSettingsAndStartsWhenLoaded) {
  // Documents make components of the registered classes.
  Srmastervolume::RegisterPkg();
  struct TUnregister {
    ~TUnregister() { Srmastervolume::UnregisterPkg(); }
  } Unregister;
  TWBComponent Form;
  auto* Volume = new TSRMasterVolume(&Form);
  Volume->SetName("Meter");
  Volume->SetEnabled(false);
  Volume->GetDevice().SetName("No such endpoint");
  Volume->GetDevice().SetDeviceID(Mic->Id);
  Volume->GetDevice().GetAlternativeDevices().Add().SetName("DEFAULT");
  Volume->SetNumChannels(1);
  Volume->SetRefreshInterval(250);
  Volume->SetEnabled(true);
  ASSERT_EQ(Volume->GetDevice().GetOpenedName(), "Microphone");
  const std::string Text = WriteDocument(SaveDocument({Volume}));

  TWBComponent Copy;
  std::vector<TWBComponent*> Made;
  TWBDocument Document;
  std::string Error;
  ASSERT_TRUE(ParseDocument(Text, Document, Error)) << Error;
  ASSERT_TRUE(LoadDocument(Document, Copy, Made, Error)) << Error;
  ASSERT_EQ(Made.size(), 1u);
  auto* Loaded = dynamic_cast<TSRMasterVolume*>(Made[0]);
  ASSERT_NE(Loaded, nullptr);
  EXPECT_EQ(WriteDocument(SaveDocument(Made)), Text);
  EXPECT_EQ(Loaded->GetNumChannels(), 1u);
  EXPECT_EQ(Loaded->GetRefreshInterval(), 250u);
  ASSERT_EQ(Loaded->GetDevice().GetAlternativeDevices().GetCount(), 1);
  EXPECT_TRUE(Loaded->GetStarted()) << "an enabled component starts when loading ends";
  EXPECT_EQ(Loaded->GetDevice().GetOpenedName(), "Microphone");

  const std::string Bad = R"({"components": [{"class": "TSRMasterVolume", "name": "M",
                              "properties": {"NumChannels": 100000}}]})";
  ASSERT_TRUE(ParseDocument(Bad, Document, Error));
  Made.clear();
  EXPECT_FALSE(LoadDocument(Document, Copy, Made, Error));
  EXPECT_NE(Error.find("NumChannels"), std::string::npos) << Error;
}

TEST_F(MasterVolume, TheSelectionDialogListsEndpointNamesAndSetsTheChosenOne) {
  TSRMasterVolume Volume;
  Watch(Volume);
  Volume.GetDevice().SetName("Headset");
  std::vector<std::string> Shown;
  int Preselected = -2;
  TKBDeviceListForm::SetChooser([&](const TKBDeviceListForm& Form) {
    Shown = Form.GetItems();
    Preselected = Form.GetPreselectedIndex();
    return 2;
  });
  EXPECT_TRUE(Volume.GetDevice().ShowDeviceSelctDialog());
  EXPECT_EQ(Shown, (std::vector<std::string>{"Speakers", "Headset", "Microphone"}));
  EXPECT_EQ(Preselected, 1);
  EXPECT_EQ(Volume.GetDevice().GetName(), "Microphone");
  EXPECT_EQ(Volume.GetDevice().GetOpenedName(), "Microphone");
  TKBDeviceListForm::SetChooser([](const TKBDeviceListForm&) { return -1; });
  EXPECT_FALSE(Volume.GetDevice().ShowDeviceSelctDialog());
  EXPECT_EQ(Volume.GetDevice().GetName(), "Microphone");
  TKBDeviceListForm::SetChooser(nullptr);
}

}  // namespace
