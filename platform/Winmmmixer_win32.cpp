// The mixer seam over the system's winmm, and the hidden notification
// window as a message-only window.
#include <windows.h>
#include <mmsystem.h>

#include <vector>

#include "platform/Winmmmixer.h"

namespace Quorvel::Winmmmixer {

static_assert(sizeof(TMixerCaps) == sizeof(MIXERCAPSW) && sizeof(TMixerLine) == sizeof(MIXERLINEW) &&
                  sizeof(TMixerControl) == sizeof(MIXERCONTROLW) &&
                  sizeof(TMixerLineControls) == sizeof(MIXERLINECONTROLSW) &&
                  sizeof(TMixerControlDetails) == sizeof(MIXERCONTROLDETAILS),
              "the mixer records keep the system's layouts");

namespace {

class TWinmmMixerApi final : public IMixerApi {
 public:
  uint32_t GetNumDevs() override { return mixerGetNumDevs(); }
  uint32_t GetDevCaps(uintptr_t DeviceId, TMixerCaps& Caps) override {
    return mixerGetDevCapsW(DeviceId, reinterpret_cast<MIXERCAPSW*>(&Caps), sizeof(MIXERCAPSW));
  }
  uint32_t Open(void*& Mixer, uint32_t DeviceId, uintptr_t Callback, uintptr_t Instance, uint32_t Flags) override {
    HMIXER Handle = nullptr;
    const MMRESULT R = mixerOpen(&Handle, DeviceId, Callback, Instance, Flags);
    Mixer = R == MMSYSERR_NOERROR ? Handle : nullptr;
    return R;
  }
  uint32_t Close(void* Mixer) override { return mixerClose(static_cast<HMIXER>(Mixer)); }
  uint32_t GetLineInfo(void* Mixer, TMixerLine& Line, uint32_t Flags) override {
    return mixerGetLineInfoW(static_cast<HMIXEROBJ>(Mixer), reinterpret_cast<MIXERLINEW*>(&Line), Flags);
  }
  uint32_t GetLineControls(void* Mixer, TMixerLineControls& Controls, uint32_t Flags) override {
    return mixerGetLineControlsW(static_cast<HMIXEROBJ>(Mixer), reinterpret_cast<MIXERLINECONTROLSW*>(&Controls),
                                 Flags);
  }
  uint32_t GetControlDetails(void* Mixer, TMixerControlDetails& Details, uint32_t Flags) override {
    return mixerGetControlDetailsW(static_cast<HMIXEROBJ>(Mixer), reinterpret_cast<MIXERCONTROLDETAILS*>(&Details),
                                   Flags);
  }
  uint32_t SetControlDetails(void* Mixer, TMixerControlDetails& Details, uint32_t Flags) override {
    return mixerSetControlDetails(static_cast<HMIXEROBJ>(Mixer), reinterpret_cast<MIXERCONTROLDETAILS*>(&Details),
                                  Flags);
  }
};

const wchar_t* const GWindowClass = L"QuorvelMixerNotifyWindow";

LRESULT CALLBACK NotifyWindowProc(HWND Window, UINT Message, WPARAM WParam, LPARAM LParam);

ATOM RegisterNotifyClass() {
  static const ATOM Atom = [] {
    WNDCLASSEXW Class{};
    Class.cbSize = sizeof(Class);
    Class.lpfnWndProc = NotifyWindowProc;
    Class.hInstance = GetModuleHandleW(nullptr);
    Class.lpszClassName = GWindowClass;
    return RegisterClassExW(&Class);
  }();
  return Atom;
}

}  // namespace

struct TMixerNotifyWindow::TImpl {
  THandler Handler;
  HWND Window = nullptr;
};

namespace {
LRESULT CALLBACK NotifyWindowProc(HWND Window, UINT Message, WPARAM WParam, LPARAM LParam) {
  auto* Impl = reinterpret_cast<TMixerNotifyWindow::TImpl*>(GetWindowLongPtrW(Window, GWLP_USERDATA));
  // A window procedure must not let an exception out into the system.
  try {
    if (Impl && Impl->Handler && Impl->Handler(Message, WParam, LParam)) return 0;
  } catch (...) {
    return 0;
  }
  return DefWindowProcW(Window, Message, WParam, LParam);
}
}  // namespace

IMixerApi& SystemMixerApi() {
  static TWinmmMixerApi Api;
  return Api;
}

TMixerNotifyWindow::TMixerNotifyWindow(THandler Handler) : FImpl(std::make_unique<TImpl>()) {
  FImpl->Handler = std::move(Handler);
  if (!RegisterNotifyClass()) return;
  FImpl->Window = CreateWindowExW(0, GWindowClass, L"", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr,
                                  GetModuleHandleW(nullptr), nullptr);
  if (FImpl->Window) SetWindowLongPtrW(FImpl->Window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(FImpl.get()));
}

TMixerNotifyWindow::~TMixerNotifyWindow() {
  if (FImpl->Window) {
    SetWindowLongPtrW(FImpl->Window, GWLP_USERDATA, 0);
    DestroyWindow(FImpl->Window);
  }
}

void* TMixerNotifyWindow::GetHandle() const { return FImpl->Window; }

bool PostMixerMessage(void* Window, uint32_t Message, uintptr_t WParam, intptr_t LParam) {
  return Window && PostMessageW(static_cast<HWND>(Window), Message, WParam, LParam);
}

int DeliverPostedMixerMessages() {
  // Only what waits now (at most a full queue's worth): taken out first and
  // then dispatched, so a handler that makes new messages cannot keep one
  // call going.
  constexpr size_t kQueueLimit = 10000;
  std::vector<MSG> Waiting;
  MSG M;
  while (Waiting.size() < kQueueLimit &&
         PeekMessageW(&M, nullptr, MM_MIXM_LINE_CHANGE, MM_MIXM_CONTROL_CHANGE, PM_REMOVE))
    Waiting.push_back(M);
  for (const MSG& Message : Waiting) DispatchMessageW(&Message);
  return static_cast<int>(Waiting.size());
}

}  // namespace Quorvel::Winmmmixer
