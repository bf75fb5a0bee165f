// Memory placed below 2 GB. A VST 2 host answers the address of its time
// record in 32 bits, sign-extended into the plug-in's pointer-sized result;
// an address below 2^31 survives that unchanged.
#pragma once

#include <cstddef>

namespace Quorvel::Platform {

// [any thread] Zero-filled memory of Size bytes below 2^31, or nullptr when the
// system has none to give there.
void* AllocateLowMemory(size_t Size) noexcept;
// [any thread] Releases memory from AllocateLowMemory; nullptr is ignored.
void FreeLowMemory(void* Memory, size_t Size) noexcept;

}  // namespace Quorvel::Platform
