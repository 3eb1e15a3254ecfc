#include "driver/gps_reading_thread_impl.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "common/eventually.h"
#include "common/forced_thread_end.h"
#include "common/log_capture.h"
#include "common/test_clock.h"

namespace kavo {
namespace {

using test::Eventually;

// Time stands still; each kind of timed wait lasts a real time the test
// sets, and a wait of any other length is a fault.
class DriverClock : public test::ManualClock {
 public:
  std::atomic<uint32_t> joinMs{60000};      // a stop's bounded join
  std::atomic<uint32_t> watchdogMs{60000};  // quiet unless a test wants it
  std::atomic<uint32_t> pauseMs{1};         // the pause after an empty or failed read

  uint32_t RealWaitMs(uint32_t ms) override {
    if (ms == platform::kInfinite) return ms;
    if (ms == GpsReadingThreadImpl::kStopWaitMs) return joinMs;
    if (ms == GpsReadingThreadImpl::kWatchdogMs) return watchdogMs;
    EXPECT_EQ(ms, GpsReadingThreadImpl::kRetryPauseMs) << "a wait of no known kind";
    return pauseMs;
  }
};

struct Shared;
// What one Read does: fill the text, block or fail. Runs on the reading
// thread with the call's number (0 first).
using Script = std::function<int(int call, Shared& shared, std::u16string* text, CIMExceptionImpl* error)>;

// Outlives the source: a gate for reads, who read, whether the source is gone.
struct Shared {
  std::mutex mutex;
  std::condition_variable changed;
  bool open = true, cancelled = false, destroyed = false;
  std::vector<std::thread::id> readers;

  template <class Ready>
  bool WaitFor(Ready ready, int seconds = 20) {
    std::unique_lock<std::mutex> lock(mutex);
    return changed.wait_for(lock, std::chrono::seconds(seconds), ready);
  }
  std::vector<std::thread::id> Readers() {
    std::lock_guard<std::mutex> lock(mutex);
    return readers;
  }
  void Update(const std::function<void()>& change) {
    {
      std::lock_guard<std::mutex> lock(mutex);
      change();
    }
    changed.notify_all();
  }
};

class ScriptedSource : public DataSource {
 public:
  ScriptedSource(Script script, std::shared_ptr<Shared> shared) : script_(std::move(script)), shared_(shared) {}
  int Read(char16_t* buffer, uint32_t, uint32_t* count, CIMExceptionImpl* error) override {
    int call = 0;
    shared_->Update([&] {
      call = static_cast<int>(shared_->readers.size());
      shared_->readers.push_back(std::this_thread::get_id());
    });
    std::u16string text;
    const int result = script_(call, *shared_, &text, error);
    std::copy(text.begin(), text.end(), buffer);
    buffer[text.size()] = 0;
    *count = static_cast<uint32_t>(text.size());
    return result;
  }
  int Write(const char16_t*, uint32_t, uint32_t*, CIMExceptionImpl*) override { return 1; }
  void CancelRead() override {
    shared_->Update([&] { shared_->cancelled = true; });
  }

 private:
  ~ScriptedSource() override {
    shared_->Update([&] { shared_->destroyed = true; });
  }
  Script script_;
  std::shared_ptr<Shared> shared_;
};

// Records what reaches it and on which thread. It may hold the reading
// thread, as the receiver's owner does, so a leaked reference makes a cycle.
class RecordingSink : public TextSink {
 public:
  void OnText(const char16_t* text, uint32_t count) override { Add(u"text " + std::u16string(text, count)); }
  void OnNoData() override { Add(u"nodata"); }
  void OnError(const CIMExceptionImpl& error) override {
    const std::string code = std::to_string(error.Code());
    Add(u"error " + std::u16string(code.begin(), code.end()));
  }
  std::vector<std::pair<std::u16string, std::thread::id>> Events() {
    std::lock_guard<std::mutex> lock(mutex_);
    return events_;
  }
  Ref<GpsReadingThreadImpl> owner;

