// The VST 3 host's editor view shown through the editor object: the host as
// the editor's target, and the plug frame the view talks back to.
#include <algorithm>
#include <chrono>
#include <vector>

#ifndef _WIN32
#include <poll.h>
#endif

#include "vst2/Srvsthosteditor.h"
#include "vst3/Srvst3host.h"

namespace Quorvel {

using namespace Vst3hostintf;
using namespace Vst3hostobjects;

namespace {

#ifdef _WIN32
constexpr const char* kPlatformType = kPlatformTypeHWND;
#else
constexpr const char* kPlatformType = kPlatformTypeX11EmbedWindowID;
#endif

constexpr TResult kOk = ModuleResult(Platform::kVst3ResultOk);
constexpr int32_t kMaxViewSide = 32767;

// A rectangle's sides when both lie in 1..kMaxViewSide (window sizes are
// 16-bit on the window systems); computed wide, whatever the plug-in filled in.
bool ViewSides(const TViewRect& R, int32_t& Width, int32_t& Height) {
  const int64_t W = int64_t(R.right) - R.left, H = int64_t(R.bottom) - R.top;
  if (W <= 0 || H <= 0 || W > kMaxViewSide || H > kMaxViewSide) return false;
  Width = static_cast<int32_t>(W);
  Height = static_cast<int32_t>(H);
  return true;
}

// The frame the host gives the view: resize requests, and the run loop.
// The view may keep it after the host lets go: detached, it answers and
// does nothing.
class TPlugFrame final : public TVST3Object<IPlugFrame, IRunLoop> {
 public:
  explicit TPlugFrame(TSRVSTEditor* Editor) : FEditor(Editor) {}
  void Detach() {
    FEditor = nullptr;
    for (auto& H : FHandlers) H.Handler->release();
    for (auto& T : FTimers) T.Handler->release();
    FHandlers.clear();
    FTimers.clear();
  }

  // IPlugFrame: the own form takes the new size, then the view is told.
  TResult resizeView(IPlugView* View, TViewRect* NewSize) override {
    int32_t Width = 0, Height = 0;
    if (!View || !NewSize || !ViewSides(*NewSize, Width, Height)) return ModuleResult(Platform::kVst3InvalidArgument);
    if (!FEditor) return ModuleResult(Platform::kVst3ResultFalse);
    FEditor->SizeForm(Width, Height);
    TViewRect Size = *NewSize;
    View->onSize(&Size);
    return kOk;
  }

  // IRunLoop
  TResult registerEventHandler(IEventHandler* Handler, int FileDescriptor) override {
    if (!Handler || FileDescriptor < 0) return ModuleResult(Platform::kVst3InvalidArgument);
    Handler->addRef();
    FHandlers.push_back({Handler, FileDescriptor});
    return kOk;
  }
  TResult unregisterEventHandler(IEventHandler* Handler) override {
    return Remove(FHandlers, Handler) ? kOk : ModuleResult(Platform::kVst3InvalidArgument);
  }
  TResult registerTimer(ITimerHandler* Handler, uint64_t Milliseconds) override {
    if (!Handler) return ModuleResult(Platform::kVst3InvalidArgument);
    Handler->addRef();
    const auto Interval = std::chrono::milliseconds(std::min<uint64_t>(Milliseconds, 86400000));
    FTimers.push_back({Handler, Interval, std::chrono::steady_clock::now() + Interval});
    return kOk;
  }
  TResult unregisterTimer(ITimerHandler* Handler) override {
    return Remove(FTimers, Handler) ? kOk : ModuleResult(Platform::kVst3InvalidArgument);
  }

  // [editor idle] Handlers of readable descriptors, then timers that are due.
  // Copies are walked: a handler may register or unregister meanwhile.
  void Serve() {
#ifndef _WIN32
    std::vector<THandler> Handlers = FHandlers;
    for (const THandler& H : Handlers) {
      pollfd P{H.Descriptor, POLLIN, 0};
      if (poll(&P, 1, 0) > 0 && (P.revents & POLLIN) && Contains(FHandlers, H.Handler))
        H.Handler->onFDIsSet(H.Descriptor);
    }
#endif
    const auto Now = std::chrono::steady_clock::now();
    std::vector<ITimerHandler*> Due;
    for (TTimer& T : FTimers)
      if (T.Next <= Now) {
        T.Next = Now + T.Interval;
        Due.push_back(T.Handler);
      }
    for (ITimerHandler* T : Due)
      if (Contains(FTimers, T)) T->onTimer();
  }

