// SSE2 kernels (every x86-64 CPU has them) and the CPU query that decides
// whether the AVX2 kernels may run.
#include <emmintrin.h>

#include <cstdint>

#include "asio/Srasioconvertkernels.h"

#if defined(_MSC_VER)
#include <intrin.h>
#endif

namespace Quorvel {
namespace Ipps {
namespace Detail {
namespace {

const uint8_t* At(const void* P, size_t Offset) { return static_cast<const uint8_t*>(P) + Offset; }
uint8_t* At(void* P, size_t Offset) { return static_cast<uint8_t*>(P) + Offset; }
__m128i Load(const uint8_t* P) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(P)); }
void Store(uint8_t* P, __m128i V) { _mm_storeu_si128(reinterpret_cast<__m128i*>(P), V); }
__m128 LoadPs(const uint8_t* P) { return _mm_castsi128_ps(Load(P)); }
__m128d LoadPd(const uint8_t* P) { return _mm_castsi128_pd(Load(P)); }

// Calls Body(I) for I = 0, Step, 2 Step, ... while a whole group fits; answers
// the number of elements done.
template <size_t Step, typename Body>
size_t Groups(size_t N, Body&& F) {
  size_t I = 0;
  for (; I + 2 * Step <= N; I += 2 * Step) {  // two groups a round: less loop overhead
    F(I);
    F(I + Step);
  }
  if (I + Step <= N) {
    F(I);
    I += Step;
  }
  return I;
}

__m128i Swap16x8(__m128i V) { return _mm_or_si128(_mm_slli_epi16(V, 8), _mm_srli_epi16(V, 8)); }
__m128i Swap32x4(__m128i V) {
  V = _mm_shufflehi_epi16(_mm_shufflelo_epi16(V, 0xB1), 0xB1);  // swap the 16-bit halves
  return Swap16x8(V);
}
__m128i Swap64x2(__m128i V) {
  V = _mm_shufflehi_epi16(_mm_shufflelo_epi16(V, 0x1B), 0x1B);  // reverse the 16-bit quarters
  return Swap16x8(V);
}

void Set32(uint32_t Bits, void* Dst, size_t N) {
  const __m128i V = _mm_set1_epi32(static_cast<int32_t>(Bits));
  const size_t Done = Groups<4>(N, [&](size_t I) { Store(At(Dst, 4 * I), V); });
  if (Done < N) ScalarKernels.Set32(Bits, At(Dst, 4 * Done), N - Done);
}
void Set64(uint64_t Bits, void* Dst, size_t N) {
  const __m128i V = _mm_set1_epi64x(static_cast<int64_t>(Bits));
  const size_t Done = Groups<2>(N, [&](size_t I) { Store(At(Dst, 8 * I), V); });
  if (Done < N) ScalarKernels.Set64(Bits, At(Dst, 8 * Done), N - Done);
}

void Swap16(const void* Src, void* Dst, size_t N) {
  const size_t Done = Groups<8>(N, [&](size_t I) { Store(At(Dst, 2 * I), Swap16x8(Load(At(Src, 2 * I)))); });
  if (Done < N) ScalarKernels.Swap16(At(Src, 2 * Done), At(Dst, 2 * Done), N - Done);
}
void Swap32(const void* Src, void* Dst, size_t N) {
  const size_t Done = Groups<4>(N, [&](size_t I) { Store(At(Dst, 4 * I), Swap32x4(Load(At(Src, 4 * I)))); });
  if (Done < N) ScalarKernels.Swap32(At(Src, 4 * Done), At(Dst, 4 * Done), N - Done);
}
void Swap64(const void* Src, void* Dst, size_t N) {
  const size_t Done = Groups<2>(N, [&](size_t I) { Store(At(Dst, 8 * I), Swap64x2(Load(At(Src, 8 * I)))); });
  if (Done < N) ScalarKernels.Swap64(At(Src, 8 * Done), At(Dst, 8 * Done), N - Done);
}

// Packed 3-byte samples: output byte J is input byte J+2, J or J-2 by the
// position of J in its sample, so each output vector is three unaligned loads
// masked and merged. Blocks of three vectors (16 samples) keep the mask
// pattern fixed. The loads reach two bytes either side of a block, so the
// first and the last sample are swapped apart, and a last block overlapping
// the one before it ends the run (Src and Dst do not overlap, so writing a
// byte twice writes the same value).
constexpr TSwap24Masks Swap24Masks = MakeSwap24Masks(16);

void Swap24(const void* Src, void* Dst, size_t N) {
  constexpr size_t BlockBytes = 48, MinSamples = 18;
  if (N < MinSamples) {
    ScalarKernels.Swap24(Src, Dst, N);
    return;
  }
  const uint8_t* S = static_cast<const uint8_t*>(Src);
  uint8_t* D = static_cast<uint8_t*>(Dst);
  __m128i M[3][3];
  for (int V = 0; V < 3; ++V)
    for (int P = 0; P < 3; ++P) M[V][P] = Load(Swap24Masks.Mask[V][P]);
  auto Block = [&](size_t O) {  // O: a multiple of 3, 3 <= O, O + 50 <= bytes
    for (int V = 0; V < 3; ++V) {
      const size_t P = O + 16 * V;
      const __m128i Lo = _mm_and_si128(Load(S + P + 2), M[V][0]);
      const __m128i Mid = _mm_and_si128(Load(S + P), M[V][1]);
      const __m128i Hi = _mm_and_si128(Load(S + P - 2), M[V][2]);
      Store(D + P, _mm_or_si128(_mm_or_si128(Lo, Mid), Hi));
    }
  };
  const size_t Bytes = 3 * N;
  SwapOne24(S, D);
  for (size_t O = 3; O + BlockBytes + 2 <= Bytes; O += BlockBytes) Block(O);
  Block((Bytes - BlockBytes - 2) / 3 * 3);
  SwapOne24(S + Bytes - 3, D + Bytes - 3);
}

void Int32ToFloat(const void* Src, void* Dst, size_t N) {
  const size_t Done = Groups<4>(N, [&](size_t I) {
    Store(At(Dst, 4 * I), _mm_castps_si128(_mm_cvtepi32_ps(Load(At(Src, 4 * I)))));
  });
  if (Done < N) ScalarKernels.Int32ToFloat(At(Src, 4 * Done), At(Dst, 4 * Done), N - Done);
}
void Int32ToDouble(const void* Src, void* Dst, size_t N) {
  const size_t Done = Groups<4>(N, [&](size_t I) {
    const __m128i V = Load(At(Src, 4 * I));
    Store(At(Dst, 8 * I), _mm_castpd_si128(_mm_cvtepi32_pd(V)));
    Store(At(Dst, 8 * I + 16), _mm_castpd_si128(_mm_cvtepi32_pd(_mm_shuffle_epi32(V, 0xEE))));
  });
  if (Done < N) ScalarKernels.Int32ToDouble(At(Src, 4 * Done), At(Dst, 8 * Done), N - Done);
}

// NaN becomes 0.0 before converting; the conversion answers 0x80000000 for
// everything out of range, which is right below the range and turns into
// 0x7FFFFFFF by flipping all bits where X >= 2^31.
__m128i FloatToInt32x4(__m128 X) {
  X = _mm_and_ps(X, _mm_cmpeq_ps(X, X));
  const __m128i R = _mm_cvtps_epi32(X);
  return _mm_xor_si128(R, _mm_castps_si128(_mm_cmpge_ps(X, _mm_set1_ps(2147483648.0f))));
}
void FloatToInt32(const void* Src, void* Dst, size_t N) {
  const size_t Done = Groups<4>(N, [&](size_t I) { Store(At(Dst, 4 * I), FloatToInt32x4(LoadPs(At(Src, 4 * I)))); });
  if (Done < N) ScalarKernels.FloatToInt32(At(Src, 4 * Done), At(Dst, 4 * Done), N - Done);
}

// NaN becomes 0.0, then the value is clamped to the range, which a double
// holds exactly at both ends.
__m128i DoubleToInt32x2(__m128d X) {
  X = _mm_and_pd(X, _mm_cmpeq_pd(X, X));
  X = _mm_max_pd(_mm_min_pd(X, _mm_set1_pd(2147483647.0)), _mm_set1_pd(-2147483648.0));
  return _mm_cvtpd_epi32(X);
}
void DoubleToInt32(const void* Src, void* Dst, size_t N) {
  const size_t Done = Groups<4>(N, [&](size_t I) {
    const __m128i R0 = DoubleToInt32x2(LoadPd(At(Src, 8 * I)));
    const __m128i R1 = DoubleToInt32x2(LoadPd(At(Src, 8 * I + 16)));
    Store(At(Dst, 4 * I), _mm_unpacklo_epi64(R0, R1));
  });
  if (Done < N) ScalarKernels.DoubleToInt32(At(Src, 8 * Done), At(Dst, 4 * Done), N - Done);
}

void MulFloat(float C, void* SrcDst, size_t N) {
  const __m128 K = _mm_set1_ps(C);
  const size_t Done = Groups<4>(N, [&](size_t I) {
    uint8_t* P = At(SrcDst, 4 * I);
    Store(P, _mm_castps_si128(_mm_mul_ps(LoadPs(P), K)));
  });
  if (Done < N) ScalarKernels.MulFloat(C, At(SrcDst, 4 * Done), N - Done);
}
void MulDouble(double C, void* SrcDst, size_t N) {
  const __m128d K = _mm_set1_pd(C);
  const size_t Done = Groups<2>(N, [&](size_t I) {
    uint8_t* P = At(SrcDst, 8 * I);
    Store(P, _mm_castpd_si128(_mm_mul_pd(LoadPd(P), K)));
  });
  if (Done < N) ScalarKernels.MulDouble(C, At(SrcDst, 8 * Done), N - Done);
}
void DivFloat(float C, void* SrcDst, size_t N) {
  const __m128 K = _mm_set1_ps(C);
  const size_t Done = Groups<4>(N, [&](size_t I) {
    uint8_t* P = At(SrcDst, 4 * I);
    Store(P, _mm_castps_si128(_mm_div_ps(LoadPs(P), K)));
  });
  if (Done < N) ScalarKernels.DivFloat(C, At(SrcDst, 4 * Done), N - Done);
}
void DivDouble(double C, void* SrcDst, size_t N) {
  const __m128d K = _mm_set1_pd(C);
  const size_t Done = Groups<2>(N, [&](size_t I) {
    uint8_t* P = At(SrcDst, 8 * I);
    Store(P, _mm_castpd_si128(_mm_div_pd(LoadPd(P), K)));
  });
  if (Done < N) ScalarKernels.DivDouble(C, At(SrcDst, 8 * Done), N - Done);
}

template <bool Swapped>
void IntToFloatScaled(const void* Src, void* Dst, size_t N, float Scale) {
  const __m128 K = _mm_set1_ps(Scale);
  const size_t Done = Groups<4>(N, [&](size_t I) {
    const __m128i V = _mm_castps_si128(_mm_mul_ps(_mm_cvtepi32_ps(Load(At(Src, 4 * I))), K));
    Store(At(Dst, 4 * I), Swapped ? Swap32x4(V) : V);
  });
  if (Done < N) ScalarKernels.IntToFloatScaled[Swapped](At(Src, 4 * Done), At(Dst, 4 * Done), N - Done, Scale);
}
template <bool Swapped>
void IntToDoubleDivided(const void* Src, void* Dst, size_t N, double Divisor) {
  const __m128d K = _mm_set1_pd(Divisor);
  const size_t Done = Groups<2>(N, [&](size_t I) {
    const __m128i V = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(At(Src, 4 * I)));
    const __m128i Q = _mm_castpd_si128(_mm_div_pd(_mm_cvtepi32_pd(V), K));
    Store(At(Dst, 8 * I), Swapped ? Swap64x2(Q) : Q);
  });
  if (Done < N) ScalarKernels.IntToDoubleDivided[Swapped](At(Src, 4 * Done), At(Dst, 8 * Done), N - Done, Divisor);
}
template <bool Swapped>
void ScaledFloatToInt(void* SrcDst, void* Dst, size_t N, float Scale) {
  const __m128 K = _mm_set1_ps(Scale);
  const size_t Done = Groups<4>(N, [&](size_t I) {
    uint8_t* P = At(SrcDst, 4 * I);
    const __m128i V = Load(P);
    const __m128 X = _mm_mul_ps(_mm_castsi128_ps(Swapped ? Swap32x4(V) : V), K);
    Store(P, _mm_castps_si128(X));
    Store(At(Dst, 4 * I), FloatToInt32x4(X));
  });
  if (Done < N) ScalarKernels.ScaledFloatToInt[Swapped](At(SrcDst, 4 * Done), At(Dst, 4 * Done), N - Done, Scale);
}
template <bool Swapped>
void ScaledDoubleToInt(void* SrcDst, void* Dst, size_t N, double Scale) {
  const __m128d K = _mm_set1_pd(Scale);
  const size_t Done = Groups<4>(N, [&](size_t I) {
    uint8_t* P = At(SrcDst, 8 * I);
    const __m128i V0 = Load(P), V1 = Load(P + 16);
    const __m128d X0 = _mm_mul_pd(_mm_castsi128_pd(Swapped ? Swap64x2(V0) : V0), K);
    const __m128d X1 = _mm_mul_pd(_mm_castsi128_pd(Swapped ? Swap64x2(V1) : V1), K);
    Store(P, _mm_castpd_si128(X0));
    Store(P + 16, _mm_castpd_si128(X1));
    Store(At(Dst, 4 * I), _mm_unpacklo_epi64(DoubleToInt32x2(X0), DoubleToInt32x2(X1)));
  });
  if (Done < N) ScalarKernels.ScaledDoubleToInt[Swapped](At(SrcDst, 8 * Done), At(Dst, 4 * Done), N - Done, Scale);
}

// The ASIO conversions of this set, each one direct call into its kernels.
constexpr TConversions Sse2Conversions =
    MakeConversions<Swap16, Swap24, Swap32, IntToFloatScaled<false>, IntToFloatScaled<true>, IntToDoubleDivided<false>,
                    IntToDoubleDivided<true>, ScaledFloatToInt<false>, ScaledFloatToInt<true>,
                    ScaledDoubleToInt<false>, ScaledDoubleToInt<true>>();

}  // namespace

