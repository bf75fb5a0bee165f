// TSRSystemMixer's model over a scripted winmm mixer: what a real driver
// has and Wine does not show (source lines, every control class, several
// devices, notifications, failing opens and queries).
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "frame/Wbpersistence.h"
#include "mixer/Srsystemmixer.h"
#include "platform/Kbdevicelistform.h"
#include "tests/mixer/Scriptedmixer.h"

using namespace Quorvel;
using namespace Quorvel::Testing;
using TCat = TSRSystemMixerControlCategory;
using TCtl = TSRSystemMixerControlType;
using TLine = TSRSystemMixerLineType;

namespace {

// A client that binds one control, as the collection items do.
class TClient : public ISRSystemMixerControlClient {
 public:
  ~TClient() override { SetMixerControl(nullptr); }
  void SetMixerControl(TSRSystemMixerControl* C) override {
    if (Control) Control->RemoveRef(this);
    Control = C;
    if (C) C->AddRef(this);
  }
  void OnMixerControlChange(TSRSystemMixerControl* C) override { Heard.push_back(C->GetIntegerValue()); }
  TSRSystemMixerControl* Control = nullptr;
  std::vector<int32_t> Heard;
};

// Pins of another component, to write into the items' state pins and to
// see what the items send.
class TPinPeer : public TWBComponent {
 public:
  TPinPeer() : Int(*this, "Int"), Bool(*this, "Bool") {}
  ~TPinPeer() override { BeginDestroy(); }
  TPWIntegerStatePin Int;
  TPWBoolStatePin Bool;
};

// Streams the association of Control into Item, as reading a document does.
void Associate(TSRSystemMixerCollectionItem& Item, const TSRSystemMixerControl* Control) {
  TWBWriter Writer;
  TSRSystemMixerAssociation::Write(Writer, Control);
  TWBFiler Filer;
  Item.DefineProperties(Filer);
  ASSERT_EQ(Filer.Defined().size(), 1u);
  ASSERT_EQ(Filer.Defined()[0].Name, "Association");
  TWBReader Reader(Writer.Result());
  Filer.Defined()[0].Reader(Reader);
}

TScriptedControl Ctl(uint32_t Id, uint32_t Type, const std::string& Short, uint32_t Value = 0) {
  return {Id, Type, Short, Short + " (long)", Value};
}

class SystemMixerTest : public ::testing::Test {
 protected:
  SystemMixerTest() {
    TScriptedDevice Speakers;
    Speakers.Name = "Speakers (Scripted)";
    Speakers.Mid = 2;
    Speakers.Pid = 77;
    Speakers.DriverVersion = 0x0501;
    TScriptedDestination Master;
    Master.ComponentType = 4;
    Master.ShortName = "Master";
    Master.Name = "Master Volume";
    Master.Controls = {Ctl(1, 0x50030001, "Volume", 30000), Ctl(2, 0x20010002, "Mute"),
                       Ctl(3, 0x10020001, "Peak"), Ctl(4, 0x10010000, "Clip"), Ctl(5, 0x80000000, "Odd")};
    TScriptedLine Wave;
    Wave.ComponentType = 0x1008;
    Wave.ShortName = "Wave";
    Wave.Name = "Wave Out";
    Wave.Controls = {Ctl(10, 0x50030001, "Wave Vol", 1000), Ctl(11, 0x20010002, "Wave Mute")};
    TScriptedLine Mic;
    Mic.ComponentType = 0x1003;
    Mic.ShortName = "Mic";
    Mic.Name = "Microphone";
    Mic.Controls = {Ctl(20, 0x50030001, "Mic Vol A"), Ctl(21, 0x50030001, "Mic Vol B"),
                    Ctl(22, 0x30040000, "Gain dB"),   Ctl(23, 0x30050000, "Percent"),
                    Ctl(24, 0x40020001, "Pan"),       Ctl(25, 0x40020002, "QPan"),
                    Ctl(26, 0x61030000, "Delay"),     Ctl(27, 0x70010001, "Mux"),
                    Ctl(28, 0x00000000, "Custom"),    Ctl(29, 0x10030000, "Level"),
                    Ctl(30, 0x30020000, "Offset")};
    Master.Sources = {Wave, Mic};
    TScriptedDestination Record;
    Record.ComponentType = 7;
    Record.ShortName = "Rec";
    Record.Name = "Recording";
    Record.Controls = {Ctl(40, 0x70010001, "Rec Mux")};
    Speakers.Destinations = {Master, Record};

    TScriptedDevice Headset;
    Headset.Name = "Headset (Scripted)";
    TScriptedDestination Phones;
    Phones.ComponentType = 5;
    Phones.Name = "Headset";
    Phones.Controls = {Ctl(100, 0x50030001, "Volume"), Ctl(0xFFFFFFFF, 0x20010002, "Mute")};
    Headset.Destinations = {Phones};
    Script.Devices = {Speakers, Headset};
  }
  ~SystemMixerTest() override { DeliverPostedMixerMessages(); }

