// The kernels behind the Ipps primitives: one table per instruction-set
// level, all giving the same bytes for the same input. Internal to the
// asio_convert library.
//
// Counts are elements and always positive. Buffers may be unaligned. A kernel
// marked "in place" accepts Src == Dst; otherwise Src and Dst do not overlap.
// The floating-point kernels expect round-to-nearest in the thread's
// floating-point environment (the primitives see to it; the ASIO
// conversions rely on the default environment).
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "asio/Asiointerface.h"

namespace Quorvel {
namespace Ipps {
namespace Detail {

// The ASIO channel conversions of one kernel set by sample type value
// (0..ConvertedTypes - 1; null: the type is not converted), each calling the
// set's kernels directly, so that a conversion is one call. Counts are >= 1.
constexpr int32_t ConvertedTypes = ASIOSTInt32LSB24 + 1;
struct TConversions {
  void (*ToDriver[ConvertedTypes])(const void* BufferData, void* DriverHalf, size_t N);
  void (*FromDriver[ConvertedTypes])(void* DriverHalf, void* BufferData, size_t N);
  void (*Silence[ConvertedTypes])(void* DriverHalf, size_t N);
};

// The two scale factors differ on purpose: 32-bit floats use 2^31, 64-bit
// floats 2^31 - 1.
constexpr float Float32Scale = 2147483648.0f;
constexpr double Float64Scale = 2147483647.0;
static_assert(Float32Scale == 2147483648.0f, "dividing by it is multiplying by 1/it only for a power of two");

// A kernel set's conversion table from its kernels: the swaps, and the fused
// float kernels for little- and big-endian driver types. To the driver a
// float type is the integer divided by its scale (for 2^31 a multiplication
// by 2^-31, which is the same) then swapped for big-endian types; from the
// driver it is swapped in place, multiplied by the scale in place and
// rounded. Silence is zero bytes for every type: 0.0 is all zero bytes in
// both float widths, and swapping zero bytes leaves them as they are.
template <auto Swap16, auto Swap24, auto Swap32, auto ToFloat, auto ToFloatMsb, auto ToDouble, auto ToDoubleMsb,
          auto FromFloat, auto FromFloatMsb, auto FromDouble, auto FromDoubleMsb>
constexpr TConversions MakeConversions() {
  TConversions C{};
  const auto Bytes = [](int32_t Type) -> size_t {
    return Type == ASIOSTInt16MSB || Type == ASIOSTInt16LSB   ? 2
           : Type == ASIOSTInt24MSB || Type == ASIOSTInt24LSB ? 3
           : Type == ASIOSTFloat64MSB || Type == ASIOSTFloat64LSB ? 8
                                                                  : 4;
  };
  using TTo = void (*)(const void*, void*, size_t);
  using TFrom = void (*)(void*, void*, size_t);
  const TTo Copy2 = [](const void* B, void* D, size_t N) { std::memcpy(D, B, 2 * N); };
  const TTo Copy3 = [](const void* B, void* D, size_t N) { std::memcpy(D, B, 3 * N); };
  const TTo Copy4 = [](const void* B, void* D, size_t N) { std::memcpy(D, B, 4 * N); };
  const TFrom From2 = [](void* D, void* B, size_t N) { std::memcpy(B, D, 2 * N); };
  const TFrom From3 = [](void* D, void* B, size_t N) { std::memcpy(B, D, 3 * N); };
  const TFrom From4 = [](void* D, void* B, size_t N) { std::memcpy(B, D, 4 * N); };
  const auto Set = [&](int32_t Type, TTo To, TFrom From) {
    C.ToDriver[Type] = To;
    C.FromDriver[Type] = From;
  };
  Set(ASIOSTInt16LSB, Copy2, From2);
  Set(ASIOSTInt24LSB, Copy3, From3);
  for (int32_t T : {ASIOSTInt32LSB, ASIOSTInt32LSB16, ASIOSTInt32LSB18, ASIOSTInt32LSB20, ASIOSTInt32LSB24})
    Set(T, Copy4, From4);
  Set(ASIOSTInt16MSB, [](const void* B, void* D, size_t N) { Swap16(B, D, N); },
      [](void* D, void* B, size_t N) { Swap16(D, B, N); });
  Set(ASIOSTInt24MSB, [](const void* B, void* D, size_t N) { Swap24(B, D, N); },
      [](void* D, void* B, size_t N) { Swap24(D, B, N); });
  for (int32_t T : {ASIOSTInt32MSB, ASIOSTInt32MSB16, ASIOSTInt32MSB18, ASIOSTInt32MSB20, ASIOSTInt32MSB24})
    Set(T, [](const void* B, void* D, size_t N) { Swap32(B, D, N); }, [](void* D, void* B, size_t N) { Swap32(D, B, N); });
  Set(ASIOSTFloat32LSB, [](const void* B, void* D, size_t N) { ToFloat(B, D, N, 1.0f / Float32Scale); },
      [](void* D, void* B, size_t N) { FromFloat(D, B, N, Float32Scale); });
  Set(ASIOSTFloat32MSB, [](const void* B, void* D, size_t N) { ToFloatMsb(B, D, N, 1.0f / Float32Scale); },
      [](void* D, void* B, size_t N) { FromFloatMsb(D, B, N, Float32Scale); });
  Set(ASIOSTFloat64LSB, [](const void* B, void* D, size_t N) { ToDouble(B, D, N, Float64Scale); },
      [](void* D, void* B, size_t N) { FromDouble(D, B, N, Float64Scale); });
  Set(ASIOSTFloat64MSB, [](const void* B, void* D, size_t N) { ToDoubleMsb(B, D, N, Float64Scale); },
      [](void* D, void* B, size_t N) { FromDoubleMsb(D, B, N, Float64Scale); });
  for (int32_t T = 0; T < ConvertedTypes; ++T) {
    if (!C.ToDriver[T]) continue;
    switch (Bytes(T)) {
      case 2: C.Silence[T] = [](void* D, size_t N) { std::memset(D, 0, 2 * N); }; break;
      case 3: C.Silence[T] = [](void* D, size_t N) { std::memset(D, 0, 3 * N); }; break;
      case 8: C.Silence[T] = [](void* D, size_t N) { std::memset(D, 0, 8 * N); }; break;
      default: C.Silence[T] = [](void* D, size_t N) { std::memset(D, 0, 4 * N); }; break;
    }
  }
  return C;
}

struct TKernels {
  void (*Set32)(uint32_t Bits, void* Dst, size_t N);
  void (*Set64)(uint64_t Bits, void* Dst, size_t N);
  void (*Swap16)(const void* Src, void* Dst, size_t N);
  void (*Swap24)(const void* Src, void* Dst, size_t N);
  void (*Swap32)(const void* Src, void* Dst, size_t N);  // in place
  void (*Swap64)(const void* Src, void* Dst, size_t N);  // in place
  void (*Int32ToFloat)(const void* Src, void* Dst, size_t N);
  void (*Int32ToDouble)(const void* Src, void* Dst, size_t N);
  // Nearest integer, ties to even; NaN gives 0; saturated to the int32 range.
  void (*FloatToInt32)(const void* Src, void* Dst, size_t N);
  void (*DoubleToInt32)(const void* Src, void* Dst, size_t N);
  void (*MulFloat)(float C, void* SrcDst, size_t N);
  void (*MulDouble)(double C, void* SrcDst, size_t N);
  void (*DivFloat)(float C, void* SrcDst, size_t N);
  void (*DivDouble)(double C, void* SrcDst, size_t N);
  // Same results as DivDouble, for C an odd integer with 3 <= |C| <= 2^32;
  // may use a reciprocal with a correction step, exact for such divisors.
  void (*DivDoubleByOddInteger)(double C, void* SrcDst, size_t N);

