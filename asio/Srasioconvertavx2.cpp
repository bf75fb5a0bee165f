// AVX2 and FMA kernels, chosen at run time when the CPU has both. This file
// alone is compiled for AVX2; it uses nothing but intrinsics and its own
// internal functions, so no AVX2 copy of a shared inline function can end up
// serving the rest of the program. Remainders shorter than a vector go to
// the SSE2 kernels.
#include <immintrin.h>

#include <cstddef>
#include <cstdint>

#include "asio/Srasioconvertkernels.h"

namespace Quorvel {
namespace Ipps {
namespace Detail {
namespace {

const uint8_t* At(const void* P, size_t Offset) { return static_cast<const uint8_t*>(P) + Offset; }
uint8_t* At(void* P, size_t Offset) { return static_cast<uint8_t*>(P) + Offset; }
__m256i Load(const uint8_t* P) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(P)); }
void Store(uint8_t* P, __m256i V) { _mm256_storeu_si256(reinterpret_cast<__m256i*>(P), V); }
__m256 LoadPs(const uint8_t* P) { return _mm256_castsi256_ps(Load(P)); }
__m256d LoadPd(const uint8_t* P) { return _mm256_castsi256_pd(Load(P)); }
__m128i Load128(const uint8_t* P) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(P)); }
void Store128(uint8_t* P, __m128i V) { _mm_storeu_si128(reinterpret_cast<__m128i*>(P), V); }

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

// Byte orders within each 128-bit lane.
__m256i LaneShuffle(char B0, char B1, char B2, char B3, char B4, char B5, char B6, char B7) {
  return _mm256_setr_epi8(B0, B1, B2, B3, B4, B5, B6, B7, char(B0 + 8), char(B1 + 8), char(B2 + 8), char(B3 + 8),
                          char(B4 + 8), char(B5 + 8), char(B6 + 8), char(B7 + 8), B0, B1, B2, B3, B4, B5, B6, B7,
                          char(B0 + 8), char(B1 + 8), char(B2 + 8), char(B3 + 8), char(B4 + 8), char(B5 + 8),
                          char(B6 + 8), char(B7 + 8));
}

void Set32(uint32_t Bits, void* Dst, size_t N) {
  const __m256i V = _mm256_set1_epi32(static_cast<int32_t>(Bits));
  const size_t Done = Groups<8>(N, [&](size_t I) { Store(At(Dst, 4 * I), V); });
  if (Done < N) Sse2Kernels.Set32(Bits, At(Dst, 4 * Done), N - Done);
}
void Set64(uint64_t Bits, void* Dst, size_t N) {
  const __m256i V = _mm256_set1_epi64x(static_cast<int64_t>(Bits));
  const size_t Done = Groups<4>(N, [&](size_t I) { Store(At(Dst, 8 * I), V); });
  if (Done < N) Sse2Kernels.Set64(Bits, At(Dst, 8 * Done), N - Done);
}

void Swap16(const void* Src, void* Dst, size_t N) {
  const __m256i Order = LaneShuffle(1, 0, 3, 2, 5, 4, 7, 6);
  const size_t Done = Groups<16>(N, [&](size_t I) {
    Store(At(Dst, 2 * I), _mm256_shuffle_epi8(Load(At(Src, 2 * I)), Order));
  });
  if (Done < N) Sse2Kernels.Swap16(At(Src, 2 * Done), At(Dst, 2 * Done), N - Done);
}
void Swap32(const void* Src, void* Dst, size_t N) {
  const __m256i Order = LaneShuffle(3, 2, 1, 0, 7, 6, 5, 4);
  const size_t Done = Groups<8>(N, [&](size_t I) {
    Store(At(Dst, 4 * I), _mm256_shuffle_epi8(Load(At(Src, 4 * I)), Order));
  });
  if (Done < N) Sse2Kernels.Swap32(At(Src, 4 * Done), At(Dst, 4 * Done), N - Done);
}
void Swap64(const void* Src, void* Dst, size_t N) {
  const __m256i Order = LaneShuffle(7, 6, 5, 4, 3, 2, 1, 0);
  const size_t Done = Groups<4>(N, [&](size_t I) {
    Store(At(Dst, 8 * I), _mm256_shuffle_epi8(Load(At(Src, 8 * I)), Order));
  });
  if (Done < N) Sse2Kernels.Swap64(At(Src, 8 * Done), At(Dst, 8 * Done), N - Done);
}

