#include "serve/source_stop.h"

#include <chrono>

namespace kavo::serve {

bool SourceStop::Wait(uint32_t ms) {
  std::unique_lock<std::mutex> lock(mutex_);
  changed_.wait_for(lock, std::chrono::milliseconds(ms), [this] { return woken_ || stopped_; });
  woken_ = false;
  return stopped_;
}

void SourceStop::Wake() {
  std::lock_guard<std::mutex> lock(mutex_);
  woken_ = true;
  changed_.notify_all();
}

void SourceStop::Stop() {
  std::lock_guard<std::mutex> lock(mutex_);
  stopped_ = true;
  changed_.notify_all();
}

}  // namespace kavo::serve
