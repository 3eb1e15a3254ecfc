#include "driver/gps_reading_thread_impl.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <set>
#include <mutex>
#include <thread>

#include "common/eventually.h"
#include "common/forced_thread_end.h"
#include "common/log_capture.h"
#include "common/test_clock.h"

namespace kavo {
namespace {

using test::Eventually;

using std::chrono::milliseconds;

// Blocks reads until opened; shared so a test can open it after the source
// is gone from its hands.
struct Gate {
  std::mutex mutex;
  std::condition_variable changed;
  bool open = true;
  bool sourceDestroyed = false;

  void Close() { std::lock_guard<std::mutex> l(mutex); open = false; }
  void Open() {
    { std::lock_guard<std::mutex> l(mutex); open = true; }
    changed.notify_all();
  }
  void WaitOpen() {
    std::unique_lock<std::mutex> l(mutex);
    changed.wait(l, [&] { return open; });
  }
  bool WaitDestroyed(milliseconds limit) {
    std::unique_lock<std::mutex> l(mutex);
    return changed.wait_for(l, limit, [&] { return sourceDestroyed; });
  }
};

class ScriptedSource : public DataSource {
 public:
  using Script = std::function<int(char16_t*, uint32_t, uint32_t*, CIMExceptionImpl*)>;
  ScriptedSource(Script script, std::shared_ptr<Gate> gate) : script_(std::move(script)), gate_(gate) {}
  int Read(char16_t* buffer, uint32_t capacity, uint32_t* count, CIMExceptionImpl* error) override {
    gate_->WaitOpen();
    ++reads;
    return script_(buffer, capacity, count, error);
  }
  int Write(const char16_t*, uint32_t, uint32_t* written, CIMExceptionImpl*) override {
    *written = 0;
    return 1;
  }
  std::atomic<int> reads{0};

 private:
  ~ScriptedSource() override {
    { std::lock_guard<std::mutex> l(gate_->mutex); gate_->sourceDestroyed = true; }
    gate_->changed.notify_all();
  }
  Script script_;
  std::shared_ptr<Gate> gate_;
};

class RecordingSink : public TextSink {
 public:
  explicit RecordingSink(std::thread::id caller) : caller_(caller) {}
  void OnText(const char16_t* text, uint32_t count) override {
    std::lock_guard<std::mutex> l(mutex_);
    texts_.emplace_back(text, count);
    threads_.insert(std::this_thread::get_id());
  }
  void OnNoData() override {
    std::lock_guard<std::mutex> l(mutex_);
    noData_.push_back(std::this_thread::get_id());
  }
  void OnError(const CIMExceptionImpl& error) override {
    std::lock_guard<std::mutex> l(mutex_);
    errorCodes_.push_back(error.Code());
  }
  std::vector<std::u16string> Texts() { std::lock_guard<std::mutex> l(mutex_); return texts_; }
  std::vector<std::thread::id> NoData() { std::lock_guard<std::mutex> l(mutex_); return noData_; }
  std::vector<int32_t> Errors() { std::lock_guard<std::mutex> l(mutex_); return errorCodes_; }
  bool CalledOn(std::thread::id id) { std::lock_guard<std::mutex> l(mutex_); return threads_.count(id) > 0; }