  TSRSystemMixerConnection& Connection(size_t Line, size_t Index) {
    return *Mixer.GetLine(Line)->GetConnection(Index);
  }
  TSRSystemMixerControl* Control(uint32_t Id) {
    TSRSystemMixerControl* C = nullptr;
    Mixer.FindControlByID(Id, C);
    return C;
  }

  TScriptedMixer Script;
  TSRSystemMixer Mixer;
};

TEST_F(SystemMixerTest, OpensADeviceAndBuildsLinesConnectionsAndControls) {
  EXPECT_EQ(Mixer.GetMixerId(), -1);
  EXPECT_EQ(Mixer.GetDevice().GetDeviceList(), (std::vector<std::string>{"Speakers (Scripted)", "Headset (Scripted)"}));

  Mixer.SetMixerId(0);
  ASSERT_EQ(Mixer.GetMixerId(), 0);
  EXPECT_EQ(Script.Calls, (std::vector<std::string>{"Open 0 window"}));
  EXPECT_TRUE(Mixer.GetNotifying());
  EXPECT_EQ(Mixer.GetManufacturer(), "2 = Unknown");
  EXPECT_EQ(Mixer.GetProductId(), 77);
  EXPECT_EQ(Mixer.GetDriverVersion(), 0x0501u);
  EXPECT_EQ(Mixer.GetProductName(), "Speakers (Scripted)");
  EXPECT_EQ(Mixer.GetDevice().GetOpenedName(), "Speakers (Scripted)");
  EXPECT_EQ(Mixer.GetDestinationCount(), 2u);
  ASSERT_EQ(Mixer.GetLineCount(), 2u);

  // The destination's own record comes first, then its sources in order.
  const TSRSystemMixerLine& Line = *Mixer.GetLine(0);
  EXPECT_EQ(Line.GetName(), "Master Volume");
  EXPECT_EQ(Line.GetTypeName(), "Speakers Out");
  ASSERT_EQ(Line.GetConnectionCount(), 3u);
  EXPECT_EQ(Connection(0, 0).GetName(), "Master Volume");
  EXPECT_EQ(Connection(0, 0).GetLineType(), TLine::mltDstSpeakers);
  EXPECT_EQ(Connection(0, 1).GetTypeName(), "WaveOut In");
  EXPECT_EQ(Connection(0, 2).GetTypeName(), "Microphone");
  EXPECT_EQ(Connection(0, 2).GetControls().Count(), 11u);
  EXPECT_EQ(Mixer.GetLine(1)->GetTypeName(), "WaveIn Out");

  // An unknown control class keeps its place as an empty entry.
  const TSRSystemMixerControls& Own = Connection(0, 0).GetControls();
  ASSERT_EQ(Own.Count(), 5u);
  EXPECT_EQ(Own.Get(4), nullptr);

  TSRSystemMixerControl* Wave = Control(10);
  ASSERT_NE(Wave, nullptr);
  EXPECT_EQ(Wave->GetDetailedName(), "[Speakers Out - Master Volume] - [Wave Out] - [Volume - Wave Vol]");
  EXPECT_EQ(Wave->GetName(), "Wave Vol (long)");
  EXPECT_EQ(Wave->GetDestinationType(), TLine::mltDstSpeakers);
  EXPECT_EQ(Wave->GetConnectionType(), TLine::mltSrcWaveOut);

  // Another device: Microsoft's manufacturer id reads as its name.
  Mixer.SetMixerId(1);
  EXPECT_EQ(Mixer.GetManufacturer(), "Microsoft");
  EXPECT_EQ(Script.OpenCount(), 1u);
  Mixer.Close();
  EXPECT_EQ(Mixer.GetMixerId(), -1);
  EXPECT_EQ(Mixer.GetLineCount(), 0u);
  EXPECT_EQ(Script.OpenCount(), 0u);
}

TEST_F(SystemMixerTest, IgnoresTheOpenIdAndIdsOutsideTheDevices) {
  Mixer.SetMixerId(0);
  const std::vector<std::string> Before = Script.Calls;
  Mixer.SetMixerId(0);
  Mixer.SetMixerId(-1);
  Mixer.SetMixerId(2);
  EXPECT_EQ(Script.Calls, Before);
  EXPECT_EQ(Mixer.GetMixerId(), 0);
}

TEST_F(SystemMixerTest, OpenTriesTwiceWithTheWindowThenWithoutNotifications) {
  Script.Devices[0].FailingOpens = 1;
  Mixer.SetMixerId(0);
  EXPECT_EQ(Script.Calls, (std::vector<std::string>{"Open 0 window", "Open 0 window"}));
  EXPECT_TRUE(Mixer.GetNotifying());
  Mixer.Close();

  Script.Calls.clear();
  Script.Devices[0].WithoutNotifications = true;
  Mixer.SetMixerId(0);
  EXPECT_EQ(Script.Calls, (std::vector<std::string>{"Open 0 window", "Open 0 window", "Open 0 none"}));
  ASSERT_EQ(Mixer.GetMixerId(), 0);
  EXPECT_FALSE(Mixer.GetNotifying());
  // It works, without change events.
  TClient Client;
  Client.SetMixerControl(Control(10));
  Control(10)->SetIntegerValue(500);
  EXPECT_EQ(Control(10)->GetIntegerValue(), 500);
  EXPECT_EQ(DeliverPostedMixerMessages(), 0);
  EXPECT_TRUE(Client.Heard.empty());
  Mixer.Close();

  // All three failing: closed, as it was.
  Script.Calls.clear();
  Script.Devices[0].FailingOpens = 3;
  Mixer.SetMixerId(0);
  EXPECT_EQ(Script.Calls.size(), 3u);
  EXPECT_EQ(Mixer.GetMixerId(), -1);
  EXPECT_EQ(Mixer.GetLineCount(), 0u);
}

TEST_F(SystemMixerTest, FailingQueriesLeaveTheirPartOut) {
  Script.Devices[0].FailingDestinations = {0};
  Script.Devices[0].FailingControlLines = {TScriptedMixer::LineId(1)};
  Mixer.SetMixerId(0);
  ASSERT_EQ(Mixer.GetLineCount(), 1u);
  EXPECT_EQ(Mixer.GetLine(0)->GetName(), "Recording");
  EXPECT_EQ(Connection(0, 0).GetControls().Count(), 0u);
}

TEST_F(SystemMixerTest, CategoriesTypesAndLimitsFollowTheControlKind) {
  Mixer.SetMixerId(0);
  struct TExpect {
    uint32_t Id;
    TCat Category;
    TCtl Type;
    int32_t Min, Max;
  };
  const TExpect Expected[] = {
      {1, TCat::mctFader, TCtl::smcVolume, 0, 65535},
      {2, TCat::mctSwitch, TCtl::smcMute, 0, 1},
      {3, TCat::mctIntegerMeter, TCtl::smcPeakMeter, -32768, 32767},
      // A boolean meter is an integer meter of type smcBooleanMeter.
      {4, TCat::mctIntegerMeter, TCtl::smcBooleanMeter, 0, 1},
      {22, TCat::mctNumber, TCtl::smcDecibels, -32768, 32767},
      {23, TCat::mctNumber, TCtl::smcPercent, 0, 100},
      {24, TCat::mctSlider, TCtl::smcPan, -32768, 32767},
      {25, TCat::mctSlider, TCtl::smcQSoundPan, -15, 15},
      {26, TCat::mctTime, TCtl::smcMilliTime, 0, 2147483647},
      {27, TCat::mctList, TCtl::smcMux, 0, 0},
      {28, TCat::mctCustom, TCtl::smcUnknown, 0, 0},
      {29, TCat::mctIntegerMeter, TCtl::smcUnsignedMeter, 0, 2147483647},
      {30, TCat::mctNumber, TCtl::smcSignedNumber, -2147483647 - 1, 2147483647},
  };
  for (const TExpect& E : Expected) {
    SCOPED_TRACE(E.Id);
    TSRSystemMixerControl* C = Control(E.Id);
    ASSERT_NE(C, nullptr);
    EXPECT_EQ(C->GetCategory(), E.Category);
    EXPECT_EQ(C->GetControlType(), E.Type);
    EXPECT_EQ(C->GetMin(), E.Min);
    EXPECT_EQ(C->GetMax(), E.Max);
  }
  EXPECT_EQ(Control(4)->GetControlTypeName(), "Boolean Meter");
  EXPECT_EQ(Control(5), nullptr);
}

TEST_F(SystemMixerTest, ValuesAreOneUniformChannelWithTheKindsSignednessAndClamping) {
  Mixer.SetMixerId(0);
  // Faders clamp to their fixed limits, whatever the device's bounds.
  Control(10)->SetIntegerValue(70000);
  EXPECT_EQ(Script.FindControl(0, 10)->Value, 65535u);
  Control(10)->SetIntegerValue(-5);
  EXPECT_EQ(Script.FindControl(0, 10)->Value, 0u);
  // Sliders write what they are given.
  Control(24)->SetIntegerValue(-40000);
  EXPECT_EQ(static_cast<int32_t>(Script.FindControl(0, 24)->Value), -40000);
  EXPECT_EQ(Control(24)->GetIntegerValue(), -40000);
  // Numbers: signed ones read negative values, unsigned ones never do.
  Script.FindControl(0, 30)->Value = 0xFFFFFFFF;
  EXPECT_EQ(Control(30)->GetIntegerValue(), -1);
  Control(23)->SetIntegerValue(-20);
  EXPECT_EQ(Script.FindControl(0, 23)->Value, 0u);
  Control(23)->SetIntegerValue(250);
  EXPECT_EQ(Control(23)->GetIntegerValue(), 100);
  Script.FindControl(0, 29)->Value = 0xFFFFFFF0;
  EXPECT_GE(Control(29)->GetIntegerValue(), 0);
  Script.FindControl(0, 3)->Value = static_cast<uint32_t>(-1200);
  EXPECT_EQ(Control(3)->GetIntegerValue(), -1200);
  // Switches and lists: any value but 0 is true; writes are 1 or 0.
  Script.FindControl(0, 2)->Value = 7;
  EXPECT_TRUE(Control(2)->GetBoolValue());
  Control(27)->SetBoolValue(true);
  EXPECT_EQ(Script.FindControl(0, 27)->Value, 1u);
  Control(2)->SetBoolValue(false);
  EXPECT_FALSE(Control(2)->GetBoolValue());
  // Meters and custom controls take no writes.
  Control(3)->SetIntegerValue(5);
  Control(28)->SetIntegerValue(5);
  for (const std::string& Call : Script.Calls) EXPECT_TRUE(Call.rfind("Set 3 ", 0) && Call.rfind("Set 28 ", 0)) << Call;
  // A query the device refuses reads 0.
  Script.Devices[0].Destinations[0].Controls[0].Id = 99;
  EXPECT_EQ(Control(1)->GetIntegerValue(), 0);
}

TEST_F(SystemMixerTest, FindsByTypeNameBeforeIndexAndById) {
  Mixer.SetMixerId(0);
  TSRSystemMixerLine* Line = nullptr;
  ASSERT_TRUE(Mixer.FindLineByType(TLine::mltDstSpeakers, Line));
  EXPECT_EQ(Line, Mixer.GetLine(0));
  EXPECT_FALSE(Mixer.FindLineByType(TLine::mltDstHeadphones, Line));
  EXPECT_EQ(Line, nullptr);
  TSRSystemMixerConnection* Mic = nullptr;
  ASSERT_TRUE(Mixer.GetLine(0)->FindConnectionByType(TLine::mltSrcMicrophone, Mic));
  EXPECT_FALSE(Mixer.GetLine(1)->FindConnectionByType(TLine::mltSrcMicrophone, Mic));
  Mic = &Connection(0, 2);

  EXPECT_EQ(Control(20)->GetIndex(), 0);
  EXPECT_EQ(Control(21)->GetIndex(), 1);
  EXPECT_EQ(Control(22)->GetIndex(), 0);
  // The name wins over the index; an unknown name falls back to the index.
  EXPECT_EQ(Mic->FindControlByType(TCat::mctFader, TCtl::smcVolume, "Mic Vol B", 0), Control(21));
  EXPECT_EQ(Mic->FindControlByType(TCat::mctFader, TCtl::smcVolume, "Renamed", 1), Control(21));
  EXPECT_EQ(Mic->FindControlByType(TCat::mctFader, TCtl::smcVolume, "Renamed", 2), nullptr);
  EXPECT_EQ(Mic->FindControlByType(TCat::mctSlider, TCtl::smcVolume, "Mic Vol A", 0), nullptr);
  // A boolean meter is never found as a boolean meter.
  EXPECT_EQ(Connection(0, 0).FindControlByType(TCat::mctBooleanMeter, TCtl::smcBooleanMeter, "Clip", 0), nullptr);

  TSRSystemMixerControl* C = nullptr;
  EXPECT_TRUE(Mixer.GetLine(1)->FindControlByID(40, C));
  EXPECT_FALSE(Mixer.GetLine(0)->FindControlByID(40, C));
  EXPECT_EQ(C, nullptr);
  EXPECT_FALSE(Mixer.FindControlByID(5, C));  // the empty entry is passed over
}

TEST_F(SystemMixerTest, ControlChangesReachTheClientsThroughTheWindow) {
  Mixer.SetMixerId(0);
  TClient A, B, Other;
  A.SetMixerControl(Control(10));
  B.SetMixerControl(Control(10));
  Other.SetMixerControl(Control(11));
  Script.ChangeValue(0, 10, 4321);
  // Nothing arrives before the window's thread takes its messages.
  EXPECT_TRUE(A.Heard.empty());
  EXPECT_EQ(DeliverPostedMixerMessages(), 1);
  EXPECT_EQ(A.Heard, std::vector<int32_t>{4321});
  EXPECT_EQ(B.Heard, std::vector<int32_t>{4321});
  EXPECT_TRUE(Other.Heard.empty());

  // A write goes to the device, which tells every client of the control.
  Control(10)->SetIntegerValue(777);
  DeliverPostedMixerMessages();
  EXPECT_EQ(B.Heard.back(), 777);

  // Line changes and "all controls" (-1) are acknowledged and ignored.
  A.Heard.clear();
  Script.Notify(0, MsgLineChange, 10);
  Script.Notify(0, MsgControlChange, 0xFFFFFFFF);
  EXPECT_EQ(DeliverPostedMixerMessages(), 2);
  EXPECT_TRUE(A.Heard.empty());

  // A closed mixer unbinds its clients, last bound first, and hears nothing more.
  Mixer.Close();
  EXPECT_EQ(A.Control, nullptr);
  EXPECT_EQ(B.Control, nullptr);
  EXPECT_EQ(Other.Control, nullptr);

  // "All controls" is -1 in the message's 32 bits, also when they were widened
  // without the sign: a control whose ID has every bit set hears nothing of it.
  Mixer.SetMixerId(1);
  TClient AllBits;
  AllBits.SetMixerControl(Control(0xFFFFFFFF));
  ASSERT_NE(AllBits.Control, nullptr);
  ASSERT_TRUE(PostMixerMessage(Mixer.GetNotifyWindow(), MsgControlChange, 0, static_cast<intptr_t>(uintptr_t{0xFFFFFFFF})));
  EXPECT_EQ(DeliverPostedMixerMessages(), 1);
  EXPECT_TRUE(AllBits.Heard.empty());
}

TEST_F(SystemMixerTest, ItemsAreFoundAgainByAssociationAfterEachRebuild) {
  Mixer.SetMixerId(0);
  TSRSystemMixerFaderCollectionItem& Item = *Mixer.GetControlGroups().GetFaders().Add();
  Associate(Item, Control(21));
  EXPECT_TRUE(Item.GetAssociation().Loaded);
  EXPECT_EQ(Item.GetAssociation().ShortName, "Mic Vol B");
  EXPECT_EQ(Item.GetAssociation().Index, 1);
  ASSERT_EQ(Item.GetMixerControl(), Control(21));

  Mixer.SetMixerId(1);  // another device without a microphone
  EXPECT_EQ(Item.GetMixerControl(), nullptr);
  EXPECT_EQ(Item.GetDisplayName(), "No Control Selected -> Fader 0");
  Mixer.SetMixerId(0);  // a device that has it binds it again
  ASSERT_NE(Item.GetMixerControl(), nullptr);
  EXPECT_EQ(Item.GetMixerControl()->GetControlID(), 21u);

  // Renamed by the driver: found again by its index.
  Script.Devices[0].Destinations[0].Sources[1].Controls[1].ShortName = "Mic Boost";
  Mixer.Close();
  Mixer.SetMixerId(0);
  ASSERT_NE(Item.GetMixerControl(), nullptr);
  EXPECT_EQ(Item.GetMixerControl()->GetShortName(), "Mic Boost");

  // Moved in front of its twin under its old name: the name wins over the index.
  auto& Controls = Script.Devices[0].Destinations[0].Sources[1].Controls;
  std::swap(Controls[0], Controls[1]);
  Controls[0].ShortName = "Mic Vol B";
  Controls[1].ShortName = "Mic Vol A";
  Mixer.Close();
  Mixer.SetMixerId(0);
  ASSERT_NE(Item.GetMixerControl(), nullptr);
  EXPECT_EQ(Item.GetMixerControl()->GetControlID(), 21u);
  EXPECT_EQ(Item.GetMixerControl()->GetIndex(), 0);

  // Binding by assignment leaves the stored association: a reopen goes back to it.
  Item.SetMixerControl(Control(20));
  Mixer.Close();
  EXPECT_EQ(Item.GetMixerControl(), nullptr);
  Mixer.SetMixerId(0);
  ASSERT_NE(Item.GetMixerControl(), nullptr);
  EXPECT_EQ(Item.GetMixerControl()->GetControlID(), 21u);
}

TEST(SystemMixerAssociation, EmptyAndMalformedListsUnbind) {
  TSRSystemMixerAssociation A;
  TWBWriter Empty;
  TSRSystemMixerAssociation::Write(Empty, nullptr);
  EXPECT_EQ(Empty.Result(), TWBValue::List());
  TWBReader R1(Empty.Result());
  EXPECT_FALSE(A.Read(R1));

  // An ordinal outside its enumeration or a missing piece reads as empty.
  const TWBValue Bad = TWBValue::List({TWBValue::Integer(4), TWBValue::Integer(99), TWBValue::Integer(2),
                                       TWBValue::Integer(4), TWBValue::String("Vol"), TWBValue::Integer(0)});
  TWBReader R2(Bad);
  EXPECT_FALSE(A.Read(R2));
  const TWBValue Short = TWBValue::List({TWBValue::Integer(4), TWBValue::Integer(4)});
  TWBReader R3(Short);
  EXPECT_FALSE(A.Read(R3));
  TWBReader R4(TWBValue::String("no list"));
  EXPECT_FALSE(A.Read(R4));
  TWBReader R5(TWBValue::List({TWBValue::List()}));
  EXPECT_FALSE(A.Read(R5));
  EXPECT_FALSE(A.Loaded);
}

TEST_F(SystemMixerTest, TheDeviceIsChosenByNameThenByAlternatives) {
  Mixer.GetDevice().SetName("Headset (Scripted)");
  EXPECT_EQ(Mixer.GetMixerId(), 1);
  // A name the devices do not have: the alternatives in order, the first present wins.
  Mixer.GetDevice().GetAlternativeDevices().Add()->SetDeviceName("Missing");
  Mixer.GetDevice().GetAlternativeDevices().Add()->SetDeviceName("Speakers (Scripted)");
  Mixer.GetDevice().SetName("speakers (scripted)");  // case matters
  EXPECT_EQ(Mixer.GetMixerId(), 0);
  // Nothing matches: the mixer stays as it is.
  Mixer.GetDevice().GetAlternativeDevices().Clear();
  Mixer.GetDevice().SetName("Nope");
  EXPECT_EQ(Mixer.GetMixerId(), 0);

  // The choice streams with the component and opens the device on loading.
  Mixer.GetDevice().GetAlternativeDevices().Add()->SetDeviceName("Headset (Scripted)");
  const TWBValue Saved = SaveComponent(Mixer);
  TSRSystemMixer Copy;
  std::vector<std::string> Problems;
  LoadComponent(Copy, Saved, Problems);
  EXPECT_TRUE(Problems.empty());
  EXPECT_EQ(Copy.GetDevice().GetName(), "Nope");
  EXPECT_EQ(Copy.GetMixerId(), 1);

  // The dialog offers the device list; a confirmed choice opens that device.
  std::vector<std::string> Offered;
  TKBDeviceListForm::SetChooser([&](const TKBDeviceListForm& Form) {
    Offered = Form.GetItems();
    return 0;
  });
  EXPECT_TRUE(Copy.GetDevice().ShowDeviceSelctDialog());
  TKBDeviceListForm::SetChooser(nullptr);
  EXPECT_EQ(Offered.size(), 2u);
  EXPECT_EQ(Copy.GetMixerId(), 0);
  Copy.GetDevice().CloseDevice();
  EXPECT_EQ(Copy.GetMixerId(), -1);

  // Assigning a device description takes its alternatives before its name,
  // and chooses once, with both.
  TSRSystemMixer Third;
  Script.Calls.clear();
  Third.SetDevice(Mixer.GetDevice());
  EXPECT_EQ(Third.GetDevice().GetAlternativeDevices().Count(), 1u);
  EXPECT_EQ(Third.GetMixerId(), 1);
  EXPECT_EQ(Script.Calls, (std::vector<std::string>{"Open 1 window"}));
}

TEST_F(SystemMixerTest, ChangingTheAlternativesChoosesTheDeviceAgain) {
  auto& Alternatives = Mixer.GetDevice().GetAlternativeDevices();
  Mixer.GetDevice().SetName("Nope");
  EXPECT_EQ(Mixer.GetMixerId(), -1);
  Alternatives.Add()->SetDeviceName("Headset (Scripted)");
  EXPECT_EQ(Mixer.GetMixerId(), 1);
  // A new name of an item.
  Alternatives.Get(0)->SetDeviceName("Speakers (Scripted)");
  EXPECT_EQ(Mixer.GetMixerId(), 0);
  // An item moved in front of the others.
  Alternatives.Add()->SetDeviceName("Headset (Scripted)");
  EXPECT_EQ(Mixer.GetMixerId(), 0);
  Alternatives.Get(1)->SetIndex(0);
  EXPECT_EQ(Mixer.GetMixerId(), 1);
  // An item removed.
  Alternatives.Delete(0);
  EXPECT_EQ(Mixer.GetMixerId(), 0);
  // A present Name wins over any alternative.
  Mixer.GetDevice().SetName("Headset (Scripted)");
  Alternatives.Add()->SetDeviceName("Speakers (Scripted)");
  EXPECT_EQ(Mixer.GetMixerId(), 1);

  // A document with alternatives and no name opens the first present one once loaded.
  TSRSystemMixer Source;
  Source.GetDevice().GetAlternativeDevices().Add()->SetDeviceName("Missing");
  Source.GetDevice().GetAlternativeDevices().Add()->SetDeviceName("Headset (Scripted)");
  Source.Close();
  const TWBValue Saved = SaveComponent(Source);
  TSRSystemMixer Copy;
  std::vector<std::string> Problems;
  Script.Calls.clear();
  LoadComponent(Copy, Saved, Problems);
  EXPECT_TRUE(Problems.empty());
  EXPECT_EQ(Copy.GetMixerId(), 1);
  EXPECT_EQ(Script.Calls, (std::vector<std::string>{"Open 1 window"}));
}


TEST_F(SystemMixerTest, FaderItemsFollowTheirControlBothWays) {
  Mixer.SetMixerId(0);
  auto& Faders = Mixer.GetControlGroups().GetFaders();
  TSRSystemMixerFaderCollectionItem& A = *Faders.Add();
  TSRSystemMixerFaderCollectionItem& B = *Faders.Add();
  EXPECT_EQ(Mixer.GetControlPinGroups().Faders.Count(), 2u);
  EXPECT_EQ(A.GetDisplayName(), "No Control Selected -> Fader 0");
  EXPECT_EQ(A.GetValue(), 0);
  A.SetValue(5);  // dropped without a control
  EXPECT_EQ(A.GetMin(), 0);
  EXPECT_EQ(A.GetMax(), 0);

  // Binding takes the control's limits and shows its value at once.
  A.SetMixerControl(Control(10));
  B.SetMixerControl(Control(10));
  EXPECT_EQ(A.GetStatePin().GetMin(), 0);
  EXPECT_EQ(A.GetStatePin().GetMax(), 65535);
  EXPECT_EQ(A.GetStatePin().GetValue(), 1000);
  EXPECT_EQ(A.GetDisplayName(), "[Speakers Out - Master Volume] - [Wave Out] - [Volume - Wave Vol] -> Fader 0");
  EXPECT_EQ(A.GetPinName(), "Not connected");
  A.SetValue(70000);
  EXPECT_EQ(Script.FindControl(0, 10)->Value, 65535u);
  EXPECT_EQ(DeliverPostedMixerMessages(), 1);
  EXPECT_EQ(B.GetStatePin().GetValue(), 65535);

  // A value arriving at the pin is written to the device; the device's
  // notification brings it to every item of the control.
  TPinPeer Peer;
  ASSERT_TRUE(Peer.Int.Connect(A.GetStatePin()));
  EXPECT_NE(A.GetPinName(), "Not connected");
  Peer.Int.SetValue(2000);
  EXPECT_EQ(Script.FindControl(0, 10)->Value, 2000u);
  EXPECT_EQ(DeliverPostedMixerMessages(), 1);
  EXPECT_EQ(B.GetStatePin().GetValue(), 2000);

  // A change made elsewhere reaches the pins, and what they are connected to
  // (another component: pins of one pair of components connect one way only,
  // so their locks are always taken in the same order).
  TPinPeer Listener;
  ASSERT_TRUE(B.GetStatePin().Connect(Listener.Int));
  Script.ChangeValue(0, 10, 3000);
  DeliverPostedMixerMessages();
  EXPECT_EQ(A.GetStatePin().GetValue(), 3000);
  EXPECT_EQ(Listener.Int.GetValue(), 3000);

  // Closing unbinds; the pins keep their last value. A fader's pin name goes
  // by its pin's connection, not by the control.
  Mixer.Close();
  EXPECT_EQ(A.GetMixerControl(), nullptr);
  EXPECT_EQ(A.GetStatePin().GetValue(), 3000);
  EXPECT_EQ(A.GetValue(), 0);
  EXPECT_EQ(A.GetPinName(), A.GetStatePin().GetDisplayName());
  Peer.Int.DisconnectAll();
}

TEST_F(SystemMixerTest, EachKindDrivesItsControlThroughItsPin) {
  Mixer.SetMixerId(0);
  auto& Groups = Mixer.GetControlGroups();
  TPinPeer Peer;

  // Sliders clamp what they write; the control does not.
  TSRSystemMixerSliderCollectionItem& Slider = *Groups.GetSliders().Add();
  Slider.SetMixerControl(Control(25));
  Slider.SetValue(-40);
  EXPECT_EQ(static_cast<int32_t>(Script.FindControl(0, 25)->Value), -15);

  // Numbers and times: a plain integer pin.
  TSRSystemMixerNumberCollectionItem& Number = *Groups.GetNumbers().Add();
  Number.SetMixerControl(Control(23));
  ASSERT_TRUE(Peer.Int.Connect(*Number.GetPin()));
  Peer.Int.SetValue(250);
  EXPECT_EQ(Script.FindControl(0, 23)->Value, 100u);
  EXPECT_EQ(Number.GetValue(), 100);
  Peer.Int.DisconnectAll();

  // Switches and lists: a boolean pin.
  TSRSystemMixerSwitchCollectionItem& Mute = *Groups.GetSwitches().Add();
  Mute.SetMixerControl(Control(11));
  ASSERT_TRUE(Peer.Bool.Connect(*Mute.GetPin()));
  Peer.Bool.SetValue(true);
  EXPECT_EQ(Script.FindControl(0, 11)->Value, 1u);
  EXPECT_TRUE(Mute.GetValue());
  Peer.Bool.DisconnectAll();
  // The other kinds name their pin by the pin's own text while a control is bound.
  EXPECT_EQ(Mute.GetPinName(), Mute.GetPin()->GetDisplayName());
  EXPECT_NE(Mute.GetPinName(), "Not connected");
  EXPECT_EQ(Groups.GetSwitches().Add()->GetPinName(), "Not connected");

  // Meters send the value out, even an unchanged one.
  TSRSystemMixerIntegerMeterCollectionItem& Peak = *Groups.GetIntegerMeters().Add();
  Peak.SetMixerControl(Control(3));
  EXPECT_EQ(Peak.GetMin(), -32768);
  EXPECT_EQ(Peak.GetMax(), 32767);
  TPinPeer Listener;  // mixer to Listener, as Peer connects to the mixer: one way per pair
  ASSERT_TRUE(Peak.GetPin()->Connect(Listener.Int));
  Script.ChangeValue(0, 3, static_cast<uint32_t>(-700));
  DeliverPostedMixerMessages();
  EXPECT_EQ(Listener.Int.GetValue(), -700);
  Listener.Int.SetValue(0);
  Script.ChangeValue(0, 3, static_cast<uint32_t>(-700));
  DeliverPostedMixerMessages();
  EXPECT_EQ(Listener.Int.GetValue(), -700);
  // A device value beyond the pin's range goes out at the limit, every time.
  Script.ChangeValue(0, 3, 40000);
  DeliverPostedMixerMessages();
  EXPECT_EQ(Listener.Int.GetValue(), 32767);
  Listener.Int.SetValue(0);
  Script.ChangeValue(0, 3, 40000);
  DeliverPostedMixerMessages();
  EXPECT_EQ(Listener.Int.GetValue(), 32767);
  Listener.Int.DisconnectAll();

  // Every meter is an integer meter: a boolean meter item never finds one by
  // association, an integer meter item does (though it calls the type foreign).
  TSRSystemMixerBooleanMeterCollectionItem& Clip = *Groups.GetBoolMeters().Add();
  TSRSystemMixerIntegerMeterCollectionItem& ClipAsInteger = *Groups.GetIntegerMeters().Add();
  Associate(Clip, Control(4));
  Associate(ClipAsInteger, Control(4));
  EXPECT_EQ(Clip.GetMixerControl(), nullptr);
  EXPECT_EQ(ClipAsInteger.GetMixerControl(), Control(4));
  EXPECT_FALSE(ClipAsInteger.IsSameType(TCtl::smcBooleanMeter));
  EXPECT_TRUE(ClipAsInteger.IsSameType(TCtl::smcPeakMeter));
  EXPECT_TRUE(Clip.IsSameType(TCtl::smcBooleanMeter));
  EXPECT_FALSE(Clip.IsSameType(TCtl::smcPeakMeter));
  EXPECT_TRUE(Mute.IsSameType(TCtl::smcPeakMeter));
}

TEST_F(SystemMixerTest, MovingAnItemMovesItsPin) {
  auto& Switches = Mixer.GetControlGroups().GetSwitches();
  TPWPinList& Pins = Mixer.GetControlPinGroups().Switches;
  std::vector<TSRSystemMixerSwitchCollectionItem*> Items;
  for (int I = 0; I < 4; ++I) Items.push_back(Switches.Add());
  Items[0]->SetIndex(2);
  Items[3]->SetIndex(0);
  for (size_t I = 0; I < Switches.Count(); ++I) EXPECT_EQ(Pins.Get(I), Switches.Get(I)->GetPin()) << I;
  EXPECT_EQ(Pins.Get(0)->GetName(), "Switch4");
  // Also when the item is moved as any collection item (as lists and editors do).
  TWBCollectionItem& AsItem = *Items[1];
  AsItem.SetIndex(0);
  ASSERT_EQ(Switches.Get(0), Items[1]);
  for (size_t I = 0; I < Switches.Count(); ++I) EXPECT_EQ(Pins.Get(I), Switches.Get(I)->GetPin()) << I;
  // An item that goes takes its pin with it.
  Switches.Delete(1);
  ASSERT_EQ(Pins.Count(), 3u);
  for (size_t I = 0; I < Switches.Count(); ++I) EXPECT_EQ(Pins.Get(I), Switches.Get(I)->GetPin()) << I;
}

TEST_F(SystemMixerTest, ItemsStreamTheirAssociationWithTheComponent) {
  Mixer.GetDevice().SetName("Speakers (Scripted)");
  auto& Groups = Mixer.GetControlGroups();
  Groups.GetFaders().Add()->SetMixerControl(Control(21));
  Groups.GetFaders().Add();  // unbound: an empty association
  Groups.GetSwitches().Add()->SetMixerControl(Control(2));

  const TWBValue Saved = SaveComponent(Mixer);
  const TWBValue* Stored = Saved.Find("ControlGroups");
  ASSERT_NE(Stored, nullptr);
  EXPECT_NE(Stored->Find("Faders"), nullptr);
  EXPECT_EQ(Stored->Find("Lists"), nullptr);  // empty groups are not stored

  TSRSystemMixer Copy;
  std::vector<std::string> Problems;
  LoadComponent(Copy, Saved, Problems);
  EXPECT_TRUE(Problems.empty()) << (Problems.empty() ? "" : Problems[0]);
  ASSERT_EQ(Copy.GetMixerId(), 0);
  auto& Loaded = Copy.GetControlGroups();
  ASSERT_EQ(Loaded.GetFaders().Count(), 2u);
  ASSERT_NE(Loaded.GetFaders().Get(0)->GetMixerControl(), nullptr);
  EXPECT_EQ(Loaded.GetFaders().Get(0)->GetMixerControl()->GetControlID(), 21u);
  EXPECT_EQ(Loaded.GetFaders().Get(1)->GetMixerControl(), nullptr);
  ASSERT_NE(Loaded.GetSwitches().Get(0)->GetMixerControl(), nullptr);
  EXPECT_EQ(Loaded.GetSwitches().Get(0)->GetMixerControl()->GetControlID(), 2u);
  EXPECT_EQ(Copy.GetControlPinGroups().Faders.Count(), 2u);
}


TEST_F(SystemMixerTest, PinWritesFromAnotherThreadMeetReopensSafely) {
  Mixer.SetMixerId(0);
  TSRSystemMixerFaderCollectionItem& Item = *Mixer.GetControlGroups().GetFaders().Add();
  Associate(Item, Control(10));
  TPinPeer Peer;
  ASSERT_TRUE(Peer.Int.Connect(Item.GetStatePin()));
  // A fixed amount of work on each side, however the threads interleave.
  std::thread Writer([&] {
    for (int64_t V = 1; V <= 2000; ++V) Peer.Int.SetValue(V);
  });
  // The model is rebuilt under the writer: each control goes while the item may be writing to it.
  for (int I = 0; I < 50; ++I) {
    Mixer.Close();
    Mixer.SetMixerId(0);
    DeliverPostedMixerMessages();
  }
  Writer.join();
  Peer.Int.DisconnectAll();
  ASSERT_NE(Item.GetMixerControl(), nullptr);
  EXPECT_EQ(Item.GetMixerControl()->GetControlID(), 10u);
  DeliverPostedMixerMessages();
  EXPECT_EQ(Item.GetStatePin().GetValue(), static_cast<int64_t>(Script.FindControl(0, 10)->Value));
}

}  // namespace
