#include "platform/Lowmemory.h"

#include <sys/mman.h>

#include <cstdint>

namespace Quorvel::Platform {

void* AllocateLowMemory(size_t Size) noexcept {
#if defined(MAP_32BIT)
  // MAP_32BIT places the mapping in the first 2 GB of the address space.
  void* P = mmap(nullptr, Size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_32BIT, -1, 0);
  if (P == MAP_FAILED) return nullptr;
  if (reinterpret_cast<uintptr_t>(P) + Size > (uintptr_t(1) << 31)) {
    munmap(P, Size);
    return nullptr;
  }
  return P;
#else
  (void)Size;
  return nullptr;
#endif
}

void FreeLowMemory(void* Memory, size_t Size) noexcept {
  if (Memory) munmap(Memory, Size);
}

}  // namespace Quorvel::Platform
