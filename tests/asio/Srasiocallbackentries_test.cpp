// The callback entry table: each entry's record reaches the object bound to
// that entry, from any thread; acquisition takes the lowest free entry and
// stops at 101.
#include "asio/Srasiocallbackentries.h"

#include <gtest/gtest.h>

#include <atomic>
#include <set>
#include <stdexcept>
#include <thread>
#include <vector>

namespace Quorvel {
namespace {

// Records what reaches it through the four methods.
struct TReceiver {
  int Id = 0;
  std::atomic<int> Switches{0};
  std::atomic<int32_t> LastIndex{-1};
  std::atomic<TASIOBool> LastDirect{-1};
  std::atomic<double> LastRate{0};
  std::atomic<int> TimeInfos{0};

  void BufferSwitch(int32_t Index, TASIOBool Direct) {
    LastIndex = Index;
    LastDirect = Direct;
    ++Switches;
  }
  void SampleRateDidChange(TASIOSampleRate Rate) { LastRate = Rate; }
  int32_t AsioMessage(int32_t Selector, int32_t Value, void* Message, double* Opt) {
    if (Selector == kAsioOverload) throw std::runtime_error("must not reach the driver");
    return Id * 1000 + Selector * 10 + Value;
  }
  TASIOTime* BufferSwitchTimeInfo(TASIOTime* Params, int32_t Index, TASIOBool Direct) {
    ++TimeInfos;
    LastIndex = Index;
    return Params;
  }
};

int32_t Acquire(TReceiver& R, PASIOCallbacks& Callbacks) {
  return ASIOGetCallback(Callbacks, TASIOBufferSwitchMethod::Bind<&TReceiver::BufferSwitch>(&R),
                         TASIOSampleRateDidChangeMethod::Bind<&TReceiver::SampleRateDidChange>(&R),
                         TASIOAsioMessageMethod::Bind<&TReceiver::AsioMessage>(&R),
                         TASIOBufferSwitchTimeInfoMethod::Bind<&TReceiver::BufferSwitchTimeInfo>(&R));
}

// Releases every entry whatever a test left behind.
struct TTableGuard {
  TTableGuard() { Clear(); }
  ~TTableGuard() { Clear(); }
  static void Clear() {
    for (int32_t I = 0; I < ASIOCallbackEntryCount; ++I) ASIOReleaseCallback(I);
  }
};

TEST(Srasiocallbackentries, HundredAndOneEntriesOfDistinctFunctionsLowestFreeFirst) {
  TTableGuard Guard;
  std::vector<TReceiver> Receivers(ASIOCallbackEntryCount + 1);
  std::set<void*> Functions;
  std::set<PASIOCallbacks> Records;
  for (int32_t I = 0; I < ASIOCallbackEntryCount; ++I) {
    PASIOCallbacks Callbacks = nullptr;
    ASSERT_EQ(Acquire(Receivers[I], Callbacks), I);
    ASSERT_EQ(Callbacks, ASIOCallbackRecord(I));
    Records.insert(Callbacks);
    Functions.insert(reinterpret_cast<void*>(Callbacks->bufferSwitch));
    Functions.insert(reinterpret_cast<void*>(Callbacks->sampleRateDidChange));
    Functions.insert(reinterpret_cast<void*>(Callbacks->asioMessage));
    Functions.insert(reinterpret_cast<void*>(Callbacks->bufferSwitchTimeInfo));
  }
  EXPECT_EQ(Records.size(), 101u);
  EXPECT_EQ(Functions.size(), 404u);

  // The 102nd acquisition fails and leaves the record null.
  PASIOCallbacks Callbacks = ASIOCallbackRecord(0);
  EXPECT_EQ(Acquire(Receivers[101], Callbacks), -1);
  EXPECT_EQ(Callbacks, nullptr);

  // Freed entries are taken again lowest first, whatever the release order.
  ASIOReleaseCallback(70);
  ASIOReleaseCallback(30);
  EXPECT_EQ(Acquire(Receivers[101], Callbacks), 30);
  EXPECT_EQ(Callbacks, ASIOCallbackRecord(30));
  EXPECT_EQ(Acquire(Receivers[101], Callbacks), 70);
  EXPECT_EQ(Acquire(Receivers[101], Callbacks), -1);

  // Each record reaches the object bound to its own entry.
  for (int32_t I : {0, 29, 30, 100}) {
    const int32_t Expected = I == 30 ? 101 : I;
    Receivers[Expected].Id = Expected;
    EXPECT_EQ(ASIOCallbackRecord(I)->asioMessage(kAsioEngineVersion, 4, nullptr, nullptr),
              Expected * 1000 + 24);
  }
  EXPECT_EQ(ASIOCallbackRecord(-1), nullptr);
  EXPECT_EQ(ASIOCallbackRecord(101), nullptr);
}

TEST(Srasiocallbackentries, PartlyBoundEntriesAreBusyAndReleasedEntriesAnswerNothing) {
  TTableGuard Guard;
  TReceiver R;
  PASIOCallbacks Callbacks = nullptr;
  // Only one method bound, each of the four in turn: the entry is still taken.
  const TASIOBufferSwitchMethod NoSwitch;
  const TASIOSampleRateDidChangeMethod NoRate;
  const TASIOAsioMessageMethod NoMessage;
  const TASIOBufferSwitchTimeInfoMethod NoTimeInfo;
  EXPECT_EQ(ASIOGetCallback(Callbacks, TASIOBufferSwitchMethod::Bind<&TReceiver::BufferSwitch>(&R), NoRate,
                            NoMessage, NoTimeInfo), 0);
  EXPECT_EQ(ASIOGetCallback(Callbacks, NoSwitch,
                            TASIOSampleRateDidChangeMethod::Bind<&TReceiver::SampleRateDidChange>(&R), NoMessage,
                            NoTimeInfo), 1);
  EXPECT_EQ(ASIOGetCallback(Callbacks, NoSwitch, NoRate, TASIOAsioMessageMethod::Bind<&TReceiver::AsioMessage>(&R),
                            NoTimeInfo), 2);
  EXPECT_EQ(ASIOGetCallback(Callbacks, NoSwitch, NoRate, NoMessage,
                            TASIOBufferSwitchTimeInfoMethod::Bind<&TReceiver::BufferSwitchTimeInfo>(&R)), 3);
  EXPECT_EQ(Callbacks, ASIOCallbackRecord(3));
  TReceiver Next;
  EXPECT_EQ(Acquire(Next, Callbacks), 4);  // none of the four counts as free
  ASIOReleaseCallback(4);
  // The unbound methods of a partly bound entry answer as if released.
  TASIOTime Time{};
  EXPECT_EQ(ASIOCallbackRecord(0)->asioMessage(kAsioSelectorSupported, 1, nullptr, nullptr), 0);
  EXPECT_EQ(ASIOCallbackRecord(0)->bufferSwitchTimeInfo(&Time, 1, ASIOTrue), nullptr);
  ASIOCallbackRecord(0)->bufferSwitch(1, ASIOFalse);
  EXPECT_EQ(R.Switches, 1);
  EXPECT_EQ(R.LastDirect, ASIOFalse);
  ASIOCallbackRecord(1)->sampleRateDidChange(44100);
  EXPECT_EQ(R.LastRate, 44100);
  EXPECT_EQ(ASIOCallbackRecord(3)->bufferSwitchTimeInfo(&Time, 0, ASIOTrue), &Time);
  EXPECT_EQ(R.TimeInfos, 1);
  // An exception in a bound method never reaches the driver.
  EXPECT_EQ(ASIOCallbackRecord(2)->asioMessage(kAsioOverload, 0, nullptr, nullptr), 0);

  // Released: nothing reaches the object any more.
  for (int32_t I = 0; I < 4; ++I) ASIOReleaseCallback(I);
  ASIOCallbackRecord(0)->bufferSwitch(0, ASIOTrue);
  ASIOCallbackRecord(1)->sampleRateDidChange(96000);
  EXPECT_EQ(ASIOCallbackRecord(2)->asioMessage(kAsioEngineVersion, 0, nullptr, nullptr), 0);
  EXPECT_EQ(ASIOCallbackRecord(3)->bufferSwitchTimeInfo(&Time, 0, ASIOTrue), nullptr);
  EXPECT_EQ(R.Switches, 1);
  EXPECT_EQ(R.LastRate, 44100);
  EXPECT_EQ(R.TimeInfos, 1);
  // An entry bound with nothing stays free.
  EXPECT_EQ(ASIOGetCallback(Callbacks, NoSwitch, NoRate, NoMessage, NoTimeInfo), 0);
  EXPECT_EQ(ASIOGetCallback(Callbacks, NoSwitch, NoRate, NoMessage, NoTimeInfo), 0);
}

TEST(Srasiocallbackentries, DriverThreadsReachTheirOwnObjectsWhileEntriesChange) {
  TTableGuard Guard;
  TReceiver A, B, Other;
  PASIOCallbacks RecordA = nullptr, RecordB = nullptr, RecordOther = nullptr;
  ASSERT_EQ(Acquire(A, RecordA), 0);
  ASSERT_EQ(Acquire(B, RecordB), 1);
  constexpr int Switches = 20000;
  std::atomic<bool> Go{false};
  // Two "drivers" call their records from threads of their own while the
  // main thread takes and frees a third entry.
  auto Driver = [&](PASIOCallbacks Record) {
    while (!Go) std::this_thread::yield();
    for (int I = 0; I < Switches; ++I) {
      Record->bufferSwitch(I & 1, ASIOTrue);
      TASIOTime Time{};
      Record->bufferSwitchTimeInfo(&Time, I & 1, ASIOFalse);
    }
  };
  std::thread ThreadA(Driver, RecordA), ThreadB(Driver, RecordB);
  Go = true;
  for (int I = 0; I < 2000; ++I) {
    EXPECT_EQ(Acquire(Other, RecordOther), 2);
    RecordOther->sampleRateDidChange(I);
    ASIOReleaseCallback(2);
  }
  ThreadA.join();
  ThreadB.join();
  EXPECT_EQ(A.Switches, Switches);
  EXPECT_EQ(B.Switches, Switches);
  EXPECT_EQ(A.TimeInfos, Switches);
  EXPECT_EQ(B.TimeInfos, Switches);
  EXPECT_EQ(Other.Switches, 0);
  EXPECT_EQ(Other.LastRate, 1999);
}

}  // namespace
}  // namespace Quorvel