 private:
  void Add(const std::u16string& event) {
    std::lock_guard<std::mutex> lock(mutex_);
    events_.emplace_back(event, std::this_thread::get_id());
  }
  std::mutex mutex_;
  std::vector<std::pair<std::u16string, std::thread::id>> events_;
};

struct Fixture {
  explicit Fixture(Script script, GpsReadingThreadImpl::ThreadStarter starter = nullptr)
      : source(new ScriptedSource(std::move(script), shared)),
        thread(new GpsReadingThreadImpl(Ref<DataSource>(source.get()), std::move(starter))) {}
  DriverClock clock;
  std::shared_ptr<Shared> shared = std::make_shared<Shared>();
  Ref<ScriptedSource> source;
  Ref<GpsReadingThreadImpl> thread;
  Ref<RecordingSink> sink{new RecordingSink};
};

int Empty(int, Shared&, std::u16string*, CIMExceptionImpl*) { return 1; }

TEST(GpsReadingThreadImpl, DeliversTextAndReportsEmptyAndFailedReadsWithAPause) {
  Fixture f([](int call, Shared&, std::u16string* text, CIMExceptionImpl* error) {
    if (call < 2) *text = call == 0 ? u"$GPGGA,1\n" : u"$GPRMC,2\n";
    if (call != 3) return 1;
    SetError(error, kErrOperationFailed);
    return 0;
  });
  test::LogCapture log;
  ASSERT_EQ(f.thread->Start(f.sink.get(), nullptr), 1);
  EXPECT_TRUE(f.thread->Running());
  ASSERT_TRUE(Eventually([&] { return f.sink->Events().size() >= 5; }));
  EXPECT_NE(f.thread->Stop(), 0);
  EXPECT_FALSE(f.thread->Running());
  const auto events = f.sink->Events();
  const std::u16string expected[] = {u"text $GPGGA,1\n", u"text $GPRMC,2\n", u"nodata", u"error -11", u"nodata"};
  for (size_t i = 0; i < 5; ++i) EXPECT_EQ(events[i].first, expected[i]);
  for (const auto& event : events)  // the watchdog saw reads complete
    ASSERT_TRUE(event.second == events[0].second && event.second != std::this_thread::get_id());
  EXPECT_TRUE(log.Contains(u"GPS Thread started\n") && log.Contains(u"Finished\n")) << log.Utf8();
  EXPECT_FALSE(log.Contains(u"Terminating")) << log.Utf8();
}

TEST(GpsReadingThreadImpl, WatchdogReportsAReadThatDoesNotComplete) {
  Fixture f([](int, Shared& shared, std::u16string*, CIMExceptionImpl*) {
    shared.WaitFor([&] { return shared.open; });
    return 1;
  });
  f.clock.watchdogMs = 1;
  f.shared->open = false;
  ASSERT_EQ(f.thread->Start(f.sink.get(), nullptr), 1);
  // The watchdog may report before a slow reading thread starts its read.
  ASSERT_TRUE(Eventually([&] { return f.sink->Events().size() >= 2 && !f.shared->Readers().empty(); }));
  EXPECT_EQ(f.sink->Events()[0].first, u"nodata");
  EXPECT_NE(f.sink->Events()[0].second, f.shared->Readers().at(0)) << "reported by the watchdog";
  f.shared->Update([&] { f.shared->open = true; });
  f.thread->Stop();
}

// A stop cuts the pause after an empty or failed read short, asks a waiting
// read to return, and what that read brings back still reaches the sink.
TEST(GpsReadingThreadImpl, StopEndsPauseAndWaitingReadAtOnceAndKeepsTheirResult) {
  const struct {
    bool waits, fails;
    std::u16string last;
  } cases[] = {{false, false, u"nodata"}, {false, true, u"error -11"}, {true, false, u"text tail"}};
  for (const auto& c : cases) {
    Fixture f([c](int, Shared& shared, std::u16string* text, CIMExceptionImpl* error) {
      if (c.waits) shared.WaitFor([&] { return shared.cancelled; });
      if (c.waits) *text = u"tail";
      if (c.fails) SetError(error, kErrOperationFailed);
      return c.fails ? 0 : 1;
    });
    f.clock.pauseMs = platform::kInfinite;  // only a stop ends it
    test::LogCapture log;
    ASSERT_EQ(f.thread->Start(f.sink.get(), nullptr), 1);
    ASSERT_TRUE(f.shared->WaitFor([&] { return !f.shared->readers.empty(); }));
    EXPECT_EQ(f.thread->Stop(), 1);
    EXPECT_FALSE(log.Contains(u"Terminating")) << log.Utf8();
    EXPECT_TRUE(f.shared->cancelled);
    EXPECT_EQ(f.sink->Events().back().first, c.last);
    EXPECT_EQ(f.shared->Readers().size(), 1u);
  }
}

// Given up on after a stop that timed out, a thread never reads or delivers
// again, even once a later run has started; what it held goes when it ends.
TEST(GpsReadingThreadImpl, AThreadGivenUpOnNeverComesBackAndGivesBackWhatItHeld) {
  Fixture f([](int call, Shared& shared, std::u16string* text, CIMExceptionImpl*) {
    if (call == 0) shared.WaitFor([&] { return shared.open; }, 3600);
    *text = call == 0 ? u"stale" : u"fresh";
    return 1;
  });
  f.shared->open = false;
  f.clock.joinMs = 1;
  test::LogCapture log;
  ASSERT_EQ(f.thread->Start(f.sink.get(), nullptr), 1);
  ASSERT_TRUE(f.shared->WaitFor([&] { return !f.shared->readers.empty(); }));
  f.thread->Stop();
  EXPECT_TRUE(log.Contains(u"Terminating GPS thread handle: ")) << log.Utf8();
  const std::thread::id abandoned = f.shared->Readers()[0];

  f.clock.joinMs = 60000;
  ASSERT_EQ(f.thread->Start(f.sink.get(), nullptr), 1);
  ASSERT_TRUE(Eventually([&] { return !f.sink->Events().empty(); }));
  // Once let go, the abandoned read returns while the new run goes on.
  if (test::ForcedEndLetsThreadsFinish()) f.shared->Update([&] { f.shared->open = true; });
  ASSERT_TRUE(Eventually([&] { return f.sink->Events().size() > 20; }));
  f.thread->Stop();
  auto shared = f.shared;
  f.thread.reset();
  f.source.reset();
  // Gone only once every thread that held it has ended.
  EXPECT_TRUE(shared->WaitFor([&] { return shared->destroyed; }));
  for (const auto& event : f.sink->Events()) ASSERT_EQ(event.first, u"text fresh");
  const auto readers = shared->Readers();
  EXPECT_EQ(std::count(readers.begin(), readers.end(), abandoned), 1);
  if (!test::ForcedEndLetsThreadsFinish()) new std::shared_ptr<Shared>(shared);  // its gate died with the thread
}

// Either thread failing to start leaves nothing behind, not even a cycle.
TEST(GpsReadingThreadImpl, FailedStartHoldsNothing) {
  for (int failAt : {0, 1}) {
    auto starts = std::make_shared<int>(0);
    Fixture f(Empty, [starts, failAt](platform::ThreadBody body) {
      return (*starts)++ == failAt ? nullptr : platform::Thread::Start(std::move(body));
    });
    f.sink->owner = f.thread;
    CIMExceptionImpl error;
    EXPECT_EQ(f.thread->Start(f.sink.get(), &error), 0);
    EXPECT_EQ(error.Code(), -1);
    EXPECT_FALSE(f.thread->Running());
    auto shared = f.shared;
    f.sink.reset();
    f.thread.reset();
    f.source.reset();
    EXPECT_TRUE(shared->destroyed) << "failing at thread " << failAt;
  }
}

}  // namespace
}  // namespace kavo
