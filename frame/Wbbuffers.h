// Reference-counted data blocks and audio buffers. Buffers made by the
// Create functions come from a process-wide pool: once a stream has warmed
// the pool, making and releasing a buffer of the same size allocates nothing.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <utility>

#include "frame/Sraudioformat.h"

namespace Quorvel {

// Intrusive reference to a reference-counted object (AddRef/Release).
template <typename T>
class TRef {
 public:
  TRef() noexcept = default;
  TRef(std::nullptr_t) noexcept {}
  explicit TRef(T* P) noexcept : FPtr(P) { if (FPtr) FPtr->AddRef(); }
  TRef(const TRef& O) noexcept : FPtr(O.FPtr) { if (FPtr) FPtr->AddRef(); }
  TRef(TRef&& O) noexcept : FPtr(O.FPtr) { O.FPtr = nullptr; }
  template <typename U>
  TRef(const TRef<U>& O) noexcept : FPtr(O.Get()) { if (FPtr) FPtr->AddRef(); }
  template <typename U>
  TRef(TRef<U>&& O) noexcept : FPtr(O.Detach()) {}
  ~TRef() { if (FPtr) FPtr->Release(); }
  TRef& operator=(TRef O) noexcept { std::swap(FPtr, O.FPtr); return *this; }

  T* Get() const noexcept { return FPtr; }
  T* operator->() const noexcept { return FPtr; }
  T& operator*() const noexcept { return *FPtr; }
  explicit operator bool() const noexcept { return FPtr != nullptr; }
  T* Detach() noexcept { T* P = FPtr; FPtr = nullptr; return P; }
  void Reset() noexcept { TRef().Swap(*this); }
  void Swap(TRef& O) noexcept { std::swap(FPtr, O.FPtr); }
  friend bool operator==(const TRef& A, const TRef& B) { return A.FPtr == B.FPtr; }
  friend bool operator!=(const TRef& A, const TRef& B) { return A.FPtr != B.FPtr; }

 private:
  T* FPtr = nullptr;
};

class ISRAudioBuffer;

// A raw block of bytes. The last Release frees it or returns it to the pool,
// on whatever thread that happens.
class IWBDataBuffer {
 public:
  IWBDataBuffer(const IWBDataBuffer&) = delete;
  IWBDataBuffer& operator=(const IWBDataBuffer&) = delete;

  void AddRef() noexcept { FRefCount.fetch_add(1, std::memory_order_relaxed); }
  void Release() noexcept {
    if (FRefCount.fetch_sub(1, std::memory_order_acq_rel) == 1) Destroy();
  }
  uint32_t RefCount() const noexcept { return FRefCount.load(std::memory_order_acquire); }

  uint8_t* GetData() const noexcept { return FData; }
  size_t GetSize() const noexcept { return FSize; }
  // The audio view of this block, when it is an audio buffer.
  virtual ISRAudioBuffer* AsAudioBuffer() noexcept { return nullptr; }

 protected:
  IWBDataBuffer() = default;
  virtual ~IWBDataBuffer() = default;
  virtual void Destroy() noexcept = 0;
  uint8_t* FData = nullptr;
  size_t FSize = 0;

 private:
  std::atomic<uint32_t> FRefCount{0};
};

class TWBBlockBuffer final : public IWBDataBuffer {
 public:
  // [any thread] A zero-filled block of Size bytes.
  static TRef<TWBBlockBuffer> Create(size_t Size);
  // [any thread] A block of Size bytes, each Fill.
  static TRef<TWBBlockBuffer> Create(size_t Size, uint8_t Fill);
  // [any thread] A block over caller memory; the caller keeps it alive.
  static TRef<TWBBlockBuffer> CreateOver(void* Memory, size_t Size);
  // [any thread] A copy of another block's bytes.
  static TRef<TWBBlockBuffer> CreateCopy(const IWBDataBuffer& Source);

 private:
  TWBBlockBuffer() = default;
  void Destroy() noexcept override;
  unsigned FPoolClass = 0;
};

// Interleaved integer PCM: 8-bit (unsigned, as in wave files), 16-bit,
// 24-bit packed in three bytes, or 32-bit, little-endian. Samples are read
// and written as signed values of the buffer's own width.
class ISRAudioBuffer : public IWBDataBuffer {
 public:
  ISRAudioBuffer* AsAudioBuffer() noexcept override { return this; }

  unsigned GetChannels() const noexcept { return FChannels; }
  size_t GetSamples() const noexcept { return FSamples; }   // frames (samples per channel)
  unsigned GetBits() const noexcept { return FBits; }
  unsigned GetBytesPerSample() const noexcept { return FBits / 8; }
  size_t GetFrameBytes() const noexcept { return static_cast<size_t>(FChannels) * (FBits / 8); }
  double GetSampleRate() const noexcept { return FSampleRate; }
  TSRSpeakers GetSpeakers() const noexcept { return FSpeakers; }
  size_t GetCapacity() const noexcept { return FCapacity; }  // frames the memory can hold

