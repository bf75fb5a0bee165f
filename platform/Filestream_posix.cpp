// Files through POSIX descriptors. Share modes are kept among the handles
// this package opens (in any process) with open-file-description locks on
// marker bytes far beyond any real file's end: each handle announces what it
// does (reads, writes) and what it denies, then checks the others' marks.
// Programs that take no such locks are not kept out.
#include "platform/Filestream.h"

#ifndef _GNU_SOURCE
#define _GNU_SOURCE  // F_OFD_SETLK, F_OFD_GETLK
#endif
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

// Marker bytes of the share-mode locks.
constexpr off_t kMarkBase = off_t(0x7FFFFFFF00000000);
constexpr off_t kReads = kMarkBase, kWrites = kMarkBase + 1, kDeniesRead = kMarkBase + 2,
                kDeniesWrite = kMarkBase + 3;

// Sets a shared lock on one marker byte. False only when another handle's
// lock is in the way; a file system without such locks enforces nothing.
bool Announce(int Fd, off_t Mark) {
  struct flock Lock = {};
  Lock.l_type = F_RDLCK;
  Lock.l_whence = SEEK_SET;
  Lock.l_start = Mark;
  Lock.l_len = 1;
  return fcntl(Fd, F_OFD_SETLK, &Lock) == 0 || (errno != EAGAIN && errno != EACCES);
}

// True when another handle holds a lock on the marker byte.
bool OthersHold(int Fd, off_t Mark) {
  struct flock Lock = {};
  Lock.l_type = F_WRLCK;
  Lock.l_whence = SEEK_SET;
  Lock.l_start = Mark;
  Lock.l_len = 1;
  return fcntl(Fd, F_OFD_GETLK, &Lock) == 0 && Lock.l_type != F_UNLCK;
}

// Announces first and checks second, so that of two handles opened at the
// same moment at most one gets in.
bool ShareAllows(int Fd, bool Writes, TFileShareMode Share) {
  const bool DenyWrite = Share != TFileShareMode::fsmShareAll, DenyRead = Share == TFileShareMode::fsmDenyAll;
  if (!Announce(Fd, kReads) || (Writes && !Announce(Fd, kWrites)) ||
      (DenyWrite && !Announce(Fd, kDeniesWrite)) || (DenyRead && !Announce(Fd, kDeniesRead)))
    return false;
  if (OthersHold(Fd, kDeniesRead) || (Writes && OthersHold(Fd, kDeniesWrite))) return false;
  if ((DenyWrite && OthersHold(Fd, kWrites)) || (DenyRead && OthersHold(Fd, kReads))) return false;
  return true;
}

}  // namespace

std::unique_ptr<TFileHandle> OpenFileHandle(const std::string& FileName, TFileOpenMode Mode, TFileShareMode Share,
                                            std::string& ErrorText) {
  if (FileName.empty()) {
    ErrorText = "empty file name";
    return nullptr;
  }
  const int Flags = Mode == TFileOpenMode::fomRead        ? O_RDONLY
                    : Mode == TFileOpenMode::fomReadWrite ? O_RDWR
                                                          : O_RDWR | O_CREAT;
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
  // A created file is emptied only once the share modes let this handle in,
  // so that a refused open leaves another handle's file as it was.
  if (!ShareAllows(Fd, Mode != TFileOpenMode::fomRead, Share)) {
    close(Fd);
    ErrorText = "the file is in use by another handle that does not share it";
    return nullptr;
  }
  if (Mode == TFileOpenMode::fomCreate && ftruncate(Fd, 0) != 0) {
    ErrorText = std::strerror(errno);
    close(Fd);
    return nullptr;
  }
  ErrorText.clear();
  return std::make_unique<TPosixFile>(Fd);
}

}  // namespace Quorvel::Platform
