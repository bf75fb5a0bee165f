// Editor windows on Win32: one window class of the host's own for its forms
// and child windows; their messages come through the application's loop.
#include "platform/Window.h"

#include <windows.h>

#include <algorithm>

#include "platform/Win32text_win32.h"

namespace Quorvel::Platform {

struct TPlatformWindow::TImpl {
  HWND Handle = nullptr;
  bool TopLevel = false;
  TPlatformWindow* Owner = nullptr;
};

namespace {

const wchar_t* const kClassName = L"QuorvelEditorWindow";

LRESULT CALLBACK WindowProc(HWND Window, UINT Message, WPARAM WParam, LPARAM LParam) noexcept {
  auto* W = reinterpret_cast<TPlatformWindow*>(GetWindowLongPtrW(Window, GWLP_USERDATA));
  try {
    switch (Message) {
      case WM_CLOSE:
        // A copy runs: the handler may destroy the window and its handlers.
        if (W) {
          if (auto Close = W->OnCloseRequest) Close();
        }
        return 0;
      case WM_ACTIVATE:
        if (W) {
          if (auto Activate = W->OnActivate) Activate(LOWORD(WParam) != WA_INACTIVE);
        }
        break;
      case WM_ERASEBKGND: {
        RECT R;
        GetClientRect(Window, &R);
        FillRect(reinterpret_cast<HDC>(WParam), &R, static_cast<HBRUSH>(GetStockObject(BLACK_BRUSH)));
        return 1;
      }
      default:
        break;
    }
  } catch (...) {
    // An exception must not unwind through the system's dispatch code.
  }
  return DefWindowProcW(Window, Message, WParam, LParam);
}

std::wstring Wide(const std::string& Text) {
  std::wstring Out;
  ToUtf16(Text, Out);
  return Out;
}

HINSTANCE ThisModule() {
  HMODULE Module = nullptr;
  GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                     reinterpret_cast<LPCWSTR>(&WindowProc), &Module);
  return Module;
}

bool RegisterOnce(std::string& Error) {
  static bool Registered = false;
  if (Registered) return true;
  WNDCLASSEXW Class{};
  Class.cbSize = sizeof Class;
  Class.lpfnWndProc = &WindowProc;
  Class.hInstance = ThisModule();
  Class.hCursor = LoadCursorW(nullptr, reinterpret_cast<LPCWSTR>(IDC_ARROW));
  Class.lpszClassName = kClassName;
  if (!RegisterClassExW(&Class) && GetLastError() != ERROR_CLASS_ALREADY_EXISTS) {
    Error = "cannot register the window class (" + std::to_string(GetLastError()) + ")";
    return false;
  }
  Registered = true;
  return true;
}

DWORD StyleOf(TWindowBorder Border) {
  switch (Border) {
    case TWindowBorder::Borderless: return WS_POPUP | WS_CLIPCHILDREN;
    case TWindowBorder::SizeableToolWindow: return WS_OVERLAPPED | WS_CAPTION | WS_SYSMENU | WS_THICKFRAME | WS_CLIPCHILDREN;
    default: return WS_OVERLAPPEDWINDOW | WS_CLIPCHILDREN;
  }
}
DWORD ExStyleOf(TWindowBorder Border) { return Border == TWindowBorder::SizeableToolWindow ? WS_EX_TOOLWINDOW : 0; }

// The outer size of a window whose client area is Width x Height.
SIZE OuterSize(HWND Window, int32_t Width, int32_t Height) {
  RECT R{0, 0, std::max(Width, 1), std::max(Height, 1)};
  AdjustWindowRectEx(&R, static_cast<DWORD>(GetWindowLongPtrW(Window, GWL_STYLE)), FALSE,
                     static_cast<DWORD>(GetWindowLongPtrW(Window, GWL_EXSTYLE)));
  return SIZE{R.right - R.left, R.bottom - R.top};
}

}  // namespace

bool WindowSystemAvailable(std::string& Why) { return RegisterOnce(Why); }

void DispatchWindowEvents() {}

