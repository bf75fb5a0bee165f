// The device property, its alternatives and the driver selection dialog.
#include "asio/Srasiodevice.h"

#include "platform/Kbdevicelistform.h"

namespace Quorvel {

using Threading::TLockGuard;

namespace {

std::vector<std::string> InstalledDrivers() {
  std::vector<std::string> Names;
  ASIOGetDriverNames(&Names);
  return Names;
}

// Runs the shared device list dialog over the installed drivers.
bool ChooseDriver(const std::string& Current, std::string& Chosen) {
  TKBDeviceListForm Form;
  Form.SetCaption("Select ASIO Driver");
  Form.SetItems(InstalledDrivers());
  Form.SetPreselected(Current);
  if (!Form.Execute()) return false;
  Chosen = Form.GetSelected();
  return true;
}

// Opens by identifier when one is set, else by name.
IASIORef OpenDriver(const TGUID& Id, const std::string& Name) {
  return ASIOIsNullID(Id) ? ASIOOpenDriverByname(Name) : ASIOOpenDriver(Id);
}

}  // namespace

// ---------------------------------------------------------------------------
// TSRASIODeviceItem

TSRASIODeviceItem::TSRASIODeviceItem(TSRASIODeviceItems& Collection)
    : TWBPersistent(Collection.GetOwner()), FCollection(Collection) {}

int TSRASIODeviceItem::GetIndex() const {
  TLockGuard G(FCollection.GetLock());
  for (size_t I = 0; I < FCollection.FItems.size(); ++I)
    if (FCollection.FItems[I].get() == this) return static_cast<int>(I);
  return -1;
}

std::string TSRASIODeviceItem::GetDeviceName() const {
  TLockGuard G(FCollection.GetLock());
  return FDeviceName;
}

void TSRASIODeviceItem::SetDeviceName(const std::string& Value) {
  {
    TLockGuard G(FCollection.GetLock());
    if (FDeviceName == Value) return;
    FDeviceName = Value;
  }
  FCollection.Changed();
}

TGUID TSRASIODeviceItem::GetDriverID() const {
  TLockGuard G(FCollection.GetLock());
  return FDriverID;
}

void TSRASIODeviceItem::SetDriverID(const TGUID& Value) {
  {
    TLockGuard G(FCollection.GetLock());
    if (FDriverID == Value) return;
    FDriverID = Value;
  }
  FCollection.Changed();
}

std::string TSRASIODeviceItem::GetDisplayName() const {
  const std::string Name = GetDeviceName();
  return Name.empty() ? "(Unselected)" : Name;
}

bool TSRASIODeviceItem::Assign(const TWBPersistent& Source) {
  const auto* Item = dynamic_cast<const TSRASIODeviceItem*>(&Source);
  if (!Item) return TWBPersistent::Assign(Source);
  if (Item == this) return true;
  const std::string Name = Item->GetDeviceName();
  const TGUID Id = Item->GetDriverID();
  {
    TLockGuard G(FCollection.GetLock());
    FDeviceName = Name;
    FDriverID = Id;
  }
  FCollection.Changed();
  return true;
}

std::vector<std::string> TSRASIODeviceItem::GetDeviceList() const { return InstalledDrivers(); }

void TSRASIODeviceItem::GetDeviceList(std::vector<std::string>& Strings) const { Strings = InstalledDrivers(); }

bool TSRASIODeviceItem::ShowDeviceSelctDialog() {
  std::string Chosen;
  if (!ChooseDriver(GetDeviceName(), Chosen)) return false;
  SetDeviceName(Chosen);
  return true;
}

// ---------------------------------------------------------------------------
// TSRASIODeviceItems

TSRASIODeviceItems::TSRASIODeviceItems(TWBComponent* Owner, TChangeProc OnChange)
    : TWBPersistent(Owner), FOnChange(std::move(OnChange)) {}

TSRASIODeviceItems::~TSRASIODeviceItems() = default;

Threading::ICriticalSection& TSRASIODeviceItems::GetLock() const {
  return GetOwner() ? GetOwner()->GetLock() : FOwnLock;
}

void TSRASIODeviceItems::Changed() {
  if (FOnChange) FOnChange(*this);
}

int TSRASIODeviceItems::GetCount() const {
  TLockGuard G(GetLock());
  return static_cast<int>(FItems.size());
}

TSRASIODeviceItem& TSRASIODeviceItems::GetItem(int Index) const {
  TLockGuard G(GetLock());
  return *FItems.at(static_cast<size_t>(Index));
}

TSRASIODeviceItem& TSRASIODeviceItems::Add() {
  TSRASIODeviceItem* Item;
  {
    TLockGuard G(GetLock());
    FItems.push_back(std::make_unique<TSRASIODeviceItem>(*this));
    Item = FItems.back().get();
    NewItemCreated(*Item);
  }
  Changed();
  return *Item;
}

void TSRASIODeviceItems::Delete(int Index) {
  {
    TLockGuard G(GetLock());
    FItems.erase(FItems.begin() + Index);
  }
  Changed();
}

void TSRASIODeviceItems::Clear() {
  {
    TLockGuard G(GetLock());
    if (FItems.empty()) return;
    FItems.clear();
  }
  Changed();
}

bool TSRASIODeviceItems::Assign(const TWBPersistent& Source) {
  const auto* Other = dynamic_cast<const TSRASIODeviceItems*>(&Source);
  if (!Other) return TWBPersistent::Assign(Source);
  if (Other == this) return true;
  std::vector<std::pair<std::string, TGUID>> Values;
  {
    TLockGuard G(Other->GetLock());
    for (const auto& Item : Other->FItems) Values.emplace_back(Item->FDeviceName, Item->FDriverID);
  }
  {
    TLockGuard G(GetLock());
    FItems.clear();
    for (const auto& V : Values) {
      FItems.push_back(std::make_unique<TSRASIODeviceItem>(*this));
      FItems.back()->FDeviceName = V.first;
      FItems.back()->FDriverID = V.second;
    }
  }
  Changed();
  return true;
}

std::string TSRASIODeviceItems::GetNewDevice() const {
  int Best = 22000;
  std::string Result;
  for (const std::string& Name : InstalledDrivers()) {
    const int Count = GetCountChannelsOfDevice(Name);
    if (Count < Best) {
      Best = Count;
      Result = Name;
    }
  }
  return Result;
}

int TSRASIODeviceItems::GetCountChannelsOfDevice(const std::string& Name) const {
  TLockGuard G(GetLock());
  int Count = 0;
  for (const auto& Item : FItems)
    if (Item->FDeviceName == Name) ++Count;
  return Count;
}

void TSRASIODeviceItems::NewItemCreated(TSRASIODeviceItem& Item) { Item.FDeviceName = GetNewDevice(); }

// ---------------------------------------------------------------------------
// TSRASIODevice

TSRASIODevice::TSRASIODevice(TWBComponent* Owner, TChangeProc OnChange)
    : TWBPersistent(Owner),
      FOnChange(std::move(OnChange)),
      FAlternativeDevices(Owner, [this](TSRASIODeviceItems&) { Changed(); }) {}

Threading::ICriticalSection& TSRASIODevice::GetLock() const { return GetOwner() ? GetOwner()->GetLock() : FOwnLock; }

void TSRASIODevice::Changed() {
  if (FOnChange) FOnChange(*this);
}

std::string TSRASIODevice::GetDeviceName() const {
  TLockGuard G(GetLock());
  return FDeviceName;
}

void TSRASIODevice::SetDeviceName(const std::string& Value) {
  {
    TLockGuard G(GetLock());
    if (FDeviceName == Value) return;
    FDeviceName = Value;
  }
  Changed();
}

TGUID TSRASIODevice::GetDriverID() const {
  TLockGuard G(GetLock());
  return FDriverID;
}

void TSRASIODevice::SetDriverID(const TGUID& Value) {
  {
    TLockGuard G(GetLock());
    if (FDriverID == Value) return;
    FDriverID = Value;
  }
  Changed();
}

bool TSRASIODevice::Assign(const TWBPersistent& Source) {
  const auto* Other = dynamic_cast<const TSRASIODevice*>(&Source);
  if (!Other) return TWBPersistent::Assign(Source);
  if (Other == this) return true;
  const std::string Name = Other->GetDeviceName();
  const TGUID Id = Other->GetDriverID();
  {
    TLockGuard G(GetLock());
    FDeviceName = Name;
    FDriverID = Id;
  }
  FAlternativeDevices.Assign(Other->FAlternativeDevices);  // notifies
  return true;
}

std::vector<std::string> TSRASIODevice::GetDeviceList() const { return InstalledDrivers(); }

void TSRASIODevice::GetDeviceList(std::vector<std::string>& Strings) const { Strings = InstalledDrivers(); }

IASIORef TSRASIODevice::GetDevice() const {
  TGUID Id;
  std::string Name;
  {
    TLockGuard G(GetLock());
    Id = FDriverID;
    Name = FDeviceName;
  }
  if (IASIORef Driver = OpenDriver(Id, Name)) return Driver;
  for (int I = 0; I < FAlternativeDevices.GetCount(); ++I) {
    const TSRASIODeviceItem& Item = FAlternativeDevices.GetItem(I);
    if (IASIORef Driver = OpenDriver(Item.GetDriverID(), Item.GetDeviceName())) return Driver;
  }
  return IASIORef();
}

bool TSRASIODevice::ShowDeviceSelctDialog() {
  std::string Chosen;
  if (!ChooseDriver(GetDeviceName(), Chosen)) return false;
  SetDeviceName(Chosen);
  return true;
}

}  // namespace Quorvel
