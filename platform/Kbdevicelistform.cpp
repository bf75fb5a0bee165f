// The portable part of the device list dialog: pre-selection, the chooser
// that may replace the dialog, and reading the choice.
#include "platform/Kbdevicelistform.h"

#include <mutex>
#include <utility>

namespace Quorvel {
namespace {

std::mutex HookLock;
TKBDeviceListForm::TChooser Chooser;

}  // namespace

namespace KBDeviceListFormDetail {
// Shared with the system dialog of the platform's source.
std::mutex ShownHookLock;
TKBDeviceListForm::TShownHook ShownHook;
}  // namespace KBDeviceListFormDetail

int TKBDeviceListForm::GetPreselectedIndex() const {
  for (size_t I = 0; I < FItems.size(); ++I)
    if (FItems[I] == FPreselected) return static_cast<int>(I);
  return -1;
}

bool TKBDeviceListForm::Execute() {
  TChooser Choose;
  {
    std::lock_guard<std::mutex> G(HookLock);
    Choose = Chooser;
  }
  const int Index = Choose ? Choose(*this) : RunDialog();
  if (Index < 0 || static_cast<size_t>(Index) >= FItems.size()) return false;
  FSelected = FItems[static_cast<size_t>(Index)];
  return true;
}

void TKBDeviceListForm::SetChooser(TChooser Value) {
  std::lock_guard<std::mutex> G(HookLock);
  Chooser = std::move(Value);
}

void TKBDeviceListForm::SetShownHook(TShownHook Hook) {
  std::lock_guard<std::mutex> G(KBDeviceListFormDetail::ShownHookLock);
  KBDeviceListFormDetail::ShownHook = std::move(Hook);
}

}  // namespace Quorvel
