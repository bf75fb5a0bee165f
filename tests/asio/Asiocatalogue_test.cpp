// Finding, opening and choosing drivers over the in-process driver catalogue
// (builds without registry and COM), with driver doubles as the classes.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "asio/Asiointerface.h"
#include "asio/Srasiodevice.h"
#include "platform/Asiodrivers.h"
#include "platform/Kbdevicelistform.h"
#include "tests/asio/Fakeasiodriver.h"

namespace Quorvel {
namespace {

using namespace Asiodrivers;
using Testing::TFakeAsioDriver;

const TGUID ClsidA{0xA0000001, 0x1, 0x2, {1, 2, 3, 4, 5, 6, 7, 8}};
const TGUID ClsidB{0xB0000002, 0x1, 0x2, {1, 2, 3, 4, 5, 6, 7, 8}};
const TGUID ClsidC{0xC0000003, 0xABCD, 0xEF01, {0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF, 0x01}};
const std::string TextA = "{A0000001-0001-0002-0102-030405060708}";
const std::string TextB = "{b0000002-0001-0002-0102-030405060708}";  // lower case converts too
const std::string TextC = "{C0000003-ABCD-EF01-2345-6789ABCDEF01}";

class AsioCatalogue : public ::testing::Test {
 protected:
  void SetUp() override { CatalogueClear(); }
  void TearDown() override {
    CatalogueClear();
    TKBDeviceListForm::SetChooser(nullptr);
    EXPECT_EQ(TFakeAsioDriver::Live, 0) << "a driver double was not released";
  }
  // Installs a driver double under Name.
  static void Install(const std::string& Name, const TGUID& Clsid, const std::string& Text) {
    CatalogueAddKey(Name, &Text);
    CatalogueRegisterClass(Clsid, [Clsid, Name](const TGUID& Iid) { return TFakeAsioDriver::Create(Clsid, Name, Iid); });
  }
  static void InstallThree() {
    Install("Zeta", ClsidA, TextA);
    Install("Alpha", ClsidB, TextB);
    Install("Mid", ClsidC, TextC);
  }
  static std::string NameOf(const IASIORef& Driver) { return Driver ? ASIOGetDriverName(Driver.Get()) : "(none)"; }
};

TEST_F(AsioCatalogue, DriverNamesInKeyOrderRootMissingOrEmpty) {
  std::vector<std::string> Names{"kept"};
  EXPECT_TRUE(ASIOGetDriverNames(&Names));  // the root exists and is empty
  EXPECT_EQ(Names, std::vector<std::string>{"kept"});
  EXPECT_FALSE(ASIOGetDriverNames(nullptr));

  InstallThree();
  CatalogueAddKey("Alpha", &TextB);  // an existing key keeps its place
  EXPECT_TRUE(ASIOGetDriverNames(&Names));
  EXPECT_EQ(Names, (std::vector<std::string>{"kept", "Zeta", "Alpha", "Mid"}));  // appended, not sorted

  CatalogueSetRootPresent(false);
  Names.clear();
  EXPECT_FALSE(ASIOGetDriverNames(&Names));
  EXPECT_TRUE(Names.empty());
  EXPECT_TRUE(ASIOIsNullID(ASIOGetDriverIDByname("Zeta")));
  EXPECT_FALSE(ASIOOpenDriverByname("Zeta"));
  TSRASIODevice Device(nullptr);
  EXPECT_TRUE(Device.GetDeviceList().empty());
}

TEST_F(AsioCatalogue, KeysWithoutAUsableClassOpenNothing) {
  const std::string NotAGuid = "Zeta";
  const std::string Unbraced = "A0000001-0001-0002-0102-030405060708";
  const std::string BadDigit = "{A0000001-0001-0002-0102-03040506070G}";
  const std::string Unregistered = "{DEADBEEF-0001-0002-0102-030405060708}";
  CatalogueAddKey("No value", nullptr);
  CatalogueAddKey("Not a guid", &NotAGuid);
  CatalogueAddKey("Unbraced", &Unbraced);
  CatalogueAddKey("Bad digit", &BadDigit);
  CatalogueAddKey("Unregistered", &Unregistered);
  for (const char* Name : {"No value", "Not a guid", "Unbraced", "Bad digit", "No such key", ""}) {
    EXPECT_TRUE(ASIOIsNullID(ASIOGetDriverIDByname(Name))) << Name;
    EXPECT_FALSE(ASIOOpenDriverByname(Name)) << Name;
  }
  // A well-formed identifier of no registered class: known id, no driver.
  const TGUID Id = ASIOGetDriverIDByname("Unregistered");
  EXPECT_EQ(Id.D1, 0xDEADBEEFu);
  EXPECT_EQ(Id.D4[7], 0x08);
  EXPECT_FALSE(ASIOOpenDriverByname("Unregistered"));
  EXPECT_FALSE(ASIOOpenDriver(Id));
  EXPECT_FALSE(ASIOOpenDriver(TGUID{}));
  // A class whose factory fails or throws opens nothing either.
  CatalogueRegisterClass(Id, [](const TGUID&) -> void* { throw 1; });
  EXPECT_FALSE(ASIOOpenDriverByname("Unregistered"));
  // A class that does not answer its own CLSID as interface is no driver.
  CatalogueRegisterClass(Id, [](const TGUID& Iid) { return TFakeAsioDriver::Create(ClsidA, "Other", Iid); });
  EXPECT_FALSE(ASIOOpenDriver(Id));
}

TEST_F(AsioCatalogue, OpensByNameOrByIdentifierAndReleasesTheDriver) {
  InstallThree();
  TGUID Id = ASIOGetDriverIDByname("mid");  // key names ignore case, as the registry's do
  EXPECT_EQ(Id, ClsidC);
  EXPECT_EQ(ASIOGetDriverIDByname("Alpha"), ClsidB);
  {
    IASIORef ByName = ASIOOpenDriverByname("Alpha");
    IASIORef ById = ASIOOpenDriver(ClsidA);
    EXPECT_EQ(NameOf(ByName), "Alpha");
    EXPECT_EQ(NameOf(ById), "Zeta");
    EXPECT_EQ(static_cast<TFakeAsioDriver*>(ByName.Get())->RefCount(), 1u);  // ours only
    EXPECT_EQ(TFakeAsioDriver::Live, 2);
  }
  EXPECT_EQ(TFakeAsioDriver::Live, 0);
  CatalogueRemoveKey("Alpha");
  EXPECT_FALSE(ASIOOpenDriverByname("Alpha"));
  EXPECT_EQ(NameOf(ASIOOpenDriver(ClsidB)), "Alpha");  // the class is still there
  CatalogueUnregisterClass(ClsidB);
  EXPECT_FALSE(ASIOOpenDriver(ClsidB));
}

TEST_F(AsioCatalogue, DeviceOpensByIdentifierFirstThenNameThenAlternatives) {
  InstallThree();
  TSRASIODevice Device(nullptr);
  EXPECT_FALSE(Device.GetDevice());  // nothing selected, no alternatives

  Device.SetDeviceName("Alpha");
  EXPECT_EQ(NameOf(Device.GetDevice()), "Alpha");
  // A set identifier wins over the name.
  Device.SetDriverID(ClsidC);
  EXPECT_EQ(NameOf(Device.GetDevice()), "Mid");

  // The main choice fails: the alternatives are tried in order, each by its
  // identifier when set, else by its name.
  Device.SetDriverID(TGUID{0x1, 0, 0, {}});
  TSRASIODeviceItems& Alternatives = Device.GetAlternativeDevices();
  TSRASIODeviceItem& Broken = Alternatives.Add();
  Broken.SetDeviceName("No such driver");
  TSRASIODeviceItem& ById = Alternatives.Add();
  ById.SetDeviceName("No such driver either");
  ById.SetDriverID(ClsidA);
  TSRASIODeviceItem& ByName = Alternatives.Add();
  ByName.SetDeviceName("Alpha");
  EXPECT_EQ(NameOf(Device.GetDevice()), "Zeta");
  Alternatives.Delete(ById.GetIndex());
  EXPECT_EQ(NameOf(Device.GetDevice()), "Alpha");
  CatalogueRemoveKey("Alpha");
  EXPECT_FALSE(Device.GetDevice());
}

TEST_F(AsioCatalogue, NewItemsTakeTheLeastUsedDriver) {
  TSRASIODevice Device(nullptr);
  TSRASIODeviceItems& Items = Device.GetAlternativeDevices();
  EXPECT_EQ(Items.GetNewDevice(), "");  // no drivers
  EXPECT_EQ(Items.Add().GetDeviceName(), "");
  Items.Clear();

  InstallThree();  // Zeta, Alpha, Mid
  // All counts equal: the first name.
  EXPECT_EQ(Items.GetNewDevice(), "Zeta");
  // New items spread over the drivers in list order.
  EXPECT_EQ(Items.Add().GetDeviceName(), "Zeta");
  EXPECT_EQ(Items.Add().GetDeviceName(), "Alpha");
  EXPECT_EQ(Items.Add().GetDeviceName(), "Mid");
  EXPECT_EQ(Items.Add().GetDeviceName(), "Zeta");
  // First used twice, second once: the third.
  Items.GetItem(2).SetDeviceName("Alpha");  // Zeta, Alpha, Alpha, Zeta
  EXPECT_EQ(Items.GetCountChannelsOfDevice("Zeta"), 2);
  EXPECT_EQ(Items.GetCountChannelsOfDevice("zeta"), 0);  // exact comparison
  EXPECT_EQ(Items.GetNewDevice(), "Mid");
  // Ties go to the earlier name: Zeta 2, Alpha 1, Mid 1.
  Items.GetItem(2).SetDeviceName("Mid");
  EXPECT_EQ(Items.GetNewDevice(), "Alpha");
}

TEST_F(AsioCatalogue, SelectionDialogOffersTheDriversAndChangesOnlyOnConfirmation) {
  InstallThree();
  int Changes = 0;
  TSRASIODevice Device(nullptr, [&](TSRASIODevice&) { ++Changes; });
  Device.SetDeviceName("Alpha");
  ASSERT_EQ(Changes, 1);

  std::vector<std::string> Offered;
  int Preselected = -2;
  int Answer = -1;
  TKBDeviceListForm::SetChooser([&](const TKBDeviceListForm& Form) {
    Offered = Form.GetItems();
    Preselected = Form.GetPreselectedIndex();
    return Answer;
  });
  EXPECT_FALSE(Device.ShowDeviceSelctDialog());  // cancelled
  EXPECT_EQ(Offered, (std::vector<std::string>{"Zeta", "Alpha", "Mid"}));
  EXPECT_EQ(Preselected, 1);
  EXPECT_EQ(Device.GetDeviceName(), "Alpha");
  EXPECT_EQ(Changes, 1);

  Answer = 2;
  EXPECT_TRUE(Device.ShowDeviceSelctDialog());
  EXPECT_EQ(Device.GetDeviceName(), "Mid");
  EXPECT_EQ(Changes, 2);

  // Items offer the same dialog; an empty name preselects nothing.
  TSRASIODeviceItem& Item = Device.GetAlternativeDevices().Add();
  Item.SetDeviceName("");
  Answer = 0;
  EXPECT_TRUE(Item.ShowDeviceSelctDialog());
  EXPECT_EQ(Preselected, -1);
  EXPECT_EQ(Item.GetDeviceName(), "Zeta");
  Answer = 7;  // no such item: as cancelled
  EXPECT_FALSE(Item.ShowDeviceSelctDialog());
  EXPECT_EQ(Item.GetDeviceName(), "Zeta");

  // Without a chooser there is no dialog here, and the answer is cancel.
  TKBDeviceListForm::SetChooser(nullptr);
  EXPECT_FALSE(Device.ShowDeviceSelctDialog());
  EXPECT_EQ(Device.GetDeviceName(), "Mid");

  std::vector<std::string> Strings{"old"};
  Device.GetDeviceList(Strings);
  EXPECT_EQ(Strings, (std::vector<std::string>{"Zeta", "Alpha", "Mid"}));
}

}  // namespace
}  // namespace Quorvel