void RunWindowEvents(int32_t TimeoutMs) {
  MsgWaitForMultipleObjectsEx(0, nullptr, static_cast<DWORD>(std::max(TimeoutMs, 0)), QS_ALLINPUT,
                              MWMO_INPUTAVAILABLE);
  MSG Message;
  while (PeekMessageW(&Message, nullptr, 0, 0, PM_REMOVE)) {
    TranslateMessage(&Message);
    DispatchMessageW(&Message);
  }
}

void SyncWindowSystem() { GdiFlush(); }

uint64_t GetWindowSystemErrorCount() { return 0; }
std::string GetLastWindowSystemError() { return {}; }

bool CaptureNativeWindow(TNativeWindow Handle, TPixelImage& Image) {
  HWND Window = static_cast<HWND>(Handle);
  RECT R;
  if (!IsWindow(Window) || !IsWindowVisible(Window) || !GetClientRect(Window, &R)) return false;
  const int Width = R.right - R.left, Height = R.bottom - R.top;
  if (Width <= 0 || Height <= 0) return false;
  // The window's own pixels and its children's, as they are on its surface.
  RedrawWindow(Window, nullptr, nullptr, RDW_UPDATENOW | RDW_ALLCHILDREN);
  HDC Source = GetDC(Window);
  if (!Source) return false;
  HDC Memory = CreateCompatibleDC(Source);
  BITMAPINFO Info{};
  Info.bmiHeader.biSize = sizeof Info.bmiHeader;
  Info.bmiHeader.biWidth = Width;
  Info.bmiHeader.biHeight = -Height;  // top-down
  Info.bmiHeader.biPlanes = 1;
  Info.bmiHeader.biBitCount = 32;
  Info.bmiHeader.biCompression = BI_RGB;
  void* Bits = nullptr;
  HBITMAP Bitmap = CreateDIBSection(Source, &Info, DIB_RGB_COLORS, &Bits, nullptr, 0);
  bool Ok = false;
  if (Memory && Bitmap && Bits) {
    HGDIOBJ Old = SelectObject(Memory, Bitmap);
    Ok = BitBlt(Memory, 0, 0, Width, Height, Source, 0, 0, SRCCOPY) != 0;
    GdiFlush();
    if (Ok) {
      Image.Width = Width;
      Image.Height = Height;
      Image.Pixels.resize(static_cast<size_t>(Width) * Height);
      const auto* P = static_cast<const uint32_t*>(Bits);
      for (size_t I = 0; I < Image.Pixels.size(); ++I) Image.Pixels[I] = P[I] & 0xFFFFFFu;
    }
    SelectObject(Memory, Old);
  }
  if (Bitmap) DeleteObject(Bitmap);
  if (Memory) DeleteDC(Memory);
  ReleaseDC(Window, Source);
  return Ok;
}

bool GetNativeWindowBounds(TNativeWindow Handle, TWindowBounds& B) {
  HWND Window = static_cast<HWND>(Handle);
  RECT R;
  if (!IsWindow(Window) || !GetClientRect(Window, &R)) return false;
  POINT Origin{0, 0};
  HWND Parent = (GetWindowLongPtrW(Window, GWL_STYLE) & WS_CHILD) ? GetParent(Window) : nullptr;
  MapWindowPoints(Window, Parent, &Origin, 1);
  B = {Origin.x, Origin.y, R.right - R.left, R.bottom - R.top};
  return true;
}

// ---- TPlatformWindow ------------------------------------------------------------

TPlatformWindow::TPlatformWindow(std::unique_ptr<TImpl> Impl) : F(std::move(Impl)) {
  F->Owner = this;
  SetWindowLongPtrW(F->Handle, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(this));
}