 private:
  std::thread::id caller_;
  std::mutex mutex_;
  std::vector<std::u16string> texts_;
  std::vector<std::thread::id> noData_;
  std::vector<int32_t> errorCodes_;
  std::set<std::thread::id> threads_;
};

struct Fixture {
  explicit Fixture(ScriptedSource::Script script)
      : gate(std::make_shared<Gate>()), source(new ScriptedSource(std::move(script), gate)),
        thread(new GpsReadingThreadImpl(Ref<DataSource>(source.get()))),
        sink(new RecordingSink(std::this_thread::get_id())) {}
  std::shared_ptr<Gate> gate;
  Ref<ScriptedSource> source;
  Ref<GpsReadingThreadImpl> thread;
  Ref<RecordingSink> sink;
};

TEST(GpsReadingThreadImpl, DeliversEachChunkAsReadOnItsOwnThread) {
  test::FastClock clock(20);
  int chunk = 0;
  Fixture f([&](char16_t* buffer, uint32_t capacity, uint32_t* count, CIMExceptionImpl*) {
    EXPECT_EQ(capacity, 1024u);
    if (chunk >= 3) {
      *count = 0;
      return 1;
    }
    const std::u16string text = chunk++ == 0 ? u"$GPGGA,1\n" : u"$GPRMC,2\n";
    text.copy(buffer, text.size());
    buffer[text.size()] = 0;
    *count = static_cast<uint32_t>(text.size());
    return 1;
  });
  test::LogCapture log;
  ASSERT_EQ(f.thread->Start(f.sink.get(), nullptr), 1);
  EXPECT_TRUE(f.thread->Running());
  ASSERT_TRUE(Eventually([&] { return f.sink->Texts().size() == 3; }));
  EXPECT_NE(f.thread->Stop(), 0);
  EXPECT_FALSE(f.thread->Running());
  EXPECT_EQ(f.sink->Texts(), (std::vector<std::u16string>{u"$GPGGA,1\n", u"$GPRMC,2\n", u"$GPRMC,2\n"}));
  EXPECT_FALSE(f.sink->CalledOn(std::this_thread::get_id()));
  EXPECT_TRUE(log.Contains(u"GPS Thread started\n")) << log.Utf8();
  EXPECT_TRUE(log.Contains(u"Finished\n")) << log.Utf8();
}

TEST(GpsReadingThreadImpl, EmptyReadsReportNoDataFromTheReadingThreadOnly) {
  test::FastClock clock(20);
  Fixture f([](char16_t*, uint32_t, uint32_t* count, CIMExceptionImpl*) {
    *count = 0;
    return 1;
  });
  ASSERT_EQ(f.thread->Start(f.sink.get(), nullptr), 1);
  // 5 s of clock time: a report every 150 ms, and reads keep the watchdog quiet.
  std::this_thread::sleep_for(milliseconds(250));
  f.thread->Stop();
  const auto noData = f.sink->NoData();
  ASSERT_GE(noData.size(), 5u);
  EXPECT_LE(noData.size(), 40u) << "each empty read is followed by a 150 ms pause";
  for (const auto& id : noData) EXPECT_EQ(id, noData.front()) << "the watchdog reported too";
}

TEST(GpsReadingThreadImpl, WatchdogReportsAReadThatDoesNotComplete) {
  test::FastClock clock(20);
  Fixture f([](char16_t*, uint32_t, uint32_t* count, CIMExceptionImpl*) {
    *count = 0;
    return 1;
  });
  f.gate->Close();
  ASSERT_EQ(f.thread->Start(f.sink.get(), nullptr), 1);
  // The read blocks: the watchdog reports every 2000 ms (100 ms real).
  ASSERT_TRUE(Eventually([&] { return f.sink->NoData().size() >= 2; }));
  EXPECT_EQ(f.source->reads.load(), 0);
  f.gate->Open();
  f.thread->Stop();
}

TEST(GpsReadingThreadImpl, FailedReadIsReportedThenPausedAndReadingGoesOn) {
  test::ManualClock clock(1000, 5);
  int calls = 0;
  Fixture f([&](char16_t*, uint32_t, uint32_t* count, CIMExceptionImpl* error) {
    *count = 0;
    if (calls++ < 2) {
      SetError(error, kErrOperationFailed);
      return 0;
    }
    return 1;
  });
  ASSERT_EQ(f.thread->Start(f.sink.get(), nullptr), 1);
  ASSERT_TRUE(Eventually([&] { return f.sink->Errors().size() == 2 && !f.sink->NoData().empty(); }));
  f.thread->Stop();
  EXPECT_EQ(f.sink->Errors(), (std::vector<int32_t>{kErrOperationFailed, kErrOperationFailed}));
  const auto sleeps = clock.Sleeps();
  ASSERT_GE(sleeps.size(), 3u);
  EXPECT_EQ(sleeps[0], 150u);
  EXPECT_EQ(sleeps[1], 150u);
}

TEST(GpsReadingThreadImpl, WithoutASinkNothingIsCalledAndNothingSleeps) {
  test::ManualClock clock(1000, 5);
  Fixture f([](char16_t*, uint32_t, uint32_t* count, CIMExceptionImpl*) {
    *count = 0;
    return 1;
  });
  ASSERT_EQ(f.thread->Start(nullptr, nullptr), 1);
  ASSERT_TRUE(Eventually([&] { return f.source->reads.load() > 10; }));
  f.thread->Stop();
  EXPECT_TRUE(clock.Sleeps().empty());
}

TEST(GpsReadingThreadImpl, StopEndsAThreadStuckInReadAndNothingIsFreedUnderIt) {
  test::FastClock clock(50);
  Fixture f([](char16_t*, uint32_t, uint32_t* count, CIMExceptionImpl*) {
    *count = 0;
    return 1;
  });
  f.gate->Close();
  test::LogCapture log;
  ASSERT_EQ(f.thread->Start(f.sink.get(), nullptr), 1);
  ASSERT_TRUE(Eventually([&] { return f.sink->NoData().size() >= 1; }));
  f.thread->Stop();  // waits 5000 ms of clock time, then ends the thread
  EXPECT_TRUE(log.Contains(u"Terminating GPS thread handle: ")) << log.Utf8();
  const size_t reportsAtStop = f.sink->NoData().size();
  if (!test::ForcedEndLetsThreadsFinish()) {
    // Terminated where it stood: what it held is gone with it, so the test
    // leaves the gate and the source alone.
    new std::shared_ptr<Gate>(f.gate);
    return;
  }

  // Everything the test held goes; the stuck read then returns into objects
  // its thread still holds, and nothing reaches the sink any more.
  auto gate = f.gate;
  Ref<RecordingSink> sink = f.sink;
  f.thread.reset();
  f.source.reset();
  gate->Open();
  EXPECT_TRUE(gate->WaitDestroyed(milliseconds(5000)));
  EXPECT_EQ(sink->NoData().size(), reportsAtStop);
}

TEST(GpsReadingThreadImpl, CanBeStartedAgainAfterStop) {
  test::FastClock clock(20);
  Fixture f([](char16_t* buffer, uint32_t, uint32_t* count, CIMExceptionImpl*) {
    buffer[0] = u'x';
    buffer[1] = 0;
    *count = 1;
    return 1;
  });
  for (int round = 0; round < 3; ++round) {
    ASSERT_EQ(f.thread->Start(f.sink.get(), nullptr), 1);
    const size_t before = f.sink->Texts().size();
    ASSERT_TRUE(Eventually([&] { return f.sink->Texts().size() > before; }));
    EXPECT_NE(f.thread->Stop(), 0);
  }
}

}  // namespace
}  // namespace kavo