// Packed 3-byte samples in blocks of three 32-byte vectors (32 samples), as
// the SSE2 kernel lays them out, but each output vector is two byte shuffles
// within 128-bit lanes instead of three masked loads. A lane of output needs
// input bytes from two before it to two after it (18 bytes in the worst
// case); loads at P - 2 and P + 2 give each lane 16 bytes either way, and
// together they hold every byte the lane needs.
struct TSwap24Shuffles {
  // Order[V][0] picks from the load at P - 2, Order[V][1] from the one at
  // P + 2, for vector V of a block (P = start of a block + 32 V); bytes not
  // picked are zero (0x80), so the two shuffles merge with an OR.
  alignas(32) uint8_t Order[3][2][32];
};
constexpr TSwap24Shuffles MakeSwap24Shuffles() {
  TSwap24Shuffles S{};
  for (size_t V = 0; V < 3; ++V)
    for (size_t J = 0; J < 32; ++J) {
      // Output byte J of the vector; blocks start on a sample.
      const size_t InSample = (32 * V + J) % 3;
      const size_t From = J + 4 - 2 * InSample;  // byte J + 2, J or J - 2 counted from P - 2
      const size_t Lane = J / 16 * 16;
      const bool Low = From - Lane <= 15;  // within the lane of the load at P - 2
      S.Order[V][0][J] = Low ? uint8_t(From - Lane) : 0x80;
      S.Order[V][1][J] = Low ? 0x80 : uint8_t(From - Lane - 4);
    }
  return S;
}
constexpr TSwap24Shuffles Swap24Shuffles = MakeSwap24Shuffles();

void Swap24(const void* Src, void* Dst, size_t N) {
  constexpr size_t BlockBytes = 96, MinSamples = 34;
  if (N < MinSamples) {
    Sse2Kernels.Swap24(Src, Dst, N);
    return;
  }
  const uint8_t* S = static_cast<const uint8_t*>(Src);
  uint8_t* D = static_cast<uint8_t*>(Dst);
  __m256i Order[3][2];
  for (int V = 0; V < 3; ++V)
    for (int H = 0; H < 2; ++H) Order[V][H] = Load(Swap24Shuffles.Order[V][H]);
  auto Block = [&](size_t O) {  // O: a multiple of 3, 3 <= O, O + 98 <= bytes
    for (int V = 0; V < 3; ++V) {
      const size_t P = O + 32 * V;
      const __m256i Before = _mm256_shuffle_epi8(Load(S + P - 2), Order[V][0]);
      const __m256i After = _mm256_shuffle_epi8(Load(S + P + 2), Order[V][1]);
      Store(D + P, _mm256_or_si256(Before, After));
    }
  };
  // A store that crosses a cache line costs about two: after a first block
  // at byte 3, the blocks go on from the first sample boundary where D is
  // 32-byte aligned (byte 3 to 96; the first block covers up to 98).
  const size_t Misalignment = (32 - reinterpret_cast<uintptr_t>(D) % 32) % 32;
  const size_t Aligned = Misalignment == 0 ? BlockBytes : Misalignment + 32 * (Misalignment % 3);
  const size_t Bytes = 3 * N;
  SwapOne24(S, D);
  Block(3);
  for (size_t O = Aligned; O + BlockBytes + 2 <= Bytes; O += BlockBytes) Block(O);
  Block((Bytes - BlockBytes - 2) / 3 * 3);
  SwapOne24(S + Bytes - 3, D + Bytes - 3);
}

void Int32ToFloat(const void* Src, void* Dst, size_t N) {
  const size_t Done = Groups<8>(N, [&](size_t I) {
    Store(At(Dst, 4 * I), _mm256_castps_si256(_mm256_cvtepi32_ps(Load(At(Src, 4 * I)))));
  });
  if (Done < N) Sse2Kernels.Int32ToFloat(At(Src, 4 * Done), At(Dst, 4 * Done), N - Done);
}
void Int32ToDouble(const void* Src, void* Dst, size_t N) {
  const size_t Done = Groups<4>(N, [&](size_t I) {
    Store(At(Dst, 8 * I), _mm256_castpd_si256(_mm256_cvtepi32_pd(Load128(At(Src, 4 * I)))));
  });
  if (Done < N) Sse2Kernels.Int32ToDouble(At(Src, 4 * Done), At(Dst, 8 * Done), N - Done);
}

