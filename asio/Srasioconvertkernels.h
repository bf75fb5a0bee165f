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

namespace Quorvel {
namespace Ipps {
namespace Detail {

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
