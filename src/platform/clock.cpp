#include <atomic>

#include "platform/platform.h"

namespace kavo::platform {
namespace {
std::atomic<Clock*> g_clock{nullptr};
}  // namespace

Clock& CurrentClock() {
  Clock* clock = g_clock.load(std::memory_order_acquire);
  return clock ? *clock : SystemClock();
}

void SetClock(Clock* clock) { g_clock.store(clock, std::memory_order_release); }

bool Clock::SleepUnless(Event& wake, uint32_t ms) { return wake.Wait(ms) == WaitResult::kSignaled; }

}  // namespace kavo::platform
