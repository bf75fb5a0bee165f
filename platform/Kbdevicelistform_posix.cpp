// No windowing system here: without a chooser the dialog cancels.
#include "platform/Kbdevicelistform.h"

namespace Quorvel {

int TKBDeviceListForm::RunDialog() const { return -1; }

void* TKBDeviceListForm::ApplicationTopmostWindow() { return nullptr; }

}  // namespace Quorvel
