// Turning a real-valued sample into an integer sample of the frame's buffers:
// the one rounding rule shared by the hosts, the audio files and the ready-made
// components. Rounds to the nearest integer with ties to even (the default
// floating-point mode, which every call into a plug-in or driver restores),
// saturates to [Lo, Hi] and turns NaN into 0.
#pragma once

#include <cmath>
#include <cstdint>

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

}  // namespace Quorvel
