#include <gtest/gtest.h>

#include <algorithm>
#include <cfenv>
#include <cmath>
#include <cstring>
#include <iterator>
#include <limits>
#include <random>
#include <vector>

#include "asio/Srasioconvert.h"

using namespace Quorvel;
using namespace Quorvel::Ipps;

namespace {

constexpr float FNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float FInf = std::numeric_limits<float>::infinity();
constexpr double DNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double DInf = std::numeric_limits<double>::infinity();

// Every kernel set this machine can run; the best one is restored afterwards.
std::vector<TIppsPath> Paths() {
  std::vector<TIppsPath> P;
  for (TIppsPath Path : {TIppsPath::Scalar, TIppsPath::Sse2, TIppsPath::Avx2})
    if (SetIppsPath(Path)) P.push_back(Path);
  SetIppsPath(GetBestIppsPath());
  return P;
}
struct TRestorePath {
  ~TRestorePath() { SetIppsPath(GetBestIppsPath()); }
};
const char* PathName(TIppsPath P) { return P == TIppsPath::Scalar ? "scalar" : P == TIppsPath::Sse2 ? "sse2" : "avx2"; }

template <typename T>
T Read(const uint8_t* P) {
  T V;
  std::memcpy(&V, P, sizeof V);
  return V;
}
template <typename T>
void Write(uint8_t* P, T V) {
  std::memcpy(P, &V, sizeof V);
}
void Reverse(uint8_t* P, unsigned Bytes) { std::reverse(P, P + Bytes); }

// Nearest even through a 64-bit integer, then saturated; NaN 0.
int32_t RefRound(double Y) {
  if (std::isnan(Y)) return 0;
  const long long R = std::llrint(std::max(std::min(Y, 1e10), -1e10));
  return static_cast<int32_t>(std::max<long long>(std::min<long long>(R, INT32_MAX), INT32_MIN));
}

// The conversion of each type, one sample at a time.
struct TRefType {
  TASIOSampleType Type;
  unsigned BufBytes, DrvBytes;
  bool Msb;
  char Kind;  // 'i' integer PCM, 'f' 32-bit float, 'd' 64-bit float
};
const TRefType RefTypes[] = {
    {ASIOSTInt16LSB, 2, 2, false, 'i'},   {ASIOSTInt24LSB, 3, 3, false, 'i'},   {ASIOSTInt32LSB, 4, 4, false, 'i'},
    {ASIOSTInt32LSB16, 4, 4, false, 'i'}, {ASIOSTInt32LSB18, 4, 4, false, 'i'}, {ASIOSTInt32LSB20, 4, 4, false, 'i'},
    {ASIOSTInt32LSB24, 4, 4, false, 'i'}, {ASIOSTFloat32LSB, 4, 4, false, 'f'}, {ASIOSTFloat64LSB, 4, 8, false, 'd'},
    {ASIOSTInt16MSB, 2, 2, true, 'i'},    {ASIOSTInt24MSB, 3, 3, true, 'i'},    {ASIOSTInt32MSB, 4, 4, true, 'i'},
    {ASIOSTInt32MSB16, 4, 4, true, 'i'},  {ASIOSTInt32MSB18, 4, 4, true, 'i'},  {ASIOSTInt32MSB20, 4, 4, true, 'i'},
    {ASIOSTInt32MSB24, 4, 4, true, 'i'},  {ASIOSTFloat32MSB, 4, 4, true, 'f'},  {ASIOSTFloat64MSB, 4, 8, true, 'd'},
};

void RefToDriver(const TRefType& T, const uint8_t* Buf, uint8_t* Drv, size_t N) {
  for (size_t I = 0; I < N; ++I) {
    uint8_t* D = Drv + I * T.DrvBytes;
    const uint8_t* B = Buf + I * T.BufBytes;
    if (T.Kind == 'i') std::memcpy(D, B, T.DrvBytes);
    if (T.Kind == 'f') Write(D, static_cast<float>(Read<int32_t>(B)) / 2147483648.0f);
    if (T.Kind == 'd') Write(D, static_cast<double>(Read<int32_t>(B)) / 2147483647.0);
    if (T.Msb) Reverse(D, T.DrvBytes);
  }
}

// Also leaves Drv as the conversion does: float samples scaled in place, in
// the machine's byte order.
void RefFromDriver(const TRefType& T, uint8_t* Drv, uint8_t* Buf, size_t N) {
  for (size_t I = 0; I < N; ++I) {
    uint8_t* D = Drv + I * T.DrvBytes;
    uint8_t* B = Buf + I * T.BufBytes;
    uint8_t S[8];
    std::memcpy(S, D, T.DrvBytes);
    if (T.Msb) Reverse(S, T.DrvBytes);
    if (T.Kind == 'i') std::memcpy(B, S, T.BufBytes);
    if (T.Kind == 'f') {
      const float Y = Read<float>(S) * 2147483648.0f;
      Write(D, Y);
      Write(B, RefRound(Y));
    }
    if (T.Kind == 'd') {
      const double Y = Read<double>(S) * 2147483647.0;
      Write(D, Y);
      Write(B, RefRound(Y));
    }
  }
}

// Driver-side and buffer-side test signals: boundary values spread over all
// positions (vector lanes and tails alike), random values between them.
const int32_t IntEdges[] = {INT32_MIN, INT32_MAX, 0, 1, -1, 16777217, -16777219, 33554435, INT32_MIN + 1, 0x40000001};
const float FloatEdges[] = {0.0f, -0.0f, 1.0f, -1.0f, std::nextafter(1.0f, 2.0f), std::nextafter(-1.0f, -2.0f),
                               std::nextafter(1.0f, 0.0f), FNaN, FInf, -FInf, 1e-45f, -1.1754942e-38f,
                               0.5f / 2147483648.0f, 1.5f / 2147483648.0f, -2.5f / 2147483648.0f, 3e38f};
const double DoubleEdges[] = {0.0, -0.0, 1.0, -1.0, std::nextafter(1.0, 2.0), 2147483648.0 / 2147483647.0,
                                 -2147483648.0 / 2147483647.0, -1.1, DNaN, DInf, -DInf, 4.9e-324, -2.2e-308,
                                 0.5, -0.5, 0.25, 1e300};

void FillSignal(const TRefType& T, bool DriverSide, uint8_t* P, size_t N, std::mt19937& Rng) {
  std::uniform_real_distribution<double> Near1(-1.2, 1.2);
  for (size_t I = 0; I < N; ++I) {
    const size_t Pick = I * 7 + N;
    const bool Edge = I % 3 != 1;
    if (!DriverSide || T.Kind == 'i') {
      const unsigned Bytes = DriverSide ? T.DrvBytes : T.BufBytes;
      uint32_t V = Rng();
      if (Edge && Bytes == 4) V = static_cast<uint32_t>(IntEdges[Pick % std::size(IntEdges)]);
      std::memcpy(P + I * Bytes, &V, Bytes);
    } else if (T.Kind == 'f') {
      const float V = Edge ? FloatEdges[Pick % std::size(FloatEdges)] : static_cast<float>(Near1(Rng));
      Write(P + I * 4, V);
      if (T.Msb) Reverse(P + I * 4, 4);
    } else {
      const double V = Edge ? DoubleEdges[Pick % std::size(DoubleEdges)] : Near1(Rng);
      Write(P + I * 8, V);
      if (T.Msb) Reverse(P + I * 8, 8);
    }
  }
}

// A buffer with guard bytes either side of an unaligned data area.
class TGuarded {
 public:
  TGuarded(size_t Bytes, size_t Offset) : FMem(Guard + Offset + Bytes + Guard, Fill), FData(Guard + Offset), FBytes(Bytes) {}
  uint8_t* Data() { return FMem.data() + FData; }
  std::vector<uint8_t> Bytes() const { return {FMem.begin() + FData, FMem.begin() + FData + FBytes}; }
  bool GuardsIntact() const {
    for (size_t I = 0; I < FMem.size(); ++I)
      if ((I < FData || I >= FData + FBytes) && FMem[I] != Fill) return false;
    return true;
  }
  std::vector<uint8_t> All() const { return FMem; }

