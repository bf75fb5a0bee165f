// The host's editor operations, the editor-serving answers of the host
// callback, and the Editor sub-object.
#include "vst2/Srvsthosteditor.h"

#include <algorithm>
#include <cstring>

#include "frame/Threading.h"
#include "vst2/Srvsthost.h"

namespace Quorvel {

namespace {
constexpr int32_t kDefaultFormWidth = 320, kDefaultFormHeight = 240;
}

// ---- host operations ----------------------------------------------------------------

bool TSRVSTHost::EditOpen(void* ParentHandle) {
  if (!GetOpened()) return false;
  const bool Opened = VstDispatch(effEditOpen, 0, 0, ParentHandle, 0.0f) != 0;
  FEditorOpen = Opened;
  return Opened;
}

void TSRVSTHost::EditClose() {
  if (!GetOpened()) return;
  VstDispatch(effEditClose, 0, 0, nullptr, 0.0f);
  FEditorOpen = false;
}

void TSRVSTHost::EditIdle() {
  if (!GetOpened() || !FEditorOpen.load()) return;
  // A plug-in that asks for idle (audioMasterIdle) from inside its idle call would never end.
  if (FEditIdling.exchange(true)) return;
  VstDispatch(effEditIdle, 0, 0, nullptr, 0.0f);
  FEditIdling = false;
}

void TSRVSTHost::EditActivate() { VstDispatch(effEditTop, 0, 0, nullptr, 0.0f); }
void TSRVSTHost::EditDeactivate() { VstDispatch(effEditSleep, 0, 0, nullptr, 0.0f); }

bool TSRVSTHost::GetEditorRectangle(TERect& Rect) {
  if (!GetOpened()) return false;
  // Some plug-ins crash here when there is no window system to measure with.
  std::string Why;
  if (!Platform::WindowSystemAvailable(Why)) return false;
  PERect Answer = nullptr;
  if (VstDispatch(effEditGetRect, 0, 0, &Answer, 0.0f) == 0 || !Answer) return false;
  Rect = *Answer;
  return true;
}

TSRVSTEditor& TSRVSTHost::GetEditor() {
  if (!FEditor) FEditor = std::make_unique<TSRVSTEditor>(*this);
  return *FEditor;
}

void TSRVSTHost::DoMasterIdle() {
  // Editors idle on the main thread; a request from elsewhere waits there.
  Threading::MainThreadExecute(this, false, [this] { EditIdle(); }, true);
}

void TSRVSTHost::DoOpenWindow(void* Ptr) {
  if (!Ptr) return;
  auto* Record = static_cast<TVstWindow*>(Ptr);
  // Waits: the record is the plug-in's, valid only during its call, and the
  // plug-in reads the window's handle from it when the call returns.
  Threading::MainThreadExecute(this, true, [this, Record] { GetEditor().OpenWindow(Record); });
}

void TSRVSTHost::DoCloseWindow(void* Ptr) {
  if (!Ptr || !FEditor) return;
  auto* Record = static_cast<TVstWindow*>(Ptr);
  Threading::MainThreadExecute(this, true, [this, Record] { FEditor->CloseWindow(Record); });
}

// ---- TSRVSTEditor -----------------------------------------------------------------------

namespace {

// A VST 2 host as the editor object's target.
class TVST2EditorTarget final : public TSREditorTarget {
 public:
  explicit TVST2EditorTarget(TSRVSTHost& Host) : FHost(Host) {}
  bool EditorAvailable() override {
    return FHost.Open() && FHost.GetEffectFlags().Contains(TEffFlag::effFlagsHasEditor);
  }
  bool EditorSize(int32_t& Width, int32_t& Height) override {
    TERect R{};
    if (!FHost.GetEditorRectangle(R) || R.Right <= R.Left || R.Bottom <= R.Top) return false;
    Width = R.Right - R.Left;
    Height = R.Bottom - R.Top;
    return true;
  }
  bool EditorOpen(Platform::TNativeWindow Parent) override { return FHost.EditOpen(Parent); }
  void EditorClose() override { FHost.EditClose(); }
  void EditorIdle() override { FHost.EditIdle(); }
  void EditorActivate(bool Active) override {
    if (Active)
      FHost.EditActivate();
    else
      FHost.EditDeactivate();
  }
  void EditorMoveTo(int32_t X, int32_t Y) override { FHost.VstDispatch(effSetViewPosition, X, Y, nullptr, 0.0f); }
  std::string EditorCaption() override {
    std::string Caption = FHost.GetEffectName();
    return Caption.empty() ? FHost.GetProductString() : Caption;
  }
  void EditorError(const std::string& Text) override { FHost.Error(Text, -1); }
  void EditorWarning(const std::string& Text) override { FHost.Warning(Text, -1); }

