#include "platform/Fpu.h"

#if defined(__x86_64__) || defined(_M_X64) || defined(__i386__) || defined(_M_IX86)
#include <xmmintrin.h>
#define QUORVEL_FPU_X86 1
#endif

#include <cfenv>

namespace Quorvel::Platform {

namespace {

#if QUORVEL_FPU_X86
// Exception flags are sticky state, not control: only the control bits
// (exception masks, rounding, flush-to-zero, denormals-are-zero) are kept.
constexpr unsigned kMxcsrControlMask = 0xFFC0u;

struct TDefaultState {
  unsigned Mxcsr;
  unsigned short X87;
  TDefaultState() {
    Mxcsr = _mm_getcsr() & kMxcsrControlMask;
#if defined(__GNUC__)
    __asm__ volatile("fnstcw %0" : "=m"(X87));
#else
    X87 = 0;
#endif
  }
};
const TDefaultState GDefault;
#else
fenv_t GDefaultEnv;
const bool GCaptured = fegetenv(&GDefaultEnv) == 0;
#endif

}  // namespace

void ResetFloatingPointControlWord() noexcept {
#if QUORVEL_FPU_X86
  _mm_setcsr(GDefault.Mxcsr);
#if defined(__GNUC__)
  unsigned short Cw = GDefault.X87;
  __asm__ volatile("fldcw %0" : : "m"(Cw));
#endif
#else
  if (GCaptured) fesetenv(&GDefaultEnv);
#endif
}

}  // namespace Quorvel::Platform