 private:
  static constexpr size_t Guard = 40;
  static constexpr uint8_t Fill = 0xA5;
  std::vector<uint8_t> FMem;
  size_t FData, FBytes;
};

}  // namespace

namespace {

// All three operations on one type, length and pair of offsets, against the
// reference and the guard bytes.
void CheckType(const TRefType& T, size_t N, size_t BufOff, size_t DrvOff, std::mt19937& Rng) {
  // Buffer to driver.
  TGuarded Buf(N * T.BufBytes, BufOff), Drv(N * T.DrvBytes, DrvOff), Want(N * T.DrvBytes, 0);
  FillSignal(T, false, Buf.Data(), N, Rng);
  const std::vector<uint8_t> BufBefore = Buf.All();
  RefToDriver(T, Buf.Data(), Want.Data(), N);
  ASSERT_TRUE(ASIOConvertToDriver(T.Type, Buf.Data(), Drv.Data(), static_cast<int32_t>(N)));
  ASSERT_TRUE(Drv.Bytes() == Want.Bytes()) << "to the driver";
  ASSERT_TRUE(Drv.GuardsIntact());
  ASSERT_TRUE(Buf.All() == BufBefore) << "the source is only read";

  // Driver to buffer, the driver half changed in place as the reference does.
  TGuarded In(N * T.DrvBytes, DrvOff), Out(N * T.BufBytes, BufOff);
  TGuarded WantDrv(N * T.DrvBytes, 0), WantBuf(N * T.BufBytes, 0);
  FillSignal(T, true, In.Data(), N, Rng);
  std::memcpy(WantDrv.Data(), In.Data(), N * T.DrvBytes);
  RefFromDriver(T, WantDrv.Data(), WantBuf.Data(), N);
  ASSERT_TRUE(ASIOConvertFromDriver(T.Type, In.Data(), Out.Data(), static_cast<int32_t>(N)));
  ASSERT_TRUE(Out.Bytes() == WantBuf.Bytes()) << "from the driver";
  ASSERT_TRUE(In.Bytes() == WantDrv.Bytes()) << "the driver half afterwards";
  ASSERT_TRUE(Out.GuardsIntact());
  ASSERT_TRUE(In.GuardsIntact());

  // Silence: zero bytes, 0.0 in either byte order is zero bytes too.
  ASSERT_TRUE(ASIOSilenceDriver(T.Type, Drv.Data(), static_cast<int32_t>(N)));
  ASSERT_TRUE(Drv.Bytes() == std::vector<uint8_t>(N * T.DrvBytes, 0)) << "silence";
  ASSERT_TRUE(Drv.GuardsIntact());
}

}  // namespace

