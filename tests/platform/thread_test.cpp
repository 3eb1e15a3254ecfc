// Threads, events, the thread-or-event wait, mutexes and critical sections.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "common/test_clock.h"
#include "platform/platform.h"

namespace kavo::platform {
namespace {

// What a test thread works on. A test that abandons its thread keeps this
// for the life of the process, so the thread never touches freed memory.
struct Work {
  std::unique_ptr<Event> go = Event::Create(true, false);
  std::atomic<bool> returned{false};
  uint32_t result = 0;
};

uint32_t WaitForGo(void* raw) {
  auto* work = static_cast<Work*>(raw);
  work->go->Wait(kInfinite);
  work->returned = true;
  return work->result;
}

// A bound for waits that must end early: far above any scheduling delay,
// far below the wait asked for.
constexpr auto kPrompt = std::chrono::seconds(20);

template <class F>
std::chrono::steady_clock::duration Timed(F f) {
  const auto start = std::chrono::steady_clock::now();
  f();
  return std::chrono::steady_clock::now() - start;
}

TEST(Thread, JoinTimesOutWhileRunningThenGivesTheExitCode) {
  Work work;
  work.result = 42;
  auto thread = Thread::Start(WaitForGo, &work);
  ASSERT_TRUE(thread);
  EXPECT_NE(thread->HandleValue(), 0u);
  thread->SetPriorityAboveNormal();  // may be refused without privileges; must not disturb the thread
  EXPECT_EQ(thread->Join(10), WaitResult::kTimeout);
  uint32_t code = 0;
  ASSERT_TRUE(thread->GetExitCode(&code));
  EXPECT_EQ(code, kStillActive);

  work.go->Set();
  EXPECT_EQ(thread->Join(kInfinite), WaitResult::kSignaled);
  ASSERT_TRUE(thread->GetExitCode(&code));
  EXPECT_EQ(code, 42u);
  EXPECT_EQ(thread->Join(0), WaitResult::kSignaled);  // stays ended
}

TEST(Thread, TimedJoinGoesThroughTheReplaceableClock) {
  Work work;
  auto thread = Thread::Start(WaitForGo, &work);
  ASSERT_TRUE(thread);
  {
    test::ManualClock clock;  // timed waits last no real time
    EXPECT_LT(Timed([&] { EXPECT_EQ(thread->Join(600000), WaitResult::kTimeout); }), kPrompt);
  }
  work.go->Set();
  EXPECT_EQ(thread->Join(kInfinite), WaitResult::kSignaled);
}

TEST(Thread, TerminateDoesNotWaitForTheThread) {
  static Work* const work = new Work;
  auto thread = Thread::Start(WaitForGo, work);
  ASSERT_TRUE(thread);
  EXPECT_EQ(thread->Join(10), WaitResult::kTimeout);
  thread->Terminate();
  thread.reset();  // closing the handle of a running or ended thread never waits
  EXPECT_FALSE(work->returned);
  // Where the thread was abandoned rather than killed, it may now finish.
  work->go->Set();
}

TEST(Event, AutoResetWakesOneWaitManualResetStaysSet) {
  auto automatic = Event::Create(false, false);
  auto manual = Event::Create(true, true);
  ASSERT_TRUE(automatic && manual);
  EXPECT_EQ(automatic->Wait(0), WaitResult::kTimeout);
  automatic->Set();
  EXPECT_EQ(automatic->Wait(0), WaitResult::kSignaled);
  EXPECT_EQ(automatic->Wait(0), WaitResult::kTimeout);

  EXPECT_EQ(manual->Wait(0), WaitResult::kSignaled);  // created set
  EXPECT_EQ(manual->Wait(0), WaitResult::kSignaled);
  manual->Reset();
  EXPECT_EQ(manual->Wait(0), WaitResult::kTimeout);

  // A waiter on another thread is woken by Set.
  std::thread setter([&] { automatic->Set(); });
  EXPECT_EQ(automatic->Wait(kInfinite), WaitResult::kSignaled);
  setter.join();

  test::ManualClock clock;
  EXPECT_LT(Timed([&] { EXPECT_EQ(manual->Wait(600000), WaitResult::kTimeout); }), kPrompt);
}

TEST(WaitForThreadOrEvent, EndsOnEitherOrTimesOut) {
  Work work;
  auto thread = Thread::Start(WaitForGo, &work);
  ASSERT_TRUE(thread);
  auto wake = Event::Create(false, false);

  {
    test::ManualClock clock;
    EXPECT_LT(Timed([&] { EXPECT_EQ(WaitForThreadOrEvent(*thread, *wake, 600000), WaitResult::kTimeout); }),
              kPrompt);
  }

  // The event, while the thread runs: the auto-reset event is consumed.
  wake->Set();
  EXPECT_EQ(WaitForThreadOrEvent(*thread, *wake, kInfinite), WaitResult::kSignaled);
  EXPECT_EQ(wake->Wait(0), WaitResult::kTimeout);
  EXPECT_EQ(thread->Join(0), WaitResult::kTimeout);

  // The thread's end, with the event never set.
  work.go->Set();
  EXPECT_EQ(WaitForThreadOrEvent(*thread, *wake, kInfinite), WaitResult::kSignaled);
  EXPECT_EQ(thread->Join(0), WaitResult::kSignaled);
}

// Runs `f` on a thread of its own and returns its result.
template <class F>
auto OnOtherThread(F f) {
  decltype(f()) result{};
  std::thread other([&] { result = f(); });
  other.join();
  return result;
}

TEST(Mutex, ReentrantForItsOwnerTimesOutForOthers) {
  auto mutex = Mutex::Create();
  ASSERT_TRUE(mutex);
  ASSERT_TRUE(mutex->Lock(0));
  ASSERT_TRUE(mutex->Lock(kInfinite));  // the owner again
  EXPECT_FALSE(OnOtherThread([&] { return mutex->Lock(20); }));

  // Another thread's unlock releases nothing and leaves its last error alone.
  EXPECT_EQ(OnOtherThread([&] {
              SetLastError(1234);
              mutex->Unlock();
              return GetLastError();
            }),
            1234u);
  mutex->Unlock();
  EXPECT_FALSE(OnOtherThread([&] { return mutex->Lock(0); }));  // still held once
  mutex->Unlock();

  EXPECT_TRUE(OnOtherThread([&] {
    const bool got = mutex->Lock(0);
    if (got) mutex->Unlock();
    return got;
  }));
  mutex->Unlock();  // not owned any more: harmless

  test::ManualClock clock;
  ASSERT_TRUE(mutex->Lock(0));
  EXPECT_LT(Timed([&] { EXPECT_FALSE(OnOtherThread([&] { return mutex->Lock(600000); })); }), kPrompt);
  mutex->Unlock();
}

TEST(CriticalSection, ReentrantAndExcludesOtherThreads) {
  CriticalSection section;
  int shared = 0;
  section.Enter();
  section.Enter();
  std::thread other([&] {
    section.Enter();
    shared = 2;
    section.Leave();
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_EQ(shared, 0);  // the other thread cannot be inside while we are
  shared = 1;
  section.Leave();
  EXPECT_EQ(shared, 1);
  section.Leave();
  other.join();
  EXPECT_EQ(shared, 2);
}

}  // namespace
}  // namespace kavo::platform
