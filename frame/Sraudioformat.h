// Audio format description and the wave-format records it is exchanged as.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>

#include "frame/Threading.h"
#include "platform/Guid.h"  // TGUID
#include "frame/Wbset.h"

namespace Quorvel {

// Sub-format identifiers of the extensible wave format.
extern const TGUID KSDATAFORMAT_SUBTYPE_PCM;         // 00000001-0000-0010-8000-00AA00389B71
extern const TGUID KSDATAFORMAT_SUBTYPE_IEEE_FLOAT;  // 00000003-0000-0010-8000-00AA00389B71

constexpr uint16_t WAVE_FORMAT_PCM = 1;
constexpr uint16_t WAVE_FORMAT_IEEE_FLOAT = 3;
constexpr uint16_t WAVE_FORMAT_EXTENSIBLE = 0xFFFE;

#pragma pack(push, 1)
// The classic wave format header (18 bytes, byte packed).
struct TWaveFormatEx {
  uint16_t wFormatTag;
  uint16_t nChannels;
  uint32_t nSamplesPerSec;
  uint32_t nAvgBytesPerSec;
  uint16_t nBlockAlign;
  uint16_t wBitsPerSample;
  uint16_t cbSize;
};

// The extensible wave format (40 bytes): the header plus valid bits, the
// speaker mask and the sub-format.
struct TSRWaveFormatExtensible {
  TWaveFormatEx Format;
  union {
    uint16_t wValidBitsPerSample;
    uint16_t wSamplesPerBlock;
    uint16_t wReserved;
  } Samples;
  uint32_t dwChannelMask;
  TGUID SubFormat;
};
#pragma pack(pop)

static_assert(sizeof(TWaveFormatEx) == 18, "wave format header is 18 bytes");
static_assert(offsetof(TWaveFormatEx, nSamplesPerSec) == 4, "layout");
static_assert(offsetof(TWaveFormatEx, nAvgBytesPerSec) == 8, "layout");
static_assert(offsetof(TWaveFormatEx, nBlockAlign) == 12, "layout");
static_assert(offsetof(TWaveFormatEx, wBitsPerSample) == 14, "layout");
static_assert(offsetof(TWaveFormatEx, cbSize) == 16, "layout");
static_assert(sizeof(TSRWaveFormatExtensible) == 40, "extensible wave format is 40 bytes");
static_assert(offsetof(TSRWaveFormatExtensible, Samples) == 18, "layout");
static_assert(offsetof(TSRWaveFormatExtensible, dwChannelMask) == 20, "layout");
static_assert(offsetof(TSRWaveFormatExtensible, SubFormat) == 24, "layout");

// Speaker positions, in the bit order of the wave format's channel mask.
enum class TSRSpeaker {
  spFrontLeft, spFrontRight, spFrontCenter, spLowFrequency, spBackLeft, spBackRight,
  spFrontLeftOfCenter, spFrontRightOfCenter, spBackCenter, spSideLeft, spSideRight,
  spTopCenter, spTopFrontLeft, spTopFrontCenter, spTopFrontRight, spTopBackLeft,
  spTopBackCenter, spTopBackRight
};
constexpr int SRSpeakerCount = 18;
using TSRSpeakers = TSet<TSRSpeaker>;

// The usual speaker set for a channel count (front pair for stereo, 5.1 for six...).
TSRSpeakers DefaultSpeakers(unsigned Channels);

// Builds a complete extensible record for integer PCM.
TSRWaveFormatExtensible MakeWaveFormat(uint32_t SampleRate, uint16_t Channels, uint16_t Bits,
                                       uint32_t ChannelMask = 0);

// An audio format with change notification. Setters take the change lock
// (when given) and then call the change callback outside of it.
class TSRAudioFormatBasic {
 public:
  using TChangeProc = std::function<void(TSRAudioFormatBasic& Sender)>;
  TSRAudioFormatBasic(const void* Owner, Threading::ICriticalSection* ChangeLock, TChangeProc OnChange);

  double GetSampleRate() const;          // [any thread]
  unsigned GetCountChannels() const;     // [any thread]
  unsigned GetBits() const;              // [any thread] bits per sample (container)
  unsigned GetValidBits() const;         // [any thread]
  uint32_t GetChannelMask() const;       // [any thread]
  TSRWaveFormatExtensible GetWaveFormat() const;  // [any thread]
  const void* GetOwner() const { return FOwner; }

  void SetSampleRate(double Value);       // [any thread]
  void SetCountChannels(unsigned Value);  // [any thread]
  void SetBits(unsigned Value);           // [any thread] also sets the valid bits
  void SetChannelMask(uint32_t Value);    // [any thread]
  // Takes every value from a record; a classic header (tag 1) gets the usual
  // speaker mask. Answers false, changing nothing, for a malformed record
  // (no channels, bits outside 8..32 or not a multiple of 8, zero rate).
  bool SetWaveFormat(const TSRWaveFormatExtensible& Format, double SampleRate = 0.0);
  void Assign(const TSRAudioFormatBasic& Source);

 private:
  void Changed();
  const void* FOwner;
  Threading::ICriticalSection* FLock;
  TChangeProc FOnChange;
  // Atomic so that an audio thread may read while the main thread sets.
  std::atomic<double> FSampleRate{44100.0};
  std::atomic<unsigned> FChannels{2};
  std::atomic<unsigned> FBits{16};
  std::atomic<unsigned> FValidBits{16};
  std::atomic<uint32_t> FChannelMask{3};
};

}  // namespace Quorvel
