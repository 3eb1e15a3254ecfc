#include "sources/nmea_file_playback.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "common/eventually.h"
#include "common/temp_dir.h"
#include "common/test_clock.h"
#include "nmea/receiver_state_store.h"
#include "sim/recording.h"
#include "sim/simulator.h"

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
  void Open(const std::string& bytes, bool repeat = false, uint32_t interval = kInterval, bool keepNul = false) {
    playback_.reset();  // lets go of the last recording: Windows cannot rewrite an open file
    dir_.Write("rec.nmea", bytes);
    playback_ = Ref<NmeaFilePlayback>(new NmeaFilePlayback);
    playback_->Open(dir_.WideFile("rec.nmea"), interval, repeat, keepNul);
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
  uint32_t sleepOverrun = 0;
};

TEST_F(Playback, PacesCatchesUpAndRepeats) {
  const Script scripts[] = {
      {"early read sleeps out the interval, counted from the last read's end",
       NumberedLines(5),
       false,
       kInterval,
       {{200, 1024, u"L1\n", {300}, 0}, {499, 1024, u"L2\n", {1}, 0}}},
      {"waits that end late do not slow the pace: the next line is due an interval after this one was",
       NumberedLines(5),
       false,
       kInterval,
       {{0, 1024, u"L1\n", {500}, 0}, {1, 1024, u"L2\n", {496}, 0}},
       3},
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
    clock_.SetSleepOverrun(script.sleepOverrun);
    for (const Step& step : script.steps) {
      clock_.ClearSleeps();
      clock_.Advance(step.advance);
      EXPECT_EQ(Read(step.capacity), step.delivered);
      EXPECT_EQ(clock_.Sleeps(), step.sleeps);
      EXPECT_EQ(playback_->PendingLines(), step.pending);
    }
  }
}

// Receivers that mix a binary protocol into their NMEA leave NUL bytes,
// lone CRs and LFs and "$" in a recording's lines. By default a NUL ends
// its line, and the next line overwrites the rest, line end included; when
// NULs are kept (the receiver options go beyond the defaults), every line
// comes whole.
TEST_F(Playback, ANulInALineEndsItOnlyByDefault) {
  using namespace std::string_literals;
  const std::string binary = "\xB5\x62\x01\x00$\x00\r\x07\n\x02"s;  // NUL, "$", lone CR and LF
  const struct {
    const char* name;
    std::string file;
    std::u16string byDefault, keptWhole;
  } cases[] = {
      {"binary before a sentence", "$GPA\r\n" + binary + "$GPB\r\n$GPC\r\n", u"$GPA\n\xB5\x62\x01$GPC\n",
       u"$GPA\n\xB5\x62\x01\0$\0\r\x07\n\x02$GPB\n$GPC\n"s},
      {"a NUL at the start of a line", "\0$GPA\r\n$GPB\r\n"s, u"$GPB\n", u"\0$GPA\n$GPB\n"s},
      {"a NUL as the last byte of the file", "$GPA\r\n\0"s, u"$GPA\n", u"$GPA\n\0"s},
      {"UTF-16 with a NUL unit", "\xFF\xFE$\0A\0\0\0B\0\r\0\n\0$\0C\0\r\0\n\0"s, u"$A$C\n", u"$A\0B\n$C\n"s},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    for (const bool keepNul : {false, true}) {
      Open(c.file, false, kInterval, keepNul);
      clock_.Advance(10 * kInterval);  // every line is due
      EXPECT_EQ(Read(), keepNul ? c.keptWhole : c.byDefault) << (keepNul ? "NULs kept" : "by default");
    }
  }
}

// A simulated receiver that sends a binary message before every sentence,
// recorded in UTF-16 so its NULs are whole units: with options beyond the
// defaults every fix of the recording comes through, with the defaults
// next to none.
TEST_F(Playback, AMixedRecordingGivesEveryFixOnlyWithOptionsBeyondTheDefaults) {
  sim::SimulatorOptions simulation;
  simulation.binaryMessages = 1.0;
  sim::Simulator simulator(simulation);
  std::ostringstream recording;
  sim::RecordingWriter writer(recording, sim::Encoding::kUtf16Le);
  constexpr int kEpochs = 30;
  for (int i = 0; i < kEpochs; ++i)
    for (const sim::Line& line : simulator.Next().lines) writer.WriteLine(line.binary + line.text);
  nmea::ReceiverOptions talkers;
  ASSERT_TRUE(talkers.SetTalkers("GP,GN"));
  for (const bool mixed : {false, true}) {
    Open(recording.str(), false, kInterval, mixed);
    nmea::ReceiverStateStore store(mixed ? talkers : nmea::ReceiverOptions());
    store.Reset();
    int fixes = 0;
    for (std::u16string text; clock_.Advance(10 * kInterval), !(text = Read()).empty();) {
      store.ProcessChunk(text);
      for (size_t i = 0; i < store.RecognisedSentences().Count(); ++i)
        fixes += store.RecognisedSentences()[i].substr(0, 6) == u"$GPGGA";
    }
    EXPECT_EQ(fixes >= kEpochs, mixed) << fixes << " fixes of " << kEpochs;
    EXPECT_LE(fixes, kEpochs);
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

}  // namespace
}  // namespace kavo
