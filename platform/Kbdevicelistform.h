// The device list dialog: a caption, a list of device names, OK and Cancel.
// Components offer it to let the user pick a driver or device by name.
//
// Windows: a modal system dialog (a list box and two buttons) owned by the
// given parent window or, without one, by the calling thread's active window.
// Elsewhere there is no dialog: Execute asks the chooser function, which by
// default cancels. Either way a chooser set with SetChooser replaces the
// dialog (tests, or an application with its own user interface).
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace Quorvel {

class TKBDeviceListForm {
 public:
  // Control identifiers of the Windows dialog (OK and Cancel are the system's
  // IDOK 1 and IDCANCEL 2).
  static constexpr int ListBoxId = 100;

  // Answers the chosen index, or -1 to cancel. Gets the form as filled.
  using TChooser = std::function<int(const TKBDeviceListForm& Form)>;
  // Called with the dialog's window (an HWND) once it is shown, from inside
  // its modal loop on the dialog's thread; it may select a list item and
  // press a button by sending the window messages. Windows only.
  using TShownHook = std::function<void(void* Window)>;

  void SetCaption(const std::string& Value) { FCaption = Value; }
  const std::string& GetCaption() const { return FCaption; }
  void SetItems(const std::vector<std::string>& Value) { FItems = Value; }
  const std::vector<std::string>& GetItems() const { return FItems; }
  // [main thread] The application's topmost window: its visible top-level
  // window highest in the Z order (an HWND on Windows); nullptr when it has
  // none, and where there is no windowing system.
  static void* ApplicationTopmostWindow();
  // Owner window (an HWND on Windows); nullptr: the thread's active window.
  void SetParentWindow(void* Value) { FParent = Value; }
  void* GetParentWindow() const { return FParent; }
  // The item shown selected when the dialog opens: the first item equal to
  // Value, none when no item is.
  void SetPreselected(const std::string& Value) { FPreselected = Value; }
  int GetPreselectedIndex() const;

  // [main thread] Runs the dialog modally. True when the user confirmed with
  // an item selected; GetSelected then answers that item. False on cancel.
  bool Execute();
  const std::string& GetSelected() const { return FSelected; }

  // [main thread] Process-wide replacements, for tests and hosts without a
  // windowing system. An empty function restores the default.
  static void SetChooser(TChooser Chooser);
  static void SetShownHook(TShownHook Hook);

 private:
  // The system's dialog; -1 on cancel.
  int RunDialog() const;
  std::string FCaption;
  std::vector<std::string> FItems;
  std::string FPreselected;
  std::string FSelected;
  void* FParent = nullptr;
};

}  // namespace Quorvel
