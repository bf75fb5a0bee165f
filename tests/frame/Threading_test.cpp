// Locks, events, processing threads and the main-thread queue under contention.
//
// Every wait below is bounded only as a guard against hangs; nothing here
// asserts how fast anything runs.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <limits>
#include <memory>
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

namespace {

// Generous bounds: a slow two-core machine under ThreadSanitizer must never hit them.
constexpr auto kPatience = std::chrono::seconds(60);
constexpr int64_t kPatienceMs = 60000;
// Timeouts past what a nanosecond clock counts (about 292 years): waits given
// them must still wait, not come back at once.
constexpr int64_t kHugeTimeoutsMs[] = {
    INT64_C(10000000000000),  // about 317 years
    INT64_C(1) << 50,
    std::numeric_limits<int64_t>::max(),
};

// Aborts the program when the owning test is stuck, so a deadlock is reported
// as such instead of hanging the run.
class THangGuard {
 public:
  THangGuard() : FName(CurrentTestName()), FThread([this] { Watch(); }) {}
  ~THangGuard() {
    {
      std::lock_guard<std::mutex> G(FMutex);
      FDone = true;
    }
    FCond.notify_all();
    FThread.join();
  }

 private:
  static std::string CurrentTestName() {
    const auto* Info = ::testing::UnitTest::GetInstance()->current_test_info();
    return Info ? std::string(Info->test_suite_name()) + "." + Info->name() : std::string("?");
  }
  void Watch() {
    std::unique_lock<std::mutex> L(FMutex);
    if (!FCond.wait_for(L, 2 * kPatience, [this] { return FDone; })) {
      std::fprintf(stderr, "%s is hung (deadlock?)\n", FName.c_str());
      std::fflush(stderr);
      std::abort();
    }
  }
  std::string FName;
  std::mutex FMutex;
  std::condition_variable FCond;
  bool FDone = false;
  std::thread FThread;
};

// Polls Pred until it holds; answers false only when patience ran out.
template <typename Pred>
bool WaitUntil(Pred P) {
  const auto Deadline = std::chrono::steady_clock::now() + kPatience;
  while (!P()) {
    if (std::chrono::steady_clock::now() > Deadline) return P();
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

// Threads joined when the scope ends, whatever the test's outcome.
class TThreads {
 public:
  ~TThreads() { JoinAll(); }
  template <typename F>
  void Start(F&& Fn) {
    FThreads.emplace_back(std::forward<F>(Fn));
  }
  void JoinAll() {
    for (auto& T : FThreads)
      if (T.joinable()) T.join();
    FThreads.clear();
  }

 private:
  std::vector<std::thread> FThreads;
};

// Releases threads started behind it all at once, to maximise contention.
class TStartGate {
 public:
  void Open() { FOpen.store(true, std::memory_order_release); }
  void Pass() const {
    while (!FOpen.load(std::memory_order_acquire)) std::this_thread::yield();
  }

 private:
  std::atomic<bool> FOpen{false};
};

bool TryEnterFromOtherThread(ICriticalSection& Lock) {
  bool Entered = false;
  std::thread T([&] {
    Entered = Lock.TryEnter();
    if (Entered) Lock.Leave();
  });
  T.join();
  return Entered;
}

class TThreadingTest : public ::testing::Test {
 protected:
  THangGuard FGuard;
};

}  // namespace

// ---- TCriticalSection / TLockAccess ----------------------------------------

using ThreadingCriticalSection = TThreadingTest;

TEST_F(ThreadingCriticalSection, IsRecursiveAndExcludesOtherThreadsUntilFullyLeft) {
  TCriticalSection Lock;
  Lock.Enter();
  ASSERT_TRUE(Lock.TryEnter());  // the owner enters again
  EXPECT_FALSE(TryEnterFromOtherThread(Lock));
  Lock.Leave();
  EXPECT_FALSE(TryEnterFromOtherThread(Lock)) << "one Leave must not release a lock entered twice";
  Lock.Leave();
  EXPECT_TRUE(TryEnterFromOtherThread(Lock));
  // Free again for its first owner too.
  ASSERT_TRUE(Lock.TryEnter());
  Lock.Leave();
}

TEST_F(ThreadingCriticalSection, SerialisesWritersOfAPlainCounter) {
  constexpr int kThreads = 4, kRounds = 10000;
  TCriticalSection Lock;
  TLockAccess Access(Lock);
  int Counter = 0;  // deliberately not atomic: the lock is the only protection
  TStartGate Gate;
  {
    TThreads Writers;
    for (int T = 0; T < kThreads; ++T)
      Writers.Start([&, T] {
        Gate.Pass();
        for (int I = 0; I < kRounds; ++I) {
          // Every way of holding the lock, and re-entering it while held.
          switch ((I + T) % 3) {
            case 0:
              Access.Execute([&] { ++Counter; });
              break;
            case 1: {
              TLockGuard G(Lock);
              Access.Execute([&] { ++Counter; });
              break;
            }
            default: {
              std::lock_guard<TCriticalSection> G(Lock);
              ++Counter;
            }
          }
        }
      });
    Gate.Open();
  }
  EXPECT_EQ(Counter, kThreads * kRounds);
}

TEST_F(ThreadingCriticalSection, ExecuteReturnsTheResultAndLeavesTheLockWhenTheProcedureThrows) {
  TCriticalSection Lock;
  TLockAccess Access(Lock);

  EXPECT_EQ(Access.Execute([] { return 42; }), 42);
  auto Owned = Access.Execute([] { return std::make_unique<int>(7); });  // move-only results pass through
  ASSERT_TRUE(Owned);
  EXPECT_EQ(*Owned, 7);
  int Target = 0;
  int& Ref = Access.Execute([&]() -> int& { return Target; });
  EXPECT_EQ(&Ref, &Target);
  EXPECT_TRUE(TryEnterFromOtherThread(Lock));

  EXPECT_THROW(Access.Execute([]() -> int { throw std::runtime_error("failed under the lock"); }),
               std::runtime_error);
  EXPECT_TRUE(TryEnterFromOtherThread(Lock)) << "the lock stayed held after the procedure threw";

  // Thrown while the caller already held it once: only the inner entry is left.
  Lock.Enter();
  EXPECT_THROW(Access.Execute([] { throw 1; }), int);
  EXPECT_FALSE(TryEnterFromOtherThread(Lock));
  Lock.Leave();
  EXPECT_TRUE(TryEnterFromOtherThread(Lock));
}

// ---- TEvent ----------------------------------------------------------------

using ThreadingEvent = TThreadingTest;

TEST_F(ThreadingEvent, AutoResetReleasesOneWaiterPerSet) {
  constexpr int kWaiters = 3;
  TEvent Event;  // auto-reset, not signalled
  std::atomic<int> Released{0};
  std::vector<TWaitResult> Results(kWaiters, TWaitResult::wrTimeout);
  TThreads Waiters;
  for (int I = 0; I < kWaiters; ++I)
    Waiters.Start([&, I] {
      Results[I] = Event.WaitFor(kPatienceMs);
      ++Released;
    });

  for (int Round = 1; Round <= kWaiters; ++Round) {
    SCOPED_TRACE(Round);
    Event.SetEvent();
    ASSERT_TRUE(WaitUntil([&] { return Released.load() >= Round; }));
    // Give a wrongly released second waiter the chance to show up.
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(Released.load(), Round);
    // The released waiter reset the event.
    EXPECT_EQ(Event.WaitFor(0), TWaitResult::wrTimeout);
  }
  Waiters.JoinAll();
  for (TWaitResult R : Results) EXPECT_EQ(R, TWaitResult::wrSignaled);
}

TEST_F(ThreadingEvent, BackToBackSetsReleaseAsManyBlockedWaiters) {
  TEvent Event;  // auto-reset
  std::atomic<int> Released{0};
  TThreads Waiters;
  for (int I = 0; I < 2; ++I)
    Waiters.Start([&] {
      if (Event.WaitFor(kPatienceMs) == TWaitResult::wrSignaled) ++Released;
    });
  std::this_thread::sleep_for(std::chrono::milliseconds(100));  // let both block
  Event.SetEvent();
  Event.SetEvent();  // before the first waiter has woken
  EXPECT_TRUE(WaitUntil([&] { return Released.load() == 2; }));
  Waiters.JoinAll();
  EXPECT_EQ(Event.WaitFor(0), TWaitResult::wrTimeout) << "no set is left over";
}

TEST_F(ThreadingEvent, ManualResetReleasesEveryWaiterAndStaysSetUntilReset) {
  constexpr int kWaiters = 4;
  TEvent Event(/*ManualReset=*/true);
  std::atomic<int> Started{0}, Released{0};
  TThreads Waiters;
  for (int I = 0; I < kWaiters; ++I)
    Waiters.Start([&] {
      ++Started;
      if (Event.WaitFor(-1) == TWaitResult::wrSignaled) ++Released;
    });
  ASSERT_TRUE(WaitUntil([&] { return Started.load() == kWaiters; }));
  std::this_thread::sleep_for(std::chrono::milliseconds(10));  // most likely all blocked by now
  Event.SetEvent();
  const bool AllReleased = WaitUntil([&] { return Released.load() == kWaiters; });
  while (Released.load() < kWaiters) {  // a broken event: free the rest so the test can end
    Event.SetEvent();
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  Waiters.JoinAll();
  EXPECT_TRUE(AllReleased) << "one SetEvent did not release every waiter";

  EXPECT_EQ(Event.WaitFor(0), TWaitResult::wrSignaled);
  EXPECT_EQ(Event.WaitFor(0), TWaitResult::wrSignaled);
  Event.ResetEvent();
  EXPECT_EQ(Event.WaitFor(0), TWaitResult::wrTimeout);
  Event.SetEvent();
  EXPECT_EQ(Event.WaitFor(-1), TWaitResult::wrSignaled);
}

TEST_F(ThreadingEvent, WaitTimesOutUnlessSignalledAndHonoursTheInitialState) {
  TEvent Event;
  EXPECT_EQ(Event.WaitFor(0), TWaitResult::wrTimeout);
  const auto Start = std::chrono::steady_clock::now();
  EXPECT_EQ(Event.WaitFor(30), TWaitResult::wrTimeout);
  // Not a speed check: a timed-out wait must not come back early.
  EXPECT_GE(std::chrono::steady_clock::now() - Start, std::chrono::milliseconds(25));
  // A set after a timed-out wait is not lost.
  Event.SetEvent();
  EXPECT_EQ(Event.WaitFor(30), TWaitResult::wrSignaled);
  EXPECT_EQ(Event.WaitFor(0), TWaitResult::wrTimeout);

  TEvent InitiallySet(/*ManualReset=*/false, /*InitialState=*/true);
  EXPECT_EQ(InitiallySet.WaitFor(0), TWaitResult::wrSignaled);
  EXPECT_EQ(InitiallySet.WaitFor(0), TWaitResult::wrTimeout);

  TEvent ManualInitiallySet(/*ManualReset=*/true, /*InitialState=*/true);
  EXPECT_EQ(ManualInitiallySet.WaitFor(0), TWaitResult::wrSignaled);
  EXPECT_EQ(ManualInitiallySet.WaitFor(0), TWaitResult::wrSignaled);
}

TEST_F(ThreadingEvent, WaitWithoutTimeoutOrWithAHugeTimeoutEndsOnlyWhenSignalled) {
  std::vector<int64_t> Timeouts{-1};
  Timeouts.insert(Timeouts.end(), std::begin(kHugeTimeoutsMs), std::end(kHugeTimeoutsMs));
  for (int64_t Timeout : Timeouts) {
    SCOPED_TRACE(Timeout);
    TEvent Event;
    std::atomic<bool> Set{false};
    std::thread Setter([&] {
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
      Set = true;
      Event.SetEvent();
    });
    const TWaitResult R = Event.WaitFor(Timeout);
    const bool SetBeforeReturn = Set.load();
    Setter.join();
    EXPECT_EQ(R, TWaitResult::wrSignaled);
    EXPECT_TRUE(SetBeforeReturn);
  }
}

// ---- TProcessingThread -----------------------------------------------------

using ThreadingProcessingThread = TThreadingTest;

TEST_F(ThreadingProcessingThread, ConsumesEveryItemSignalledFromManyThreads) {
  constexpr int kRounds = 20, kSenders = 3, kItems = 300;
  std::atomic<int> Queued{0}, Consumed{0};
  std::atomic<bool> InProc{false}, Overlapped{false}, WrongThread{false};
  TProcessingThread Worker(this, [&](IProcessingThread& Self) {
    if (InProc.exchange(true)) Overlapped = true;
    if (&Self != &Worker || std::this_thread::get_id() != Worker.ThreadId()) WrongThread = true;
    const int Taken = Queued.exchange(0);
    // Work on the items: signals arriving meanwhile must cause another run.
    std::this_thread::sleep_for(std::chrono::microseconds(50));
    Consumed += Taken;
    InProc = false;
  });
  for (int Round = 1; Round <= kRounds; ++Round) {
    SCOPED_TRACE(Round);
    TStartGate Gate;
    {
      TThreads Senders;
      for (int S = 0; S < kSenders; ++S)
        Senders.Start([&] {
          Gate.Pass();
          for (int I = 0; I < kItems; ++I) {
            ++Queued;
            Worker.Signal();
          }
        });
      Gate.Open();
    }
    // Signals coalesce, but the last one must still be followed by a run.
    const int Total = Round * kSenders * kItems;
    ASSERT_TRUE(WaitUntil([&] { return Consumed.load() == Total; }))
        << "consumed " << Consumed.load() << " of " << Total;
  }
  EXPECT_FALSE(Overlapped);
  EXPECT_FALSE(WrongThread);
  EXPECT_NE(Worker.ThreadId(), std::this_thread::get_id());
}

TEST_F(ThreadingProcessingThread, RunsAtStartOnlyWhenAsked) {
  std::atomic<int> Runs{0};
  {
    TProcessingThread Worker(this, [&](IProcessingThread&) { ++Runs; }, /*RunAtStart=*/true);
    EXPECT_TRUE(WaitUntil([&] { return Runs.load() == 1; }));
  }
  EXPECT_EQ(Runs.load(), 1);

  Runs = 0;
  {
    TProcessingThread Worker(this, [&](IProcessingThread&) { ++Runs; });
    Worker.WaitFor();
  }
  EXPECT_EQ(Runs.load(), 0) << "ran without a signal";
}

TEST_F(ThreadingProcessingThread, WaitForJoinsWhileSignalsKeepArriving) {
  std::atomic<int> Runs{0};
  std::atomic<bool> InProc{false}, StopSenders{false};
  auto Worker = std::make_unique<TProcessingThread>(this, [&](IProcessingThread&) {
    InProc = true;
    ++Runs;
    std::this_thread::yield();
    InProc = false;
  });
  TThreads Senders;
  for (int S = 0; S < 3; ++S)
    Senders.Start([&] {
      while (!StopSenders.load()) Worker->Signal();
    });
  ASSERT_TRUE(WaitUntil([&] { return Runs.load() >= 10; }));

  Worker->WaitFor();
  EXPECT_TRUE(Worker->Terminated());
  EXPECT_FALSE(InProc.load()) << "WaitFor returned while the procedure was running";
  const int RunsAtEnd = Runs.load();
  std::this_thread::sleep_for(std::chrono::milliseconds(20));  // signals still arriving
  EXPECT_EQ(Runs.load(), RunsAtEnd) << "ran after WaitFor returned";

  StopSenders = true;
  Senders.JoinAll();
  Worker.reset();  // the destructor after WaitFor joins nothing twice
  EXPECT_EQ(Runs.load(), RunsAtEnd);
}

TEST_F(ThreadingProcessingThread, TerminationEndsALongRunningProcedure) {
  // The destructor terminates a procedure that polls Terminated, then joins.
  std::atomic<bool> Started{false}, SawTerminated{false};
  auto Worker = std::make_unique<TProcessingThread>(this, [&](IProcessingThread& Self) {
    Started = true;
    while (!Self.Terminated()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    SawTerminated = true;
  });
  Worker->Signal();
  ASSERT_TRUE(WaitUntil([&] { return Started.load(); }));
  Worker.reset();
  EXPECT_TRUE(SawTerminated.load());

  // A procedure may terminate its own thread; later signals run nothing.
  std::atomic<int> Runs{0};
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

TEST_F(ThreadingProcessingThread, AThrowingProcedureKeepsTheThreadAlive) {
  std::atomic<int> Runs{0};
  TProcessingThread Worker(this, [&](IProcessingThread&) {
    const int Run = ++Runs;
    if (Run == 1) throw std::runtime_error("first run fails");
    if (Run == 2) throw 2;  // not derived from std::exception
  });
  for (int Expected = 1; Expected <= 3; ++Expected) {
    SCOPED_TRACE(Expected);
    Worker.Signal();
    ASSERT_TRUE(WaitUntil([&] { return Runs.load() >= Expected; }));
  }
  EXPECT_FALSE(Worker.Terminated());
}

// ---- Main-thread queue -----------------------------------------------------

class ThreadingMainThread : public TThreadingTest {
 protected:
  void SetUp() override {
    SetMainThread();
    ProcessMainThreadQueue();  // whatever earlier tests left behind
  }
  void TearDown() override {
    // Nothing of this test may run after its locals are gone.
    RemoveMainThreadProcs(&FSenderA);
    RemoveMainThreadProcs(&FSenderB);
  }
  int FSenderA = 0, FSenderB = 0;
};

TEST_F(ThreadingMainThread, RunsAtOnceOnTheMainThreadEvenWhenWaiting) {
  ASSERT_TRUE(IsMainThread());
  bool Worker = true;
  std::thread([&] { Worker = IsMainThread(); }).join();
  EXPECT_FALSE(Worker);

  int Ran = 0;
  MainThreadExecute(&FSenderA, /*Wait=*/false, [&] { ++Ran; });
  EXPECT_EQ(Ran, 1);
  MainThreadExecute(&FSenderA, /*Wait=*/true, [&] { ++Ran; });
  EXPECT_EQ(Ran, 2);
  MainThreadExecute(&FSenderA, /*Wait=*/false, [&] { ++Ran; }, /*Unique=*/true);
  MainThreadExecute(&FSenderA, /*Wait=*/false, [&] { ++Ran; }, /*Unique=*/true);
  EXPECT_EQ(Ran, 4);
  EXPECT_EQ(ProcessMainThreadQueue(), 0);
}

TEST_F(ThreadingMainThread, ProceduresQueuedByWorkersRunInOrderWhenDrained) {
  constexpr int kWorkers = 3, kProcs = 200;
  const auto MainId = std::this_thread::get_id();
  std::vector<std::vector<int>> Seen(kWorkers);  // touched by the main thread only
  int OffMain = 0;
  TStartGate Gate;
  {
    TThreads Workers;
    for (int W = 0; W < kWorkers; ++W)
      Workers.Start([&, W] {
        Gate.Pass();
        for (int I = 0; I < kProcs; ++I)
          MainThreadExecute(W % 2 ? &FSenderA : &FSenderB, /*Wait=*/false, [&, W, I] {
            if (std::this_thread::get_id() != MainId) ++OffMain;
            Seen[W].push_back(I);
          });
      });
    Gate.Open();
  }
  for (const auto& S : Seen) EXPECT_TRUE(S.empty()) << "ran before the queue was drained";

  EXPECT_EQ(ProcessMainThreadQueue(), kWorkers * kProcs);
  EXPECT_EQ(OffMain, 0);
  for (int W = 0; W < kWorkers; ++W) {
    SCOPED_TRACE(W);
    ASSERT_EQ(Seen[W].size(), size_t(kProcs));
    for (int I = 0; I < kProcs; ++I) ASSERT_EQ(Seen[W][I], I);
  }
  EXPECT_EQ(ProcessMainThreadQueue(), 0);
}

TEST_F(ThreadingMainThread, AThrowingQueuedProcedureDoesNotStopTheDrain) {
  std::vector<int> Ran;
  std::thread([&] {
    MainThreadExecute(&FSenderA, false, [&] { Ran.push_back(1); });
    MainThreadExecute(&FSenderA, false, [&] { throw std::runtime_error("dropped"); });
    MainThreadExecute(&FSenderA, false, [&] { Ran.push_back(3); });
  }).join();
  int Count = -1;
  EXPECT_NO_THROW(Count = ProcessMainThreadQueue());
  EXPECT_EQ(Count, 3);
  EXPECT_EQ(Ran, (std::vector<int>{1, 3}));
}

TEST_F(ThreadingMainThread, WaitingWorkersBlockUntilDrainedAndGetTheirExceptions) {
  constexpr int kWorkers = 3, kCalls = 20;
  const auto MainId = std::this_thread::get_id();
  struct TWorkerState {
    int Value = -1;                  // written by the main thread, read by the worker after each call
    std::atomic<int> Returned{0};    // calls that came back
    int EarlyReturns = 0, WrongValues = 0, OffMain = 0;  // main thread / worker only, read after join
    std::string Caught;
  };
  std::vector<TWorkerState> States(kWorkers);
  std::atomic<int> Finished{0};
  TThreads Workers;
  for (int W = 0; W < kWorkers; ++W)
    Workers.Start([&, W] {
      TWorkerState& S = States[W];
      for (int I = 0; I < kCalls; ++I) {
        MainThreadExecute(&FSenderA, /*Wait=*/true, [&, I] {
          if (std::this_thread::get_id() != MainId) ++S.OffMain;
          if (S.Returned.load() != I) ++S.EarlyReturns;
          S.Value = I;
        });
        if (S.Value != I) ++S.WrongValues;
        ++S.Returned;
      }
      try {
        MainThreadExecute(&FSenderB, /*Wait=*/true, [W] { throw std::runtime_error("failed " + std::to_string(W)); });
      } catch (const std::runtime_error& E) {
        S.Caught = E.what();
      }
      ++Finished;
    });
  ASSERT_TRUE(WaitUntil([&] {
    WaitAndProcessMainThreadQueue(10);
    return Finished.load() == kWorkers;
  }));
  Workers.JoinAll();
  for (int W = 0; W < kWorkers; ++W) {
    SCOPED_TRACE(W);
    EXPECT_EQ(States[W].Returned.load(), kCalls);
    EXPECT_EQ(States[W].EarlyReturns, 0) << "a waiting caller returned before its procedure ran";
    EXPECT_EQ(States[W].WrongValues, 0);
    EXPECT_EQ(States[W].OffMain, 0);
    EXPECT_EQ(States[W].Caught, "failed " + std::to_string(W));
  }
  EXPECT_EQ(ProcessMainThreadQueue(), 0);
}

TEST_F(ThreadingMainThread, WaitAndProcessWaitsForWorkQueuedLater) {
  EXPECT_EQ(WaitAndProcessMainThreadQueue(0), 0);
  std::vector<int64_t> Timeouts{kPatienceMs};
  Timeouts.insert(Timeouts.end(), std::begin(kHugeTimeoutsMs), std::end(kHugeTimeoutsMs));
  for (int64_t Timeout : Timeouts) {
    SCOPED_TRACE(Timeout);
    int Ran = 0;
    std::thread Worker([&] {
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
      MainThreadExecute(&FSenderA, /*Wait=*/false, [&] { ++Ran; });
    });
    const int Drained = WaitAndProcessMainThreadQueue(Timeout);
    Worker.join();
    ProcessMainThreadQueue();  // in case it came back empty-handed
    EXPECT_EQ(Drained, 1) << "came back before the work arrived";
    EXPECT_EQ(Ran, 1);
  }
}

TEST_F(ThreadingMainThread, UniqueQueuesASendersProcedureOnlyOnce) {
  int RanA = 0, RanB = 0, RanPlain = 0;
  auto QueueFromWorker = [&] {
    std::thread([&] {
      for (int I = 0; I < 10; ++I) {
        MainThreadExecute(&FSenderA, false, [&] { ++RanA; }, /*Unique=*/true);
        MainThreadExecute(&FSenderB, false, [&] { ++RanB; }, /*Unique=*/true);
      }
      MainThreadExecute(&FSenderA, false, [&] { ++RanPlain; });  // not unique: always queued
    }).join();
  };
  QueueFromWorker();
  EXPECT_EQ(ProcessMainThreadQueue(), 3);
  EXPECT_EQ(RanA, 1);
  EXPECT_EQ(RanB, 1);
  EXPECT_EQ(RanPlain, 1);
  // Once run, the sender's procedure is queued again.
  QueueFromWorker();
  EXPECT_EQ(ProcessMainThreadQueue(), 3);
  EXPECT_EQ(RanA, 2);
  EXPECT_EQ(RanB, 2);
  EXPECT_EQ(RanPlain, 2);
}

TEST_F(ThreadingMainThread, RemoveDropsASendersProceduresAndReleasesItsWaiters) {
  std::vector<std::string> Ran;
  std::thread([&] {
    MainThreadExecute(&FSenderA, false, [&] { Ran.push_back("A1"); });
    MainThreadExecute(&FSenderB, false, [&] { Ran.push_back("B1"); });
    MainThreadExecute(&FSenderA, false, [&] { Ran.push_back("A2"); }, /*Unique=*/true);
    MainThreadExecute(&FSenderB, false, [&] { Ran.push_back("B2"); });
  }).join();
  RemoveMainThreadProcs(&FSenderA);
  EXPECT_EQ(ProcessMainThreadQueue(), 2);
  EXPECT_EQ(Ran, (std::vector<std::string>{"B1", "B2"}));

  // A caller waiting for a removed procedure comes back without it having run.
  std::atomic<bool> Returned{false}, Threw{false};
  bool RemovedRan = false;
  std::thread Waiter([&] {
    try {
      MainThreadExecute(&FSenderA, /*Wait=*/true, [&] { RemovedRan = true; });
    } catch (...) {
      Threw = true;
    }
    Returned = true;
  });
  const bool Released = WaitUntil([&] {
    RemoveMainThreadProcs(&FSenderA);
    return Returned.load();
  });
  if (!Released) ProcessMainThreadQueue();  // let the worker go before failing
  Waiter.join();
  EXPECT_TRUE(Released);
  EXPECT_FALSE(RemovedRan);
  EXPECT_FALSE(Threw.load());
  EXPECT_EQ(ProcessMainThreadQueue(), 0);
}

TEST_F(ThreadingMainThread, ADrainedProcedureMayUseTheQueueItself) {
  // The queue must not be locked while a procedure runs.
  bool InnerRan = false, OnMain = false, DroppedRan = false;
  std::thread([&] {
    MainThreadExecute(&FSenderA, false, [&] {
      OnMain = IsMainThread();
      MainThreadExecute(&FSenderA, /*Wait=*/true, [&] { InnerRan = true; });
      RemoveMainThreadProcs(&FSenderB);  // drops the one queued behind this
    });
    MainThreadExecute(&FSenderB, false, [&] { DroppedRan = true; });
  }).join();
  EXPECT_EQ(ProcessMainThreadQueue(), 1);
  EXPECT_TRUE(OnMain);
  EXPECT_TRUE(InnerRan);
  EXPECT_FALSE(DroppedRan);
}

#ifdef _WIN32
namespace {
void PumpMessages() {
  MSG Message;
  while (PeekMessageW(&Message, nullptr, 0, 0, PM_REMOVE)) {
    TranslateMessage(&Message);
    DispatchMessageW(&Message);
  }
}
}  // namespace

// On Windows the application's own message loop drains the queue through the
// window SetMainThread made, burst after burst.
TEST_F(ThreadingMainThread, TheMessageLoopDrainsTheQueue) {
  PumpMessages();  // wakes left by earlier tests
  int Ran = 0;
  for (int Round = 1; Round <= 3; ++Round) {
    SCOPED_TRACE(Round);
    std::atomic<bool> Returned{false};
    std::thread Worker([&] {
      MainThreadExecute(&FSenderA, /*Wait=*/false, [&] { ++Ran; });
      MainThreadExecute(&FSenderA, /*Wait=*/true, [&] { ++Ran; });
      Returned = true;
    });
    const bool Done = WaitUntil([&] {
      PumpMessages();
      return Returned.load();
    });
    if (!Done) ProcessMainThreadQueue();  // let the worker go before failing
    Worker.join();
    ASSERT_TRUE(Done) << "the message loop did not drain the queue";
    EXPECT_EQ(Ran, 2 * Round);
  }
}
#endif
