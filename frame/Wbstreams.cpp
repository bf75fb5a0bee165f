#include "frame/Wbstreams.h"

#include <algorithm>
#include <cstring>

namespace Quorvel {

int64_t TWBStream::Remaining() {
  const int64_t Here = GetPosition(), Size = GetSize();
  return Here < 0 || Size < 0 ? 0 : std::max<int64_t>(0, Size - Here);
}

bool TWBStream::ReadBigEndian32(uint32_t& Value) {
  uint8_t B[4];
  if (!ReadExact(B, 4)) return false;
  Value = uint32_t(B[0]) << 24 | uint32_t(B[1]) << 16 | uint32_t(B[2]) << 8 | B[3];
  return true;
}

bool TWBStream::WriteBigEndian32(uint32_t Value) {
  const uint8_t B[4] = {uint8_t(Value >> 24), uint8_t(Value >> 16), uint8_t(Value >> 8), uint8_t(Value)};
  return WriteExact(B, 4);
}

int64_t TWBStream::CopyFrom(TWBStream& Source) {
  uint8_t Block[16384];
  int64_t Copied = 0;
  for (;;) {
    const int64_t Got = Source.Read(Block, sizeof Block);
    if (Got < 0) return -1;
    if (Got == 0) return Copied;
    if (!WriteExact(Block, Got)) return -1;
    Copied += Got;
  }
}

// ---- memory ---------------------------------------------------------------

TWBMemoryStream::TWBMemoryStream(const void* Data, size_t Size, int64_t MaxSize)
    : FData(static_cast<const uint8_t*>(Data), static_cast<const uint8_t*>(Data) + (Data ? Size : 0)),
      FMaxSize(std::max<int64_t>(MaxSize, int64_t(Data ? Size : 0))) {}

int64_t TWBMemoryStream::Read(void* Data, int64_t Count) {
  if (Count < 0 || (!Data && Count > 0)) {
    FError = "invalid read";
    return -1;
  }
  const int64_t Size = GetSize();
  const int64_t N = FPosition >= Size ? 0 : std::min(Count, Size - FPosition);
  if (N > 0) std::memcpy(Data, FData.data() + FPosition, size_t(N));
  FPosition += N;
  return N;
}

int64_t TWBMemoryStream::Write(const void* Data, int64_t Count) {
  if (Count < 0 || (!Data && Count > 0) || FPosition > FMaxSize - Count) {
    FError = Count < 0 || (!Data && Count > 0) ? "invalid write"
                                                : "a memory stream holds at most " + std::to_string(FMaxSize) + " bytes";
    return -1;
  }
  if (Count == 0) return 0;
  if (FPosition + Count > GetSize()) FData.resize(size_t(FPosition + Count));
  std::memcpy(FData.data() + FPosition, Data, size_t(Count));
  FPosition += Count;
  return Count;
}

int64_t TWBMemoryStream::Seek(int64_t Offset, TWBSeekOrigin Origin) {
  const int64_t Base = Origin == TWBSeekOrigin::soBeginning ? 0 : Origin == TWBSeekOrigin::soCurrent ? FPosition : GetSize();
  if ((Offset < 0 && Base + Offset < 0) || (Offset > 0 && Base > INT64_MAX - Offset)) {
    FError = "seek out of range";
    return -1;
  }
  FPosition = Base + Offset;
  return FPosition;
}

bool TWBMemoryStream::SetSize(int64_t Size) {
  if (Size < 0 || Size > FMaxSize) {
    FError = "a memory stream holds 0 to " + std::to_string(FMaxSize) + " bytes";
    return false;
  }
  FData.resize(size_t(Size));
  return true;
}

void TWBMemoryStream::Clear() {
  FData.clear();
  FPosition = 0;
}

// ---- files ----------------------------------------------------------------

TWBFileStream::TWBFileStream(const std::string& FileName, Platform::TFileOpenMode Mode, Platform::TFileShareMode Share)
    : FFileName(FileName), FFile(Platform::OpenFileHandle(FileName, Mode, Share, FOpenError)) {}

int64_t TWBFileStream::Read(void* Data, int64_t Count) { return FFile ? FFile->Read(Data, Count) : -1; }
int64_t TWBFileStream::Write(const void* Data, int64_t Count) { return FFile ? FFile->Write(Data, Count) : -1; }

int64_t TWBFileStream::Seek(int64_t Offset, TWBSeekOrigin Origin) {
  return FFile ? FFile->Seek(Offset, static_cast<int>(Origin)) : -1;
}

int64_t TWBFileStream::GetSize() { return FFile ? FFile->Size() : -1; }
bool TWBFileStream::SetSize(int64_t Size) { return FFile && FFile->Resize(Size); }
bool TWBFileStream::Flush() { return FFile && FFile->Flush(); }

std::string TWBFileStream::GetLastErrorText() const { return FFile ? FFile->GetLastErrorText() : FOpenError; }

}  // namespace Quorvel
