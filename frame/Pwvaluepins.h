// Pins that carry control values instead of audio. A state pin holds a
// value, receives values from the pins connected to it and passes changes
// on; a source pin only sends. Ranged pins clamp to [Min, Max].
#pragma once

#include <atomic>
#include <functional>

#include "frame/Pwpins.h"

namespace Quorvel {

template <typename T, TPWPinCategory Category, TPWOperationID OperationID>
class TPWValuePin : public TPWBasicPin {
 public:
  using TValue = T;
  using TOperation = TPWValueOperation<T, OperationID>;
  // Fired when a value arrives from a connected pin and changes this pin's value.
  using TValueChanged = std::function<void(TPWValuePin& Pin, T Value)>;

  T GetValue() const { return FValue.load(std::memory_order_acquire); }  // [any thread]
  // [any thread] Stores the (clamped) value; when it changed, sends it on.
  void SetValue(T Value) {
    if (Store(Value)) SendValue();
  }
  // [any thread] Sends the current value to every connected pin.
  void SendValue() {
    TOperation Op(GetValue());
    Notify(Op);
  }
  T GetMin() const { return FMin.load(); }
  T GetMax() const { return FMax.load(); }
  bool IsRanged() const { return FRanged; }
  // [any thread] Changes the range; the value is clamped into it (and sent when that changes it).
  void SetRange(T Min, T Max) {
    if (!FRanged) return;
    if (Max < Min) std::swap(Min, Max);
    FMin = Min;
    FMax = Max;
    SetValue(GetValue());
  }
  void SetMin(T Min) { SetRange(Min, GetMax()); }
  void SetMax(T Max) { SetRange(GetMin(), Max); }

  TValueChanged OnValueChanged;

 protected:
  TPWValuePin(IPWPinOwner& Owner, std::string Name, TDirection Direction, T Initial, bool Ranged, T Min, T Max)
      : TPWBasicPin(Owner, std::move(Name), Category, Direction), FRanged(Ranged), FMin(Min), FMax(Max) {
    Store(Initial);
  }

  void Receive(TPWBasicPin& Source, TPWOperation& Operation, TPWNotifyStates& States) override {
    if (Operation.GetID() != OperationID) {
      TPWBasicPin::Receive(Source, Operation, States);
      return;
    }
    if (GetOwner().IsPinOwnerDestroying()) return;
    States.Include(TPWNotifyState::pnsHandled);
    if (!Store(static_cast<TOperation&>(Operation).GetValue())) return;
    if (OnValueChanged) OnValueChanged(*this, GetValue());
    SendValue();
  }

 private:
  // Answers whether the stored value changed.
  bool Store(T Value) {
    if (FRanged) {
      if (Value > FMax.load()) Value = FMax.load();
      if (Value < FMin.load()) Value = FMin.load();
    }
    return FValue.exchange(Value, std::memory_order_acq_rel) != Value;
  }

  const bool FRanged;
  std::atomic<T> FMin;
  std::atomic<T> FMax;
  std::atomic<T> FValue{T()};
};

using TPWIntegerPinBase = TPWValuePin<int64_t, TPWPinCategory::pcInteger, poidIntegerValue>;
using TPWBoolPinBase = TPWValuePin<bool, TPWPinCategory::pcBool, poidBoolValue>;
using TPWRealPinBase = TPWValuePin<double, TPWPinCategory::pcReal, poidRealValue>;

class TPWIntegerStatePin final : public TPWIntegerPinBase {
 public:
  TPWIntegerStatePin(IPWPinOwner& Owner, std::string Name, int64_t Initial = 0)
      : TPWIntegerPinBase(Owner, std::move(Name), TDirection::pdBoth, Initial, false, 0, 0) {}
};

class TPWIntAndRangedStatePin final : public TPWIntegerPinBase {
 public:
  TPWIntAndRangedStatePin(IPWPinOwner& Owner, std::string Name, int64_t Min, int64_t Max, int64_t Initial)
      : TPWIntegerPinBase(Owner, std::move(Name), TDirection::pdBoth, Initial, true, Min, Max) {}
};

class TPWBoolStatePin final : public TPWBoolPinBase {
 public:
  TPWBoolStatePin(IPWPinOwner& Owner, std::string Name, bool Initial = false)
      : TPWBoolPinBase(Owner, std::move(Name), TDirection::pdBoth, Initial, false, false, true) {}
};

class TPWIntRangedSourcePin final : public TPWIntegerPinBase {
 public:
  TPWIntRangedSourcePin(IPWPinOwner& Owner, std::string Name, int64_t Min, int64_t Max, int64_t Initial)
      : TPWIntegerPinBase(Owner, std::move(Name), TDirection::pdSource, Initial, true, Min, Max) {}
};

class TPWBoolSourcePin final : public TPWBoolPinBase {
 public:
  TPWBoolSourcePin(IPWPinOwner& Owner, std::string Name, bool Initial = false)
      : TPWBoolPinBase(Owner, std::move(Name), TDirection::pdSource, Initial, false, false, true) {}
};

class TPWRealRangedSourcePin final : public TPWRealPinBase {
 public:
  TPWRealRangedSourcePin(IPWPinOwner& Owner, std::string Name, double Min, double Max, double Initial)
      : TPWRealPinBase(Owner, std::move(Name), TDirection::pdSource, Initial, true, Min, Max) {}
};

// A real value in [Min, Max] that is both sent and received (a level that a
// device reports and that connected pins may set).
class TPWRealRangedStatePin final : public TPWRealPinBase {
 public:
  TPWRealRangedStatePin(IPWPinOwner& Owner, std::string Name, double Min, double Max, double Initial)
      : TPWRealPinBase(Owner, std::move(Name), TDirection::pdBoth, Initial, true, Min, Max) {}
};

// Plain state pins for the other kinds, for sinks of source pins.
class TPWRealStatePin final : public TPWRealPinBase {
 public:
  TPWRealStatePin(IPWPinOwner& Owner, std::string Name, double Initial = 0.0)
      : TPWRealPinBase(Owner, std::move(Name), TDirection::pdBoth, Initial, false, 0.0, 0.0) {}
};

}  // namespace Quorvel
