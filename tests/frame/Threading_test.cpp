// Locks, events, processing threads and the main-thread queue under contention.
// Waits are bounded only as a guard against hangs (a deadlock is left to the
// test runner's timeout); nothing asserts speed.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <limits>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "frame/Wbtimer.h"
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

}  // namespace

// ---- locks and events -------------------------------------------------------

TEST(Threading, LockIsRecursiveExcludesOthersAndIsLeftWhenTheProcedureThrows) {
  TCriticalSection Lock;
  TLockAccess Access(Lock);
  {
    TLockGuard Outer(Lock);
    ASSERT_TRUE(Lock.TryEnter());
    EXPECT_FALSE(TryEnterFromOtherThread(Lock));
    Lock.Leave();
    EXPECT_FALSE(TryEnterFromOtherThread(Lock)) << "one Leave released a lock entered twice";
    EXPECT_THROW(Access.Execute([] { throw 1; }), int);  // enters again, leaves on the throw
    EXPECT_FALSE(TryEnterFromOtherThread(Lock));
  }
  EXPECT_TRUE(TryEnterFromOtherThread(Lock)) << "the lock stayed held";

  int Counter = 0;  // guarded by the lock alone
  const auto Add = [&] {
    for (int I = 0; I < 10000; ++I) Access.Execute([&] { ++Counter; });
  };
  std::thread Other(Add);
  Add();
  Other.join();
  EXPECT_EQ(Counter, 20000);
}

TEST(Threading, EventsTimeOutKeepASetUntilTakenAndResetByKind) {
  TEvent Auto, Manual(/*ManualReset=*/true), InitiallySet(/*ManualReset=*/false, /*InitialState=*/true);
  const auto Start = std::chrono::steady_clock::now();
  EXPECT_EQ(Auto.WaitFor(30), TWaitResult::wrTimeout);
  EXPECT_GE(std::chrono::steady_clock::now() - Start, 25ms) << "a timed wait came back early";
  Auto.SetEvent();  // with no waiter: kept for the next wait only
  EXPECT_EQ(Auto.WaitFor(0), TWaitResult::wrSignaled);
  EXPECT_EQ(Auto.WaitFor(0), TWaitResult::wrTimeout);
  EXPECT_EQ(InitiallySet.WaitFor(0), TWaitResult::wrSignaled);
  EXPECT_EQ(InitiallySet.WaitFor(0), TWaitResult::wrTimeout);
  Manual.SetEvent();
  EXPECT_EQ(Manual.WaitFor(0), TWaitResult::wrSignaled);
  EXPECT_EQ(Manual.WaitFor(0), TWaitResult::wrSignaled);
  Manual.ResetEvent();
  EXPECT_EQ(Manual.WaitFor(0), TWaitResult::wrTimeout);
}

TEST(Threading, EventsReleaseOneBlockedWaiterPerSetOrEveryOneWhenManualReset) {
  for (bool ManualReset : {false, true}) {
    SCOPED_TRACE(ManualReset ? "manual reset" : "auto-reset");
    TEvent Event(ManualReset);
    std::atomic<int> Started{0}, Released{0};
    std::vector<std::thread> Waiters;
    // They outwait WaitUntil below: one left blocked fails it rather than slipping
    // through on its own timeout.
    for (int I = 0; I < 3; ++I)
      Waiters.emplace_back([&] {
        ++Started;
        if (Event.WaitFor(2 * kPatienceMs) == TWaitResult::wrSignaled) ++Released;
      });
    WaitUntil([&] { return Started.load() == 3; });
    std::this_thread::sleep_for(100ms);  // and let them block
    Event.SetEvent();
    Event.SetEvent();  // before any waiter has woken
    const int Expected = ManualReset ? 3 : 2;
    EXPECT_TRUE(WaitUntil([&] { return Released.load() == Expected; }));
    std::this_thread::sleep_for(20ms);  // room for a wrongly released extra one
    EXPECT_EQ(Released.load(), Expected);
    EXPECT_EQ(Event.WaitFor(0), ManualReset ? TWaitResult::wrSignaled : TWaitResult::wrTimeout);
    Event.SetEvent();  // frees the last auto-reset waiter
    for (auto& W : Waiters) W.join();
    EXPECT_EQ(Released.load(), 3);
  }
}

// ---- processing threads -----------------------------------------------------

