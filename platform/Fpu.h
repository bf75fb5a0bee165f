// The floating-point control state of the calling thread. Plug-ins built by
// others may leave it changed (rounding, flush-to-zero, unmasked exceptions);
// hosts put it back before every call into a plug-in and on every call back.
#pragma once

namespace Quorvel::Platform {

// [any thread] Restores the calling thread's SSE control/status register and
// (where the compiler allows) the x87 control word to the values the process
// started with. A few instructions; safe on audio threads.
void ResetFloatingPointControlWord() noexcept;

}  // namespace Quorvel::Platform
