// A timer whose ticks run on the main thread, through the main-thread queue
// (the application's message loop on Windows, ProcessMainThreadQueue
// elsewhere). A tick that is still waiting in the queue is not queued again,
// so a busy main thread gets one late tick, not a pile of them. Editors'
// idle calls and meters that poll their device use it.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>

namespace Quorvel {

class TWBTimer {
 public:
  TWBTimer() = default;
  // [main thread] Stops the timer; a tick still queued does not run.
  ~TWBTimer();
  TWBTimer(const TWBTimer&) = delete;
  TWBTimer& operator=(const TWBTimer&) = delete;

  // [main thread] Milliseconds between ticks (at least 1, default 1000); a
  // running timer starts counting again from now.
  void SetInterval(uint32_t Milliseconds);
  uint32_t GetInterval() const;
  // [main thread] Ticks run only while enabled (default false); disabling
  // drops a tick that is queued but has not run.
  void SetEnabled(bool Value);
  bool GetEnabled() const;

  // [main thread] Runs at each tick.
  std::function<void(TWBTimer& Sender)> OnTimer;

 private:
  void Restart();
  void Halt();
  void Run(uint64_t Generation);
  void Tick(uint64_t Generation);

  mutable std::mutex FMutex;
  std::condition_variable FWake;
  std::thread FThread;
  uint32_t FInterval = 1000;
  bool FEnabled = false;
  bool FStop = false;
  uint64_t FGeneration = 0;  // changes at each start and stop: older ticks are stale
};

}  // namespace Quorvel
