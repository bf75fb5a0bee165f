#include "frame/Wbcollection.h"

#include <algorithm>

namespace Quorvel {

TWBCollectionItem::TWBCollectionItem(TWBCollectionBase& Collection)
    : TWBPersistent(Collection.GetOwner()), FCollection(Collection) {}

int TWBCollectionItem::GetIndex() const { return FCollection.IndexOf(this); }

void TWBCollectionItem::SetIndex(int Value) {
  const int Current = GetIndex();
  if (Current < 0 || FCollection.Count() == 0) return;
  const size_t To = static_cast<size_t>(std::clamp(Value, 0, static_cast<int>(FCollection.Count()) - 1));
  FCollection.Move(static_cast<size_t>(Current), To);
}

std::string TWBCollectionItem::GetDisplayName() const {
  return FCollection.GetItemName() + " " + std::to_string(GetIndex());
}

std::string TWBCollectionItem::GetNamePath() const {
  return TWBPersistent::GetNamePath() + "." + FCollection.GetItemName() + "[" + std::to_string(GetIndex()) + "]";
}

TWBCollectionBase::TWBCollectionBase(TWBComponent* Owner, std::string ItemName)
    : TWBPersistent(Owner), FItemName(std::move(ItemName)) {}

TWBCollectionBase::~TWBCollectionBase() {
  // Items go last first, as they were made.
  while (!FItems.empty()) FItems.pop_back();
}

size_t TWBCollectionBase::Count() const { return FItems.size(); }

TWBCollectionItem* TWBCollectionBase::GetItem(size_t Index) const {
  return Index < FItems.size() ? FItems[Index].get() : nullptr;
}

TWBCollectionItem* TWBCollectionBase::AddItem() {
  FItems.push_back(NewItem());
  TWBCollectionItem* Item = FItems.back().get();
  Changed();
  return Item;
}

void TWBCollectionBase::Delete(size_t Index) {
  if (Index >= FItems.size()) return;
  FItems.erase(FItems.begin() + static_cast<std::ptrdiff_t>(Index));
  Changed();
}

void TWBCollectionBase::Clear() {
  if (FItems.empty()) return;
  while (!FItems.empty()) FItems.pop_back();
  Changed();
}

void TWBCollectionBase::SetCount(size_t Value) {
  if (Value == FItems.size()) return;
  while (FItems.size() > Value) FItems.pop_back();
  while (FItems.size() < Value) FItems.push_back(NewItem());
  Changed();
}

int TWBCollectionBase::IndexOf(const TWBCollectionItem* Item) const {
  for (size_t I = 0; I < FItems.size(); ++I)
    if (FItems[I].get() == Item) return static_cast<int>(I);
  return -1;
}

void TWBCollectionBase::Move(size_t From, size_t To) {
  if (From >= FItems.size() || To >= FItems.size() || From == To) return;
  auto Item = std::move(FItems[From]);
  FItems.erase(FItems.begin() + static_cast<std::ptrdiff_t>(From));
  FItems.insert(FItems.begin() + static_cast<std::ptrdiff_t>(To), std::move(Item));
  Changed();
}

void TWBCollectionBase::Changed() {
  if (OnChanged) OnChanged(*this);
}

}  // namespace Quorvel
