// The clock the driver tests run on: time stands still and moves only when
// the code sleeps; each kind of timed wait lasts a real time the test sets.
#pragma once

#include <atomic>
#include <mutex>
#include <vector>

#include "common/test_clock.h"
#include "driver/gps_reading_thread_impl.h"

namespace kavo::test {

class DriverClock : public ManualClock {
 public:
  std::atomic<uint32_t> joinMs{60000};      // a stop's bounded join
  std::atomic<uint32_t> watchdogMs{60000};  // the watchdog's wait: quiet unless a test wants it
  std::atomic<uint32_t> pauseMs{1};         // the pause after an empty or failed read

  uint32_t RealWaitMs(uint32_t ms) override {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      waits_.push_back(ms);
    }
    if (ms == platform::kInfinite) return ms;
    if (ms == GpsReadingThreadImpl::kStopWaitMs) return joinMs;
    return ms == GpsReadingThreadImpl::kWatchdogMs ? watchdogMs.load() : pauseMs.load();
  }
  std::vector<uint32_t> Waits() {
    std::lock_guard<std::mutex> lock(mutex_);
    return waits_;
  }

 private:
  std::mutex mutex_;
  std::vector<uint32_t> waits_;
};

}  // namespace kavo::test
