// How one receiver's feed in `kavogps serve` waits: woken by its own
// driver's callbacks, and stopped by the thread that watches for the
// user's interruption, so that several feeds wait side by side.
#pragma once

#include <condition_variable>
#include <mutex>

#include "session/waiter.h"

namespace kavo::serve {

class SourceStop : public cli::Waiter {
 public:
  bool Wait(uint32_t ms) override;
  void Wake() override;
  // Every Wait from now on returns true at once. Any thread.
  void Stop();

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  bool woken_ = false;
  bool stopped_ = false;
};

}  // namespace kavo::serve
