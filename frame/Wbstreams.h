// Streams of bytes with a position: one abstraction over memory and files,
// for the preset and bank files, the VST 3 stream objects and the loggers.
// A stream is used by one thread at a time.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/Filestream.h"

namespace Quorvel {

enum class TWBSeekOrigin { soBeginning, soCurrent, soEnd };

class TWBStream {
 public:
  virtual ~TWBStream() = default;
  // Up to Count bytes from the position; answers how many were read (0 at
  // the end), -1 on an error (negative Count included).
  virtual int64_t Read(void* Data, int64_t Count) = 0;
  // Count bytes at the position, growing the stream as needed; answers how
  // many were written, -1 on an error.
  virtual int64_t Write(const void* Data, int64_t Count) = 0;
  // Answers the new position, or -1 (position unchanged) for a position
  // before the start. Beyond the end is allowed; a write there fills the gap
  // with zeros.
  virtual int64_t Seek(int64_t Offset, TWBSeekOrigin Origin) = 0;
  virtual int64_t GetSize() = 0;
  // Cuts or extends (with zeros) the stream to Size bytes; the position stays.
  virtual bool SetSize(int64_t Size) = 0;

  int64_t GetPosition() { return Seek(0, TWBSeekOrigin::soCurrent); }
  // Bytes from the position to the end (0 when the position is beyond it).
  int64_t Remaining();
  // Exactly Count bytes, or false (the position then is unspecified).
  bool ReadExact(void* Data, int64_t Count) { return Count >= 0 && Read(Data, Count) == Count; }
  bool WriteExact(const void* Data, int64_t Count) { return Count >= 0 && Write(Data, Count) == Count; }
  // Big-endian integers, as the plug-in file formats store them.
  bool ReadBigEndian32(uint32_t& Value);
  bool WriteBigEndian32(uint32_t Value);
  // Everything from Source's position to its end; answers the bytes copied, -1 on an error.
  int64_t CopyFrom(TWBStream& Source);
  // The text of the last error ("" when none).
  virtual std::string GetLastErrorText() const { return std::string(); }
};

// A stream in memory. It grows as it is written, up to MaxSize bytes, so that
// a hostile length can never make it take more.
class TWBMemoryStream final : public TWBStream {
 public:
  static constexpr int64_t kDefaultMaxSize = int64_t(1) << 30;
  explicit TWBMemoryStream(int64_t MaxSize = kDefaultMaxSize) : FMaxSize(MaxSize) {}
  TWBMemoryStream(const void* Data, size_t Size, int64_t MaxSize = kDefaultMaxSize);

  int64_t Read(void* Data, int64_t Count) override;
  int64_t Write(const void* Data, int64_t Count) override;
  int64_t Seek(int64_t Offset, TWBSeekOrigin Origin) override;
  int64_t GetSize() override { return int64_t(FData.size()); }
  bool SetSize(int64_t Size) override;
  std::string GetLastErrorText() const override { return FError; }

  const std::vector<uint8_t>& GetData() const { return FData; }
  void Clear();

 private:
  std::vector<uint8_t> FData;
  int64_t FPosition = 0;
  int64_t FMaxSize;
  std::string FError;
};

// A stream over a file. Opening fails with the system's reason (GetOpenError).
class TWBFileStream final : public TWBStream {
 public:
  TWBFileStream(const std::string& FileName, Platform::TFileOpenMode Mode,
                Platform::TFileShareMode Share = Platform::TFileShareMode::fsmDenyWrite);
  bool IsOpen() const { return FFile != nullptr; }
  const std::string& GetOpenError() const { return FOpenError; }
  const std::string& GetFileName() const { return FFileName; }

  int64_t Read(void* Data, int64_t Count) override;
  int64_t Write(const void* Data, int64_t Count) override;
  int64_t Seek(int64_t Offset, TWBSeekOrigin Origin) override;
  int64_t GetSize() override;
  bool SetSize(int64_t Size) override;
  bool Flush();
  std::string GetLastErrorText() const override;

 private:
  std::string FFileName;
  std::string FOpenError;  // before FFile: opening fills it
  std::unique_ptr<Platform::TFileHandle> FFile;
};

}  // namespace Quorvel
