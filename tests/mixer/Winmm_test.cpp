// TSRSystemMixer and its items over the system's own winmm. Under Wine (with ALSA's null
// device, as scripts/wine-run sets it up) that is two devices, "Out: default"
// and "In: default", each with one destination "Master Volume" carrying a
// volume and a mute control.
#include <gtest/gtest.h>

#include "mixer/Srsystemmixer.h"
#include "platform/Kbdevicelistform.h"
// windows.h after the frame headers (it defines WAVE_FORMAT_PCM as a macro).
#include <windows.h>

using namespace Quorvel;
using TCat = TSRSystemMixerControlCategory;
using TCtl = TSRSystemMixerControlType;

namespace {

class TPeer : public TWBComponent {
 public:
  TPeer() : Int(*this, "Int"), Bool(*this, "Bool") {}
  ~TPeer() override { BeginDestroy(); }
  TPWIntegerStatePin Int;
  TPWBoolStatePin Bool;
};

bool RunningUnderWine() {
  const HMODULE Ntdll = GetModuleHandleW(L"ntdll.dll");
  return Ntdll && GetProcAddress(Ntdll, "wine_get_version");
}

TEST(SystemMixerWinmm, WinesDevicesOpenAndTheirMasterVolumeAndMuteReadBack) {
  TSRSystemMixer Mixer;
  const std::vector<std::string> Devices = Mixer.GetDevice().GetDeviceList();
  if (!RunningUnderWine()) GTEST_SKIP() << "the device facts below are Wine's";
  ASSERT_EQ(Devices, (std::vector<std::string>{"Out: default", "In: default"}));

  Mixer.GetDevice().SetName("Out: default");
  ASSERT_EQ(Mixer.GetMixerId(), 0);
  EXPECT_EQ(Mixer.GetDevice().GetOpenedName(), "Out: default");
  EXPECT_TRUE(Mixer.GetNotifying());
  ASSERT_EQ(Mixer.GetLineCount(), 1u);
  const TSRSystemMixerLine& Line = *Mixer.GetLine(0);
  EXPECT_EQ(Line.GetName(), "Master Volume");
  ASSERT_GE(Line.GetConnectionCount(), 1u);

  // The destination's own controls, reached as its first connection.
  TSRSystemMixerConnection& Own = *Line.GetConnection(0);
  TSRSystemMixerControl* Volume = Own.FindControlByType(TCat::mctFader, TCtl::smcVolume, "", 0);
  TSRSystemMixerControl* Mute = Own.FindControlByType(TCat::mctSwitch, TCtl::smcMute, "", 0);
  ASSERT_NE(Volume, nullptr);
  ASSERT_NE(Mute, nullptr);
  EXPECT_EQ(Volume->GetMin(), 0);
  EXPECT_EQ(Volume->GetMax(), 65535);
  TSRSystemMixerControl* Found = nullptr;
  EXPECT_TRUE(Mixer.FindControlByID(Mute->GetControlID(), Found));
  EXPECT_EQ(Found, Mute);

  const int32_t OldVolume = Volume->GetIntegerValue();
  const bool OldMute = Mute->GetBoolValue();
  Volume->SetIntegerValue(12345);
  EXPECT_EQ(Volume->GetIntegerValue(), 12345);
  Volume->SetIntegerValue(70000);  // clamped to the fader's limit
  EXPECT_EQ(Volume->GetIntegerValue(), 65535);
  Mute->SetBoolValue(!OldMute);
  EXPECT_EQ(Mute->GetBoolValue(), !OldMute);
  Mute->SetBoolValue(OldMute);
  Volume->SetIntegerValue(OldVolume);
  EXPECT_EQ(Volume->GetIntegerValue(), OldVolume);

  // Through item pins: a value written into the item's pin reaches the
  // device and reads back.
  TSRSystemMixerFaderCollectionItem& Fader = *Mixer.GetControlGroups().GetFaders().Add();
  TSRSystemMixerSwitchCollectionItem& Switch = *Mixer.GetControlGroups().GetSwitches().Add();
  Fader.SetMixerControl(Volume);
  Switch.SetMixerControl(Mute);
  EXPECT_EQ(Fader.GetStatePin().GetValue(), OldVolume);
  TPeer Peer;
  ASSERT_TRUE(Peer.Int.Connect(Fader.GetStatePin()));
  ASSERT_TRUE(Peer.Bool.Connect(*Switch.GetPin()));
  Peer.Int.SetValue(OldVolume == 20000 ? 20001 : 20000);
  EXPECT_EQ(Volume->GetIntegerValue(), Peer.Int.GetValue());
  EXPECT_EQ(Fader.GetValue(), Peer.Int.GetValue());
  Peer.Bool.SetValue(!OldMute);
  EXPECT_EQ(Switch.GetValue(), !OldMute);
  Fader.SetValue(OldVolume);
  Switch.SetValue(OldMute);
  EXPECT_EQ(Volume->GetIntegerValue(), OldVolume);
  Peer.Int.DisconnectAll();
  Peer.Bool.DisconnectAll();

  // The input device opens too; closing lets the handle go and unbinds the items.
  Mixer.SetMixerId(1);
  EXPECT_EQ(Mixer.GetDevice().GetOpenedName(), "In: default");
  ASSERT_EQ(Mixer.GetLineCount(), 1u);
  EXPECT_EQ(Mixer.GetLine(0)->GetName(), "Master Volume");
  Mixer.Close();
  EXPECT_EQ(Mixer.GetMixerId(), -1);
  EXPECT_EQ(Mixer.GetLineCount(), 0u);
  EXPECT_EQ(Fader.GetMixerControl(), nullptr);
}

// The selection dialog is a system dialog over the device list, owned by the
// application's topmost window, which need not be its active one.
TEST(SystemMixerWinmm, TheSelectionDialogIsOwnedByTheTopmostWindow) {
  const auto MakeWindow = [] {
    return CreateWindowExW(0, L"STATIC", L"Quorvel mixer test", WS_OVERLAPPEDWINDOW | WS_VISIBLE, 10, 10, 200, 100,
                           nullptr, nullptr, GetModuleHandleW(nullptr), nullptr);
  };
  const HWND Below = MakeWindow();
  const HWND Active = MakeWindow();
  ASSERT_TRUE(Below && Active);
  SetActiveWindow(Active);
  SetWindowPos(Below, HWND_TOP, 0, 0, 0, 0, SWP_NOMOVE | SWP_NOSIZE | SWP_NOACTIVATE);
  ASSERT_EQ(TKBDeviceListForm::ApplicationTopmostWindow(), Below);

  TSRSystemMixer Mixer;
  const std::vector<std::string> Devices = Mixer.GetDevice().GetDeviceList();
  if (Devices.empty()) GTEST_SKIP() << "no mixer devices";
  HWND Owner = nullptr;
  LRESULT Count = -1;
  WPARAM Command = IDCANCEL;
  TKBDeviceListForm::SetShownHook([&](void* Window) {
    const HWND Dialog = static_cast<HWND>(Window);
    Owner = GetWindow(Dialog, GW_OWNER);
    Count = SendDlgItemMessageW(Dialog, TKBDeviceListForm::ListBoxId, LB_GETCOUNT, 0, 0);
    SendDlgItemMessageW(Dialog, TKBDeviceListForm::ListBoxId, LB_SETCURSEL, Devices.size() - 1, 0);
    PostMessageW(Dialog, WM_COMMAND, Command, 0);
  });
  EXPECT_FALSE(Mixer.GetDevice().ShowDeviceSelctDialog());
  EXPECT_EQ(Owner, Below);
  EXPECT_EQ(Count, LRESULT(Devices.size()));
  EXPECT_EQ(Mixer.GetMixerId(), -1);

  // Confirmed: the choice becomes the name, which opens that device.
  Command = IDOK;
  EXPECT_TRUE(Mixer.GetDevice().ShowDeviceSelctDialog());
  TKBDeviceListForm::SetShownHook(nullptr);
  EXPECT_EQ(Mixer.GetDevice().GetName(), Devices.back());
  EXPECT_EQ(Mixer.GetMixerId(), static_cast<int32_t>(Devices.size() - 1));
  DestroyWindow(Active);
  DestroyWindow(Below);
}

}  // namespace
