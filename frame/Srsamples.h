// Turning a real-valued sample into an integer sample of the frame's buffers:
// the one rounding rule shared by the hosts, the audio files and the ready-made
// components. Rounds to the nearest integer with ties to even (the default
// floating-point mode, which every call into a plug-in or driver restores),
// saturates to [Lo, Hi] and turns NaN into 0.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstring>

namespace Quorvel {

// [any thread] Value is already scaled to the integer range.
inline int32_t RoundSample(double Value, double Lo, double Hi) noexcept {
  const double V = std::nearbyint(Value);
  if (V != V) return 0;
  return static_cast<int32_t>(V < Lo ? Lo : (V > Hi ? Hi : V));
}

// [any thread] Value in [-1, 1) full scale, as float files carry it, to a
// 32-bit sample; beyond full scale it clips rather than wraps.
inline int32_t RoundFullScale32(double Value) noexcept {
  return RoundSample(Value * 2147483648.0, -2147483648.0, 2147483647.0);
}

// [any thread] One little-endian integer sample of 16, 24 or 32 bits as the
// frame's buffers store it (other widths go through the buffer's accessors).
template <unsigned Bits>
inline int32_t ReadPcmSample(const uint8_t* P) noexcept {
  static_assert(Bits == 16 || Bits == 24 || Bits == 32);
  if constexpr (Bits == 16) {
    int16_t V;
    std::memcpy(&V, P, 2);
    return V;
  } else if constexpr (Bits == 24) {
    return static_cast<int32_t>(static_cast<uint32_t>(P[0]) << 8 | static_cast<uint32_t>(P[1]) << 16 |
                                static_cast<uint32_t>(P[2]) << 24) >> 8;
  } else {
    int32_t V;
    std::memcpy(&V, P, 4);
    return V;
  }
}

template <unsigned Bits>
inline void WritePcmSample(uint8_t* P, int32_t V) noexcept {
  static_assert(Bits == 16 || Bits == 24 || Bits == 32);
  if constexpr (Bits == 16) {
    const int16_t S = static_cast<int16_t>(V);
    std::memcpy(P, &S, 2);
  } else if constexpr (Bits == 24) {
    P[0] = static_cast<uint8_t>(V);
    P[1] = static_cast<uint8_t>(V >> 8);
    P[2] = static_cast<uint8_t>(V >> 16);
  } else {
    std::memcpy(P, &V, 4);
  }
}

}  // namespace Quorvel