 private:
  ~TPlugFrame() override { Detach(); }
  struct THandler {
    IEventHandler* Handler;
    int Descriptor;
  };
  struct TTimer {
    ITimerHandler* Handler;
    std::chrono::milliseconds Interval;
    std::chrono::steady_clock::time_point Next;
  };
  template <typename TList, typename THandlerType>
  static bool Contains(const TList& List, THandlerType* Handler) {
    return std::any_of(List.begin(), List.end(), [Handler](const auto& E) { return E.Handler == Handler; });
  }
  template <typename TList, typename THandlerType>
  static bool Remove(TList& List, THandlerType* Handler) {
    auto It = std::find_if(List.begin(), List.end(), [Handler](const auto& E) { return E.Handler == Handler; });
    if (It == List.end()) return false;
    THandlerType* Gone = It->Handler;
    List.erase(It);
    Gone->release();
    return true;
  }

  TSRVSTEditor* FEditor;
  std::vector<THandler> FHandlers;
  std::vector<TTimer> FTimers;
};

}  // namespace

// The host as the editor object's target.
class TVST3EditorTarget final : public TSREditorTarget {
 public:
  explicit TVST3EditorTarget(TSRVST3Host& Host) : FHost(Host) {}
  ~TVST3EditorTarget() override { EditorClose(); }
  void SetEditor(TSRVSTEditor* Editor) { FEditor = Editor; }
  bool GetAttached() const { return static_cast<bool>(FAttached); }

  bool EditorAvailable() override { return FHost.Open() && FHost.GetView(); }
  bool EditorSize(int32_t& Width, int32_t& Height) override {
    IPlugView* View = FHost.GetView();
    TViewRect R{};
    return View && View->getSize(&R) == kOk && ViewSides(R, Width, Height);
  }
  bool EditorOpen(Platform::TNativeWindow Parent) override {
    IPlugView* View = FHost.GetView();
    if (!View || FAttached) return false;
    if (View->isPlatformTypeSupported(kPlatformType) != kOk) {
      FHost.Error(std::string("Can't show the editor: the view does not support the platform type ") + kPlatformType +
                      ".",
                  -1);
      return false;
    }
    FFrame = TVST3Ref<TPlugFrame>::Adopt(new TPlugFrame(FEditor));
    View->setFrame(FFrame.Get());
    if (!FHost.Check(View->attached(Parent, kPlatformType), "Can't attach the VST3 editor view.")) {
      View->setFrame(nullptr);
      FFrame->Detach();
      FFrame.Clear();
      return false;
    }
    FAttached = TVST3Ref<IPlugView>::Share(View);
    return true;
  }
  void EditorClose() override {
    if (!FAttached) return;
    TVST3Ref<IPlugView> View = std::move(FAttached);
    View->removed();
    View->setFrame(nullptr);
    FFrame->Detach();
    FFrame.Clear();
  }
  void EditorIdle() override {
    if (FFrame) FFrame->Serve();
  }
  void EditorActivate(bool Active) override {
    if (FAttached) FAttached->onFocus(Active ? 1 : 0);
  }
  // A view has no place of its own in its window.
  void EditorMoveTo(int32_t, int32_t) override {}
  std::string EditorCaption() override {
    const std::string Name = FHost.GetProcessor().GetName();
    return Name.empty() ? FHost.GetFactoryInfo().Vendor : Name;
  }
  void EditorError(const std::string& Text) override { FHost.Error(Text, -1); }
  void EditorWarning(const std::string& Text) override { FHost.Warning(Text, -1); }
  void EditorUnavailable() override {
    if (FHost.GetIntOpened() && !FHost.GetView()) FHost.Error("Can't show the editor: the plug-in has no editor view.", -1);
  }

 private:
  TSRVST3Host& FHost;
  TSRVSTEditor* FEditor = nullptr;
  TVST3Ref<TPlugFrame> FFrame;
  TVST3Ref<IPlugView> FAttached;
};

TSRVSTEditor& TSRVST3Host::GetEditor() {
  if (!FEditor) {
    auto Target = std::make_shared<TVST3EditorTarget>(*this);
    FEditor = std::make_shared<TSRVSTEditor>(*Target);
    Target->SetEditor(FEditor.get());
    FEditorTarget = std::move(Target);
  }
  return *FEditor;
}

void TSRVST3Host::HideEditor() {
  if (FEditor) FEditor->Hide();
}

bool TSRVST3Host::GetViewAttached() const {
  return FEditorTarget && static_cast<const TVST3EditorTarget&>(*FEditorTarget).GetAttached();
}

}  // namespace Quorvel
