#include "sources/nmea_file_playback.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

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
    dir_.Write("rec.nmea", bytes);
    playback_ = Ref<NmeaFilePlayback>(new NmeaFilePlayback);
    ASSERT_EQ(playback_->Open(dir_.WideFile("rec.nmea"), interval, repeat), 1);
  }

  // One Read with the reading thread's capacity unless told otherwise;
  // returns what it delivered.
  std::u16string Read(uint32_t capacity = 1024) {
    std::vector<char16_t> buffer(capacity, u'#');
    uint32_t count = 0xDEAD;
    CIMExceptionImpl error;
    EXPECT_EQ(playback_->Read(buffer.data(), capacity, &count, &error), 1);
    EXPECT_EQ(error.Code(), kErrNone);
    EXPECT_LE(count, capacity - 1);
    EXPECT_EQ(buffer[count], 0) << "not terminated";
    return std::u16string(buffer.data(), count);
  }

  ManualClock clock_;
  TempDir dir_;
  Ref<NmeaFilePlayback> playback_;
};

TEST_F(Playback, AnEarlyReadSleepsOutTheIntervalAndDeliversOneLine) {
  Open(NumberedLines(5));
  clock_.Advance(200);
  EXPECT_EQ(Read(), u"L1\n");
  EXPECT_THAT(clock_.Sleeps(), ElementsAre(300u));
  // The next interval is counted from the end of that read.
  clock_.Advance(499);
  EXPECT_EQ(Read(), u"L2\n");
  EXPECT_THAT(clock_.Sleeps(), ElementsAre(300u, 1u));
}

TEST_F(Playback, ALateReadCatchesUpWithEveryLineDue) {
  Open(NumberedLines(9));
  clock_.Advance(1700);  // the pending line and three more intervals
  EXPECT_EQ(Read(), u"L1\nL2\nL3\nL4\n");
  EXPECT_THAT(clock_.Sleeps(), IsEmpty());
  EXPECT_EQ(playback_->PendingLines(), 0u);
  clock_.Advance(1000);
  EXPECT_EQ(Read(), u"L5\nL6\n");
}

TEST_F(Playback, LinesThatDoNotFitStayPending) {
  Open(NumberedLines(9));
  clock_.Advance(1500);  // four lines due, room for 7 characters
  EXPECT_EQ(Read(8), u"L1\nL2\nL");
  EXPECT_EQ(playback_->PendingLines(), 2u);
  clock_.Advance(kInterval);  // the two left and one more: the rest of L3 counts as one
  EXPECT_EQ(Read(), u"3\nL4\nL5\n");
  EXPECT_EQ(playback_->PendingLines(), 0u);
}

TEST_F(Playback, AnEarlyReadDropsWhatWasPending) {
  Open(NumberedLines(9));
  clock_.Advance(1500);
  EXPECT_EQ(Read(4), u"L1\n");
  EXPECT_EQ(playback_->PendingLines(), 4u);
  EXPECT_EQ(Read(), u"L2\n");  // on time again: one line
  EXPECT_EQ(playback_->PendingLines(), 0u);
}

TEST_F(Playback, LfOnlyFilesComeAsOneRunPerLineDue) {
  Open("L1\nL2\nL3\nL4\nL5\n");
  EXPECT_EQ(Read(7), u"L1\nL2\n");
  clock_.Advance(kInterval);
  EXPECT_EQ(Read(7), u"L3\nL4\n");
}

TEST_F(Playback, RepeatStartsAgainAfterTheByteOrderMark) {
  Open("\xEF\xBB\xBF" + NumberedLines(3), /*repeat=*/true);
  clock_.Advance(1500);  // four due: three lines, then the end
  EXPECT_EQ(Read(), u"L1\nL2\nL3\n");
  clock_.Advance(kInterval);
  EXPECT_EQ(Read(), u"L1\nL2\n");
  EXPECT_EQ(Read(), u"L3\n");
}

TEST_F(Playback, WithoutRepeatEveryReadAfterTheEndDeliversNothing) {
  Open(NumberedLines(2));
  clock_.Advance(1000);
  EXPECT_EQ(Read(), u"L1\nL2\n");
  clock_.ClearSleeps();
  for (int i = 0; i < 3; ++i) EXPECT_EQ(Read(), u"");
  // The pacing goes on: an idle reader does not spin.
  EXPECT_THAT(clock_.Sleeps(), ElementsAre(kInterval, kInterval, kInterval));
  clock_.Advance(10 * kInterval);
  EXPECT_EQ(Read(), u"");
}

TEST_F(Playback, WhilePausedAReadReturnsAtOnceAndResumeRestartsThePace) {
  Open(NumberedLines(9));
  playback_->Pause();
  char16_t buffer[16] = {};
  uint32_t count = 777;
  EXPECT_EQ(playback_->Read(buffer, 16, &count, nullptr), 1);
  EXPECT_EQ(count, 777u);
  EXPECT_THAT(clock_.Sleeps(), IsEmpty());
  // Time spent paused does not pile up lines.
  clock_.Advance(10 * kInterval);
  CIMExceptionImpl error;
  EXPECT_EQ(playback_->Resume(&error), 1);
  EXPECT_EQ(Read(), u"L1\n");
  EXPECT_THAT(clock_.Sleeps(), ElementsAre(kInterval));
}

