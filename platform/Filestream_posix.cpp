// Files through POSIX descriptors. Share modes are not enforced here.
#include "platform/Filestream.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>

namespace Quorvel::Platform {
namespace {

class TPosixFile final : public TFileHandle {
 public:
  explicit TPosixFile(int Fd) : FFd(Fd) {}
  ~TPosixFile() override { close(FFd); }

  int64_t Read(void* Data, int64_t Count) override {
    if (Count < 0 || (!Data && Count > 0)) return Fail(EINVAL);
    int64_t Done = 0;
    while (Done < Count) {
      const ssize_t N = read(FFd, static_cast<char*>(Data) + Done, size_t(std::min<int64_t>(Count - Done, INT_MAX)));
      if (N < 0 && errno == EINTR) continue;
      if (N < 0) return Done ? Done : Fail(errno);
      if (N == 0) break;
      Done += N;
    }
    return Done;
  }
  int64_t Write(const void* Data, int64_t Count) override {
    if (Count < 0 || (!Data && Count > 0)) return Fail(EINVAL);
    int64_t Done = 0;
    while (Done < Count) {
      const ssize_t N =
          write(FFd, static_cast<const char*>(Data) + Done, size_t(std::min<int64_t>(Count - Done, INT_MAX)));
      if (N < 0 && errno == EINTR) continue;
      if (N <= 0) return Done ? Done : Fail(N < 0 ? errno : EIO);
      Done += N;
    }
    return Done;
  }
  int64_t Seek(int64_t Offset, int Origin) override {
    const int Whence = Origin == 0 ? SEEK_SET : Origin == 1 ? SEEK_CUR : SEEK_END;
    const off_t At = lseek(FFd, off_t(Offset), Whence);
    return At < 0 ? Fail(errno) : int64_t(At);
  }
  int64_t Size() override {
    struct stat Status;
    return fstat(FFd, &Status) != 0 ? Fail(errno) : int64_t(Status.st_size);
  }
  bool Resize(int64_t Size) override {
    if (Size < 0) return Fail(EINVAL) >= 0;
    return ftruncate(FFd, off_t(Size)) == 0 || Fail(errno) >= 0;
  }
  bool Flush() override { return fsync(FFd) == 0 || errno == EINVAL || Fail(errno) >= 0; }
  std::string GetLastErrorText() const override { return FError; }

 private:
  int64_t Fail(int Error) {
    FError = std::strerror(Error);
    return -1;
  }
  int FFd;
  std::string FError;
};

}  // namespace

std::unique_ptr<TFileHandle> OpenFileHandle(const std::string& FileName, TFileOpenMode Mode, TFileShareMode,
                                            std::string& ErrorText) {
  if (FileName.empty()) {
    ErrorText = "empty file name";
    return nullptr;
  }
  const int Flags = Mode == TFileOpenMode::fomRead        ? O_RDONLY
                    : Mode == TFileOpenMode::fomReadWrite ? O_RDWR
                                                          : O_RDWR | O_CREAT | O_TRUNC;
  int Fd;
  do Fd = open(FileName.c_str(), Flags | O_CLOEXEC, 0666);
  while (Fd < 0 && errno == EINTR);
  if (Fd < 0) {
    ErrorText = std::strerror(errno);
    return nullptr;
  }
  struct stat Status;
  if (fstat(Fd, &Status) != 0 || S_ISDIR(Status.st_mode)) {
    close(Fd);
    ErrorText = "is a folder, not a file";
    return nullptr;
  }
  ErrorText.clear();
  return std::make_unique<TPosixFile>(Fd);
}

}  // namespace Quorvel::Platform
