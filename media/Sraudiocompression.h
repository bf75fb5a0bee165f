// Compression choices shared by the ACM components and the raw logger: the
// ordered candidate list (TSRAudioCompressionItems), the ACM compressor
// object (TSRAcmCompressor) and the operation that announces a compressed
// stream (TSRStartAudioCompressionOperation).
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "frame/Pwoperations.h"
#include "frame/Wbcollection.h"

namespace Quorvel {

// One candidate: a wave format record (WAVEFORMATEX with its cbSize extra
// bytes) and a flag that keeps it out of every search.
class TSRAudioCompressionItem : public TWBCollectionItem {
 public:
  static const TWBClassInfo& ClassInfo();
  using TWBCollectionItem::TWBCollectionItem;

  // [main thread] The format bytes as given; a record is well formed when it
  // holds at least the 18-byte header and exactly cbSize bytes after it.
  void SetFormat(const std::vector<uint8_t>& Value) { FFormat = Value; }
  const std::vector<uint8_t>& GetFormat() const { return FFormat; }
  void SetFormat(const TWaveFormatEx& Header, const void* Extra = nullptr);
  // The header, or nullptr when the bytes are not a well-formed record.
  const TWaveFormatEx* GetWaveFormat() const;
  void SetExcluded(bool Value) { FExcluded = Value; }
  bool GetExcluded() const { return FExcluded; }
  // Not excluded and well formed.
  bool IsUsable() const { return !FExcluded && GetWaveFormat(); }
  // "Tag 0x11, 22050 Hz, 1 channel(s), 4 bits"
  std::string GetDisplayName() const override;

 private:
  std::vector<uint8_t> FFormat;
  bool FExcluded = false;
};

class TSRAudioCompressionItems : public TWBCollection<TSRAudioCompressionItem> {
 public:
  explicit TSRAudioCompressionItems(TWBComponent* Owner) : TWBCollection(Owner, "Compression") {}
  // [main thread] Replaces the items by copies of Source's.
  void Assign(const TSRAudioCompressionItems& Source);
  // The first usable item at or after From, or nullptr.
  TSRAudioCompressionItem* FirstUsable(size_t From = 0) const;
};

// A compressed stream starts: the rate, the PCM source format and the
// destination format record. Data blocks of compressed bytes follow.
class TSRStartAudioCompressionOperation final : public TPWOperation {
 public:
  static constexpr TPWOperationID ID = poidUser + 0x74;
  TSRStartAudioCompressionOperation(double Rate, const TSRWaveFormatExtensible& Source, const uint8_t* Dest,
                                    size_t DestSize)
      : TPWOperation(ID), FRate(Rate), FSource(Source), FDest(Dest), FDestSize(DestSize) {}
  double GetRate() const { return FRate; }
  const TSRWaveFormatExtensible& GetSourceFormat() const { return FSource; }
  const uint8_t* GetDestFormat() const { return FDest; }
  size_t GetDestFormatSize() const { return FDestSize; }

 private:
  double FRate;
  TSRWaveFormatExtensible FSource;
  const uint8_t* FDest;
  size_t FDestSize;
};

// A conversion through the Audio Compression Manager from PCM to a
// compressed format. Elsewhere than on Windows there is no ACM and every
// open is refused. Used by one thread at a time (its owner's lock).
class TSRAcmCompressor {
 public:
  TSRAcmCompressor();
  ~TSRAcmCompressor();
  TSRAcmCompressor(const TSRAcmCompressor&) = delete;
  TSRAcmCompressor& operator=(const TSRAcmCompressor&) = delete;

  // [main or stream thread] Opens a conversion from Source (its cbSize is
  // taken as 0) to the Dest record. False when ACM refuses; the result code
  // is then GetLastResult. An open conversion is closed first.
  bool OpenCompressor(const TWaveFormatEx& Source, const uint8_t* Dest, size_t DestSize);
  bool GetOpened() const;
  void CloseCompressor();
  // [stream thread] Compresses Size bytes of PCM; answers the compressed
  // bytes (an empty block when the codec needs more input for a whole
  // block), or nullptr on an error. Bytes short of a whole codec block wait
  // for the next call; Last converts them too and ends the stream.
  IWBDataBufferRef CompressBuffer(const void* Data, size_t Size, bool Last = false);
  uint32_t GetLastResult() const { return FLastResult; }

 private:
  struct TImpl;
  std::unique_ptr<TImpl> FImpl;
  uint32_t FLastResult = 0;
};

// The 18-byte header of a stream's format as the source of a conversion:
// cbSize 0, and the extensible tag of integer PCM as the classic PCM tag,
// which is what the codecs take.
TWaveFormatEx CompressionSourceFormat(const TSRWaveFormatExtensible& Format);

// A format the installed ACM codecs offer: its description and its record.
struct TSRAcmFormat {
  std::string Name;             // the codec's description ("22,050 Hz, 4 Bit, Mono")
  std::vector<uint8_t> Format;  // WAVEFORMATEX and its cbSize extra bytes
};
// [main thread] The formats of the given tag (0: every tag) in the codecs'
// order. Empty where there is no ACM.
std::vector<TSRAcmFormat> EnumerateAcmFormats(uint16_t FormatTag);

// A format tag the installed ACM codecs handle, and the codec that does.
struct TSRAcmFormatTag {
  uint16_t Tag = 0;
  std::string Name;   // the tag's name ("IMA ADPCM")
  std::string Codec;  // the codec's long name
};
// [main thread] Every codec's format tags, in the codecs' order. Empty where
// there is no ACM.
std::vector<TSRAcmFormatTag> EnumerateAcmFormatTags();

}  // namespace Quorvel
