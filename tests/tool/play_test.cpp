// `kavogps play` through the library: what it reports of a bundled
// recording is what the simulator put into it, and every way it can fail
// says why, exits with its own code and leaves nothing behind.
#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <regex>
#include <set>
#include <sstream>

#include "cli/fix_track.h"
#include "scratch_dir.h"
#include "simulator/simulator.h"
#include "tool_run.h"

namespace kavo::test {
namespace {

using cli::Arguments;

std::vector<std::string> Split(const std::string& text, char separator) {
  std::vector<std::string> parts;
  std::stringstream stream(text);
  for (std::string part; std::getline(stream, part, separator);) parts.push_back(part);
  return parts;
}

// The value of a JSON field as written (strings with their quotes, arrays
// with their brackets); empty when absent.
std::string Field(const std::string& json, const std::string& name) {
  const std::string key = "\"" + name + "\":";
  const size_t at = json.find(key);
  if (at == std::string::npos) return {};
  const size_t start = at + key.size();
  size_t end = start;
  if (json[start] == '"') end = json.find('"', start + 1) + 1;
  else if (json[start] == '[') end = json.find(']', start) + 1;
  else end = json.find_first_of(",}", start);
  return json.substr(start, end - start);
}

double Number(const std::string& json, const std::string& name) {
  const std::string value = Field(json, name);
  return value.empty() ? NAN : std::stod(value);
}

// ddmm.mmmm and a hemisphere as decimal degrees.
double Degrees(const std::string& value, const std::string& hemisphere, int degreeDigits) {
  const double degrees = std::stod(value.substr(0, degreeDigits)) + std::stod(value.substr(degreeDigits)) / 60.0;
  return hemisphere == "S" || hemisphere == "W" ? -degrees : degrees;
}

// One epoch as the recording carries it.
struct Expected {
  std::string time;  // ISO 8601 as the tool writes it
  double lat = 0, lon = 0, alt = 0, speed = 0, track = 0, magtrack = 0;
  int mode = 1;
  std::string satellites;  // the SKY list
  double hdop = 0, vdop = 0, pdop = 0;
  int used = 0;
};

std::string Iso(const sim::UtcTime& t) {
  char text[40];
  std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", t.year, t.month, t.day, t.hour, t.minute,
                t.second, t.millisecond);
  return text;
}

// The epochs of data/walk.nmea, made again as data/README.md says:
// kavogps simulate --seed 1 --mode walk --duration 300.
std::vector<Expected> WalkEpochs() {
  sim::SimulatorOptions options;
  options.seed = 1;
  options.mode = sim::Mode::kWalk;
  sim::Simulator simulator(options);
  std::vector<Expected> epochs;
  for (uint64_t i = 0; i < sim::EpochsFor(options, 300); ++i) {
    const sim::Epoch epoch = simulator.Next();
    Expected e;
    e.time = Iso(epoch.time);
    e.mode = epoch.fix ? 3 : 1;
    e.used = epoch.usedCount;
    for (const sim::Line& line : epoch.lines) {
      const std::vector<std::string> f = Split(line.text.substr(0, line.text.find('*')), ',');
      if (f[0] == "$GPGGA") {
        e.lat = Degrees(f[2], f[3], 2);
        e.lon = Degrees(f[4], f[5], 3);
        e.alt = std::stod(f[9]);
      } else if (f[0] == "$GPRMC") {
        e.speed = std::stod(f[7]) * 1852.0 / 3600.0;
        e.track = std::stod(f[8]);
      } else if (f[0] == "$GPVTG") {
        e.magtrack = std::stod(f[3]);
      } else if (f[0] == "$GPGSA") {
        e.pdop = std::stod(f[15]);
        e.hdop = std::stod(f[16]);
        e.vdop = std::stod(f[17]);
      }
    }
    for (const sim::SatelliteView& s : epoch.satellites) {
      if (s.system != sim::System::kGps) continue;
      e.satellites += std::string(e.satellites.empty() ? "[" : ",") + "{\"PRN\":" + std::to_string(s.prn) +
                      ",\"el\":" + std::to_string(s.elevation) + ",\"az\":" + std::to_string(s.azimuth) +
                      ",\"ss\":" + std::to_string(s.snr < 0 ? 0 : s.snr) + "}";
    }
    e.satellites += e.satellites.empty() ? "[]" : "]";
    epochs.push_back(e);
  }
  return epochs;
}

const std::string kWalk = std::string(KAVOGPS_SOURCE_DIR) + "/data/walk.nmea";

TEST(KavogpsPlay, JsonCarriesThePositionsFixesAndSatellitesOfTheRecording) {
  const std::vector<Expected> epochs = WalkEpochs();
  std::map<std::string, size_t> byTime;
  for (size_t i = 0; i < epochs.size(); ++i) byTime[epochs[i].time] = i;

  const ToolResult run = RunInProcess({"play", kWalk, "--interval", "2", "--json"});
  ASSERT_EQ(run.code, 0) << run.err;
  std::vector<std::string> tpvs, skies;
  for (const std::string& line : Split(run.out, '\n')) {
    if (line.rfind("{\"class\":\"TPV\"", 0) == 0) tpvs.push_back(line);
    else if (line.rfind("{\"class\":\"SKY\"", 0) == 0) skies.push_back(line);
    else ADD_FAILURE() << "not a TPV or SKY object: " << line;
  }
  ASSERT_FALSE(tpvs.empty());
  ASSERT_FALSE(skies.empty());

  // Every report with a time holds that epoch's fix; speed and course may
  // still be the previous epoch's between its GGA and its RMC.
  size_t previous = 0, positionsSeen = 0;
  std::string lastPosition, firstTime;
  std::set<std::string> fixTimes;
  for (const std::string& tpv : tpvs) {
    if (Field(tpv, "lat").empty()) {  // before the first sentence
      EXPECT_EQ(Field(tpv, "mode"), "1") << tpv;
      continue;
    }
    if (Field(tpv, "time").empty()) {  // before the first RMC brought the date: epoch 0
      EXPECT_NEAR(Number(tpv, "lat"), epochs[0].lat, 1e-9) << tpv;
      EXPECT_NEAR(Number(tpv, "lon"), epochs[0].lon, 1e-9) << tpv;
      continue;
    }
    const auto found = byTime.find(Field(tpv, "time").substr(1, 24));
    ASSERT_NE(found, byTime.end()) << tpv;
    const size_t i = found->second;
    const Expected& e = epochs[i];
    EXPECT_GE(i, previous) << "times go forward";
    previous = i;
    EXPECT_EQ(Number(tpv, "mode"), e.mode) << tpv;
    EXPECT_NEAR(Number(tpv, "lat"), e.lat, 1e-9) << tpv;
    EXPECT_NEAR(Number(tpv, "lon"), e.lon, 1e-9) << tpv;
    EXPECT_NEAR(Number(tpv, "altMSL"), e.alt, 1e-9) << tpv;
    const Expected& before = epochs[i == 0 ? 0 : i - 1];
    const double speed = Number(tpv, "speed"), track = Number(tpv, "track");
    EXPECT_TRUE((std::fabs(speed - e.speed) < 6e-4 && std::fabs(track - e.track) < 1e-4) ||
                (std::fabs(speed - before.speed) < 6e-4 && std::fabs(track - before.track) < 1e-4))
        << tpv;
    fixTimes.insert(Field(tpv, "time"));
    if (firstTime.empty()) firstTime = Field(tpv, "time");
    const std::string position = Field(tpv, "lat") + Field(tpv, "lon");
    if (position != lastPosition) ++positionsSeen;
    lastPosition = position;
  }
  // The last report is the whole of the last epoch that changed anything.
  const std::string& last = tpvs.back();
  const Expected& final = epochs[byTime.at(Field(last, "time").substr(1, 24))];
  EXPECT_NEAR(Number(last, "speed"), final.speed, 6e-4) << last;
  EXPECT_NEAR(Number(last, "track"), final.track, 1e-4) << last;
  EXPECT_NEAR(Number(last, "magtrack"), final.magtrack, 1e-4) << last;

  // Each distinct position of the walk shows (a stationary epoch changes
  // nothing the library reports); a slow machine may fold a few together.
  size_t distinctPositions = 0;
  for (size_t i = 0; i < epochs.size(); ++i)
    distinctPositions += i == 0 || epochs[i].lat != epochs[i - 1].lat || epochs[i].lon != epochs[i - 1].lon;
  EXPECT_LE(positionsSeen, distinctPositions);
  EXPECT_GE(positionsSeen, distinctPositions * 9 / 10);

  // Satellite tables come in the order of the epochs, exactly as sent.
  size_t epoch = 0, tablesSeen = 0;
  std::string lastTable;
  for (const std::string& sky : skies) {
    const std::string table = Field(sky, "satellites");
    if (table == "[]" || table == lastTable) continue;
    while (epoch < epochs.size() && epochs[epoch].satellites != table) ++epoch;
    ASSERT_LT(epoch, epochs.size()) << "a table no later epoch sent: " << table;
    ++tablesSeen;
    lastTable = table;
  }
  size_t distinctTables = 0;
  for (size_t i = 0; i < epochs.size(); ++i)
    distinctTables += i == 0 || epochs[i].satellites != epochs[i - 1].satellites;
  EXPECT_GE(tablesSeen, distinctTables * 9 / 10);
  const std::string& sky = skies.back();
  EXPECT_EQ(Field(sky, "satellites"), epochs.back().satellites);
  EXPECT_EQ(Number(sky, "uSat"), epochs.back().used);
  EXPECT_EQ(Number(sky, "hdop"), epochs.back().hdop);
  EXPECT_EQ(Number(sky, "vdop"), epochs.back().vdop);
  EXPECT_EQ(Number(sky, "pdop"), epochs.back().pdop);

  // The summary goes to standard error, so standard output stays JSON.
  double distance = 0;
  for (size_t i = 1; i < epochs.size(); ++i)
    distance += cli::GreatCircleMetres(epochs[i - 1].lat, epochs[i - 1].lon, epochs[i].lat, epochs[i].lon);
  std::smatch metres;
  ASSERT_TRUE(std::regex_search(run.err, metres, std::regex("Distance: +([0-9]+) m"))) << run.err;
  EXPECT_NEAR(std::stod(metres[1]), distance, 1.0 + distance / 100);
  // A fix is a position at a time: one per time a report carried.
  EXPECT_TRUE(Contains(run.err, "End of recording.\nFixes:      " + std::to_string(fixTimes.size()) + "\n"))
      << run.err;
  EXPECT_TRUE(Contains(run.err, "Time span:  2024-05-14 " + firstTime.substr(12, 8) + " to " +
                                    Field(last, "time").substr(12, 8) + " UTC"))
      << run.err;
}

TEST(KavogpsPlay, LinesForPeopleWhenNotOnATerminal) {
  ScratchDir dir;
  std::string recording;
  const std::string walk = ReadFile(kWalk);
  // The first three epochs, seven lines each.
  size_t end = 0;
  for (int line = 0; line < 21; ++line) end = walk.find('\n', end) + 1;
  dir.Write("three.nmea", walk.substr(0, end));
  const ToolResult run = RunInProcess({"play", dir.File("three.nmea"), "--interval=5"});
  ASSERT_EQ(run.code, 0) << run.err;
  EXPECT_TRUE(Contains(run.out, "2024-05-14T10:00:02.000Z  48.117295 N 11.516690 E  GPS fix  9 used, 12 in view  "
                                "alt 520.0 m  3.6 km/h  course 232.9"))
      << run.out;
  EXPECT_TRUE(Contains(run.out, "End of recording.\nFixes:      3\n")) << run.out;
  EXPECT_TRUE(Contains(run.out, "Time span:  2024-05-14 10:00:00 to 10:00:02 UTC (2 s)")) << run.out;
  std::string previous;
  for (const std::string& line : Split(run.out, '\n')) {
    EXPECT_NE(line, previous) << "a line is written only when something changed";
    previous = line;
  }
}

TEST(KavogpsPlay, EachFailureHasItsMessageAndCodeAndLeavesNoFile) {
  ScratchDir dir;
  const std::string gpx = dir.File("track.gpx");
  struct Case {
    Arguments args;
    int code;
    std::string message;
  };
  dir.Write("notes.txt", "shopping list\r\nmilk\r\nbread\r\n");
  std::filesystem::create_directory(dir.File("folder"));
  const std::vector<Case> cases = {
      {{"play", dir.File("absent.nmea"), "--gpx", gpx}, cli::kExitFile, "absent.nmea': no such file"},
      {{"play", dir.File("folder"), "--gpx", gpx}, cli::kExitFile, "it is a folder"},
      {{"play", kWalk, "--gpx", dir.File("no/such/folder/track.gpx")}, cli::kExitFile, "cannot create"},
      {{"play", dir.File("notes.txt"), "--interval", "1", "--gpx", gpx}, cli::kExitFile,
       "holds no NMEA sentence"},
      {{"play", "--interval", "0"}, cli::kExitUsage, "invalid value '0' for --interval"},
      {{"play", "--interval", "60001"}, cli::kExitUsage, "from 1 to 60000"},
      {{"play", "--interval", "ten"}, cli::kExitUsage, "invalid value 'ten'"},
      {{"play", "--interval"}, cli::kExitUsage, "--interval needs a value"},
      {{"play", "--gpx="}, cli::kExitUsage, "--gpx needs a value"},
      {{"play", "--repeat=yes"}, cli::kExitUsage, "--repeat takes no value"},
      {{"play", "a.nmea", "b.nmea"}, cli::kExitUsage, "unexpected argument 'b.nmea'"},
      {{"play", "--loop"}, cli::kExitUsage, "unknown option '--loop'"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.args[1]);
    const ToolResult run = RunInProcess(c.args);
    EXPECT_EQ(run.code, c.code);
    EXPECT_TRUE(Contains(run.err, "kavogps play: ") && Contains(run.err, c.message)) << run.err;
    EXPECT_EQ(dir.Listing(), "folder;notes.txt;");
  }
}

TEST(KavogpsTool, EveryCommandHasHelpWithTheExitCodes) {
  for (const char* command : {"play", "ports", "find", "monitor"}) {
    SCOPED_TRACE(command);
    const ToolResult run = RunInProcess({command, "--help"});
    EXPECT_EQ(run.code, 0);
    EXPECT_TRUE(Contains(run.out, std::string("Usage: kavogps ") + command)) << run.out;
    EXPECT_TRUE(Contains(run.out, "5  no GPS receiver found")) << run.out;
    EXPECT_EQ(RunInProcess({command, "--bogus"}).code, cli::kExitUsage);
  }
  const ToolResult help = RunInProcess({"--help"});
  for (const char* command : {"play", "ports", "find", "monitor", "simulate"})
    EXPECT_TRUE(Contains(help.out, std::string("  ") + command + " ")) << help.out;
  EXPECT_TRUE(Contains(RunInProcess({"play", "--help"}).out, "default 100")) << "the default interval is told";
}

TEST(KavogpsMonitor, BadCommandLinesAreRefusedBeforeAnyPortIsOpened) {
  const std::vector<std::pair<Arguments, std::string>> cases = {
      {{"monitor"}, "name the port"},
      {{"monitor", "COM3", "--baud", "300"}, "invalid value '300' for --baud: expected 110, 1200"},
      {{"monitor", "COM3", "--baud", "fast"}, "invalid value 'fast' for --baud"},
      {{"monitor", "COM3", "COM4"}, "unexpected argument 'COM4'"},
      {{"monitor", "/dev/serial/by-id/usb-gps0"}, "is too long: the library takes at most 18 characters"},
      {{"ports", "COM3"}, "unexpected argument 'COM3'"},
      {{"find", "--all"}, "unknown option '--all'"},
  };
  for (const auto& [args, message] : cases) {
    SCOPED_TRACE(args.back());
    const ToolResult run = RunInProcess(args);
    EXPECT_EQ(run.code, cli::kExitUsage);
    EXPECT_TRUE(Contains(run.err, message)) << run.err;
  }
}

}  // namespace
}  // namespace kavo::test
