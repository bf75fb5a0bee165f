// The test editor on X11: a connection of the plug-in's own, as plug-ins
// have, and a child window of the host's window.
#include "testplugins/vst2/Qveditorview.h"

#include <X11/Xlib.h>
#include <X11/Xutil.h>

#include <algorithm>
#include <new>
#include <vector>

namespace Quorvel::Qvtestplugin {

struct TEditorView {
  Display* Connection = nullptr;
  Window Handle = 0;
  GC Context = nullptr;
  std::vector<uint32_t> Colours;
};

namespace {

unsigned long PixelOf(Display* D, uint32_t Colour) {
  // TrueColor visuals take the colour's channels at their masks' places.
  Visual* V = DefaultVisual(D, DefaultScreen(D));
  auto Place = [](uint32_t Channel, unsigned long Mask) -> unsigned long {
    if (!Mask) return 0;
    int Shift = 0;
    while (!((Mask >> Shift) & 1)) ++Shift;
    return ((Channel * (Mask >> Shift) + 127) / 255) << Shift;
  };
  return Place(Colour >> 16 & 0xFF, V->red_mask) | Place(Colour >> 8 & 0xFF, V->green_mask) |
         Place(Colour & 0xFF, V->blue_mask);
}

void Paint(TEditorView* View) {
  if (View->Colours.empty()) return;
  XWindowAttributes A;
  if (!XGetWindowAttributes(View->Connection, View->Handle, &A)) return;
  const int Count = static_cast<int>(View->Colours.size());
  const int Each = A.width / Count;
  for (int I = 0; I < Count; ++I) {
    XSetForeground(View->Connection, View->Context, PixelOf(View->Connection, View->Colours[I]));
    const int Left = I * Each, Width = I == Count - 1 ? A.width - Left : Each;
    XFillRectangle(View->Connection, View->Handle, View->Context, Left, 0, static_cast<unsigned>(Width),
                   static_cast<unsigned>(A.height));
  }
  XSync(View->Connection, False);
}

}  // namespace

TEditorView* OpenEditorView(void* Parent, int32_t Width, int32_t Height) {
  Display* D = XOpenDisplay(nullptr);
  if (!D) return nullptr;
  const Window W = XCreateSimpleWindow(D, static_cast<Window>(reinterpret_cast<uintptr_t>(Parent)), 0, 0,
                                       static_cast<unsigned>(Width), static_cast<unsigned>(Height), 0, 0,
                                       BlackPixel(D, DefaultScreen(D)));
  auto* View = new (std::nothrow) TEditorView;
  if (!View) {
    XCloseDisplay(D);
    return nullptr;
  }
  View->Connection = D;
  View->Handle = W;
  XSelectInput(D, W, ExposureMask);
  View->Context = XCreateGC(D, W, 0, nullptr);
  XMapWindow(D, W);
  XSync(D, False);
  return View;
}

void CloseEditorView(TEditorView* View) {
  if (!View) return;
  XFreeGC(View->Connection, View->Context);
  XDestroyWindow(View->Connection, View->Handle);
  XSync(View->Connection, False);
  XCloseDisplay(View->Connection);
  delete View;
}

void PaintEditorView(TEditorView* View, const uint32_t* Colours, int32_t Count) {
  View->Colours.assign(Colours, Colours + Count);
  Paint(View);
}

bool ProcessEditorViewEvents(TEditorView* View) {
  // The round trip brings every event the server made so far.
  XSync(View->Connection, False);
  bool Exposed = false;
  while (XPending(View->Connection) > 0) {
    XEvent E;
    XNextEvent(View->Connection, &E);
    Exposed = Exposed || E.type == Expose;
  }
  return Exposed;
}

void ResizeEditorView(TEditorView* View, int32_t Width, int32_t Height) {
  XResizeWindow(View->Connection, View->Handle, static_cast<unsigned>(std::max(Width, 1)),
                static_cast<unsigned>(std::max(Height, 1)));
  Paint(View);
}

void MoveEditorView(TEditorView* View, int32_t X, int32_t Y) {
  XMoveWindow(View->Connection, View->Handle, X, Y);
  XSync(View->Connection, False);
}

int EditorViewDescriptor(TEditorView* View) { return ConnectionNumber(View->Connection); }

}  // namespace Quorvel::Qvtestplugin
