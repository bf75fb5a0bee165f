#include "asio/Srasioconvert.h"

#include <atomic>
#include <cfenv>
#include <cstring>
#include <type_traits>

#include "asio/Srasioconvertkernels.h"

#if QUORVEL_ASIO_CONVERT_X86
#include <xmmintrin.h>
#endif

namespace Quorvel {
namespace Ipps {

using Detail::TKernels;

namespace {

// Round-to-nearest for the duration of a primitive's call, whatever the
// calling thread has set; the caller's mode is restored afterwards. The
// kernels are out-of-line calls, so the compiler cannot move their
// arithmetic across the mode changes. (Reading the SSE control register
// costs about as much as converting 64 samples, which is why the per-channel
// ASIO conversions do without.)
class TNearestRounding {
 public:
#if QUORVEL_ASIO_CONVERT_X86
  TNearestRounding() noexcept : FSaved(_mm_getcsr()) {
    if (FSaved & RoundingBits) _mm_setcsr(FSaved & ~RoundingBits);
  }
  ~TNearestRounding() {
    if (FSaved & RoundingBits) _mm_setcsr(FSaved);
  }

 private:
  static constexpr unsigned RoundingBits = 0x6000;  // MXCSR.RC; 00 is to nearest
  unsigned FSaved;
#else
  TNearestRounding() noexcept : FSaved(std::fegetround()) {
    if (FSaved != FE_TONEAREST) std::fesetround(FE_TONEAREST);
  }
  ~TNearestRounding() {
    if (FSaved != FE_TONEAREST) std::fesetround(FSaved);
  }

