// Preset (one program) and bank (all programs) files of TSRVSTHost, in the
// chunk form and the parameter form. Sizes taken from a file are trusted
// only as far as the stream holds bytes: nothing is read beyond its end and
// nothing is allocated beyond what it holds.
#include <algorithm>
#include <cstring>
#include <vector>

#include "platform/Library.h"
#include "vst2/Srvstfilebytes.h"
#include "vst2/Srvsthost.h"

namespace Quorvel {

using Threading::TLockGuard;
using namespace Srvstfilebytes;

namespace {

constexpr int32_t kChunkMagic = FourCharToLong('C', 'c', 'n', 'K');
constexpr int64_t kPresetHeaderRead = sizeof(TFXPreset);     // 56
constexpr int64_t kChunkPresetHeader = sizeof(TFXChunkSet);  // 60
constexpr int64_t kBankHeaderRead = sizeof(TFXSet);          // 156
constexpr int64_t kChunkBankHeader = sizeof(TFXChunkBank);   // 160
static_assert(kPresetHeaderRead == 56 && kChunkPresetHeader == 60 && kBankHeaderRead == 156 &&
              kChunkBankHeader == 160, "the file headers keep their published sizes");

// The byte at offset 9 (the second character of fxMagic), the stream back
// at 0; -1 when the stream is shorter.
int32_t FormByte(TWBStream& Stream) {
  uint8_t Byte = 0;
  const bool Got = Stream.Seek(9, TWBSeekOrigin::soBeginning) == 9 && Stream.ReadExact(&Byte, 1);
  if (Stream.Seek(0, TWBSeekOrigin::soBeginning) != 0 || !Got) return -1;
  return Byte;
}

// Starts a save: the stream emptied and at its start.
void Restart(TWBStream& Stream) {
  Stream.SetSize(0);
  Stream.Seek(0, TWBSeekOrigin::soBeginning);
}

// Four zero bytes: the writers' headers are 4 bytes longer than the
// readers' (56 and 156 bytes are read, 60 and 160 written).
bool WriteFiller(TWBStream& Stream) {
  const uint8_t Zeros[4] = {};
  return Stream.WriteExact(Zeros, 4);
}

// "Size of the rest" of a file of Total bytes, held to the 32-bit field.
int32_t RestSize(int64_t Total) { return static_cast<int32_t>(std::clamp<int64_t>(Total - 8, 0, INT32_MAX)); }

}  // namespace

void TSRVSTHost::ApplyParameterValues(TWBStream& Stream, int32_t Count) {
  // Never more values than the stream holds, whatever the count says.
  const int64_t Values = std::min<int64_t>(std::max(Count, 0), Stream.Remaining() / 4);
  const int64_t Applied = std::min<int64_t>(Values, static_cast<int64_t>(FParameters.Count()));
  for (int64_t I = 0; I < Applied; ++I) {
    uint8_t Bytes[4];
    if (!Stream.ReadExact(Bytes, 4)) return;
    FParameters[static_cast<size_t>(I)].SetValue(GetBigEndianFloat(Bytes));
  }
  // Values for parameters the plug-in does not have are passed over.
  if (Values > Applied) Stream.Seek(4 * (Values - Applied), TWBSeekOrigin::soCurrent);
}

// ---- presets ---------------------------------------------------------------------

void TSRVSTHost::SavePreset(TWBStream& Stream) {
  TLockGuard G(GetLock());
  Restart(Stream);
  if (!Open()) return;
  if (GetEffectFlags().Contains(TEffFlag::effFlagsProgramChunks)) {
    TFXChunkSet H{};
    PutBigEndian(H.chunkMagic, kChunkMagic);
    PutBigEndian(H.fxMagic, FourCharToLong('F', 'P', 'C', 'h'));
    PutBigEndian(H.version, 1);
    PutBigEndian(H.fxID, GetUniqueID());
    PutBigEndian(H.fxVersion, GetVersion());
    // Kept as the component always did: the program count, not the parameter count.
    PutBigEndian(H.numPrograms, GetNumPrograms());
    PutProgramName(H.prgName, GetCurrentProgramName());
    void* Chunk = nullptr;
    int32_t Size = VstDispatch(effGetChunk, 1, 0, &Chunk, 0.0f);
    if (!Chunk || Size < 0) Size = 0;
    PutBigEndian(H.chunkSize, Size);
    PutBigEndian(H.ByteSize, RestSize(int64_t(Size) + kChunkPresetHeader));
    if (Stream.WriteExact(&H, sizeof H)) Stream.WriteExact(Chunk, Size);
    return;
  }
  const TSRVSTPresetRecord Record = GetPreset(GetCurrentProgramNumber());
  // Kept as the component always did: a 60-byte header, the values at 60.
  if (Stream.WriteExact(&Record.Header, sizeof Record.Header) && WriteFiller(Stream))
    Stream.WriteExact(Record.Params.data(), static_cast<int64_t>(Record.Params.size()));
}

void TSRVSTHost::LoadPreset(TWBStream& Stream) {
  TLockGuard G(GetLock());
  if (!Open()) return;
  // Kept as the component always did: the form is the byte at offset 9
  // ('x' of "FxCk"), and no magic but fxID is checked.
  const int32_t Form = FormByte(Stream);
  if (Form < 0) return;
  if (Form != 'x') {
    TFXChunkSet H{};
    if (!Stream.ReadExact(&H, sizeof H)) return;
    if (GetBigEndian(H.fxID) != GetUniqueID()) {
      Error("Preset file not for this plugin!", -1);
      return;
    }
    SetCurrentProgramName(ProgramNameText(H.prgName));
    // Kept as the component always did: the chunk is the rest of the stream,
    // whatever chunkSize says.
    const int64_t Rest = Stream.Remaining();
    if (Rest > INT32_MAX) return;
    std::vector<uint8_t> Chunk(static_cast<size_t>(Rest) + 1);
    const int64_t Got = Stream.Read(Chunk.data(), Rest);
    if (Got < 0) return;
    VstDispatch(effSetChunk, 1, static_cast<int32_t>(Got), Chunk.data(), 0.0f);
    return;
  }
  TFXPreset H{};
  // Kept as the component always did: 56 bytes of header, the values at 56.
  if (!Stream.ReadExact(&H, sizeof H)) return;
  if (GetBigEndian(H.fxID) != GetUniqueID()) {
    Error("Preset file not for this plugin!", -1);
    return;
  }
  TVstPatchChunkInfo Info{};
  Info.version = 1;
  Info.pluginUniqueID = GetUniqueID();
  Info.pluginVersion = GetVersion();
  Info.numElements = GetNumParams();
  VstDispatch(effBeginLoadProgram, 0, 0, &Info, 0.0f);
  SetCurrentProgramName(ProgramNameText(H.prgName));
  ApplyParameterValues(Stream, GetBigEndian(H.numParams));
}

// ---- banks -----------------------------------------------------------------------

void TSRVSTHost::SaveBank(TWBStream& Stream) {
  TLockGuard G(GetLock());
  Restart(Stream);
  if (!Open()) return;
  const bool Chunks = GetEffectFlags().Contains(TEffFlag::effFlagsProgramChunks);
  if (Chunks) {
    TFXChunkBank H{};
    PutBigEndian(H.chunkMagic, kChunkMagic);
    PutBigEndian(H.fxMagic, FourCharToLong('F', 'B', 'C', 'h'));
    PutBigEndian(H.version, 1);
    PutBigEndian(H.fxID, GetUniqueID());
    PutBigEndian(H.fxVersion, GetVersion());
    PutBigEndian(H.numPrograms, GetNumPrograms());
    void* Chunk = nullptr;
    int32_t Size = VstDispatch(effGetChunk, 0, 0, &Chunk, 0.0f);
    if (!Chunk || Size < 0) Size = 0;
    PutBigEndian(H.chunkSize, Size);
    PutBigEndian(H.ByteSize, RestSize(int64_t(Size) + kChunkBankHeader));
    if (Stream.WriteExact(&H, sizeof H)) Stream.WriteExact(Chunk, Size);
    return;
  }
  const int32_t Programs = std::clamp(GetNumPrograms(), 0, kMaxPlugInPrograms);
  const int32_t Params = std::clamp(GetNumParams(), 0, kMaxPlugInParameters);
  TFXSet H{};
  PutBigEndian(H.chunkMagic, kChunkMagic);
  PutBigEndian(H.fxMagic, FourCharToLong('F', 'x', 'B', 'k'));
  PutBigEndian(H.version, 1);
  PutBigEndian(H.fxID, GetUniqueID());
  PutBigEndian(H.fxVersion, GetVersion());
  PutBigEndian(H.numPrograms, Programs);
  PutBigEndian(H.ByteSize, RestSize(kBankHeaderRead + 4 + int64_t(Programs) * (kPresetHeaderRead + 4 + 4 * Params)));
  // Kept as the component always did: a 160-byte bank header and 60-byte
  // program headers, each 4 bytes longer than the reader reads.
  if (!Stream.WriteExact(&H, sizeof H) || !WriteFiller(Stream)) return;
  for (int32_t P = 0; P < Programs; ++P) {
    const TSRVSTPresetRecord Record = GetPreset(P);
    if (!Stream.WriteExact(&Record.Header, sizeof Record.Header) || !WriteFiller(Stream) ||
        !Stream.WriteExact(Record.Params.data(), static_cast<int64_t>(Record.Params.size())))
      return;
  }
}

void TSRVSTHost::LoadBank(TWBStream& Stream) {
  TLockGuard G(GetLock());
  if (!Open()) return;
  // Kept as the component always did: the form is the byte at offset 9, and
  // no magic but fxID is checked.
  const int32_t Form = FormByte(Stream);
  if (Form < 0) return;
  if (Form != 'x') {
    TFXChunkBank H{};
    if (!Stream.ReadExact(&H, sizeof H)) return;
    if (GetBigEndian(H.fxID) != GetUniqueID()) {
      // Kept as the component always did: unlike the preset's, no full stop.
      Error("Bank file not for this plugin!", -1);
      return;
    }
    // Kept as the component always did: the chunk is the rest of the stream.
    const int64_t Rest = Stream.Remaining();
    if (Rest > INT32_MAX) return;
    std::vector<uint8_t> Chunk(static_cast<size_t>(Rest) + 1);
    const int64_t Got = Stream.Read(Chunk.data(), Rest);
    if (Got < 0) return;
    VstDispatch(effSetChunk, 0, static_cast<int32_t>(Got), Chunk.data(), 0.0f);
    return;
  }
  TFXSet H{};
  // Kept as the component always did: 156 bytes of bank header and 56 of
  // each program's, 4 fewer than the writer writes.
  if (!Stream.ReadExact(&H, sizeof H)) return;
  if (GetBigEndian(H.fxID) != GetUniqueID()) {
    Error("Bank file not for this plugin!", -1);
    return;
  }
  TVstPatchChunkInfo Info{};
  Info.version = 1;
  Info.pluginUniqueID = GetUniqueID();
  Info.pluginVersion = GetVersion();
  Info.numElements = GetNumParams();
  VstDispatch(effBeginLoadBank, 0, 0, &Info, 0.0f);
  // Each program needs its 56-byte header, so the stream bounds the loop;
  // programs the plug-in does not have are not applied.
  const int32_t Programs = std::min(GetBigEndian(H.numPrograms), GetNumPrograms());
  for (int32_t P = 0; P < Programs; ++P) {
    TFXPreset Program{};
    if (!Stream.ReadExact(&Program, sizeof Program)) return;
    SetCurrentProgramNumber(P);
    SetCurrentProgramName(ProgramNameText(Program.prgName));
    ApplyParameterValues(Stream, GetBigEndian(Program.numParams));
  }
}

// ---- file names ------------------------------------------------------------------

namespace {

// Opens FileName as the operation needs it and runs Proc on the stream; a
// file that cannot be opened is reported through Host's error path. For
// reading, a missing file gets MissingText.
template <typename F>
void WithFileStream(TSRVSTHost& Host, const std::string& FileName, bool ForReading, const std::string& MissingText,
                    F&& Proc) {
  if (ForReading && !Platform::FileExists(FileName)) {
    Host.Error(MissingText, -1);
    return;
  }
  TWBFileStream Stream(FileName, ForReading ? Platform::TFileOpenMode::fomRead : Platform::TFileOpenMode::fomCreate,
                       Platform::TFileShareMode::fsmDenyWrite);
  if (!Stream.IsOpen()) {
    Host.Error(FileName + ": " + Stream.GetOpenError(), -1);
    return;
  }
  Proc(static_cast<TWBStream&>(Stream));
}

}  // namespace

void TSRVSTHost::SavePreset(const std::string& FileName) {
  WithFileStream(*this, FileName, false, std::string(), [this](TWBStream& S) { SavePreset(S); });
}

void TSRVSTHost::LoadPreset(const std::string& FileName) {
  WithFileStream(*this, FileName, true, "Preset file " + FileName + " does not exist.",
                 [this](TWBStream& S) { LoadPreset(S); });
}

void TSRVSTHost::SaveBank(const std::string& FileName) {
  WithFileStream(*this, FileName, false, std::string(), [this](TWBStream& S) { SaveBank(S); });
}

void TSRVSTHost::LoadBank(const std::string& FileName) {
  // Kept as the component always did: this text has no full stop.
  WithFileStream(*this, FileName, true, "Bank file " + FileName + " does not exist",
                 [this](TWBStream& S) { LoadBank(S); });
}

}  // namespace Quorvel