 private:
  TSRVSTHost& FHost;
};

}  // namespace

TSRVSTEditor::TSRVSTEditor(TSRVSTHost& Host)
    : FVST2Host(&Host), FOwnTarget(std::make_unique<TVST2EditorTarget>(Host)), FTarget(FOwnTarget.get()) {
  FTimer.SetInterval(50);
  FTimer.OnTimer = [this](TWBTimer&) { Tick(); };
}

TSRVSTEditor::TSRVSTEditor(TSREditorTarget& Target) : FTarget(&Target) {
  FTimer.SetInterval(50);
  FTimer.OnTimer = [this](TWBTimer&) { Tick(); };
}

TSRVSTEditor::~TSRVSTEditor() {
  FTimer.SetEnabled(false);
  Hide();
  CloseAllWindows();
}

void TSRVSTEditor::SetIdleInterval(uint32_t Milliseconds) { FTimer.SetInterval(Milliseconds); }
uint32_t TSRVSTEditor::GetIdleInterval() const { return FTimer.GetInterval(); }

bool TSRVSTEditor::GetAvailable() { return FTarget->EditorAvailable(); }

bool TSRVSTEditor::GetRectangle(TERect& Rect) {
  if (FVST2Host) return FVST2Host->GetEditorRectangle(Rect);
  int32_t Width = 0, Height = 0;
  if (!FTarget->EditorSize(Width, Height)) return false;
  Rect = TERect{0, 0, static_cast<int16_t>(Height), static_cast<int16_t>(Width)};
  return true;
}

bool TSRVSTEditor::CanShow() {
  if (FShown) return false;
  if (!GetAvailable()) {
    FTarget->EditorUnavailable();
    return false;
  }
  std::string Why;
  if (!Platform::WindowSystemAvailable(Why)) {
    FTarget->EditorError("Can't show the editor: " + Why);
    return false;
  }
  return true;
}

void TSRVSTEditor::Show(Platform::TNativeWindow ParentHandle) {
  if (CanShow()) ShowIn(ParentHandle, false, 0, 0);
}

void TSRVSTEditor::Show(Platform::TNativeWindow ParentHandle, int32_t X, int32_t Y) {
  if (CanShow()) ShowIn(ParentHandle, true, X, Y);
}

void TSRVSTEditor::Show(Platform::TPlatformWindow& ParentControl) { Show(ParentControl.GetHandle()); }

void TSRVSTEditor::Show(Platform::TPlatformWindow& ParentControl, int32_t X, int32_t Y) {
  Show(ParentControl.GetHandle(), X, Y);
}

void TSRVSTEditor::ShowIn(Platform::TNativeWindow Parent, bool Placed, int32_t X, int32_t Y) {
  Platform::TNativeWindow Target = Parent;
  if (Placed) {
    // A child window at X, Y holds the editor, sized from its rectangle.
    int32_t Width = kDefaultFormWidth, Height = kDefaultFormHeight;
    FTarget->EditorSize(Width, Height);
    std::string Why;
    FPlaced = Platform::TPlatformWindow::CreateChild(Parent, X, Y, Width, Height, Why);
    if (!FPlaced) {
      FTarget->EditorError("Can't show the editor: " + Why);
      return;
    }
    Target = FPlaced->GetHandle();
  }
  FTarget->EditorOpen(Target);
  int32_t Width = 0, Height = 0;
  if (FPlaced && FTarget->EditorSize(Width, Height)) FPlaced->SetClientSize(Width, Height);
  FParent = Target;
  Shown();
}

void TSRVSTEditor::Show() {
  if (!CanShow()) return;
  if (!FForm) {
    const std::string Caption = FTarget->EditorCaption();
    std::string Why;
    FForm = Platform::TPlatformWindow::CreateTopLevel(Caption, kDefaultFormWidth, kDefaultFormHeight,
                                                      Platform::TWindowBorder::Sizeable, Why);
    if (!FForm) {
      FTarget->EditorError("Can't show the editor: " + Why);
      return;
    }
    FHasForm = true;
    FForm->OnCloseRequest = [this] { FormClose(); };
    FForm->OnActivate = [this](bool Active) {
      if (FShown) FTarget->EditorActivate(Active);
    };
  }
  FTarget->EditorOpen(FForm->GetHandle());
  // Most editors know their size only once they are open.
  int32_t Width = 0, Height = 0;
  if (FTarget->EditorSize(Width, Height)) FForm->SetClientSize(Width, Height);
  FForm->SetVisible(true);
  FParent = FForm->GetHandle();
  Shown();
}

void TSRVSTEditor::ShowModal() {
  Show();
  while (FShown && FForm) {
    Platform::RunWindowEvents(20);
    Threading::ProcessMainThreadQueue();
  }
}

void TSRVSTEditor::Shown() {
  FShown = true;
  FTimer.SetEnabled(true);
}

void TSRVSTEditor::Hide() {
  if (!FShown) return;
  FTimer.SetEnabled(false);
  FTarget->EditorClose();
  FShown = false;
  FParent = nullptr;
  FPlaced.reset();
  FHasForm = false;
  FForm.reset();
}

void TSRVSTEditor::FormClose() { Hide(); }

void TSRVSTEditor::MoveTo(int32_t X, int32_t Y) {
  if (FShown) FTarget->EditorMoveTo(X, Y);
}

void TSRVSTEditor::Activate() {
  if (FShown) FTarget->EditorActivate(true);
}

void TSRVSTEditor::Deactivate() {
  if (FShown) FTarget->EditorActivate(false);
}

void TSRVSTEditor::Idle() {
  if (FShown) Tick();
}

void TSRVSTEditor::Tick() {
  Platform::DispatchWindowEvents();
  FTarget->EditorIdle();
}

void TSRVSTEditor::SizeForm(int32_t Width, int32_t Height) {
  if (FForm && Width > 0 && Height > 0) FForm->SetClientSize(Width, Height);
}

void TSRVSTEditor::OpenWindow(TVstWindow* Record) {
  if (!Record) return;
  const std::string Title(Record->Title, strnlen(Record->Title, sizeof Record->Title));
  const Platform::TWindowBorder Border = Record->Style == -1  ? Platform::TWindowBorder::SizeableToolWindow
                                         : Record->Style == 0 ? Platform::TWindowBorder::Borderless
                                                              : Platform::TWindowBorder::Sizeable;
  std::string Why;
  auto Window = Platform::TPlatformWindow::CreateTopLevel(Title, Record->Width, Record->Height, Border, Why);
  if (!Window) {
    FTarget->EditorWarning("Can't open the plug-in's window: " + Why);
    return;
  }
  Window->SetPosition(Record->xPos, Record->yPos);
  Window->OnCloseRequest = [this, Record] { CloseWindow(Record); };
  Window->SetVisible(true);
  Record->winHandle = Window->GetHandle();
  FPlugInWindows.push_back({Record, std::move(Window)});
}

void TSRVSTEditor::CloseWindow(TVstWindow* Record) {
  auto It = std::find_if(FPlugInWindows.begin(), FPlugInWindows.end(),
                         [Record](const TPlugInWindow& W) { return W.Record == Record; });
  if (It == FPlugInWindows.end()) return;
  // Taken out of the list first: the window may be closing from its own handler.
  auto Window = std::move(It->Window);
  FPlugInWindows.erase(It);
  Window.reset();
}

std::vector<Platform::TPlatformWindow*> TSRVSTEditor::GetPlugInWindows() const {
  std::vector<Platform::TPlatformWindow*> Out;
  for (const auto& W : FPlugInWindows) Out.push_back(W.Window.get());
  return Out;
}

void TSRVSTEditor::CloseAllWindows() { FPlugInWindows.clear(); }

}  // namespace Quorvel