TEST(AsioConvert, EveryTypeMatchesTheReferenceOnEveryPathLengthAndAlignment) {
  TRestorePath Restore;
  std::mt19937 Rng(1234);
  for (TIppsPath Path : Paths()) {
    ASSERT_TRUE(SetIppsPath(Path));
    ASSERT_EQ(GetIppsPath(), Path);
    for (const TRefType& T : RefTypes)
      for (size_t N : {1, 3, 7, 17, 18, 31, 33, 34, 35, 257})
        for (size_t Offset = 0; Offset < 16; ++Offset) {
          SCOPED_TRACE(testing::Message() << PathName(Path) << " type " << T.Type << " N " << N << " offsets "
                                          << Offset % 4 << "/" << Offset / 4);
          CheckType(T, N, Offset % 4, Offset / 4, Rng);
          if (HasFatalFailure()) return;
        }
  }
}

// Outputs of several megabytes take non-temporal stores on some paths,
// after a few samples converted apart to reach an aligned address.
TEST(AsioConvert, BuffersOfSeveralMegabytesMatchTheReference) {
  std::mt19937 Rng(4321);
  for (const TRefType& T : RefTypes)
    for (size_t BufOff : {0, 1, 2, 3}) {
      if (T.Kind == 'i' || (BufOff % 2 == 1 && T.Kind == 'd')) continue;
      SCOPED_TRACE(testing::Message() << "type " << T.Type << " offset " << BufOff);
      CheckType(T, (size_t(1) << 20) + 13 + BufOff * 4, BufOff, 3 - BufOff, Rng);
      if (HasFatalFailure()) return;
    }
}

// The vector 24-bit swaps choose where their blocks start by the
// destination's address: every alignment within 32 bytes, on both sides,
// with lengths around the sizes of their blocks.
TEST(AsioConvert, PackedBigEndianSamplesMatchTheReferenceAtEveryAlignment) {
  TRestorePath Restore;
  std::mt19937 Rng(2468);
  const TRefType& T = *std::find_if(std::begin(RefTypes), std::end(RefTypes),
                                    [](const TRefType& R) { return R.Type == ASIOSTInt24MSB; });
  for (TIppsPath Path : Paths()) {
    ASSERT_TRUE(SetIppsPath(Path));
    for (size_t N : {34, 35, 63, 64, 65, 66, 97, 130, 256})
      for (size_t Offset = 0; Offset < 32; ++Offset) {
        SCOPED_TRACE(testing::Message() << PathName(Path) << " N " << N << " offset " << Offset);
        CheckType(T, N, Offset, 31 - Offset, Rng);
        if (HasFatalFailure()) return;
      }
  }
}

