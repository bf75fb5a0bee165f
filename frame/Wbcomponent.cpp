#include "frame/Wbcomponent.h"

#include "frame/Wbpersistence.h"

#include <algorithm>

namespace Quorvel {

using Threading::TLockGuard;

TWBComponent::TWBComponent(TWBComponent* Owner) : FOwner(Owner) {
  if (FOwner) {
    TLockGuard G(FOwner->FLock);
    FOwner->FComponents.push_back(this);
  }
}

TWBComponent::~TWBComponent() {
  BeginDestroy();
  // Owned components go first, last created first.
  for (;;) {
    TWBComponent* Child = nullptr;
    {
      TLockGuard G(FLock);
      if (FComponents.empty()) break;
      Child = FComponents.back();
    }
    delete Child;  // removes itself from FComponents
  }
  if (FOwner) {
    TLockGuard G(FOwner->FLock);
    auto& V = FOwner->FComponents;
    V.erase(std::remove(V.begin(), V.end(), this), V.end());
  }
  Threading::RemoveMainThreadProcs(this);
}

size_t TWBComponent::GetComponentCount() const {
  TLockGuard G(FLock);
  return FComponents.size();
}

TWBComponent* TWBComponent::GetComponent(size_t Index) const {
  TLockGuard G(FLock);
  return Index < FComponents.size() ? FComponents[Index] : nullptr;
}

std::string TWBComponent::GetName() const {
  std::lock_guard<std::mutex> G(FNameLock);
  return FName;
}

void TWBComponent::SetName(const std::string& Name) {
  std::lock_guard<std::mutex> G(FNameLock);
  FName = Name;
}

TComponentState TWBComponent::GetComponentState() const { return TComponentState::FromMask(FState.load()); }

void TWBComponent::SetStateFlag(TComponentStateFlag Flag, bool On) {
  const uint32_t Bit = TComponentState::Bit(Flag);
  if (On)
    FState.fetch_or(Bit);
  else
    FState.fetch_and(~Bit);
}

void TWBComponent::SetDesigning(bool Value) { SetStateFlag(TComponentStateFlag::csDesigning, Value); }

const TWBClassInfo& TWBComponent::ClassInfo() {
  static const TWBClassInfo Info = MakeClassInfo(
      "TWBComponent", nullptr, {Property("Enabled", &TWBComponent::GetEnabled, &TWBComponent::SetEnabled, true)});
  return Info;
}

void TWBComponent::BeginLoading() { SetStateFlag(TComponentStateFlag::csLoading, true); }

void TWBComponent::EndLoading() {
  if (!IsLoading()) return;
  SetStateFlag(TComponentStateFlag::csLoading, false);
  Loaded();
}

bool TWBComponent::GetEnabled() const { return FEnabled.load(); }

void TWBComponent::SetEnabled(bool Value) {
  {
    TLockGuard G(FLock);
    if (FEnabled.exchange(Value) == Value) return;
  }
  EnabledChanged();
}

void TWBComponent::Error(const std::string& Text, int32_t Code) { ReportError(Text, Code); }

void TWBComponent::Warning(const std::string& Text, int32_t Code) { ReportWarning(Text, Code); }

void TWBComponent::ReportError(const std::string& Message, int32_t Code) {
  bool Handled = false;
  if (OnError) OnError(this, Message, Code, Handled);
  if (!Handled && !IsDesigning()) throw EWBException(EWBException::FormatError(Message, Code));
}

void TWBComponent::ReportWarning(const std::string& Message, int32_t Code) {
  if (OnWarning) OnWarning(this, Message, Code);
}

void TWBComponent::PinAdded(TPWBasicPin& Pin) {
  TLockGuard G(FLock);
  FPins.push_back(&Pin);
}

void TWBComponent::PinRemoved(TPWBasicPin& Pin) {
  TLockGuard G(FLock);
  FPins.erase(std::remove(FPins.begin(), FPins.end(), &Pin), FPins.end());
}

std::vector<TPWBasicPin*> TWBComponent::GetPins() const {
  TLockGuard G(FLock);
  return FPins;
}

void TWBComponent::BeginDestroy() {
  SetStateFlag(TComponentStateFlag::csDestroying, true);
  std::vector<TPWBasicPin*> Pins;
  {
    TLockGuard G(FLock);
    Pins = FPins;
  }
  // Disconnecting takes each upstream owner's lock, and waiting drains the
  // pull requests: afterwards no operation is inside one of our pins.
  for (TPWBasicPin* P : Pins) {
    P->DisconnectAll();
    P->WaitIdle();
  }
}

}  // namespace Quorvel
