#include "asio/Srasioaudiodevice.h"

#include "frame/Wbpersistence.h"
#include "frame/Wbregistration.h"
#include "platform/Asiodrivers.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "asio/Srasiocallbackentries.h"
#include "asio/Srasioconvert.h"

namespace Quorvel {

using Threading::TLockGuard;

namespace {

// Channel counts beyond this are nonsense from a driver, not hardware.
constexpr int32_t MaxDriverChannels = 4096;
// Buffer sizes outside 1 to this are refused before the driver is asked:
// the per-channel buffers are made from the size.
constexpr int32_t MaxRunningSize = 1 << 20;
// Buffers each channel keeps for reuse while it runs, and the least room
// each output buffer has for blocks from upstream.
constexpr size_t RingBuffers = 32;
constexpr size_t MinRingCapacity = 1024;
// Room asked for when reading the driver's clock sources.
constexpr int32_t MaxClockSources = 64;

// The device whose exchange this thread is running: a driver that calls
// back into it from inside one of our calls is ignored, not deadlocked.
thread_local const void* GExchanging = nullptr;

struct TExchangeMark {
  explicit TExchangeMark(const void* Device) { GExchanging = Device; }
  ~TExchangeMark() { GExchanging = nullptr; }
};

// Undoes one acquired resource when a step after it fails; Keep() once the
// whole sequence succeeded.
template <typename F>
class TUndo {
 public:
  explicit TUndo(F Fn) : FFn(std::move(Fn)) {}
  ~TUndo() {
    if (FArmed) FFn();
  }
  TUndo(const TUndo&) = delete;
  TUndo& operator=(const TUndo&) = delete;
  void Keep() { FArmed = false; }
  // Undoes at once (and not again at the end of the scope).
  void Now() {
    if (FArmed) FFn();
    FArmed = false;
  }

