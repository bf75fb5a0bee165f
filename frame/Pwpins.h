// Pins: the connection points of components. A source pin sends operations
// to every connected sink pin, in connection order, on the sending thread;
// each sink pin hands them to its owner's SinkDispatch. Pull requests travel
// the other way, from a sink pin to its sources' owners' SourceDispatch.
//
// Locks: sending holds the sending owner's lock, receiving takes the
// receiving owner's lock (both recursive). A connection is changed holding
// the source side's lock, then the sink side's, so a pin is never freed
// while an operation is being sent to it. Lock order therefore runs
// downstream: do not change the connections of a pin while holding the lock
// of a component downstream of it.
//
// Pull requests travel upstream holding no lock at all (taking the upstream
// lock while holding a downstream one would invert the order); a pin counts
// the pull requests running through it and its destruction waits for them.
// SourceDispatch is therefore called without the owner's lock, and a
// component must not hold its own lock when it pumps.
#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "frame/Pwoperations.h"
#include "frame/Threading.h"
#include "frame/Wbset.h"

namespace Quorvel {

class TPWBasicPin;

enum class TPWPinCategory { pcAudio, pcData, pcInteger, pcReal, pcBool };
using TPWPinCategories = TSet<TPWPinCategory>;

// What receivers report back to the sender of an operation.
enum class TPWNotifyState { pnsHandled, pnsRefused, pnsFailed };
using TPWNotifyStates = TSet<TPWNotifyState>;

// Whatever owns pins: components, and sub-objects such as collection items.
class IPWPinOwner {
 public:
  virtual ~IPWPinOwner() = default;
  virtual Threading::ICriticalSection& GetPinLock() = 0;
  virtual std::string GetPinOwnerName() const { return std::string(); }
  // An operation arrived at one of the owner's receiving pins. Called holding the owner's lock.
  virtual void SinkDispatch(TPWBasicPin* SourcePin, TPWBasicPin* SinkPin, TPWOperationID ID, TPWOperation& Operation,
                            TPWNotifyStates& States) {}
  // A pull request arrived at one of the owner's sending pins. Called
  // WITHOUT the owner's lock: take it where needed, and release it before
  // pumping further upstream.
  virtual void SourceDispatch(TPWBasicPin* SourcePin, TPWBasicPin* SinkPin, TPWOperationID ID,
                              TPWOperation& Operation, TPWNotifyStates& States) {}
  virtual void PinAdded(TPWBasicPin& Pin) {}
  virtual void PinRemoved(TPWBasicPin& Pin) {}
  // While true the owner is being destroyed and operations are dropped.
  virtual bool IsPinOwnerDestroying() const { return false; }
};

class TPWBasicPin {
 public:
  enum class TDirection { pdSource, pdSink, pdBoth };

  TPWBasicPin(IPWPinOwner& Owner, std::string Name, TPWPinCategory Category, TDirection Direction);
  virtual ~TPWBasicPin();
  TPWBasicPin(const TPWBasicPin&) = delete;
  TPWBasicPin& operator=(const TPWBasicPin&) = delete;

  IPWPinOwner& GetOwner() const { return FOwner; }
  const std::string& GetName() const { return FName; }
  void SetName(std::string Name) { FName = std::move(Name); }  // [main thread]
  TPWPinCategory GetCategory() const { return FCategory; }
  bool CanSend() const { return FDirection != TDirection::pdSink; }
  bool CanReceive() const { return FDirection != TDirection::pdSource; }

  // [main thread, or any thread upstream of the locks held] Connects this
  // pin's output to Sink's input. False when the pins do not fit (direction,
  // category), are the same pin, or are already connected.
  bool Connect(TPWBasicPin& Sink);
  // [as Connect] Removes the connection between the two pins, whichever way it runs.
  bool Disconnect(TPWBasicPin& Other);
  // [as Connect] Removes every connection of this pin.
  void DisconnectAll();

  bool IsConnected() const;            // [any thread]
  size_t GetSinkCount() const;         // [any thread]
  size_t GetSourceCount() const;       // [any thread]
  TPWBasicPin* GetSink(size_t Index) const;    // [holding the owner's lock]
  TPWBasicPin* GetSource(size_t Index) const;  // [holding the owner's lock]

  // [stream thread] Sends an operation to every connected sink pin.
  void Notify(TPWOperation& Operation, TPWNotifyStates& States);
  void Notify(TPWOperation& Operation);
  // [stream thread] Sends a pull request to every connected source pin.
  void NotifyUpstream(TPWOperation& Operation, TPWNotifyStates& States);
  void NotifyUpstream(TPWOperation& Operation);

  // Text that names this pin and what it is connected to, for displays.
  std::string GetDisplayName() const;

 protected:
  // An operation from a connected source. The default takes the owner's lock
  // and calls its SinkDispatch.
  virtual void Receive(TPWBasicPin& Source, TPWOperation& Operation, TPWNotifyStates& States);
  // A pull request from a connected sink. The default calls the owner's
  // SourceDispatch (without its lock).
  virtual void ReceiveUpstream(TPWBasicPin& Sink, TPWOperation& Operation, TPWNotifyStates& States);
  virtual bool Accepts(const TPWBasicPin& Source) const;
  // [holding both owners' locks] The set of connections changed.
  virtual void ConnectionsChanged() {}

