// Finding and opening drivers through the real registry and COM, and the
// selection dialog as a real system dialog. The test writes keys of its own
// under HKLM\Software\ASIO; the test driver is registered by the build's
// fixture (regsvr32 in the Wine prefix).
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <thread>
#include <vector>

#include "asio/Asiointerface.h"
#include "asio/Srasiodevice.h"
#include "platform/Kbdevicelistform.h"
#include "testplugins/asio/Qvtestasio.h"

// After the frame's headers, whose wave-format constants the system's
// headers would otherwise turn into macros first.
#include <objbase.h>
#include <windows.h>

namespace Quorvel {
namespace {

// A driver key of the test's own, deleted again at the end of the test.
class TTestKey {
 public:
  explicit TTestKey(const std::wstring& Name) : FPath(L"Software\\ASIO\\" + Name) {
    RegDeleteKeyW(HKEY_LOCAL_MACHINE, FPath.c_str());  // left over from an aborted run
    EXPECT_EQ(RegCreateKeyExW(HKEY_LOCAL_MACHINE, FPath.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &FKey,
                              nullptr),
              ERROR_SUCCESS);
  }
  ~TTestKey() {
    RegCloseKey(FKey);
    RegDeleteKeyW(HKEY_LOCAL_MACHINE, FPath.c_str());
  }
  void SetText(const wchar_t* Value, const std::wstring& Text) {
    RegSetValueExW(FKey, Value, 0, REG_SZ, reinterpret_cast<const BYTE*>(Text.c_str()),
                   DWORD((Text.size() + 1) * sizeof(wchar_t)));
  }
  void SetNumber(const wchar_t* Value, DWORD Number) {
    RegSetValueExW(FKey, Value, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&Number), sizeof(Number));
  }

 private:
  std::wstring FPath;
  HKEY FKey = nullptr;
};

class AsioRegistry : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(ASIOInitializeComForThisThread()); }
  void TearDown() override {
    TKBDeviceListForm::SetChooser(nullptr);
    TKBDeviceListForm::SetShownHook(nullptr);
  }
  static std::vector<std::string> Names() {
    std::vector<std::string> Result;
    EXPECT_TRUE(ASIOGetDriverNames(&Result));
    return Result;
  }
  static bool Contains(const std::vector<std::string>& List, const std::string& Name) {
    return std::count(List.begin(), List.end(), Name) == 1;
  }
};

TEST_F(AsioRegistry, KeysWithoutAUsableClassAreListedButOpenNothing) {
  TTestKey NoValue(L"Quorvel Key No Value");
  TTestKey NotAGuid(L"Quorvel Key Not A Guid");
  NotAGuid.SetText(L"clsid", L"Quorvel Key");
  TTestKey Number(L"Quorvel Key Number");
  Number.SetNumber(L"clsid", 42);
  TTestKey Unregistered(L"Quorvel Key Unregistered \u00e9");
  Unregistered.SetText(L"CLSID", L"{6B1B3C7E-0F0D-4C55-9E1A-2B7D5A9C0E11}");  // value names ignore case

  const std::vector<std::string> Listed = Names();
  for (const char* Name : {"Quorvel Key No Value", "Quorvel Key Not A Guid", "Quorvel Key Number",
                           "Quorvel Key Unregistered \xC3\xA9"})
    EXPECT_TRUE(Contains(Listed, Name)) << Name;
  EXPECT_FALSE(ASIOGetDriverNames(nullptr));

  for (const char* Name : {"Quorvel Key No Value", "Quorvel Key Not A Guid", "Quorvel Key Number",
                           "Quorvel No Such Key", ""}) {
    EXPECT_TRUE(ASIOIsNullID(ASIOGetDriverIDByname(Name))) << Name;
    EXPECT_FALSE(ASIOOpenDriverByname(Name)) << Name;
  }
  // A well-formed identifier of no registered class: known id, no driver.
  const TGUID Id = ASIOGetDriverIDByname("Quorvel Key Unregistered \xC3\xA9");
  EXPECT_EQ(Id.D1, 0x6B1B3C7Eu);
  EXPECT_EQ(Id.D4[7], 0x11);
  EXPECT_FALSE(ASIOOpenDriverByname("Quorvel Key Unregistered \xC3\xA9"));
  EXPECT_FALSE(ASIOOpenDriver(Id));
}

