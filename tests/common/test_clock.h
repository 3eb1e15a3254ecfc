// Clocks for tests, installed for the life of the object.
#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>
#include <mutex>
#include <vector>

#include "platform/platform.h"

namespace kavo::test {

// Time stands still until a test moves it; Sleep records the request and
// advances the clock by it, and by an overrun when one is set (a wait that
// ends late, as timers and schedulers make them). Timed waits last `realWaitMs` real milliseconds
// whatever they ask for (0: they time out at once).
class ManualClock : public platform::Clock {
 public:
  explicit ManualClock(uint32_t start = 1000, uint32_t realWaitMs = 0);
  ~ManualClock() override { platform::SetClock(nullptr); }

  uint32_t TickCount() override { return now_.load(); }
  void Sleep(uint32_t ms) override;
  platform::LocalTime LocalNow() override;
  uint32_t RealWaitMs(uint32_t ms) override { return ms == platform::kInfinite ? ms : std::min(ms, realWaitMs_); }
  // A sleep, unless `wake` is already set.
  bool SleepUnless(platform::Event& wake, uint32_t ms) override;

  void Advance(uint32_t ms) { now_ += ms; }
  void Set(uint32_t ticks) { now_ = ticks; }
  void SetSleepOverrun(uint32_t ms) { overrun_ = ms; }
  void SetLocalTime(const platform::LocalTime& time);
  std::vector<uint32_t> Sleeps();  // every Sleep requested so far
  void ClearSleeps();

 private:
  std::atomic<uint32_t> now_;
  uint32_t realWaitMs_;
  std::atomic<uint32_t> overrun_{0};
  std::mutex mutex_;
  std::vector<uint32_t> sleeps_;
  platform::LocalTime local_;
};

// Real time run faster: every clock millisecond lasts 1/`speedUp` of a real
// one, for sleeps, ticks and timed waits alike, so threads behave as in
// production while a 15-second wait takes a fraction of a second.
class FastClock : public platform::Clock {
 public:
  explicit FastClock(uint32_t speedUp);
  ~FastClock() override { platform::SetClock(nullptr); }

  uint32_t TickCount() override;
  void Sleep(uint32_t ms) override;
  platform::LocalTime LocalNow() override { return platform::SystemClock().LocalNow(); }
  uint32_t RealWaitMs(uint32_t ms) override { return ms == platform::kInfinite ? ms : (ms + speedUp_ - 1) / speedUp_; }

 private:
  const uint32_t speedUp_;
  const std::chrono::steady_clock::time_point start_;
};

}  // namespace kavo::test
