// The component base: owner and owned components, name, state, the
// component lock, the enabled state and the error pattern; and the base of
// persistent sub-objects.
#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "frame/Pwpins.h"
#include "frame/Threading.h"
#include "frame/Wbexception.h"
#include "frame/Wbset.h"

namespace Quorvel {

enum class TComponentStateFlag { csLoading, csDesigning, csDestroying };
using TComponentState = TSet<TComponentStateFlag>;

class TWBComponent;
struct TWBClassInfo;

using TWBErrorEvent = std::function<void(TWBComponent* Sender, const std::string& Message, int32_t Code, bool& Handled)>;
using TWBWarningEvent = std::function<void(TWBComponent* Sender, const std::string& Message, int32_t Code)>;
using TWBNotifyEvent = std::function<void(TWBComponent* Sender)>;

class TWBComponent : public IPWPinOwner {
 public:
  // The owner destroys its remaining owned components when it is destroyed.
  explicit TWBComponent(TWBComponent* Owner = nullptr);
  ~TWBComponent() override;
  TWBComponent(const TWBComponent&) = delete;
  TWBComponent& operator=(const TWBComponent&) = delete;

  // The published face of the class (frame/Wbpersistence.h): "TWBComponent"
  // with Enabled. Every streamable class answers its own.
  static const TWBClassInfo& ClassInfo();
  virtual const TWBClassInfo& GetClassInfo() const { return ClassInfo(); }

  TWBComponent* GetOwner() const { return FOwner; }
  size_t GetComponentCount() const;
  TWBComponent* GetComponent(size_t Index) const;

  std::string GetName() const;                 // [any thread]
  void SetName(const std::string& Name);       // [main thread]
  TComponentState GetComponentState() const;   // [any thread]
  bool IsDesigning() const { return GetComponentState().Contains(TComponentStateFlag::csDesigning); }
  bool IsLoading() const { return GetComponentState().Contains(TComponentStateFlag::csLoading); }
  bool IsDestroying() const { return GetComponentState().Contains(TComponentStateFlag::csDestroying); }
  // [main thread] Form-designer mode: errors are reported but never raised.
  void SetDesigning(bool Value);
  // [main thread] Property streaming brackets: Loaded runs when loading ends.
  void BeginLoading();
  void EndLoading();

  // The component lock: recursive, taken by setters, open/close and each block.
  Threading::ICriticalSection& GetLock() const { return FLock; }

  bool GetEnabled() const;                // [any thread]
  void SetEnabled(bool Value);            // [main thread] calls EnabledChanged when it changes

  // Reports an error: fires OnError and, unless a handler set Handled or the
  // component is in the designer, raises EWBException with the message and
  // the code in decimal and hexadecimal.
  virtual void Error(const std::string& Text, int32_t Code);
  // Reports a warning through OnWarning; never raises.
  virtual void Warning(const std::string& Text, int32_t Code);

  TWBErrorEvent OnError;
  TWBWarningEvent OnWarning;

  // IPWPinOwner
  Threading::ICriticalSection& GetPinLock() override { return FLock; }
  std::string GetPinOwnerName() const override { return GetName(); }
  void PinAdded(TPWBasicPin& Pin) override;
  void PinRemoved(TPWBasicPin& Pin) override;
  // [main thread] The pins of the component, in the order they were made.
  std::vector<TPWBasicPin*> GetPins() const;
  // [main thread] The pins a document connects by name: the component's own,
  // and those of its sub-objects (a device's channel items) where it has them.
  virtual std::vector<TPWBasicPin*> GetPublishedPins() const { return GetPins(); }
  bool IsPinOwnerDestroying() const override { return IsDestroying(); }

 protected:
  // The common body of Error: fires OnError with the final message and raises
  // when unhandled. Components that build their message differently call it.
  void ReportError(const std::string& Message, int32_t Code);
  void ReportWarning(const std::string& Message, int32_t Code);
  virtual void EnabledChanged() {}
  virtual void Loaded() {}
  // Marks the component as being destroyed and disconnects all its pins, so
  // no operation reaches it any more. Concrete components call it first
  // thing in their destructors; it is harmless to call twice.
  void BeginDestroy();

 private:
  void SetStateFlag(TComponentStateFlag Flag, bool On);
  mutable Threading::TCriticalSection FLock;
  TWBComponent* FOwner;
  std::vector<TWBComponent*> FComponents;
  std::vector<TPWBasicPin*> FPins;
  // The name has a lock of its own that never calls out, so that pins may
  // read their peers' names whatever component locks they hold.
  mutable std::mutex FNameLock;
  std::string FName;
  std::atomic<uint32_t> FState{0};
  std::atomic<bool> FEnabled{true};
};

// Base of persistent sub-objects a component owns (property groups, lists).
class TWBPersistent {
 public:
  explicit TWBPersistent(TWBComponent* Owner) : FOwner(Owner) {}
  virtual ~TWBPersistent() = default;
  TWBComponent* GetOwner() const { return FOwner; }
  // Copies the values of Source; the base accepts only itself.
  virtual bool Assign(const TWBPersistent& Source) { return &Source == this; }
  // "Owner.Name" for messages and streaming.
  virtual std::string GetNamePath() const { return FOwner ? FOwner->GetName() : std::string(); }

 private:
  TWBComponent* FOwner;
};

}  // namespace Quorvel
