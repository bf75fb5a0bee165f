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

TSRVSTEditor::TSRVSTEditor(TSRVSTHost& Host) : FHost(Host) {
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

bool TSRVSTEditor::GetAvailable() {
  return FHost.Open() && FHost.GetEffectFlags().Contains(TEffFlag::effFlagsHasEditor);
}

bool TSRVSTEditor::GetRectangle(TERect& Rect) { return FHost.GetEditorRectangle(Rect); }

bool TSRVSTEditor::EditorSize(int32_t& Width, int32_t& Height) {
  TERect R{};
  if (!GetRectangle(R) || R.Right <= R.Left || R.Bottom <= R.Top) return false;
  Width = R.Right - R.Left;
  Height = R.Bottom - R.Top;
  return true;
}

bool TSRVSTEditor::CanShow() {
  if (FShown || !GetAvailable()) return false;
  std::string Why;
  if (!Platform::WindowSystemAvailable(Why)) {
    FHost.Error("Can't show the editor: " + Why, -1);
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
    EditorSize(Width, Height);
    std::string Why;
    FPlaced = Platform::TPlatformWindow::CreateChild(Parent, X, Y, Width, Height, Why);
    if (!FPlaced) {
      FHost.Error("Can't show the editor: " + Why, -1);
      return;
    }
    Target = FPlaced->GetHandle();
  }
  FHost.EditOpen(Target);
  int32_t Width = 0, Height = 0;
  if (FPlaced && EditorSize(Width, Height)) FPlaced->SetClientSize(Width, Height);
  FParent = Target;
  Shown();
}

void TSRVSTEditor::Show() {
  if (!CanShow()) return;
  if (!FForm) {
    std::string Caption = FHost.GetEffectName();
    if (Caption.empty()) Caption = FHost.GetProductString();
    std::string Why;
    FForm = Platform::TPlatformWindow::CreateTopLevel(Caption, kDefaultFormWidth, kDefaultFormHeight,
                                                      Platform::TWindowBorder::Sizeable, Why);
    if (!FForm) {
      FHost.Error("Can't show the editor: " + Why, -1);
      return;
    }
    FHasForm = true;
    FForm->OnCloseRequest = [this] { FormClose(); };
    FForm->OnActivate = [this](bool Active) {
      if (!FShown) return;
      if (Active)
        FHost.EditActivate();
      else
        FHost.EditDeactivate();
    };
  }
  FHost.EditOpen(FForm->GetHandle());
  // Most editors know their size only once they are open.
  int32_t Width = 0, Height = 0;
  if (EditorSize(Width, Height)) FForm->SetClientSize(Width, Height);
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
  FHost.EditClose();
  FShown = false;
  FParent = nullptr;
  FPlaced.reset();
  FHasForm = false;
  FForm.reset();
}

void TSRVSTEditor::FormClose() { Hide(); }

void TSRVSTEditor::MoveTo(int32_t X, int32_t Y) {
  if (FShown) FHost.VstDispatch(effSetViewPosition, X, Y, nullptr, 0.0f);
}

void TSRVSTEditor::Activate() {
  if (FShown) FHost.EditActivate();
}

void TSRVSTEditor::Deactivate() {
  if (FShown) FHost.EditDeactivate();
}

void TSRVSTEditor::Tick() {
  Platform::DispatchWindowEvents();
  FHost.EditIdle();
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
    FHost.Warning("Can't open the plug-in's window: " + Why, -1);
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