 private:
  IPWPinOwner& FOwner;
  std::string FName;
  TPWPinCategory FCategory;
  TDirection FDirection;
  std::vector<TPWBasicPin*> FSinks;    // guarded by this owner's lock and each sink owner's lock
  std::vector<TPWBasicPin*> FSources;  // guarded by this owner's lock and each source owner's lock
  std::atomic<int> FInFlight{0};       // pull requests running through this pin

 public:
  // [not a thread inside this pin] Waits until no pull request runs through this pin.
  void WaitIdle() const;
};

// A pin that sends buffers (the generic data kind).
class TWBPWSourcePin : public TPWBasicPin {
 public:
  TWBPWSourcePin(IPWPinOwner& Owner, std::string Name, TPWPinCategory Category = TPWPinCategory::pcData)
      : TPWBasicPin(Owner, std::move(Name), Category, TDirection::pdSource) {}
  // [stream thread] Sends one buffer to every connected sink pin.
  void SubmitBuffer(IWBDataBuffer* Buffer);
  template <typename T>
  void SubmitBuffer(const TRef<T>& Buffer) { SubmitBuffer(static_cast<IWBDataBuffer*>(Buffer.Get())); }
  void SendStop();
  void SendPause();
  void SendResume();
};

// A data source pin whose consumer may drive it by pumping.
class TWBPWClockableSourcePin : public TWBPWSourcePin {
 public:
  using TWBPWSourcePin::TWBPWSourcePin;
  void SendStartSampleRate(double SampleRate);
};

// A generic data sink pin; it can ask its sources for data.
class TWBPWSinkPin : public TPWBasicPin {
 public:
  TWBPWSinkPin(IPWPinOwner& Owner, std::string Name, TPWPinCategory Category = TPWPinCategory::pcData)
      : TPWBasicPin(Owner, std::move(Name), Category, TDirection::pdSink) {}
  void StartPump();     // [stream thread]
  void MasterPump();    // [stream thread]
  void PumpRequest();   // [stream thread]
};

class TSRPWAudioSourcePin : public TWBPWClockableSourcePin {
 public:
  TSRPWAudioSourcePin(IPWPinOwner& Owner, std::string Name)
      : TWBPWClockableSourcePin(Owner, std::move(Name), TPWPinCategory::pcAudio) {}
  // [stream thread] Announces the format of the buffers that follow.
  void SendStartWave(const TSRWaveFormatExtensible& Format, bool RealTime = false);
};

class TSRPWAudioSinkPin : public TWBPWSinkPin {
 public:
  TSRPWAudioSinkPin(IPWPinOwner& Owner, std::string Name) : TWBPWSinkPin(Owner, std::move(Name), TPWPinCategory::pcAudio) {}
};

// A typed, index-addressed list of pins. It shares its owner's lock. With
// OwnsPins the list destroys the pins it removes. A component with a
// variable number of pins gives create/destroy callbacks and calls SetCount.
class TPWPinList {
 public:
  using TCreatePin = std::function<TPWBasicPin*(TPWPinList& List, size_t Index)>;
  using TDestroyPin = std::function<void(TPWPinList& List, TPWBasicPin* Pin)>;

  TPWPinList(IPWPinOwner& Owner, Threading::ICriticalSection& Lock, TPWPinCategories Categories, bool OwnsPins);
  ~TPWPinList();
  TPWPinList(const TPWPinList&) = delete;
  TPWPinList& operator=(const TPWPinList&) = delete;

  IPWPinOwner& GetOwner() const { return FOwner; }
  TPWPinCategories GetCategories() const { return FCategories; }
  size_t Count() const;                   // [any thread]
  TPWBasicPin* Get(size_t Index) const;   // [any thread] nullptr out of range
  TPWBasicPin* operator[](size_t Index) const { return Get(Index); }
  // [holding the list's lock] The same without taking the lock again, for
  // loops on the audio path.
  size_t CountLocked() const { return FPins.size(); }
  TPWBasicPin* GetLocked(size_t Index) const { return Index < FPins.size() ? FPins[Index] : nullptr; }

  // [main thread] Adds a pin; answers its index, or -1 when its category is
  // not one of the list's (the pin is then not taken, and the caller keeps it).
  int Add(TPWBasicPin* Pin);
  // [main thread] Removes (and, owning, destroys) the pin at Index; false out of range.
  bool Delete(size_t Index);
  int IndexOf(const TPWBasicPin* Pin) const;
  // [main thread] Removes Pin without destroying it; answers its former index or -1.
  int Remove(TPWBasicPin* Pin);
  bool Swap(size_t I, size_t J);
  // [main thread] Grows with the create callback or shrinks from the end
  // with the destroy callback (or plain deletion) to exactly Count pins.
  void SetCount(size_t Count);
  void Clear();

  TCreatePin OnCreatePin;
  TDestroyPin OnDestroyPin;

 private:
  void DestroyPin(TPWBasicPin* Pin);
  IPWPinOwner& FOwner;
  Threading::ICriticalSection& FLock;
  TPWPinCategories FCategories;
  bool FOwnsPins;
  std::vector<TPWBasicPin*> FPins;
};

}  // namespace Quorvel