std::unique_ptr<TPlatformWindow> TPlatformWindow::CreateTopLevel(const std::string& Caption, int32_t Width,
                                                                 int32_t Height, TWindowBorder Border,
                                                                 std::string& Error) {
  if (!RegisterOnce(Error)) return nullptr;
  HWND Window = CreateWindowExW(ExStyleOf(Border), kClassName, Wide(Caption).c_str(), StyleOf(Border),
                                CW_USEDEFAULT, CW_USEDEFAULT, 100, 100, nullptr, nullptr, ThisModule(), nullptr);
  if (!Window) {
    Error = "cannot create a window (" + std::to_string(GetLastError()) + ")";
    return nullptr;
  }
  auto Impl = std::make_unique<TImpl>();
  Impl->Handle = Window;
  Impl->TopLevel = true;
  std::unique_ptr<TPlatformWindow> Result(new TPlatformWindow(std::move(Impl)));
  Result->SetClientSize(Width, Height);
  return Result;
}

std::unique_ptr<TPlatformWindow> TPlatformWindow::CreateChild(TNativeWindow Parent, int32_t X, int32_t Y,
                                                              int32_t Width, int32_t Height, std::string& Error) {
  if (!RegisterOnce(Error)) return nullptr;
  HWND Window = CreateWindowExW(0, kClassName, L"", WS_CHILD | WS_VISIBLE | WS_CLIPCHILDREN, X, Y,
                                std::max(Width, 1), std::max(Height, 1), static_cast<HWND>(Parent), nullptr,
                                ThisModule(), nullptr);
  if (!Window) {
    Error = "cannot create a window in the given parent window (" + std::to_string(GetLastError()) + ")";
    return nullptr;
  }
  auto Impl = std::make_unique<TImpl>();
  Impl->Handle = Window;
  return std::unique_ptr<TPlatformWindow>(new TPlatformWindow(std::move(Impl)));
}

TPlatformWindow::~TPlatformWindow() {
  SetWindowLongPtrW(F->Handle, GWLP_USERDATA, 0);
  DestroyWindow(F->Handle);
}

TNativeWindow TPlatformWindow::GetHandle() const { return F->Handle; }

void TPlatformWindow::SetCaption(const std::string& Value) {
  SetWindowTextW(F->Handle, Wide(Value).c_str());
}

std::string TPlatformWindow::GetCaption() const {
  wchar_t Text[512] = L"";
  const int Length = GetWindowTextW(F->Handle, Text, 512);
  return FromUtf16(Text, static_cast<size_t>(std::max(Length, 0)));
}

void TPlatformWindow::SetPosition(int32_t X, int32_t Y) {
  SetWindowPos(F->Handle, nullptr, X, Y, 0, 0, SWP_NOSIZE | SWP_NOZORDER | SWP_NOACTIVATE);
}

void TPlatformWindow::SetClientSize(int32_t Width, int32_t Height) {
  const SIZE S = F->TopLevel ? OuterSize(F->Handle, Width, Height) : SIZE{std::max(Width, 1), std::max(Height, 1)};
  SetWindowPos(F->Handle, nullptr, 0, 0, S.cx, S.cy, SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE);
}

TWindowBounds TPlatformWindow::GetBounds() const {
  TWindowBounds B;
  GetNativeWindowBounds(F->Handle, B);
  return B;
}

TWindowBorder TPlatformWindow::GetBorder() const {
  const auto Style = static_cast<DWORD>(GetWindowLongPtrW(F->Handle, GWL_STYLE));
  const auto ExStyle = static_cast<DWORD>(GetWindowLongPtrW(F->Handle, GWL_EXSTYLE));
  if (!(Style & (WS_CAPTION | WS_THICKFRAME))) return TWindowBorder::Borderless;
  if ((ExStyle & WS_EX_TOOLWINDOW) && (Style & WS_THICKFRAME)) return TWindowBorder::SizeableToolWindow;
  return TWindowBorder::Sizeable;
}

void TPlatformWindow::SetVisible(bool Value) {
  ShowWindow(F->Handle, Value ? SW_SHOW : SW_HIDE);
  if (Value) UpdateWindow(F->Handle);
}

bool TPlatformWindow::GetVisible() const { return IsWindowVisible(F->Handle) != 0; }

void TPlatformWindow::BringToFront() { SetForegroundWindow(F->Handle); }

void TPlatformWindow::RequestClose() { PostMessageW(F->Handle, WM_CLOSE, 0, 0); }

}  // namespace Quorvel::Platform
