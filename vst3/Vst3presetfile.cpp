#include "vst3/Vst3presetfile.h"

#include <cstring>
#include <string>

#include "frame/Wbexception.h"

namespace Quorvel::Vst3presetfile {

using namespace Vst3hostintf;
using Vst3hostobjects::ModuleResult;
using Vst3hostobjects::TReadOnlyBStream;
using Vst3hostobjects::TVST3Ref;

namespace {

constexpr TResult kOk = ModuleResult(Platform::kVst3ResultOk);
constexpr TResult kNotImplemented = ModuleResult(Platform::kVst3NotImplemented);

static_assert(sizeof(TChunkText) == 6, "a length byte and five characters");
static_assert(kHeaderSize == kChunkIDSize + 4 + kClassIDSize + 8, "header fields");
static_assert(kListOffsetPos == kChunkIDSize + 4 + kClassIDSize, "list position after the class identifier");

constexpr TChunkText MakeID(const char (&Text)[5]) {
  TChunkText T{};
  T.Length = 4;
  for (int I = 0; I < 4; ++I) T.Chars[I] = Text[I];
  return T;  // the fifth character stays 0
}

constexpr TChunkText kChunkIDs[kNumPresetChunks] = {MakeID("VST3"), MakeID("Comp"), MakeID("Cont"),
                                                    MakeID("Prog"), MakeID("Info"), MakeID("List")};

// Chunk data and the class identifier's text may go to a stream that
// answers "not implemented" for writing and still count as written.
bool Accepted(TResult R) { return R == kOk || R == kNotImplemented; }

int HexDigit(char C) {
  if (C >= '0' && C <= '9') return C - '0';
  if (C >= 'A' && C <= 'F') return C - 'A' + 10;
  if (C >= 'a' && C <= 'f') return C - 'a' + 10;
  return -1;
}

}  // namespace

const TChunkText& ChunkID(TChunkType Type) { return kChunkIDs[Type]; }

void ClassIDToText(const TGUID& ID, char (&Text)[kClassIDSize]) {
  // The registry form "{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}" holds the four
  // words in order: its digits without braces and dashes.
  const std::string Form = VST3UIDToString(ID);
  size_t N = 0;
  for (const char C : Form)
    if (HexDigit(C) >= 0 && N < sizeof Text) Text[N++] = C;
}

bool ClassIDFromText(const char* Text, TGUID& ID) {
  uint32_t Words[4] = {};
  for (int I = 0; I < kClassIDSize; ++I) {
    const int D = HexDigit(Text[I]);
    if (D < 0) return false;
    Words[I / 8] = Words[I / 8] << 4 | uint32_t(D);
  }
  ID = MakeVST3UID(Words[0], Words[1], Words[2], Words[3]);
  return true;
}

TVST3PresetFile::TVST3PresetFile(IBStream* Stream) : FStream(TVST3Ref<IBStream>::Share(Stream)) {}

const TEntry& TVST3PresetFile::GetEntry(int32_t Index) const {
  if (Index < 0 || Index >= FEntryCount) throw EWBException("List index out of bounds (" + std::to_string(Index) + ")");
  return FEntries[size_t(Index)];
}

const TEntry* TVST3PresetFile::GetEntry(TChunkType Type) const {
  const TChunkText& ID = ChunkID(Type);
  for (int32_t I = 0; I < FEntryCount; ++I)
    if (std::memcmp(FEntries[size_t(I)].ID, ID.Chars, 4) == 0) return &FEntries[size_t(I)];
  return nullptr;
}

// ---- stream access ----------------------------------------------------------------

bool TVST3PresetFile::WriteBytes(const void* Data, int32_t Size) {
  int32_t Written = 0;
  return FStream && FStream->write(const_cast<void*>(Data), Size, &Written) == kOk && Written == Size;
}

bool TVST3PresetFile::ReadBytes(void* Data, int32_t Size) {
  int32_t Read = 0;
  return FStream && FStream->read(Data, Size, &Read) == kOk && Read == Size;
}

bool TVST3PresetFile::WriteInt32(int32_t Value) {
  uint8_t B[4];
  for (int I = 0; I < 4; ++I) B[I] = static_cast<uint8_t>(uint32_t(Value) >> (8 * I));
  return WriteBytes(B, 4);
}

bool TVST3PresetFile::WriteInt64(int64_t Value) {
  uint8_t B[8];
  for (int I = 0; I < 8; ++I) B[I] = static_cast<uint8_t>(uint64_t(Value) >> (8 * I));
  return WriteBytes(B, 8);
}

bool TVST3PresetFile::ReadInt32(int32_t& Value) {
  uint8_t B[4];
  if (!ReadBytes(B, 4)) return false;
  uint32_t V = 0;
  for (int I = 3; I >= 0; --I) V = V << 8 | B[I];
  Value = static_cast<int32_t>(V);
  return true;
}

bool TVST3PresetFile::ReadInt64(int64_t& Value) {
  uint8_t B[8];
  if (!ReadBytes(B, 8)) return false;
  uint64_t V = 0;
  for (int I = 7; I >= 0; --I) V = V << 8 | B[I];
  Value = static_cast<int64_t>(V);
  return true;
}

bool TVST3PresetFile::Seek(int64_t Pos) {
  int64_t Result = -1;
  return FStream && FStream->seek(Pos, kIBSeekSet, &Result) == kOk && Result == Pos;
}

bool TVST3PresetFile::Tell(int64_t& Pos) { return FStream && FStream->tell(&Pos) == kOk; }

// ---- writing ---------------------------------------------------------------------

bool TVST3PresetFile::WriteChunkID(TChunkType Type) {
  // The four characters and the byte behind them, which is 0.
  const TChunkText Local = ChunkID(Type);
  return WriteBytes(Local.Chars, kChunkIDSize);
}

bool TVST3PresetFile::WriteHeader() {
  if (!Seek(0) || !WriteChunkID(kHeader) || !WriteInt32(kFormatVersion)) return false;
  char Text[kClassIDSize];
  ClassIDToText(FClassID, Text);
  int32_t Written = 0;
  if (!FStream || !Accepted(FStream->write(Text, kClassIDSize, &Written))) return false;
  return WriteInt64(0);  // the list's position, patched when the list is written
}

bool TVST3PresetFile::BeginChunk(TChunkType Type) {
  if (FInChunk || Contains(Type)) return false;
  TEntry E;
  std::memcpy(E.ID, ChunkID(Type).Chars, 4);
  if (!Tell(E.Offset)) return false;
  FEntries.push_back(E);  // at most one per chunk type
  ++FEntryCount;
  FInChunk = true;
  return true;
}

bool TVST3PresetFile::EndChunk() {
  if (!FInChunk) return false;
  FInChunk = false;
  TEntry& E = FEntries.back();
  int64_t End = 0;
  if (!Tell(End) || End < E.Offset) return false;
  E.Size = End - E.Offset;
  return true;
}

bool TVST3PresetFile::WriteChunk(const void* Data, int32_t Size, TChunkType Type) {
  if (Size < 0 || (!Data && Size > 0) || !BeginChunk(Type)) return false;
  int32_t Written = 0;
  const bool Wrote = Size == 0 || Accepted(FStream->write(const_cast<void*>(Data), Size, &Written));
  return EndChunk() && Wrote;
}

bool TVST3PresetFile::StoreComponentState(IComponent* Component) {
  if (!Component || !BeginChunk(kComponentState)) return false;
  const bool Stored = Component->getState(FStream.Get()) == kOk;
  return EndChunk() && Stored;
}

bool TVST3PresetFile::StoreControllerState(IEditController* Controller) {
  if (!Controller || !BeginChunk(kControllerState)) return false;
  const bool Stored = Controller->getState(FStream.Get()) == kOk;
  return EndChunk() && Stored;
}

bool TVST3PresetFile::WriteChunkList() {
  int64_t Pos = 0;
  if (FInChunk || !Tell(Pos) || !Seek(kListOffsetPos) || !WriteInt64(Pos) || !Seek(Pos)) return false;
  if (!WriteChunkID(kChunkList) || !WriteInt32(FEntryCount)) return false;
  for (int32_t I = 0; I < FEntryCount; ++I) {
    const TEntry& E = FEntries[size_t(I)];
    char ID[kChunkIDSize] = {};
    std::memcpy(ID, E.ID, 4);
    if (!WriteBytes(ID, kChunkIDSize) || !WriteInt64(E.Offset) || !WriteInt64(E.Size)) return false;
  }
  return true;
}

// ---- reading ---------------------------------------------------------------------

bool TVST3PresetFile::VerifyChunkID(TChunkType Type) {
  const TChunkText Local{};
  TChunkText Copy = Local;
  ReadBytes(Copy.Chars, kChunkIDSize);
  // Deliberately compares the untouched local text, not the copy read into:
  // kept as the host always read, so the check never matches (length 0
  // against 4) and no preset file is ever taken in.
  const TChunkText& Expected = ChunkID(Type);
  return std::memcmp(&Local, &Expected, size_t(Local.Length) + 1) == 0;
}

bool TVST3PresetFile::ReadEntryID(char (&ID)[4]) {
  char Text[kChunkIDSize];
  if (!ReadBytes(Text, kChunkIDSize)) return false;
  std::memcpy(ID, Text, 4);
  return true;
}

bool TVST3PresetFile::ReadChunkList() {
  Seek(0);
  FEntries.clear();
  FEntryCount = 0;
  FInChunk = false;
  char ClassText[kClassIDSize + 1] = {};
  if (!VerifyChunkID(kHeader)) {
    int32_t Version = 0;
    int64_t ListPos = 0;
    int32_t Read = 0;
    // Deliberately a file whose header reads whole ends here with failure,
    // and one whose header does not goes on: kept as the host always read.
    if (ReadInt32(Version) && FStream && Accepted(FStream->read(ClassText, kClassIDSize, &Read)) &&
        ReadInt64(ListPos) && ListPos > 0 && Seek(ListPos))
      return false;
  }
  ClassText[kClassIDSize] = 0;
  if (!ClassIDFromText(ClassText, FClassID)) FClassID = kNullUID;
  if (!VerifyChunkID(kChunkList)) return false;
  int32_t Count = 0;
  if (!ReadInt32(Count) || Count < 0) return false;
  if (Count > kMaxEntries) Count = kMaxEntries;
  FEntries.reserve(size_t(Count));
  for (int32_t I = 0; I < Count; ++I) {
    TEntry E;
    if (!ReadEntryID(E.ID) || !ReadInt64(E.Offset) || !ReadInt64(E.Size)) return false;
    FEntries.push_back(E);
    ++FEntryCount;
  }
  return true;
}

TVST3Ref<IBStream> TVST3PresetFile::ChunkStream(TChunkType Type) const {
  const TEntry* E = GetEntry(Type);
  if (!E || !FStream) return {};
  return TVST3Ref<IBStream>::Adopt(new TReadOnlyBStream(FStream.Get(), E->Offset, E->Size));
}

// ---- saving ----------------------------------------------------------------------

int32_t SavePreset(IBStream* Stream, const TGUID& ClassID, IComponent* Component, IEditController* Controller,
                   const char* XmlBuffer, int32_t XmlSize) {
  if (!Stream) return 1;
  TVST3PresetFile File(Stream);
  File.SetClassID(ClassID);
  // A header or a list that did not go out whole fails the save as well, so
  // that an incomplete file is reported rather than taken for a preset.
  if (!File.WriteHeader()) return 1;
  if (!File.StoreComponentState(Component)) return 1;
  if (Controller && !File.StoreControllerState(Controller)) return 1;
  if (XmlBuffer) {
    const size_t Size = XmlSize >= 0 ? size_t(XmlSize) : std::strlen(XmlBuffer);
    if (Size > size_t(INT32_MAX) || !File.WriteChunk(XmlBuffer, static_cast<int32_t>(Size), kMetaInfo)) return 1;
  }
  return File.WriteChunkList() ? 0 : 1;
}

}  // namespace Quorvel::Vst3presetfile
