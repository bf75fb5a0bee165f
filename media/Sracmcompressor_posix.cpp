// No Audio Compression Manager here: every conversion is refused.
#include "media/Sraudiocompression.h"

namespace Quorvel {

namespace {
constexpr uint32_t kAcmErrNotPossible = 512;  // ACMERR_NOTPOSSIBLE
}

struct TSRAcmCompressor::TImpl {};

TSRAcmCompressor::TSRAcmCompressor() = default;
TSRAcmCompressor::~TSRAcmCompressor() = default;

bool TSRAcmCompressor::OpenCompressor(const TWaveFormatEx&, const uint8_t*, size_t) {
  FLastResult = kAcmErrNotPossible;
  return false;
}

bool TSRAcmCompressor::GetOpened() const { return false; }
void TSRAcmCompressor::CloseCompressor() {}
IWBDataBufferRef TSRAcmCompressor::CompressBuffer(const void*, size_t, bool) { return nullptr; }

std::vector<TSRAcmFormat> EnumerateAcmFormats(uint16_t) { return {}; }
std::vector<TSRAcmFormatTag> EnumerateAcmFormatTags() { return {}; }

}  // namespace Quorvel