// A lone NaN or out-of-range sample from the driver converts by the rules
// (0, or saturated) whichever sample it is, among samples within range that
// convert as usual around it.
TEST(AsioConvert, ALoneNanOrOutOfRangeSampleAnywhereConvertsByTheRules) {
  TRestorePath Restore;
  std::mt19937 Rng(1357);
  std::uniform_real_distribution<double> Within(-0.99, 0.99);
  for (TIppsPath Path : Paths()) {
    ASSERT_TRUE(SetIppsPath(Path));
    for (const TRefType& T : RefTypes) {
      if (T.Kind == 'i') continue;
      for (double Special : {DNaN, 1.5, -1.5, DInf})
        for (size_t N : {20, 67})
          for (size_t At = 0; At < N; ++At) {
            SCOPED_TRACE(testing::Message() << PathName(Path) << " type " << T.Type << " value " << Special << " N "
                                            << N << " at " << At);
            TGuarded In(N * T.DrvBytes, 1), Out(N * T.BufBytes, 2), WantDrv(N * T.DrvBytes, 0),
                WantBuf(N * T.BufBytes, 0);
            for (size_t I = 0; I < N; ++I) {
              uint8_t* D = In.Data() + I * T.DrvBytes;
              const double V = I == At ? Special : Within(Rng);
              if (T.Kind == 'f')
                Write(D, static_cast<float>(V));
              else
                Write(D, V);
              if (T.Msb) Reverse(D, T.DrvBytes);
            }
            std::memcpy(WantDrv.Data(), In.Data(), N * T.DrvBytes);
            RefFromDriver(T, WantDrv.Data(), WantBuf.Data(), N);
            ASSERT_TRUE(ASIOConvertFromDriver(T.Type, In.Data(), Out.Data(), static_cast<int32_t>(N)));
            ASSERT_TRUE(Out.Bytes() == WantBuf.Bytes());
            ASSERT_TRUE(In.Bytes() == WantDrv.Bytes());
            ASSERT_TRUE(Out.GuardsIntact());
          }
    }
  }
}

TEST(AsioConvert, TypesThatAreNotConvertedTouchNothing) {
  for (TASIOSampleType Type : {ASIOSTDSDInt8LSB1, ASIOSTDSDInt8MSB1, ASIOSTDSDInt8NER8, 5, 7, 12, 15, 21, 23, 28,
                               ASIOSTLastEntry, -1}) {
    SCOPED_TRACE(Type);
    EXPECT_EQ(ASIOBufferBitsForType(Type), 0u);
    EXPECT_EQ(ASIODriverBytesForType(Type), 0u);
    TGuarded Buf(64, 1), Drv(64, 3);
    const std::vector<uint8_t> B0 = Buf.All(), D0 = Drv.All();
    EXPECT_FALSE(ASIOConvertToDriver(Type, Buf.Data(), Drv.Data(), 16));
    EXPECT_FALSE(ASIOConvertFromDriver(Type, Drv.Data(), Buf.Data(), 16));
    EXPECT_FALSE(ASIOSilenceDriver(Type, Drv.Data(), 16));
    EXPECT_EQ(Buf.All(), B0);
    EXPECT_EQ(Drv.All(), D0);
  }
  // A supported type with no samples writes nothing either.
  TGuarded Drv(8, 0);
  EXPECT_TRUE(ASIOSilenceDriver(ASIOSTInt32LSB, Drv.Data(), 0));
  EXPECT_TRUE(Drv.GuardsIntact());
}