TEST(Threading, ProcessingThreadConsumesEveryItemSignalledFromManyThreads) {
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

TEST(Threading, ProcessingThreadWaitForEndsTheRunningProcedureFirst) {
  // The procedure polls Terminated, as long ones do, while signals keep coming.
  std::atomic<bool> Started{false}, Finished{false};
  std::atomic<int> Runs{0};
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
  const bool DidStart = WaitUntil([&] { return Started.load(); });
  Worker.WaitFor();  // the destructor then joins nothing twice
  EXPECT_TRUE(DidStart);
  EXPECT_TRUE(Finished.load()) << "WaitFor returned while the procedure was running";
  Sender.join();
  Worker.Signal();
  EXPECT_EQ(Runs.load(), 1);
}

TEST(Threading, ProcessingThreadRunsAtStartOnlyWhenAskedAndSurvivesThrowingRuns) {
  std::atomic<int> Runs{0}, IdleRuns{0};
  TProcessingThread Idle(this, [&](IProcessingThread&) { ++IdleRuns; });
  TProcessingThread Worker(
      this,
      [&](IProcessingThread&) {
        const int Run = ++Runs;
        if (Run == 1) throw std::runtime_error("first run fails");
        if (Run == 2) throw 2;  // not derived from std::exception
      },
      /*RunAtStart=*/true);
  ASSERT_TRUE(WaitUntil([&] { return Runs.load() == 1; })) << "no run at start";
  for (int Expected = 2; Expected <= 3; ++Expected) {
    Worker.Signal();
    ASSERT_TRUE(WaitUntil([&] { return Runs.load() >= Expected; })) << "run " << Expected;
  }
  Idle.WaitFor();
  EXPECT_EQ(IdleRuns.load(), 0) << "ran without a signal";
}

// ---- main-thread queue --------------------------------------------------------

class ThreadingMainThread : public ::testing::Test {
 protected:
  void SetUp() override {
    SetMainThread();
    ProcessMainThreadQueue();  // whatever earlier tests left behind
  }
  void TearDown() override {  // nothing may run after this test's locals are gone
    RemoveMainThreadProcs(&A);
    RemoveMainThreadProcs(&B);
    RemoveMainThreadProcs(&C);
  }
  // Queues Proc from a worker thread, as the components' own threads do.
  void QueueFromWorker(const void* Sender, std::function<void()> Proc, bool Unique = false) {
    std::thread([&] { MainThreadExecute(Sender, false, std::move(Proc), Unique); }).join();
  }
  int A = 0, B = 0, C = 0;  // senders
};

TEST_F(ThreadingMainThread, ProceduresRunAtOnceOnTheMainThreadOrQueuedInOrderPastAThrowingOne) {
  // On the main thread itself a procedure runs at once, waiting, unique or not.
  int Ran = 0;
  MainThreadExecute(&A, /*Wait=*/false, [&] { ++Ran; });
  MainThreadExecute(&A, /*Wait=*/true, [&] { ++Ran; });
  MainThreadExecute(&A, false, [&] { ++Ran; }, /*Unique=*/true);
  MainThreadExecute(&A, false, [&] { ++Ran; }, /*Unique=*/true);
  EXPECT_EQ(Ran, 4);
  EXPECT_TRUE(IsMainThread());
  bool WorkerIsMain = true;
  std::thread([&] { WorkerIsMain = IsMainThread(); }).join();
  ASSERT_FALSE(WorkerIsMain);

  constexpr int kProcs = 200;
  std::vector<int> Seen[2];  // touched by the main thread only
  std::vector<std::thread> Workers;
  for (int W = 0; W < 2; ++W)
    Workers.emplace_back([&, W] {
      for (int I = 0; I < kProcs; ++I)
        MainThreadExecute(W ? &A : &B, /*Wait=*/false, [&, W, I] {
          if (I == 50) throw std::runtime_error("dropped");
          Seen[W].push_back(I);
        });
    });
  for (auto& W : Workers) W.join();
  EXPECT_TRUE(Seen[0].empty() && Seen[1].empty()) << "ran before the queue was drained";

  int Count = -1;
  EXPECT_NO_THROW(Count = ProcessMainThreadQueue());
  EXPECT_EQ(Count, 2 * kProcs);
  std::vector<int> Expected;
  for (int I = 0; I < kProcs; ++I)
    if (I != 50) Expected.push_back(I);
  EXPECT_EQ(Seen[0], Expected);
  EXPECT_EQ(Seen[1], Expected);
}

TEST_F(ThreadingMainThread, UniqueQueuesASendersProcedureOnceUntilItRan) {
  for (int Round = 1; Round <= 2; ++Round) {
    std::thread([&] {
      for (int I = 0; I < 10; ++I) {
        MainThreadExecute(&A, false, [] {}, /*Unique=*/true);
        MainThreadExecute(&B, false, [] {}, /*Unique=*/true);
      }
      MainThreadExecute(&A, false, [] {});  // not unique: queued anyway
    }).join();
    EXPECT_EQ(ProcessMainThreadQueue(), 3) << "round " << Round;
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

TEST_F(ThreadingMainThread, EventsAndTheQueueWaitForTheSignalWithoutOrWithAHugeTimeout) {
  EXPECT_EQ(WaitAndProcessMainThreadQueue(0), 0);
  for (int64_t Timeout : {INT64_C(-1), kHugeMs1, kHugeMs2, kHugeMs3}) {
    SCOPED_TRACE(Timeout);
    TEvent Event;
    std::atomic<bool> Set{false};
    int Ran = 0;
    std::thread Worker([&] {
      std::this_thread::sleep_for(50ms);
      Set = true;
      Event.SetEvent();
      std::this_thread::sleep_for(50ms);
      MainThreadExecute(&A, false, [&] { ++Ran; });
    });
    EXPECT_EQ(Event.WaitFor(Timeout), TWaitResult::wrSignaled);
    EXPECT_TRUE(Set.load()) << "the event came back before the signal";
    // A negative timeout does not wait for the queue.
    const int Drained = WaitAndProcessMainThreadQueue(Timeout < 0 ? kPatienceMs : Timeout);
    Worker.join();
    ProcessMainThreadQueue();  // in case it came back empty-handed
    ASSERT_EQ(Drained, 1) << "the queue came back before the work arrived";  // or the next waits hang
    EXPECT_EQ(Ran, 1);
  }
}

TEST_F(ThreadingMainThread, RemoveDropsOnlyThatSendersProceduresEvenFromADrainedOne) {
  std::string Ran;
  QueueFromWorker(&A, [&] { Ran += "A1 "; });
  QueueFromWorker(&B, [&] { Ran += "B1 "; });
  QueueFromWorker(&A, [&] { Ran += "A2 "; }, /*Unique=*/true);
  // The queue must not stay locked while a procedure runs: this one uses it.
  QueueFromWorker(&C, [&] {
    MainThreadExecute(&C, /*Wait=*/true, [&] { Ran += "inner "; });
    RemoveMainThreadProcs(&B);  // drops B2, queued behind this
  });
  QueueFromWorker(&B, [&] { Ran += "B2 "; });
  RemoveMainThreadProcs(&A);
  EXPECT_EQ(ProcessMainThreadQueue(), 2);
  EXPECT_EQ(Ran, "B1 inner ");
}

TEST_F(ThreadingMainThread, RemoveReleasesACallerWaitingForADroppedProcedure) {
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
  if (Released)
    Waiter.join();
  else
    Waiter.detach();  // stuck for good: its procedure went without releasing it
  ASSERT_TRUE(Released);
  EXPECT_FALSE(RemovedRan);
  EXPECT_FALSE(Threw);
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

// ---- the main-thread timer ---------------------------------------------------

TEST(Timer, TicksRunOnTheMainThreadOneAtATimeAndStopWhenDisabled) {
  SetMainThread();
  ProcessMainThreadQueue();
  Quorvel::TWBTimer Timer;
  EXPECT_FALSE(Timer.GetEnabled());
  EXPECT_EQ(Timer.GetInterval(), 1000u);
  Timer.SetInterval(0);
  EXPECT_EQ(Timer.GetInterval(), 1u) << "at least a millisecond";
  int Ticks = 0;
  bool OnMain = true;
  Timer.OnTimer = [&](Quorvel::TWBTimer&) {
    ++Ticks;
    OnMain = OnMain && IsMainThread();
  };
  Timer.SetInterval(2);
  Timer.SetEnabled(true);
  // Ticks arrive only through the queue.
  for (int I = 0; I < 10000 && Ticks < 3; ++I) WaitAndProcessMainThreadQueue(50);
  EXPECT_GE(Ticks, 3);
  EXPECT_TRUE(OnMain);

  // However long the main thread is busy (here some 25 intervals), one tick
  // waits, not a pile; a second may only arrive while the queue drains.
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  const int Before = Ticks;
  ProcessMainThreadQueue();
  EXPECT_LE(Ticks - Before, 2);

  // Disabled, a tick that was already queued does not run.
  std::this_thread::sleep_for(std::chrono::milliseconds(10));
  Timer.SetEnabled(false);
  const int AtStop = Ticks;
  ProcessMainThreadQueue();
  EXPECT_EQ(Ticks, AtStop);

  // Destroyed while a tick waits: the tick is dropped with the timer.
  int Late = 0;
  {
    Quorvel::TWBTimer Short;
    Short.SetInterval(1);
    Short.OnTimer = [&](Quorvel::TWBTimer&) { ++Late; };
    Short.SetEnabled(true);
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  ProcessMainThreadQueue();
  EXPECT_EQ(Late, 0);
}
