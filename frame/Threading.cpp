#include "frame/Threading.h"

#include <deque>
#include <exception>
#include <utility>

#include "platform/Mainthread.h"

namespace Quorvel::Threading {

// ---- TEvent ------------------------------------------------------------

void TEvent::SetEvent() {
  {
    std::lock_guard<std::mutex> G(FMutex);
    // An auto-reset event with threads waiting releases exactly one of them
    // per call, even when calls come faster than the waiters wake.
    if (!FManualReset && FWaiters > FReleases)
      ++FReleases;
    else
      FSignaled = true;
  }
  if (FManualReset)
    FCond.notify_all();
  else
    FCond.notify_one();
}

void TEvent::ResetEvent() {
  std::lock_guard<std::mutex> G(FMutex);
  FSignaled = false;
}

namespace {
// Timeouts beyond this (about 35 years) wait forever: the clock counts in
// 64-bit nanoseconds, which larger values would overflow.
constexpr int64_t MaxTimeoutMs = INT64_C(1) << 40;
}  // namespace

TWaitResult TEvent::WaitFor(int64_t TimeoutMs) {
  std::unique_lock<std::mutex> L(FMutex);
  auto Ready = [this] { return FSignaled || FReleases > 0; };
  ++FWaiters;
  bool Woken = true;
  if (TimeoutMs < 0 || TimeoutMs > MaxTimeoutMs)
    FCond.wait(L, Ready);
  else
    Woken = FCond.wait_for(L, std::chrono::milliseconds(TimeoutMs), Ready);
  --FWaiters;
  if (!Woken) return TWaitResult::wrTimeout;
  if (FReleases > 0)
    --FReleases;
  else if (!FManualReset)
    FSignaled = false;
  return TWaitResult::wrSignaled;
}

// ---- TProcessingThread -------------------------------------------------

TProcessingThread::TProcessingThread(const void* Owner, TProc Proc, bool RunAtStart)
    : FOwner(Owner), FProc(std::move(Proc)), FPending(RunAtStart), FThread([this] { Run(); }) {}

TProcessingThread::~TProcessingThread() { WaitFor(); }

void TProcessingThread::Signal() {
  {
    std::lock_guard<std::mutex> G(FMutex);
    FPending = true;
  }
  FCond.notify_one();
}

void TProcessingThread::Terminate() {
  {
    std::lock_guard<std::mutex> G(FMutex);
    FTerminated.store(true, std::memory_order_release);
  }
  FCond.notify_one();
}

void TProcessingThread::WaitFor() {
  Terminate();
  if (FThread.joinable() && FThread.get_id() != std::this_thread::get_id()) FThread.join();
}

void TProcessingThread::Run() {
  for (;;) {
    {
      std::unique_lock<std::mutex> L(FMutex);
      FCond.wait(L, [this] { return FPending || FTerminated.load(std::memory_order_relaxed); });
      if (FTerminated.load(std::memory_order_relaxed)) return;
      FPending = false;
    }
    try {
      FProc(*this);
    } catch (...) {
      // A failing run must not end the process; the next signal runs again.
    }
  }
}

// ---- Main-thread queue -------------------------------------------------

namespace {

struct TWaitState {
  std::mutex Mutex;
  std::condition_variable Cond;
  bool Done = false;
  std::exception_ptr Failure;
};

struct TQueuedProc {
  const void* Sender;
  std::function<void()> Proc;
  std::shared_ptr<TWaitState> Waiter;
  bool Unique;
};

struct TMainQueue {
  std::mutex Mutex;
  std::condition_variable Cond;
  std::deque<TQueuedProc> Items;
  std::thread::id MainId = std::this_thread::get_id();
};

TMainQueue& Queue() {
  static TMainQueue Q;
  return Q;
}

// Static initialisation runs on the process's main thread: take it as the
// main thread until the application says otherwise.
const bool GMainRecorded = (Queue(), true);

void Finish(const std::shared_ptr<TWaitState>& W, std::exception_ptr Failure) {
  if (!W) return;
  {
    std::lock_guard<std::mutex> G(W->Mutex);
    W->Done = true;
    W->Failure = std::move(Failure);
  }
  W->Cond.notify_all();
}

void DrainFromPlatform() { ProcessMainThreadQueue(); }

void Enqueue(const void* Sender, bool Wait, std::function<void()> Proc, bool Unique);

}  // namespace

void SetMainThread() {
  {
    std::lock_guard<std::mutex> G(Queue().Mutex);
    Queue().MainId = std::this_thread::get_id();
  }
  Platform::MainThreadWakeInit(&DrainFromPlatform);
}

bool IsMainThread() {
  std::lock_guard<std::mutex> G(Queue().Mutex);
  return Queue().MainId == std::this_thread::get_id();
}

void MainThreadExecute(const void* Sender, bool Wait, std::function<void()> Proc, bool Unique) {
  (void)GMainRecorded;
  if (!Proc) return;
  if (IsMainThread()) {
    Proc();
    return;
  }
  Enqueue(Sender, Wait, std::move(Proc), Unique);
}

void MainThreadPost(const void* Sender, std::function<void()> Proc, bool Unique) {
  if (Proc) Enqueue(Sender, false, std::move(Proc), Unique);
}

namespace {

void Enqueue(const void* Sender, bool Wait, std::function<void()> Proc, bool Unique) {
  auto& Q = Queue();
  std::shared_ptr<TWaitState> W;
  if (Wait) W = std::make_shared<TWaitState>();
  {
    std::lock_guard<std::mutex> G(Q.Mutex);
    if (Unique && !Wait) {
      for (const auto& Item : Q.Items)
        if (Item.Unique && Item.Sender == Sender) return;
    }
    Q.Items.push_back(TQueuedProc{Sender, std::move(Proc), W, Unique});
  }
  Q.Cond.notify_all();
  Platform::MainThreadWake();
  if (!W) return;
  std::exception_ptr Failure;
  {
    std::unique_lock<std::mutex> L(W->Mutex);
    W->Cond.wait(L, [&] { return W->Done; });
    // Take the exception out, so that this thread alone owns it from here on.
    Failure = std::move(W->Failure);
    W->Failure = nullptr;
  }
  if (Failure) std::rethrow_exception(Failure);
}

}  // namespace

int ProcessMainThreadQueue() {
  auto& Q = Queue();
  int Count = 0;
  for (;;) {
    TQueuedProc Item;
    {
      std::lock_guard<std::mutex> G(Q.Mutex);
      if (Q.Items.empty()) break;
      Item = std::move(Q.Items.front());
      Q.Items.pop_front();
    }
    std::exception_ptr Failure;
    try {
      Item.Proc();
    } catch (...) {
      Failure = std::current_exception();
    }
    Finish(Item.Waiter, std::move(Failure));
    ++Count;
  }
  return Count;
}

int WaitAndProcessMainThreadQueue(int64_t TimeoutMs) {
  auto& Q = Queue();
  {
    std::unique_lock<std::mutex> L(Q.Mutex);
    const int64_t Ms = TimeoutMs < 0 ? 0 : (TimeoutMs > MaxTimeoutMs ? MaxTimeoutMs : TimeoutMs);
    Q.Cond.wait_for(L, std::chrono::milliseconds(Ms), [&] { return !Q.Items.empty(); });
  }
  return ProcessMainThreadQueue();
}

void RemoveMainThreadProcs(const void* Sender) {
  std::deque<TQueuedProc> Dropped;
  {
    std::lock_guard<std::mutex> G(Queue().Mutex);
    auto& Items = Queue().Items;
    for (auto It = Items.begin(); It != Items.end();) {
      if (It->Sender == Sender) {
        Dropped.push_back(std::move(*It));
        It = Items.erase(It);
      } else {
        ++It;
      }
    }
  }
  for (auto& Item : Dropped) Finish(Item.Waiter, nullptr);
}

}  // namespace Quorvel::Threading
