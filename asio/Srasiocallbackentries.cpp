// The callback entry table. The 101 forwarding sets are instances of one
// template over the entry index, so each function knows its entry without an
// argument from the driver. Acquire and release run on the main thread only
// and take no lock; the forwarders run on the driver's thread, so every bound
// field is atomic: the code part is published last on binding and cleared
// first on release.
#include "asio/Srasiocallbackentries.h"

#include <array>
#include <atomic>
#include <utility>

namespace Quorvel {
namespace {

template <typename TMethod>
struct TSlot {
  std::atomic<void*> Object{nullptr};
  std::atomic<typename TMethod::TCode> Code{nullptr};

  bool Empty() const { return Code.load(std::memory_order_acquire) == nullptr; }
  void Store(const TMethod& M) {
    Object.store(M.Object, std::memory_order_relaxed);
    Code.store(M.Code, std::memory_order_release);
  }
  void Clear() {
    Code.store(nullptr, std::memory_order_release);
    Object.store(nullptr, std::memory_order_relaxed);
  }
  // The code part, and with it the object stored before it.
  typename TMethod::TCode Load(void*& Obj) const {
    const auto C = Code.load(std::memory_order_acquire);
    Obj = Object.load(std::memory_order_relaxed);
    return C;
  }
};

struct TEntry {
  TSlot<TASIOBufferSwitchMethod> BufferSwitch;
  TSlot<TASIOSampleRateDidChangeMethod> SampleRateDidChange;
  TSlot<TASIOAsioMessageMethod> AsioMessage;
  TSlot<TASIOBufferSwitchTimeInfoMethod> BufferSwitchTimeInfo;
};

TEntry Entries[ASIOCallbackEntryCount];

template <int32_t Index>
struct TForward {
  static void BufferSwitch(int32_t DoubleBufferIndex, TASIOBool DirectProcess) noexcept {
    void* Object;
    if (auto Code = Entries[Index].BufferSwitch.Load(Object)) try {
        Code(Object, DoubleBufferIndex, DirectProcess);
      } catch (...) {
      }
  }
  static void SampleRateDidChange(TASIOSampleRate Rate) noexcept {
    void* Object;
    if (auto Code = Entries[Index].SampleRateDidChange.Load(Object)) try {
        Code(Object, Rate);
      } catch (...) {
      }
  }
  static int32_t AsioMessage(int32_t Selector, int32_t Value, void* Message, double* Opt) noexcept {
    void* Object;
    if (auto Code = Entries[Index].AsioMessage.Load(Object)) try {
        return Code(Object, Selector, Value, Message, Opt);
      } catch (...) {
      }
    return 0;
  }
  static TASIOTime* BufferSwitchTimeInfo(TASIOTime* Params, int32_t DoubleBufferIndex,
                                         TASIOBool DirectProcess) noexcept {
    void* Object;
    if (auto Code = Entries[Index].BufferSwitchTimeInfo.Load(Object)) try {
        return Code(Object, Params, DoubleBufferIndex, DirectProcess);
      } catch (...) {
      }
    return nullptr;
  }
};

template <int32_t... Indices>
constexpr std::array<TASIOCallbacks, sizeof...(Indices)> MakeRecords(std::integer_sequence<int32_t, Indices...>) {
  return {{{&TForward<Indices>::BufferSwitch, &TForward<Indices>::SampleRateDidChange,
            &TForward<Indices>::AsioMessage, &TForward<Indices>::BufferSwitchTimeInfo}...}};
}

// Constant-initialised: the records exist before any code of the process runs.
std::array<TASIOCallbacks, ASIOCallbackEntryCount> Records =
    MakeRecords(std::make_integer_sequence<int32_t, ASIOCallbackEntryCount>());

bool InRange(int32_t Index) { return Index >= 0 && Index < ASIOCallbackEntryCount; }

}  // namespace

int32_t ASIOGetCallback(PASIOCallbacks& Callbacks, const TASIOBufferSwitchMethod& BufferSwitch,
                        const TASIOSampleRateDidChangeMethod& SampleRateDidChange,
                        const TASIOAsioMessageMethod& AsioMessage,
                        const TASIOBufferSwitchTimeInfoMethod& BufferSwitchTimeInfo) {
  Callbacks = nullptr;
  for (int32_t I = 0; I < ASIOCallbackEntryCount; ++I) {
    TEntry& E = Entries[I];
    if (!E.BufferSwitchTimeInfo.Empty() || !E.AsioMessage.Empty() || !E.SampleRateDidChange.Empty() ||
        !E.BufferSwitch.Empty())
      continue;
    E.BufferSwitch.Store(BufferSwitch);
    E.SampleRateDidChange.Store(SampleRateDidChange);
    E.AsioMessage.Store(AsioMessage);
    E.BufferSwitchTimeInfo.Store(BufferSwitchTimeInfo);
    Callbacks = &Records[static_cast<size_t>(I)];
    return I;
  }
  return -1;
}

void ASIOReleaseCallback(int32_t Index) {
  if (!InRange(Index)) return;
  TEntry& E = Entries[Index];
  E.BufferSwitch.Clear();
  E.SampleRateDidChange.Clear();
  E.AsioMessage.Clear();
  E.BufferSwitchTimeInfo.Clear();
}

int32_t ASIOReleaseCallbacksOf(const void* Object) {
  if (!Object) return 0;
  int32_t Released = 0;
  for (int32_t I = 0; I < ASIOCallbackEntryCount; ++I) {
    const TEntry& E = Entries[I];
    if (E.BufferSwitch.Object.load() == Object || E.SampleRateDidChange.Object.load() == Object ||
        E.AsioMessage.Object.load() == Object || E.BufferSwitchTimeInfo.Object.load() == Object) {
      ASIOReleaseCallback(I);
      ++Released;
    }
  }
  return Released;
}

PASIOCallbacks ASIOCallbackRecord(int32_t Index) {
  return InRange(Index) ? &Records[static_cast<size_t>(Index)] : nullptr;
}

}  // namespace Quorvel
