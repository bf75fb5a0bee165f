// Owned, index-addressed collections of items: each item knows its
// collection and its place in it and can move (SetIndex); the lockable item
// has a lock of its own for values read and written from other threads.
// A collection belongs to a component and is changed on the main thread,
// under that component's lock.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "frame/Threading.h"
#include "frame/Wbcomponent.h"
#include "frame/Wbpersistence.h"

namespace Quorvel {

class TWBCollectionBase;

class TWBCollectionItem : public TWBPersistent {
 public:
  explicit TWBCollectionItem(TWBCollectionBase& Collection);
  TWBCollectionBase& GetCollection() const { return FCollection; }
  // [main thread] Place in the collection; SetIndex moves the item there
  // (clamped to the collection), the others keep their order. An item that
  // keeps something in step with its place (a pin in a list) overrides it.
  int GetIndex() const;
  virtual void SetIndex(int Value);
  // [main thread] What lists show for the item; by default "<collection's
  // item name> <index>".
  virtual std::string GetDisplayName() const;
  std::string GetNamePath() const override;

 private:
  TWBCollectionBase& FCollection;
};

// An item whose values are guarded by a lock of its own, so that a stream or
// notification thread may read and write them while the main thread owns
// the collection.
class TLockCollectionItem : public TWBCollectionItem {
 public:
  using TWBCollectionItem::TWBCollectionItem;
  Threading::ICriticalSection& GetItemLock() const { return FItemLock; }

 private:
  mutable Threading::TCriticalSection FItemLock;
};

class TWBCollectionBase : public TWBPersistent {
 public:
  // ItemName names items in display names and messages ("Fader", "Channel").
  TWBCollectionBase(TWBComponent* Owner, std::string ItemName);
  ~TWBCollectionBase() override;
  size_t Count() const;
  TWBCollectionItem* GetItem(size_t Index) const;  // nullptr when out of range
  // [main thread] A new item at the end.
  TWBCollectionItem* AddItem();
  // [main thread] Removes the item at Index (ignored when out of range).
  void Delete(size_t Index);
  void Clear();
  // [main thread] Adds or removes items at the end until there are Value.
  void SetCount(size_t Value);
  int IndexOf(const TWBCollectionItem* Item) const;
  void Move(size_t From, size_t To);
  const std::string& GetItemName() const { return FItemName; }
  // Called after items were added, removed or moved.
  std::function<void(TWBCollectionBase& Sender)> OnChanged;

 protected:
  virtual std::unique_ptr<TWBCollectionItem> NewItem() = 0;

 private:
  void Changed();
  std::string FItemName;
  std::vector<std::unique_ptr<TWBCollectionItem>> FItems;
};

// A collection of items of class T (a TWBCollectionItem made from the collection).
template <typename T>
class TWBCollection : public TWBCollectionBase {
 public:
  using TWBCollectionBase::TWBCollectionBase;
  T* Add() { return static_cast<T*>(AddItem()); }
  T* Get(size_t Index) const { return static_cast<T*>(GetItem(Index)); }

 protected:
  std::unique_ptr<TWBCollectionItem> NewItem() override { return std::make_unique<T>(*this); }
};

// A published collection of C, reached through Accessor, whose items stream
// with ItemClass.
template <typename C, typename T>
TWBPropertyInfo CollectionProperty(const std::string& Name, TWBCollection<T>& (C::*Accessor)(),
                                   const TWBClassInfo& ItemClass) {
  return Collection<C>(
      Name, ItemClass, [Accessor](C& O) { return (O.*Accessor)().Count(); },
      [Accessor](C& O, size_t N, std::string&) {
        (O.*Accessor)().SetCount(N);
        return true;
      },
      [Accessor](C& O, size_t I) -> void* { return (O.*Accessor)().Get(I); });
}

}  // namespace Quorvel
