// The device list dialog as a system dialog built from an in-memory template:
// a list box, OK and Cancel.
#include "platform/Kbdevicelistform.h"

#include <windows.h>

#include <mutex>
#include <vector>

#include "platform/Win32text_win32.h"

namespace Quorvel {

namespace KBDeviceListFormDetail {
extern std::mutex ShownHookLock;
extern TKBDeviceListForm::TShownHook ShownHook;
}  // namespace KBDeviceListFormDetail

namespace {

constexpr UINT ShownMessage = WM_APP + 1;
constexpr WORD ButtonClass = 0x0080;
constexpr WORD ListBoxClass = 0x0083;

// The template is a run of WORDs; records start on DWORD boundaries.
class TTemplateWriter {
 public:
  void Word(WORD Value) { FData.push_back(Value); }
  void Dword(DWORD Value) {
    Word(LOWORD(Value));
    Word(HIWORD(Value));
  }
  void Text(const std::wstring& Value) {
    for (wchar_t C : Value) Word(static_cast<WORD>(C));
    Word(0);
  }
  void Align() {
    if (FData.size() % 2) Word(0);
  }
  void Item(DWORD Style, short X, short Y, short Cx, short Cy, WORD Id, WORD Class, const std::wstring& Title) {
    Align();
    Dword(Style | WS_CHILD | WS_VISIBLE);
    Dword(0);  // extended style
    Word(static_cast<WORD>(X));
    Word(static_cast<WORD>(Y));
    Word(static_cast<WORD>(Cx));
    Word(static_cast<WORD>(Cy));
    Word(Id);
    Word(0xFFFF);
    Word(Class);
    Text(Title);
    Word(0);  // no creation data
  }
  const DLGTEMPLATE* Get() const { return reinterpret_cast<const DLGTEMPLATE*>(FData.data()); }

 private:
  std::vector<WORD> FData;
};

struct TDialogState {
  const TKBDeviceListForm* Form;
  int Chosen;
  bool Shown;
};

std::wstring Wide(const std::string& Text) {
  std::wstring Result;
  Platform::ToUtf16(Text, Result);
  return Result;
}

void Confirm(HWND Window, TDialogState& State) {
  const LRESULT Index = SendDlgItemMessageW(Window, TKBDeviceListForm::ListBoxId, LB_GETCURSEL, 0, 0);
  State.Chosen = Index == LB_ERR ? -1 : static_cast<int>(Index);
  EndDialog(Window, IDOK);
}

INT_PTR CALLBACK DialogProc(HWND Window, UINT Message, WPARAM WParam, LPARAM LParam) {
  auto* State = reinterpret_cast<TDialogState*>(GetWindowLongPtrW(Window, DWLP_USER));
  switch (Message) {
    case WM_INITDIALOG: {
      SetWindowLongPtrW(Window, DWLP_USER, LParam);
      State = reinterpret_cast<TDialogState*>(LParam);
      SetWindowTextW(Window, Wide(State->Form->GetCaption()).c_str());
      for (const std::string& Item : State->Form->GetItems())
        SendDlgItemMessageW(Window, TKBDeviceListForm::ListBoxId, LB_ADDSTRING, 0,
                            reinterpret_cast<LPARAM>(Wide(Item).c_str()));
      const int Preselected = State->Form->GetPreselectedIndex();
      if (Preselected >= 0)
        SendDlgItemMessageW(Window, TKBDeviceListForm::ListBoxId, LB_SETCURSEL, WPARAM(Preselected), 0);
      return TRUE;
    }
    case WM_SHOWWINDOW:
      // A modal dialog becomes visible once its loop first goes idle; the
      // hook runs after that, from inside the loop.
      if (WParam && State && !State->Shown) {
        State->Shown = true;
        PostMessageW(Window, ShownMessage, 0, 0);
      }
      return FALSE;
    case ShownMessage: {
      TKBDeviceListForm::TShownHook Hook;
      {
        std::lock_guard<std::mutex> G(KBDeviceListFormDetail::ShownHookLock);
        Hook = KBDeviceListFormDetail::ShownHook;
      }
      if (Hook) Hook(Window);
      return TRUE;
    }
    case WM_COMMAND:
      if (!State) return FALSE;
      if (LOWORD(WParam) == IDOK ||
          (LOWORD(WParam) == TKBDeviceListForm::ListBoxId && HIWORD(WParam) == LBN_DBLCLK)) {
        Confirm(Window, *State);
        return TRUE;
      }
      if (LOWORD(WParam) == IDCANCEL) {
        State->Chosen = -1;
        EndDialog(Window, IDCANCEL);
        return TRUE;
      }
      return FALSE;
    default:
      return FALSE;
  }
}

}  // namespace

void* TKBDeviceListForm::ApplicationTopmostWindow() {
  // Top-level windows come in Z order, topmost first.
  HWND Found = nullptr;
  EnumWindows(
      [](HWND Window, LPARAM Param) -> BOOL {
        DWORD Process = 0;
        GetWindowThreadProcessId(Window, &Process);
        if (Process != GetCurrentProcessId() || !IsWindowVisible(Window)) return TRUE;
        *reinterpret_cast<HWND*>(Param) = Window;
        return FALSE;
      },
      reinterpret_cast<LPARAM>(&Found));
  return Found;
}

int TKBDeviceListForm::RunDialog() const {
  TTemplateWriter T;
  T.Dword(DS_MODALFRAME | DS_CENTER | DS_SETFONT | WS_POPUP | WS_CAPTION | WS_SYSMENU);
  T.Dword(0);  // extended style
  T.Word(3);   // controls
  T.Word(0);
  T.Word(0);
  T.Word(200);  // width and height in dialog units
  T.Word(160);
  T.Word(0);  // no menu
  T.Word(0);  // the standard dialog class
  T.Text(L"");
  T.Word(8);
  T.Text(L"MS Shell Dlg");
  T.Item(WS_BORDER | WS_VSCROLL | WS_TABSTOP | LBS_NOTIFY | LBS_NOINTEGRALHEIGHT, 7, 7, 186, 124, ListBoxId,
         ListBoxClass, L"");
  T.Item(BS_DEFPUSHBUTTON | WS_TABSTOP, 89, 139, 50, 14, IDOK, ButtonClass, L"OK");
  T.Item(BS_PUSHBUTTON | WS_TABSTOP, 143, 139, 50, 14, IDCANCEL, ButtonClass, L"Cancel");

  TDialogState State{this, -1, false};
  HWND Owner = FParent ? static_cast<HWND>(FParent) : GetActiveWindow();
  const INT_PTR Result = DialogBoxIndirectParamW(GetModuleHandleW(nullptr), T.Get(), Owner, DialogProc,
                                                 reinterpret_cast<LPARAM>(&State));
  return Result == IDOK ? State.Chosen : -1;
}

}  // namespace Quorvel