TEST_F(Playback, AZeroIntervalPacesAtOneMillisecond) {
  Open(NumberedLines(9), false, 0);
  EXPECT_EQ(Read(), u"L1\n");
  EXPECT_THAT(clock_.Sleeps(), ElementsAre(1u));
  clock_.Advance(3);
  EXPECT_EQ(Read(), u"L2\nL3\nL4\n");
}

TEST_F(Playback, PausingAndResumingFromAnotherThreadNeitherLosesNorGarblesLines) {
  Open(NumberedLines(3000));
  std::atomic<bool> done{false};
  std::u16string delivered;
  std::thread reader([&] {
    std::vector<char16_t> buffer(64);
    // Until 200 lines came, however the pauses fall; a slow machine (or an
    // emulator) may need many more reads for them than a fast one.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    for (int i = 0; delivered.size() < 200 * 4 && std::chrono::steady_clock::now() < deadline; ++i) {
      uint32_t count = 0;
      EXPECT_EQ(playback_->Read(buffer.data(), 64, &count, nullptr), 1);
      if (count < 64) delivered.append(buffer.data(), count);
      clock_.Advance(i % 7 == 0 ? 3 * kInterval : 0);
    }
    done = true;
  });
  CIMExceptionImpl error;
  while (!done) {
    playback_->Pause();
    std::this_thread::yield();
    playback_->Resume(&error);
    std::this_thread::sleep_for(std::chrono::microseconds(50));
  }
  reader.join();
  // Lines come whole and in order; pauses only delay them.
  std::u16string expected;
  for (int i = 1; expected.size() < delivered.size(); ++i) expected += FromUtf8("L" + std::to_string(i) + "\n");
  EXPECT_EQ(delivered, expected.substr(0, delivered.size()));
  EXPECT_GE(delivered.size(), 800u);
}

TEST(PlaybackFailures, AReadBeforeOpenFailsWithTheGeneralFailure) {
  ManualClock clock;
  Ref<NmeaFilePlayback> playback(new NmeaFilePlayback);
  char16_t buffer[8];
  uint32_t count = 3;
  CIMExceptionImpl error;
  error.SetCode(0);
  EXPECT_EQ(playback->Read(buffer, 8, &count, &error), 0);
  EXPECT_EQ(error.Code(), kErrNone);
  EXPECT_EQ(count, 3u);
  // The failure path releases the lock: another thread can read.
  std::thread other([&] { EXPECT_EQ(playback->Read(buffer, 8, &count, nullptr), 0); });
  other.join();
}

TEST(PlaybackFailures, AMissingFileRaisesAndOpensNothing) {
  ManualClock clock;
  TempDir dir;
  Ref<NmeaFilePlayback> playback(new NmeaFilePlayback);
  try {
    playback->Open(dir.WideFile("none.nmea"), kInterval, true);
    FAIL() << "opened a missing file";
  } catch (const CIMExceptionEx& error) {
    EXPECT_EQ(error.Code(), 2);
  }
  char16_t buffer[8];
  uint32_t count = 0;
  CIMExceptionImpl error;
  EXPECT_EQ(playback->Read(buffer, 8, &count, &error), 0);
  EXPECT_EQ(error.Code(), kErrNone);
}

// The recording changes under a running playback. Windows refuses both
// changes while the file is open for reading; elsewhere they succeed.
TEST_F(Playback, ATruncatedRecordingEndsAndRepeatsWhatIsLeft) {
  Open(NumberedLines(2000), /*repeat=*/true);  // 14 KB: several blocks
  EXPECT_EQ(Read(), u"L1\n");
  std::error_code failed;
  std::filesystem::resize_file(dir_.File("rec.nmea"), 8, failed);
  if (failed) GTEST_SKIP() << "this system does not truncate an open file";
  // The block already read is still delivered; then the end is met and the
  // short file plays from its start.
  std::u16string delivered;
  for (int i = 0; i < 40; ++i) {
    clock_.Advance(1000 * kInterval);
    delivered += Read();
  }
  EXPECT_NE(delivered.find(u"L1\nL2\nL1\nL2\n"), std::u16string::npos);
  EXPECT_EQ(delivered.find(u"L1000\n"), std::u16string::npos);
}

TEST_F(Playback, ARemovedRecordingPlaysToItsEnd) {
  Open(NumberedLines(3));
  EXPECT_EQ(Read(), u"L1\n");
  std::error_code failed;
  std::filesystem::remove(dir_.File("rec.nmea"), failed);
  if (failed) GTEST_SKIP() << "this system does not remove an open file";
  clock_.Advance(10 * kInterval);
  EXPECT_EQ(Read(), u"L2\nL3\n");
  EXPECT_EQ(Read(), u"");
}

}  // namespace
}  // namespace kavo