TEST(AsioConvert, DocumentedValuesAndSizes) {
  TRestorePath Restore;
  for (TIppsPath Path : Paths()) {
    SetIppsPath(Path);
    SCOPED_TRACE(PathName(Path));
    int32_t Int[9] = {INT32_MIN, INT32_MIN, INT32_MIN, INT32_MIN, INT32_MIN, INT32_MIN, INT32_MIN, INT32_MIN, 0};
    float F[9];
    double D[9];
    ASSERT_TRUE(ASIOConvertToDriver(ASIOSTFloat32LSB, Int, F, 9));
    ASSERT_TRUE(ASIOConvertToDriver(ASIOSTFloat64LSB, Int, D, 9));
    EXPECT_EQ(F[0], -1.0f);
    EXPECT_EQ(F[7], -1.0f);
    EXPECT_EQ(D[0], -1.0000000004656613);
    EXPECT_EQ(D[7], -1.0000000004656613);

    float One32[9] = {1, 1, 1, 1, 1, 1, 1, 1, 1};
    double One64[9] = {1, 1, 1, 1, 1, 1, 1, 1, 1};
    ASSERT_TRUE(ASIOConvertFromDriver(ASIOSTFloat32LSB, One32, Int, 9));
    EXPECT_EQ(Int[0], 2147483647);
    EXPECT_EQ(Int[8], 2147483647);
    ASSERT_TRUE(ASIOConvertFromDriver(ASIOSTFloat64LSB, One64, Int, 9));
    EXPECT_EQ(Int[0], 2147483647);
    EXPECT_EQ(Int[8], 2147483647);

    uint8_t Msb[72];
    std::memset(Msb, 0x5A, sizeof Msb);
    ASSERT_TRUE(ASIOSilenceDriver(ASIOSTFloat64MSB, Msb, 9));
    EXPECT_EQ(std::count(Msb, Msb + 72, 0), 72);
    std::memset(Msb, 0x5A, sizeof Msb);
    ASSERT_TRUE(ASIOSilenceDriver(ASIOSTFloat32MSB, Msb, 9));
    EXPECT_EQ(std::count(Msb, Msb + 36, 0), 36);
    EXPECT_EQ(Msb[36], 0x5A);

    const int32_t Sample[1] = {0x00012345};
    int32_t Out[1] = {0};
    ASSERT_TRUE(ASIOConvertToDriver(ASIOSTInt32LSB16, Sample, Out, 1));
    EXPECT_EQ(Out[0], 0x00012345) << "copied unshifted";
  }
  struct {
    TASIOSampleType Type;
    unsigned Bits, Bytes;
  } const Sizes[] = {{ASIOSTInt16LSB, 16, 2},   {ASIOSTInt16MSB, 16, 2},   {ASIOSTInt24LSB, 24, 3},
                     {ASIOSTInt24MSB, 24, 3},   {ASIOSTInt32LSB, 32, 4},   {ASIOSTInt32MSB20, 32, 4},
                     {ASIOSTFloat32LSB, 32, 4}, {ASIOSTFloat32MSB, 32, 4}, {ASIOSTFloat64LSB, 32, 8},
                     {ASIOSTFloat64MSB, 32, 8}};
  for (const auto& S : Sizes) {
    EXPECT_EQ(ASIOBufferBitsForType(S.Type), S.Bits) << S.Type;
    EXPECT_EQ(ASIODriverBytesForType(S.Type), S.Bytes) << S.Type;
  }
}

