// Record layouts are checked at compile time in Srvsteffectintf.cpp; these
// tests cover the helpers' rules and their boundaries.
#include "vst2/Srvsteffectintf.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <set>
#include <string>

namespace Quorvel {
namespace {

TEST(Srvsteffectintf, FourCharToLongPutsFirstCharacterInTopByte) {
  EXPECT_EQ(FourCharToLong('V', 's', 't', 'P'), 0x56737450);
  EXPECT_EQ(FourCharToLong('C', 'c', 'n', 'K'), 0x43636E4B);
  // Bytes above 0x7F are unsigned: no sign extension into the other bytes.
  EXPECT_EQ(static_cast<uint32_t>(FourCharToLong('\xFF', '\0', '\x80', '\x01')), 0xFF008001u);
}

TEST(Srvsteffectintf, MakeERectStoresInRecordOrder) {
  const TERect R = MakeERect(/*Left*/ 1, /*Top*/ 2, /*Right*/ 300, /*Bottom*/ -4);
  EXPECT_EQ(R.Top, 2);
  EXPECT_EQ(R.Left, 1);
  EXPECT_EQ(R.Bottom, -4);
  EXPECT_EQ(R.Right, 300);
}

TEST(Srvsteffectintf, FModTruncatesQuotientTowardsZero) {
  EXPECT_DOUBLE_EQ(FMod(-7.5, 2), -1.5);
  EXPECT_DOUBLE_EQ(FMod(7.5, 2), 1.5);
  EXPECT_DOUBLE_EQ(FMod(7.5, -2), 1.5);
  EXPECT_DOUBLE_EQ(FMod(-7.5, -2), -1.5);
  EXPECT_DOUBLE_EQ(FMod(6, 2), 0);
  EXPECT_DOUBLE_EQ(FMod(1.25, 4), 1.25);
  // A quotient just inside the 32-bit range is still exact.
  EXPECT_DOUBLE_EQ(FMod(2147483647.5, 1), 0.5);
  EXPECT_DOUBLE_EQ(FMod(-2147483648.5, 1), -0.5);
}

TEST(Srvsteffectintf, FModOutsideItsDomain) {
  // Quotients beyond 32 bits saturate instead of overflowing.
  EXPECT_DOUBLE_EQ(FMod(3e9, 1), 3e9 - 2147483647.0);
  EXPECT_DOUBLE_EQ(FMod(-3e9, 1), -3e9 + 2147483648.0);
  // An infinite divisor leaves X, as the quotient truncates to 0.
  EXPECT_DOUBLE_EQ(FMod(5, std::numeric_limits<double>::infinity()), 5);
  const double Inf = std::numeric_limits<double>::infinity();
  const double NaN = std::numeric_limits<double>::quiet_NaN();
  EXPECT_TRUE(std::isnan(FMod(1, 0)));
  EXPECT_TRUE(std::isnan(FMod(0, 0)));
  EXPECT_TRUE(std::isnan(FMod(1, -0.0)));
  EXPECT_TRUE(std::isnan(FMod(NaN, 2)));
  EXPECT_TRUE(std::isnan(FMod(2, NaN)));
  EXPECT_TRUE(std::isnan(FMod(Inf, 2)));
  EXPECT_TRUE(std::isnan(FMod(-Inf, Inf)));
}

TEST(Srvsteffectintf, GapCurveAndItsInverse) {
  EXPECT_DOUBLE_EQ(gapSmallValue(0.5, 100), 10);
  EXPECT_DOUBLE_EQ(gapSmallValue(0, 7), 1);
  EXPECT_DOUBLE_EQ(gapSmallValue(2, 3), 9);
  EXPECT_DOUBLE_EQ(invGapSmallValue(1000, 10), 3);
  // 0 answers 0 for any base, even where the logarithm does not exist.
  for (double Max : {0.5, 1.0, 10.0, 0.0, -3.0}) EXPECT_EQ(invGapSmallValue(0, Max), 0) << Max;
  for (double Max : {0.01, 0.5, 2.0, 10.0, 1000.0})
    for (double V : {-2.0, -0.5, 0.0, 0.25, 1.0, 3.0})
      EXPECT_NEAR(invGapSmallValue(gapSmallValue(V, Max), Max), V, 1e-12) << V << " " << Max;
}

int32_t Key(int32_t Character, uint8_t Virt, uint8_t Modifier = 0) {
  TVstKeyCode K{};
  K.Character = Character;
  K.Virt = Virt;
  K.Modifier = Modifier;
  return KeyCodeToInteger(K);
}

TEST(Srvsteffectintf, KeyCodeCharacterWinsAndShiftLowersBy32) {
  EXPECT_EQ(Key('a', 0), 'a');
  EXPECT_EQ(Key('a', 0, 1), 'A');
  EXPECT_EQ(Key('a', 0, 0xFE), 'a');    // other modifiers only: no shift
  EXPECT_EQ(Key('a', 0, 0xFF), 'A');
  EXPECT_EQ(Key('a', 15), 'a');         // character wins over the virtual key
  EXPECT_EQ(Key(0, 24, 1), '0');        // shift does not touch virtual keys
  EXPECT_EQ(Key(std::numeric_limits<int32_t>::min() + 1, 0, 1),
            std::numeric_limits<int32_t>::max() - 30);  // wraps, no overflow trap
}

TEST(Srvsteffectintf, Opcode2StringNamesEveryOpcode) {
  EXPECT_EQ(Opcode2String(effOpen), "effOpen");
  EXPECT_EQ(Opcode2String(effIdentify), "effIdentify");
  EXPECT_EQ(Opcode2String(effString2Parameter), "effString2Parameter");
  EXPECT_EQ(Opcode2String(effEditKeyUp), "effEditKeyUp");
  EXPECT_EQ(Opcode2String(effGetNumMidiOutputChannels), "effGetNumMidiOutputChannels");
  std::set<std::string> Names;
  for (int32_t I = 0; I <= 79; ++I) {
    const std::string Name = Opcode2String(static_cast<TDispatcherOpcode>(I));
    EXPECT_EQ(Name.rfind("eff", 0), 0u) << I << ": " << Name;
    Names.insert(Name);
  }
  EXPECT_EQ(Names.size(), 80u);
}

TEST(Srvsteffectintf, Opcode2StringUnknownNumbers) {
  EXPECT_EQ(Opcode2String(static_cast<TDispatcherOpcode>(80)), "unkown opcode: 80");
  EXPECT_EQ(Opcode2String(static_cast<TDispatcherOpcode>(-1)), "unkown opcode: -1");
  EXPECT_EQ(Opcode2String(static_cast<TDispatcherOpcode>(std::numeric_limits<int32_t>::min())),
            "unkown opcode: -2147483648");
  EXPECT_EQ(Opcode2String(static_cast<TDispatcherOpcode>(std::numeric_limits<int32_t>::max())),
            "unkown opcode: 2147483647");
}

}  // namespace
}  // namespace Quorvel
