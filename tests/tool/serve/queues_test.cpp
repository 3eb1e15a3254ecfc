#include <gtest/gtest.h>

#include <fstream>

#include "serve/epoch_cutter.h"
#include "serve/out_queue.h"
#include "serve/request_lines.h"

namespace kavo::serve {
namespace {

TEST(RequestLines, SplitsLinesAndDropsTooLongOnesWhicheverWayTheBytesCome) {
  const std::string stream = "?AB\r\n0123456789abc\n\n?C\n?DE";
  const std::vector<std::pair<std::string, bool>> expected = {{"?AB", false}, {"", true}, {"", false}, {"?C", false}};
  for (size_t chunk : {stream.size(), size_t{1}, size_t{5}}) {
    RequestLines requests(8);
    std::vector<RequestLines::Line> lines;
    for (size_t at = 0; at < stream.size(); at += chunk)
      requests.Add(stream.data() + at, std::min(chunk, stream.size() - at), &lines);
    std::vector<std::pair<std::string, bool>> got;
    for (const auto& line : lines) got.emplace_back(line.text, line.tooLong);
    EXPECT_EQ(got, expected) << "chunks of " << chunk;
  }
}

TEST(OutQueue, DropsTheOldestWholeLinesAndKeepsTheNewest) {
  OutQueue queue(10);
  for (const char* text : {"aaaa", "bbbb", "cccc"}) queue.Push(std::make_shared<const std::string>(text));
  EXPECT_EQ(queue.Dropped(), 1u);
  std::vector<std::string> kept;
  for (const OutLine& line : queue.TakeAll()) kept.push_back(*line);
  EXPECT_EQ(kept, (std::vector<std::string>{"bbbb", "cccc"}));
  EXPECT_TRUE(queue.Empty());
  queue.Push(std::make_shared<const std::string>(std::string(50, 'x')));  // bigger than the bound: still sent
  EXPECT_EQ(queue.TakeAll().size(), 1u);
}

TEST(EpochCutter, ReportsEachEpochOnceAtItsEndWithItsOwnTime) {
  std::ifstream file(KAVOGPS_SOURCE_DIR "/data/walk.nmea");
  std::string line;
  EpochCutter cutter;
  std::vector<std::pair<int, double>> reports;  // sentence index, epoch time
  for (int index = 0; index < 7 * 4 && std::getline(file, line); ++index) {
    const EpochCutter::Cut cut = cutter.Next(line.substr(0, line.find('\r')));
    if (cut.before) reports.emplace_back(index, cut.beforeTime);
    if (cut.after) reports.emplace_back(index, cut.afterTime);
  }
  // The first epoch shows its end when the second begins; after that, the
  // last sentence of an epoch (VTG) ends it at once.
  const double tenOClock = 45426.0 + 10.0 / 24;  // 14 May 2024 10:00:00 as an OLE date
  ASSERT_EQ(reports.size(), 4u);
  const int indexes[] = {7, 13, 20, 27};
  for (size_t i = 0; i < reports.size(); ++i) {
    EXPECT_EQ(reports[i].first, indexes[i]);
    EXPECT_NEAR(reports[i].second, tenOClock + i / 86400.0, 1e-8) << i;
  }
  EXPECT_EQ(cutter.UsedSatellites(), (std::set<int32_t>{2, 3, 6, 7, 8, 11, 12, 13, 17, 18}));
  EXPECT_FALSE(cutter.Unreported());
}

TEST(EpochCutter, EpochsOfOneSentenceEndWithIt) {
  EpochCutter cutter;
  int ended = 0;
  for (const char* time : {"100000", "100001", "100002", "100003"})
    ended += cutter.Next(std::string("$GNGGA,") + time + ",4807.0,N,01131.0,E,1,08,1.0,520.0,M,38.8,M,,*00").after;
  EXPECT_EQ(ended, 3);
  EXPECT_FALSE(cutter.Unreported());
  cutter.Next("$GNGGA,100004,4807.0,N,01131.0,E,1,08,1.0,520.0,M,38.8,M,,*00");
  cutter.Next("$GNGGA,100004,4807.0,N,01131.0,E,1,08,1.0,520.0,M,38.8,M,,*00");
  EXPECT_FALSE(cutter.Unreported());
}

}  // namespace
}  // namespace kavo::serve