// See the SSE2 kernels for the handling of NaN and of the range.
__m256i FloatToInt32x8(__m256 X) {
  X = _mm256_and_ps(X, _mm256_cmp_ps(X, X, _CMP_EQ_OQ));
  const __m256i R = _mm256_cvtps_epi32(X);
  return _mm256_xor_si256(R, _mm256_castps_si256(_mm256_cmp_ps(X, _mm256_set1_ps(2147483648.0f), _CMP_GE_OQ)));
}
// Below the range the conversion's 0x80000000 is the saturated value itself,
// so only the top needs clamping.
__m128i DoubleToInt32x4(__m256d X) {
  X = _mm256_and_pd(X, _mm256_cmp_pd(X, X, _CMP_EQ_OQ));
  return _mm256_cvtpd_epi32(_mm256_min_pd(X, _mm256_set1_pd(2147483647.0)));
}
void FloatToInt32(const void* Src, void* Dst, size_t N) {
  const size_t Done = Groups<8>(N, [&](size_t I) { Store(At(Dst, 4 * I), FloatToInt32x8(LoadPs(At(Src, 4 * I)))); });
  if (Done < N) Sse2Kernels.FloatToInt32(At(Src, 4 * Done), At(Dst, 4 * Done), N - Done);
}
void DoubleToInt32(const void* Src, void* Dst, size_t N) {
  const size_t Done = Groups<4>(N, [&](size_t I) { Store128(At(Dst, 4 * I), DoubleToInt32x4(LoadPd(At(Src, 8 * I)))); });
  if (Done < N) Sse2Kernels.DoubleToInt32(At(Src, 8 * Done), At(Dst, 4 * Done), N - Done);
}

void MulFloat(float C, void* SrcDst, size_t N) {
  const __m256 K = _mm256_set1_ps(C);
  const size_t Done = Groups<8>(N, [&](size_t I) {
    uint8_t* P = At(SrcDst, 4 * I);
    Store(P, _mm256_castps_si256(_mm256_mul_ps(LoadPs(P), K)));
  });
  if (Done < N) Sse2Kernels.MulFloat(C, At(SrcDst, 4 * Done), N - Done);
}
void MulDouble(double C, void* SrcDst, size_t N) {
  const __m256d K = _mm256_set1_pd(C);
  const size_t Done = Groups<4>(N, [&](size_t I) {
    uint8_t* P = At(SrcDst, 8 * I);
    Store(P, _mm256_castpd_si256(_mm256_mul_pd(LoadPd(P), K)));
  });
  if (Done < N) Sse2Kernels.MulDouble(C, At(SrcDst, 8 * Done), N - Done);
}
void DivFloat(float C, void* SrcDst, size_t N) {
  const __m256 K = _mm256_set1_ps(C);
  const size_t Done = Groups<8>(N, [&](size_t I) {
    uint8_t* P = At(SrcDst, 4 * I);
    Store(P, _mm256_castps_si256(_mm256_div_ps(LoadPs(P), K)));
  });
  if (Done < N) Sse2Kernels.DivFloat(C, At(SrcDst, 4 * Done), N - Done);
}
void DivDouble(double C, void* SrcDst, size_t N) {
  const __m256d K = _mm256_set1_pd(C);
  const size_t Done = Groups<4>(N, [&](size_t I) {
    uint8_t* P = At(SrcDst, 8 * I);
    Store(P, _mm256_castpd_si256(_mm256_div_pd(LoadPd(P), K)));
  });
  if (Done < N) Sse2Kernels.DivDouble(C, At(SrcDst, 8 * Done), N - Done);
}

