// Threading services: locks, waitable events, worker threads and the
// main-thread execution queue.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

#if defined(__SANITIZE_THREAD__)
#define QUORVEL_TSAN 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define QUORVEL_TSAN 1
#endif
#endif
#if defined(QUORVEL_TSAN)
#include <sanitizer/tsan_interface.h>
#endif

namespace Quorvel::Threading {

// A recursive lock. Every component owns one; pin lists share it.
class ICriticalSection {
 public:
  virtual ~ICriticalSection() = default;
  virtual void Enter() = 0;      // [any thread]
  virtual void Leave() = 0;      // [any thread] by the thread that entered
  virtual bool TryEnter() = 0;   // [any thread]
};

class TCriticalSection final : public ICriticalSection {
 public:
#if defined(QUORVEL_TSAN)
  // The library's recursive mutex is never destroyed as a system mutex, so
  // the race detector would take a new lock at a reused address for the old
  // one and report lock orders of objects that no longer exist.
  ~TCriticalSection() override { __tsan_mutex_destroy(&FMutex, 0); }
#endif
  void Enter() override { FMutex.lock(); }
  void Leave() override { FMutex.unlock(); }
  bool TryEnter() override { return FMutex.try_lock(); }
  // Lets std::lock_guard / std::unique_lock hold it directly.
  void lock() { Enter(); }
  void unlock() { Leave(); }
  bool try_lock() { return TryEnter(); }

 private:
  std::recursive_mutex FMutex;
};

// Scoped holder of an ICriticalSection.
class TLockGuard {
 public:
  explicit TLockGuard(ICriticalSection& Lock) : FLock(Lock) { FLock.Enter(); }
  ~TLockGuard() { FLock.Leave(); }
  TLockGuard(const TLockGuard&) = delete;
  TLockGuard& operator=(const TLockGuard&) = delete;

 private:
  ICriticalSection& FLock;
};

// Runs procedures while holding a lock.
class TLockAccess {
 public:
  explicit TLockAccess(ICriticalSection& Lock) : FLock(Lock) {}
  // [any thread] Runs Proc holding the lock; the lock is left even when Proc throws.
  template <typename Proc>
  decltype(auto) Execute(Proc&& P) {
    TLockGuard G(FLock);
    return std::forward<Proc>(P)();
  }

 private:
  ICriticalSection& FLock;
};

enum class TWaitResult { wrSignaled, wrTimeout };

// A waitable event; auto-reset events release one waiter and reset.
class IEvent {
 public:
  virtual ~IEvent() = default;
  virtual void SetEvent() = 0;
  virtual void ResetEvent() = 0;
  // Timeout in milliseconds; a negative value waits forever.
  virtual TWaitResult WaitFor(int64_t TimeoutMs) = 0;
};

class TEvent final : public IEvent {
 public:
  explicit TEvent(bool ManualReset = false, bool InitialState = false)
      : FManualReset(ManualReset), FSignaled(InitialState) {}
  void SetEvent() override;
  void ResetEvent() override;
  TWaitResult WaitFor(int64_t TimeoutMs) override;

 private:
  std::mutex FMutex;
  std::condition_variable FCond;
  const bool FManualReset;
  bool FSignaled;
  int FWaiters = 0;   // threads inside WaitFor
  int FReleases = 0;  // auto-reset wake-ups handed to waiters, not yet taken
};

// The handle a processing procedure receives from its thread.
class IProcessingThread {
 public:
  virtual ~IProcessingThread() = default;
  // [any thread] Wakes the thread so it runs its procedure once more. Never
  // blocks and never allocates; several signals before the run coalesce.
  virtual void Signal() = 0;
  // [any thread] Asks the thread to end after the current run.
  virtual void Terminate() = 0;
  // [processing thread] Whether Terminate was called; long procedures poll it.
  virtual bool Terminated() const = 0;
};

// A worker thread that runs Proc each time it is signalled, until terminated.
// The destructor terminates and joins, so it must not run on the thread itself.
class TProcessingThread final : public IProcessingThread {
 public:
  using TProc = std::function<void(IProcessingThread&)>;
  // Owner only identifies the thread's user (for diagnostics); Proc runs on
  // the new thread. With RunAtStart the procedure runs once without a signal.
  TProcessingThread(const void* Owner, TProc Proc, bool RunAtStart = false);
  ~TProcessingThread() override;
  TProcessingThread(const TProcessingThread&) = delete;
  TProcessingThread& operator=(const TProcessingThread&) = delete;

  void Signal() override;
  void Terminate() override;
  bool Terminated() const override { return FTerminated.load(std::memory_order_acquire); }
  // [not the processing thread] Terminates and waits for the thread to end.
  void WaitFor();
  const void* Owner() const { return FOwner; }
  std::thread::id ThreadId() const { return FThread.get_id(); }

 private:
  void Run();
  const void* FOwner;
  TProc FProc;
  std::mutex FMutex;
  std::condition_variable FCond;
  bool FPending;
  std::atomic<bool> FTerminated{false};
  std::thread FThread;
};

// ---- Main-thread execution ------------------------------------------------

// [main thread] Marks the calling thread as the main thread. The thread that
// first uses the queue is taken otherwise. On Windows this also creates the
// message-only window whose messages drain the queue from the application's
// message loop.
void SetMainThread();
// [any thread]
bool IsMainThread();

// [any thread] Runs Proc on the main thread. From the main thread itself Proc
// runs at once. Otherwise Proc is queued; with Wait the caller blocks until
// it has run (the main thread must be draining: a message loop on Windows,
// ProcessMainThreadQueue elsewhere). With Unique, a Proc of the same Sender
// that is still queued is not queued again. Exceptions thrown by a queued
// Proc are caught and dropped on the main thread (a waiting caller gets them
// rethrown).
void MainThreadExecute(const void* Sender, bool Wait, std::function<void()> Proc, bool Unique = false);
// [any thread] Queues Proc for the main thread without waiting, also when
// called from the main thread itself: Proc runs only once the current work
// of the main thread is done and the queue is drained. Unique as above.
void MainThreadPost(const void* Sender, std::function<void()> Proc, bool Unique = false);
// [main thread] Runs every queued procedure; answers how many ran.
int ProcessMainThreadQueue();
// [main thread] Waits up to TimeoutMs for queued work, then drains it.
int WaitAndProcessMainThreadQueue(int64_t TimeoutMs);
// [any thread] Drops the queued procedures of Sender (call when it is destroyed).
// Waiting callers of dropped procedures are released.
void RemoveMainThreadProcs(const void* Sender);

}  // namespace Quorvel::Threading
