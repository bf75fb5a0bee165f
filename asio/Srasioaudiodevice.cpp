#include "asio/Srasioaudiodevice.h"

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
// Buffer sizes beyond this are refused after the driver accepted them.
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

std::string ChannelInfoText(bool Input, int32_t Index) {
  char Text[64];
  std::snprintf(Text, sizeof Text, Input ? "Can't get inpit channel %d info" : "Can't get outpit channel %d info",
                static_cast<int>(Index));
  return Text;
}

}  // namespace

// ---- TSRASIOAudioQueue ----------------------------------------------------------

void TSRASIOAudioQueue::Reserve(size_t Buffers) {
  std::lock_guard<std::mutex> L(FMutex);
  if (Buffers <= FRing.size()) return;
  std::vector<ISRAudioBufferRef> Ring(Buffers);
  for (size_t I = 0; I < FCount; ++I) Ring[I] = std::move(At(I));
  FRing.swap(Ring);
  FHead = 0;
}

void TSRASIOAudioQueue::Push(const ISRAudioBufferRef& Buffer) {
  if (!Buffer) return;
  std::lock_guard<std::mutex> L(FMutex);
  if (FCount == FRing.size()) {
    // Full: grow (only ever beyond the largest backlog seen so far).
    std::vector<ISRAudioBufferRef> Ring(std::max<size_t>(8, FRing.size() * 2));
    for (size_t I = 0; I < FCount; ++I) Ring[I] = std::move(At(I));
    FRing.swap(Ring);
    FHead = 0;
  }
  At(FCount) = Buffer;
  ++FCount;
  FTotal += Buffer->GetSamples();
}

bool TSRASIOAudioQueue::Pop(ISRAudioBuffer& Target) {
  const size_t Wanted = Target.GetSamples();
  std::lock_guard<std::mutex> L(FMutex);
  if (Wanted > FTotal) return false;
  uint8_t* Dst = Target.GetData();
  const unsigned DstBits = Target.GetBits();
  size_t Done = 0;
  while (Done < Wanted) {
    ISRAudioBufferRef& Head = At(0);
    const size_t Available = Head->GetSamples() - FOffset;
    const size_t Run = std::min(Available, Wanted - Done);
    ConvertPcmFrames(Head->GetData() + FOffset * Head->GetFrameBytes(), Head->GetChannels(), Head->GetBits(),
                     Dst + Done * Target.GetFrameBytes(), Target.GetChannels(), DstBits, Run);
    Done += Run;
    if (Run < Available) {
      FOffset += Run;
    } else {
      Head.Reset();
      FHead = (FHead + 1) % FRing.size();
      --FCount;
      FOffset = 0;
    }
  }
  FTotal -= Wanted;
  return true;
}

ISRAudioBufferRef TSRASIOAudioQueue::PopBuffer() {
  std::lock_guard<std::mutex> L(FMutex);
  if (FCount == 0) return nullptr;
  ISRAudioBufferRef Head = std::move(At(0));
  FHead = (FHead + 1) % FRing.size();
  --FCount;
  FTotal -= Head->GetSamples() - FOffset;
  if (FOffset) {
    // The head was partly read: hand out the rest only.
    const size_t Left = Head->GetSamples() - FOffset;
    auto Rest = TSRAudioBuffer::Create(Head->GetChannels(), Left, Head->GetBits(), Head->GetSampleRate());
    std::memcpy(Rest->GetData(), Head->GetData() + FOffset * Head->GetFrameBytes(), Left * Head->GetFrameBytes());
    FOffset = 0;
    return Rest;
  }
  return Head;
}

void TSRASIOAudioQueue::Clear() {
  std::lock_guard<std::mutex> L(FMutex);
  for (auto& B : FRing) B.Reset();
  FHead = FCount = FTotal = FOffset = 0;
}

size_t TSRASIOAudioQueue::GetTotal() const {
  std::lock_guard<std::mutex> L(FMutex);
  return FTotal;
}

size_t TSRASIOAudioQueue::GetReadOffset() const {
  std::lock_guard<std::mutex> L(FMutex);
  return FOffset;
}

size_t TSRASIOAudioQueue::GetCount() const {
  std::lock_guard<std::mutex> L(FMutex);
  return FCount;
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
    FPin->SubmitBuffer(Buffer);
    FDevice.FCounters.Submitted.fetch_add(1, std::memory_order_relaxed);
  }
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
      FQueue.Push(Copy);
      FPrimed = true;
      FDevice.FCounters.Outputs.fetch_add(1, std::memory_order_relaxed);
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

