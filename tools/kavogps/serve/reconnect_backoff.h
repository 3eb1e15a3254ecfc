// How long to wait before the next attempt to reach a broker: a second
// after the first failure, doubling up to a minute, so that a broker away
// for long costs almost nothing and one back soon is found soon.
#pragma once

#include <algorithm>
#include <chrono>

namespace kavo::serve {

class ReconnectBackoff {
 public:
  static constexpr std::chrono::milliseconds kFirst{1000};
  static constexpr std::chrono::milliseconds kLongest{60000};

  // The wait before the next attempt; each call gives a longer one.
  std::chrono::milliseconds Next() {
    const std::chrono::milliseconds wait = next_;
    next_ = std::min(next_ * 2, kLongest);
    return wait;
  }
  // Connected: the next failure starts again from the first wait.
  void Reset() { next_ = kFirst; }

 private:
  std::chrono::milliseconds next_ = kFirst;
};

}  // namespace kavo::serve