 private:
  int FSaved;
#endif
  TNearestRounding(const TNearestRounding&) = delete;
  TNearestRounding& operator=(const TNearestRounding&) = delete;
};

const TKernels* KernelsFor(TIppsPath Path) noexcept {
  switch (Path) {
    case TIppsPath::Scalar:
      return &Detail::ScalarKernels;
#if QUORVEL_ASIO_CONVERT_X86
    case TIppsPath::Sse2:
      return &Detail::Sse2Kernels;
    case TIppsPath::Avx2:
      return Detail::CpuHasAvx2AndFma() ? &Detail::Avx2Kernels : nullptr;
#else
    default:
      break;
#endif
  }
  return nullptr;
}

std::atomic<const TKernels*> GKernels{nullptr};

#if defined(_MSC_VER)
#define QUORVEL_NOINLINE __declspec(noinline)
#else
#define QUORVEL_NOINLINE __attribute__((noinline))
#endif

// The kernel table, chosen on first use; racing first uses pick the same
// one. Out of line: the common path then needs no registers saved for it.
QUORVEL_NOINLINE const TKernels& ChooseKernels() noexcept {
  const TKernels* Best = KernelsFor(GetBestIppsPath());
  const TKernels* Expected = nullptr;
  if (GKernels.compare_exchange_strong(Expected, Best, std::memory_order_acq_rel)) return *Best;
  return *Expected;
}

const TKernels& Kernels() noexcept {
  const TKernels* K = GKernels.load(std::memory_order_acquire);
  return K != nullptr ? *K : ChooseKernels();
}

template <typename T>
uint64_t BitsOf(T V) {
  typename std::conditional<sizeof(T) == 4, uint32_t, uint64_t>::type B;
  std::memcpy(&B, &V, sizeof B);
  return B;
}

// A normal power of two whose reciprocal is normal too: dividing by it and
// multiplying by its reciprocal round the same real number, so they give
// the same result for every input.
bool HasExactReciprocal(float C) {
  const uint64_t B = BitsOf(C);
  const uint64_t Exponent = (B >> 23) & 0xFF;
  return (B & 0x7FFFFF) == 0 && Exponent >= 1 && Exponent <= 253;
}
bool HasExactReciprocal(double C) {
  const uint64_t B = BitsOf(C);
  const uint64_t Exponent = (B >> 52) & 0x7FF;
  return (B & 0xFFFFFFFFFFFFFull) == 0 && Exponent >= 1 && Exponent <= 2045;
}
bool IsSmallOddInteger(double C) {
  const double A = C < 0 ? -C : C;
  if (!(A >= 3.0 && A <= 4294967296.0)) return false;
  const uint64_t I = static_cast<uint64_t>(A);
  return static_cast<double>(I) == A && (I & 1) != 0;
}

// Callers hold a TNearestRounding.
void DivideFloats(const TKernels& K, float C, void* P, size_t N) {
  if (HasExactReciprocal(C))
    K.MulFloat(1.0f / C, P, N);
  else
    K.DivFloat(C, P, N);
}
void DivideDoubles(const TKernels& K, double C, void* P, size_t N) {
  if (HasExactReciprocal(C))
    K.MulDouble(1.0 / C, P, N);
  else if (IsSmallOddInteger(C))
    K.DivDoubleByOddInteger(C, P, N);
  else
    K.DivDouble(C, P, N);
}

IppStatus Check(const void* A, int Len) { return A == nullptr ? ippStsNullPtrErr : Len < 1 ? ippStsSizeErr : ippStsNoErr; }
IppStatus Check(const void* A, const void* B, int Len) { return B == nullptr ? ippStsNullPtrErr : Check(A, Len); }

size_t Count(int Len) { return static_cast<size_t>(Len); }

}  // namespace

TIppsPath GetBestIppsPath() noexcept {
  if (KernelsFor(TIppsPath::Avx2) != nullptr) return TIppsPath::Avx2;
  if (KernelsFor(TIppsPath::Sse2) != nullptr) return TIppsPath::Sse2;
  return TIppsPath::Scalar;
}

TIppsPath GetIppsPath() noexcept {
  const TKernels* K = &Kernels();
  if (K == KernelsFor(TIppsPath::Avx2)) return TIppsPath::Avx2;
  if (K == KernelsFor(TIppsPath::Sse2)) return TIppsPath::Sse2;
  return TIppsPath::Scalar;
}

bool SetIppsPath(TIppsPath Path) noexcept {
  const TKernels* K = KernelsFor(Path);
  if (K == nullptr) return false;
  GKernels.store(K, std::memory_order_release);
  return true;
}

IppStatus ippsCopy_8u(const Ipp8u* pSrc, Ipp8u* pDst, int len) noexcept {
  const IppStatus S = Check(pSrc, pDst, len);
  if (S == ippStsNoErr) std::memcpy(pDst, pSrc, Count(len));
  return S;
}

IppStatus ippsSet_8u(Ipp8u val, Ipp8u* pDst, int len) noexcept {
  const IppStatus S = Check(pDst, len);
  if (S == ippStsNoErr) std::memset(pDst, val, Count(len));
  return S;
}

IppStatus ippsSet_32f(Ipp32f val, Ipp32f* pDst, int len) noexcept {
  const IppStatus S = Check(pDst, len);
  if (S != ippStsNoErr) return S;
  const uint32_t Bits = static_cast<uint32_t>(BitsOf(val));
  if (Bits == 0)
    std::memset(pDst, 0, 4 * Count(len));
  else
    Kernels().Set32(Bits, pDst, Count(len));
  return S;
}

IppStatus ippsSet_64f(Ipp64f val, Ipp64f* pDst, int len) noexcept {
  const IppStatus S = Check(pDst, len);
  if (S != ippStsNoErr) return S;
  const uint64_t Bits = BitsOf(val);
  if (Bits == 0)
    std::memset(pDst, 0, 8 * Count(len));
  else
    Kernels().Set64(Bits, pDst, Count(len));
  return S;
}

IppStatus ippsSwapBytes_16u(const Ipp16u* pSrc, Ipp16u* pDst, int len) noexcept {
  const IppStatus S = Check(pSrc, pDst, len);
  if (S == ippStsNoErr) Kernels().Swap16(pSrc, pDst, Count(len));
  return S;
}

IppStatus ippsSwapBytes_24u(const Ipp8u* pSrc, Ipp8u* pDst, int len) noexcept {
  const IppStatus S = Check(pSrc, pDst, len);
  if (S == ippStsNoErr) Kernels().Swap24(pSrc, pDst, Count(len));
  return S;
}

IppStatus ippsSwapBytes_32u(const Ipp32u* pSrc, Ipp32u* pDst, int len) noexcept {
  const IppStatus S = Check(pSrc, pDst, len);
  if (S == ippStsNoErr) Kernels().Swap32(pSrc, pDst, Count(len));
  return S;
}

IppStatus ippsSwapBytes_32u_I(Ipp32u* pSrcDst, int len) noexcept {
  const IppStatus S = Check(pSrcDst, len);
  if (S == ippStsNoErr) Kernels().Swap32(pSrcDst, pSrcDst, Count(len));
  return S;
}

IppStatus ippsSwapBytes_64u_I(Ipp64u* pSrcDst, int len) noexcept {
  const IppStatus S = Check(pSrcDst, len);
  if (S == ippStsNoErr) Kernels().Swap64(pSrcDst, pSrcDst, Count(len));
  return S;
}

IppStatus ippsConvert_32s32f(const Ipp32s* pSrc, Ipp32f* pDst, int len) noexcept {
  const IppStatus S = Check(pSrc, pDst, len);
  if (S != ippStsNoErr) return S;
  TNearestRounding R;
  Kernels().Int32ToFloat(pSrc, pDst, Count(len));
  return S;
}

IppStatus ippsConvert_32s64f(const Ipp32s* pSrc, Ipp64f* pDst, int len) noexcept {
  const IppStatus S = Check(pSrc, pDst, len);
  if (S == ippStsNoErr) Kernels().Int32ToDouble(pSrc, pDst, Count(len));
  return S;
}

IppStatus ippsConvert_32f32s_Sfs(const Ipp32f* pSrc, Ipp32s* pDst, int len, IppRoundMode rndMode,
                                 int scaleFactor) noexcept {
  const IppStatus S = Check(pSrc, pDst, len);
  if (S != ippStsNoErr) return S;
  if (rndMode != ippRndZero && rndMode != ippRndNear && rndMode != ippRndFinancial)
    return ippStsRoundModeNotSupportedErr;
  TNearestRounding R;
  if (rndMode == ippRndNear && scaleFactor == 0)
    Kernels().FloatToInt32(pSrc, pDst, Count(len));
  else
    Detail::ScaledToInt32(pSrc, false, pDst, Count(len), rndMode, scaleFactor);
  return S;
}

IppStatus ippsConvert_64f32s_Sfs(const Ipp64f* pSrc, Ipp32s* pDst, int len, IppRoundMode rndMode,
                                 int scaleFactor) noexcept {
  const IppStatus S = Check(pSrc, pDst, len);
  if (S != ippStsNoErr) return S;
  if (rndMode != ippRndZero && rndMode != ippRndNear && rndMode != ippRndFinancial)
    return ippStsRoundModeNotSupportedErr;
  TNearestRounding R;
  if (rndMode == ippRndNear && scaleFactor == 0)
    Kernels().DoubleToInt32(pSrc, pDst, Count(len));
  else
    Detail::ScaledToInt32(pSrc, true, pDst, Count(len), rndMode, scaleFactor);
  return S;
}

IppStatus ippsMulC_32f_I(Ipp32f val, Ipp32f* pSrcDst, int len) noexcept {
  const IppStatus S = Check(pSrcDst, len);
  if (S != ippStsNoErr) return S;
  TNearestRounding R;
  Kernels().MulFloat(val, pSrcDst, Count(len));
  return S;
}

IppStatus ippsMulC_64f_I(Ipp64f val, Ipp64f* pSrcDst, int len) noexcept {
  const IppStatus S = Check(pSrcDst, len);
  if (S != ippStsNoErr) return S;
  TNearestRounding R;
  Kernels().MulDouble(val, pSrcDst, Count(len));
  return S;
}

IppStatus ippsDivC_32f_I(Ipp32f val, Ipp32f* pSrcDst, int len) noexcept {
  const IppStatus S = Check(pSrcDst, len);
  if (S != ippStsNoErr) return S;
  if (val == 0.0f) return ippStsDivByZeroErr;
  TNearestRounding R;
  DivideFloats(Kernels(), val, pSrcDst, Count(len));
  return S;
}

IppStatus ippsDivC_64f_I(Ipp64f val, Ipp64f* pSrcDst, int len) noexcept {
  const IppStatus S = Check(pSrcDst, len);
  if (S != ippStsNoErr) return S;
  if (val == 0.0) return ippStsDivByZeroErr;
  TNearestRounding R;
  DivideDoubles(Kernels(), val, pSrcDst, Count(len));
  return S;
}

}  // namespace Ipps

namespace {

// What one sample type takes: the buffer bits and the driver's bytes a sample.
struct TSampleInfo {
  uint8_t BufferBits;
  uint8_t DriverBytes;
};

constexpr TSampleInfo NotConverted = {0, 0}, Int16 = {16, 2}, Int24 = {24, 3}, Int32 = {32, 4}, Float64 = {32, 8};

// By sample type value, up to ASIOSTInt32LSB24 (27); the rest are not converted.
constexpr TSampleInfo SampleInfos[28] = {
    Int16, Int24, Int32, Int32, Float64, NotConverted, NotConverted, NotConverted,
    Int32, Int32, Int32, Int32, NotConverted, NotConverted, NotConverted, NotConverted,
    Int16, Int24, Int32, Int32, Float64, NotConverted, NotConverted, NotConverted,
    Int32, Int32, Int32, Int32,
};
static_assert(ASIOSTInt16MSB == 0 && ASIOSTFloat64MSB == 4 && ASIOSTInt32MSB16 == 8 && ASIOSTInt32MSB24 == 11 &&
                  ASIOSTInt16LSB == 16 && ASIOSTFloat64LSB == 20 && ASIOSTInt32LSB16 == 24 && ASIOSTInt32LSB24 == 27,
              "the table follows the sample type values");

const TSampleInfo& SampleInfo(TASIOSampleType Type) noexcept {
  return Type >= 0 && Type < 28 ? SampleInfos[Type] : NotConverted;
}

// First calls: choose the kernels, then convert (tail calls, so that the
// common path keeps nothing across a call).
QUORVEL_NOINLINE bool ToDriverFirst(TASIOSampleType Type, const void* BufferData, void* DriverHalf, int32_t N) noexcept {
  Ipps::ChooseKernels();
  return ASIOConvertToDriver(Type, BufferData, DriverHalf, N);
}
QUORVEL_NOINLINE bool SilenceFirst(TASIOSampleType Type, void* DriverHalf, int32_t N) noexcept {
  Ipps::ChooseKernels();
  return ASIOSilenceDriver(Type, DriverHalf, N);
}
QUORVEL_NOINLINE bool FromDriverFirst(TASIOSampleType Type, void* DriverHalf, void* BufferData, int32_t N) noexcept {
  Ipps::ChooseKernels();
  return ASIOConvertFromDriver(Type, DriverHalf, BufferData, N);
}

bool Converted(TASIOSampleType Type) noexcept {
  return static_cast<uint32_t>(Type) < static_cast<uint32_t>(Ipps::Detail::ConvertedTypes);
}

}  // namespace

unsigned ASIOBufferBitsForType(TASIOSampleType Type) noexcept { return SampleInfo(Type).BufferBits; }

unsigned ASIODriverBytesForType(TASIOSampleType Type) noexcept { return SampleInfo(Type).DriverBytes; }

// One lookup in the chosen set's conversion table, then one call (see
// MakeConversions for what each type runs).
bool ASIOConvertToDriver(TASIOSampleType Type, const void* BufferData, void* DriverHalf, int32_t N) noexcept {
  if (!Converted(Type)) return false;
  const Ipps::Detail::TKernels* K = Ipps::GKernels.load(std::memory_order_acquire);
  if (K == nullptr) return ToDriverFirst(Type, BufferData, DriverHalf, N);
  const auto Fn = K->Conversions->ToDriver[Type];
  if (!Fn) return false;
  if (N > 0) Fn(BufferData, DriverHalf, static_cast<size_t>(N));
  return true;
}

bool ASIOSilenceDriver(TASIOSampleType Type, void* DriverHalf, int32_t N) noexcept {
  if (!Converted(Type)) return false;
  const Ipps::Detail::TKernels* K = Ipps::GKernels.load(std::memory_order_acquire);
  if (K == nullptr) return SilenceFirst(Type, DriverHalf, N);
  const auto Fn = K->Conversions->Silence[Type];
  if (!Fn) return false;
  if (N > 0) Fn(DriverHalf, static_cast<size_t>(N));
  return true;
}

bool ASIOConvertFromDriver(TASIOSampleType Type, void* DriverHalf, void* BufferData, int32_t N) noexcept {
  if (!Converted(Type)) return false;
  const Ipps::Detail::TKernels* K = Ipps::GKernels.load(std::memory_order_acquire);
  if (K == nullptr) return FromDriverFirst(Type, DriverHalf, BufferData, N);
  const auto Fn = K->Conversions->FromDriver[Type];
  if (!Fn) return false;
  if (N > 0) Fn(DriverHalf, BufferData, static_cast<size_t>(N));
  return true;
}

}  // namespace Quorvel
