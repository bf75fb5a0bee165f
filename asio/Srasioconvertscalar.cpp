// Portable kernels: the reference the vector kernels must match, their tails,
// and the whole implementation where no vector kernels are built.
#include <cmath>
#include <cstdint>
#include <cstring>

#include "asio/Srasioconvertkernels.h"

namespace Quorvel {
namespace Ipps {
namespace Detail {
namespace {

// Element access through memcpy: the buffers may be unaligned.
template <typename T>
T Get(const void* Base, size_t I) {
  T V;
  std::memcpy(&V, static_cast<const uint8_t*>(Base) + I * sizeof(T), sizeof(T));
  return V;
}
template <typename T>
void Put(void* Base, size_t I, T V) {
  std::memcpy(static_cast<uint8_t*>(Base) + I * sizeof(T), &V, sizeof(T));
}

uint16_t Swapped(uint16_t V) { return static_cast<uint16_t>((V << 8) | (V >> 8)); }
uint32_t Swapped(uint32_t V) {
  return (V << 24) | ((V << 8) & 0x00FF0000u) | ((V >> 8) & 0x0000FF00u) | (V >> 24);
}
uint64_t Swapped(uint64_t V) {
  return (static_cast<uint64_t>(Swapped(static_cast<uint32_t>(V))) << 32) | Swapped(static_cast<uint32_t>(V >> 32));
}

template <typename T>
void Swap(const void* Src, void* Dst, size_t N) {
  for (size_t I = 0; I < N; ++I) Put<T>(Dst, I, Swapped(Get<T>(Src, I)));
}

void Set32(uint32_t Bits, void* Dst, size_t N) {
  for (size_t I = 0; I < N; ++I) Put(Dst, I, Bits);
}
void Set64(uint64_t Bits, void* Dst, size_t N) {
  for (size_t I = 0; I < N; ++I) Put(Dst, I, Bits);
}

void Swap24(const void* Src, void* Dst, size_t N) {
  const uint8_t* S = static_cast<const uint8_t*>(Src);
  uint8_t* D = static_cast<uint8_t*>(Dst);
  for (size_t I = 0; I < 3 * N; I += 3) {
    const uint8_t B0 = S[I], B2 = S[I + 2];
    D[I] = B2;
    D[I + 1] = S[I + 1];
    D[I + 2] = B0;
  }
}

void Int32ToFloat(const void* Src, void* Dst, size_t N) {
  for (size_t I = 0; I < N; ++I) Put(Dst, I, static_cast<float>(Get<int32_t>(Src, I)));
}
void Int32ToDouble(const void* Src, void* Dst, size_t N) {
  for (size_t I = 0; I < N; ++I) Put(Dst, I, static_cast<double>(Get<int32_t>(Src, I)));
}

// Nearest integer, ties to even, of a double within the int32 range,
// computed exactly from the truncation, so that no rounding mode and no
// library's rounding function (some use the x87 unit and its own mode) has
// a say.
int32_t NearestEven(double X) {
  const int64_t I = static_cast<int64_t>(X);  // truncates
  const double Fraction = X - static_cast<double>(I);  // exact
  const int64_t Odd = I & 1;
  if (Fraction > 0.5 || (Fraction == 0.5 && Odd)) return static_cast<int32_t>(I + 1);
  if (Fraction < -0.5 || (Fraction == -0.5 && Odd)) return static_cast<int32_t>(I - 1);
  return static_cast<int32_t>(I);
}

// Everything at or beyond 2^31 (the first float past INT32_MAX) saturates.
int32_t NearestInt32(float X) {
  if (!(X == X)) return 0;
  if (X >= 2147483648.0f) return INT32_MAX;
  if (X <= -2147483648.0f) return INT32_MIN;
  return NearestEven(X);
}
// Doubles hold INT32_MAX exactly: anything at or above it saturates, which
// also covers the values between it and 2^31 that round up to 2^31.
int32_t NearestInt32(double X) {
  if (!(X == X)) return 0;
  if (X >= 2147483647.0) return INT32_MAX;
  if (X <= -2147483648.0) return INT32_MIN;
  return NearestEven(X);
}

void FloatToInt32(const void* Src, void* Dst, size_t N) {
  for (size_t I = 0; I < N; ++I) Put(Dst, I, NearestInt32(Get<float>(Src, I)));
}
void DoubleToInt32(const void* Src, void* Dst, size_t N) {
  for (size_t I = 0; I < N; ++I) Put(Dst, I, NearestInt32(Get<double>(Src, I)));
}

template <typename T>
void Mul(T C, void* SrcDst, size_t N) {
  for (size_t I = 0; I < N; ++I) Put<T>(SrcDst, I, Get<T>(SrcDst, I) * C);
}
template <typename T>
void Div(T C, void* SrcDst, size_t N) {
  for (size_t I = 0; I < N; ++I) Put<T>(SrcDst, I, Get<T>(SrcDst, I) / C);
}

template <bool Swapped>
void IntToFloatScaled(const void* Src, void* Dst, size_t N, float Scale) {
  Int32ToFloat(Src, Dst, N);
  Mul(Scale, Dst, N);
  if (Swapped) Swap<uint32_t>(Dst, Dst, N);
}
template <bool Swapped>
void IntToDoubleDivided(const void* Src, void* Dst, size_t N, double Divisor) {
  Int32ToDouble(Src, Dst, N);
  Div(Divisor, Dst, N);
  if (Swapped) Swap<uint64_t>(Dst, Dst, N);
}
template <bool Swapped>
void ScaledFloatToInt(void* SrcDst, void* Dst, size_t N, float Scale) {
  if (Swapped) Swap<uint32_t>(SrcDst, SrcDst, N);
  Mul(Scale, SrcDst, N);
  FloatToInt32(SrcDst, Dst, N);
}
template <bool Swapped>
void ScaledDoubleToInt(void* SrcDst, void* Dst, size_t N, double Scale) {
  if (Swapped) Swap<uint64_t>(SrcDst, SrcDst, N);
  Mul(Scale, SrcDst, N);
  DoubleToInt32(SrcDst, Dst, N);
}

// X rounded by Mode (0 towards zero, 1 to nearest even, 2 to nearest away
// from zero) and saturated; X is not NaN.
int32_t RoundedInt32(double X, int Mode) {
  if (X >= 2147483647.0) return INT32_MAX;
  if (X <= -2147483648.0) return INT32_MIN;
  if (Mode == 1) return NearestEven(X);
  const int64_t I = static_cast<int64_t>(X);
  if (Mode == 0) return static_cast<int32_t>(I);
  const double Fraction = X - static_cast<double>(I);
  return static_cast<int32_t>(Fraction >= 0.5 ? I + 1 : Fraction <= -0.5 ? I - 1 : I);
}

// The ASIO conversions of this set, each one direct call into its kernels.
constexpr TConversions ScalarConversions =
    MakeConversions<Swap<uint16_t>, Swap24, Swap<uint32_t>, IntToFloatScaled<false>, IntToFloatScaled<true>, IntToDoubleDivided<false>,
                    IntToDoubleDivided<true>, ScaledFloatToInt<false>, ScaledFloatToInt<true>,
                    ScaledDoubleToInt<false>, ScaledDoubleToInt<true>>();

}  // namespace

void ScaledToInt32(const void* Src, bool Double, void* Dst, size_t N, int Mode, int ScaleFactor) {
  // Beyond these factors every value saturates or becomes 0 anyway.
  const int Shift = -(ScaleFactor < -4000 ? -4000 : ScaleFactor > 4000 ? 4000 : ScaleFactor);
  for (size_t I = 0; I < N; ++I) {
    double X = Double ? Get<double>(Src, I) : static_cast<double>(Get<float>(Src, I));
    int32_t R = 0;
    if (X == X) {
      // Exact, except where it overflows (saturates below) or drops under
      // 2^-1022 (rounds to 0 below in every mode).
      X = std::ldexp(X, Shift);
      R = RoundedInt32(X, Mode);
    }
    Put(Dst, I, R);
  }
}

const TKernels ScalarKernels = {
    Set32,        Set64,         Swap<uint16_t>, Swap24,      Swap<uint32_t>, Swap<uint64_t>,
    Int32ToFloat, Int32ToDouble, FloatToInt32,   DoubleToInt32, Mul<float>,   Mul<double>,
    Div<float>,   Div<double>,   Div<double>,
    {IntToFloatScaled<false>, IntToFloatScaled<true>},
    {IntToDoubleDivided<false>, IntToDoubleDivided<true>},
    {ScaledFloatToInt<false>, ScaledFloatToInt<true>},
    {ScaledDoubleToInt<false>, ScaledDoubleToInt<true>},
    &ScalarConversions,
};

}  // namespace Detail
}  // namespace Ipps
}  // namespace Quorvel
