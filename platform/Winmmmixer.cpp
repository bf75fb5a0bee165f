// The portable part of the mixer seam: record texts and the choice of
// implementation.
#include "platform/Winmmmixer.h"
#include "platform/Utf8.h"

#include <atomic>

namespace Quorvel::Winmmmixer {

namespace {
std::atomic<IMixerApi*> GApi{nullptr};

using Utf8::AppendUtf8;
}  // namespace

std::string RecordText(const TMixerChar* Text, size_t Capacity) {
  std::string Out;
  for (size_t I = 0; I < Capacity && Text[I] != 0; ++I) {
    uint32_t C = Text[I];
    if (C >= 0xD800 && C < 0xDC00 && I + 1 < Capacity && Text[I + 1] >= 0xDC00 && Text[I + 1] < 0xE000) {
      C = 0x10000 + ((C - 0xD800) << 10) + (Text[I + 1] - 0xDC00);
      ++I;
    } else if (C >= 0xD800 && C < 0xE000) {
      C = 0xFFFD;  // an unpaired surrogate
    }
    AppendUtf8(Out, C);
  }
  return Out;
}

void SetRecordText(TMixerChar* Text, size_t Capacity, const std::string& Value) {
  if (Capacity == 0) return;
  size_t N = 0;
  for (size_t I = 0; I < Value.size() && N + 1 < Capacity;) {
    const auto B = static_cast<unsigned char>(Value[I]);
    uint32_t C = 0xFFFD;
    size_t Len = 1;
    if (B < 0x80) {
      C = B;
    } else if ((B & 0xE0) == 0xC0 && I + 1 < Value.size()) {
      C = ((B & 0x1Fu) << 6) | (Value[I + 1] & 0x3F), Len = 2;
    } else if ((B & 0xF0) == 0xE0 && I + 2 < Value.size()) {
      C = ((B & 0x0Fu) << 12) | ((Value[I + 1] & 0x3Fu) << 6) | (Value[I + 2] & 0x3F), Len = 3;
    } else if ((B & 0xF8) == 0xF0 && I + 3 < Value.size()) {
      C = ((B & 0x07u) << 18) | ((Value[I + 1] & 0x3Fu) << 12) | ((Value[I + 2] & 0x3Fu) << 6) | (Value[I + 3] & 0x3F),
      Len = 4;
    }
    I += Len;
    if (C >= 0x10000) {
      if (N + 2 >= Capacity) break;
      Text[N++] = static_cast<TMixerChar>(0xD800 + ((C - 0x10000) >> 10));
      Text[N++] = static_cast<TMixerChar>(0xDC00 + ((C - 0x10000) & 0x3FF));
    } else {
      Text[N++] = static_cast<TMixerChar>(C);
    }
  }
  Text[N] = 0;
}

IMixerApi& GetMixerApi() {
  IMixerApi* Api = GApi.load();
  return Api ? *Api : SystemMixerApi();
}

void SetMixerApi(IMixerApi* Api) { GApi.store(Api); }

}  // namespace Quorvel::Winmmmixer
