// The 16-byte identifier of COM classes, interfaces and format sub-types, in
// the layout Windows uses. Ground level: needs nothing of the frame.
#pragma once

#include <cstdint>
#include <cstring>

namespace Quorvel {

struct TGUID {
  uint32_t D1;
  uint16_t D2;
  uint16_t D3;
  uint8_t D4[8];
};
static_assert(sizeof(TGUID) == 16, "GUID layout");

inline bool operator==(const TGUID& A, const TGUID& B) { return std::memcmp(&A, &B, sizeof(TGUID)) == 0; }
inline bool operator!=(const TGUID& A, const TGUID& B) { return !(A == B); }

}  // namespace Quorvel
