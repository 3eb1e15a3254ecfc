// Every thread's start and end is guarded by one process-wide mutex and
// announced on one condition variable, the hub. A wait for "this thread
// ended or that event was set" (WaitForMultipleObjects) waits there, and the
// event announces its sets there while such a wait is under way. Threads
// start and end seldom; events have their own condition variables, so their
// frequent sets wake only their own waiters.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

#include "platform/platform.h"

namespace kavo::platform::posix {

std::mutex& HubMutex();
std::condition_variable& HubChanged();

// Callers hold the hub mutex.
bool ThreadFinishedLocked(Thread& thread);

// Waits under `lock` until `ready()` holds or `ms` clock milliseconds pass.
template <class Ready>
bool WaitOnHub(std::unique_lock<std::mutex>& lock, uint32_t ms, Ready ready) {
  const uint32_t real = CurrentClock().RealWaitMs(ms);
  if (real == kInfinite) {
    HubChanged().wait(lock, ready);
    return true;
  }
  return HubChanged().wait_for(lock, std::chrono::milliseconds(real), ready);
}

}  // namespace kavo::platform::posix
