#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "session/console.h"

namespace kavo::cli {
namespace {

// A session's thread sleeps in Wait and the library's callbacks wake it: a
// wake lost, or taken for Ctrl+C, stalls a report or ends the session.
TEST(InterruptWatch, EveryWakeEndsOneWaitWithoutInterrupting) {
  InterruptWatch watch;
  const auto waitEndsEarly = [&watch] {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(watch.Wait(10000));
    return std::chrono::steady_clock::now() - start < std::chrono::seconds(5);  // else the wake was lost
  };
  for (int i = 0; i < 200; ++i) {
    std::thread waker([&] { watch.Wake(); });  // before or during the Wait
    const bool woken = waitEndsEarly();
    waker.join();
    ASSERT_TRUE(woken) << "wake " << i;
  }
  watch.Wake();
  watch.Wake();
  EXPECT_TRUE(waitEndsEarly());
}

}  // namespace
}  // namespace kavo::cli
