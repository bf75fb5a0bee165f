// Wake-up seam of the main-thread queue. On Windows a message-only window
// created on the main thread receives a posted message and drains the queue
// from the application's own message loop; elsewhere the application drains
// the queue itself, and waking only signals a waiter.
#pragma once

namespace Quorvel::Platform {

using TDrainProc = void (*)();

// [main thread] Prepares the wake-up path; Drain is called on the main thread
// whenever woken work is pending. Safe to call more than once.
void MainThreadWakeInit(TDrainProc Drain);
// [any thread] Asks the main thread to drain the queue soon. Never blocks.
void MainThreadWake();
// [main thread] Tears the wake-up path down (process exit, tests).
void MainThreadWakeDone();

}  // namespace Quorvel::Platform
