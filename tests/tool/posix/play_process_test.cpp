// The kavogps program as other programs use it: interrupted cleanly, its
// output read by a pipe that closes early, its GPX track read back by a
// third-party reader.
#include <signal.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>

#include "common/temp_dir.h"
#include "posix/tool_process.h"
#include "tool_run.h"

namespace kavo::test {
namespace {

const std::string kWalk = std::string(KAVOGPS_SOURCE_DIR) + "/data/walk.nmea";

std::string Shell(const std::string& command) {
  std::string text;
  if (FILE* pipe = popen(("bash -c '" + command + "' 2>&1").c_str(), "r")) {
    char buffer[4096];
    for (size_t n; (n = fread(buffer, 1, sizeof buffer, pipe)) > 0;) text.append(buffer, n);
    pclose(pipe);
  }
  return text;
}

// The first `epochs` epochs of the bundled walk, seven lines each.
std::string ReadWalkEpochs(int epochs) {
  std::ifstream in(kWalk, std::ios::binary);
  const std::string walk(std::istreambuf_iterator<char>(in), {});
  size_t end = 0;
  for (int line = 0; line < 7 * epochs; ++line) end = walk.find('\n', end) + 1;
  return walk.substr(0, end);
}

TEST(KavogpsProgram, InterruptedPlayStopsCleanlyWithItsSummaryAndTrack) {
  for (int signal : {SIGINT, SIGTERM}) {
    SCOPED_TRACE(signal);
    TempDir dir;
    ToolProcess play({"play", kWalk, "--interval", "5", "--repeat", "--gpx", dir.File("t.gpx")});
    ASSERT_TRUE(play.WaitForOutput([](const std::string& out) { return Contains(out, "T10:00:03"); }, 20000))
        << play.Err();
    play.Signal(signal);
    EXPECT_EQ(play.Finish(10000), 0) << play.Err();
    EXPECT_TRUE(Contains(play.Out(), "Interrupted.\nFixes: ")) << play.Out();
    const std::string track = dir.Read("t.gpx");
    EXPECT_EQ(track.substr(track.size() - 7), "</gpx>\n");
  }
}

TEST(KavogpsProgram, AReaderThatStopsEarlyEndsItQuietly) {
  for (const char* args : {"play --interval 1 --json", "play --interval 1", "play --interval 1 --nmea", "simulate"}) {
    SCOPED_TRACE(args);
    // The status and messages of the tool alone, after the reader left.
    EXPECT_EQ(Shell(std::string("set -o pipefail; ") + KAVOGPS_TOOL + " " + args + " | head -2 >/dev/null; echo $?"),
              "0\n");
  }
}

TEST(KavogpsProgram, ARecordingGoingBackInTimeMakesSegmentsGpsbabelReads) {
  if (Shell("command -v gpsbabel").empty()) GTEST_SKIP() << "gpsbabel is not installed (apt-get install gpsbabel)";
  TempDir dir;
  // The first ten epochs twice: the second time goes back.
  const std::string walk = ReadWalkEpochs(10);
  dir.Write("twice.nmea", walk + walk);
  const ToolRun run = RunToolProcess({"play", dir.File("twice.nmea"), "--interval", "1", "--gpx", dir.File("t.gpx")});
  ASSERT_EQ(run.code, 0) << run.err;
  const std::string gpx = dir.Read("t.gpx");
  size_t segments = 0;
  for (size_t at = gpx.find("<trkseg>"); at != std::string::npos; at = gpx.find("<trkseg>", at + 1)) ++segments;
  EXPECT_EQ(segments, 2u) << gpx;
  const std::string csv = Shell("gpsbabel -t -i gpx -f " + dir.File("t.gpx") + " -o unicsv -F -");
  EXPECT_EQ(csv.rfind("No,Latitude,Longitude,Altitude,Date,Time\r\n", 0), 0u) << csv;
  EXPECT_FALSE(Contains(csv, "badly ordered")) << csv;
  const size_t rows = static_cast<size_t>(std::count(csv.begin(), csv.end(), '\n')) - 1;
  EXPECT_TRUE(Contains(run.out, "Track:      " + dir.File("t.gpx") + " (" + std::to_string(rows) + " points)"))
      << run.out << csv;
}

}  // namespace
}  // namespace kavo::test
