// What the tool makes of the library's records: epochs, JSON for programs,
// the screen for people, the track of fixes and its GPX file.
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "cli/epoch_assembler.h"
#include "cli/fix_track.h"
#include "cli/gpx_writer.h"
#include "cli/json_report.h"
#include "cli/live_view.h"
#include "common/temp_dir.h"

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
  l.Speed = 10.0;  // mph
  l.Course = kPi / 2;
  l.SatellitesInUse = 9;
  l.FixQuality = 2;
  l.HDOP = 1.1;
  l.Time = kMay14 + (10 * 3600 + 5.25) * kSecond;
  l.TimeType = GPS_TIME_FULL;
  l.ValidFlags = 0x7ff & ~GPS_VALID_GEOID_SEPARATION;
  return l;
}

// The record after the fix below at 10:00:`second`.
Reading Record(int second, uint32_t flags) {
  Reading r;
  r.location.Latitude = 48 + 7.0379 / 60, r.location.Longitude = 11 + 31.0018 / 60;
  r.location.SatellitesInUse = 10, r.location.HDOP = 1.0;
  r.location.Time = 45426.0 + (36000 + second) * kSecond;
  r.location.ValidFlags = flags;
  return r;
}

struct Feed {
  std::vector<EpochReport> reports;
  EpochAssembler epochs{300, [this](const EpochReport& r) { reports.push_back(r); }};
  uint64_t ms = 0;
  void operator()(const std::string& sentence, const Reading& before) { epochs.Sentence(sentence, before, ms += 10); }
};

TEST(EpochAssembler, EpochsEndByTimeRepeatOrSilenceAndOneNeverReadAloneIsLeftOut) {
  Feed feed;
  const Reading none;
  // Epoch 0 reached the library with the start of epoch 1: the record went
  // from nothing to epoch 1 and never held epoch 0.
  feed("$GPGGA,100000.00,4807.0380,N,01131.0020,E,1,10,1.0,520.0,M,38.8,M,,*69", none);
  feed("$GPGGA,100001.00,4807.0379,N,01131.0018,E,1,10,1.0,520.0,M,38.8,M,,*65", none);
  // Without times, a sentence the epoch already had starts the next one.
  Reading sky40 = Record(1, 0x567), sky41;
  sky40.satellites = {{7, 40, 0.5, 1.0}};
  sky41 = sky40;
  sky41.satellites[0].SNR = 41;
  feed("$GPGSV,1,1,01,07,29,057,40*4C", Record(1, 0x567));
  feed("$GPGSV,1,1,01,07,29,057,40*4C", sky40);
  feed("$GPGSV,1,1,01,07,29,057,41*4D", sky40);
  // Silence ends the last one; a reading before that does not.
  feed.epochs.Latest(sky41, feed.ms + 299);
  EXPECT_EQ(feed.reports.size(), 2u);
  feed.epochs.Latest(sky41, feed.ms + 300);

  ASSERT_EQ(feed.reports.size(), 3u);
  EXPECT_EQ(TimeOfDay(feed.reports[0].reading.location), "10:00:01");
  std::vector<bool> changed;
  for (const EpochReport& r : feed.reports) changed.push_back(r.skyChanged);
  EXPECT_EQ(changed, (std::vector<bool>{true, false, true}));
}

TEST(JsonReport, TpvModeAndStatusFollowTheFixAndNumbersStayPlain) {
  Reading reading{FullFix(), {}, GPS_STATUS_RECEIVING};
  reading.location.ValidFlags = GPS_VALID_POSITION;  // no altitude: two-dimensional
  reading.location.FixQuality = 6;                    // dead reckoning
  reading.location.TimeType = GPS_TIME_OF_DAY;        // no date: no time field
  EXPECT_EQ(TpvJson(reading, ""), "{\"class\":\"TPV\",\"mode\":2,\"status\":5,\"lat\":48.5,\"lon\":-11.25}");
  EXPECT_EQ(JsonNumber(-0.0001, 3), "0");
  EXPECT_EQ(JsonNumber(1e20, 1), "100000000000000000000");  // never in exponent form
  EXPECT_EQ(JsonString("C:\\a \"b\"\n"), "\"C:\\\\a \\\"b\\\"\\u000a\"");
}

TEST(Reading, TimeShowsOnlyWhatTheReceiverSent) {
  GPSLocation l{};  // zeroed: a full time of day 0, which no receiver sends
  EXPECT_EQ(IsoTime(l), "");
  l.Time = kMay14 + (10 * 3600 + 5.25) * kSecond;
  EXPECT_EQ(IsoTime(l), "2024-05-14T10:00:05.250Z");
  l.TimeType = GPS_TIME_LOCAL_CLOCK;
  EXPECT_EQ(TimeOfDay(l), "");
}

