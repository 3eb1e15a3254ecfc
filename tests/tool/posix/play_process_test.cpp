// `kavogps play` as a program: interrupted cleanly, and its GPX track read
// back by a third-party reader.
#include <signal.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <map>
#include <sstream>

#include "posix/tool_process.h"
#include "scratch_dir.h"
#include "tool_run.h"

namespace kavo::test {
namespace {

const std::string kWalk = std::string(KAVOGPS_SOURCE_DIR) + "/data/walk.nmea";

std::string CommandOutput(const std::string& command) {
  std::string text;
  if (FILE* pipe = popen(command.c_str(), "r")) {
    char buffer[4096];
    size_t n;
    while ((n = fread(buffer, 1, sizeof buffer, pipe)) > 0) text.append(buffer, n);
    pclose(pipe);
  }
  return text;
}

std::string JsonValue(const std::string& json, const std::string& name) {
  const std::string key = "\"" + name + "\":";
  const size_t at = json.find(key);
  if (at == std::string::npos) return {};
  const size_t start = at + key.size();
  return json.substr(start, json.find_first_of(",}", start) - start);
}

TEST(KavogpsPlayProgram, InterruptedItStopsCleanlyWithItsSummaryAndTrack) {
  for (int signal : {SIGINT, SIGTERM}) {
    SCOPED_TRACE(signal);
    ScratchDir dir;
    ToolProcess play({"play", kWalk, "--interval", "5", "--repeat", "--gpx", dir.File("t.gpx")});
    ASSERT_TRUE(play.WaitForOutput([](const std::string& out) { return Contains(out, "T10:00:03"); }, 20000))
        << play.Err();
    play.Signal(signal);
    EXPECT_EQ(play.Finish(10000), 0) << play.Err();
    EXPECT_TRUE(Contains(play.Out(), "Interrupted.\nFixes: ")) << play.Out();
    const std::string track = ReadFile(dir.File("t.gpx"));
    EXPECT_EQ(track.substr(track.size() - 7), "</gpx>\n");
  }
}

TEST(KavogpsPlayProgram, GpxTrackReadsBackInGpsbabelAsTheFixesReported) {
  if (CommandOutput("command -v gpsbabel").empty()) GTEST_SKIP() << "gpsbabel is not installed (apt-get install gpsbabel)";
  ScratchDir dir;
  const std::string gpx = dir.File("track.gpx");
  const ToolRun run = RunToolProcess({"play", kWalk, "--interval", "1", "--json", "--gpx", gpx});
  ASSERT_EQ(run.code, 0) << run.err;

  // The last report of each time is that fix as it was completed.
  std::map<std::string, std::string> fixes;
  std::istringstream lines(run.out);
  for (std::string line; std::getline(lines, line);)
    if (Contains(line, "\"class\":\"TPV\"") && !JsonValue(line, "time").empty()) fixes[JsonValue(line, "time")] = line;
  ASSERT_GT(fixes.size(), 100u);

  const std::string csv = CommandOutput("gpsbabel -t -i gpx -f '" + gpx + "' -o unicsv -F - 2>&1");
  std::istringstream rows(csv);
  std::string row;
  ASSERT_TRUE(std::getline(rows, row));
  ASSERT_EQ(row, "No,Latitude,Longitude,Altitude,Date,Time\r") << csv;
  size_t points = 0;
  while (std::getline(rows, row)) {
    if (!row.empty() && row.back() == '\r') row.pop_back();
    int number, year, month, day, hour, minute, second;
    double lat, lon, alt;
    ASSERT_EQ(std::sscanf(row.c_str(), "%d,%lf,%lf,%lf,%d/%d/%d,%d:%d:%d", &number, &lat, &lon, &alt, &year,
                          &month, &day, &hour, &minute, &second),
              10)
        << row;
    char time[40];
    std::snprintf(time, sizeof time, "\"%04d-%02d-%02dT%02d:%02d:%02d.000Z\"", year, month, day, hour, minute, second);
    const auto fix = fixes.find(time);
    ASSERT_NE(fix, fixes.end()) << "a point at a time no report had: " << row;
    EXPECT_NEAR(lat, std::stod(JsonValue(fix->second, "lat")), 5e-7) << row;
    EXPECT_NEAR(lon, std::stod(JsonValue(fix->second, "lon")), 5e-7) << row;
    EXPECT_NEAR(alt, std::stod(JsonValue(fix->second, "altMSL")), 0.05) << row;
    ++points;
  }
  EXPECT_EQ(points, fixes.size());
  EXPECT_TRUE(Contains(run.err, "Track:      " + gpx + " (" + std::to_string(points) + " points)")) << run.err;
}

}  // namespace
}  // namespace kavo::test
