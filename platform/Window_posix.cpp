// Editor windows on X11 through Xlib: one connection of the host's own,
// opened on first use, with the host's X error handler installed before it.
#include "platform/Window.h"

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <poll.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>

namespace Quorvel::Platform {

struct TPlatformWindow::TImpl {
  Window Handle = 0;
  bool TopLevel = false;
  TPlatformWindow* Owner = nullptr;
};

namespace {

Display* GDisplay = nullptr;
bool GTried = false;
std::string GWhy;
Atom GDeleteWindow = 0, GProtocols = 0, GMotifHints = 0, GWindowType = 0, GTypeUtility = 0, GTypeNormal = 0,
     GNetName = 0, GUtf8 = 0;
std::map<Window, TPlatformWindow*> GWindows;  // the host's own top-level windows

std::atomic<uint64_t> GErrors{0};
std::mutex GErrorText;
std::string GLastError;

// Counts the error and carries on: Xlib's own handler would end the process,
// and a plug-in's bad request must not end the host.
int HostErrorHandler(Display* D, XErrorEvent* E) {
  char Text[256] = "";
  XGetErrorText(D, E->error_code, Text, sizeof Text);
  {
    std::lock_guard<std::mutex> G(GErrorText);
    GLastError = std::string(Text) + " (request " + std::to_string(E->request_code) + ")";
  }
  GErrors.fetch_add(1);
  return 0;
}

Display* Connection() {
  if (GTried) return GDisplay;
  GTried = true;
  const char* Name = std::getenv("DISPLAY");
  if (!Name || !*Name) {
    GWhy = "no X display (DISPLAY is not set)";
    return nullptr;
  }
  // Plug-ins may drive their own connections from threads of their own.
  XInitThreads();
  XSetErrorHandler(&HostErrorHandler);
  GDisplay = XOpenDisplay(nullptr);
  if (!GDisplay) {
    GWhy = std::string("cannot open the X display ") + Name;
    return nullptr;
  }
  GDeleteWindow = XInternAtom(GDisplay, "WM_DELETE_WINDOW", False);
  GProtocols = XInternAtom(GDisplay, "WM_PROTOCOLS", False);
  GMotifHints = XInternAtom(GDisplay, "_MOTIF_WM_HINTS", False);
  GWindowType = XInternAtom(GDisplay, "_NET_WM_WINDOW_TYPE", False);
  GTypeUtility = XInternAtom(GDisplay, "_NET_WM_WINDOW_TYPE_UTILITY", False);
  GTypeNormal = XInternAtom(GDisplay, "_NET_WM_WINDOW_TYPE_NORMAL", False);
  GNetName = XInternAtom(GDisplay, "_NET_WM_NAME", False);
  GUtf8 = XInternAtom(GDisplay, "UTF8_STRING", False);
  return GDisplay;
}

// The motif hints record: flags, functions, decorations, input mode, status.
struct TMotifHints {
  unsigned long Flags, Functions, Decorations;
  long InputMode;
  unsigned long State;
};
constexpr unsigned long kMotifDecorationsFlag = 2;

void Handle(const XEvent& E) {
  auto It = GWindows.find(E.xany.window);
  if (It == GWindows.end()) return;
  TPlatformWindow* W = It->second;
  if (E.type == ClientMessage && E.xclient.message_type == GProtocols &&
      static_cast<Atom>(E.xclient.data.l[0]) == GDeleteWindow) {
    // A copy runs: the handler may destroy the window and its handlers.
    if (auto Close = W->OnCloseRequest) Close();
  } else if (E.type == FocusIn || E.type == FocusOut) {
    if (auto Activate = W->OnActivate; Activate && E.xfocus.mode == NotifyNormal) Activate(E.type == FocusIn);
  }
}

Window ToX(TNativeWindow W) { return static_cast<Window>(reinterpret_cast<uintptr_t>(W)); }

// A window's client origin: relative to its parent, or to the root for the
// host's top-level windows (there may be a window manager's frame between).
bool Bounds(Window W, bool OnScreen, TWindowBounds& B) {
  Display* D = Connection();
  if (!D || !W) return false;
  Window Root = 0;
  int X = 0, Y = 0;
  unsigned Width = 0, Height = 0, BorderWidth = 0, Depth = 0;
  if (!XGetGeometry(D, W, &Root, &X, &Y, &Width, &Height, &BorderWidth, &Depth)) return false;
  if (OnScreen) {
    Window Child = 0;
    XTranslateCoordinates(D, W, Root, 0, 0, &X, &Y, &Child);
  }
  B = {X, Y, static_cast<int32_t>(Width), static_cast<int32_t>(Height)};
  return true;
}

}  // namespace

bool WindowSystemAvailable(std::string& Why) {
  if (Connection()) return true;
  Why = GWhy;
  return false;
}

void DispatchWindowEvents() {
  Display* D = Connection();
  if (!D) return;
  while (XPending(D) > 0) {
    XEvent E;
    XNextEvent(D, &E);
    Handle(E);
  }
}

void RunWindowEvents(int32_t TimeoutMs) {
  Display* D = Connection();
  if (D && XPending(D) == 0) {
    pollfd P{ConnectionNumber(D), POLLIN, 0};
    poll(&P, 1, TimeoutMs);
  } else if (!D) {
    poll(nullptr, 0, TimeoutMs);
  }
  DispatchWindowEvents();
}

void SyncWindowSystem() {
  if (Display* D = Connection()) XSync(D, False);
}

uint64_t GetWindowSystemErrorCount() { return GErrors.load(); }

std::string GetLastWindowSystemError() {
  std::lock_guard<std::mutex> G(GErrorText);
  return GLastError;
}

bool CaptureNativeWindow(TNativeWindow Handle, TPixelImage& Image) {
  Display* D = Connection();
  TWindowBounds B;
  if (!D || !Bounds(ToX(Handle), false, B) || B.Width <= 0 || B.Height <= 0) return false;
  XWindowAttributes A;
  if (!XGetWindowAttributes(D, ToX(Handle), &A) || A.map_state != IsViewable) return false;
  XSync(D, False);
  const uint64_t Before = GErrors.load();
  XImage* X = XGetImage(D, ToX(Handle), 0, 0, static_cast<unsigned>(B.Width), static_cast<unsigned>(B.Height),
                        AllPlanes, ZPixmap);
  if (!X) return false;
  // Each channel scaled from its mask to 8 bits.
  auto Channel = [](unsigned long Pixel, unsigned long Mask) -> uint32_t {
    if (!Mask) return 0;
    int Shift = 0;
    while (!((Mask >> Shift) & 1)) ++Shift;
    const unsigned long Max = Mask >> Shift;
    return static_cast<uint32_t>(((Pixel & Mask) >> Shift) * 255 / Max);
  };
  Image.Width = B.Width;
  Image.Height = B.Height;
  Image.Pixels.resize(static_cast<size_t>(B.Width) * B.Height);
  for (int32_t Y = 0; Y < B.Height; ++Y)
    for (int32_t Col = 0; Col < B.Width; ++Col) {
      const unsigned long P = XGetPixel(X, Col, Y);
      Image.Pixels[static_cast<size_t>(Y) * B.Width + Col] =
          Channel(P, X->red_mask) << 16 | Channel(P, X->green_mask) << 8 | Channel(P, X->blue_mask);
    }
  XDestroyImage(X);
  return GErrors.load() == Before;
}

bool GetNativeWindowBounds(TNativeWindow Window, TWindowBounds& B) {
  Display* D = Connection();
  if (!D) return false;
  // Children of the root are measured on the screen, others in their parent.
  ::Window Root = 0, Parent = 0, *Children = nullptr;
  unsigned Count = 0;
  if (!XQueryTree(D, ToX(Window), &Root, &Parent, &Children, &Count)) return false;
  if (Children) XFree(Children);
  return Bounds(ToX(Window), Parent == Root, B);
}

// ---- TPlatformWindow ------------------------------------------------------------

TPlatformWindow::TPlatformWindow(std::unique_ptr<TImpl> Impl) : F(std::move(Impl)) { F->Owner = this; }

std::unique_ptr<TPlatformWindow> TPlatformWindow::CreateTopLevel(const std::string& Caption, int32_t Width,
                                                                 int32_t Height, TWindowBorder Border,
                                                                 std::string& Error) {
  Display* D = Connection();
  if (!D) {
    Error = GWhy;
    return nullptr;
  }
  const int S = DefaultScreen(D);
  XSetWindowAttributes A{};
  A.background_pixel = BlackPixel(D, S);
  A.event_mask = StructureNotifyMask | FocusChangeMask;
  const Window W = XCreateWindow(D, RootWindow(D, S), 0, 0, static_cast<unsigned>(std::max(Width, 1)),
                                 static_cast<unsigned>(std::max(Height, 1)), 0, CopyFromParent, InputOutput,
                                 CopyFromParent, CWBackPixel | CWEventMask, &A);
  if (!W) {
    Error = "cannot create a window";
    return nullptr;
  }
  XSetWMProtocols(D, W, &GDeleteWindow, 1);
  if (Border == TWindowBorder::Borderless) {
    TMotifHints Hints{kMotifDecorationsFlag, 0, 0, 0, 0};
    XChangeProperty(D, W, GMotifHints, GMotifHints, 32, PropModeReplace, reinterpret_cast<unsigned char*>(&Hints),
                    5);
  }
  Atom Type = Border == TWindowBorder::SizeableToolWindow ? GTypeUtility : GTypeNormal;
  XChangeProperty(D, W, GWindowType, XA_ATOM, 32, PropModeReplace, reinterpret_cast<unsigned char*>(&Type), 1);
  auto Impl = std::make_unique<TImpl>();
  Impl->Handle = W;
  Impl->TopLevel = true;
  std::unique_ptr<TPlatformWindow> Result(new TPlatformWindow(std::move(Impl)));
  GWindows[W] = Result.get();
  Result->SetCaption(Caption);
  // Other connections (the plug-in's) may use the window as soon as it is handed out.
  XSync(D, False);
  return Result;
}

std::unique_ptr<TPlatformWindow> TPlatformWindow::CreateChild(TNativeWindow Parent, int32_t X, int32_t Y,
                                                              int32_t Width, int32_t Height, std::string& Error) {
  Display* D = Connection();
  if (!D) {
    Error = GWhy;
    return nullptr;
  }
  const uint64_t Before = GErrors.load();
  const Window W = XCreateSimpleWindow(D, ToX(Parent), X, Y, static_cast<unsigned>(std::max(Width, 1)),
                                       static_cast<unsigned>(std::max(Height, 1)), 0, 0,
                                       BlackPixel(D, DefaultScreen(D)));
  XSync(D, False);
  if (!W || GErrors.load() != Before) {
    Error = "cannot create a window in the given parent window";
    if (W) XDestroyWindow(D, W);
    return nullptr;
  }
  XMapWindow(D, W);
  auto Impl = std::make_unique<TImpl>();
  Impl->Handle = W;
  return std::unique_ptr<TPlatformWindow>(new TPlatformWindow(std::move(Impl)));
}

TPlatformWindow::~TPlatformWindow() {
  GWindows.erase(F->Handle);
  if (Display* D = Connection()) {
    XDestroyWindow(D, F->Handle);
    XSync(D, False);
  }
}

TNativeWindow TPlatformWindow::GetHandle() const {
  return reinterpret_cast<TNativeWindow>(static_cast<uintptr_t>(F->Handle));
}

void TPlatformWindow::SetCaption(const std::string& Value) {
  Display* D = Connection();
  XStoreName(D, F->Handle, Value.c_str());
  XChangeProperty(D, F->Handle, GNetName, GUtf8, 8, PropModeReplace,
                  reinterpret_cast<const unsigned char*>(Value.data()), static_cast<int>(Value.size()));
}

std::string TPlatformWindow::GetCaption() const {
  char* Name = nullptr;
  std::string Out;
  if (XFetchName(Connection(), F->Handle, &Name) && Name) {
    Out = Name;
    XFree(Name);
  }
  return Out;
}

void TPlatformWindow::SetPosition(int32_t X, int32_t Y) {
  Display* D = Connection();
  if (F->TopLevel) {
    // Window managers place a window where its hints ask, once it is mapped.
    XSizeHints Hints{};
    Hints.flags = USPosition | PPosition;
    Hints.x = X;
    Hints.y = Y;
    XSetWMNormalHints(D, F->Handle, &Hints);
  }
  XMoveWindow(D, F->Handle, X, Y);
  XFlush(D);
}

void TPlatformWindow::SetClientSize(int32_t Width, int32_t Height) {
  Display* D = Connection();
  XResizeWindow(D, F->Handle, static_cast<unsigned>(std::max(Width, 1)), static_cast<unsigned>(std::max(Height, 1)));
  XFlush(D);
}

TWindowBounds TPlatformWindow::GetBounds() const {
  TWindowBounds B;
  Bounds(F->Handle, F->TopLevel, B);
  return B;
}

TWindowBorder TPlatformWindow::GetBorder() const {
  Display* D = Connection();
  Atom Type = 0;
  int Format = 0;
  unsigned long Items = 0, After = 0;
  unsigned char* Data = nullptr;
  TWindowBorder Border = TWindowBorder::Sizeable;
  if (XGetWindowProperty(D, F->Handle, GMotifHints, 0, 5, False, AnyPropertyType, &Type, &Format, &Items, &After,
                         &Data) == Success && Data) {
    const auto* L = reinterpret_cast<const unsigned long*>(Data);
    if (Items >= 3 && (L[0] & kMotifDecorationsFlag) && L[2] == 0) Border = TWindowBorder::Borderless;
    XFree(Data);
    Data = nullptr;
  }
  if (Border == TWindowBorder::Borderless) return Border;
  if (XGetWindowProperty(D, F->Handle, GWindowType, 0, 1, False, XA_ATOM, &Type, &Format, &Items, &After, &Data) ==
          Success && Data) {
    if (Items == 1 && *reinterpret_cast<const Atom*>(Data) == GTypeUtility) Border = TWindowBorder::SizeableToolWindow;
    XFree(Data);
  }
  return Border;
}

void TPlatformWindow::SetVisible(bool Value) {
  Display* D = Connection();
  if (Value)
    XMapRaised(D, F->Handle);
  else
    XUnmapWindow(D, F->Handle);
  XSync(D, False);
}

bool TPlatformWindow::GetVisible() const {
  XWindowAttributes A;
  return XGetWindowAttributes(Connection(), F->Handle, &A) && A.map_state != IsUnmapped;
}

void TPlatformWindow::BringToFront() {
  Display* D = Connection();
  XRaiseWindow(D, F->Handle);
  if (GetVisible()) XSetInputFocus(D, F->Handle, RevertToParent, CurrentTime);
  XSync(D, False);
}

void TPlatformWindow::RequestClose() {
  Display* D = Connection();
  XEvent E{};
  E.xclient.type = ClientMessage;
  E.xclient.window = F->Handle;
  E.xclient.message_type = GProtocols;
  E.xclient.format = 32;
  E.xclient.data.l[0] = static_cast<long>(GDeleteWindow);
  E.xclient.data.l[1] = CurrentTime;
  XSendEvent(D, F->Handle, False, NoEventMask, &E);
  XSync(D, False);
}

}  // namespace Quorvel::Platform
