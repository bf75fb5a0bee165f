// The main-thread wake-up through a message-only window: a posted message
// brings the drain into the thread's own message loop.
#include "platform/Mainthread.h"

#include <windows.h>

#include <atomic>

namespace Quorvel::Platform {
namespace {

constexpr UINT kWakeMessage = WM_APP + 0x51;
const wchar_t* const kClassName = L"QuorvelMainThreadWake";

std::atomic<HWND> GWindow{nullptr};
std::atomic<TDrainProc> GDrain{nullptr};
// Set by the first wake of a burst and cleared before the drain runs, so one
// message stands for any number of wakes and none posted after it is lost.
std::atomic<bool> GPending{false};

LRESULT CALLBACK WakeWindowProc(HWND Window, UINT Message, WPARAM WParam, LPARAM LParam) noexcept {
  if (Message != kWakeMessage) return DefWindowProcW(Window, Message, WParam, LParam);
  GPending = false;
  if (TDrainProc Drain = GDrain.load()) {
    // An exception must not unwind through the system's dispatch code.
    try {
      Drain();
    } catch (...) {
    }
  }
  return 0;
}

// The module holding this code, which may be a DLL rather than the program.
HINSTANCE ThisModule() {
  HMODULE Module = nullptr;
  GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                     reinterpret_cast<LPCWSTR>(&WakeWindowProc), &Module);
  return Module;
}

void PostWake(HWND Window) {
  // A post that fails with the window still up (queue full) must not leave the
  // flag set for good; one that fails because the window went away stays
  // pending for the next init.
  if (!PostMessageW(Window, kWakeMessage, 0, 0) && GWindow.load() == Window) GPending = false;
}

}  // namespace

void MainThreadWakeInit(TDrainProc Drain) {
  GDrain = Drain;
  if (GWindow.load()) return;
  WNDCLASSEXW Class{};
  Class.cbSize = sizeof Class;
  Class.lpfnWndProc = &WakeWindowProc;
  Class.hInstance = ThisModule();
  Class.lpszClassName = kClassName;
  if (!RegisterClassExW(&Class) && GetLastError() != ERROR_CLASS_ALREADY_EXISTS) return;
  HWND Window = CreateWindowExW(0, kClassName, L"", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr, Class.hInstance, nullptr);
  if (!Window) return;
  GWindow = Window;
  // Wakes that came while there was no window are delivered now.
  if (GPending.load()) PostWake(Window);
}

void MainThreadWake() {
  if (GPending.exchange(true)) return;
  if (HWND Window = GWindow.load()) PostWake(Window);
}

void MainThreadWakeDone() {
  // The pending flag stays as it is: a wake not yet drained is posted again by the next init.
  if (HWND Window = GWindow.exchange(nullptr)) DestroyWindow(Window);
  UnregisterClassW(kClassName, ThisModule());
}

}  // namespace Quorvel::Platform
