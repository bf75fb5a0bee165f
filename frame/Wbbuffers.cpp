#include "frame/Wbbuffers.h"

#include <cstring>
#include <limits>
#include <new>

namespace Quorvel {

// ---- Pool ----------------------------------------------------------------
// Blocks of power-of-two sizes, each class keeping up to SlotCount free
// blocks in an array of atomic slots. Taking and returning a block is one
// atomic exchange on a slot: no lock, and no ABA problem because whoever
// exchanges a pointer out of a slot owns it.

namespace {

constexpr unsigned MinClass = 7;    // 128 bytes
constexpr unsigned MaxClass = 26;   // 64 MiB; larger blocks bypass the pool
constexpr unsigned SlotCount = 64;
constexpr size_t HeaderAlign = 64;

struct TPoolClass {
  std::atomic<void*> Slots[SlotCount];
};

struct TPool {
  TPoolClass Classes[MaxClass + 1] = {};
  std::atomic<uint64_t> HeapAllocations{0};
  std::atomic<uint64_t> PoolHits{0};
  std::atomic<uint64_t> HeapFrees{0};

  ~TPool() {
    for (auto& C : Classes)
      for (auto& S : C.Slots) ::operator delete(S.exchange(nullptr), std::align_val_t(HeaderAlign));
  }
};

TPool& Pool() {
  static TPool P;
  return P;
}

unsigned ClassFor(size_t Bytes) {
  unsigned C = MinClass;
  while (C <= MaxClass && (size_t{1} << C) < Bytes) ++C;
  return C;  // MaxClass + 1 means "not pooled"
}

size_t ClassBytes(unsigned C, size_t Bytes) { return C <= MaxClass ? (size_t{1} << C) : Bytes; }

void* PoolAlloc(size_t Bytes, unsigned& Class) {
  auto& P = Pool();
  Class = ClassFor(Bytes);
  if (Class <= MaxClass) {
    for (auto& S : P.Classes[Class].Slots) {
      if (S.load(std::memory_order_relaxed) == nullptr) continue;
      if (void* Block = S.exchange(nullptr, std::memory_order_acquire)) {
        P.PoolHits.fetch_add(1, std::memory_order_relaxed);
        return Block;
      }
    }
  }
  P.HeapAllocations.fetch_add(1, std::memory_order_relaxed);
  return ::operator new(ClassBytes(Class, Bytes), std::align_val_t(HeaderAlign));
}

void PoolFree(void* Block, unsigned Class) noexcept {
  auto& P = Pool();
  if (Class <= MaxClass) {
    for (auto& S : P.Classes[Class].Slots) {
      void* Expected = nullptr;
      if (S.load(std::memory_order_relaxed) == nullptr &&
          S.compare_exchange_strong(Expected, Block, std::memory_order_release, std::memory_order_relaxed))
        return;
    }
  }
  P.HeapFrees.fetch_add(1, std::memory_order_relaxed);
  ::operator delete(Block, std::align_val_t(HeaderAlign));
}

constexpr size_t RoundUp(size_t V, size_t A) { return (V + A - 1) / A * A; }

bool ValidBits(unsigned Bits) { return Bits == 8 || Bits == 16 || Bits == 24 || Bits == 32; }

// Frames * frame bytes, or 0 when that does not fit.
size_t CheckedBytes(size_t Frames, size_t FrameBytes) {
  if (FrameBytes != 0 && Frames > (std::numeric_limits<size_t>::max() / 2) / FrameBytes) return 0;
  return Frames * FrameBytes;
}

}  // namespace

TWBBufferPoolStats GetBufferPoolStats() {
  auto& P = Pool();
  return {P.HeapAllocations.load(), P.PoolHits.load(), P.HeapFrees.load()};
}

// ---- PCM conversion ------------------------------------------------------

namespace {
inline int32_t DecodeSample(const uint8_t* P, unsigned Bits) noexcept {
  switch (Bits) {
    case 8: return static_cast<int32_t>(P[0]) - 128;
    case 16: {
      int16_t V;
      std::memcpy(&V, P, 2);
      return V;
    }
    case 24:
      return static_cast<int32_t>((static_cast<uint32_t>(P[0]) | (static_cast<uint32_t>(P[1]) << 8) |
                                   (static_cast<uint32_t>(P[2]) << 16))
                                  << 8) >>
             8;
    default: {
      int32_t V;
      std::memcpy(&V, P, 4);
      return V;
    }
  }
}

inline void EncodeSample(uint8_t* P, unsigned Bits, int32_t V) noexcept {
  switch (Bits) {
    case 8: P[0] = static_cast<uint8_t>(V + 128); break;
    case 16: {
      const auto S = static_cast<int16_t>(V);
      std::memcpy(P, &S, 2);
      break;
    }
    case 24: {
      const auto U = static_cast<uint32_t>(V);
      P[0] = static_cast<uint8_t>(U);
      P[1] = static_cast<uint8_t>(U >> 8);
      P[2] = static_cast<uint8_t>(U >> 16);
      break;
    }
    default: std::memcpy(P, &V, 4); break;
  }
}
}  // namespace

void ConvertPcmFrames(const uint8_t* Source, unsigned SourceChannels, unsigned SourceBits, uint8_t* Dest,
                      unsigned DestChannels, unsigned DestBits, size_t Frames) noexcept {
  if (Frames == 0) return;
  if (SourceChannels == DestChannels && SourceBits == DestBits) {
    std::memcpy(Dest, Source, Frames * SourceChannels * (SourceBits / 8));
    return;
  }
  const unsigned SB = SourceBits / 8, DB = DestBits / 8;
  const int Shift = static_cast<int>(DestBits) - static_cast<int>(SourceBits);
  for (size_t F = 0; F < Frames; ++F) {
    const uint8_t* S = Source + F * SourceChannels * SB;
    uint8_t* D = Dest + F * DestChannels * DB;
    for (unsigned C = 0; C < DestChannels; ++C) {
      int32_t V = 0;
      if (C < SourceChannels) {
        V = DecodeSample(S + C * SB, SourceBits);
        V = Shift >= 0 ? static_cast<int32_t>(static_cast<uint32_t>(V) << Shift) : V >> -Shift;
      }
      EncodeSample(D + C * DB, DestBits, V);
    }
  }
}

void SilencePcmFrames(uint8_t* Dest, unsigned Channels, unsigned Bits, size_t Frames) noexcept {
  if (Frames) std::memset(Dest, Bits == 8 ? 0x80 : 0, Frames * Channels * (Bits / 8));
}

// ---- TWBBlockBuffer ------------------------------------------------------

TRef<TWBBlockBuffer> TWBBlockBuffer::Create(size_t Size) { return Create(Size, 0); }

TRef<TWBBlockBuffer> TWBBlockBuffer::Create(size_t Size, uint8_t Fill) {
  const size_t Header = RoundUp(sizeof(TWBBlockBuffer), HeaderAlign);
  unsigned Class = 0;
  void* Mem = PoolAlloc(Header + Size, Class);
  auto* B = new (Mem) TWBBlockBuffer();
  B->FPoolClass = Class;
  B->FData = static_cast<uint8_t*>(Mem) + Header;
  B->FSize = Size;
  if (Size) std::memset(B->FData, Fill, Size);
  return TRef<TWBBlockBuffer>(B);
}

TRef<TWBBlockBuffer> TWBBlockBuffer::CreateOver(void* Memory, size_t Size) {
  unsigned Class = 0;
  void* Mem = PoolAlloc(sizeof(TWBBlockBuffer), Class);
  auto* B = new (Mem) TWBBlockBuffer();
  B->FPoolClass = Class;
  B->FData = static_cast<uint8_t*>(Memory);
  B->FSize = Memory ? Size : 0;
  return TRef<TWBBlockBuffer>(B);
}

TRef<TWBBlockBuffer> TWBBlockBuffer::CreateCopy(const IWBDataBuffer& Source) {
  auto B = Create(Source.GetSize());
  if (Source.GetSize()) std::memcpy(B->GetData(), Source.GetData(), Source.GetSize());
  return B;
}

void TWBBlockBuffer::Destroy() noexcept {
  const unsigned Class = FPoolClass;
  this->~TWBBlockBuffer();
  PoolFree(this, Class);
}

// ---- ISRAudioBuffer ------------------------------------------------------

int32_t ISRAudioBuffer::GetSample(size_t Sample, unsigned Channel) const noexcept {
  if (Sample >= FSamples || Channel >= FChannels) return 0;
  return DecodeSample(FData + Sample * GetFrameBytes() + static_cast<size_t>(Channel) * (FBits / 8), FBits);
}

void ISRAudioBuffer::SetSample(size_t Sample, unsigned Channel, int32_t Value) noexcept {
  if (Sample >= FSamples || Channel >= FChannels) return;
  uint8_t* P = FData + Sample * GetFrameBytes() + static_cast<size_t>(Channel) * (FBits / 8);
  if (Value < MinValue(FBits)) Value = MinValue(FBits);
  if (Value > MaxValue(FBits)) Value = MaxValue(FBits);
  EncodeSample(P, FBits, Value);
}

bool ISRAudioBuffer::SetSampleCount(size_t Samples) noexcept {
  if (Samples > FCapacity) return false;
  FSamples = Samples;
  FSize = Samples * GetFrameBytes();
  return true;
}

void ISRAudioBuffer::Clear() noexcept {
  if (FSize) std::memset(FData, FBits == 8 ? 0x80 : 0, FSize);
}

TSRWaveFormatExtensible ISRAudioBuffer::GetWaveFormat() const {
  return MakeWaveFormat(static_cast<uint32_t>(FSampleRate + 0.5), static_cast<uint16_t>(FChannels),
                        static_cast<uint16_t>(FBits), FSpeakers.Mask());
}

// ---- TSRAudioBuffer ------------------------------------------------------

TRef<TSRAudioBuffer> TSRAudioBuffer::Create() { return CreateOver(nullptr, 0, 0, 16, 0.0); }

TRef<TSRAudioBuffer> TSRAudioBuffer::Create(unsigned Channels, size_t Samples, unsigned Bits, double SampleRate) {
  return Create(Channels, Samples, Bits, SampleRate, DefaultSpeakers(Channels));
}

TRef<TSRAudioBuffer> TSRAudioBuffer::Create(unsigned Channels, size_t Samples, unsigned Bits, double SampleRate,
                                            TSRSpeakers Speakers) {
  if (!ValidBits(Bits) || Channels == 0) return Create();
  const size_t FrameBytes = static_cast<size_t>(Channels) * (Bits / 8);
  const size_t Bytes = CheckedBytes(Samples, FrameBytes);
  if (Bytes == 0 && Samples != 0) return Create();
  const size_t Header = RoundUp(sizeof(TSRAudioBuffer), HeaderAlign);
  unsigned Class = 0;
  void* Mem = PoolAlloc(Header + Bytes, Class);
  auto* B = new (Mem) TSRAudioBuffer();
  B->FPoolClass = Class;
  B->FData = static_cast<uint8_t*>(Mem) + Header;
  B->FSize = Bytes;
  B->FChannels = Channels;
  B->FSamples = Samples;
  B->FCapacity = Samples;
  B->FBits = Bits;
  B->FSampleRate = SampleRate;
  B->FSpeakers = Speakers;
  B->Clear();
  return TRef<TSRAudioBuffer>(B);
}

TRef<TSRAudioBuffer> TSRAudioBuffer::Create(IWBDataBuffer& Block, unsigned Channels, unsigned Bits,
                                            double SampleRate) {
  if (!ValidBits(Bits) || Channels == 0) return Create();
  const size_t FrameBytes = static_cast<size_t>(Channels) * (Bits / 8);
  auto B = CreateOver(Block.GetData(), Channels, Block.GetSize() / FrameBytes, Bits, SampleRate);
  Block.AddRef();
  B->FBlock = &Block;
  return B;
}

TRef<TSRAudioBuffer> TSRAudioBuffer::CreateOver(void* Memory, unsigned Channels, size_t Samples, unsigned Bits,
                                                double SampleRate) {
  unsigned Class = 0;
  void* Mem = PoolAlloc(sizeof(TSRAudioBuffer), Class);
  auto* B = new (Mem) TSRAudioBuffer();
  B->FPoolClass = Class;
  const bool Usable = Memory && ValidBits(Bits) && Channels > 0;
  const size_t Bytes = Usable ? CheckedBytes(Samples, static_cast<size_t>(Channels) * (Bits / 8)) : 0;
  if (Usable && (Bytes != 0 || Samples == 0)) {
    B->FData = static_cast<uint8_t*>(Memory);
    B->FSize = Bytes;
    B->FChannels = Channels;
    B->FSamples = Samples;
    B->FCapacity = Samples;
    B->FBits = Bits;
  }
  B->FSampleRate = SampleRate;
  B->FSpeakers = DefaultSpeakers(B->FChannels);
  return TRef<TSRAudioBuffer>(B);
}

void TSRAudioBuffer::Destroy() noexcept {
  const unsigned Class = FPoolClass;
  IWBDataBuffer* Block = FBlock;
  this->~TSRAudioBuffer();
  PoolFree(this, Class);
  if (Block) Block->Release();
}

}  // namespace Quorvel
