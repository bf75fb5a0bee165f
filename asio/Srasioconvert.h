// Sample conversion between ASIO driver buffers and the frame's audio
// buffers (mono, little-endian integer PCM of 16, packed 24 or 32 bits), and
// the vector primitives it is made of.
//
// The primitives in Quorvel::Ipps carry the names, arguments, status codes
// and results of the Intel IPP signal-processing functions of the same
// names; they are our own implementation. Each runs SSE2 or, where the CPU
// has AVX2 and FMA, AVX2 code (chosen once, on first use), or portable code
// on other processors; all give the same bytes. Buffers may be unaligned.
// The floating-point primitives round to nearest (ties to even) whatever
// rounding mode the calling thread has set.
#pragma once

#include <cstdint>

#include "asio/Asiointerface.h"

namespace Quorvel {
namespace Ipps {

using Ipp8u = uint8_t;
using Ipp16u = uint16_t;
using Ipp32u = uint32_t;
using Ipp64u = uint64_t;
using Ipp32s = int32_t;
using Ipp32f = float;
using Ipp64f = double;

enum IppStatus : int {
  ippStsRoundModeNotSupportedErr = -213,
  ippStsDivByZeroErr = -10,
  ippStsNullPtrErr = -8,
  ippStsSizeErr = -6,  // len < 1
  ippStsNoErr = 0,
};

enum IppRoundMode : int {
  ippRndZero = 0,       // towards zero
  ippRndNear = 1,       // to nearest, ties to even
  ippRndFinancial = 2,  // to nearest, ties away from zero
};

// All primitives: [any thread], no allocation, no locks. len counts elements
// (3-byte elements for _24u). Source and destination do not overlap; the _I
// forms work in place. A failing call writes nothing.

IppStatus ippsCopy_8u(const Ipp8u* pSrc, Ipp8u* pDst, int len) noexcept;
IppStatus ippsSet_8u(Ipp8u val, Ipp8u* pDst, int len) noexcept;
IppStatus ippsSet_32f(Ipp32f val, Ipp32f* pDst, int len) noexcept;
IppStatus ippsSet_64f(Ipp64f val, Ipp64f* pDst, int len) noexcept;

// Reverse the byte order of each element.
IppStatus ippsSwapBytes_16u(const Ipp16u* pSrc, Ipp16u* pDst, int len) noexcept;
IppStatus ippsSwapBytes_24u(const Ipp8u* pSrc, Ipp8u* pDst, int len) noexcept;
IppStatus ippsSwapBytes_32u(const Ipp32u* pSrc, Ipp32u* pDst, int len) noexcept;
IppStatus ippsSwapBytes_32u_I(Ipp32u* pSrcDst, int len) noexcept;
IppStatus ippsSwapBytes_64u_I(Ipp64u* pSrcDst, int len) noexcept;

// Integer to floating point: exact to double; to float rounded to nearest.
IppStatus ippsConvert_32s32f(const Ipp32s* pSrc, Ipp32f* pDst, int len) noexcept;
IppStatus ippsConvert_32s64f(const Ipp32s* pSrc, Ipp64f* pDst, int len) noexcept;

// Floating point to int32: each value times 2^-scaleFactor, rounded by
// rndMode, saturated to the int32 range. Values beyond the range, including
// the infinities, give INT32_MAX (2147483647) or INT32_MIN (-2147483648);
// NaN gives 0. The common case (ippRndNear, scale factor 0) is vectorised;
// other modes and scale factors take a plain loop with the same rules.
IppStatus ippsConvert_32f32s_Sfs(const Ipp32f* pSrc, Ipp32s* pDst, int len, IppRoundMode rndMode,
                                 int scaleFactor) noexcept;
IppStatus ippsConvert_64f32s_Sfs(const Ipp64f* pSrc, Ipp32s* pDst, int len, IppRoundMode rndMode,
                                 int scaleFactor) noexcept;

// In-place multiplication and division by a constant, correctly rounded as a
// single IEEE operation each. Division by zero answers ippStsDivByZeroErr.
IppStatus ippsMulC_32f_I(Ipp32f val, Ipp32f* pSrcDst, int len) noexcept;
IppStatus ippsMulC_64f_I(Ipp64f val, Ipp64f* pSrcDst, int len) noexcept;
IppStatus ippsDivC_32f_I(Ipp32f val, Ipp32f* pSrcDst, int len) noexcept;
IppStatus ippsDivC_64f_I(Ipp64f val, Ipp64f* pSrcDst, int len) noexcept;

// The kernel set the primitives run. Scalar is always available; Sse2 on
// x86-64; Avx2 where the CPU has AVX2 and FMA.
enum class TIppsPath { Scalar, Sse2, Avx2 };
// [any thread] The best set this CPU supports.
TIppsPath GetBestIppsPath() noexcept;
// [any thread] The set in use.
TIppsPath GetIppsPath() noexcept;
// [any thread] Forces a set, for tests and benchmarks; false, and no
// change, when this CPU or build lacks it. Calls already running finish on
// the set they started with.
bool SetIppsPath(TIppsPath Path) noexcept;

}  // namespace Ipps

// ASIO channel conversion, called once per channel per half-buffer by the
// ASIO audio device on the driver's thread ([audio thread]: no allocation,
// no locks). N is the buffer size in samples; N < 1 converts nothing.
//
// They round as the thread's floating-point environment says: to nearest,
// ties to even, in the default environment every thread starts with (and
// then bit for bit alike on every kernel set); checking the mode on every
// call would cost as much as converting 64 samples.
//
// Buffer side: the mono PCM of an audio buffer of ASIOBufferBitsForType(T)
// bits. Float driver types travel as 32-bit integers: 32-bit floats are the
// integer divided by 2^31 (so -2147483648 is exactly -1.0 and +1.0 saturates
// to 2147483647), 64-bit floats the integer divided by 2147483647 (so +1.0 is
// 2147483647 and -2147483648 is -1.0000000004656613); from the driver,
// float samples are rounded to nearest, those beyond full scale (infinities
// included) saturate and NaN becomes 0. The Int32xxx16..24 types are copied
// unshifted. Types that are not converted (DSD and unknown
// values) leave every byte of both buffers untouched.

// 16, 24 or 32: the bits of the audio buffer a channel of this type uses;
// 0 when the type is not converted (the channel gets no buffer).
unsigned ASIOBufferBitsForType(TASIOSampleType Type) noexcept;
// 2, 3, 4 or 8: the bytes of one sample in the driver's buffer; 0 when the
// type is not converted.
unsigned ASIODriverBytesForType(TASIOSampleType Type) noexcept;

// Audio buffer samples into the driver's half-buffer. False when the type is
// not converted.
bool ASIOConvertToDriver(TASIOSampleType Type, const void* BufferData, void* DriverHalf, int32_t N) noexcept;
// Silence into the driver's half-buffer: zero bytes for the integer types,
// 0.0 for the float types (byte-swapped for the big-endian ones). False when
// the type is not converted.
bool ASIOSilenceDriver(TASIOSampleType Type, void* DriverHalf, int32_t N) noexcept;
// The driver's half-buffer into audio buffer samples. The float types are
// scaled (and the big-endian ones swapped) in place in DriverHalf first, so
// its contents change. False when the type is not converted.
bool ASIOConvertFromDriver(TASIOSampleType Type, void* DriverHalf, void* BufferData, int32_t N) noexcept;

}  // namespace Quorvel
