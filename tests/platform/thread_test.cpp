// Threads, events, the thread-or-event wait, mutexes and critical sections.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <thread>

#include "common/test_clock.h"
#include "platform/platform.h"

namespace kavo::platform {
namespace {

// Runs a body that waits for Go(); `held` shows whether the body (and the
// reference it captured) still exists. The body waits on a standard future,
// not an Event: an Event's wait asks the clock, and the tests swap in a
// manual clock, and end it, while the body still waits.
struct Work {
  std::promise<void> go;
  std::shared_future<void> gone = go.get_future().share();
  std::weak_ptr<int> held;
  std::unique_ptr<Thread> Start(uint32_t result) {
    auto token = std::make_shared<int>(0);
    held = token;
    return Thread::Start([gone = gone, token, result] {
      gone.wait();
      return result;
    });
  }
  void Go() { go.set_value(); }
};

TEST(Thread, JoinsWithinItsTimeOutGivesTheExitCodeAndDropsTheBodyAtItsEnd) {
  Work work;
  auto thread = work.Start(42);
  ASSERT_TRUE(thread);
  thread->SetPriorityAboveNormal();  // may be refused without privileges; must not disturb the thread
  test::ManualClock clock;           // timed waits last no real time
  EXPECT_EQ(thread->Join(600000), WaitResult::kTimeout);
  uint32_t code = 0;
  ASSERT_TRUE(thread->GetExitCode(&code));
  EXPECT_EQ(code, kStillActive);
  work.Go();
  EXPECT_EQ(thread->Join(kInfinite), WaitResult::kSignaled);
  ASSERT_TRUE(thread->GetExitCode(&code));
  EXPECT_EQ(code, 42u);
  EXPECT_TRUE(work.held.expired());
}

TEST(Event, AutoResetWakesOneWaitManualResetStaysSetAndEitherEndsAThreadOrEventWait) {
  auto automatic = Event::Create(false, false);
  auto manual = Event::Create(true, true);
  EXPECT_EQ(manual->Wait(0), WaitResult::kSignaled);
  EXPECT_EQ(manual->Wait(0), WaitResult::kSignaled);
  manual->Reset();
  EXPECT_EQ(manual->Wait(0), WaitResult::kTimeout);
  std::thread setter([&] { automatic->Set(); });
  EXPECT_EQ(automatic->Wait(kInfinite), WaitResult::kSignaled);
  setter.join();
  EXPECT_EQ(automatic->Wait(0), WaitResult::kTimeout);

  Work work;
  auto thread = work.Start(0);
  {
    test::ManualClock clock;
    EXPECT_EQ(WaitForThreadOrEvent(*thread, *automatic, 600000), WaitResult::kTimeout);
  }
  automatic->Set();  // consumed by the wait
  EXPECT_EQ(WaitForThreadOrEvent(*thread, *automatic, kInfinite), WaitResult::kSignaled);
  EXPECT_EQ(automatic->Wait(0), WaitResult::kTimeout);
  work.Go();
  EXPECT_EQ(WaitForThreadOrEvent(*thread, *automatic, kInfinite), WaitResult::kSignaled);
  EXPECT_EQ(thread->Join(0), WaitResult::kSignaled);
}

template <class F>
auto OnOtherThread(F f) {
  decltype(f()) result{};
  std::thread([&] { result = f(); }).join();
  return result;
}

TEST(Locks, MutexAndCriticalSectionAreReentrantForTheirOwnerOnly) {
  auto mutex = Mutex::Create();
  ASSERT_TRUE(mutex->Lock(0));
  ASSERT_TRUE(mutex->Lock(kInfinite));
  EXPECT_FALSE(OnOtherThread([&] { return mutex->Lock(20); }));
  OnOtherThread([&] {
    mutex->Unlock();
    return 0;
  });  // not the owner: releases nothing
  mutex->Unlock();
  EXPECT_FALSE(OnOtherThread([&] { return mutex->Lock(0); }));
  mutex->Unlock();
  EXPECT_TRUE(OnOtherThread([&] { return mutex->Lock(0); }));  // ends owned by a finished thread

  CriticalSection section;
  std::atomic<bool> inside{false};
  section.Enter();
  section.Enter();
  std::thread other([&] {
    section.Enter();
    inside = true;
    section.Leave();
  });
  section.Leave();
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_FALSE(inside);
  section.Leave();
  other.join();
  EXPECT_TRUE(inside);
}

}  // namespace
}  // namespace kavo::platform