  // [owning thread] Sample Sample of channel Channel; out of range reads 0.
  int32_t GetSample(size_t Sample, unsigned Channel) const noexcept;
  // [owning thread] Stores Value saturated to the buffer's width; out of range is ignored.
  void SetSample(size_t Sample, unsigned Channel, int32_t Value) noexcept;
  // [owning thread] Changes the frame count within the capacity; false beyond it.
  bool SetSampleCount(size_t Samples) noexcept;
  // [owning thread] Zero signal (0x80 bytes for 8-bit).
  void Clear() noexcept;
  TSRWaveFormatExtensible GetWaveFormat() const;

  // Optional timing a source attaches to a buffer: where it lies in the
  // source's stream (start and end, 100-nanosecond units) and a sequence
  // number counting the source's buffers, so that a consumer can tell a gap
  // in time from a lost buffer. New buffers carry neither.
  bool HasStreamTime() const noexcept { return FHasStreamTime; }
  int64_t GetStreamStart() const noexcept { return FStreamStart; }
  int64_t GetStreamEnd() const noexcept { return FStreamEnd; }
  void SetStreamTime(int64_t Start, int64_t End) noexcept {
    FStreamStart = Start;
    FStreamEnd = End;
    FHasStreamTime = true;
  }
  bool HasSequenceNumber() const noexcept { return FHasSequenceNumber; }
  uint64_t GetSequenceNumber() const noexcept { return FSequenceNumber; }
  void SetSequenceNumber(uint64_t Value) noexcept {
    FSequenceNumber = Value;
    FHasSequenceNumber = true;
  }

  static int32_t MinValue(unsigned Bits) noexcept { return Bits >= 32 ? INT32_MIN : -(1 << (Bits - 1)); }
  static int32_t MaxValue(unsigned Bits) noexcept { return Bits >= 32 ? INT32_MAX : (1 << (Bits - 1)) - 1; }

 protected:
  ISRAudioBuffer() = default;
  unsigned FChannels = 0;
  size_t FSamples = 0;
  size_t FCapacity = 0;
  unsigned FBits = 16;
  double FSampleRate = 0.0;
  TSRSpeakers FSpeakers;
  int64_t FStreamStart = 0;
  int64_t FStreamEnd = 0;
  uint64_t FSequenceNumber = 0;
  bool FHasStreamTime = false;
  bool FHasSequenceNumber = false;
};

class TSRAudioBuffer final : public ISRAudioBuffer {
 public:
  // [any thread] An empty buffer (no channels, no samples).
  static TRef<TSRAudioBuffer> Create();
  // [any thread] A silent buffer of the given shape; bits are 8, 16, 24 or 32
  // (others answer an empty buffer). Speakers default to the usual set.
  static TRef<TSRAudioBuffer> Create(unsigned Channels, size_t Samples, unsigned Bits, double SampleRate);
  static TRef<TSRAudioBuffer> Create(unsigned Channels, size_t Samples, unsigned Bits, double SampleRate,
                                     TSRSpeakers Speakers);
  // [any thread] An audio view of a data block: shares its bytes and keeps it
  // alive; the frame count is the whole frames that fit.
  static TRef<TSRAudioBuffer> Create(IWBDataBuffer& Block, unsigned Channels, unsigned Bits, double SampleRate);
  // [any thread] A buffer over caller memory holding Samples frames; the
  // caller keeps the memory alive while the buffer is used.
  static TRef<TSRAudioBuffer> CreateOver(void* Memory, unsigned Channels, size_t Samples, unsigned Bits,
                                         double SampleRate);

 private:
  TSRAudioBuffer() = default;
  void Destroy() noexcept override;
  unsigned FPoolClass = 0;
  IWBDataBuffer* FBlock = nullptr;  // the block whose bytes this view shares
};

using IWBDataBufferRef = TRef<IWBDataBuffer>;
using ISRAudioBufferRef = TRef<ISRAudioBuffer>;

// Copies Frames frames of interleaved PCM between shapes: channels beyond
// the source's are silent, extra source channels are dropped, widths are
// converted by shifting (16 -> 24 bits multiplies by 256). Same shapes copy bytes.
void ConvertPcmFrames(const uint8_t* Source, unsigned SourceChannels, unsigned SourceBits, uint8_t* Dest,
                      unsigned DestChannels, unsigned DestBits, size_t Frames) noexcept;
// Writes Frames frames of silence.
void SilencePcmFrames(uint8_t* Dest, unsigned Channels, unsigned Bits, size_t Frames) noexcept;

// Pool counters, for tests and benchmarks.
struct TWBBufferPoolStats {
  uint64_t HeapAllocations;  // allocations that went to the heap
  uint64_t PoolHits;         // allocations served from the pool
  uint64_t HeapFrees;        // releases that went back to the heap (pool full or oversized)
};
TWBBufferPoolStats GetBufferPoolStats();

}  // namespace Quorvel
