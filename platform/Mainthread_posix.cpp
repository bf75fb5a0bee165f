// Without a system message loop the application drains the main-thread queue
// itself, and the queue signals its own waiter: there is nothing to wake here.
#include "platform/Mainthread.h"

namespace Quorvel::Platform {

void MainThreadWakeInit(TDrainProc) {}

void MainThreadWake() {}

void MainThreadWakeDone() {}

}  // namespace Quorvel::Platform
