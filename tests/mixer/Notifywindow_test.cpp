// The mixer's notification window: messages posted from any thread wait for
// the window's own thread, in order; a window that goes takes its messages
// with it; a thread that never delivers cannot make its queue grow without end.
#include <gtest/gtest.h>

#include <thread>
#include <utility>
#include <vector>

#include "platform/Winmmmixer.h"

using namespace Quorvel::Winmmmixer;

namespace {

struct TRecorder {
  std::vector<std::pair<uint32_t, intptr_t>> Heard;
  TMixerNotifyWindow Window{[this](uint32_t Message, uintptr_t, intptr_t LParam) {
    Heard.emplace_back(Message, LParam);
    return true;
  }};
};

TEST(MixerNotifyWindow, PostedMessagesWaitForTheWindowsThreadInOrder) {
  DeliverPostedMixerMessages();
  TRecorder A, B;
  ASSERT_NE(A.Window.GetHandle(), nullptr);
  ASSERT_NE(A.Window.GetHandle(), B.Window.GetHandle());

  // Posted from another thread, which cannot deliver them itself.
  int DeliveredThere = -1;
  std::thread Poster([&] {
    EXPECT_TRUE(PostMixerMessage(A.Window.GetHandle(), MsgControlChange, 0, 1));
    EXPECT_TRUE(PostMixerMessage(B.Window.GetHandle(), MsgControlChange, 0, 2));
    EXPECT_TRUE(PostMixerMessage(A.Window.GetHandle(), MsgLineChange, 0, 3));
    DeliveredThere = DeliverPostedMixerMessages();
  });
  Poster.join();
  EXPECT_EQ(DeliveredThere, 0);
  EXPECT_TRUE(A.Heard.empty());

  EXPECT_EQ(DeliverPostedMixerMessages(), 3);
  EXPECT_EQ(A.Heard, (std::vector<std::pair<uint32_t, intptr_t>>{{MsgControlChange, 1}, {MsgLineChange, 3}}));
  EXPECT_EQ(B.Heard, (std::vector<std::pair<uint32_t, intptr_t>>{{MsgControlChange, 2}}));
  EXPECT_EQ(DeliverPostedMixerMessages(), 0);
}

TEST(MixerNotifyWindow, AWindowThatGoesTakesItsMessagesWithIt) {
  TRecorder Stays;
  void* Gone = nullptr;
  {
    TRecorder Goes;
    Gone = Goes.Window.GetHandle();
    EXPECT_TRUE(PostMixerMessage(Gone, MsgControlChange, 0, 7));
    EXPECT_TRUE(PostMixerMessage(Stays.Window.GetHandle(), MsgControlChange, 0, 8));
  }
  EXPECT_FALSE(PostMixerMessage(Gone, MsgControlChange, 0, 9));
  EXPECT_FALSE(PostMixerMessage(nullptr, MsgControlChange, 0, 9));
  EXPECT_EQ(DeliverPostedMixerMessages(), 1);
  EXPECT_EQ(Stays.Heard.size(), 1u);
}

TEST(MixerNotifyWindow, AHandlerThatPostsAgainIsHeardAtTheNextDelivery) {
  TMixerNotifyWindow* Self = nullptr;
  int Calls = 0;
  TMixerNotifyWindow Window([&](uint32_t, uintptr_t, intptr_t) {
    ++Calls;
    PostMixerMessage(Self->GetHandle(), MsgControlChange, 0, 0);
    return true;
  });
  Self = &Window;
  ASSERT_TRUE(PostMixerMessage(Window.GetHandle(), MsgControlChange, 0, 0));
  EXPECT_EQ(DeliverPostedMixerMessages(), 1);
  EXPECT_EQ(DeliverPostedMixerMessages(), 1);
  EXPECT_EQ(Calls, 2);
}

#ifndef _WIN32
// Windows bounds a thread's queue by its own settings; here the bound is the
// seam's own.
TEST(MixerNotifyWindow, AThreadThatNeverDeliversHasABoundedQueue) {
  TRecorder R;
  size_t Accepted = 0;
  while (Accepted < 1000000 && PostMixerMessage(R.Window.GetHandle(), MsgControlChange, 0, 1)) ++Accepted;
  EXPECT_GT(Accepted, 1000u);
  EXPECT_LT(Accepted, 1000000u);
  // Another thread's windows are not held up by this one's full queue.
  std::thread Other([] {
    TRecorder Elsewhere;
    EXPECT_TRUE(PostMixerMessage(Elsewhere.Window.GetHandle(), MsgControlChange, 0, 1));
    EXPECT_EQ(DeliverPostedMixerMessages(), 1);
  });
  Other.join();
  EXPECT_EQ(DeliverPostedMixerMessages(), static_cast<int>(Accepted));
  EXPECT_TRUE(PostMixerMessage(R.Window.GetHandle(), MsgControlChange, 0, 1));
  EXPECT_EQ(DeliverPostedMixerMessages(), 1);
}
#endif

}  // namespace
