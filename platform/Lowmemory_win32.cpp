#include "platform/Lowmemory.h"

#include <windows.h>

#include <cstdint>

namespace Quorvel::Platform {

void* AllocateLowMemory(size_t Size) noexcept {
  // Walk the free regions of the low 2 GB and take the first that fits, on
  // the allocation granularity (64 KB). Another thread may take a region
  // between the query and the allocation: then the walk goes on.
  SYSTEM_INFO Info;
  GetSystemInfo(&Info);
  const uintptr_t Granule = Info.dwAllocationGranularity;
  const uintptr_t Limit = uintptr_t(1) << 31;
  uintptr_t Address = (reinterpret_cast<uintptr_t>(Info.lpMinimumApplicationAddress) + Granule - 1) / Granule * Granule;
  while (Address + Size <= Limit) {
    MEMORY_BASIC_INFORMATION Region;
    if (VirtualQuery(reinterpret_cast<void*>(Address), &Region, sizeof(Region)) == 0) break;
    const uintptr_t RegionEnd = reinterpret_cast<uintptr_t>(Region.BaseAddress) + Region.RegionSize;
    if (Region.State == MEM_FREE && RegionEnd >= Address + Size) {
      void* P = VirtualAlloc(reinterpret_cast<void*>(Address), Size, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE);
      if (P) return P;
    }
    Address = (RegionEnd + Granule - 1) / Granule * Granule;
  }
  return nullptr;
}

void FreeLowMemory(void* Memory, size_t) noexcept {
  if (Memory) VirtualFree(Memory, 0, MEM_RELEASE);
}

}  // namespace Quorvel::Platform
