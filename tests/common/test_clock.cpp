#include "common/test_clock.h"

#include <thread>

namespace kavo::test {

ManualClock::ManualClock(uint32_t start, uint32_t realWaitMs) : now_(start), realWaitMs_(realWaitMs) {
  local_.year = 2026, local_.month = 11, local_.day = 22, local_.hour = 9;
  platform::SetClock(this);
}

void ManualClock::Sleep(uint32_t ms) {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    sleeps_.push_back(ms);
  }
  now_ += ms + overrun_;
}

bool ManualClock::SleepUnless(platform::Event& wake, uint32_t ms) {
  if (wake.Wait(0) == platform::WaitResult::kSignaled) return true;
  Sleep(ms);
  return false;
}

platform::LocalTime ManualClock::LocalNow() {
  std::lock_guard<std::mutex> lock(mutex_);
  return local_;
}

void ManualClock::SetLocalTime(const platform::LocalTime& time) {
  std::lock_guard<std::mutex> lock(mutex_);
  local_ = time;
}

std::vector<uint32_t> ManualClock::Sleeps() {
  std::lock_guard<std::mutex> lock(mutex_);
  return sleeps_;
}

void ManualClock::ClearSleeps() {
  std::lock_guard<std::mutex> lock(mutex_);
  sleeps_.clear();
}

FastClock::FastClock(uint32_t speedUp) : speedUp_(speedUp ? speedUp : 1), start_(std::chrono::steady_clock::now()) {
  platform::SetClock(this);
}

uint32_t FastClock::TickCount() {
  const auto real = std::chrono::steady_clock::now() - start_;
  const auto us = std::chrono::duration_cast<std::chrono::microseconds>(real).count();
  return static_cast<uint32_t>(1000 + us * speedUp_ / 1000);
}

void FastClock::Sleep(uint32_t ms) {
  std::this_thread::sleep_for(std::chrono::microseconds(uint64_t(ms) * 1000 / speedUp_));
}

}  // namespace kavo::test
