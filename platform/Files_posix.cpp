// Files through POSIX calls.
#include "platform/Files.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

namespace Quorvel::Platform {

TPathKind GetPathKind(const std::string& Path) {
  struct stat Status;
  if (Path.empty() || stat(Path.c_str(), &Status) != 0) return TPathKind::pkMissing;
  if (S_ISREG(Status.st_mode)) return TPathKind::pkFile;
  if (S_ISDIR(Status.st_mode)) return TPathKind::pkDirectory;
  return TPathKind::pkOther;
}

bool IsSameFile(const std::string& A, const std::string& B) {
  struct stat SA, SB;
  if (A.empty() || B.empty() || stat(A.c_str(), &SA) != 0 || stat(B.c_str(), &SB) != 0) return false;
  return SA.st_dev == SB.st_dev && SA.st_ino == SB.st_ino;
}

std::string ResolveWriteTarget(const std::string& Path) {
  struct stat Status;
  if (Path.empty() || lstat(Path.c_str(), &Status) != 0 || !S_ISLNK(Status.st_mode)) return Path;
  char* Resolved = realpath(Path.c_str(), nullptr);
  if (!Resolved) return Path;  // a dangling link: writing replaces the link itself
  std::string Result(Resolved);
  std::free(Resolved);
  return Result;
}

std::string CreateTemporaryFileBeside(const std::string& Target, std::string& ErrorText) {
  const size_t Slash = Target.find_last_of('/');
  const std::string Folder = Slash == std::string::npos ? std::string() : Target.substr(0, Slash + 1);
  const std::string Base = Slash == std::string::npos ? Target : Target.substr(Slash + 1);
  std::string Name = Folder + "." + Base + ".XXXXXX";
  int Handle = mkstemp(&Name[0]);
  if (Handle < 0) {
    ErrorText = "cannot create a file beside " + Target + ": " + std::strerror(errno);
    return std::string();
  }
  // mkstemp makes the file private; give it the mode the target has, or the
  // one a new file would get.
  struct stat Status;
  mode_t Mode;
  if (stat(Target.c_str(), &Status) == 0 && S_ISREG(Status.st_mode)) {
    Mode = Status.st_mode & 07777;
  } else {
    const mode_t Mask = umask(0);
    umask(Mask);
    Mode = 0666 & ~Mask;
  }
  fchmod(Handle, Mode);
  close(Handle);
  ErrorText.clear();
  return Name;
}

bool PutFileInPlace(const std::string& Source, const std::string& Target, std::string& ErrorText) {
  if (rename(Source.c_str(), Target.c_str()) == 0) return true;
  ErrorText = "cannot replace " + Target + ": " + std::strerror(errno);
  return false;
}

bool RemoveFile(const std::string& Path) { return !Path.empty() && unlink(Path.c_str()) == 0; }

namespace {

// The name is copied into a fixed buffer so that the signal handler reads no
// memory that the main thread may be freeing.
char GInterruptPath[PATH_MAX];
std::atomic<bool> GInterruptArmed{false};
struct sigaction GOldInt, GOldTerm, GOldHup;

void OnInterruptSignal(int Signal) {
  if (GInterruptArmed.exchange(false)) unlink(GInterruptPath);
  // Let the signal end the program as it would have.
  signal(Signal, SIG_DFL);
  raise(Signal);
}

}  // namespace

void RemoveOnInterrupt(const std::string& Path) {
  if (Path.empty() || Path.size() >= sizeof GInterruptPath) return;
  ForgetOnInterrupt();
  std::memcpy(GInterruptPath, Path.c_str(), Path.size() + 1);
  struct sigaction Action {};
  Action.sa_handler = OnInterruptSignal;
  sigemptyset(&Action.sa_mask);
  sigaction(SIGINT, &Action, &GOldInt);
  sigaction(SIGTERM, &Action, &GOldTerm);
  sigaction(SIGHUP, &Action, &GOldHup);
  GInterruptArmed = true;
}

void ForgetOnInterrupt() {
  if (!GInterruptArmed.exchange(false)) return;
  sigaction(SIGINT, &GOldInt, nullptr);
  sigaction(SIGTERM, &GOldTerm, nullptr);
  sigaction(SIGHUP, &GOldHup, nullptr);
}

}  // namespace Quorvel::Platform