// X / C for an odd integer C (3 <= |C| <= 2^32) without the divider:
// Q = X * (1/C) is within an ulp or two of the quotient, the remainder
// X - Q*C is exact in one FMA, and Q + remainder * (1/C) is the correctly
// rounded quotient. It cannot be off: the error left is at most 2^-52 ulp,
// while X / C, unless exact, lies at least 2^-33 ulp away from any halfway
// point between doubles (C is an integer below 2^33, and an odd C never
// puts a quotient exactly halfway).
__m256d DivideByOddInteger(__m256d X, __m256d C, __m256d Reciprocal) {
  const __m256d Q = _mm256_mul_pd(X, Reciprocal);
  return _mm256_fmadd_pd(_mm256_fnmadd_pd(Q, C, X), Reciprocal, Q);
}
// For any X: zero, infinite and NaN products keep the plain product, which
// is what division gives for them; the correction step would lose the sign
// of -0 and turn infinities into NaN.
void DivDoubleByOddInteger(double C, void* SrcDst, size_t N) {
  const __m256d K = _mm256_set1_pd(C), R = _mm256_set1_pd(1.0 / C);
  const __m256d Zero = _mm256_setzero_pd(), Inf = _mm256_castsi256_pd(_mm256_set1_epi64x(0x7FF0000000000000));
  const __m256d AbsMask = _mm256_castsi256_pd(_mm256_set1_epi64x(0x7FFFFFFFFFFFFFFF));
  const size_t Done = Groups<4>(N, [&](size_t I) {
    uint8_t* P = At(SrcDst, 8 * I);
    const __m256d X = LoadPd(P);
    const __m256d Q = _mm256_mul_pd(X, R);
    const __m256d A = _mm256_and_pd(Q, AbsMask);
    const __m256d Finite = _mm256_and_pd(_mm256_cmp_pd(A, Zero, _CMP_GT_OQ), _mm256_cmp_pd(A, Inf, _CMP_LT_OQ));
    Store(P, _mm256_castpd_si256(_mm256_blendv_pd(Q, DivideByOddInteger(X, K, R), Finite)));
  });
  if (Done < N) ScalarKernels.DivDouble(C, At(SrcDst, 8 * Done), N - Done);
}

// Outputs of 4 MB or more go out through non-temporal stores: they cannot
// stay in the caches anyway, and such stores skip reading every line before
// writing it. ASIO half-buffers are far smaller. Returns the number of
// leading elements of 4 bytes to convert apart so that Dst + 4 * that is
// 32-byte aligned, or SIZE_MAX for ordinary stores.
size_t StreamingHead(const void* Dst, size_t N) {
  constexpr size_t StreamBytes = size_t(4) << 20;
  const uintptr_t A = reinterpret_cast<uintptr_t>(Dst);
  if (4 * N < StreamBytes || A % 4 != 0) return SIZE_MAX;
  return (32 - A % 32) % 32 / 4;
}

// Eight samples of the 32-bit float kernels: integers to scaled floats, and
// floats scaled in place to integers (answered, not stored).
template <bool Swapped>
__m256i IntToFloatScaled8(const uint8_t* Src, __m256 K) {
  const __m256i V = _mm256_castps_si256(_mm256_mul_ps(_mm256_cvtepi32_ps(Load(Src)), K));
  return Swapped ? _mm256_shuffle_epi8(V, LaneShuffle(3, 2, 1, 0, 7, 6, 5, 4)) : V;
}
template <bool Swapped>
__m256i ScaledFloatToInt8(uint8_t* SrcDst, __m256 K) {
  const __m256i V = Load(SrcDst);
  const __m256 X =
      _mm256_mul_ps(_mm256_castsi256_ps(Swapped ? _mm256_shuffle_epi8(V, LaneShuffle(3, 2, 1, 0, 7, 6, 5, 4)) : V), K);
  Store(SrcDst, _mm256_castps_si256(X));
  return FloatToInt32x8(X);
}

// The streamed form of the 32-bit float kernels, out of line: the call of
// the SSE2 kernel for the head would otherwise make every call save vector
// registers on a realigned stack frame, which costs as much as converting a
// few dozen samples.
#if defined(_MSC_VER)
#define QUORVEL_AVX2_NOINLINE __declspec(noinline)
#else
#define QUORVEL_AVX2_NOINLINE __attribute__((noinline))
#endif
template <bool Swapped>
QUORVEL_AVX2_NOINLINE void IntToFloatScaledStreamed(const void* Src, void* Dst, size_t N, float Scale, size_t Head) {
  if (Head > 0) Sse2Kernels.IntToFloatScaled[Swapped](Src, Dst, Head, Scale);
  const __m256 K = _mm256_set1_ps(Scale);
  const size_t Done = Head + Groups<8>(N - Head, [&](size_t I) {
    const size_t J = Head + I;
    _mm256_stream_si256(reinterpret_cast<__m256i*>(At(Dst, 4 * J)), IntToFloatScaled8<Swapped>(At(Src, 4 * J), K));
  });
  _mm_sfence();
  if (Done < N) Sse2Kernels.IntToFloatScaled[Swapped](At(Src, 4 * Done), At(Dst, 4 * Done), N - Done, Scale);
}
template <bool Swapped>
QUORVEL_AVX2_NOINLINE void ScaledFloatToIntStreamed(void* SrcDst, void* Dst, size_t N, float Scale, size_t Head) {
  if (Head > 0) Sse2Kernels.ScaledFloatToInt[Swapped](SrcDst, Dst, Head, Scale);
  const __m256 K = _mm256_set1_ps(Scale);
  const size_t Done = Head + Groups<8>(N - Head, [&](size_t I) {
    const size_t J = Head + I;
    _mm256_stream_si256(reinterpret_cast<__m256i*>(At(Dst, 4 * J)), ScaledFloatToInt8<Swapped>(At(SrcDst, 4 * J), K));
  });
  _mm_sfence();
  if (Done < N) Sse2Kernels.ScaledFloatToInt[Swapped](At(SrcDst, 4 * Done), At(Dst, 4 * Done), N - Done, Scale);
}

