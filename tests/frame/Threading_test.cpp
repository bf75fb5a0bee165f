// Locks, events, processing threads and the main-thread queue under contention.
// Waits are bounded only as a guard against hangs; nothing asserts speed.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <limits>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "frame/Threading.h"

#ifdef _WIN32
#include <windows.h>
#endif

using namespace Quorvel::Threading;
using namespace std::chrono_literals;

namespace {

// Generous: a slow two-core machine under ThreadSanitizer must never hit it.
constexpr int64_t kPatienceMs = 60000;
// Timeouts past what a nanosecond clock counts: waits given them must still wait.
constexpr int64_t kHugeMs1 = INT64_C(10000000000000), kHugeMs2 = INT64_C(1) << 50,
                  kHugeMs3 = std::numeric_limits<int64_t>::max();

// Polls P until it holds; false only when patience ran out.
template <typename Pred>
bool WaitUntil(Pred P) {
  const auto Deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(kPatienceMs);
  while (!P()) {
    if (std::chrono::steady_clock::now() > Deadline) return P();
    std::this_thread::sleep_for(1ms);
  }
  return true;
}

bool TryEnterFromOtherThread(ICriticalSection& Lock) {
  bool Entered = false;
  std::thread([&] {
    if ((Entered = Lock.TryEnter())) Lock.Leave();
  }).join();
  return Entered;
}

// Aborts a deadlocked test (the runner has printed its name) instead of hanging the run.
class ThreadingTest : public ::testing::Test {
 protected:
  ~ThreadingTest() override {
    { std::lock_guard<std::mutex> G(FMutex); FDone = true; }
    FCond.notify_one();
    FWatchdog.join();
  }

 private:
  std::mutex FMutex;
  std::condition_variable FCond;
  bool FDone = false;
  std::thread FWatchdog{[this] {
    std::unique_lock<std::mutex> L(FMutex);
    if (!FCond.wait_for(L, std::chrono::milliseconds(2 * kPatienceMs), [this] { return FDone; })) std::abort();
  }};
};

}  // namespace

// ---- locks and events -------------------------------------------------------

TEST_F(ThreadingTest, LockIsRecursiveAndLeftEvenWhenTheProcedureThrows) {
  TCriticalSection Lock;
  TLockAccess Access(Lock);
  Lock.Enter();
  ASSERT_TRUE(Lock.TryEnter());
  EXPECT_FALSE(TryEnterFromOtherThread(Lock));
  Lock.Leave();
  EXPECT_FALSE(TryEnterFromOtherThread(Lock)) << "one Leave released a lock entered twice";
  EXPECT_THROW(Access.Execute([] { throw 1; }), int);  // re-entered, then left on the throw
  Lock.Leave();
  EXPECT_TRUE(TryEnterFromOtherThread(Lock));

  EXPECT_EQ(Access.Execute([] { return 42; }), 42);
  int Target = 0;
  EXPECT_EQ(&Access.Execute([&]() -> int& { return Target; }), &Target);
  EXPECT_THROW(Access.Execute([]() -> int { throw std::runtime_error("x"); }), std::runtime_error);
  EXPECT_TRUE(TryEnterFromOtherThread(Lock)) << "the lock stayed held after the procedure threw";

  // Blocking entries from several threads, nested every way, guard a plain counter.
  int Counter = 0;
  std::vector<std::thread> Writers;
  for (int T = 0; T < 3; ++T)
    Writers.emplace_back([&] {
      for (int I = 0; I < 5000; ++I) {
        TLockGuard G(Lock);
        std::lock_guard<TCriticalSection> Inner(Lock);
        Access.Execute([&] { ++Counter; });
      }
    });
  for (auto& W : Writers) W.join();
  EXPECT_EQ(Counter, 3 * 5000);
}

