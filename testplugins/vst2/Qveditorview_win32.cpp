// The test editor on Win32: a child window of the host's window that paints
// its blocks on WM_PAINT. Its class is registered while a view exists, so
// that no class outlives the library that holds its window procedure.
#include "testplugins/vst2/Qveditorview.h"

#include <windows.h>

#include <algorithm>
#include <new>
#include <vector>

namespace Quorvel::Qvtestplugin {

struct TEditorView {
  HWND Handle = nullptr;
  std::vector<uint32_t> Colours;
};

namespace {

const wchar_t* const kClassName = L"QuorvelTestEditorView";
int GViews = 0;

void Paint(TEditorView* View, HDC Dc) {
  RECT Client;
  GetClientRect(View->Handle, &Client);
  const int Count = static_cast<int>(View->Colours.size());
  if (Count == 0) return;
  const int Each = Client.right / Count;
  for (int I = 0; I < Count; ++I) {
    const uint32_t C = View->Colours[I];
    HBRUSH Brush = CreateSolidBrush(RGB(C >> 16 & 0xFF, C >> 8 & 0xFF, C & 0xFF));
    RECT Block{I * Each, 0, I == Count - 1 ? Client.right : (I + 1) * Each, Client.bottom};
    FillRect(Dc, &Block, Brush);
    DeleteObject(Brush);
  }
}

LRESULT CALLBACK ViewProc(HWND Window, UINT Message, WPARAM WParam, LPARAM LParam) noexcept {
  auto* View = reinterpret_cast<TEditorView*>(GetWindowLongPtrW(Window, GWLP_USERDATA));
  if (Message == WM_ERASEBKGND) return 1;
  if (Message == WM_PAINT && View) {
    PAINTSTRUCT Ps;
    HDC Dc = BeginPaint(Window, &Ps);
    Paint(View, Dc);
    EndPaint(Window, &Ps);
    return 0;
  }
  return DefWindowProcW(Window, Message, WParam, LParam);
}

HINSTANCE ThisModule() {
  HMODULE Module = nullptr;
  GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                     reinterpret_cast<LPCWSTR>(&ViewProc), &Module);
  return Module;
}

}  // namespace

TEditorView* OpenEditorView(void* Parent, int32_t Width, int32_t Height) {
  if (GViews == 0) {
    WNDCLASSEXW Class{};
    Class.cbSize = sizeof Class;
    Class.lpfnWndProc = &ViewProc;
    Class.hInstance = ThisModule();
    Class.lpszClassName = kClassName;
    if (!RegisterClassExW(&Class) && GetLastError() != ERROR_CLASS_ALREADY_EXISTS) return nullptr;
  }
  auto* View = new (std::nothrow) TEditorView;
  if (!View) return nullptr;
  View->Handle = CreateWindowExW(0, kClassName, L"", WS_CHILD | WS_VISIBLE, 0, 0, Width, Height,
                                 static_cast<HWND>(Parent), nullptr, ThisModule(), nullptr);
  if (!View->Handle) {
    delete View;
    if (GViews == 0) UnregisterClassW(kClassName, ThisModule());
    return nullptr;
  }
  ++GViews;
  SetWindowLongPtrW(View->Handle, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(View));
  return View;
}

void CloseEditorView(TEditorView* View) {
  if (!View) return;
  DestroyWindow(View->Handle);
  delete View;
  if (--GViews == 0) UnregisterClassW(kClassName, ThisModule());
}

void PaintEditorView(TEditorView* View, const uint32_t* Colours, int32_t Count) {
  View->Colours.assign(Colours, Colours + Count);
  InvalidateRect(View->Handle, nullptr, FALSE);
  UpdateWindow(View->Handle);
}

bool ProcessEditorViewEvents(TEditorView*) { return false; }

void ResizeEditorView(TEditorView* View, int32_t Width, int32_t Height) {
  SetWindowPos(View->Handle, nullptr, 0, 0, std::max(Width, 1), std::max(Height, 1),
               SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE);
  InvalidateRect(View->Handle, nullptr, FALSE);
  UpdateWindow(View->Handle);
}

void MoveEditorView(TEditorView* View, int32_t X, int32_t Y) {
  SetWindowPos(View->Handle, nullptr, X, Y, 0, 0, SWP_NOSIZE | SWP_NOZORDER | SWP_NOACTIVATE);
}

int EditorViewDescriptor(TEditorView*) { return -1; }

}  // namespace Quorvel::Qvtestplugin
