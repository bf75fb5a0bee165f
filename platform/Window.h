// Native windows for plug-in editors: a top-level window or a child of a
// native window, its caption, place, size and border, its pixels, and the
// window system's events. Windows: Win32 windows (the application's message
// loop dispatches their messages). Elsewhere: X11 windows through Xlib on the
// display named by DISPLAY; the host installs its own X error handler, so an
// X error made by a plug-in in the process is counted instead of ending it.
//
// A native handle is an HWND on Windows and an X window id (as a pointer-sized
// value) elsewhere: what a VST 2 editor takes in effEditOpen.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace Quorvel::Platform {

using TNativeWindow = void*;

// Top-level border styles: a normal sizeable frame, a sizeable tool-window
// frame (small caption, not on the task bar), no frame at all.
enum class TWindowBorder { Sizeable, SizeableToolWindow, Borderless };

// Client area: for a top-level window its origin on the screen, for a child
// window its origin in the parent's client area; then its size.
struct TWindowBounds {
  int32_t X = 0, Y = 0, Width = 0, Height = 0;
};

// Pixels as 0x00RRGGBB, row by row from the top left.
struct TPixelImage {
  int32_t Width = 0, Height = 0;
  std::vector<uint32_t> Pixels;
  uint32_t At(int32_t X, int32_t Y) const { return Pixels[static_cast<size_t>(Y) * Width + X]; }
};

// [main thread] Whether windows can be made here; Why says why not (no
// DISPLAY, a display that does not answer). Opens the host's connection to
// the window system on first use.
bool WindowSystemAvailable(std::string& Why);
// [main thread] Handles the events of the host's own windows that have
// arrived, without waiting. On Windows nothing: the application's message
// loop dispatches them.
void DispatchWindowEvents();
// [main thread] Waits up to TimeoutMs for window-system events or messages
// and handles them (on Windows every message of the thread, main-thread
// queue wake-ups included). For loops of the host's own (a modal editor,
// the command line).
void RunWindowEvents(int32_t TimeoutMs);
// [main thread] Returns once the window system has carried out every request
// made so far (X11: XSync; Windows: GdiFlush).
void SyncWindowSystem();
// [any thread] X errors the host's handler has caught since the start (0 on
// Windows), and the text of the last one.
uint64_t GetWindowSystemErrorCount();
std::string GetLastWindowSystemError();
// [main thread] The pixels of any visible native window's client area, the
// child windows inside it included. False when the window cannot be read.
bool CaptureNativeWindow(TNativeWindow Window, TPixelImage& Image);
// [main thread] The client area of any native window (see TWindowBounds).
bool GetNativeWindowBounds(TNativeWindow Window, TWindowBounds& Bounds);

class TPlatformWindow {
 public:
  // [main thread] A hidden top-level window with the given client size.
  // nullptr with Error's text when the window system is not there.
  static std::unique_ptr<TPlatformWindow> CreateTopLevel(const std::string& Caption, int32_t Width, int32_t Height,
                                                         TWindowBorder Border, std::string& Error);
  // [main thread] A visible child window of Parent at X, Y in its client area.
  static std::unique_ptr<TPlatformWindow> CreateChild(TNativeWindow Parent, int32_t X, int32_t Y, int32_t Width,
                                                      int32_t Height, std::string& Error);
  // [main thread] Destroys the native window (child windows of other code
  // inside it go with it).
  ~TPlatformWindow();
  TPlatformWindow(const TPlatformWindow&) = delete;
  TPlatformWindow& operator=(const TPlatformWindow&) = delete;

  // [main thread] All of these read back from the window system.
  TNativeWindow GetHandle() const;
  void SetCaption(const std::string& Value);
  std::string GetCaption() const;
  void SetPosition(int32_t X, int32_t Y);
  void SetClientSize(int32_t Width, int32_t Height);
  TWindowBounds GetBounds() const;
  TWindowBorder GetBorder() const;
  void SetVisible(bool Value);
  bool GetVisible() const;
  // Brings a top-level window to the front and gives it the focus.
  void BringToFront();
  bool Capture(TPixelImage& Image) const { return CaptureNativeWindow(GetHandle(), Image); }
  // Asks a top-level window to close the way its close box does: the
  // request arrives as an event (OnCloseRequest) when events are handled.
  void RequestClose();

  // [main thread] The user asks to close a top-level window (close box,
  // window manager). Without a handler nothing happens: the owner decides.
  std::function<void()> OnCloseRequest;
  // [main thread] A top-level window became the active one (true) or lost it.
  std::function<void(bool Active)> OnActivate;

  struct TImpl;

 private:
  explicit TPlatformWindow(std::unique_ptr<TImpl> Impl);
  std::unique_ptr<TImpl> F;
};

}  // namespace Quorvel::Platform
