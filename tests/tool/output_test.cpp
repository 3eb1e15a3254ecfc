// What the tool makes of the library's records: JSON for programs, the
// screen and lines for people, the track of fixes and its GPX file.
#include <gtest/gtest.h>

#include <cmath>
#include <algorithm>
#include <regex>
#include <sstream>

#include "cli/fix_track.h"
#include "common/temp_dir.h"
#include "cli/gpx_writer.h"
#include "cli/json_report.h"
#include "cli/live_view.h"

namespace kavo::cli {
namespace {

constexpr double kPi = 3.14159265358979323846;
// 14 May 2024 as an OLE Automation date, and one second of a day.
constexpr double kMay14 = 45426.0;
constexpr double kSecond = 1.0 / 86400.0;

GPSLocation FullFix() {
  GPSLocation l{};
  l.Latitude = 48.5;
  l.Longitude = -11.25;
  l.Altitude = 520.3;
  l.GeoidSeparation = 38.8;
  l.Speed = 10.0;  // mph
  l.Course = kPi / 2;
  l.MagneticCourse = kPi;
  l.SatellitesInUse = 9;
  l.FixQuality = 2;
  l.HDOP = 1.1;
  l.VDOP = 1.9;
  l.PDOP = 2.2;
  l.Time = kMay14 + (10 * 3600 + 5.25) * kSecond;
  l.TimeType = GPS_TIME_FULL;
  l.ValidFlags = 0x7ff;
  return l;
}

// The value of a JSON field, as written; empty when absent.
std::string Field(const std::string& json, const std::string& name) {
  std::smatch match;
  if (!std::regex_search(json, match, std::regex("\"" + name + "\":(\"[^\"]*\"|[^,}\\]]+)"))) return {};
  return match[1];
}

double Number(const std::string& json, const std::string& name) {
  const std::string value = Field(json, name);
  return value.empty() ? NAN : std::stod(value);
}

TEST(JsonReport, TpvCarriesDaemonUnitsAndOnlyWhatTheRecordHolds) {
  Reading reading;
  reading.location = FullFix();
  const std::string tpv = TpvJson(reading, "COM3:");
  EXPECT_EQ(tpv.rfind("{\"class\":\"TPV\",", 0), 0u) << tpv;
  EXPECT_EQ(Field(tpv, "device"), "\"COM3:\"");
  EXPECT_EQ(Field(tpv, "mode"), "3");
  EXPECT_EQ(Field(tpv, "status"), "2");  // DGPS
  EXPECT_EQ(Field(tpv, "time"), "\"2024-05-14T10:00:05.250Z\"");
  EXPECT_DOUBLE_EQ(Number(tpv, "lon"), -11.25);
  EXPECT_DOUBLE_EQ(Number(tpv, "altHAE"), 559.1);
  EXPECT_DOUBLE_EQ(Number(tpv, "speed"), 4.47);  // 10 mph in m/s, to the millimetre
  EXPECT_DOUBLE_EQ(Number(tpv, "magtrack"), 180.0);

  // Time of day only, a position without altitude or motion: a 2D fix
  // without a time field.
  GPSLocation& l = reading.location;
  l.TimeType = GPS_TIME_OF_DAY;
  l.FixQuality = 1;
  l.ValidFlags = GPS_VALID_POSITION;
  const std::string plain = TpvJson(reading, "");
  EXPECT_EQ(Field(plain, "mode"), "2");
  EXPECT_EQ(Field(plain, "status"), "1");
  for (const char* absent : {"device", "time", "alt", "altMSL", "speed", "track", "magtrack", "geoidSep"})
    EXPECT_EQ(Field(plain, absent), "") << absent << " in " << plain;

  // Quality 0: no fix, and no position however one is stored.
  l.FixQuality = 0;
  const std::string none = TpvJson(reading, "");
  EXPECT_EQ(Field(none, "mode"), "1");
  EXPECT_EQ(Field(none, "lat"), "");
}

TEST(JsonReport, NumbersAndStringsAreValidJson) {
  EXPECT_EQ(JsonNumber(-0.0001, 3), "0");
  EXPECT_EQ(JsonNumber(1e20, 1), "100000000000000000000");  // never in exponent form
  EXPECT_EQ(JsonString("C:\\a \"b\"\n"), "\"C:\\\\a \\\"b\\\"\\u000a\"");
  EXPECT_EQ(XmlEscape("walk <1> & 'b' \"c\""), "walk &lt;1&gt; &amp; &apos;b&apos; &quot;c&quot;");
}

TEST(OleDates, CalendarAcrossLeapDaysAndRounding) {
  UtcTime t;
  ASSERT_TRUE(FromOleDate(kMay14, &t));
  EXPECT_EQ(t.year * 10000 + t.month * 100 + t.day, 20240514);
  ASSERT_TRUE(FromOleDate(kMay14 - 75, &t));  // 75 days back: 29 February 2024
  EXPECT_EQ(t.year * 10000 + t.month * 100 + t.day, 20240229);
  ASSERT_TRUE(FromOleDate(36586.0, &t));  // 2000 is a leap year: 36585 is 29 February
  EXPECT_EQ(t.year * 10000 + t.month * 100 + t.day, 20000301);
  ASSERT_TRUE(FromOleDate(61.0, &t));  // 1900 was no leap year
  EXPECT_EQ(t.year * 10000 + t.month * 100 + t.day, 19000301);
  // A fraction a hair below midnight is the next day, not 24:00:00.
  ASSERT_TRUE(FromOleDate(kMay14 + 1.0 - 1e-10, &t));
  EXPECT_EQ(t.day * 1000000 + t.hour * 10000 + t.minute * 100 + t.second, 15000000);
  EXPECT_FALSE(FromOleDate(NAN, &t));
  EXPECT_FALSE(FromOleDate(-5.0, &t));
}

size_t Segments(const std::string& gpx) {
  size_t count = 0;
  for (size_t at = gpx.find("<trkseg>"); at != std::string::npos; at = gpx.find("<trkseg>", at + 1)) ++count;
  return count;
}

TEST(FixTrack, CountsDistinctFixesAndMeasuresTheWayBetweenThem) {
  std::vector<Fix> completed;
  FixTrack track([&](const Fix& fix) { completed.push_back(fix); });
  GPSLocation l = FullFix();
  l.Time = 40000.0 + 10 * 3600 * kSecond;  // a GGA before any RMC: today's local date
  l.TimeType = GPS_TIME_OF_DAY;
  track.Add(l);
  l.Time = kMay14 + 10 * 3600 * kSecond;  // the RMC of the same epoch brings the date
  l.TimeType = GPS_TIME_FULL;
  track.Add(l);
  EXPECT_TRUE(completed.empty());  // still open: a VTG may follow
  l.FixQuality = 0;                // lost fix: no point
  l.Latitude = 10;
  track.Add(l);
  l.FixQuality = 1;
  l.Latitude = 49.5;  // one degree north: 111.195 km along the meridian
  l.Time += 60 * kSecond;
  track.Add(l);
  l.Time += kSecond;  // standing still is a fix of its own
  track.Add(l);
  track.Finish();

  ASSERT_EQ(completed.size(), 3u);
  EXPECT_EQ(completed[0].time, "2024-05-14T10:00:00.000Z");
  // The fix was lost between the first two: a new stretch starts.
  EXPECT_TRUE(completed[0].startsSegment && completed[1].startsSegment && !completed[2].startsSegment);
  EXPECT_EQ(track.Count(), 3u);
  EXPECT_NEAR(track.DistanceMetres(), 111195.08, 0.01);
  const std::string summary = Summary(track);
  EXPECT_NE(summary.find("Fixes:      3\n"), std::string::npos) << summary;
  EXPECT_NE(summary.find("111.20 km"), std::string::npos) << summary;
  EXPECT_NE(summary.find("2024-05-14 10:00:00 to 10:01:01 UTC (1 min 1 s)"), std::string::npos) << summary;
}

TEST(FixTrack, TimeSpanStartsAtTheFirstDatedFixAndCountsRepeatsForward) {
  test::TempDir dir;
  GpxWriter gpx;
  std::string error;
  ASSERT_TRUE(gpx.Open(dir.File("t.gpx"), "walk", &error)) << error;
  FixTrack track([&](const Fix& fix) { gpx.Add(fix); });
  GPSLocation l = FullFix();
  l.Time = 40000.0 + 10 * 3600 * kSecond;  // read before the epoch's RMC: no date yet
  l.TimeType = GPS_TIME_OF_DAY;
  track.Add(l);
  l.TimeType = GPS_TIME_FULL;
  for (int loop = 0; loop < 3; ++loop) {  // a recording of 10 s played three times
    for (int s = 1; s <= 10; ++s) {
      l.Latitude += 0.0001;
      l.Time = kMay14 + (10 * 3600 + s) * kSecond;
      track.Add(l);
    }
  }
  track.Finish();
  ASSERT_TRUE(gpx.Finish(&error)) << error;
  // Each loop goes back in time: a segment of its own, so no reader sees
  // points out of order.
  const std::string file = dir.Read("t.gpx");
  EXPECT_EQ(Segments(file), 3u) << file;
  EXPECT_EQ(file.substr(file.size() - 39), "</trkpt>\n    </trkseg>\n  </trk>\n</gpx>\n") << file;
  const std::string summary = Summary(track);
  EXPECT_NE(summary.find("Time span:  2024-05-14 10:00:01 to 10:00:10 UTC (27 s)\n"), std::string::npos) << summary;
  EXPECT_NE(summary.find("1 before it had none"), std::string::npos) << summary;
  EXPECT_NE(summary.find("time went back 2 times"), std::string::npos) << summary;

  FixTrack undated;
  l.TimeType = GPS_TIME_OF_DAY;
  l.Time = 40000.0 + (23 * 3600 + 59 * 60 + 59) * kSecond;
  undated.Add(l);
  l.Latitude += 0.0001;
  l.Time += 2 * kSecond;  // across midnight
  undated.Add(l);
  undated.Finish();
  EXPECT_NE(Summary(undated).find("23:59:59 to 00:00:01 UTC (2 s)\n            the receiver sent no date"),
            std::string::npos)
      << Summary(undated);
}

TEST(LiveView, ScreenShowsTheFixInPeoplesUnits) {
  Reading reading;
  reading.location = FullFix();
  reading.status = GPS_STATUS_RECEIVING;
  reading.satellites = {{12, 45, 77 * 0.0174532925, 209 * 0.0174532925}};
  const std::string screen = RenderScreen(reading, "title");
  for (const char* piece : {"receiving NMEA", "2024-05-14 10:00:05 UTC", "48.500000 N  11.250000 W",
                            "DGPS fix (quality 2), 9 satellites in use", "16.1 km/h", "90.0 deg true",
                            "   12    77   209   45  [######### ]"})
    EXPECT_NE(screen.find(piece), std::string::npos) << piece << " in\n" << screen;
  EXPECT_EQ(SignalBar(0), "[          ]");
  // A screen with room for two of three satellites says so.
  reading.satellites.assign(3, reading.satellites[0]);
  const std::string cut = RenderScreen(reading, "title", 15);
  EXPECT_EQ(std::count(cut.begin(), cut.end(), '\n'), 15) << cut;
  EXPECT_NE(cut.find("[######### ]\n  ... 2 more\n"), std::string::npos) << cut;
  EXPECT_EQ(SignalBar(99), "[##########]");

  // On a terminal of 6 rows the screen keeps to 5 lines, or it would scroll.
  std::ostringstream out;
  TerminalView view(out, "title", [] { return 6; });
  view.Show(EpochReport{reading});
  view.Close();
  const std::string frame = out.str();
  EXPECT_EQ(std::count(frame.begin(), frame.end(), '\n'), 5) << frame;
  EXPECT_EQ(frame.rfind("\x1b[2J\x1b[H" "title\x1b[K\n", 0), 0u) << frame;
  EXPECT_NE(frame.find("Position    48.500000 N  11.250000 W\x1b[K\n\x1b[J"), std::string::npos) << frame;
}

}  // namespace
}  // namespace kavo::cli
