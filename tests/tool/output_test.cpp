// What the tool makes of the library's records: JSON for programs, the
// screen and lines for people, the track of fixes and its GPX file.
#include <gtest/gtest.h>

#include <cmath>
#include <regex>

#include "cli/fix_track.h"
#include "cli/gpx_writer.h"
#include "cli/json_report.h"
#include "cli/live_view.h"
#include "scratch_dir.h"

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
  EXPECT_DOUBLE_EQ(Number(tpv, "lat"), 48.5);
  EXPECT_DOUBLE_EQ(Number(tpv, "lon"), -11.25);
  EXPECT_DOUBLE_EQ(Number(tpv, "altMSL"), 520.3);
  EXPECT_DOUBLE_EQ(Number(tpv, "altHAE"), 559.1);
  EXPECT_DOUBLE_EQ(Number(tpv, "speed"), 4.47);  // 10 mph in m/s, to the millimetre
  EXPECT_DOUBLE_EQ(Number(tpv, "track"), 90.0);
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

TEST(JsonReport, SkyListsSatellitesInDegreesWithTheDilutions) {
  Reading reading;
  reading.location = FullFix();
  reading.location.ValidFlags &= ~GPS_VALID_VDOP;
  reading.satellites = {{7, 41, 45 * 0.0174532925, 279 * 0.0174532925}, {14, 0, 2 * 0.0174532925, 47 * 0.0174532925}};
  const std::string sky = SkyJson(reading, "");
  EXPECT_EQ(Field(sky, "class"), "\"SKY\"");
  EXPECT_EQ(Field(sky, "nSat"), "2");
  EXPECT_EQ(Field(sky, "uSat"), "9");
  EXPECT_DOUBLE_EQ(Number(sky, "hdop"), 1.1);
  EXPECT_DOUBLE_EQ(Number(sky, "pdop"), 2.2);
  EXPECT_EQ(Field(sky, "vdop"), "");
  EXPECT_NE(sky.find("\"satellites\":[{\"PRN\":7,\"el\":45,\"az\":279,\"ss\":41},"
                     "{\"PRN\":14,\"el\":2,\"az\":47,\"ss\":0}]"),
            std::string::npos)
      << sky;
}

TEST(JsonReport, NumbersAndStringsAreValidJson) {
  EXPECT_EQ(JsonNumber(1.5, 3), "1.5");
  EXPECT_EQ(JsonNumber(2.0, 3), "2");
  EXPECT_EQ(JsonNumber(-0.0001, 3), "0");
  EXPECT_EQ(JsonNumber(1e20, 1), "100000000000000000000");
  EXPECT_EQ(JsonString("C:\\a \"b\"\n"), "\"C:\\\\a \\\"b\\\"\\u000a\"");
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
  EXPECT_EQ(track.Count(), 3u);
  EXPECT_NEAR(track.DistanceMetres(), 111195.08, 0.01);
  const std::string summary = Summary(track);
  EXPECT_NE(summary.find("Fixes:      3\n"), std::string::npos) << summary;
  EXPECT_NE(summary.find("111.20 km"), std::string::npos) << summary;
  EXPECT_NE(summary.find("2024-05-14 10:00:00 to 10:01:01 UTC (1 min 1 s)"), std::string::npos) << summary;
}

TEST(FixTrack, TimeSpanAcrossMidnightAndWithoutReceiverTime) {
  FixTrack track;
  GPSLocation l = FullFix();
  l.Time = kMay14 + (23 * 3600 + 59 * 60 + 30) * kSecond;
  track.Add(l);
  l.Latitude += 0.001;
  l.Time = kMay14 + 1 + 15 * kSecond;
  track.Add(l);
  track.Finish();
  EXPECT_NE(Summary(track).find("2024-05-14 23:59:30 to 2024-05-15 00:00:15 UTC (45 s)"), std::string::npos)
      << Summary(track);

  FixTrack local;
  l.TimeType = GPS_TIME_LOCAL_CLOCK;
  local.Add(l);
  local.Finish();
  EXPECT_NE(Summary(local).find("unknown"), std::string::npos) << Summary(local);
  EXPECT_EQ(Summary(FixTrack()), "Fixes:      0\n");
}

TEST(GpxWriter, WritesPointsInSchemaOrderAndRemovesWhatItCannotFinish) {
  test::ScratchDir dir;
  const std::string path = dir.File("track.gpx");
  std::string error;
  {
    GpxWriter gpx;
    ASSERT_TRUE(gpx.Open(path, "walk <1> & more", &error)) << error;
    Fix full;
    full.latitude = 48.1173;
    full.longitude = -11.5;
    full.altitude = 520.25;
    full.time = "2024-05-14T10:00:00.000Z";
    gpx.Add(full);
    Fix bare;
    bare.latitude = -33.5;
    bare.longitude = 151.25;
    gpx.Add(bare);
    ASSERT_TRUE(gpx.Finish(&error)) << error;
  }
  const std::string text = test::ReadFile(path);
  EXPECT_NE(text.find("<gpx version=\"1.1\" creator=\"kavogps\" xmlns=\"http://www.topografix.com/GPX/1/1\">"),
            std::string::npos);
  EXPECT_NE(text.find("<name>walk &lt;1&gt; &amp; more</name>"), std::string::npos) << text;
  EXPECT_NE(text.find("<trkpt lat=\"48.1173\" lon=\"-11.5\"><ele>520.25</ele><time>2024-05-14T10:00:00Z</time></trkpt>"),
            std::string::npos)
      << text;
  EXPECT_NE(text.find("<trkpt lat=\"-33.5\" lon=\"151.25\"></trkpt>"), std::string::npos) << text;
  EXPECT_EQ(text.substr(text.size() - 7), "</gpx>\n");

  {
    GpxWriter unfinished;
    ASSERT_TRUE(unfinished.Open(dir.File("partial.gpx"), "x", &error));
  }
  EXPECT_EQ(dir.Listing(), "track.gpx;");
  GpxWriter nowhere;
  EXPECT_FALSE(nowhere.Open(dir.File("missing/track.gpx"), "x", &error));
  EXPECT_NE(error.find("cannot create"), std::string::npos) << error;
}

TEST(LiveView, ScreenAndLinesShowTheFixInPeoplesUnits) {
  Reading reading;
  reading.location = FullFix();
  reading.status = GPS_STATUS_RECEIVING;
  reading.satellites = {{12, 45, 77 * 0.0174532925, 209 * 0.0174532925}};
  const std::string screen = RenderScreen(reading, "title");
  for (const char* piece : {"receiving NMEA", "2024-05-14 10:00:05 UTC", "48.500000 N  11.250000 W",
                            "DGPS fix (quality 2), 9 satellites in use", "16.1 km/h", "90.0 deg true",
                            "Satellites in view: 1", "   12    77   209   45  [######### ]"})
    EXPECT_NE(screen.find(piece), std::string::npos) << piece << " in\n" << screen;
  const std::string line = RenderLine(reading);
  EXPECT_EQ(line.find('\n'), std::string::npos);
  EXPECT_NE(line.find("48.500000 N 11.250000 W"), std::string::npos) << line;
  EXPECT_EQ(SignalBar(0), "[          ]");
  EXPECT_EQ(SignalBar(23), "[#####     ]");
  EXPECT_EQ(SignalBar(99), "[##########]");
}

}  // namespace
}  // namespace kavo::cli