TEST_F(ThreadingTest, AutoResetEventReleasesOneWaiterPerSetAndResets) {
  TEvent Event;
  EXPECT_EQ(Event.WaitFor(0), TWaitResult::wrTimeout);
  const auto Start = std::chrono::steady_clock::now();
  EXPECT_EQ(Event.WaitFor(30), TWaitResult::wrTimeout);
  EXPECT_GE(std::chrono::steady_clock::now() - Start, 25ms) << "a timed wait came back early";
  Event.SetEvent();  // with no waiter: kept for the next wait, then gone
  EXPECT_EQ(Event.WaitFor(0), TWaitResult::wrSignaled);
  EXPECT_EQ(Event.WaitFor(0), TWaitResult::wrTimeout);
  TEvent InitiallySet(/*ManualReset=*/false, /*InitialState=*/true);
  EXPECT_EQ(InitiallySet.WaitFor(0), TWaitResult::wrSignaled);
  EXPECT_EQ(InitiallySet.WaitFor(0), TWaitResult::wrTimeout);

  // Two sets back to back, before any blocked waiter has woken, release two of three.
  std::atomic<int> Released{0};
  std::vector<std::thread> Waiters;
  for (int I = 0; I < 3; ++I)
    Waiters.emplace_back([&] {
      if (Event.WaitFor(kPatienceMs) == TWaitResult::wrSignaled) ++Released;
    });
  std::this_thread::sleep_for(100ms);  // let them block
  Event.SetEvent();
  Event.SetEvent();
  EXPECT_TRUE(WaitUntil([&] { return Released.load() == 2; }));
  std::this_thread::sleep_for(20ms);  // room for a wrongly released third
  EXPECT_EQ(Released.load(), 2);
  EXPECT_EQ(Event.WaitFor(0), TWaitResult::wrTimeout) << "a set was left over";
  Event.SetEvent();
  for (auto& W : Waiters) W.join();
  EXPECT_EQ(Released.load(), 3);
}

TEST_F(ThreadingTest, ManualResetEventReleasesEveryWaiterAndStaysSetUntilReset) {
  TEvent Event(/*ManualReset=*/true);
  std::atomic<int> Released{0};
  std::vector<std::thread> Waiters;
  for (int I = 0; I < 4; ++I)
    Waiters.emplace_back([&] {
      if (Event.WaitFor(kPatienceMs) == TWaitResult::wrSignaled) ++Released;
    });
  std::this_thread::sleep_for(20ms);  // most likely all blocked by now
  Event.SetEvent();
  for (auto& W : Waiters) W.join();
  EXPECT_EQ(Released.load(), 4) << "one SetEvent did not release every waiter";
  EXPECT_EQ(Event.WaitFor(0), TWaitResult::wrSignaled);
  EXPECT_EQ(Event.WaitFor(0), TWaitResult::wrSignaled);
  Event.ResetEvent();
  EXPECT_EQ(Event.WaitFor(0), TWaitResult::wrTimeout);
}

TEST_F(ThreadingTest, EventWaitWithoutOrWithAHugeTimeoutEndsOnlyWhenSignalled) {
  for (int64_t Timeout : {INT64_C(-1), kHugeMs1, kHugeMs2, kHugeMs3}) {
    SCOPED_TRACE(Timeout);
    TEvent Event;
    std::atomic<bool> Set{false};
    std::thread Setter([&] {
      std::this_thread::sleep_for(50ms);
      Set = true;
      Event.SetEvent();
    });
    EXPECT_EQ(Event.WaitFor(Timeout), TWaitResult::wrSignaled);
    EXPECT_TRUE(Set.load()) << "came back before the signal";
    Setter.join();
  }
}

// ---- processing threads -----------------------------------------------------

TEST_F(ThreadingTest, ProcessingThreadConsumesEveryItemSignalledFromManyThreads) {
  // Signals coalesce, but one arriving during a run must cause another run.
  std::atomic<int> Queued{0}, Consumed{0};
  TProcessingThread Worker(this, [&](IProcessingThread&) {
    const int Taken = Queued.exchange(0);
    std::this_thread::sleep_for(50us);
    Consumed += Taken;
  });
  for (int Round = 1; Round <= 10; ++Round) {
    std::vector<std::thread> Senders;
    for (int S = 0; S < 3; ++S)
      Senders.emplace_back([&] {
        for (int I = 0; I < 300; ++I) {
          ++Queued;
          Worker.Signal();
        }
      });
    for (auto& S : Senders) S.join();
    ASSERT_TRUE(WaitUntil([&] { return Consumed.load() == Round * 900; })) << "round " << Round;
  }
}

