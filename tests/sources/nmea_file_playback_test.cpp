#include "sources/nmea_file_playback.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "common/eventually.h"
#include "common/temp_dir.h"
#include "common/test_clock.h"

namespace kavo {
namespace {

using test::ManualClock;
using test::TempDir;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr uint32_t kInterval = 500;

std::string NumberedLines(int count) {
  std::string text;
  for (int i = 1; i <= count; ++i) text += "L" + std::to_string(i) + "\r\n";
  return text;
}

class Playback : public testing::Test {
 protected:
  // The clock starts at 1000 ms and moves only when told or slept on.
  void Open(const std::string& bytes, bool repeat = false, uint32_t interval = kInterval) {
    playback_.reset();  // lets go of the last recording: Windows cannot rewrite an open file
    dir_.Write("rec.nmea", bytes);
    playback_ = Ref<NmeaFilePlayback>(new NmeaFilePlayback);
    playback_->Open(dir_.WideFile("rec.nmea"), interval, repeat);
  }

  // One Read with the reading thread's capacity unless told otherwise;
  // returns what it delivered.
  std::u16string Read(uint32_t capacity = 1024) {
    std::vector<char16_t> buffer(capacity, u'#');
    uint32_t count = 0xDEAD;
    CIMExceptionImpl error;
    EXPECT_EQ(playback_->Read(buffer.data(), capacity, &count, &error), 1);
    EXPECT_EQ(error.Code(), kErrGeneralFailure);
    EXPECT_LE(count, capacity - 1);
    EXPECT_EQ(buffer[count], 0) << "not terminated";
    return std::u16string(buffer.data(), count);
  }

