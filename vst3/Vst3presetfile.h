// The VST 3 preset file: a plug-in class's identifier and its states as
// chunks, with a list of the chunks at the end. All integers little-endian.
//
//   0   5   "VST3" (4 characters and one more byte, written as 0)
//   5   4   format version, 1
//   9   32  class identifier as text: its four words, 8 hexadecimal digits each
//   41  8   position of the chunk list (0 until the list is written)
//   49  ... the chunks' data, in the order written
//   list    "List" (5 bytes as above), entry count (32-bit), then per entry
//           its identifier (5 bytes), offset and size (64-bit each)
//
// Every chunk identifier takes five bytes, one more than its four
// characters; the fifth is written as 0 so that no stray byte of the
// writer's memory reaches the file. The header is therefore 49 bytes long.
//
// Reading is kept as this host has always read: it never succeeds (see
// ReadChunkList). Threads: a file object is used by one thread at a time.
#pragma once

#include <cstdint>
#include <vector>

#include "vst3/Srvst3hostobjects.h"
#include "vst3/Vst3hostintf.h"

namespace Quorvel::Vst3presetfile {

enum TChunkType { kHeader, kComponentState, kControllerState, kProgramData, kMetaInfo, kChunkList, kNumPresetChunks };

// A chunk identifier as a length-prefixed short text with room for five
// characters: the identifiers fill four of them.
struct TChunkText {
  uint8_t Length = 0;
  char Chars[5] = {};
};
// The identifier of a chunk type ("VST3", "Comp", "Cont", "Prog", "Info", "List").
const TChunkText& ChunkID(TChunkType Type);

// Bytes an identifier takes in the file, and the fixed places of the header.
constexpr int32_t kChunkIDSize = 5;  // Deliberately five, not four: kept so files stay as this host writes them.
constexpr int32_t kClassIDSize = 32;
constexpr int32_t kFormatVersion = 1;
constexpr int64_t kListOffsetPos = 41;
constexpr int64_t kHeaderSize = 49;
constexpr int64_t kListEntrySize = kChunkIDSize + 8 + 8;
// The most entries a list is read with; a larger count is cut to it.
constexpr int32_t kMaxEntries = 128;

struct TEntry {
  char ID[4] = {};
  int64_t Offset = 0;  // where the chunk's data starts in the file
  int64_t Size = 0;    // its length in bytes
};

// The class identifier's text: its four published words as 32 hexadecimal
// digits (capitals), and back; false for text that is not 32 such digits.
void ClassIDToText(const TGUID& ID, char (&Text)[kClassIDSize]);
bool ClassIDFromText(const char* Text, TGUID& ID);

class TVST3PresetFile {
 public:
  // Over Stream, which must outlive the file object (it takes a reference).
  explicit TVST3PresetFile(Vst3hostintf::IBStream* Stream);

  const TGUID& GetClassID() const { return FClassID; }
  void SetClassID(const TGUID& ID) { FClassID = ID; }
  int32_t GetEntryCount() const { return FEntryCount; }
  // Entry Index; an index out of range raises EWBException.
  const TEntry& GetEntry(int32_t Index) const;
  // The entry of a chunk type, or nullptr.
  const TEntry* GetEntry(TChunkType Type) const;
  bool Contains(TChunkType Type) const { return GetEntry(Type) != nullptr; }

  // ---- writing, in this order: header, chunks, list ----
  bool WriteHeader();
  // A chunk of Size bytes at Data; false (nothing written) when a chunk of
  // that type is already there or the stream takes less.
  bool WriteChunk(const void* Data, int32_t Size, TChunkType Type);
  // The component's (or the controller's) getState as a chunk.
  bool StoreComponentState(Vst3hostintf::IComponent* Component);
  bool StoreControllerState(Vst3hostintf::IEditController* Controller);
  // The list at the current position, and its position at byte 41.
  bool WriteChunkList();

  // ---- reading ----
  // Reads the header and the chunk list into the entries. As built this
  // always answers false: see the implementation.
  bool ReadChunkList();
  // A read-only view of a chunk's data (empty reference without the chunk).
  Vst3hostobjects::TVST3Ref<Vst3hostintf::IBStream> ChunkStream(TChunkType Type) const;

 private:
  bool BeginChunk(TChunkType Type);
  bool EndChunk();
  bool WriteChunkID(TChunkType Type);
  bool VerifyChunkID(TChunkType Type);
  bool ReadEntryID(char (&ID)[4]);
  bool WriteBytes(const void* Data, int32_t Size);
  bool ReadBytes(void* Data, int32_t Size);
  bool WriteInt32(int32_t Value);
  bool WriteInt64(int64_t Value);
  bool ReadInt32(int32_t& Value);
  bool ReadInt64(int64_t& Value);
  bool Seek(int64_t Pos);
  bool Tell(int64_t& Pos);

  Vst3hostobjects::TVST3Ref<Vst3hostintf::IBStream> FStream;
  TGUID FClassID = Vst3hostintf::kNullUID;
  std::vector<TEntry> FEntries;
  int32_t FEntryCount = 0;
  bool FInChunk = false;
};

// Writes a preset of class ClassID: the component's state, the controller's
// state (with a controller) and the XML text (with XmlBuffer) as chunks, then
// the list. Answers 0 on success, 1 when any step failed.
int32_t SavePreset(Vst3hostintf::IBStream* Stream, const TGUID& ClassID, Vst3hostintf::IComponent* Component,
                   Vst3hostintf::IEditController* Controller, const char* XmlBuffer = nullptr, int32_t XmlSize = -1);

}  // namespace Quorvel::Vst3presetfile
