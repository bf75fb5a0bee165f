// Reading memory that a host pointed at, without trusting the pointer: a
// host may answer an address that was cut to 32 bits on its way back.
#pragma once

#include <cstddef>

namespace Quorvel::Qvtestplugin {

// [any thread] Copies Size bytes from Source to Dest when all of them are
// readable; answers false when any is not (Dest's content is then undefined).
bool CopyIfReadable(void* Dest, const void* Source, size_t Size) noexcept;

}  // namespace Quorvel::Qvtestplugin
