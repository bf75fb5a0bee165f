// Readability through the kernel: process_vm_readv on the own process fails
// with EFAULT instead of faulting when the source is not mapped readable.
#include "testplugins/vst2/Qvreadable.h"

#include <sys/mman.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

namespace Quorvel::Qvtestplugin {
namespace {

// Where the system call is filtered away: every page of the range must at
// least be mapped (mincore answers ENOMEM for a hole).
bool Mapped(const void* Source, size_t Size) noexcept {
  const auto Page = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
  const uintptr_t First = reinterpret_cast<uintptr_t>(Source) & ~(Page - 1);
  const uintptr_t End = reinterpret_cast<uintptr_t>(Source) + Size;
  unsigned char Resident = 0;
  for (uintptr_t At = First; At < End; At += Page)
    if (mincore(reinterpret_cast<void*>(At), 1, &Resident) != 0) return false;
  return true;
}

}  // namespace

bool CopyIfReadable(void* Dest, const void* Source, size_t Size) noexcept {
  if (!Source) return false;
  if (Size == 0) return true;
  iovec Local{Dest, Size};
  iovec Remote{const_cast<void*>(Source), Size};
  const ssize_t Read = process_vm_readv(getpid(), &Local, 1, &Remote, 1, 0);
  if (Read == static_cast<ssize_t>(Size)) return true;
  if (Read < 0 && (errno == ENOSYS || errno == EPERM) && Mapped(Source, Size)) {
    std::memcpy(Dest, Source, Size);
    return true;
  }
  return false;
}

}  // namespace Quorvel::Qvtestplugin
