#include "frame/Pwpins.h"

#include <algorithm>
#include <thread>

namespace Quorvel {

using Threading::TLockGuard;

namespace {
template <typename T>
bool EraseOne(std::vector<T*>& V, T* P) {
  auto It = std::find(V.begin(), V.end(), P);
  if (It == V.end()) return false;
  V.erase(It);
  return true;
}
}  // namespace

// ---- TPWBasicPin ------------------------------------------------------------

TPWBasicPin::TPWBasicPin(IPWPinOwner& Owner, std::string Name, TPWPinCategory Category, TDirection Direction)
    : FOwner(Owner), FName(std::move(Name)), FCategory(Category), FDirection(Direction) {
  FOwner.PinAdded(*this);
}

TPWBasicPin::~TPWBasicPin() {
  DisconnectAll();
  WaitIdle();
  FOwner.PinRemoved(*this);
}

void TPWBasicPin::WaitIdle() const {
  while (FInFlight.load(std::memory_order_acquire) > 0) std::this_thread::yield();
}

bool TPWBasicPin::Accepts(const TPWBasicPin& Source) const { return Source.FCategory == FCategory; }

bool TPWBasicPin::Connect(TPWBasicPin& Sink) {
  if (&Sink == this || !CanSend() || !Sink.CanReceive() || !Sink.Accepts(*this)) return false;
  TLockGuard A(FOwner.GetPinLock());
  TLockGuard B(Sink.FOwner.GetPinLock());
  if (std::find(FSinks.begin(), FSinks.end(), &Sink) != FSinks.end()) return false;
  FSinks.reserve(FSinks.size() + 1);
  Sink.FSources.reserve(Sink.FSources.size() + 1);
  FSinks.push_back(&Sink);
  Sink.FSources.push_back(this);
  ConnectionsChanged();
  Sink.ConnectionsChanged();
  return true;
}

bool TPWBasicPin::Disconnect(TPWBasicPin& Other) {
  // Each attempt takes the locks in source-then-sink order.
  auto Try = [](TPWBasicPin& Source, TPWBasicPin& Sink) {
    if (!Source.CanSend() || !Sink.CanReceive()) return false;
    TLockGuard A(Source.FOwner.GetPinLock());
    TLockGuard B(Sink.FOwner.GetPinLock());
    if (!EraseOne(Source.FSinks, &Sink)) return false;
    EraseOne(Sink.FSources, &Source);
    Source.ConnectionsChanged();
    Sink.ConnectionsChanged();
    return true;
  };
  if (&Other == this) return false;
  // Find the direction under this pin's lock alone (either lock guards the
  // lists), then take both locks in the order of that direction.
  bool Downstream, Upstream;
  {
    TLockGuard G(FOwner.GetPinLock());
    Downstream = std::find(FSinks.begin(), FSinks.end(), &Other) != FSinks.end();
    Upstream = std::find(FSources.begin(), FSources.end(), &Other) != FSources.end();
  }
  // Both directions are tried, whichever the first one answered.
  const bool RemovedDown = Downstream && Try(*this, Other);
  const bool RemovedUp = Upstream && Try(Other, *this);
  return RemovedDown || RemovedUp;
}

void TPWBasicPin::DisconnectAll() {
  std::vector<TPWBasicPin*> Peers;
  {
    TLockGuard G(FOwner.GetPinLock());
    Peers = FSinks;
    Peers.insert(Peers.end(), FSources.begin(), FSources.end());
  }
  for (TPWBasicPin* P : Peers) Disconnect(*P);
}

bool TPWBasicPin::IsConnected() const {
  TLockGuard G(FOwner.GetPinLock());
  return !FSinks.empty() || !FSources.empty();
}

size_t TPWBasicPin::GetSinkCount() const {
  TLockGuard G(FOwner.GetPinLock());
  return FSinks.size();
}

size_t TPWBasicPin::GetSourceCount() const {
  TLockGuard G(FOwner.GetPinLock());
  return FSources.size();
}

TPWBasicPin* TPWBasicPin::GetSink(size_t Index) const { return Index < FSinks.size() ? FSinks[Index] : nullptr; }
TPWBasicPin* TPWBasicPin::GetSource(size_t Index) const {
  return Index < FSources.size() ? FSources[Index] : nullptr;
}

void TPWBasicPin::Notify(TPWOperation& Operation, TPWNotifyStates& States) {
  TLockGuard G(FOwner.GetPinLock());
  // By index: a receiver may change this pin's connections on this thread.
  for (size_t I = 0; I < FSinks.size(); ++I) FSinks[I]->Receive(*this, Operation, States);
}

void TPWBasicPin::Notify(TPWOperation& Operation) {
  TPWNotifyStates States;
  Notify(Operation, States);
}

void TPWBasicPin::NotifyUpstream(TPWOperation& Operation, TPWNotifyStates& States) {
  // Sources are taken a few at a time under this owner's lock and marked in
  // flight, then called with no lock held.
  constexpr size_t BatchSize = 8;
  struct TRelease {
    TPWBasicPin** Pins;
    size_t From = 0, To = 0;
    ~TRelease() {
      for (size_t K = From; K < To; ++K) Pins[K]->FInFlight.fetch_sub(1, std::memory_order_release);
    }
  };
  size_t Next = 0;
  for (;;) {
    TPWBasicPin* Batch[BatchSize];
    TRelease Release{Batch};
    {
      TLockGuard G(FOwner.GetPinLock());
      while (Next < FSources.size() && Release.To < BatchSize) {
        Batch[Release.To] = FSources[Next++];
        Batch[Release.To++]->FInFlight.fetch_add(1, std::memory_order_acquire);
      }
    }
    if (Release.To == 0) return;
    for (; Release.From < Release.To; ++Release.From) {
      TPWBasicPin* Source = Batch[Release.From];
      Source->ReceiveUpstream(*this, Operation, States);
      Source->FInFlight.fetch_sub(1, std::memory_order_release);
    }
  }
}

void TPWBasicPin::NotifyUpstream(TPWOperation& Operation) {
  TPWNotifyStates States;
  NotifyUpstream(Operation, States);
}

void TPWBasicPin::Receive(TPWBasicPin& Source, TPWOperation& Operation, TPWNotifyStates& States) {
  TLockGuard G(FOwner.GetPinLock());
  if (FOwner.IsPinOwnerDestroying()) return;
  FOwner.SinkDispatch(&Source, this, Operation.GetID(), Operation, States);
}

void TPWBasicPin::ReceiveUpstream(TPWBasicPin& Sink, TPWOperation& Operation, TPWNotifyStates& States) {
  if (FOwner.IsPinOwnerDestroying()) return;
  FOwner.SourceDispatch(this, &Sink, Operation.GetID(), Operation, States);
}

std::string TPWBasicPin::GetDisplayName() const {
  std::string Text = FOwner.GetPinOwnerName();
  if (!Text.empty()) Text += '.';
  Text += FName;
  TLockGuard G(FOwner.GetPinLock());
  const auto& Peers = CanSend() && !FSinks.empty() ? FSinks : FSources;
  for (size_t I = 0; I < Peers.size(); ++I) {
    Text += I == 0 ? (&Peers == &FSinks ? " -> " : " <- ") : ", ";
    const std::string Owner = Peers[I]->FOwner.GetPinOwnerName();
    Text += Owner.empty() ? Peers[I]->FName : Owner + '.' + Peers[I]->FName;
  }
  return Text;
}

// ---- Source and sink pins -----------------------------------------------------

void TWBPWSourcePin::SubmitBuffer(IWBDataBuffer* Buffer) {
  TPWSuppliedBufferOperation Op(Buffer);
  Notify(Op);
}

void TWBPWSourcePin::SendStop() {
  TPWStopOperation Op;
  Notify(Op);
}

void TWBPWSourcePin::SendPause() {
  TPWWBPauseOperation Op;
  Notify(Op);
}

void TWBPWSourcePin::SendResume() {
  TPWWBResumeOperation Op;
  Notify(Op);
}

void TWBPWClockableSourcePin::SendStartSampleRate(double SampleRate) {
  TPWStartSampleRateOperation Op(SampleRate);
  Notify(Op);
}

void TWBPWSinkPin::StartPump() {
  TPWStartPumpOperation Op;
  NotifyUpstream(Op);
}

void TWBPWSinkPin::MasterPump() {
  TPWMasterPumpOperation Op;
  NotifyUpstream(Op);
}

void TWBPWSinkPin::PumpRequest() {
  TPWPumpRequestOperation Op;
  NotifyUpstream(Op);
}

void TSRPWAudioSourcePin::SendStartWave(const TSRWaveFormatExtensible& Format, bool RealTime) {
  TPWStartWaveOperation Op(Format, RealTime);
  Notify(Op);
}

// ---- TPWPinList ---------------------------------------------------------------

TPWPinList::TPWPinList(IPWPinOwner& Owner, Threading::ICriticalSection& Lock, TPWPinCategories Categories,
                       bool OwnsPins)
    : FOwner(Owner), FLock(Lock), FCategories(Categories), FOwnsPins(OwnsPins) {}

TPWPinList::~TPWPinList() { Clear(); }

size_t TPWPinList::Count() const {
  TLockGuard G(FLock);
  return FPins.size();
}

TPWBasicPin* TPWPinList::Get(size_t Index) const {
  TLockGuard G(FLock);
  return Index < FPins.size() ? FPins[Index] : nullptr;
}

int TPWPinList::Add(TPWBasicPin* Pin) {
  if (!Pin || !FCategories.Contains(Pin->GetCategory())) return -1;
  TLockGuard G(FLock);
  if (std::find(FPins.begin(), FPins.end(), Pin) != FPins.end()) return -1;
  FPins.push_back(Pin);
  return static_cast<int>(FPins.size() - 1);
}

void TPWPinList::DestroyPin(TPWBasicPin* Pin) {
  if (!Pin) return;
  if (OnDestroyPin)
    OnDestroyPin(*this, Pin);
  else if (FOwnsPins)
    delete Pin;
}

bool TPWPinList::Delete(size_t Index) {
  TPWBasicPin* Pin = nullptr;
  {
    TLockGuard G(FLock);
    if (Index >= FPins.size()) return false;
    Pin = FPins[Index];
    FPins.erase(FPins.begin() + static_cast<std::ptrdiff_t>(Index));
  }
  DestroyPin(Pin);
  return true;
}

int TPWPinList::IndexOf(const TPWBasicPin* Pin) const {
  TLockGuard G(FLock);
  auto It = std::find(FPins.begin(), FPins.end(), Pin);
  return It == FPins.end() ? -1 : static_cast<int>(It - FPins.begin());
}

int TPWPinList::Remove(TPWBasicPin* Pin) {
  TLockGuard G(FLock);
  auto It = std::find(FPins.begin(), FPins.end(), Pin);
  if (It == FPins.end()) return -1;
  const int Index = static_cast<int>(It - FPins.begin());
  FPins.erase(It);
  return Index;
}

bool TPWPinList::Swap(size_t I, size_t J) {
  TLockGuard G(FLock);
  if (I >= FPins.size() || J >= FPins.size()) return false;
  std::swap(FPins[I], FPins[J]);
  return true;
}

void TPWPinList::SetCount(size_t NewCount) {
  while (Count() > NewCount) Delete(Count() - 1);
  while (Count() < NewCount) {
    const size_t Index = Count();
    TPWBasicPin* Pin = OnCreatePin ? OnCreatePin(*this, Index) : nullptr;
    if (!Pin || Add(Pin) < 0) {
      if (Pin && FOwnsPins) delete Pin;
      break;  // nothing can be created: stop short instead of spinning
    }
  }
}

void TPWPinList::Clear() {
  while (Count() > 0) Delete(Count() - 1);
}

}  // namespace Quorvel
