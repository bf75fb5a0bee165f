// The flat driver functions over an in-process driver double: arguments and
// results pass through unchanged, a reference is held during each call, and
// the driver's fixed-size texts are read safely.
#include "asio/Asiointerface.h"

#include <gtest/gtest.h>

#include "tests/asio/Fakeasiodriver.h"

namespace Quorvel {
namespace {

using Testing::TFakeAsioDriver;

const TGUID FakeClsid{0x11111111, 0x2222, 0x3333, {0x44, 0x44, 0x55, 0x55, 0x55, 0x55, 0x55, 0x55}};

TEST(Asiointerface, WrappersForwardArgumentsAndResultsHoldingAReference) {
  IASIORef Ref(new TFakeAsioDriver(FakeClsid, "Fake"));
  Ref->Release();  // the ref now owns the only reference
  auto* D = static_cast<TFakeAsioDriver*>(Ref.Get());
  ASSERT_EQ(D->RefCount(), 1u);
  int Handle = 0;

  EXPECT_EQ(ASIOInit(D, &Handle), ASIOTrue);
  EXPECT_EQ(D->LastPointer, &Handle);
  EXPECT_EQ(D->RefsInCall, 2u);  // ours plus the wrapper's
  EXPECT_EQ(ASIOGetDriverName(D), "Fake");
  EXPECT_EQ(ASIOGetDriverVersion(D), 7);
  EXPECT_EQ(ASIOGetErrorMessage(D), "all is well");

  // Error codes come back as they are, success codes and failures alike.
  for (TASIOError Code : {ASE_OK, ASE_SUCCESS, ASE_NotPresent, ASE_NoMemory, 12345}) {
    D->Result = Code;
    EXPECT_EQ(ASIOStart(D), Code);
    EXPECT_EQ(D->LastMethod, "start");
    EXPECT_EQ(ASIOStop(D), Code);
    EXPECT_EQ(D->LastMethod, "stop");
    EXPECT_EQ(ASIODisposeBuffers(D), Code);
    EXPECT_EQ(D->LastMethod, "disposeBuffers");
    EXPECT_EQ(ASIOControlPanel(D), Code);
    EXPECT_EQ(D->LastMethod, "controlPanel");
    EXPECT_EQ(ASIOOutputReady(D), Code);
    EXPECT_EQ(D->LastMethod, "outputReady");
    EXPECT_EQ(D->RefsInCall, 2u);
  }
  D->Result = ASE_OK;

  int32_t In = 0, Out = 0;
  EXPECT_EQ(ASIOGetChannels(D, In, Out), ASE_OK);
  EXPECT_EQ(In, 2);
  EXPECT_EQ(Out, 6);
  EXPECT_EQ(ASIOGetLatencies(D, In, Out), ASE_OK);
  EXPECT_EQ(In, 128);
  EXPECT_EQ(Out, 256);
  int32_t Min = 0, Max = 0, Preferred = 0, Granularity = 0;
  EXPECT_EQ(ASIOGetBufferSize(D, Min, Max, Preferred, Granularity), ASE_OK);
  EXPECT_EQ(Min, 64);
  EXPECT_EQ(Max, 2048);
  EXPECT_EQ(Preferred, 512);
  EXPECT_EQ(Granularity, -1);

  EXPECT_EQ(ASIOCanSampleRate(D, 96000), ASE_OK);
  EXPECT_EQ(D->LastMethod, "canSampleRate");
  EXPECT_EQ(D->LastDouble, 96000);
  EXPECT_EQ(ASIOSetSampleRate(D, 88200), ASE_OK);
  EXPECT_EQ(D->LastMethod, "setSampleRate");
  EXPECT_EQ(D->LastDouble, 88200);
  double Rate = 0;
  EXPECT_EQ(ASIOGetSampleRate(D, Rate), ASE_OK);
  EXPECT_EQ(Rate, 48000);

  TASIOClockSource Clocks[4] = {};
  int32_t ClockCount = 4;
  EXPECT_EQ(ASIOGetClockSources(D, Clocks, ClockCount), ASE_OK);
  EXPECT_EQ(D->LastInt, 4);  // the room offered
  EXPECT_EQ(ClockCount, 1);
  EXPECT_STREQ(Clocks[0].name, "Internal");
  EXPECT_EQ(ASIOSetClockSource(D, 3), ASE_OK);
  EXPECT_EQ(D->LastInt, 3);

  TASIOSamples Position{};
  TASIOTimeStamp Stamp{};
  EXPECT_EQ(ASIOGetSamplePosition(D, Position, Stamp), ASE_OK);
  EXPECT_EQ(ASIOToUInt64(Position), 0x100000002ull);
  EXPECT_EQ(Position.hi, 1u);
  EXPECT_EQ(Position.lo, 2u);
  EXPECT_EQ(ASIOToUInt64(Stamp), 0x300000004ull);

  TASIOChannelInfo Info{};
  Info.channel = 5;
  Info.isInput = ASIOTrue;
  EXPECT_EQ(ASIOGetChannelInfo(D, Info), ASE_OK);
  EXPECT_EQ(D->LastPointer, &Info);
  EXPECT_EQ(Info.type, ASIOSTInt24LSB);
  EXPECT_EQ(Info.isActive, ASIOTrue);

  TASIOBufferInfo Buffers[3] = {};
  TASIOCallbacks Callbacks{};
  EXPECT_EQ(ASIOCreateBuffers(D, Buffers, 3, 256, &Callbacks), ASE_OK);
  EXPECT_EQ(D->LastPointer, Buffers);
  EXPECT_EQ(D->LastInt, 300256);
  EXPECT_EQ(D->LastCallbacks, &Callbacks);

  TASIOInternalBufferInfo Internal{};
  EXPECT_EQ(ASIOFuture(D, kAsioGetInternalBufferSamples, &Internal), ASE_OK);
  EXPECT_EQ(D->LastInt, kAsioGetInternalBufferSamples);
  EXPECT_EQ(D->LastPointer, &Internal);

  // Every wrapper gave its reference back.
  EXPECT_EQ(D->RefCount(), 1u);
}

TEST(Asiointerface, DriverTextsStopAtTheirPublishedSizes) {
  IASIORef Ref(new TFakeAsioDriver(FakeClsid, ""));
  Ref->Release();
  auto* D = static_cast<TFakeAsioDriver*>(Ref.Get());
  // A driver that fills the whole 32 bytes (and more) without a terminator.
  const std::string Long(40, 'N');
  D->NameBytes = Long.data();
  D->NameLength = Long.size();
  EXPECT_EQ(ASIOGetDriverName(D), std::string(32, 'N'));
  const char Embedded[] = "abc\0def";
  D->NameBytes = Embedded;
  D->NameLength = sizeof(Embedded);
  EXPECT_EQ(ASIOGetDriverName(D), "abc");
  D->ErrorText = std::string(150, 'e');
  EXPECT_EQ(ASIOGetErrorMessage(D), std::string(124, 'e'));
}

TEST(Asiointerface, NullDriverAnswersNotPresentWithoutCalling) {
  int32_t A = 1, B = 2, C = 3, E = 4;
  double Rate = 5;
  TASIOSamples Position{};
  TASIOTimeStamp Stamp{};
  TASIOChannelInfo Info{};
  EXPECT_EQ(ASIOInit(nullptr, nullptr), ASIOFalse);
  EXPECT_EQ(ASIOGetDriverName(nullptr), "");
  EXPECT_EQ(ASIOGetDriverVersion(nullptr), 0);
  EXPECT_EQ(ASIOGetErrorMessage(nullptr), "");
  EXPECT_EQ(ASIOStart(nullptr), ASE_NotPresent);
  EXPECT_EQ(ASIOGetChannels(nullptr, A, B), ASE_NotPresent);
  EXPECT_EQ(ASIOGetBufferSize(nullptr, A, B, C, E), ASE_NotPresent);
  EXPECT_EQ(ASIOGetSampleRate(nullptr, Rate), ASE_NotPresent);
  EXPECT_EQ(ASIOGetSamplePosition(nullptr, Position, Stamp), ASE_NotPresent);
  EXPECT_EQ(ASIOGetChannelInfo(nullptr, Info), ASE_NotPresent);
  EXPECT_EQ(ASIOCreateBuffers(nullptr, nullptr, 0, 0, nullptr), ASE_NotPresent);
  EXPECT_EQ(ASIOFuture(nullptr, kAsioCanTimeInfo, nullptr), ASE_NotPresent);
  EXPECT_EQ(A, 1);
  EXPECT_EQ(Rate, 5);
}

TEST(Asiointerface, SampleCountsSplitIntoHighAndLowHalves) {
  const uint64_t Big = 0xFEDCBA9876543210ull;
  const TASIOSamples S = ASIOSamplesFrom(Big);
  EXPECT_EQ(S.hi, 0xFEDCBA98u);
  EXPECT_EQ(S.lo, 0x76543210u);
  EXPECT_EQ(ASIOToUInt64(S), Big);
  EXPECT_EQ(ASIOToUInt64(ASIOTimeStampFrom(Big)), Big);
}

}  // namespace
}  // namespace Quorvel