TEST(IppsPrimitives, FloatToIntEdgesAgreeOnEveryPath) {
  TRestorePath Restore;
  const float F[] = {FNaN, FInf, -FInf, 0.5f, 1.5f, -2.5f, 2.5f, -0.5f, 2147483520.0f, 2147483648.0f, -2147483648.0f,
                     -2147483904.0f, 1e-45f, -0.0f, 3e38f, 8388607.5f};
  const int32_t FWant[] = {0, INT32_MAX, INT32_MIN, 0, 2, -2, 2, 0, 2147483520, INT32_MAX, INT32_MIN,
                           INT32_MIN, 0, 0, INT32_MAX, 8388608};
  const double D[] = {DNaN, DInf, -DInf, 0.5, 1.5, -2.5, 2147483646.5, 2147483647.4, 2147483647.5, 2147483648.0,
                      -2147483648.4, -2147483648.5, -2147483649.0, 4.9e-324, 1e300, -1e300};
  const int32_t DWant[] = {0, INT32_MAX, INT32_MIN, 0, 2, -2, 2147483646, INT32_MAX, INT32_MAX, INT32_MAX,
                           INT32_MIN, INT32_MIN, INT32_MIN, 0, INT32_MAX, INT32_MIN};
  constexpr size_t K = std::size(F), N = 3 * K + 5;  // each value in several lanes and in the tail
  static_assert(std::size(D) == K, "same count");
  std::vector<float> Fs(N);
  std::vector<double> Ds(N);
  for (size_t I = 0; I < N; ++I) {
    Fs[I] = F[I % K];
    Ds[I] = D[I % K];
  }
  for (TIppsPath Path : Paths()) {
    SetIppsPath(Path);
    SCOPED_TRACE(PathName(Path));
    std::vector<int32_t> R(N);
    ASSERT_EQ(ippsConvert_32f32s_Sfs(Fs.data(), R.data(), int(N), ippRndNear, 0), ippStsNoErr);
    for (size_t I = 0; I < N; ++I) ASSERT_EQ(R[I], FWant[I % K]) << "float " << F[I % K] << " at " << I;
    ASSERT_EQ(ippsConvert_64f32s_Sfs(Ds.data(), R.data(), int(N), ippRndNear, 0), ippStsNoErr);
    for (size_t I = 0; I < N; ++I) ASSERT_EQ(R[I], DWant[I % K]) << "double " << D[I % K] << " at " << I;
  }

  // The other rounding modes and scale factors follow the same rules.
  const float G[] = {2.7f, -2.7f, 2.5f, -2.5f, 1.5f, FNaN, 5.0f, 1e10f};
  int32_t R[8];
  ASSERT_EQ(ippsConvert_32f32s_Sfs(G, R, 8, ippRndZero, 0), ippStsNoErr);
  EXPECT_EQ(std::vector<int32_t>(R, R + 8), (std::vector<int32_t>{2, -2, 2, -2, 1, 0, 5, INT32_MAX}));
  ASSERT_EQ(ippsConvert_32f32s_Sfs(G, R, 8, ippRndFinancial, 0), ippStsNoErr);
  EXPECT_EQ(std::vector<int32_t>(R, R + 8), (std::vector<int32_t>{3, -3, 3, -3, 2, 0, 5, INT32_MAX}));
  ASSERT_EQ(ippsConvert_32f32s_Sfs(G, R, 8, ippRndNear, 1), ippStsNoErr);  // halved
  EXPECT_EQ(std::vector<int32_t>(R, R + 8), (std::vector<int32_t>{1, -1, 1, -1, 1, 0, 2, INT32_MAX}));
  const double H[] = {1.25, -1.25, 3e9, 0.75};
  ASSERT_EQ(ippsConvert_64f32s_Sfs(H, R, 4, ippRndNear, -1), ippStsNoErr);  // doubled
  EXPECT_EQ(std::vector<int32_t>(R, R + 4), (std::vector<int32_t>{2, -2, INT32_MAX, 2}));
}

TEST(IppsPrimitives, StatusCodesAndFailuresWriteNothing) {
  float F[4] = {1, 2, 3, 4};
  int32_t I[4] = {7, 7, 7, 7};
  uint8_t B[4] = {9, 9, 9, 9};
  EXPECT_EQ(ippsCopy_8u(nullptr, B, 4), ippStsNullPtrErr);
  EXPECT_EQ(ippsCopy_8u(B, B, 0), ippStsSizeErr);
  EXPECT_EQ(ippsSet_8u(0, B, -1), ippStsSizeErr);
  EXPECT_EQ(ippsSwapBytes_24u(B, nullptr, 1), ippStsNullPtrErr);
  EXPECT_EQ(ippsConvert_32f32s_Sfs(F, I, 4, IppRoundMode(5), 0), ippStsRoundModeNotSupportedErr);
  EXPECT_EQ(ippsConvert_32f32s_Sfs(F, nullptr, 4, ippRndNear, 0), ippStsNullPtrErr);
  EXPECT_EQ(ippsDivC_32f_I(0.0f, F, 4), ippStsDivByZeroErr);
  EXPECT_EQ(ippsDivC_64f_I(-0.0, nullptr, 4), ippStsNullPtrErr);
  EXPECT_EQ(F[0], 1.0f);
  EXPECT_EQ(I[0], 7);
  EXPECT_EQ(B[0], 9);
}