TEST_F(ThreadingTest, ProcessingThreadRunsAtStartOnlyWhenAsked) {
  std::atomic<int> Runs{0};
  {
    TProcessingThread Worker(this, [&](IProcessingThread&) { ++Runs; }, /*RunAtStart=*/true);
    EXPECT_TRUE(WaitUntil([&] { return Runs.load() == 1; }));
  }
  {
    TProcessingThread Worker(this, [&](IProcessingThread&) { ++Runs; });
    Worker.WaitFor();
  }
  EXPECT_EQ(Runs.load(), 1);
}

TEST_F(ThreadingTest, ProcessingThreadWaitForEndsTheRunningProcedureFirst) {
  std::atomic<bool> Started{false}, Finished{false};
  std::atomic<int> Runs{0};
  {
    TProcessingThread Worker(this, [&](IProcessingThread& Self) {
      ++Runs;
      Started = true;
      while (!Self.Terminated()) std::this_thread::sleep_for(1ms);
      std::this_thread::sleep_for(10ms);
      Finished = true;
    });
    std::thread Sender([&] {
      while (!Finished.load()) Worker.Signal();
    });
    ASSERT_TRUE(WaitUntil([&] { return Started.load(); }));
    Worker.WaitFor();
    EXPECT_TRUE(Finished.load()) << "WaitFor returned while the procedure was running";
    Sender.join();
    Worker.Signal();
  }  // the destructor after WaitFor joins nothing twice
  EXPECT_EQ(Runs.load(), 1);

  // A procedure may end its own thread; later signals run nothing.
  Runs = 0;
  TProcessingThread SelfEnding(this, [&](IProcessingThread& Self) {
    ++Runs;
    Self.Terminate();
  });
  SelfEnding.Signal();
  ASSERT_TRUE(WaitUntil([&] { return SelfEnding.Terminated(); }));
  SelfEnding.Signal();
  SelfEnding.WaitFor();
  EXPECT_EQ(Runs.load(), 1);
}

TEST_F(ThreadingTest, ProcessingThreadSurvivesAThrowingProcedure) {
  std::atomic<int> Runs{0};
  TProcessingThread Worker(this, [&](IProcessingThread&) {
    const int Run = ++Runs;
    if (Run == 1) throw std::runtime_error("first run fails");
    if (Run == 2) throw 2;  // not derived from std::exception
  });
  for (int Expected = 1; Expected <= 3; ++Expected) {
    Worker.Signal();
    ASSERT_TRUE(WaitUntil([&] { return Runs.load() >= Expected; })) << "run " << Expected;
  }
}

// ---- main-thread queue --------------------------------------------------------

class ThreadingMainThread : public ThreadingTest {
 protected:
  void SetUp() override {
    SetMainThread();
    ProcessMainThreadQueue();  // whatever earlier tests left behind
  }
  void TearDown() override {  // nothing may run after this test's locals are gone
    RemoveMainThreadProcs(&A);
    RemoveMainThreadProcs(&B);
  }
  // Queues Proc from a worker thread, as the components' own threads do.
  void QueueFromWorker(const void* Sender, std::function<void()> Proc, bool Unique = false) {
    std::thread([&] { MainThreadExecute(Sender, false, std::move(Proc), Unique); }).join();
  }
  int A = 0, B = 0;  // two senders
};