 private:
  F FFn;
  bool FArmed = true;
};

std::string ChannelInfoText(bool Input, int32_t Index) {
  char Text[64];
  std::snprintf(Text, sizeof Text, Input ? "Can't get inpit channel %d info" : "Can't get outpit channel %d info",
                static_cast<int>(Index));
  return Text;
}

}  // namespace

// ---- TSRASIOAudioQueue ----------------------------------------------------------

namespace {
constexpr size_t DefaultQueueBuffers = 64;
}  // namespace

TSRASIOAudioQueue::TSRASIOAudioQueue() : FRing(DefaultQueueBuffers) {}

void TSRASIOAudioQueue::Reserve(size_t Buffers) {
  if (Buffers <= FRing.size()) return;
  std::vector<ISRAudioBufferRef> Ring(Buffers);
  const size_t Head = FHead.load(), Count = FTail.load() - Head;
  for (size_t I = 0; I < Count; ++I) Ring[I] = std::move(FRing[(Head + I) % FRing.size()]);
  FRing.swap(Ring);
  FHead = 0;
  FTail = Count;
}

bool TSRASIOAudioQueue::Push(const ISRAudioBufferRef& Buffer) {
  if (!Buffer) return true;
  const size_t Tail = FTail.load(std::memory_order_relaxed);
  if (Tail - FHead.load(std::memory_order_acquire) == FRing.size()) return false;
  FRing[Tail % FRing.size()] = Buffer;
  FTail.store(Tail + 1, std::memory_order_release);
  FTotal.fetch_add(Buffer->GetSamples(), std::memory_order_release);
  return true;
}

bool TSRASIOAudioQueue::Pop(ISRAudioBuffer& Target) {
  const size_t Wanted = Target.GetSamples();
  // The total counts only buffers whose slots are already published.
  if (Wanted > FTotal.load(std::memory_order_acquire)) return false;
  uint8_t* Dst = Target.GetData();
  const unsigned DstBits = Target.GetBits();
  size_t Head = FHead.load(std::memory_order_relaxed);
  size_t Offset = FOffset.load(std::memory_order_relaxed);
  size_t Done = 0;
  while (Done < Wanted) {
    ISRAudioBufferRef& Slot = FRing[Head % FRing.size()];
    const size_t Available = Slot->GetSamples() - Offset;
    const size_t Run = std::min(Available, Wanted - Done);
    ConvertPcmFrames(Slot->GetData() + Offset * Slot->GetFrameBytes(), Slot->GetChannels(), Slot->GetBits(),
                     Dst + Done * Target.GetFrameBytes(), Target.GetChannels(), DstBits, Run);
    Done += Run;
    if (Run < Available) {
      Offset += Run;
    } else {
      Slot.Reset();
      FHead.store(++Head, std::memory_order_release);
      Offset = 0;
    }
  }
  FOffset.store(Offset, std::memory_order_relaxed);
  FTotal.fetch_sub(Wanted, std::memory_order_release);
  return true;
}

ISRAudioBufferRef TSRASIOAudioQueue::PopBuffer() {
  const size_t Head = FHead.load(std::memory_order_relaxed);
  if (FTail.load(std::memory_order_acquire) == Head) return nullptr;
  ISRAudioBufferRef Item = std::move(FRing[Head % FRing.size()]);
  const size_t Offset = FOffset.load(std::memory_order_relaxed);
  FHead.store(Head + 1, std::memory_order_release);
  FTotal.fetch_sub(Item->GetSamples() - Offset, std::memory_order_release);
  if (Offset) {
    // The head was partly read: hand out the rest only.
    FOffset.store(0, std::memory_order_relaxed);
    const size_t Left = Item->GetSamples() - Offset;
    auto Rest = TSRAudioBuffer::Create(Item->GetChannels(), Left, Item->GetBits(), Item->GetSampleRate());
    std::memcpy(Rest->GetData(), Item->GetData() + Offset * Item->GetFrameBytes(), Left * Item->GetFrameBytes());
    return Rest;
  }
  return Item;
}

void TSRASIOAudioQueue::Clear() {
  for (auto& B : FRing) B.Reset();
  FHead = 0;
  FTail = 0;
  FTotal = 0;
  FOffset = 0;
}

size_t TSRASIOAudioQueue::GetCount() const {
  const size_t Head = FHead.load(std::memory_order_acquire);
  return FTail.load(std::memory_order_acquire) - Head;
}

// ---- TSRASIOBufferRing ------------------------------------------------------------

void TSRASIOBufferRing::Make(size_t Count, size_t Capacity, unsigned Bits, double SampleRate) {
  Clear();
  for (size_t I = 0; I < Count; ++I) {
    ISRAudioBufferRef B = TSRAudioBuffer::Create(1, Capacity, Bits, SampleRate);
    if (!B || B->GetSamples() != Capacity) break;
    FSlots.push_back(std::move(B));
  }
  FCapacity = FSlots.empty() ? 0 : Capacity;
  FBits = Bits;
}

void TSRASIOBufferRing::Clear() {
  FSlots.clear();
  FNext = 0;
  FCapacity = 0;
}

ISRAudioBufferRef TSRASIOBufferRing::Take(size_t Samples) noexcept {
  if (Samples > FCapacity) return nullptr;
  const size_t N = FSlots.size();
  for (size_t K = 0; K < N; ++K) {
    const size_t I = (FNext + K) % N;
    // Held by the ring alone: every other holder has let go, and the
    // acquiring count read orders their reads before our writes.
    if (FSlots[I]->RefCount() != 1) continue;
    FNext = (I + 1) % N;
    FSlots[I]->SetSampleCount(Samples);
    return FSlots[I];
  }
  return nullptr;
}

// ---- property groups ---------------------------------------------------------------

namespace {
Threading::ICriticalSection* OwnerLock(const TWBPersistent& P) { return P.GetOwner() ? &P.GetOwner()->GetLock() : nullptr; }

template <typename F>
auto Locked(const TWBPersistent& P, F&& Fn) {
  Threading::ICriticalSection* L = OwnerLock(P);
  if (L) L->Enter();
  struct TLeave {
    Threading::ICriticalSection* L;
    ~TLeave() { if (L) L->Leave(); }
  } Leave{L};
  return Fn();
}
}  // namespace

bool TSRASIOSampleRate::GetUseCurrent() const { return Locked(*this, [&] { return FUseCurrent; }); }
void TSRASIOSampleRate::SetUseCurrent(bool Value) { Locked(*this, [&] { FUseCurrent = Value; }); }
double TSRASIOSampleRate::GetRate() const { return Locked(*this, [&] { return FRate; }); }
void TSRASIOSampleRate::SetRate(double Value) {
  // Not a rate: the usual default instead.
  Locked(*this, [&] { FRate = Value > 0.0 ? Value : 44100.0; });
}
bool TSRASIOSampleRate::Assign(const TWBPersistent& Source) {
  auto* S = dynamic_cast<const TSRASIOSampleRate*>(&Source);
  if (!S) return false;
  if (S == this) return true;
  const bool U = S->GetUseCurrent();
  const double R = S->GetRate();
  SetUseCurrent(U);
  SetRate(R);
  return true;
}

bool TSRASIOClockSource::GetUseCurrent() const { return Locked(*this, [&] { return FUseCurrent; }); }
void TSRASIOClockSource::SetUseCurrent(bool Value) { Locked(*this, [&] { FUseCurrent = Value; }); }
int32_t TSRASIOClockSource::GetActiveIndex() const { return Locked(*this, [&] { return FIndex; }); }
void TSRASIOClockSource::SetActieveIndex(int32_t Value) { Locked(*this, [&] { FIndex = Value; }); }
std::vector<TASIOClockSource> TSRASIOClockSource::GetSources() const { return Locked(*this, [&] { return FSources; }); }
void TSRASIOClockSource::SetSources(std::vector<TASIOClockSource> Sources) {
  Locked(*this, [&] { FSources = std::move(Sources); });
}
bool TSRASIOClockSource::Assign(const TWBPersistent& Source) {
  auto* S = dynamic_cast<const TSRASIOClockSource*>(&Source);
  if (!S) return false;
  if (S == this) return true;
  const bool U = S->GetUseCurrent();
  const int32_t I = S->GetActiveIndex();
  SetUseCurrent(U);
  SetActieveIndex(I);
  return true;
}

bool TSRASIOBufferSize::GetUsePreferred() const { return Locked(*this, [&] { return FUsePreferred; }); }
void TSRASIOBufferSize::SetUsePreferred(bool Value) { Locked(*this, [&] { FUsePreferred = Value; }); }
uint32_t TSRASIOBufferSize::GetBufferSize() const { return Locked(*this, [&] { return FBufferSize; }); }
void TSRASIOBufferSize::SetBufferSize(uint32_t Value) { Locked(*this, [&] { FBufferSize = Value; }); }
int32_t TSRASIOBufferSize::GetMin() const { return Locked(*this, [&] { return FMin; }); }
int32_t TSRASIOBufferSize::GetMax() const { return Locked(*this, [&] { return FMax; }); }
int32_t TSRASIOBufferSize::GetPreferred() const { return Locked(*this, [&] { return FPreferred; }); }
int32_t TSRASIOBufferSize::GetGranularity() const { return Locked(*this, [&] { return FGranularity; }); }
int32_t TSRASIOBufferSize::GetRunningSize() const { return FRunningSize.load(); }
void TSRASIOBufferSize::SetDriverLimits(int32_t Min, int32_t Max, int32_t Preferred, int32_t Granularity) {
  Locked(*this, [&] {
    FMin = Min;
    FMax = Max;
    FPreferred = Preferred;
    FGranularity = Granularity;
  });
}

int32_t TSRASIOBufferSize::CalculateSize() const {
  return Locked(*this, [&] {
    int64_t Size = FUsePreferred ? int64_t{FPreferred} : int64_t{FBufferSize};
    if (Size > FMax) Size = FMax;
    if (Size < FMin) Size = FMin;
    if (FGranularity > 1) Size = FMin + (Size - FMin) / FGranularity * FGranularity;
    return static_cast<int32_t>(Size);
  });
}

bool TSRASIOBufferSize::Assign(const TWBPersistent& Source) {
  auto* S = dynamic_cast<const TSRASIOBufferSize*>(&Source);
  if (!S) return false;
  if (S == this) return true;
  const bool U = S->GetUsePreferred();
  const uint32_t B = S->GetBufferSize();
  SetUsePreferred(U);
  SetBufferSize(B);
  return true;
}

// ---- channel items -------------------------------------------------------------------

TSRASIOChannelItem::TSRASIOChannelItem(TSRASIOAudioDevice& Device) : TWBPersistent(&Device), FDevice(Device) {}

TSRASIOChannelItem::~TSRASIOChannelItem() = default;

void TSRASIOChannelItem::SetEnabled(bool Value) {
  TLockGuard G(FDevice.GetLock());
  FEnabled = Value;
}

int TSRASIOChannelItem::GetIndex() const {
  return IsInput() ? FDevice.GetInputChannels().IndexOf(this) : FDevice.GetOutputChannels().IndexOf(this);
}

std::string TSRASIOChannelItem::GetPinOwnerName() const { return FDevice.GetName(); }

TSRASIOStreamCounters& TSRASIOChannelItem::Counters() { return FDevice.FCounters; }

void TSRASIOStreamCounters::Reset() { Switches = Skipped = Inputs = Submitted = Outputs = Lost = Dropped = 0; }

bool TSRASIOChannelItem::Assign(const TWBPersistent& Source) {
  auto* S = dynamic_cast<const TSRASIOChannelItem*>(&Source);
  if (!S) return false;
  SetEnabled(S->GetEnabled());
  return true;
}

TSRASIOInputChannelItem::TSRASIOInputChannelItem(TSRASIOAudioDevice& Device)
    : TSRASIOChannelItem(Device),
      FPin(std::make_unique<TSRPWAudioSourcePin>(*this, "Input" + std::to_string(Device.GetInputChannels().GetCount() + 1))) {}

TSRASIOInputChannelItem::~TSRASIOInputChannelItem() {
  FDestroying = true;
  FPin.reset();
}

void TSRASIOInputChannelItem::NewThreadAudio() {
  TLockGuard G(FPinLock);
  while (FStarted.load()) {
    ISRAudioBufferRef Buffer = FQueue.PopBuffer();
    if (!Buffer) break;
    // Counted first: what the chain sends back during the call may be seen
    // (and counted) by another thread before it returns.
    Counters().Submitted.fetch_add(1, std::memory_order_relaxed);
    FPin->SubmitBuffer(Buffer);
  }
}

void TSRASIOInputChannelItem::SubmitNow(const ISRAudioBufferRef& Buffer) {
  TLockGuard G(FPinLock);
  if (!FStarted.load()) return;
  Counters().Submitted.fetch_add(1, std::memory_order_relaxed);
  FPin->SubmitBuffer(Buffer.Get());
}

void TSRASIOInputChannelItem::BeginStream(const TSRWaveFormatExtensible& Format) {
  TLockGuard P(FPinLock);
  FQueue.Clear();
  FStarted = true;
  FPin->SendStartWave(Format, true);
}

void TSRASIOInputChannelItem::EndStream() {
  TLockGuard P(FPinLock);
  if (!FStarted.load()) return;
  FStarted = false;
  FQueue.Clear();
  FPin->SendStop();
}

TSRASIOOutputChannelItem::TSRASIOOutputChannelItem(TSRASIOAudioDevice& Device)
    : TSRASIOChannelItem(Device),
      FPin(std::make_unique<TSRPWAudioSinkPin>(*this, "Output" + std::to_string(Device.GetOutputChannels().GetCount() + 1))) {}

TSRASIOOutputChannelItem::~TSRASIOOutputChannelItem() {
  FDestroying = true;
  FPin.reset();
}

void TSRASIOOutputChannelItem::SinkDispatch(TPWBasicPin*, TPWBasicPin*, TPWOperationID ID, TPWOperation& Operation,
                                            TPWNotifyStates& States) {
  switch (ID) {
    case poidSuppliedBuffer: {
      ISRAudioBuffer* In = static_cast<TPWSuppliedBufferOperation&>(Operation).GetAudioBuffer();
      if (!In || !FStarted.load() || In->GetSamples() == 0 || In->GetChannels() == 0) {
        States.Include(TPWNotifyState::pnsRefused);
        return;
      }
      // The sender may reuse its buffer: keep a mono copy, at the width the
      // driver's side pops, in one of the channel's own buffers when one is free.
      ISRAudioBufferRef Copy = FRing.Take(In->GetSamples());
      if (!Copy) Copy = TSRAudioBuffer::Create(1, In->GetSamples(), In->GetBits(), In->GetSampleRate());
      if (!Copy || Copy->GetSamples() != In->GetSamples()) {
        States.Include(TPWNotifyState::pnsFailed);
        return;
      }
      ConvertPcmFrames(In->GetData(), In->GetChannels(), In->GetBits(), Copy->GetData(), 1, Copy->GetBits(),
                       In->GetSamples());
      if (!FQueue.Push(Copy)) {
        Counters().Dropped.fetch_add(1, std::memory_order_relaxed);
        States.Include(TPWNotifyState::pnsFailed);
        return;
      }
      FPrimed = true;
      Counters().Outputs.fetch_add(1, std::memory_order_relaxed);
      break;
    }
    case poidStop:
      // The stream ended: silence from here on is expected, not late.
      FPrimed = false;
      break;
    default:
      break;
  }
  States.Include(TPWNotifyState::pnsHandled);
}

void TSRASIOOutputChannelItem::BeginStream() {
  TLockGuard P(FPinLock);
  FQueue.Clear();
  FPrimed = false;
  FStarted = true;
}

void TSRASIOOutputChannelItem::PrepareCopies(size_t Samples, unsigned Bits, double SampleRate) {
  // Under the pin lock: audio from upstream may already be arriving.
  TLockGuard P(FPinLock);
  FQueue.Reserve(RingBuffers);
  if (Bits)
    FRing.Make(RingBuffers, std::max(Samples, MinRingCapacity), Bits, SampleRate);
  else
    FRing.Clear();
}

void TSRASIOOutputChannelItem::MasterPump() {
  if (FPin->GetSourceCount() > 0) FPin->MasterPump();
}

// ---- collections ---------------------------------------------------------------------

template <typename TItem>
TSRASIOChannelItems<TItem>::TSRASIOChannelItems(TSRASIOAudioDevice& Device) : TWBPersistent(&Device), FDevice(Device) {}

template <typename TItem>
TSRASIOChannelItems<TItem>::~TSRASIOChannelItems() {
  // Last item first, so that pins go in the reverse order of their making.
  while (!FItems.empty()) FItems.pop_back();
}

template <typename TItem>
int TSRASIOChannelItems<TItem>::GetCount() const {
  TLockGuard G(FDevice.GetLock());
  return static_cast<int>(FItems.size());
}

template <typename TItem>
TItem& TSRASIOChannelItems<TItem>::GetItem(int Index) const {
  TLockGuard G(FDevice.GetLock());
  return *FItems.at(static_cast<size_t>(Index));
}

template <typename TItem>
TItem& TSRASIOChannelItems<TItem>::Add() {
  TLockGuard G(FDevice.GetLock());
  FDevice.ChannelsChanging();
  FItems.push_back(std::make_unique<TItem>(FDevice));
  return *FItems.back();
}

template <typename TItem>
void TSRASIOChannelItems<TItem>::Delete(int Index) {
  TLockGuard G(FDevice.GetLock());
  if (Index < 0 || static_cast<size_t>(Index) >= FItems.size()) return;
  FDevice.ChannelsChanging();
  FItems.erase(FItems.begin() + Index);
}

template <typename TItem>
void TSRASIOChannelItems<TItem>::SetCount(int Count) {
  TLockGuard G(FDevice.GetLock());
  const size_t N = static_cast<size_t>(std::max(Count, 0));
  if (N == FItems.size()) return;
  FDevice.ChannelsChanging();
  while (FItems.size() > N) FItems.pop_back();
  while (FItems.size() < N) FItems.push_back(std::make_unique<TItem>(FDevice));
}

template <typename TItem>
void TSRASIOChannelItems<TItem>::Clear() {
  SetCount(0);
}

template <typename TItem>
int TSRASIOChannelItems<TItem>::IndexOf(const TSRASIOChannelItem* Item) const {
  TLockGuard G(FDevice.GetLock());
  for (size_t I = 0; I < FItems.size(); ++I)
    if (FItems[I].get() == Item) return static_cast<int>(I);
  return -1;
}

template <typename TItem>
bool TSRASIOChannelItems<TItem>::Assign(const TWBPersistent& Source) {
  auto* S = dynamic_cast<const TSRASIOChannelItems<TItem>*>(&Source);
  if (!S) return false;
  if (S == this) return true;
  const int N = S->GetCount();
  std::vector<bool> Enabled;
  for (int I = 0; I < N; ++I) Enabled.push_back(S->GetItem(I).GetEnabled());
  SetCount(N);
  for (int I = 0; I < N; ++I) GetItem(I).SetEnabled(Enabled[static_cast<size_t>(I)]);
  return true;
}

template class TSRASIOChannelItems<TSRASIOInputChannelItem>;
template class TSRASIOChannelItems<TSRASIOOutputChannelItem>;

// ---- TSRASIOAudioDevice: life ----------------------------------------------------------

TSRASIOAudioDevice::TSRASIOAudioDevice(TWBComponent* Owner)
    : TWBComponent(Owner),
      FDevice(this,
              [this](TSRASIODevice&) {
                // Another driver is chosen: the next open uses it.
                if (GetOpened()) Close();
              }),
      FSampleRate(this),
      FClockSource(this),
      FBufferSize(this),
      FInputChannels(*this),
      FOutputChannels(*this),
      FAvailableInputs(this),
      FAvailableOutputs(this) {}

TSRASIOAudioDevice::~TSRASIOAudioDevice() {
  BeginDestroy();
  try {
    Close();
  } catch (...) {
    // Reports of a closing component have nobody left to reach.
  }
  ASIOReleaseCallbacksOf(this);
  Threading::RemoveMainThreadProcs(this);
  if (FThread) FThread->WaitFor();
  FThread.reset();
}

bool TSRASIOAudioDevice::GetOpened() const { return GetState() != TSRASIODeviceState::dsClosed; }

void TSRASIOAudioDevice::SetOpened(bool Value) {
  if (Value == GetOpened()) return;
  if (Value)
    Open();
  else
    Close();
}

bool TSRASIOAudioDevice::GetEnabled() const {
  const TSRASIODeviceState S = GetState();
  return S == TSRASIODeviceState::dsRunning || S == TSRASIODeviceState::dsStopping || FRun.EnableWhenLoaded.load();
}

void TSRASIOAudioDevice::SetEnabled(bool Value) {
  TLockGuard G(GetLock());
  if (IsDesigning() || IsLoading()) {
    FRun.EnableWhenLoaded = Value;
    return;
  }
  if (Value == GetEnabled()) return;
  if (Value)
    Start();
  else
    Stop();
}

void TSRASIOAudioDevice::Loaded() {
  // A device stored as enabled starts once its properties are in place.
  TLockGuard G(GetLock());
  if (IsDesigning() || !FRun.EnableWhenLoaded.exchange(false)) return;
  if (!GetRunning()) SetEnabled(true);
}

// ---- open and close ------------------------------------------------------------------

bool TSRASIOAudioDevice::Open() {
  if (!GetLock().TryEnter()) return false;
  struct TLeave {
    Threading::ICriticalSection& L;
    ~TLeave() { L.Leave(); }
  } Leave{GetLock()};
  if (FRun.Driver) return true;
  return IntOpen();
}

bool TSRASIOAudioDevice::IntOpen() {
  // 1. The driver, initialised with the application's window.
  IASIORef D = FDevice.GetDevice();
  if (!D) return false;
  ASIOInit(D.Get(), FWindow);
  FRun.Driver = D;
  FRun.State = TSRASIODeviceState::dsOpen;
  TUndo Driver([this] {
    FRun.Driver.Reset();
    FRun.State = TSRASIODeviceState::dsClosed;
  });
  // A failed step lets the driver go before it is reported.
  const auto Fail = [&](const std::string& Text, TASIOError Code) {
    Driver.Now();
    Error(Text, Code);
    return false;
  };
  FDriverName = ASIOGetDriverName(D.Get());
  FDriverVersion = ASIOGetDriverVersion(D.Get());

  // 2. The sample rate.
  TASIOError Code;
  if (!FSampleRate.GetUseCurrent()) {
    Code = ASIOSetSampleRate(D.Get(), FSampleRate.GetRate());
    if (Code != ASE_OK) return Fail("Can't set sample rate", Code);
  }
  double Rate = 0.0;
  Code = ASIOGetSampleRate(D.Get(), Rate);
  if (Code == ASE_OK && !(std::isfinite(Rate) && Rate > 0.0 && Rate < 1e7)) Code = ASE_NoClock;  // nonsense
  if (Code != ASE_OK) {
    // The rate the device was asked for is the best guess left.
    Rate = FSampleRate.GetRate();
    Warning("Can't get sample rate", Code);
  }
  FRunningRate = Rate;
  FIntRate = static_cast<int32_t>(std::lround(Rate));

  // 3. Channels (checked as the driver gave them, before any narrowing),
  // buffer sizes, channel information, latencies, clocks.
  int32_t Inputs = 0, Outputs = 0;
  Code = ASIOGetChannels(D.Get(), Inputs, Outputs);
  if (Code != ASE_OK || Inputs < 0 || Outputs < 0 || Inputs > MaxDriverChannels || Outputs > MaxDriverChannels)
    return Fail("Can't get channels", Code);
  FDriverInputs = Inputs;
  FDriverOutputs = Outputs;
  FChannelInfos.assign(static_cast<size_t>(Inputs) + static_cast<size_t>(Outputs), TASIOChannelInfo{});

  int32_t Min = 0, Max = 0, Preferred = 0, Granularity = 0;
  Code = ASIOGetBufferSize(D.Get(), Min, Max, Preferred, Granularity);
  if (Code != ASE_OK) return Fail("Can't get buffer size", Code);
  FBufferSize.SetDriverLimits(Min, Max, Preferred, Granularity);
  int32_t Failed = 0;
  Code = ReadChannelInfos(Failed);
  if (Code != ASE_OK) return Fail(ChannelInfoText(Failed < FDriverInputs, Failed < FDriverInputs ? Failed : Failed - FDriverInputs), Code);

  int32_t InLatency = 0, OutLatency = 0;
  Code = ASIOGetLatencies(D.Get(), InLatency, OutLatency);
  if (Code != ASE_OK)
    Warning("Can't get latencies", Code);
  else {
    FInputLatency = InLatency;
    FOutputLatency = OutLatency;
  }
  FUsesPostOutput = ASIOOutputReady(D.Get()) == ASE_OK;

  // The clock sources, for the property to show; a driver without any is fine.
  std::vector<TASIOClockSource> Clocks(MaxClockSources);
  int32_t ClockCount = MaxClockSources;
  if (ASIOGetClockSources(D.Get(), Clocks.data(), ClockCount) == ASE_OK && ClockCount >= 0) {
    Clocks.resize(static_cast<size_t>(std::min(ClockCount, MaxClockSources)));
    for (auto& C : Clocks) C.name[sizeof C.name - 1] = 0;
  } else {
    Clocks.clear();
  }
  FClockSource.SetSources(std::move(Clocks));
  Driver.Keep();
  return true;
}

TASIOError TSRASIOAudioDevice::ReadChannelInfos(int32_t& Failed) {
  // Reads every channel; answers the first failure's code (and its record
  // number in Failed) after going on with the rest.
  IASIO* D = FRun.Driver.Get();
  TASIOError First = ASE_OK;
  const int32_t Total = FDriverInputs + FDriverOutputs;
  for (int32_t R = 0; R < Total; ++R) {
    const bool Input = R < FDriverInputs;
    TASIOChannelInfo Info{};
    Info.channel = Input ? R : R - FDriverInputs;
    Info.isInput = Input ? ASIOTrue : ASIOFalse;
    const TASIOError Code = ASIOGetChannelInfo(D, Info);
    if (Code != ASE_OK) {
      if (First == ASE_OK) {
        First = Code;
        Failed = R;
      }
      if (GetState() != TSRASIODeviceState::dsStarting) return First;
      // The number is the loop's: a driver may have changed the record it failed to fill.
      Warning(ChannelInfoText(Input, Input ? R : R - FDriverInputs), Code);
      continue;
    }
    Info.name[sizeof Info.name - 1] = 0;
    FChannelInfos[static_cast<size_t>(R)] = Info;
  }
  // What the driver offers, for the channel lists.
  std::vector<TSRASIOAvailableChannel> In, Out;
  for (int32_t R = 0; R < Total; ++R) {
    const TASIOChannelInfo& Info = FChannelInfos[static_cast<size_t>(R)];
    const bool Input = R < FDriverInputs;
    (Input ? In : Out).push_back({Info.name, Input, Input ? R : R - FDriverInputs, Info.type, Info.channelGroup});
  }
  FAvailableInputs.SetItems(std::move(In));
  FAvailableOutputs.SetItems(std::move(Out));
  return First;
}

void TSRASIOAudioDevice::Close() {
  TLockGuard G(GetLock());
  if (!FRun.Driver) return;
  Stop();
  // A driver left stopping is stopped once more, quietly, before it goes.
  if (GetState() == TSRASIODeviceState::dsStopping) FinishStopQuietly();
  ASIOReleaseCallback(FRun.CallbackIndex);
  FRun.Driver.Reset();
  FRun.State = TSRASIODeviceState::dsClosed;
}

// ---- start and stop ---------------------------------------------------------------

void TSRASIOAudioDevice::CloseExchange(bool Forget) {
  std::lock_guard<std::mutex> L(FExchange.Lock);
  FExchange.Active = false;
  if (Forget) {
    FExchange.Inputs.clear();
    FExchange.Outputs.clear();
  }
}

void TSRASIOAudioDevice::EndChannelStreams() {
  std::lock_guard<std::mutex> L(FProcessLock);
  for (int I = 0, N = FInputChannels.GetCount(); I < N; ++I) FInputChannels.GetItem(I).EndStream();
  FProcessInputs.clear();
  for (int I = 0, N = FOutputChannels.GetCount(); I < N; ++I) FOutputChannels.GetItem(I).EndStream();
}

void TSRASIOAudioDevice::FinishStopQuietly() {
  CloseExchange(false);
  ASIOStop(FRun.Driver.Get());
  EndChannelStreams();
  ASIODisposeBuffers(FRun.Driver.Get());
  CloseExchange(true);
  FRun.State = TSRASIODeviceState::dsOpen;
}

unsigned TSRASIOAudioDevice::BitDepthForType(TASIOSampleType Type) {
  switch (Type) {
    case ASIOSTInt16MSB: case ASIOSTInt16LSB: return 16;
    case ASIOSTInt24MSB: case ASIOSTInt24LSB: return 24;
    case ASIOSTInt32MSB: case ASIOSTFloat32MSB: case ASIOSTInt32MSB16: case ASIOSTInt32MSB18:
    case ASIOSTInt32MSB20: case ASIOSTInt32MSB24: case ASIOSTInt32LSB: case ASIOSTFloat32LSB:
    case ASIOSTInt32LSB16: case ASIOSTInt32LSB18: case ASIOSTInt32LSB20: case ASIOSTInt32LSB24:
      return 32;
    case ASIOSTFloat64MSB: case ASIOSTFloat64LSB: return 64;
    default: return 8;
  }
}

TSRWaveFormatExtensible TSRASIOAudioDevice::MakeChannelFormat(TASIOSampleType Type, int32_t Rate) {
  // The format describes the buffers that follow: 64-bit float channels
  // travel as 32-bit integers, so they announce 32 bits.
  const unsigned Depth = BitDepthForType(Type);
  const unsigned BufferBits = ASIOBufferBitsForType(Type);
  const unsigned Valid = BufferBits ? std::min(Depth, BufferBits) : Depth;
  const unsigned Bits = (Valid + 7) / 8 * 8;
  TSRWaveFormatExtensible F{};
  F.Format.wFormatTag = WAVE_FORMAT_EXTENSIBLE;
  F.Format.nChannels = 1;
  F.Format.nSamplesPerSec = static_cast<uint32_t>(std::max(Rate, 0));
  F.Format.wBitsPerSample = static_cast<uint16_t>(Bits);
  F.Format.nBlockAlign = static_cast<uint16_t>(Bits / 8);
  F.Format.nAvgBytesPerSec = F.Format.nSamplesPerSec * F.Format.nBlockAlign;
  F.Format.cbSize = 22;
  F.Samples.wValidBitsPerSample = static_cast<uint16_t>(Valid);
  F.dwChannelMask = 1;
  F.SubFormat = KSDATAFORMAT_SUBTYPE_PCM;
  return F;
}


bool TSRASIOAudioDevice::Start() {
  TLockGuard G(GetLock());
  const TSRASIODeviceState Was = GetState();
  if (Was == TSRASIODeviceState::dsStarting || Was == TSRASIODeviceState::dsRunning) return true;
  // 1. The driver.
  if (!Open()) return false;
  if (GetState() == TSRASIODeviceState::dsStopping) FinishStopQuietly();
  FRun.State = TSRASIODeviceState::dsStarting;
  TUndo Starting([this] { FRun.State = TSRASIODeviceState::dsOpen; });
  IASIO* D = FRun.Driver.Get();
  FCounters.Reset();

  // 2. The channels' streams.
  const int32_t IntRate = FIntRate.load();
  for (int I = 0, N = FInputChannels.GetCount(); I < N; ++I) {
    TSRASIOInputChannelItem& Item = FInputChannels.GetItem(I);
    if (!Item.GetEnabled()) continue;
    const TASIOSampleType Type = I < FDriverInputs ? FChannelInfos[static_cast<size_t>(I)].type : ASIOSTLastEntry;
    Item.BeginStream(MakeChannelFormat(Type, IntRate));
  }
  for (int I = 0, N = FOutputChannels.GetCount(); I < N; ++I)
    if (FOutputChannels.GetItem(I).GetEnabled()) FOutputChannels.GetItem(I).BeginStream();
  TUndo Streams([this] { EndChannelStreams(); });

  // 3. The clock source.
  TASIOError Code;
  if (!FClockSource.GetUseCurrent()) {
    Code = ASIOSetClockSource(D, FClockSource.GetActiveIndex());
    if (Code != ASE_OK) {
      Streams.Now();
      Starting.Now();
      // Kept as the component always reported this failure, under another step's name.
      Error("Can't release callback", Code);
      return true;
    }
  }

  // 4. The channels asked of the driver, inputs first.
  FRun.EnabledInputs = FRun.EnabledOutputs = 0;
  FRun.BufferInfos.clear();
  for (int I = 0, N = FInputChannels.GetCount(); I < N; ++I)
    if (FInputChannels.GetItem(I).GetEnabled()) {
      FRun.BufferInfos.push_back(TASIOBufferInfo{ASIOTrue, I, {nullptr, nullptr}});
      ++FRun.EnabledInputs;
    }
  for (int I = 0, N = FOutputChannels.GetCount(); I < N; ++I)
    if (FOutputChannels.GetItem(I).GetEnabled()) {
      FRun.BufferInfos.push_back(TASIOBufferInfo{ASIOFalse, I, {nullptr, nullptr}});
      ++FRun.EnabledOutputs;
    }

  // 5. A callback entry, kept until Close whatever follows.
  PASIOCallbacks Callbacks = nullptr;
  FRun.CallbackIndex =
      ASIOGetCallback(Callbacks, TASIOBufferSwitchMethod::Bind<&TSRASIOAudioDevice::BufferSwitch>(this),
                      TASIOSampleRateDidChangeMethod::Bind<&TSRASIOAudioDevice::SampleRateDidChange>(this),
                      TASIOAsioMessageMethod::Bind<&TSRASIOAudioDevice::AsioMessage>(this),
                      TASIOBufferSwitchTimeInfoMethod::Bind<&TSRASIOAudioDevice::BufferSwitchTimeInfo>(this));
  const auto Fail = [&](const char* Text, TASIOError Failure) {
    Streams.Now();
    Starting.Now();
    Error(Text, Failure);
    return true;
  };
  // Every entry taken (each start without a close takes one more): a driver
  // must never be handed a null record.
  if (!Callbacks) return Fail("Can't get callback", ASE_NoMemory);

  // 6. The buffer size.
  const int32_t Size = FBufferSize.CalculateSize();
  if (Size < 1 || Size > MaxRunningSize) return Fail("Can't create buffers", ASE_InvalidParameter);

  // 7. The driver's buffers; the running size is the size passed, whatever the answer.
  FBufferSize.SetRunningSize(Size);
  Code = ASIOCreateBuffers(D, FRun.BufferInfos.data(), FRun.EnabledInputs + FRun.EnabledOutputs, Size, Callbacks);
  if (Code != ASE_OK) return Fail("Can't create buffers", Code);
  TUndo Buffers([D] { ASIODisposeBuffers(D); });

  // 8. The channels again: the driver may have changed them for its buffers.
  int32_t Failed = 0;
  ReadChannelInfos(Failed);

  // 9. What the exchange works on, made here so that the driver thread
  // allocates nothing; then the driver starts.
  const double Rate = static_cast<double>(FIntRate.load());
  std::vector<TRunChannel> Inputs, Outputs;
  std::vector<TSRASIOInputChannelItem*> ProcessList;
  for (const TASIOBufferInfo& Info : FRun.BufferInfos) {
    TRunChannel C;
    const bool Input = Info.isInput != ASIOFalse;
    const size_t Record = static_cast<size_t>(Input ? Info.channelNum : FDriverInputs + Info.channelNum);
    const bool Known = Info.channelNum < (Input ? FDriverInputs : FDriverOutputs);
    C.Type = Known ? FChannelInfos[Record].type : ASIOSTLastEntry;
    C.Bits = Info.buffers[0] && Info.buffers[1] ? ASIOBufferBitsForType(C.Type) : 0;
    C.Halves[0] = Info.buffers[0];
    C.Halves[1] = Info.buffers[1];
    if (Input) {
      auto& Item = FInputChannels.GetItem(Info.channelNum);
      C.Item = &Item;
      Item.GetQueue().Reserve(RingBuffers);
      if (C.Bits) C.Ring.Make(RingBuffers, static_cast<size_t>(Size), C.Bits, Rate);
      ProcessList.push_back(&Item);
      Inputs.push_back(std::move(C));
    } else {
      auto& Item = FOutputChannels.GetItem(Info.channelNum);
      C.Item = &Item;
      if (C.Bits) C.Scratch = TSRAudioBuffer::Create(1, static_cast<size_t>(Size), C.Bits, Rate);
      // Upstream blocks need not match the driver's size.
      Item.PrepareCopies(static_cast<size_t>(Size), C.Bits, Rate);
      Outputs.push_back(std::move(C));
    }
  }
  if (!FThread)
    FThread = std::make_unique<Threading::TProcessingThread>(this, [this](Threading::IProcessingThread&) { ProcessInputs(); });
  {
    std::lock_guard<std::mutex> L(FProcessLock);
    FProcessInputs = std::move(ProcessList);
  }
  {
    std::lock_guard<std::mutex> L(FExchange.Lock);
    FExchange.Inputs = std::move(Inputs);
    FExchange.Outputs = std::move(Outputs);
    FExchange.Driver = D;
    FExchange.Size = Size;
    FExchange.Rate = Rate;
    FExchange.OnDriverThread = FProcessOnDriverThread.load();
    FExchange.Active = true;
  }
  TUndo Exchange([this] { CloseExchange(true); });
  Code = ASIOStart(D);
  if (Code != ASE_OK) {
    Exchange.Now();
    Buffers.Now();
    return Fail("Can't start", Code);
  }
  Exchange.Keep();
  Buffers.Keep();
  Streams.Keep();
  Starting.Keep();
  FRun.State = TSRASIODeviceState::dsRunning;
  return true;
}

void TSRASIOAudioDevice::Stop() {
  TLockGuard G(GetLock());
  if (GetState() != TSRASIODeviceState::dsRunning) return;
  // 1. The exchange closes, then the driver stops (without the exchange
  // lock: its stop may wait for its thread, which may be calling us).
  FRun.State = TSRASIODeviceState::dsStopping;
  CloseExchange(false);
  TASIOError Code = ASIOStop(FRun.Driver.Get());
  if (Code != ASE_OK) {
    Error("Can't stop", Code);
    return;
  }
  // 2. The channels' streams end.
  EndChannelStreams();
  // 3. The driver's buffers go.
  Code = ASIODisposeBuffers(FRun.Driver.Get());
  if (Code != ASE_OK) {
    Error("Can't dispose buffers", Code);
    return;
  }
  CloseExchange(true);
  FRun.State = TSRASIODeviceState::dsOpen;
}

void TSRASIOAudioDevice::ChannelsChanging() {
  TLockGuard G(GetLock());
  if (GetRunning()) Stop();
  // Whatever happened before, nothing may point at the items any more.
  CloseExchange(true);
  std::lock_guard<std::mutex> L(FProcessLock);
  FProcessInputs.clear();
}

// ---- the driver's values ------------------------------------------------------------

bool TSRASIOAudioDevice::CanSampleRate(double Rate) {
  if (!Open()) return false;
  return ASIOCanSampleRate(FRun.Driver.Get(), Rate) == ASE_OK;
}

bool TSRASIOAudioDevice::ShowDialog() {
  if (!Open()) return false;
  return ASIOControlPanel(FRun.Driver.Get()) == ASE_OK;
}

std::string TSRASIOAudioDevice::GetErrorMessage() {
  if (!Open()) return std::string();
  return ASIOGetErrorMessage(FRun.Driver.Get());
}

std::string TSRASIOAudioDevice::GetDriverName() {
  Open();
  TLockGuard G(GetLock());
  return FDriverName;
}

int32_t TSRASIOAudioDevice::GetDriverVersion() {
  Open();
  TLockGuard G(GetLock());
  return FDriverVersion;
}

int32_t TSRASIOAudioDevice::GetInputLatency() {
  Open();
  TLockGuard G(GetLock());
  return FInputLatency;
}

int32_t TSRASIOAudioDevice::GetOutputLatency() {
  Open();
  TLockGuard G(GetLock());
  return FOutputLatency;
}

bool TSRASIOAudioDevice::GetUsesPostOutput() {
  Open();
  return FUsesPostOutput.load();
}

double TSRASIOAudioDevice::GetRunningSampleRate() {
  Open();
  TLockGuard G(GetLock());
  return FRunningRate;
}

TSRASIOAudioDeviceStats TSRASIOAudioDevice::GetStats() const {
  TSRASIOAudioDeviceStats S;
  S.Switches = FCounters.Switches.load();
  S.SkippedSwitches = FCounters.Skipped.load();
  S.InputBuffers = FCounters.Inputs.load();
  S.SubmittedBuffers = FCounters.Submitted.load();
  S.OutputBuffers = FCounters.Outputs.load();
  S.LostBuffers = FCounters.Lost.load();
  S.DroppedBuffers = FCounters.Dropped.load();
  return S;
}

// ---- reports ------------------------------------------------------------------------

std::string TSRASIOAudioDevice::GetErrorMessageFromCode(int32_t Code) {
  switch (Code) {
    case ASE_NotPresent: return "Hardware input or output is not present or available";
    case ASE_HWMalfunction: return "Hardware is malfunctioning (can be returned by any ASIO function)";
    case ASE_InvalidParameter: return "Input parameter invalid";
    case ASE_InvalidMode: return "Hardware is in a bad mode or used in a bad mode";
    case ASE_SPNotAdvancing: return "Hardware is not running when sample position is inquired";
    case ASE_NoClock: return "Sample clock or rate cannot be determined or is not present";
    case ASE_NoMemory: return "Not enough memory for completing the request";
    default: return "Unknown";
  }
}

void TSRASIOAudioDevice::Error(const std::string& Text, int32_t Code) {
  ReportError(Text + " - " + GetErrorMessageFromCode(Code), Code);
}

void TSRASIOAudioDevice::Warning(const std::string& Text, int32_t Code) {
  ReportWarning(Text + " - " + GetErrorMessageFromCode(Code), Code);
}

// ---- driver callbacks -----------------------------------------------------------------

void TSRASIOAudioDevice::BufferSwitch(int32_t Index, TASIOBool DirectProcess) {
  Exchange(nullptr, Index, DirectProcess);
}

TASIOTime* TSRASIOAudioDevice::BufferSwitchTimeInfo(TASIOTime* Params, int32_t Index, TASIOBool DirectProcess) {
  Exchange(Params, Index, DirectProcess);
  return nullptr;
}

void TSRASIOAudioDevice::Exchange(TASIOTime* Params, int32_t Index, TASIOBool DirectProcess) {
  if (GExchanging == this) {
    FCounters.Skipped.fetch_add(1, std::memory_order_relaxed);
    return;
  }
  std::lock_guard<std::mutex> L(FExchange.Lock);
  TExchangeMark Mark(this);
  if (!FExchange.Active || (Index != 0 && Index != 1)) {
    FCounters.Skipped.fetch_add(1, std::memory_order_relaxed);
    return;
  }
  TASIOTime Time{};
  if (!Params) {
    // A plain buffer switch: the time record is made from the sample position.
    TASIOSamples Position{};
    TASIOTimeStamp Stamp{};
    if (ASIOGetSamplePosition(FExchange.Driver, Position, Stamp) == ASE_OK) {
      Time.timeInfo.samplePosition = Position;
      Time.timeInfo.systemTime = Stamp;
      Time.timeInfo.flags = kSystemTimeValid | kSamplePositionValid;
    }
    Params = &Time;
  }
  try {
    SyncBufferSwitchTimeInfo(Params, Index, DirectProcess);
  } catch (...) {
    // Out of memory in the pool: this exchange is lost, the next may succeed.
  }
  if (FUsesPostOutput.load()) ASIOOutputReady(FExchange.Driver);
}

void TSRASIOAudioDevice::SyncBufferSwitchTimeInfo(TASIOTime*, int32_t Index, TASIOBool) {
  const int32_t N = FExchange.Size;
  const size_t Samples = static_cast<size_t>(N);
  // Outputs first: they carry what the chain made of earlier inputs, so the
  // latency is the same whichever thread is faster.
  const bool Pump = FMasterPumping.load();
  for (TRunChannel& C : FExchange.Outputs) {
    if (!C.Bits) continue;
    auto* Item = static_cast<TSRASIOOutputChannelItem*>(C.Item);
    if (C.Scratch && Item->GetQueue().Pop(*C.Scratch)) {
      ASIOConvertToDriver(C.Type, C.Scratch->GetData(), C.Halves[Index], N);
    } else {
      ASIOSilenceDriver(C.Type, C.Halves[Index], N);
      if (Item->GetPrimed()) FCounters.Lost.fetch_add(1, std::memory_order_relaxed);
    }
    if (Pump) Item->MasterPump();
  }
  bool Queued = false;
  for (TRunChannel& C : FExchange.Inputs) {
    if (!C.Bits) continue;
    ISRAudioBufferRef Buffer = C.Ring.Take(Samples);
    // Every buffer of the channel still downstream: the receivers are far
    // behind, and this one comes from the shared pool.
    if (!Buffer) Buffer = TSRAudioBuffer::Create(1, Samples, C.Bits, FExchange.Rate);
    if (!Buffer || Buffer->GetSamples() != Samples) continue;
    ASIOConvertFromDriver(C.Type, C.Halves[Index], Buffer->GetData(), N);
    FCounters.Inputs.fetch_add(1, std::memory_order_relaxed);
    auto* Item = static_cast<TSRASIOInputChannelItem*>(C.Item);
    if (FExchange.OnDriverThread) {
      Item->SubmitNow(Buffer);
    } else if (Item->GetQueue().Push(Buffer)) {
      Queued = true;
    } else {
      // The processing thread is a whole queue behind.
      FCounters.Dropped.fetch_add(1, std::memory_order_relaxed);
    }
  }
  if (Queued && FThread) FThread->Signal();
  FCounters.Switches.fetch_add(1, std::memory_order_relaxed);
}

void TSRASIOAudioDevice::ProcessInputs() {
  std::lock_guard<std::mutex> L(FProcessLock);
  for (TSRASIOInputChannelItem* Item : FProcessInputs) {
    try {
      Item->NewThreadAudio();
    } catch (...) {
      // A failing receiver reports through its own error path; the other
      // channels go on.
    }
  }
}

void TSRASIOAudioDevice::SampleRateDidChange(TASIOSampleRate) {
  // Drivers report changes that did not happen; the running rate stays
  // what open read.
}

int32_t TSRASIOAudioDevice::AsioMessage(int32_t Selector, int32_t Value, void*, double*) {
  switch (Selector) {
    case kAsioSelectorSupported:
      return (Value == kAsioEngineVersion || Value == kAsioResetRequest || Value == kAsioResyncRequest ||
              Value == kAsioLatenciesChanged || Value == kAsioSupportsTimeInfo || Value == kAsioSupportsTimeCode ||
              Value == kAsioSupportsInputMonitor)
                 ? 1
                 : 0;
    case kAsioEngineVersion: return 2;
    case kAsioResetRequest:
      // Stopping waits for the driver's thread, so it cannot happen on that
      // thread: the main thread does it once its current work is done.
      Threading::MainThreadPost(this, [this] { Stop(); }, true);
      return 1;
    case kAsioBufferSizeChange: return 0;
    case kAsioResyncRequest:
      if (OnResyncRequest) OnResyncRequest(this);
      return 1;
    case kAsioLatenciesChanged:
      if (OnLatenciesChanged) OnLatenciesChanged(this);
      return 1;
    case kAsioSupportsTimeInfo: return 1;
    case kAsioSupportsTimeCode: return 0;
    default: return 0;
  }
}

std::vector<TPWBasicPin*> TSRASIOAudioDevice::GetPublishedPins() const {
  std::vector<TPWBasicPin*> Pins;
  for (int I = 0; I < FInputChannels.GetCount(); ++I) Pins.push_back(&FInputChannels.GetItem(I).GetOutputPin());
  for (int I = 0; I < FOutputChannels.GetCount(); ++I) Pins.push_back(&FOutputChannels.GetItem(I).GetInputPin());
  return Pins;
}

// ---- published properties ---------------------------------------------------

namespace {

std::string GuidText(const TGUID& G) {
  char Text[40];
  std::snprintf(Text, sizeof Text, "{%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}", G.D1, G.D2, G.D3, G.D4[0],
                G.D4[1], G.D4[2], G.D4[3], G.D4[4], G.D4[5], G.D4[6], G.D4[7]);
  return Text;
}

// A driver identifier streams as its registry text; all zeros (none) is the default.
template <typename C>
TWBPropertyInfo DriverIDProperty() {
  TWBPropertyInfo P;
  P.Name = "DriverID";
  P.Default = TWBValue::String(GuidText(TGUID{}));
  P.Get = [](void* O) { return TWBValue::String(GuidText(static_cast<C*>(O)->GetDriverID())); };
  P.Set = [](void* O, const TWBValue& V, std::string& Why) {
    std::string Text;
    TGUID Id{};
    if (!V.AsString(Text) || !Asiodrivers::ClsidFromText(Text, Id)) {
      Why = "property DriverID: " + V.Describe() + " is not an identifier";
      return false;
    }
    static_cast<C*>(O)->SetDriverID(Id);
    return true;
  };
  return P;
}

const TWBClassInfo& DeviceItemClass() {
  static const TWBClassInfo Info = MakeClassInfo(
      "TSRASIODeviceItem", nullptr,
      {Property("DeviceName", &TSRASIODeviceItem::GetDeviceName, &TSRASIODeviceItem::SetDeviceName, std::string()),
       DriverIDProperty<TSRASIODeviceItem>()});
  return Info;
}

const TWBClassInfo& DeviceClass() {
  static const TWBClassInfo Info = MakeClassInfo(
      "TSRASIODevice", nullptr,
      {Property("DeviceName", &TSRASIODevice::GetDeviceName, &TSRASIODevice::SetDeviceName, std::string()),
       DriverIDProperty<TSRASIODevice>(),
       Collection<TSRASIODevice>(
           "AlternativeDevices", DeviceItemClass(),
           [](TSRASIODevice& D) { return static_cast<size_t>(D.GetAlternativeDevices().GetCount()); },
           [](TSRASIODevice& D, size_t N, std::string& Why) {
             if (N > 4096) {
               Why = std::to_string(N) + " alternative devices are more than a device can have";
               return false;
             }
             auto& Items = D.GetAlternativeDevices();
             Items.Clear();
             for (size_t I = 0; I < N; ++I) Items.Add();
             return true;
           },
           [](TSRASIODevice& D, size_t I) -> void* { return &D.GetAlternativeDevices().GetItem(static_cast<int>(I)); })});
  return Info;
}

const TWBClassInfo& SampleRateClass() {
  static const TWBClassInfo Info = MakeClassInfo(
      "TSRASIOSampleRate", nullptr,
      {Property("UseCurrent", &TSRASIOSampleRate::GetUseCurrent, &TSRASIOSampleRate::SetUseCurrent, false),
       Property("Rate", &TSRASIOSampleRate::GetRate, &TSRASIOSampleRate::SetRate, 44100.0)});
  return Info;
}

const TWBClassInfo& ClockSourceClass() {
  static const TWBClassInfo Info = MakeClassInfo(
      "TSRASIOClockSource", nullptr,
      {Property("UseCurrent", &TSRASIOClockSource::GetUseCurrent, &TSRASIOClockSource::SetUseCurrent, false),
       Property("ActiveIndex", &TSRASIOClockSource::GetActiveIndex, &TSRASIOClockSource::SetActieveIndex,
                int32_t(0))});
  return Info;
}

const TWBClassInfo& BufferSizeClass() {
  static const TWBClassInfo Info = MakeClassInfo(
      "TSRASIOBufferSize", nullptr,
      {Property("UsePreferred", &TSRASIOBufferSize::GetUsePreferred, &TSRASIOBufferSize::SetUsePreferred, true),
       Property("BufferSize", &TSRASIOBufferSize::GetBufferSize, &TSRASIOBufferSize::SetBufferSize, uint32_t(256))});
  return Info;
}

const TWBClassInfo& ChannelItemClass() {
  static const TWBClassInfo Info = MakeClassInfo(
      "TSRASIOChannelItem", nullptr,
      {Property("Enabled", &TSRASIOChannelItem::GetEnabled, &TSRASIOChannelItem::SetEnabled, true)});
  return Info;
}

template <typename TItems>
TWBPropertyInfo ChannelsProperty(const std::string& Name, TItems& (TSRASIOAudioDevice::*Accessor)()) {
  return Collection<TSRASIOAudioDevice>(
      Name, ChannelItemClass(),
      [Accessor](TSRASIOAudioDevice& D) { return static_cast<size_t>((D.*Accessor)().GetCount()); },
      [Accessor](TSRASIOAudioDevice& D, size_t N, std::string& Why) {
        if (N > static_cast<size_t>(MaxDriverChannels)) {
          Why = std::to_string(N) + " channels are more than a driver can have";
          return false;
        }
        (D.*Accessor)().SetCount(static_cast<int>(N));
        return true;
      },
      [Accessor](TSRASIOAudioDevice& D, size_t I) -> void* {
        return static_cast<TSRASIOChannelItem*>(&(D.*Accessor)().GetItem(static_cast<int>(I)));
      });
}

}  // namespace

const TWBClassInfo& TSRASIOAudioDevice::ClassInfo() {
  using D = TSRASIOAudioDevice;
  static const TWBClassInfo Info = MakeClassInfo(
      "TSRASIOAudioDevice", &TWBComponent::ClassInfo(),
      {Group("Device", &D::GetDevice, DeviceClass()), Group("SampleRate", &D::GetSampleRate, SampleRateClass()),
       Group("ClockSource", &D::GetClockSource, ClockSourceClass()),
       Group("BufferSize", &D::GetBufferSize, BufferSizeClass()),
       ChannelsProperty("InputChannels", &D::GetInputChannels),
       ChannelsProperty("OutputChannels", &D::GetOutputChannels),
       Property("MasterPumping", &D::GetMasterPumping, &D::SetMasterPumping, false),
       Property("ProcessOnDriverThread", &D::GetProcessOnDriverThread, &D::SetProcessOnDriverThread, false),
       // The device's own Enabled: while loading it records the wish, and Loaded starts the device.
       Property("Enabled", &D::GetEnabled, &D::SetEnabled, false)},
      Factory<TSRASIOAudioDevice>());
  return Info;
}

namespace Srasioaudiodevice {

void RegisterPkg() { Design::Components::RegisterComponents({&TSRASIOAudioDevice::ClassInfo()}); }
void UnregisterPkg() { Design::Components::UnregisterComponents({&TSRASIOAudioDevice::ClassInfo()}); }

}  // namespace Srasioaudiodevice

}  // namespace Quorvel