template <bool Swapped>
void IntToFloatScaled(const void* Src, void* Dst, size_t N, float Scale) {
  const size_t Head = StreamingHead(Dst, N);
  if (Head != SIZE_MAX) return IntToFloatScaledStreamed<Swapped>(Src, Dst, N, Scale, Head);
  const __m256 K = _mm256_set1_ps(Scale);
  const size_t Done =
      Groups<8>(N, [&](size_t I) { Store(At(Dst, 4 * I), IntToFloatScaled8<Swapped>(At(Src, 4 * I), K)); });
  if (Done < N) Sse2Kernels.IntToFloatScaled[Swapped](At(Src, 4 * Done), At(Dst, 4 * Done), N - Done, Scale);
}
// Integer inputs are finite and never -0, so every quotient takes the correction step.
template <bool Swapped>
void IntToDoubleDivided(const void* Src, void* Dst, size_t N, double Divisor) {
  const __m256d K = _mm256_set1_pd(Divisor), R = _mm256_set1_pd(1.0 / Divisor);
  const __m256i Order = LaneShuffle(7, 6, 5, 4, 3, 2, 1, 0);
  const size_t Done = Groups<4>(N, [&](size_t I) {
    const __m256d X = _mm256_cvtepi32_pd(Load128(At(Src, 4 * I)));
    const __m256i Q = _mm256_castpd_si256(DivideByOddInteger(X, K, R));
    Store(At(Dst, 8 * I), Swapped ? _mm256_shuffle_epi8(Q, Order) : Q);
  });
  if (Done < N) ScalarKernels.IntToDoubleDivided[Swapped](At(Src, 4 * Done), At(Dst, 8 * Done), N - Done, Divisor);
}
// The integers of the first Done scaled samples converted again with the
// full rules, then the rest of the kernel's work by the SSE2 kernel. Out of
// line, as the streamed forms, so that the common path needs no stack frame.
template <typename TScale>
QUORVEL_AVX2_NOINLINE void ConvertAgain(void (*Convert)(const void*, void*, size_t),
                                        void (*Rest)(void*, void*, size_t, TScale), void* SrcDst, void* Dst, size_t N,
                                        TScale Scale, size_t Done) {
  constexpr size_t Bytes = sizeof(TScale);
  Convert(SrcDst, Dst, Done);
  if (Done < N) Rest(At(SrcDst, Bytes * Done), At(Dst, 4 * Done), N - Done, Scale);
}