TEST_F(ThreadingMainThread, OnlyTheMainThreadIsMainAndRunsProceduresAtOnce) {
  EXPECT_TRUE(IsMainThread());
  bool WorkerIsMain = true;
  std::thread([&] { WorkerIsMain = IsMainThread(); }).join();
  EXPECT_FALSE(WorkerIsMain);

  int Ran = 0;
  MainThreadExecute(&A, /*Wait=*/false, [&] { ++Ran; });
  MainThreadExecute(&A, /*Wait=*/true, [&] { ++Ran; });
  MainThreadExecute(&A, false, [&] { ++Ran; }, /*Unique=*/true);
  MainThreadExecute(&A, false, [&] { ++Ran; }, /*Unique=*/true);
  EXPECT_EQ(Ran, 4);
  EXPECT_EQ(ProcessMainThreadQueue(), 0);
}

TEST_F(ThreadingMainThread, QueuedProceduresRunInOrderOnTheMainThreadPastAThrowingOne) {
  constexpr int kProcs = 200;
  const auto MainId = std::this_thread::get_id();
  std::vector<int> Seen[2];  // touched by the main thread only
  int OffMain = 0;
  std::vector<std::thread> Workers;
  for (int W = 0; W < 2; ++W)
    Workers.emplace_back([&, W] {
      for (int I = 0; I < kProcs; ++I)
        MainThreadExecute(W ? &A : &B, /*Wait=*/false, [&, W, I] {
          if (std::this_thread::get_id() != MainId) ++OffMain;
          if (I == 50) throw std::runtime_error("dropped");
          Seen[W].push_back(I);
        });
    });
  for (auto& W : Workers) W.join();
  EXPECT_TRUE(Seen[0].empty() && Seen[1].empty()) << "ran before the queue was drained";

  int Count = -1;
  EXPECT_NO_THROW(Count = ProcessMainThreadQueue());
  EXPECT_EQ(Count, 2 * kProcs);
  EXPECT_EQ(OffMain, 0);
  std::vector<int> Expected;
  for (int I = 0; I < kProcs; ++I)
    if (I != 50) Expected.push_back(I);
  EXPECT_EQ(Seen[0], Expected);
  EXPECT_EQ(Seen[1], Expected);
}

TEST_F(ThreadingMainThread, UniqueQueuesASendersProcedureOnceUntilItRan) {
  for (int Round = 1; Round <= 2; ++Round) {
    int RanA = 0, RanB = 0, RanPlain = 0;
    std::thread([&] {
      for (int I = 0; I < 10; ++I) {
        MainThreadExecute(&A, false, [&] { ++RanA; }, /*Unique=*/true);
        MainThreadExecute(&B, false, [&] { ++RanB; }, /*Unique=*/true);
      }
      MainThreadExecute(&A, false, [&] { ++RanPlain; });
    }).join();
    EXPECT_EQ(ProcessMainThreadQueue(), 3) << "round " << Round;
    EXPECT_EQ(RanA * 100 + RanB * 10 + RanPlain, 111);
  }
}

TEST_F(ThreadingMainThread, WaitingWorkersReturnAfterTheirProcedureRanWithItsException) {
  std::vector<int> Value(2, -1), Wrong(2, 0);
  std::vector<std::string> Caught(2);
  std::atomic<int> Finished{0};
  std::vector<std::thread> Workers;
  for (int W = 0; W < 2; ++W)
    Workers.emplace_back([&, W] {
      for (int I = 0; I < 20; ++I) {
        MainThreadExecute(&A, /*Wait=*/true, [&, W, I] { Value[W] = I; });
        if (Value[W] != I) ++Wrong[W];  // a data race, too, for the sanitizer
      }
      try {
        MainThreadExecute(&B, true, [W] { throw std::runtime_error("failed " + std::to_string(W)); });
      } catch (const std::runtime_error& E) {
        Caught[W] = E.what();
      }
      ++Finished;
    });
  const bool Done = WaitUntil([&] {
    WaitAndProcessMainThreadQueue(10);
    return Finished.load() == 2;
  });
  for (auto& W : Workers) W.join();
  ASSERT_TRUE(Done);
  for (int W = 0; W < 2; ++W) {
    EXPECT_EQ(Wrong[W], 0) << "a waiting caller returned before its procedure ran";
    EXPECT_EQ(Caught[W], "failed " + std::to_string(W));
  }
}

