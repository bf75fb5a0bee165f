#include "frame/Sraudioformat.h"

#include <cmath>
#include <cstring>

namespace Quorvel {

const TGUID KSDATAFORMAT_SUBTYPE_PCM = {0x00000001, 0x0000, 0x0010, {0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71}};
const TGUID KSDATAFORMAT_SUBTYPE_IEEE_FLOAT = {0x00000003, 0x0000, 0x0010,
                                               {0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71}};

TSRSpeakers DefaultSpeakers(unsigned Channels) {
  using S = TSRSpeaker;
  switch (Channels) {
    case 1: return {S::spFrontCenter};
    case 2: return {S::spFrontLeft, S::spFrontRight};
    case 3: return {S::spFrontLeft, S::spFrontRight, S::spFrontCenter};
    case 4: return {S::spFrontLeft, S::spFrontRight, S::spBackLeft, S::spBackRight};
    case 5: return {S::spFrontLeft, S::spFrontRight, S::spFrontCenter, S::spBackLeft, S::spBackRight};
    case 6:
      return {S::spFrontLeft, S::spFrontRight, S::spFrontCenter, S::spLowFrequency, S::spBackLeft, S::spBackRight};
    case 8:
      return {S::spFrontLeft, S::spFrontRight, S::spFrontCenter, S::spLowFrequency,
              S::spBackLeft,  S::spBackRight,  S::spSideLeft,    S::spSideRight};
    default: {
      // Otherwise the first positions in mask order, one per channel.
      TSRSpeakers Set;
      for (unsigned I = 0; I < Channels && I < SRSpeakerCount; ++I) Set.Include(static_cast<S>(I));
      return Set;
    }
  }
}

TSRWaveFormatExtensible MakeWaveFormat(uint32_t SampleRate, uint16_t Channels, uint16_t Bits, uint32_t ChannelMask) {
  TSRWaveFormatExtensible F;
  std::memset(&F, 0, sizeof F);
  const uint16_t Container = static_cast<uint16_t>((Bits + 7) / 8 * 8);
  F.Format.wFormatTag = WAVE_FORMAT_EXTENSIBLE;
  F.Format.nChannels = Channels;
  F.Format.nSamplesPerSec = SampleRate;
  F.Format.nBlockAlign = static_cast<uint16_t>(Channels * Container / 8);
  F.Format.nAvgBytesPerSec = SampleRate * F.Format.nBlockAlign;
  F.Format.wBitsPerSample = Container;
  F.Format.cbSize = 22;
  F.Samples.wValidBitsPerSample = Bits;
  F.dwChannelMask = ChannelMask ? ChannelMask : DefaultSpeakers(Channels).Mask();
  F.SubFormat = KSDATAFORMAT_SUBTYPE_PCM;
  return F;
}

TSRAudioFormatBasic::TSRAudioFormatBasic(const void* Owner, Threading::ICriticalSection* ChangeLock,
                                         TChangeProc OnChange)
    : FOwner(Owner), FLock(ChangeLock), FOnChange(std::move(OnChange)) {}

double TSRAudioFormatBasic::GetSampleRate() const { return FSampleRate.load(); }
unsigned TSRAudioFormatBasic::GetCountChannels() const { return FChannels.load(); }
unsigned TSRAudioFormatBasic::GetBits() const { return FBits.load(); }
unsigned TSRAudioFormatBasic::GetValidBits() const { return FValidBits.load(); }
uint32_t TSRAudioFormatBasic::GetChannelMask() const { return FChannelMask.load(); }

TSRWaveFormatExtensible TSRAudioFormatBasic::GetWaveFormat() const {
  auto F = MakeWaveFormat(static_cast<uint32_t>(std::lround(GetSampleRate())), static_cast<uint16_t>(GetCountChannels()),
                          static_cast<uint16_t>(GetBits()), GetChannelMask());
  F.Samples.wValidBitsPerSample = static_cast<uint16_t>(GetValidBits());
  return F;
}

namespace {
template <typename Fn>
void Locked(Threading::ICriticalSection* Lock, Fn&& F) {
  if (Lock) {
    Threading::TLockGuard G(*Lock);
    F();
  } else {
    F();
  }
}
}  // namespace

void TSRAudioFormatBasic::Changed() {
  if (FOnChange) FOnChange(*this);
}

void TSRAudioFormatBasic::SetSampleRate(double Value) {
  Locked(FLock, [&] { FSampleRate = Value; });
  Changed();
}

void TSRAudioFormatBasic::SetCountChannels(unsigned Value) {
  Locked(FLock, [&] {
    FChannels = Value;
    FChannelMask = DefaultSpeakers(Value).Mask();
  });
  Changed();
}

void TSRAudioFormatBasic::SetBits(unsigned Value) {
  Locked(FLock, [&] {
    FBits = Value;
    FValidBits = Value;
  });
  Changed();
}

void TSRAudioFormatBasic::SetChannelMask(uint32_t Value) {
  Locked(FLock, [&] { FChannelMask = Value; });
  Changed();
}

bool TSRAudioFormatBasic::SetWaveFormat(const TSRWaveFormatExtensible& Format, double SampleRate) {
  const auto& H = Format.Format;
  const unsigned Bits = H.wBitsPerSample;
  if (H.nChannels == 0 || Bits < 8 || Bits > 32 || Bits % 8 != 0) return false;
  const double Rate = SampleRate > 0.0 ? SampleRate : static_cast<double>(H.nSamplesPerSec);
  if (!(Rate > 0.0)) return false;
  const bool Extensible = H.wFormatTag == WAVE_FORMAT_EXTENSIBLE && H.cbSize >= 22;
  unsigned Valid = Extensible ? Format.Samples.wValidBitsPerSample : Bits;
  if (Valid == 0 || Valid > Bits) Valid = Bits;
  const uint32_t Mask = Extensible && Format.dwChannelMask ? Format.dwChannelMask : DefaultSpeakers(H.nChannels).Mask();
  Locked(FLock, [&] {
    FSampleRate = Rate;
    FChannels = H.nChannels;
    FBits = Bits;
    FValidBits = Valid;
    FChannelMask = Mask;
  });
  Changed();
  return true;
}

void TSRAudioFormatBasic::Assign(const TSRAudioFormatBasic& Source) {
  if (&Source == this) return;
  Locked(FLock, [&] {
    FSampleRate = Source.GetSampleRate();
    FChannels = Source.GetCountChannels();
    FBits = Source.GetBits();
    FValidBits = Source.GetValidBits();
    FChannelMask = Source.GetChannelMask();
  });
  Changed();
}

}  // namespace Quorvel
