// The live receiver on a pseudo-terminal, read as a serial port.
#include "simulator/posix/pty_receiver.h"

#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <set>

#include "nmea_check.h"
#include "posix/pty_reader.h"

namespace kavo::sim {
namespace {

using test::PtyReader;
using test::WaitFor;

constexpr int kPatience = 10000;  // ms; only reached when something is broken

PtyReceiverOptions Fast(uint32_t baud) {
  PtyReceiverOptions o;
  o.simulation.rateHz = 20;  // twenty epochs a second keeps the tests short
  o.baudRate = baud;
  return o;
}

std::vector<std::string> CompleteLines(const std::string& text) {
  std::vector<std::string> lines;
  size_t start = 0, end;
  while ((end = text.find("\r\n", start)) != std::string::npos) {
    lines.push_back(text.substr(start, end - start));
    start = end + 2;
  }
  return lines;
}

auto Count(const std::string& what, size_t n) {
  return [what, n](const std::string& text) {
    size_t found = 0;
    for (size_t at = 0; (at = text.find(what, at)) != std::string::npos; ++at) ++found;
    return found >= n;
  };
}

TEST(PtyReceiver, ReaderAtTheReceiversSpeedGetsTheSentencesSent) {
  std::mutex mutex;
  std::set<std::string> sent;
  PtyReceiverOptions options = Fast(4800);
  options.onEpoch = [&](const Epoch& e) {
    std::lock_guard<std::mutex> lock(mutex);
    for (const Line& line : e.lines) sent.insert(line.text);
  };
  PtyReceiver receiver(options);
  receiver.Start();
  ASSERT_EQ(receiver.DevicePath().rfind("/dev/", 0), 0u);
  PtyReader reader(receiver.DevicePath(), 4800);
  ASSERT_TRUE(reader.IsOpen());

  const std::string text = reader.ReadUntil(Count("$GPRMC", 5), kPatience);
  const auto lines = CompleteLines(text);
  ASSERT_GE(lines.size(), 10u) << text;
  std::lock_guard<std::mutex> lock(mutex);
  // Under load the reader may set its port up after the first bytes came.
  for (size_t i = 1; i < lines.size(); ++i) {
    EXPECT_EQ(test::SentenceProblem(lines[i]), "") << lines[i];
    EXPECT_EQ(sent.count(lines[i]), 1u) << lines[i];
  }
  const auto counters = receiver.Snapshot();
  EXPECT_EQ(counters.lineBaud, 4800u);
  EXPECT_GT(counters.nmeaBytes, 0u);
  EXPECT_EQ(counters.garbageBytes, 0u);
}

TEST(PtyReceiver, ReaderAtAnotherSpeedGetsGarbageUntilTheSpeedsAgree) {
  PtyReceiver receiver(Fast(9600));
  receiver.Start();
  PtyReader reader(receiver.DevicePath(), 4800);
  ASSERT_TRUE(reader.IsOpen());
  // Let the receiver see the new speed, then drop what came before it.
  ASSERT_TRUE(WaitFor([&] { return receiver.Snapshot().lineBaud == 4800; }, kPatience));
  const uint64_t epochs = receiver.Snapshot().epochs;
  ASSERT_TRUE(WaitFor([&] { return receiver.Snapshot().epochs > epochs; }, kPatience));
  reader.ReadAvailable();

  const std::string noise = reader.ReadUntil([](const std::string& t) { return t.size() >= 600; }, kPatience);
  ASSERT_GE(noise.size(), 600u);
  EXPECT_EQ(noise.find("$GP"), std::string::npos);
  EXPECT_GT(receiver.Snapshot().garbageBytes, 0u);

  // The receiver switched to the port's speed: sentences come through.
  receiver.SetBaudRate(4800);
  const std::string text = reader.ReadUntil(Count("$GPGGA", 2), kPatience);
  EXPECT_NE(text.find("$GPGGA"), std::string::npos);
  EXPECT_THROW(receiver.SetBaudRate(4000), std::invalid_argument);
}

TEST(PtyReceiver, SilentReceiverSendsNothing) {
  // At 1 Hz on a clock fifty times faster than real time.
  PtyReceiverOptions options = Fast(4800);
  options.simulation.rateHz = 1;
  std::atomic<uint32_t> asked{0};
  options.realWaitMs = [&](uint32_t ms) {
    asked = ms;
    return ms / 50;
  };
  options.silent = true;
  PtyReceiver receiver(options);
  receiver.Start();
  PtyReader reader(receiver.DevicePath(), 4800);
  ASSERT_TRUE(WaitFor([&] { return receiver.Snapshot().epochs >= 5; }, kPatience));
  EXPECT_EQ(reader.ReadAvailable(), "");
  EXPECT_EQ(receiver.Snapshot().nmeaBytes, 0u);
  EXPECT_EQ(asked, 1000u);
  receiver.SetSilent(false);
  EXPECT_NE(reader.ReadUntil(Count("$GPGGA", 1), kPatience).find("$GPGGA"), std::string::npos);
}

TEST(PtyReceiver, NothingIsKeptForTheNextReader) {
  PtyReceiver receiver(Fast(4800));
  receiver.Start();
  auto epochsPass = [&](uint64_t n) {
    const uint64_t from = receiver.Snapshot().epochs;
    return WaitFor([&] { return receiver.Snapshot().epochs >= from + n; }, kPatience);
  };
  {
    PtyReader first(receiver.DevicePath(), 4800, false);
    ASSERT_TRUE(WaitFor([&] { return receiver.Snapshot().readers == 1; }, kPatience));
    ASSERT_TRUE(epochsPass(3));  // sentences it never reads
  }
  ASSERT_TRUE(WaitFor([&] { return receiver.Snapshot().readers == 0; }, kPatience));
  EXPECT_GT(receiver.Snapshot().discardedBytes, 0u);
  const uint64_t sent = receiver.Snapshot().nmeaBytes;
  ASSERT_TRUE(epochsPass(3));
  EXPECT_EQ(receiver.Snapshot().nmeaBytes, sent) << "sent to a port nobody has open";

  // A reader at another speed gets only garbage: none of the sentences the
  // first reader left behind.
  PtyReader second(receiver.DevicePath(), 9600, false);
  const std::string text = second.ReadUntil([](const std::string& t) { return t.size() >= 600; }, kPatience);
  EXPECT_GE(text.size(), 600u);
  EXPECT_EQ(text.find("$GP"), std::string::npos);
}

TEST(PtyReceiver, StopEndsStreamingAndRemovesThePort) {
  PtyReceiver receiver(Fast(4800));
  receiver.Stop();  // before Start: nothing to do
  EXPECT_EQ(receiver.DevicePath(), "");
  receiver.Start();
  const std::string first = receiver.DevicePath();
  {
    PtyReader reader(first, 4800);
    ASSERT_FALSE(reader.ReadUntil(Count("$GPGGA", 1), kPatience).empty());
    receiver.Stop();
    EXPECT_FALSE(receiver.Running());
    // A reader still holding the port sees it hang up instead of blocking.
    reader.ReadUntil([](const std::string&) { return false; }, kPatience);
    EXPECT_TRUE(reader.HungUp());
  }
  EXPECT_FALSE(PtyReader(first, 4800).IsOpen()) << "the port outlived Stop";
  receiver.Stop();

  // It starts again on a fresh port.
  receiver.Start();
  PtyReader again(receiver.DevicePath(), 4800);
  EXPECT_NE(again.ReadUntil(Count("$GPGGA", 1), kPatience).find("$GPGGA"), std::string::npos);
}

TEST(PtyReceiver, RejectsUnusableSettings) {
  PtyReceiverOptions badBaud = Fast(4000);
  EXPECT_THROW(PtyReceiver{badBaud}, std::invalid_argument);
  PtyReceiverOptions badRate = Fast(4800);
  badRate.simulation.rateHz = 0;
  EXPECT_THROW(PtyReceiver{badRate}, std::invalid_argument);
}

}  // namespace
}  // namespace kavo::sim