TEST(IppsPrimitives, SetSwapAndArithmeticAgreeOnEveryPath) {
  TRestorePath Restore;
  std::mt19937 Rng(99);
  for (TIppsPath Path : Paths()) {
    SetIppsPath(Path);
    SCOPED_TRACE(PathName(Path));
    for (int N : {1, 5, 9, 40}) {
      std::vector<float> F(N + 1, 7.0f);
      std::vector<double> D(N + 1, 7.0);
      ASSERT_EQ(ippsSet_32f(-0.75f, F.data(), N), ippStsNoErr);
      ASSERT_EQ(ippsSet_64f(1e-300, D.data(), N), ippStsNoErr);
      EXPECT_EQ(std::count(F.begin(), F.end(), -0.75f), N);
      EXPECT_EQ(std::count(D.begin(), D.end(), 1e-300), N);
      EXPECT_EQ(F[N], 7.0f);
      EXPECT_EQ(D[N], 7.0);

      std::vector<uint16_t> S16(N), W16(N);
      std::vector<uint32_t> S32(N), W32(N);
      std::vector<uint64_t> S64(N);
      for (int I = 0; I < N; ++I) {
        S16[I] = static_cast<uint16_t>(Rng());
        S32[I] = Rng();
        S64[I] = (uint64_t(Rng()) << 32) | Rng();
      }
      ASSERT_EQ(ippsSwapBytes_16u(S16.data(), W16.data(), N), ippStsNoErr);
      ASSERT_EQ(ippsSwapBytes_32u(S32.data(), W32.data(), N), ippStsNoErr);
      std::vector<uint64_t> W64 = S64;
      ASSERT_EQ(ippsSwapBytes_64u_I(W64.data(), N), ippStsNoErr);
      for (int I = 0; I < N; ++I) {
        EXPECT_EQ(W16[I], uint16_t((S16[I] << 8) | (S16[I] >> 8)));
        EXPECT_EQ(W32[I], (S32[I] >> 24) | ((S32[I] >> 8) & 0xFF00) | ((S32[I] << 8) & 0xFF0000) | (S32[I] << 24));
        uint64_t V = S64[I], Rev = 0;
        for (int B = 0; B < 8; ++B, V >>= 8) Rev = (Rev << 8) | (V & 0xFF);
        EXPECT_EQ(W64[I], Rev);
      }

      // Multiplication and division by constants that have no exact
      // reciprocal are plain IEEE operations on every path.
      std::vector<float> X(N), Y;
      std::vector<double> P(N), Q;
      for (int I = 0; I < N; ++I) {
        X[I] = static_cast<float>(Rng()) / 7.0f - 3e8f;
        P[I] = static_cast<double>(Rng()) / 7.0 - 3e8;
      }
      Y = X;
      ASSERT_EQ(ippsDivC_32f_I(3.0f, Y.data(), N), ippStsNoErr);
      for (int I = 0; I < N; ++I) EXPECT_EQ(Y[I], X[I] / 3.0f);
      Y = X;
      ASSERT_EQ(ippsMulC_32f_I(0.1f, Y.data(), N), ippStsNoErr);
      for (int I = 0; I < N; ++I) EXPECT_EQ(Y[I], X[I] * 0.1f);
      Q = P;
      ASSERT_EQ(ippsDivC_64f_I(0.3, Q.data(), N), ippStsNoErr);
      for (int I = 0; I < N; ++I) EXPECT_EQ(Q[I], P[I] / 0.3);
      Q = P;
      ASSERT_EQ(ippsMulC_64f_I(-1e-3, Q.data(), N), ippStsNoErr);
      for (int I = 0; I < N; ++I) EXPECT_EQ(Q[I], P[I] * -1e-3);
    }
  }
}

namespace {

uint64_t Bits(double V) {
  uint64_t B;
  std::memcpy(&B, &V, sizeof B);
  return B;
}

// Divides Values by Divisor with ippsDivC_64f_I on every path and compares
// bit for bit with the division operator.
void ExpectTrueDivision(const std::vector<double>& Values, double Divisor) {
  TRestorePath Restore;
  for (TIppsPath Path : Paths()) {
    SetIppsPath(Path);
    std::vector<double> Q = Values;
    ASSERT_EQ(ippsDivC_64f_I(Divisor, Q.data(), int(Q.size())), ippStsNoErr);
    for (size_t I = 0; I < Q.size(); ++I)
      ASSERT_EQ(Bits(Q[I]), Bits(Values[I] / Divisor))
          << PathName(Path) << ": " << Values[I] << " / " << Divisor << " gave " << Q[I];
  }
}

}  // namespace

// The 64-bit float output path divides by 2147483647 with a reciprocal and
// one correction step where the CPU has FMA. Checked here on every integer
// within 2^20 of zero and of both ends of the range, on a stride through the
// whole range, and on powers of two and their neighbours; the exhaustive
// check over all 2^32 integers is DivisionByIntMaxOfEveryInt32 below.
TEST(IppsPrimitives, DivisionByIntMaxMatchesTrueDivision) {
  std::vector<double> V;
  for (int64_t I = -(1 << 20); I <= (1 << 20); ++I) V.push_back(double(I));
  for (int64_t I = 0; I <= (1 << 20); ++I) {
    V.push_back(double(INT32_MAX - I));
    V.push_back(double(INT32_MIN + I));
  }
  for (int64_t I = INT32_MIN; I <= INT32_MAX; I += 65521) V.push_back(double(I));
  for (int E = 0; E < 31; ++E)
    for (int64_t D = -2; D <= 2; ++D) {
      V.push_back(double((int64_t(1) << E) + D));
      V.push_back(-double((int64_t(1) << E) + D));
    }
  ExpectTrueDivision(V, 2147483647.0);
}