TEST_F(ThreadingMainThread, WaitAndProcessWaitsForWorkQueuedLater) {
  EXPECT_EQ(WaitAndProcessMainThreadQueue(0), 0);
  for (int64_t Timeout : {kPatienceMs, kHugeMs1, kHugeMs2, kHugeMs3}) {
    SCOPED_TRACE(Timeout);
    int Ran = 0;
    std::thread Worker([&] {
      std::this_thread::sleep_for(50ms);
      MainThreadExecute(&A, false, [&] { ++Ran; });
    });
    const int Drained = WaitAndProcessMainThreadQueue(Timeout);
    Worker.join();
    ProcessMainThreadQueue();  // in case it came back empty-handed
    EXPECT_EQ(Drained, 1) << "came back before the work arrived";
    EXPECT_EQ(Ran, 1);
  }
}

TEST_F(ThreadingMainThread, RemoveDropsOnlyThatSendersProceduresAndReleasesItsWaiters) {
  std::string Ran;
  QueueFromWorker(&A, [&] { Ran += "A1 "; });
  QueueFromWorker(&B, [&] { Ran += "B1 "; });
  QueueFromWorker(&A, [&] { Ran += "A2 "; }, /*Unique=*/true);
  QueueFromWorker(&B, [&] { Ran += "B2 "; });
  RemoveMainThreadProcs(&A);
  EXPECT_EQ(ProcessMainThreadQueue(), 2);
  EXPECT_EQ(Ran, "B1 B2 ");

  // A caller waiting for a removed procedure comes back without it having run.
  std::atomic<bool> Returned{false};
  bool RemovedRan = false, Threw = false;
  std::thread Waiter([&] {
    try {
      MainThreadExecute(&A, /*Wait=*/true, [&] { RemovedRan = true; });
    } catch (...) {
      Threw = true;
    }
    Returned = true;
  });
  const bool Released = WaitUntil([&] {
    RemoveMainThreadProcs(&A);
    return Returned.load();
  });
  if (!Released) ProcessMainThreadQueue();  // let the worker go before failing
  Waiter.join();
  EXPECT_TRUE(Released);
  EXPECT_FALSE(RemovedRan);
  EXPECT_FALSE(Threw);
}

TEST_F(ThreadingMainThread, ADrainedProcedureMayUseTheQueueItself) {
  // The queue must not stay locked while a procedure runs.
  bool InnerRan = false, DroppedRan = false;
  QueueFromWorker(&A, [&] {
    MainThreadExecute(&A, /*Wait=*/true, [&] { InnerRan = true; });
    RemoveMainThreadProcs(&B);  // drops the one queued behind this
  });
  QueueFromWorker(&B, [&] { DroppedRan = true; });
  EXPECT_EQ(ProcessMainThreadQueue(), 1);
  EXPECT_TRUE(InnerRan);
  EXPECT_FALSE(DroppedRan);
}

#ifdef _WIN32
// The application's own message loop drains the queue through the window
// SetMainThread made, burst after burst.
TEST_F(ThreadingMainThread, TheMessageLoopDrainsTheQueue) {
  const auto PumpMessages = [] {
    MSG Message;
    while (PeekMessageW(&Message, nullptr, 0, 0, PM_REMOVE)) DispatchMessageW(&Message);
  };
  PumpMessages();  // wakes left by earlier tests
  int Ran = 0;
  for (int Round = 1; Round <= 3; ++Round) {
    std::atomic<bool> Returned{false};
    std::thread Worker([&] {
      MainThreadExecute(&A, /*Wait=*/false, [&] { ++Ran; });
      MainThreadExecute(&A, /*Wait=*/true, [&] { ++Ran; });
      Returned = true;
    });
    const bool Done = WaitUntil([&] {
      PumpMessages();
      return Returned.load();
    });
    if (!Done) ProcessMainThreadQueue();  // let the worker go before failing
    Worker.join();
    ASSERT_TRUE(Done) << "the message loop did not drain the queue in round " << Round;
    EXPECT_EQ(Ran, 2 * Round);
  }
}
#endif
