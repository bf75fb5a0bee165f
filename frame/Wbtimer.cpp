#include "frame/Wbtimer.h"

#include <algorithm>
#include <chrono>

#include "frame/Threading.h"

namespace Quorvel {

TWBTimer::~TWBTimer() {
  Halt();
  Threading::RemoveMainThreadProcs(this);
}

void TWBTimer::SetInterval(uint32_t Milliseconds) {
  {
    std::lock_guard<std::mutex> L(FMutex);
    FInterval = std::max<uint32_t>(Milliseconds, 1);
  }
  if (GetEnabled()) Restart();
}

uint32_t TWBTimer::GetInterval() const {
  std::lock_guard<std::mutex> L(FMutex);
  return FInterval;
}

void TWBTimer::SetEnabled(bool Value) {
  if (Value == GetEnabled()) return;
  if (Value)
    Restart();
  else
    Halt();
}

bool TWBTimer::GetEnabled() const {
  std::lock_guard<std::mutex> L(FMutex);
  return FEnabled;
}

void TWBTimer::Restart() {
  Halt();
  std::lock_guard<std::mutex> L(FMutex);
  FEnabled = true;
  FStop = false;
  const uint64_t Generation = ++FGeneration;
  FThread = std::thread([this, Generation] { Run(Generation); });
}

void TWBTimer::Halt() {
  std::thread Thread;
  {
    std::lock_guard<std::mutex> L(FMutex);
    FEnabled = false;
    FStop = true;
    ++FGeneration;
    Thread = std::move(FThread);
  }
  FWake.notify_all();
  if (Thread.joinable()) Thread.join();
}

void TWBTimer::Run(uint64_t Generation) {
  using TClock = std::chrono::steady_clock;
  std::unique_lock<std::mutex> L(FMutex);
  auto Next = TClock::now() + std::chrono::milliseconds(FInterval);
  while (!FStop) {
    if (FWake.wait_until(L, Next, [this] { return FStop; })) break;
    // Ticks keep their rhythm; after a long stall the next one is an interval away.
    Next += std::chrono::milliseconds(FInterval);
    const auto Now = TClock::now();
    if (Next < Now) Next = Now + std::chrono::milliseconds(FInterval);
    L.unlock();
    Threading::MainThreadPost(this, [this, Generation] { Tick(Generation); }, true);
    L.lock();
  }
}

void TWBTimer::Tick(uint64_t Generation) {
  {
    std::lock_guard<std::mutex> L(FMutex);
    if (!FEnabled || Generation != FGeneration) return;
  }
  if (OnTimer) OnTimer(*this);
}

}  // namespace Quorvel