// Any double, including zeros, subnormals, infinities and NaN, divided by
// the odd integers that take the same route.
TEST(IppsPrimitives, DivisionByOddIntegersMatchesTrueDivisionForAnyDouble) {
  std::mt19937_64 Rng(7);
  std::vector<double> V = {0.0, -0.0, DInf, -DInf, DNaN, 4.9e-324, -4.9e-324, 2.2250738585072014e-308, 1.7e308,
                           -1.7e308, 1.0, 3.0, 6.0, 1.5e-323};
  for (int I = 0; I < 200000; ++I) {
    const uint64_t B = Rng();
    double D;
    std::memcpy(&D, &B, sizeof D);
    V.push_back(D);
    V.push_back(std::ldexp(double(int64_t(B) >> 11), -1074 + int(B % 120)));  // subnormal and near-subnormal results
  }
  for (double Divisor : {2147483647.0, 3.0, -7.0, 4294967295.0, 1000001.0}) ExpectTrueDivision(V, Divisor);
}

// All 2^32 integers through the 64-bit float output path: a few seconds in
// a release build, so it is run on demand
// (--gtest_also_run_disabled_tests --gtest_filter=*EveryInt32*).
TEST(IppsPrimitives, DISABLED_DivisionByIntMaxOfEveryInt32) {
  constexpr size_t Chunk = 1 << 16;
  std::vector<int32_t> In(Chunk);
  std::vector<double> Out(Chunk);
  for (int64_t Base = INT32_MIN; Base <= INT32_MAX; Base += Chunk) {
    for (size_t I = 0; I < Chunk; ++I) In[I] = static_cast<int32_t>(Base + int64_t(I));
    ASSERT_TRUE(ASIOConvertToDriver(ASIOSTFloat64LSB, In.data(), Out.data(), int32_t(Chunk)));
    for (size_t I = 0; I < Chunk; ++I)
      if (Out[I] != double(In[I]) / 2147483647.0) FAIL() << In[I] << " gave " << Out[I];
  }
}

TEST(IppsPrimitives, RoundToNearestWhateverTheThreadsRoundingMode) {
  TRestorePath Restore;
  const float F[9] = {0.5f, 1.5f, -2.5f, 2.4f, 0.5f, 1.5f, -2.5f, 2.4f, -0.6f};
  const int32_t Ints[9] = {16777217, -16777219, 16777217, 16777217, 16777217, 16777217, 16777217, 16777217, 3};
  for (TIppsPath Path : Paths()) {
    SetIppsPath(Path);
    for (int Mode : {FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO}) {
      SCOPED_TRACE(testing::Message() << PathName(Path) << " mode " << Mode);
      ASSERT_EQ(std::fesetround(Mode), 0);
      int32_t R[9];
      float G[9];
      double D[9];
      for (int I = 0; I < 9; ++I) D[I] = Ints[I];
      const IppStatus S1 = ippsConvert_32f32s_Sfs(F, R, 9, ippRndNear, 0);
      const IppStatus S2 = ippsConvert_32s32f(Ints, G, 9);
      const IppStatus S3 = ippsDivC_64f_I(2147483647.0, D, 9);
      const int After = std::fegetround();
      std::fesetround(FE_TONEAREST);
      EXPECT_EQ(After, Mode) << "the caller's mode comes back";
      ASSERT_EQ(S1, ippStsNoErr);
      ASSERT_EQ(S2, ippStsNoErr);
      ASSERT_EQ(S3, ippStsNoErr);
      EXPECT_EQ(std::vector<int32_t>(R, R + 9), (std::vector<int32_t>{0, 2, -2, 2, 0, 2, -2, 2, -1}));
      EXPECT_EQ(G[0], 16777216.0f);
      EXPECT_EQ(G[1], -16777220.0f);
      for (int I = 0; I < 9; ++I) EXPECT_EQ(D[I], double(Ints[I]) / 2147483647.0);
    }
  }
}