// As for 64-bit floats below: the groups only note an integer of
// 0x80000000 (NaN, beyond the range, or -2^31 itself), and only then are the
// integers converted again from the scaled samples with the full rules.
template <bool Swapped>
void ScaledFloatToInt(void* SrcDst, void* Dst, size_t N, float Scale) {
  const size_t Head = StreamingHead(Dst, N);
  if (Head != SIZE_MAX) return ScaledFloatToIntStreamed<Swapped>(SrcDst, Dst, N, Scale, Head);
  const __m256 K = _mm256_set1_ps(Scale);
  const __m256i Order = LaneShuffle(3, 2, 1, 0, 7, 6, 5, 4), Invalid = _mm256_set1_epi32(INT32_MIN);
  __m256i AnyInvalid = _mm256_setzero_si256();
  const size_t Done = Groups<8>(N, [&](size_t I) {
    uint8_t* P = At(SrcDst, 4 * I);
    const __m256i V = Load(P);
    const __m256 X = _mm256_mul_ps(_mm256_castsi256_ps(Swapped ? _mm256_shuffle_epi8(V, Order) : V), K);
    Store(P, _mm256_castps_si256(X));
    const __m256i R = _mm256_cvtps_epi32(X);
    AnyInvalid = _mm256_or_si256(AnyInvalid, _mm256_cmpeq_epi32(R, Invalid));
    Store(At(Dst, 4 * I), R);
  });
  if (!_mm256_testz_si256(AnyInvalid, AnyInvalid))
    return ConvertAgain(FloatToInt32, Sse2Kernels.ScaledFloatToInt[Swapped], SrcDst, Dst, N, Scale, Done);
  if (Done < N) Sse2Kernels.ScaledFloatToInt[Swapped](At(SrcDst, 4 * Done), At(Dst, 4 * Done), N - Done, Scale);
}
// Eight samples a group, so that the integers go out in one 32-byte store.
// The conversion answers 0x80000000 for NaN and for everything beyond the
// range, all rare in a driver's samples (as is -2^31 itself); so the groups
// convert without the compares and masks that sort those out, only noting
// whether any integer came out as 0x80000000, and if one did, the integers
// are converted again from the scaled samples with the full rules.
template <bool Swapped>
void ScaledDoubleToInt(void* SrcDst, void* Dst, size_t N, double Scale) {
  const __m256d K = _mm256_set1_pd(Scale);
  const __m256i Order = LaneShuffle(7, 6, 5, 4, 3, 2, 1, 0), Invalid = _mm256_set1_epi32(INT32_MIN);
  __m256i AnyInvalid = _mm256_setzero_si256();
  const auto Scaled = [&](size_t I) {
    uint8_t* P = At(SrcDst, 8 * I);
    const __m256i V = Load(P);
    const __m256d X = _mm256_mul_pd(_mm256_castsi256_pd(Swapped ? _mm256_shuffle_epi8(V, Order) : V), K);
    Store(P, _mm256_castpd_si256(X));
    return _mm256_cvtpd_epi32(X);
  };
  size_t Done = Groups<8>(N, [&](size_t I) {
    const __m128i Lo = Scaled(I);
    const __m256i R = _mm256_inserti128_si256(_mm256_castsi128_si256(Lo), Scaled(I + 4), 1);
    AnyInvalid = _mm256_or_si256(AnyInvalid, _mm256_cmpeq_epi32(R, Invalid));
    Store(At(Dst, 4 * I), R);
  });
  if (Done + 4 <= N) {
    const __m128i R = Scaled(Done);
    const __m128i Eq = _mm_cmpeq_epi32(R, _mm256_castsi256_si128(Invalid));
    AnyInvalid = _mm256_or_si256(AnyInvalid, _mm256_inserti128_si256(_mm256_setzero_si256(), Eq, 0));
    Store128(At(Dst, 4 * Done), R);
    Done += 4;
  }
  if (!_mm256_testz_si256(AnyInvalid, AnyInvalid))
    return ConvertAgain(DoubleToInt32, Sse2Kernels.ScaledDoubleToInt[Swapped], SrcDst, Dst, N, Scale, Done);
  if (Done < N) Sse2Kernels.ScaledDoubleToInt[Swapped](At(SrcDst, 8 * Done), At(Dst, 4 * Done), N - Done, Scale);
}

// The ASIO conversions of this set, each one direct call into its kernels.
constexpr TConversions Avx2Conversions =
    MakeConversions<Swap16, Swap24, Swap32, IntToFloatScaled<false>, IntToFloatScaled<true>, IntToDoubleDivided<false>,
                    IntToDoubleDivided<true>, ScaledFloatToInt<false>, ScaledFloatToInt<true>,
                    ScaledDoubleToInt<false>, ScaledDoubleToInt<true>>();

}  // namespace

const TKernels Avx2Kernels = {
    Set32,        Set64,         Swap16,       Swap24,        Swap32,   Swap64,
    Int32ToFloat, Int32ToDouble, FloatToInt32, DoubleToInt32, MulFloat, MulDouble,
    DivFloat,     DivDouble,     DivDoubleByOddInteger,
    {IntToFloatScaled<false>, IntToFloatScaled<true>},
    {IntToDoubleDivided<false>, IntToDoubleDivided<true>},
    {ScaledFloatToInt<false>, ScaledFloatToInt<true>},
    {ScaledDoubleToInt<false>, ScaledDoubleToInt<true>},
    &Avx2Conversions,
};

}  // namespace Detail
}  // namespace Ipps
}  // namespace Quorvel
