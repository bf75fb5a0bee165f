// Code libraries through the dynamic linker (dlopen and friends).
#include "platform/Library.h"

#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace Quorvel::Platform {

TModuleHandle LoadCodeLibrary(const std::string& FileName, std::string& ErrorText, unsigned& ErrorCode) {
  // dlopen("") answers the main program, which no caller asking for a library file means.
  if (FileName.empty()) {
    ErrorText = "empty library file name";
    ErrorCode = ENOENT;
    return nullptr;
  }
  dlerror();  // forget a message left over from an earlier call on this thread
  errno = 0;
  // RTLD_NOW: unresolved symbols fail here rather than crash later inside the library.
  // RTLD_LOCAL: plug-ins export the same entry point names and must not see each other's.
  // A bare name of a file in the current folder means that file: dlopen
  // would search only the system's library folders for it.
  const bool Local = FileName.find('/') == std::string::npos && FileExists(FileName);
  void* Module = dlopen((Local ? "./" + FileName : FileName).c_str(), RTLD_NOW | RTLD_LOCAL);
  if (Module) {
    ErrorText.clear();
    ErrorCode = 0;
    return Module;
  }
  const int Errno = errno;
  const char* Message = dlerror();
  ErrorText = Message ? Message : FileName + ": cannot load library";
  ErrorCode = Errno > 0 ? static_cast<unsigned>(Errno) : 1;
  return nullptr;
}

bool ReadLibraryResource(TModuleHandle, const std::string&, unsigned, size_t, std::vector<uint8_t>& Data) {
  Data.clear();
  return false;
}

void* GetLibrarySymbol(TModuleHandle Module, const char* Name) {
  if (!Module || !Name) return nullptr;
  return dlsym(Module, Name);
}

void FreeCodeLibrary(TModuleHandle Module) {
  if (Module) dlclose(Module);
}

bool FileExists(const std::string& FileName) {
  struct stat Status;
  return !FileName.empty() && stat(FileName.c_str(), &Status) == 0 && S_ISREG(Status.st_mode);
}

}  // namespace Quorvel::Platform

namespace Quorvel::Platform {

std::string GetExecutableDirectory() {
  char Path[4096];
  const ssize_t N = readlink("/proc/self/exe", Path, sizeof(Path) - 1);
  if (N <= 0) return {};
  const std::string File(Path, static_cast<size_t>(N));
  const size_t Slash = File.find_last_of('/');
  return Slash == std::string::npos ? std::string() : File.substr(0, Slash + 1);
}

}  // namespace Quorvel::Platform
