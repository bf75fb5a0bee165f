// The persistent "device" property of ASIO components: which installed
// driver to open (by key name or by class identifier), alternatives to try
// when it cannot be opened, and the dialog that picks a driver by name.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "asio/Asiointerface.h"
#include "frame/Wbcomponent.h"

namespace Quorvel {

class TSRASIODeviceItems;

// One alternative driver: a key name and an optional class identifier.
class TSRASIODeviceItem : public TWBPersistent {
 public:
  // Made by TSRASIODeviceItems::Add; belongs to that collection.
  explicit TSRASIODeviceItem(TSRASIODeviceItems& Collection);

  TSRASIODeviceItems& GetCollection() const { return FCollection; }
  int GetIndex() const;                                  // [main thread] position in the collection

  std::string GetDeviceName() const;                     // [main thread]
  void SetDeviceName(const std::string& Value);          // [main thread] notifies the collection
  TGUID GetDriverID() const;                             // [main thread] all zero: none
  void SetDriverID(const TGUID& Value);                  // [main thread] notifies the collection
  // DeviceName, or "(Unselected)" when it is empty.
  std::string GetDisplayName() const;

  // Copies the device name and, from another TSRASIODeviceItem, the driver
  // identifier. False (nothing copied) for any other kind of source.
  bool Assign(const TWBPersistent& Source) override;

  // [main thread] Installed driver names, as ASIOGetDriverNames lists them.
  std::vector<std::string> GetDeviceList() const;
  // [main thread] Replaces the content of Strings with that list.
  void GetDeviceList(std::vector<std::string>& Strings) const;
  // [main thread] Lets the user pick a driver name; true and DeviceName set
  // when confirmed, false and nothing changed on cancel.
  bool ShowDeviceSelctDialog();

 private:
  friend class TSRASIODeviceItems;
  TSRASIODeviceItems& FCollection;
  std::string FDeviceName;
  TGUID FDriverID{};
};

// The alternatives, an owned, ordered collection guarded by the owner
// component's lock (its own lock without an owner).
class TSRASIODeviceItems : public TWBPersistent {
 public:
  using TChangeProc = std::function<void(TSRASIODeviceItems& Sender)>;
  explicit TSRASIODeviceItems(TWBComponent* Owner, TChangeProc OnChange = nullptr);
  ~TSRASIODeviceItems() override;

  int GetCount() const;                                  // [main thread]
  TSRASIODeviceItem& GetItem(int Index) const;           // [main thread] 0 <= Index < GetCount()
  // [main thread] Appends a new item named by GetNewDevice (NewItemCreated).
  TSRASIODeviceItem& Add();
  void Delete(int Index);                                // [main thread]
  void Clear();                                          // [main thread]
  // Replaces the items with copies of another collection's.
  bool Assign(const TWBPersistent& Source) override;

  // [main thread] The driver name for a new item: the first installed driver
  // used by the fewest items (counts start from a ceiling of 22000, and a
  // later name wins only with a strictly lower count). Empty without drivers.
  std::string GetNewDevice() const;
  // [main thread] How many items have exactly this DeviceName.
  int GetCountChannelsOfDevice(const std::string& Name) const;

  Threading::ICriticalSection& GetLock() const;

 protected:
  // Gives a new item its driver name.
  virtual void NewItemCreated(TSRASIODeviceItem& Item);

 private:
  friend class TSRASIODeviceItem;
  void Changed();
  TChangeProc FOnChange;
  mutable Threading::TCriticalSection FOwnLock;
  std::vector<std::unique_ptr<TSRASIODeviceItem>> FItems;
};

// The device property a component owns.
class TSRASIODevice : public TWBPersistent {
 public:
  // OnChange runs after DeviceName, the driver identifier or the alternatives
  // changed, outside the lock: the owning component closes or reopens there.
  using TChangeProc = std::function<void(TSRASIODevice& Sender)>;
  explicit TSRASIODevice(TWBComponent* Owner, TChangeProc OnChange = nullptr);

  std::string GetDeviceName() const;                     // [main thread] a driver key name
  void SetDeviceName(const std::string& Value);          // [main thread] notifies when it changes
  TGUID GetDriverID() const;                             // [main thread] all zero: none
  void SetDriverID(const TGUID& Value);                  // [main thread] notifies when it changes
  TSRASIODeviceItems& GetAlternativeDevices() { return FAlternativeDevices; }
  const TSRASIODeviceItems& GetAlternativeDevices() const { return FAlternativeDevices; }
  void SetAlternativeDevices(const TSRASIODeviceItems& Value) { FAlternativeDevices.Assign(Value); }
  // Persisted forms store AlternativeDevices only when it has items.
  bool ShouldStoreAlternativeDevices() const { return FAlternativeDevices.GetCount() > 0; }

  bool Assign(const TWBPersistent& Source) override;

  // [main thread] Installed driver names, as ASIOGetDriverNames lists them.
  std::vector<std::string> GetDeviceList() const;
  // [main thread] Replaces the content of Strings with that list.
  void GetDeviceList(std::vector<std::string>& Strings) const;
  // [main thread] Opens the driver: by identifier when it is set, else by
  // DeviceName; failing that, each alternative in order (by its identifier
  // when set, else by its name) until one opens. Null when none does.
  IASIORef GetDevice() const;
  // [main thread] Lets the user pick a driver name (the current one shown
  // selected); true and SetDeviceName called when confirmed, false and
  // nothing changed on cancel.
  bool ShowDeviceSelctDialog();

 private:
  Threading::ICriticalSection& GetLock() const;
  void Changed();
  TChangeProc FOnChange;
  mutable Threading::TCriticalSection FOwnLock;
  std::string FDeviceName;
  TGUID FDriverID{};
  TSRASIODeviceItems FAlternativeDevices;
};

}  // namespace Quorvel
