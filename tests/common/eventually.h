// Waits, in real time, for something another thread does.
#pragma once

#include <chrono>
#include <thread>

namespace kavo::test {

// Polls `done` until it holds or `limit` passes; false on time-out.
template <class Predicate>
bool Eventually(Predicate done, std::chrono::milliseconds limit = std::chrono::milliseconds(10000)) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (!done()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

}  // namespace kavo::test
