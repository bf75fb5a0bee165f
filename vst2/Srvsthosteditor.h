// TSRVSTEditor: the host's Editor sub-object. It shows a plug-in's editor in
// a native window given by the application (a handle, or a window object of
// the platform layer), in a child window placed at X, Y inside such a window,
// or in a form of its own; it idles the editor with a main-thread timer while
// it is shown, and keeps the windows the plug-in asks the host to open.
//
// Every operation is [main thread]. The idle timer ticks through the
// main-thread queue, so the application drains it: its message loop on
// Windows, Threading::ProcessMainThreadQueue elsewhere (each tick also
// handles the events of the host's own windows there).
//
// Showing:
//  1. Nothing when already shown; the host must open, the plug-in must have
//     effFlagsHasEditor, and windows must be available (else an error report).
//  2. In a window of the application: effEditOpen with that window. With X
//     and Y, a child window at X, Y, sized from the editor rectangle, holds
//     the editor instead.
//  3. In the own form: the form is made once (caption: the plug-in's name,
//     else its product string), effEditOpen into it, then sized from the
//     editor rectangle and shown.
//  4. The idle timer starts.
// Hiding closes the editor (effEditClose) and releases the own form or the
// child window; closing the own form does the same.
//
// The window logic serves any host through TSREditorTarget: TSRVSTHost's
// plug-in editor (the steps above) and TSRVST3Host's editor view alike.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "frame/Wbtimer.h"
#include "platform/Window.h"
#include "vst2/Srvsteffectintf.h"

namespace Quorvel {

class TSRVSTHost;

// What the editor object asks of a host, all [main thread].
class TSREditorTarget {
 public:
  virtual ~TSREditorTarget() = default;
  // The plug-in has an editor; opens the host when needed.
  virtual bool EditorAvailable() = 0;
  // The editor's size as the plug-in answers it; false when it does not.
  virtual bool EditorSize(int32_t& Width, int32_t& Height) = 0;
  // Opens the editor into a native window; false when the plug-in refuses.
  virtual bool EditorOpen(Platform::TNativeWindow Parent) = 0;
  virtual void EditorClose() = 0;
  // Called by the idle timer while the editor is shown.
  virtual void EditorIdle() = 0;
  virtual void EditorActivate(bool Active) = 0;
  virtual void EditorMoveTo(int32_t X, int32_t Y) = 0;
  // The own form's caption.
  virtual std::string EditorCaption() = 0;
  virtual void EditorError(const std::string& Text) = 0;
  virtual void EditorWarning(const std::string& Text) = 0;
  // Show found no editor (EditorAvailable false): a host reports it or not.
  virtual void EditorUnavailable() {}
};

class TSRVSTEditor {
 public:
  explicit TSRVSTEditor(TSRVSTHost& Host);
  // The editor of another host; Target outlives the editor object.
  explicit TSRVSTEditor(TSREditorTarget& Target);
  ~TSRVSTEditor();
  TSRVSTEditor(const TSRVSTEditor&) = delete;
  TSRVSTEditor& operator=(const TSRVSTEditor&) = delete;

  // The plug-in has an editor (effFlagsHasEditor); opens the host when needed.
  bool GetAvailable();
  // The editor rectangle as the plug-in answers it (another host's editor:
  // its size at 0, 0); false when it does not.
  bool GetRectangle(TERect& Rect);

  void Show(Platform::TNativeWindow ParentHandle);
  void Show(Platform::TNativeWindow ParentHandle, int32_t X, int32_t Y);
  void Show(Platform::TPlatformWindow& ParentControl);
  void Show(Platform::TPlatformWindow& ParentControl, int32_t X, int32_t Y);
  void Show();  // in a form of its own
  // In the own form, returning once the form is closed (or Hide is called);
  // runs the window events and the main-thread queue meanwhile.
  void ShowModal();
  void Hide();
  // effSetViewPosition, while shown.
  void MoveTo(int32_t X, int32_t Y);
  // effEditTop / effEditSleep, while shown.
  void Activate();
  void Deactivate();

  bool GetShown() const { return FShown; }
  // The own form while it exists, else nullptr.
  Platform::TPlatformWindow* GetForm() const { return FForm.get(); }
  // The window the editor was opened into (nullptr when not shown).
  Platform::TNativeWindow GetEditorParent() const { return FParent; }
  // One idle step now, as the timer takes it while shown: the window
  // system's events, then the host's idle call.
  void Idle();
  // Milliseconds between idle calls while shown (default 50).
  void SetIdleInterval(uint32_t Milliseconds);
  uint32_t GetIdleInterval() const;

  // ---- served for the host callback ----
  // [any thread] Whether the own form exists (resize requests size it).
  bool GetHasForm() const { return FHasForm.load(); }
  // Sets the own form's client size (the host has checked the vendor).
  void SizeForm(int32_t Width, int32_t Height);
  // A window the plug-in asked for with a TVstWindow record: made, placed,
  // shown and its handle written into the record's winHandle. The record
  // identifies it until CloseWindow.
  void OpenWindow(TVstWindow* Record);
  void CloseWindow(TVstWindow* Record);
  // The plug-in's windows that are open, in the order they were opened.
  std::vector<Platform::TPlatformWindow*> GetPlugInWindows() const;
  // Closes every window the plug-in left open (the host closes).
  void CloseAllWindows();

 private:
  bool CanShow();
  void ShowIn(Platform::TNativeWindow Parent, bool Placed, int32_t X, int32_t Y);
  void Shown();
  void FormClose();  // OnFormClose: closes the editor, releases the form
  void Tick();

  TSRVSTHost* FVST2Host = nullptr;
  std::unique_ptr<TSREditorTarget> FOwnTarget;  // a VST 2 host's
  TSREditorTarget* FTarget;
  bool FShown = false;
  Platform::TNativeWindow FParent = nullptr;
  std::unique_ptr<Platform::TPlatformWindow> FForm;   // the own form
  std::atomic<bool> FHasForm{false};                  // FForm is set, for other threads
  std::unique_ptr<Platform::TPlatformWindow> FPlaced; // the child window of Show(..., X, Y)
  struct TPlugInWindow {
    TVstWindow* Record;
    std::unique_ptr<Platform::TPlatformWindow> Window;
  };
  std::vector<TPlugInWindow> FPlugInWindows;
  TWBTimer FTimer;
};

}  // namespace Quorvel