TEST_F(AsioRegistry, ApartmentDriversNeedASingleThreadedApartment) {
  // Slot 0 is registered "Apartment", slot 1 "Both".
  bool ApartmentOpened = true, BothOpened = false, Changed = true;
  std::thread Worker([&] {
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    Changed = ASIOInitializeComForThisThread();  // COM keeps the thread multithreaded
    ApartmentOpened = bool(ASIOOpenDriver(QvTestAsioClsids[0]));
    BothOpened = bool(ASIOOpenDriver(QvTestAsioClsids[1]));
    CoUninitialize();
  });
  Worker.join();
  EXPECT_FALSE(Changed);
  EXPECT_FALSE(ApartmentOpened);
  EXPECT_TRUE(BothOpened);
  // The same driver opens on a thread the helper made an apartment.
  bool Opened = false;
  std::thread Apartment([&] {
    if (ASIOInitializeComForThisThread() && ASIOInitializeComForThisThread())  // twice is harmless
      Opened = bool(ASIOOpenDriver(QvTestAsioClsids[0]));
  });
  Apartment.join();
  EXPECT_TRUE(Opened);
}

TEST_F(AsioRegistry, SelectionDialogIsASystemDialogOverTheDriverList) {
  TTestKey KeyA(L"Quorvel Key Dialog A");
  TTestKey KeyB(L"Quorvel Key Dialog B");
  const std::vector<std::string> Listed = Names();
  const auto IndexOf = [&](const std::string& Name) {
    return int(std::find(Listed.begin(), Listed.end(), Name) - Listed.begin());
  };
  TSRASIODevice Device(nullptr);
  Device.SetDeviceName("Quorvel Key Dialog A");

  struct TSeen {
    bool Shown = false;
    std::wstring Caption;
    LRESULT Count = -1;
    LRESULT Selected = -1;
  } Seen;
  // Reads the dialog, selects Select and presses Command.
  const auto Drive = [&](int Select, WPARAM Command) {
    TKBDeviceListForm::SetShownHook([&Seen, Select, Command](void* Window) {
      const HWND Dialog = static_cast<HWND>(Window);
      Seen.Shown = IsWindowVisible(Dialog) != FALSE;
      wchar_t Caption[128] = {};
      GetWindowTextW(Dialog, Caption, 128);
      Seen.Caption = Caption;
      Seen.Count = SendDlgItemMessageW(Dialog, TKBDeviceListForm::ListBoxId, LB_GETCOUNT, 0, 0);
      Seen.Selected = SendDlgItemMessageW(Dialog, TKBDeviceListForm::ListBoxId, LB_GETCURSEL, 0, 0);
      SendDlgItemMessageW(Dialog, TKBDeviceListForm::ListBoxId, LB_SETCURSEL, WPARAM(Select), 0);
      PostMessageW(Dialog, WM_COMMAND, Command, 0);
    });
  };

  Drive(IndexOf("Quorvel Key Dialog B"), IDCANCEL);
  EXPECT_FALSE(Device.ShowDeviceSelctDialog());
  EXPECT_TRUE(Seen.Shown);
  EXPECT_EQ(Seen.Caption, L"Select ASIO Driver");
  EXPECT_EQ(Seen.Count, LRESULT(Listed.size()));
  EXPECT_EQ(Seen.Selected, IndexOf("Quorvel Key Dialog A"));  // the current name, preselected
  EXPECT_EQ(Device.GetDeviceName(), "Quorvel Key Dialog A");

  Drive(IndexOf("Quorvel Key Dialog B"), IDOK);
  EXPECT_TRUE(Device.ShowDeviceSelctDialog());
  EXPECT_EQ(Device.GetDeviceName(), "Quorvel Key Dialog B");

  // A double click in the list confirms too.
  Drive(IndexOf("Quorvel Key Dialog A"), MAKEWPARAM(TKBDeviceListForm::ListBoxId, LBN_DBLCLK));
  EXPECT_TRUE(Device.ShowDeviceSelctDialog());
  EXPECT_EQ(Device.GetDeviceName(), "Quorvel Key Dialog A");

  // OK with nothing selected is no choice.
  Drive(-1, IDOK);
  EXPECT_FALSE(Device.ShowDeviceSelctDialog());
  EXPECT_EQ(Device.GetDeviceName(), "Quorvel Key Dialog A");
}

}  // namespace
}  // namespace Quorvel