const TKernels Sse2Kernels = {
    Set32,        Set64,         Swap16,       Swap24,        Swap32,   Swap64,
    Int32ToFloat, Int32ToDouble, FloatToInt32, DoubleToInt32, MulFloat, MulDouble,
    DivFloat,     DivDouble,     DivDouble,
    {IntToFloatScaled<false>, IntToFloatScaled<true>},
    {IntToDoubleDivided<false>, IntToDoubleDivided<true>},
    {ScaledFloatToInt<false>, ScaledFloatToInt<true>},
    {ScaledDoubleToInt<false>, ScaledDoubleToInt<true>},
    &Sse2Conversions,
};

bool CpuHasAvx2AndFma() noexcept {
#if defined(_MSC_VER)
  int R[4];
  __cpuid(R, 0);
  if (R[0] < 7) return false;
  __cpuid(R, 1);
  const bool Fma = (R[2] & (1 << 12)) != 0, OsXsave = (R[2] & (1 << 27)) != 0, Avx = (R[2] & (1 << 28)) != 0;
  if (!(Fma && OsXsave && Avx)) return false;
  if ((_xgetbv(0) & 0x6) != 0x6) return false;  // the OS saves the XMM and YMM state
  __cpuidex(R, 7, 0);
  return (R[1] & (1 << 5)) != 0;
#else
  // GCC's and Clang's query includes the check that the OS saves the YMM state.
  __builtin_cpu_init();
  return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma");
#endif
}

}  // namespace Detail
}  // namespace Ipps
}  // namespace Quorvel
