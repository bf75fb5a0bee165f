// Files opened for reading and writing at any position: the OS seam under
// the frame's file stream. Names are UTF-8 (on Windows opened through the
// UTF-16 functions).
#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace Quorvel::Platform {

enum class TFileOpenMode {
  fomRead,       // an existing file, read only
  fomReadWrite,  // an existing file, read and write
  fomCreate      // a new or emptied file, read and write
};

// What others may do with the file while it is open. Windows enforces it
// for every program; elsewhere among the handles this package opens.
enum class TFileShareMode { fsmShareAll, fsmDenyWrite, fsmDenyAll };

class TFileHandle {
 public:
  virtual ~TFileHandle() = default;
  // Each answers -1 (or false) on an error of the system, with the reason in
  // GetLastErrorText. Read answers the bytes read, 0 at the end.
  virtual int64_t Read(void* Data, int64_t Count) = 0;
  virtual int64_t Write(const void* Data, int64_t Count) = 0;
  // Origin 0 the start, 1 the position, 2 the end; answers the new position.
  virtual int64_t Seek(int64_t Offset, int Origin) = 0;
  virtual int64_t Size() = 0;
  // Cuts or extends the file to Size bytes; the position stays.
  virtual bool Resize(int64_t Size) = 0;
  virtual bool Flush() = 0;
  virtual std::string GetLastErrorText() const = 0;
};

// [any thread] nullptr with the system's reason in ErrorText when the file
// cannot be opened as asked.
std::unique_ptr<TFileHandle> OpenFileHandle(const std::string& FileName, TFileOpenMode Mode, TFileShareMode Share,
                                            std::string& ErrorText);

}  // namespace Quorvel::Platform
