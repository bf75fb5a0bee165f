// Without winmm there is no system mixer: no devices, and notification
// windows that cannot be made.
#include "platform/Winmmmixer.h"

namespace Quorvel::Winmmmixer {

namespace {
class TNoMixerApi final : public IMixerApi {
 public:
  uint32_t GetNumDevs() override { return 0; }
  uint32_t GetDevCaps(uintptr_t, TMixerCaps&) override { return MmBadDeviceId; }
  uint32_t Open(void*& Mixer, uint32_t, uintptr_t, uintptr_t, uint32_t) override {
    Mixer = nullptr;
    return MmBadDeviceId;
  }
  uint32_t Close(void*) override { return MmInvalidHandle; }
  uint32_t GetLineInfo(void*, TMixerLine&, uint32_t) override { return MmInvalidHandle; }
  uint32_t GetLineControls(void*, TMixerLineControls&, uint32_t) override { return MmInvalidHandle; }
  uint32_t GetControlDetails(void*, TMixerControlDetails&, uint32_t) override { return MmInvalidHandle; }
  uint32_t SetControlDetails(void*, TMixerControlDetails&, uint32_t) override { return MmInvalidHandle; }
};
}  // namespace

IMixerApi& SystemMixerApi() {
  static TNoMixerApi Api;
  return Api;
}

struct TMixerNotifyWindow::TImpl {};
TMixerNotifyWindow::TMixerNotifyWindow(THandler) {}
TMixerNotifyWindow::~TMixerNotifyWindow() = default;
void* TMixerNotifyWindow::GetHandle() const { return nullptr; }

bool PostMixerMessage(void*, uint32_t, uintptr_t, intptr_t) { return false; }
int DeliverPostedMixerMessages() { return 0; }

}  // namespace Quorvel::Winmmmixer
