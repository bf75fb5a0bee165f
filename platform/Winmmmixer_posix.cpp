// Without winmm there is no system mixer: no devices. The notification
// window is a handle with a posted-message queue of its own making, so that
// the model and a scripted device behave here as they do on Windows: a
// message posted from any thread waits until the window's thread delivers
// it, and a window that goes takes its waiting messages with it.
#include <algorithm>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

#include "platform/Winmmmixer.h"

namespace Quorvel::Winmmmixer {

namespace {
class TNoMixerApi final : public IMixerApi {
 public:
  uint32_t GetNumDevs() override { return 0; }
  uint32_t GetDevCaps(uintptr_t, TMixerCaps&) override { return MmBadDeviceId; }
  uint32_t Open(void*& Mixer, uint32_t, uintptr_t, uintptr_t, uint32_t) override {
    Mixer = nullptr;
    return MmBadDeviceId;
  }
  uint32_t Close(void*) override { return MmInvalidHandle; }
  uint32_t GetLineInfo(void*, TMixerLine&, uint32_t) override { return MmInvalidHandle; }
  uint32_t GetLineControls(void*, TMixerLineControls&, uint32_t) override { return MmInvalidHandle; }
  uint32_t GetControlDetails(void*, TMixerControlDetails&, uint32_t) override { return MmInvalidHandle; }
  uint32_t SetControlDetails(void*, TMixerControlDetails&, uint32_t) override { return MmInvalidHandle; }
};

// As many messages as one thread's windows may have waiting; a post beyond
// that fails, as it does on Windows, so a thread that never delivers cannot
// make the queue grow without end.
constexpr size_t kQueueLimit = 10000;

struct TWindowEntry {
  uintptr_t Handle;
  std::thread::id Thread;
  TMixerNotifyWindow::THandler* Handler;
};

struct TPosted {
  uintptr_t Window;
  std::thread::id Thread;
  uint32_t Message;
  uintptr_t WParam;
  intptr_t LParam;
};

// Every window and every waiting message of the process, in posting order.
// Handles count up and are never reused, so a handle kept past its window's
// end names no window.
struct TQueues {
  std::mutex Lock;
  uintptr_t NextHandle = 0;
  std::vector<TWindowEntry> Windows;
  std::deque<TPosted> Posted;

  TWindowEntry* FindWindow(uintptr_t Handle) {
    const auto It = std::find_if(Windows.begin(), Windows.end(), [&](const TWindowEntry& W) { return W.Handle == Handle; });
    return It == Windows.end() ? nullptr : &*It;
  }
  size_t WaitingFor(std::thread::id Thread) const {
    return static_cast<size_t>(
        std::count_if(Posted.begin(), Posted.end(), [&](const TPosted& P) { return P.Thread == Thread; }));
  }
};

TQueues& Queues() {
  static TQueues Q;
  return Q;
}
}  // namespace

IMixerApi& SystemMixerApi() {
  static TNoMixerApi Api;
  return Api;
}

struct TMixerNotifyWindow::TImpl {
  THandler Handler;
  uintptr_t Handle = 0;
};

TMixerNotifyWindow::TMixerNotifyWindow(THandler Handler) : FImpl(std::make_unique<TImpl>()) {
  FImpl->Handler = std::move(Handler);
  TQueues& Q = Queues();
  std::lock_guard<std::mutex> G(Q.Lock);
  FImpl->Handle = ++Q.NextHandle;
  Q.Windows.push_back({FImpl->Handle, std::this_thread::get_id(), &FImpl->Handler});
}

// On the window's own thread, as on Windows: no delivery to it can be running.
TMixerNotifyWindow::~TMixerNotifyWindow() {
  TQueues& Q = Queues();
  std::lock_guard<std::mutex> G(Q.Lock);
  const uintptr_t Handle = FImpl->Handle;
  Q.Windows.erase(std::remove_if(Q.Windows.begin(), Q.Windows.end(),
                                 [&](const TWindowEntry& W) { return W.Handle == Handle; }),
                  Q.Windows.end());
  Q.Posted.erase(std::remove_if(Q.Posted.begin(), Q.Posted.end(), [&](const TPosted& P) { return P.Window == Handle; }),
                 Q.Posted.end());
}

void* TMixerNotifyWindow::GetHandle() const { return reinterpret_cast<void*>(FImpl->Handle); }

bool PostMixerMessage(void* Window, uint32_t Message, uintptr_t WParam, intptr_t LParam) {
  TQueues& Q = Queues();
  std::lock_guard<std::mutex> G(Q.Lock);
  const TWindowEntry* W = Q.FindWindow(reinterpret_cast<uintptr_t>(Window));
  if (!W || Q.WaitingFor(W->Thread) >= kQueueLimit) return false;
  Q.Posted.push_back({W->Handle, W->Thread, Message, WParam, LParam});
  return true;
}

int DeliverPostedMixerMessages() {
  TQueues& Q = Queues();
  const std::thread::id Self = std::this_thread::get_id();
  // Only what waits now: a handler that posts again is heard at the next call,
  // so one call always ends.
  size_t Left;
  {
    std::lock_guard<std::mutex> G(Q.Lock);
    Left = Q.WaitingFor(Self);
  }
  int Delivered = 0;
  for (; Left > 0; --Left) {
    TPosted Message{};
    TMixerNotifyWindow::THandler* Handler = nullptr;
    {
      std::lock_guard<std::mutex> G(Q.Lock);
      const auto It = std::find_if(Q.Posted.begin(), Q.Posted.end(), [&](const TPosted& P) { return P.Thread == Self; });
      if (It == Q.Posted.end()) break;  // a window of this thread went, with its messages
      Message = *It;
      Q.Posted.erase(It);
      if (const TWindowEntry* W = Q.FindWindow(Message.Window)) Handler = W->Handler;
    }
    // Outside the lock: the handler may post, and only this thread destroys
    // its windows, so the handler stays valid while it runs. What it leaves
    // unhandled has no default handling here.
    ++Delivered;
    if (Handler && *Handler) {
      try {
        (*Handler)(Message.Message, Message.WParam, Message.LParam);
      } catch (...) {
      }
    }
  }
  return Delivered;
}

}  // namespace Quorvel::Winmmmixer
