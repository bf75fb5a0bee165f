// The device property's own state: display names, copying, change
// notification and when the alternatives are worth storing.
#include "asio/Srasiodevice.h"

#include <gtest/gtest.h>

#include <thread>

namespace Quorvel {
namespace {

const TGUID SomeId{0x12345678, 0x9ABC, 0xDEF0, {1, 2, 3, 4, 5, 6, 7, 8}};

TEST(Srasiodevice, ChangesNotifyTheOwnerOnlyWhenAValueChanges) {
  TWBComponent Owner;
  int Changes = 0;
  TSRASIODevice Device(&Owner, [&](TSRASIODevice& Sender) {
    EXPECT_EQ(&Sender, &Device);
    ++Changes;
  });
  EXPECT_EQ(Device.GetDeviceName(), "");
  EXPECT_TRUE(ASIOIsNullID(Device.GetDriverID()));
  Device.SetDeviceName("Card");
  Device.SetDeviceName("Card");
  Device.SetDriverID(SomeId);
  Device.SetDriverID(SomeId);
  EXPECT_EQ(Changes, 2);
  EXPECT_FALSE(Device.ShouldStoreAlternativeDevices());
  // Changing the alternatives is a change of the device too.
  TSRASIODeviceItem& Item = Device.GetAlternativeDevices().Add();
  EXPECT_EQ(Changes, 3);
  Item.SetDeviceName("Other");
  Item.SetDeviceName("Other");
  EXPECT_EQ(Changes, 4);
  EXPECT_TRUE(Device.ShouldStoreAlternativeDevices());
  Device.GetAlternativeDevices().Clear();
  EXPECT_EQ(Changes, 5);
  EXPECT_FALSE(Device.ShouldStoreAlternativeDevices());

  // The setters take the owner's lock: another thread waits for it.
  Owner.GetLock().Enter();
  std::thread Setter([&] { Device.SetDeviceName("Later"); });
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_EQ(Changes, 5);
  Owner.GetLock().Leave();
  Setter.join();
  EXPECT_EQ(Device.GetDeviceName(), "Later");
  EXPECT_EQ(Changes, 6);
}

TEST(Srasiodevice, ItemsShowTheirNameAndCopyNameAndIdentifier) {
  TSRASIODevice Device(nullptr);
  TSRASIODeviceItems& Items = Device.GetAlternativeDevices();
  TSRASIODeviceItem& First = Items.Add();
  First.SetDeviceName("");
  EXPECT_EQ(First.GetDisplayName(), "(Unselected)");
  First.SetDeviceName("Card A");
  First.SetDriverID(SomeId);
  EXPECT_EQ(First.GetDisplayName(), "Card A");

  TSRASIODeviceItem& Second = Items.Add();
  EXPECT_TRUE(Second.Assign(First));
  EXPECT_EQ(Second.GetDeviceName(), "Card A");
  EXPECT_EQ(Second.GetDriverID(), SomeId);
  EXPECT_EQ(Second.GetIndex(), 1);
  // Other kinds of source are refused and change nothing.
  TWBPersistent Unrelated(nullptr);
  EXPECT_FALSE(Second.Assign(Unrelated));
  EXPECT_EQ(Second.GetDeviceName(), "Card A");

  // Copying a whole device copies its alternatives as independent items.
  TSRASIODevice Copy(nullptr);
  Device.SetDeviceName("Main");
  ASSERT_TRUE(Copy.Assign(Device));
  EXPECT_EQ(Copy.GetDeviceName(), "Main");
  ASSERT_EQ(Copy.GetAlternativeDevices().GetCount(), 2);
  EXPECT_EQ(Copy.GetAlternativeDevices().GetItem(1).GetDriverID(), SomeId);
  First.SetDeviceName("Changed");
  EXPECT_EQ(Copy.GetAlternativeDevices().GetItem(0).GetDeviceName(), "Card A");
  EXPECT_EQ(&Copy.GetAlternativeDevices().GetItem(0).GetCollection(), &Copy.GetAlternativeDevices());
  Items.Delete(0);
  EXPECT_EQ(Items.GetCount(), 1);
  EXPECT_EQ(Second.GetIndex(), 0);
}

}  // namespace
}  // namespace Quorvel