  ManualClock clock_;
  TempDir dir_;
  Ref<NmeaFilePlayback> playback_;
};

// One Read after `advance` ms, with `capacity`: what it delivers, the sleeps
// it took and the lines still due after it.
struct Step {
  uint32_t advance, capacity;
  std::u16string delivered;
  std::vector<uint32_t> sleeps;
  uint32_t pending;
};
struct Script {
  const char* name;
  std::string file;
  bool repeat;
  uint32_t interval;
  std::vector<Step> steps;
};

TEST_F(Playback, PacesCatchesUpAndRepeats) {
  const Script scripts[] = {
      {"early read sleeps out the interval, counted from the last read's end",
       NumberedLines(5),
       false,
       kInterval,
       {{200, 1024, u"L1\n", {300}, 0}, {499, 1024, u"L2\n", {1}, 0}}},
      {"a late read catches up with the pending line and every interval",
       NumberedLines(9),
       false,
       kInterval,
       {{1700, 1024, u"L1\nL2\nL3\nL4\n", {}, 0}, {1000, 1024, u"L5\nL6\n", {}, 0}}},
      {"lines that do not fit stay due; an early read then drops them",
       NumberedLines(9),
       false,
       kInterval,
       {{1500, 8, u"L1\nL2\nL", {}, 2},
        {kInterval, 1024, u"3\nL4\nL5\n", {}, 0},
        {1500, 4, u"L6\n", {}, 3},
        {0, 1024, u"L7\n", {kInterval}, 0}}},
      {"LF-only lines come as one run per line due",
       "L1\nL2\nL3\nL4\nL5\n",
       false,
       kInterval,
       {{0, 7, u"L1\nL2\n", {kInterval}, 1}, {kInterval, 7, u"L3\nL4\n", {}, 2}}},
      {"repeat starts again after the byte-order mark",
       "\xEF\xBB\xBF" + NumberedLines(3),
       true,
       kInterval,
       {{1500, 1024, u"L1\nL2\nL3\n", {}, 1},
        {kInterval, 1024, u"L1\nL2\n", {}, 0},
        {0, 1024, u"L3\n", {kInterval}, 0}}},
      {"without repeat the end delivers nothing, still paced",
       NumberedLines(2),
       false,
       kInterval,
       {{1000, 1024, u"L1\nL2\n", {}, 1}, {0, 1024, u"", {kInterval}, 1}, {10 * kInterval, 1024, u"", {}, 11}}},
  };
  for (const Script& script : scripts) {
    SCOPED_TRACE(script.name);
    Open(script.file, script.repeat, script.interval);
    for (const Step& step : script.steps) {
      clock_.ClearSleeps();
      clock_.Advance(step.advance);
      EXPECT_EQ(Read(step.capacity), step.delivered);
      EXPECT_EQ(clock_.Sleeps(), step.sleeps);
      EXPECT_EQ(playback_->PendingLines(), step.pending);
    }
  }
}

// A paused Read returns at once, untouched, and keeps no lock: a reading
// thread that ends there must not leave the next one blocked. A cancelled
// one takes nothing either, until the cancel is forgotten.
TEST_F(Playback, WhilePausedOrCancelledAReadReturnsAtOnceAndResumeRestartsThePace) {
  Open(NumberedLines(9));
  playback_->Pause();
  std::thread([&] {
    char16_t buffer[16] = {};
    uint32_t count = 777;
    EXPECT_EQ(playback_->Read(buffer, 16, &count, nullptr), 1);
    EXPECT_EQ(count, 777u);
  }).join();
  EXPECT_THAT(clock_.Sleeps(), IsEmpty());
  clock_.Advance(10 * kInterval);  // time spent paused does not pile up lines
  EXPECT_EQ(playback_->Resume(nullptr), 1);
  playback_->CancelRead();  // a stop: the pacing ends at once and takes no line
  EXPECT_EQ(Read(), u"");
  EXPECT_THAT(clock_.Sleeps(), IsEmpty());
  EXPECT_EQ(playback_->PendingLines(), 1u);
  playback_->ResetCancelRead();
  auto read = std::make_shared<std::atomic<bool>>(false);
  Ref<NmeaFilePlayback> playback = playback_;
  std::thread([read, playback] {
    char16_t buffer[16];
    uint32_t count = 0;
    playback->Read(buffer, 16, &count, nullptr);
    *read = std::u16string(buffer, count) == u"L1\n";
  }).detach();
  EXPECT_TRUE(test::Eventually([&] { return read->load(); }));
  EXPECT_THAT(clock_.Sleeps(), ElementsAre(kInterval));
}

// Time as a machine keeps it: ticks in whole milliseconds of a finer time,
// waits that end late (a timer's rounding, the scheduler), reads that take
// time. The pace must not lose what they add: over 300 lines at 5, 20 and
// 100 ms a line, the lines come within 1 % of their schedule.
class OverrunningClock : public platform::Clock {
 public:
  OverrunningClock() { platform::SetClock(this); }
  ~OverrunningClock() override { platform::SetClock(nullptr); }
  uint32_t TickCount() override { return static_cast<uint32_t>(us / 1000); }
  void Sleep(uint32_t ms) override { us += ms * 1000 + (seed = seed * 1103515245u + 12345u) / 65536 % 1000; }
  bool SleepUnless(platform::Event&, uint32_t ms) override { return Sleep(ms), false; }
  platform::LocalTime LocalNow() override { return {}; }
  uint64_t us = 5'000'000;
  uint32_t seed = 1;  // the overruns, up to 1 ms
};

TEST(PlaybackPace, KeepsToTheIntervalWhenWaitsOverrun) {
  TempDir dir;
  dir.Write("rec.nmea", NumberedLines(400));
  for (const uint32_t interval : {5u, 20u, 100u}) {
    OverrunningClock clock;
    Ref<NmeaFilePlayback> playback(new NmeaFilePlayback);
    playback->Open(dir.WideFile("rec.nmea"), interval, false);
    const uint64_t start = clock.us;
    int lines = 0;
    while (lines < 300) {
      char16_t buffer[1024];
      uint32_t count = 0;
      ASSERT_EQ(playback->Read(buffer, 1024, &count, nullptr), 1);
      lines += static_cast<int>(std::count(buffer, buffer + count, u'\n'));
      clock.us += 300;  // handing the text on
    }
    EXPECT_NEAR((clock.us - start) / 1000.0 / lines, interval, interval * 0.01) << interval << " ms a line";
  }
}

}  // namespace
}  // namespace kavo