bool TSRASIOAudioDevice::GetOpened() const { return FOpened.load(); }

void TSRASIOAudioDevice::SetOpened(bool Value) {
  if (Value == GetOpened()) return;
  if (Value)
    Open();
  else
    Close();
}

void TSRASIOAudioDevice::SetEnabled(bool Value) {
  TLockGuard G(GetLock());
  if (Value == FDeviceEnabled.load()) return;
  if (IsDesigning() || IsLoading()) {
    FDeviceEnabled = Value;
    return;
  }
  if (Value)
    Start();
  else
    Stop();
}

void TSRASIOAudioDevice::Loaded() {
  // A device stored as enabled starts once its properties are in place.
  if (FDeviceEnabled.load() && !IsDesigning() && !FRunning.load()) {
    FDeviceEnabled = false;
    SetEnabled(true);
  }
}

bool TSRASIOAudioDevice::Open() {
  if (!GetLock().TryEnter()) return false;
  struct TLeave {
    Threading::ICriticalSection& L;
    ~TLeave() { L.Leave(); }
  } Leave{GetLock()};
  if (FDriver) return true;
  return IntOpen();
}

void TSRASIOAudioDevice::DropDriver() {
  FDriver.Reset();
  FOpened = false;
}

bool TSRASIOAudioDevice::IntOpen() {
  IASIORef D = FDevice.GetDevice();
  if (!D) return false;
  ASIOInit(D.Get(), FWindow);
  FDriver = D;
  FOpened = true;
  FDriverName = ASIOGetDriverName(D.Get());
  FDriverVersion = ASIOGetDriverVersion(D.Get());

  TASIOError Code;
  if (!FSampleRate.GetUseCurrent()) {
    Code = ASIOSetSampleRate(D.Get(), FSampleRate.GetRate());
    if (Code != ASE_OK) {
      DropDriver();
      Error("Can't set sample rate", Code);
      return false;
    }
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

  int32_t Inputs = 0, Outputs = 0;
  Code = ASIOGetChannels(D.Get(), Inputs, Outputs);
  if (Code != ASE_OK || Inputs < 0 || Outputs < 0 || Inputs > MaxDriverChannels || Outputs > MaxDriverChannels) {
    DropDriver();
    Error("Can't get channels", Code);
    return false;
  }
  FDriverInputs = Inputs;
  FDriverOutputs = Outputs;
  FChannelInfos.assign(static_cast<size_t>(Inputs) + static_cast<size_t>(Outputs), TASIOChannelInfo{});

  int32_t Min = 0, Max = 0, Preferred = 0, Granularity = 0;
  Code = ASIOGetBufferSize(D.Get(), Min, Max, Preferred, Granularity);
  if (Code != ASE_OK) {
    DropDriver();
    Error("Can't get buffer size", Code);
    return false;
  }
  {
    TLockGuard G(GetLock());
    FBufferSize.FMin = Min;
    FBufferSize.FMax = Max;
    FBufferSize.FPreferred = Preferred;
    FBufferSize.FGranularity = Granularity;
  }
  if (!ReadChannelInfos(false)) return false;

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
  FClockSource.FSources = std::move(Clocks);
  return true;
}

bool TSRASIOAudioDevice::ReadChannelInfos(bool Warn) {
  IASIO* D = FDriver.Get();
  const int32_t Counts[2] = {FDriverInputs, FDriverOutputs};
  for (int Side = 0; Side < 2; ++Side) {
    const bool Input = Side == 0;
    for (int32_t I = 0; I < Counts[Side]; ++I) {
      TASIOChannelInfo Info{};
      Info.channel = I;
      Info.isInput = Input ? ASIOTrue : ASIOFalse;
      const TASIOError Code = ASIOGetChannelInfo(D, Info);
      if (Code != ASE_OK) {
        if (Warn) {
          Warning(ChannelInfoText(Input, I), Code);
          continue;
        }
        DropDriver();
        Error(ChannelInfoText(Input, I), Code);
        return false;
      }
      Info.name[sizeof Info.name - 1] = 0;
      FChannelInfos[static_cast<size_t>(Input ? I : FDriverInputs + I)] = Info;
    }
  }
  // What the driver offers, for the channel lists.
  FAvailableInputs.FItems.clear();
  FAvailableOutputs.FItems.clear();
  for (int32_t I = 0; I < FDriverInputs + FDriverOutputs; ++I) {
    const TASIOChannelInfo& Info = FChannelInfos[static_cast<size_t>(I)];
    const bool Input = I < FDriverInputs;
    (Input ? FAvailableInputs : FAvailableOutputs)
        .FItems.push_back({Info.name, Input, Input ? I : I - FDriverInputs, Info.type, Info.channelGroup});
  }
  return true;
}

void TSRASIOAudioDevice::Close() {
  TLockGuard G(GetLock());
  if (!FDriver) return;
  Stop();
  if (FBuffersCreated) {
    // A stop that failed left the driver's buffers (and maybe its thread):
    // try once more, quietly, before the driver goes.
    {
      std::lock_guard<std::mutex> L(FExchangeLock);
      FExchangeActive = false;
    }
    ASIOStop(FDriver.Get());
    UnannounceInputs();
    ASIODisposeBuffers(FDriver.Get());
    FBuffersCreated = false;
  }
  ASIOReleaseCallback(FCallbackIndex);
  DropDriver();
  FRunning = false;
  FStopping = false;
  FDeviceEnabled = false;
}

// ---- start and stop ---------------------------------------------------------------

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

void TSRASIOAudioDevice::AnnounceInputs() {
  const int32_t Rate = FIntRate.load();
  for (int I = 0, N = FInputChannels.GetCount(); I < N; ++I) {
    TSRASIOInputChannelItem& Item = FInputChannels.GetItem(I);
    if (!Item.GetEnabled()) continue;
    const TASIOSampleType Type = I < FDriverInputs ? FChannelInfos[static_cast<size_t>(I)].type : ASIOSTLastEntry;
    TLockGuard P(Item.FPinLock);
    Item.FQueue.Clear();
    Item.FStarted = true;
    Item.FPin->SendStartWave(MakeChannelFormat(Type, Rate), true);
  }
  for (int I = 0, N = FOutputChannels.GetCount(); I < N; ++I) {
    TSRASIOOutputChannelItem& Item = FOutputChannels.GetItem(I);
    if (!Item.GetEnabled()) continue;
    TLockGuard P(Item.FPinLock);
    Item.FQueue.Clear();
    Item.FPrimed = false;
    Item.FStarted = true;
  }
}

void TSRASIOAudioDevice::UnannounceInputs() {
  std::lock_guard<std::mutex> L(FProcessLock);
  for (int I = 0, N = FInputChannels.GetCount(); I < N; ++I) {
    TSRASIOInputChannelItem& Item = FInputChannels.GetItem(I);
    if (!Item.FStarted.load()) continue;
    TLockGuard P(Item.FPinLock);
    Item.FStarted = false;
    Item.FQueue.Clear();
    Item.FPin->SendStop();
  }
  FProcessInputs.clear();
}

void TSRASIOAudioDevice::StartFailed(bool BuffersCreated) {
  {
    std::lock_guard<std::mutex> L(FExchangeLock);
    FExchangeActive = false;
    FRunInputs.clear();
    FRunOutputs.clear();
  }
  UnannounceInputs();
  for (int I = 0, N = FOutputChannels.GetCount(); I < N; ++I) FOutputChannels.GetItem(I).FStarted = false;
  if (BuffersCreated) {
    ASIODisposeBuffers(FDriver.Get());
    FBuffersCreated = false;
  }
}

bool TSRASIOAudioDevice::Start() {
  TLockGuard G(GetLock());
  if (FStarting || FRunning.load()) return true;
  if (!Open()) return false;
  FStarting = true;
  struct TDone {
    bool& Flag;
    ~TDone() { Flag = false; }
  } Done{FStarting};
  IASIO* D = FDriver.Get();
  FCounters.Switches = FCounters.Skipped = FCounters.Inputs = FCounters.Submitted = FCounters.Outputs =
      FCounters.Lost = 0;

  AnnounceInputs();

  TASIOError Code;
  if (!FClockSource.GetUseCurrent()) {
    Code = ASIOSetClockSource(D, FClockSource.GetActiveIndex());
    if (Code != ASE_OK) {
      StartFailed(false);
      Error("Can't release callback", Code);
      return true;
    }
  }

  FEnabledInputs = FEnabledOutputs = 0;
  FBufferInfos.clear();
  for (int I = 0, N = FInputChannels.GetCount(); I < N; ++I)
    if (FInputChannels.GetItem(I).GetEnabled()) {
      FBufferInfos.push_back(TASIOBufferInfo{ASIOTrue, I, {nullptr, nullptr}});
      ++FEnabledInputs;
    }
  for (int I = 0, N = FOutputChannels.GetCount(); I < N; ++I)
    if (FOutputChannels.GetItem(I).GetEnabled()) {
      FBufferInfos.push_back(TASIOBufferInfo{ASIOFalse, I, {nullptr, nullptr}});
      ++FEnabledOutputs;
    }

  PASIOCallbacks Callbacks = nullptr;
  FCallbackIndex = ASIOGetCallback(Callbacks, TASIOBufferSwitchMethod::Bind<&TSRASIOAudioDevice::BufferSwitch>(this),
                                   TASIOSampleRateDidChangeMethod::Bind<&TSRASIOAudioDevice::SampleRateDidChange>(this),
                                   TASIOAsioMessageMethod::Bind<&TSRASIOAudioDevice::AsioMessage>(this),
                                   TASIOBufferSwitchTimeInfoMethod::Bind<&TSRASIOAudioDevice::BufferSwitchTimeInfo>(this));
  if (!Callbacks) {
    // Every entry is taken (each start without a close takes one more): a
    // driver must never be handed a null record.
    StartFailed(false);
    Error("Can't get callback", ASE_NoMemory);
    return true;
  }

  const int32_t Size = FBufferSize.CalculateSize();
  Code = ASIOCreateBuffers(D, FBufferInfos.data(), FEnabledInputs + FEnabledOutputs, Size, Callbacks);
  if (Code != ASE_OK) {
    StartFailed(false);
    Error("Can't create buffers", Code);
    return true;
  }
  FBuffersCreated = true;
  if (Size < 1 || Size > MaxRunningSize) {
    StartFailed(true);
    Error("Can't create buffers", ASE_InvalidParameter);
    return true;
  }
  FBufferSize.FRunningSize = Size;
  ReadChannelInfos(true);

  // What the exchange works on, made here on the main thread so that the
  // driver thread allocates nothing.
  const double Rate = static_cast<double>(FIntRate.load());
  std::vector<TRunChannel> Inputs, Outputs;
  std::vector<TSRASIOInputChannelItem*> ProcessList;
  for (const TASIOBufferInfo& Info : FBufferInfos) {
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
      Item.FQueue.Reserve(RingBuffers);
      if (C.Bits) C.Ring.Make(RingBuffers, static_cast<size_t>(Size), C.Bits, Rate);
      ProcessList.push_back(&Item);
      Inputs.push_back(std::move(C));
    } else {
      auto& Item = FOutputChannels.GetItem(Info.channelNum);
      C.Item = &Item;
      Item.FQueue.Reserve(RingBuffers);
      if (C.Bits) C.Scratch = TSRAudioBuffer::Create(1, static_cast<size_t>(Size), C.Bits, Rate);
      {
        // Upstream blocks need not match the driver's size.
        TLockGuard P(Item.FPinLock);
        if (C.Bits)
          Item.FRing.Make(RingBuffers, std::max<size_t>(static_cast<size_t>(Size), MinRingCapacity), C.Bits, Rate);
        else
          Item.FRing.Clear();
      }
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
    std::lock_guard<std::mutex> L(FExchangeLock);
    FRunInputs = std::move(Inputs);
    FRunOutputs = std::move(Outputs);
    FExchangeDriver = D;
    FExchangeSize = Size;
    FExchangeRate = Rate;
    FExchangeActive = true;
  }

  Code = ASIOStart(D);
  if (Code != ASE_OK) {
    StartFailed(true);
    Error("Can't start", Code);
    return true;
  }
  FRunning = true;
  FDeviceEnabled = true;
  return true;
}

void TSRASIOAudioDevice::Stop() {
  TLockGuard G(GetLock());
  if (!FRunning.load() || FStopping) return;
  FStopping = true;
  FRunning = false;
  {
    // From here on callbacks find nothing to exchange. The lock is not held
    // while the driver stops: its stop may wait for its own thread, which may
    // be about to call us.
    std::lock_guard<std::mutex> L(FExchangeLock);
    FExchangeActive = false;
  }
  TASIOError Code = ASIOStop(FDriver.Get());
  if (Code != ASE_OK) {
    Error("Can't stop", Code);
    return;
  }
  UnannounceInputs();
  for (int I = 0, N = FOutputChannels.GetCount(); I < N; ++I) FOutputChannels.GetItem(I).FStarted = false;
  Code = ASIODisposeBuffers(FDriver.Get());
  if (Code != ASE_OK) {
    Error("Can't dispose buffers", Code);
    return;
  }
  FBuffersCreated = false;
  {
    std::lock_guard<std::mutex> L(FExchangeLock);
    FRunInputs.clear();
    FRunOutputs.clear();
  }
  FDeviceEnabled = false;
  FStopping = false;
}

void TSRASIOAudioDevice::ChannelsChanging() {
  if (FRunning.load()) Stop();
  // Whatever happened before, nothing may point at the items any more.
  {
    std::lock_guard<std::mutex> L(FExchangeLock);
    FExchangeActive = false;
    FRunInputs.clear();
    FRunOutputs.clear();
  }
  std::lock_guard<std::mutex> L(FProcessLock);
  FProcessInputs.clear();
}

// ---- the driver's values ------------------------------------------------------------

bool TSRASIOAudioDevice::CanSampleRate(double Rate) {
  if (!Open()) return false;
  return ASIOCanSampleRate(FDriver.Get(), Rate) == ASE_OK;
}

bool TSRASIOAudioDevice::ShowDialog() {
  if (!Open()) return false;
  return ASIOControlPanel(FDriver.Get()) == ASE_OK;
}

std::string TSRASIOAudioDevice::GetErrorMessage() {
  if (!Open()) return std::string();
  return ASIOGetErrorMessage(FDriver.Get());
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
  std::lock_guard<std::mutex> L(FExchangeLock);
  TExchangeMark Mark(this);
  if (!FExchangeActive || (Index != 0 && Index != 1)) {
    FCounters.Skipped.fetch_add(1, std::memory_order_relaxed);
    return;
  }
  TASIOTime Time{};
  if (!Params) {
    // A plain buffer switch: the time record is made from the sample position.
    TASIOSamples Position{};
    TASIOTimeStamp Stamp{};
    if (ASIOGetSamplePosition(FExchangeDriver, Position, Stamp) == ASE_OK) {
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
  if (FUsesPostOutput.load()) ASIOOutputReady(FExchangeDriver);
}

void TSRASIOAudioDevice::SyncBufferSwitchTimeInfo(TASIOTime*, int32_t Index, TASIOBool) {
  const int32_t N = FExchangeSize;
  const size_t Samples = static_cast<size_t>(N);
  // Outputs first: they carry what the chain made of earlier inputs, so the
  // latency is the same whichever thread is faster.
  const bool Pump = FMasterPumping.load();
  for (TRunChannel& C : FRunOutputs) {
    if (!C.Bits) continue;
    auto* Item = static_cast<TSRASIOOutputChannelItem*>(C.Item);
    if (C.Scratch && Item->FQueue.Pop(*C.Scratch)) {
      ASIOConvertToDriver(C.Type, C.Scratch->GetData(), C.Halves[Index], N);
    } else {
      ASIOSilenceDriver(C.Type, C.Halves[Index], N);
      if (Item->FPrimed.load()) FCounters.Lost.fetch_add(1, std::memory_order_relaxed);
    }
    if (Pump) Item->MasterPump();
  }
  bool Queued = false;
  for (TRunChannel& C : FRunInputs) {
    if (!C.Bits) continue;
    ISRAudioBufferRef Buffer = C.Ring.Take(Samples);
    // Every buffer of the channel still downstream: the receivers are far
    // behind, and this one comes from the shared pool.
    if (!Buffer) Buffer = TSRAudioBuffer::Create(1, Samples, C.Bits, FExchangeRate);
    if (!Buffer || Buffer->GetSamples() != Samples) continue;
    ASIOConvertFromDriver(C.Type, C.Halves[Index], Buffer->GetData(), N);
    C.Item->FQueue.Push(Buffer);
    FCounters.Inputs.fetch_add(1, std::memory_order_relaxed);
    Queued = true;
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

}  // namespace Quorvel