  // The ASIO float conversions in one pass, giving the bytes of the
  // primitive sequences they stand for. Index 1 adds the byte swap of the
  // float side (big-endian driver types).
  // Int32ToFloat, MulFloat(Scale), [Swap32 in place].
  void (*IntToFloatScaled[2])(const void* Src, void* Dst, size_t N, float Scale);
  // Int32ToDouble, DivDoubleByOddInteger(Divisor), [Swap64 in place].
  void (*IntToDoubleDivided[2])(const void* Src, void* Dst, size_t N, double Divisor);
  // [Swap32 in place], MulFloat(Scale) in place, FloatToInt32 into Dst.
  void (*ScaledFloatToInt[2])(void* SrcDst, void* Dst, size_t N, float Scale);
  // [Swap64 in place], MulDouble(Scale) in place, DoubleToInt32 into Dst.
  void (*ScaledDoubleToInt[2])(void* SrcDst, void* Dst, size_t N, double Scale);
  // The ASIO channel conversions made of these kernels.
  const TConversions* Conversions;
};

extern const TKernels ScalarKernels;
// x86-64 builds only.
extern const TKernels Sse2Kernels;
extern const TKernels Avx2Kernels;
// True when the CPU and the OS support AVX2 and FMA (x86-64 builds only).
bool CpuHasAvx2AndFma() noexcept;

// Float (Double false) or double values times 2^-ScaleFactor, rounded by Mode
// (0 towards zero, 1 to nearest even, 2 to nearest away from zero), NaN 0,
// saturated to int32: the general form of FloatToInt32 and DoubleToInt32.
void ScaledToInt32(const void* Src, bool Double, void* Dst, size_t N, int Mode, int ScaleFactor);

// One packed 3-byte sample swapped (the ends of the vector Swap24 kernels).
inline void SwapOne24(const uint8_t* S, uint8_t* D) {
  const uint8_t B0 = S[0], B2 = S[2];
  D[1] = S[1];
  D[0] = B2;
  D[2] = B0;
}

// Byte masks for swapping packed 3-byte samples with vectors of VecBytes
// bytes, in blocks of three vectors: Mask[V][P][J] selects byte J of vector V
// of a block when its position in the block is P modulo 3.
struct TSwap24Masks {
  alignas(32) uint8_t Mask[3][3][32];
};
constexpr TSwap24Masks MakeSwap24Masks(size_t VecBytes) {
  TSwap24Masks M{};
  for (size_t V = 0; V < 3; ++V)
    for (size_t P = 0; P < 3; ++P)
      for (size_t J = 0; J < VecBytes; ++J) M.Mask[V][P][J] = (V * VecBytes + J) % 3 == P ? 0xFF : 0x00;
  return M;
}

}  // namespace Detail
}  // namespace Ipps
}  // namespace Quorvel