TEST(FixTrack, CountsFixesMeasuresTheWayAndStartsASegmentAfterALossOrAStepBack) {
  test::TempDir dir;
  GpxWriter gpx;
  std::string error;
  ASSERT_TRUE(gpx.Open(dir.File("t.gpx"), "walk <1> & 'b'", &error)) << error;
  std::vector<Fix> fixes;
  FixTrack track([&](const Fix& fix) {
    fixes.push_back(fix);
    gpx.Add(fix);
  });
  GPSLocation l = FullFix();
  l.Time = 40000.0 + (10 * 3600 - 1) * kSecond;  // before the first RMC: today's local date
  l.TimeType = GPS_TIME_OF_DAY;
  track.Add(l);
  l.Time = kMay14 + 10 * 3600 * kSecond;  // then the receiver's date
  l.TimeType = GPS_TIME_FULL;
  track.Add(l);
  l.FixQuality = 0;  // lost
  track.Add(l);
  l.FixQuality = 1;
  for (int loop = 0; loop < 2; ++loop) {  // one degree north, twice: a repeat
    l.Latitude = 49.5;
    l.Time = kMay14 + (10 * 3600 + 60) * kSecond;
    track.Add(l);
    l.Time += kSecond;  // standing still is a fix of its own
    track.Add(l);
  }
  track.Finish();
  ASSERT_TRUE(gpx.Finish(&error)) << error;

  ASSERT_EQ(fixes.size(), 6u);
  std::vector<bool> starts;
  for (const Fix& fix : fixes) starts.push_back(fix.startsSegment);
  EXPECT_EQ(starts, (std::vector<bool>{true, false, true, false, true, false}));
  EXPECT_NEAR(track.DistanceMetres(), 111195.08, 0.01);  // along the meridian; the repeat stands still
  const std::string file = dir.Read("t.gpx");
  EXPECT_EQ(file.substr(file.find("<trk>")),
            "<trk>\n    <name>walk &lt;1&gt; &amp; &apos;b&apos;</name>\n    <trkseg>\n"
            "      <trkpt lat=\"48.5\" lon=\"-11.25\"><ele>520.3</ele></trkpt>\n"
            "      <trkpt lat=\"48.5\" lon=\"-11.25\"><ele>520.3</ele><time>2024-05-14T10:00:00Z</time></trkpt>\n"
            "    </trkseg>\n    <trkseg>\n"
            "      <trkpt lat=\"49.5\" lon=\"-11.25\"><ele>520.3</ele><time>2024-05-14T10:01:00Z</time></trkpt>\n"
            "      <trkpt lat=\"49.5\" lon=\"-11.25\"><ele>520.3</ele><time>2024-05-14T10:01:01Z</time></trkpt>\n"
            "    </trkseg>\n    <trkseg>\n"
            "      <trkpt lat=\"49.5\" lon=\"-11.25\"><ele>520.3</ele><time>2024-05-14T10:01:00Z</time></trkpt>\n"
            "      <trkpt lat=\"49.5\" lon=\"-11.25\"><ele>520.3</ele><time>2024-05-14T10:01:01Z</time></trkpt>\n"
            "    </trkseg>\n  </trk>\n</gpx>\n");
  // The span starts at the first fix with a date; only forward steps count.
  EXPECT_NE(Summary(track).find("Fixes:      6\nDistance:   111.20 km (great-circle sum between fixes)\n"
                                "Time span:  2024-05-14 10:00:00 to 10:01:01 UTC (1 min 2 s)\n"
                                "            from the first fix with a date; 1 before it had none\n"),
            std::string::npos)
      << Summary(track);
}

TEST(LiveView, ScreenShowsTheFixInPeoplesUnitsAndKeepsToTheTerminal) {
  const Reading reading{FullFix(), std::vector<GPSSatellite>(3, {12, 45, 77 * kPi / 180, 209 * kPi / 180}),
                        GPS_STATUS_RECEIVING};
  // A terminal of 16 rows has room for one of the three satellites, and for
  // how many more there are; one row stays free for the cursor.
  std::ostringstream out;
  TerminalView view(out, "title", [] { return 16; });
  view.Show(EpochReport{reading});
  view.Close();
  const std::string frame = out.str();
  for (const char* piece : {"receiving NMEA", "2024-05-14 10:00:05 UTC", "48.500000 N  11.250000 W",
                            "DGPS fix (quality 2), 9 satellites in use", "16.1 km/h", "90.0 deg true",
                            "   12    77   209   45  [######### ]"})
    EXPECT_NE(frame.find(piece), std::string::npos) << piece << " in\n" << frame;
  EXPECT_EQ(std::count(frame.begin(), frame.end(), '\n'), 15) << frame;
  EXPECT_EQ(frame.rfind("\x1b[2J\x1b[H" "title\x1b[K\n", 0), 0u) << frame;
  EXPECT_NE(frame.find("[######### ]\x1b[K\n  ... 2 more\x1b[K\n\x1b[J"), std::string::npos) << frame;
}

}  // namespace
}  // namespace kavo::cli
