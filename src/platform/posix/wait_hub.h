// Every POSIX event and every thread end is guarded by one process-wide
// mutex and announced on one condition variable. That lets a caller wait for
// "this thread ended or that event was set" (WaitForMultipleObjects) without
// a waiter list; the library has a handful of threads, so the shared wake-ups
// cost nothing.
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
bool EventSetLocked(Event& event);
void ConsumeEventLocked(Event& event);  // an auto-reset event resets

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
