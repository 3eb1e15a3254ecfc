// What the tool makes of the library's records: epochs, JSON, screen, GPX.
#include <gtest/gtest.h>

#include <sstream>
#include <tuple>

#include "common/temp_dir.h"
#include "session/epoch_assembler.h"
#include "session/fix_track.h"
#include "session/gpx_writer.h"
#include "session/json_report.h"
#include "session/live_view.h"

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

// The record holding a fix at 48°`minutes`' N moving at `knots`, with one
// satellite heard at `snr`.
Reading Record(double minutes, double knots, int snr) {
  Reading r{FullFix(), {{2, snr, 49 * kPi / 180, 211 * kPi / 180}}, GPS_STATUS_RECEIVING};
  r.location.Latitude = 48 + minutes / 60, r.location.Longitude = 11 + 31.0 / 60;
  r.location.Speed = knots * 1852 / 1609.344, r.location.Course = 233.3 * kPi / 180;
  r.location.Time = kMay14 + 36000 * kSecond;
  r.location.ValidFlags = GPS_VALID_POSITION | GPS_VALID_SPEED | GPS_VALID_COURSE;
  return r;
}

TEST(EpochAssembler, AnEpochEndsWithItsLastSentenceOnceTheRecordHoldsItOrElseWhenTheNextBegins) {
  const Reading none, a = Record(7, 0, 38), b = Record(8, 1, 38), c = Record(8, 1, 37);
  const std::string gsv37 = "$GPGSV,1,1,01,02,49,211,37*00";
  // A sentence and the record before it, or (no sentence) the newest
  // record; then how many epochs were reported.
  const std::vector<std::tuple<std::string, Reading, size_t>> steps = {
      {"$GPRMC,100009,A,4806.0,N,01131.0,E,0.0,233.3,140524,,,A*00", none, 0},  // never held: told from itself
      {"$GPGGA,100010,4807.0,N,01131.0,E,1,,,,M,,M,,*00", none, 1},
      {"$GPGSA,A,3,02,03,,,,,,,,,,,,,*00", none, 1},
      {"$GPGSV,1,1,01,02,49,211,38*00", none, 1},
      {"$GPRMC,100010,A,4807.0,N,01131.0,E,0.0,233.3,140524,,,A*00", none, 1},
      {"$GPGGA,100011,4808.0,N,01131.0,E,1,,,,M,,M,,*00", a, 2},  // a new time: RMC ends the epochs from now on
      {"$GPGSA,A,3,02,,,,,,,,,,,,,,*00", a, 2},
      {gsv37, a, 2},
      {"$GPRMC,100011,A,4808.0,N,01131.0,E,1.0,233.3,140524,,,A*00", a, 2},
      {"", b, 2},  // the sky is not the epoch's yet
      {"", c, 3},
      {"$GPGGA,100012,4808.0,N,01131.0,E,1,,,,M,,M,,*00", c, 3},
      {gsv37, c, 3},
      {"$GPRMC,100012,A,4808.0,N,01131.0,E,1.0,233.3,140524,,,A*00", c, 4},  // standing still: held already
      {"$GPGGA,100013,4808.0,N,01131.0,E,1,,,,M,,M,,*00", c, 4},
      {"$GPRMC,100013,A,4808.0,N,01131.0,E,2.0,233.3,140524,,,A*00", c, 4},
      {"$GPGGA,100014,4808.0,N,01131.0,E,1,,,,M,,M,,*00", c, 5},  // that RMC never showed: its own speed
  };
  std::vector<EpochReport> reports;
  EpochAssembler epochs(300, [&](const EpochReport& r) { reports.push_back(r); });
  uint64_t ms = 0;
  for (const auto& [sentence, reading, count] : steps) {
    if (sentence.empty())
      epochs.Latest(reading, ms += 10);
    else
      epochs.Sentence(sentence, reading, ms += 10);
    ASSERT_EQ(reports.size(), count) << sentence << " at " << ms;
  }
  epochs.Latest(c, ms + 300);  // silence ends the last one
  std::vector<std::string> got;
  for (const EpochReport& r : reports) {
    got.push_back(TimeOfDay(r.reading.location) + (Has(r.reading.location, GPS_VALID_SPEED) ? " speed" : "") +
                  (r.skyChanged ? " sky" : "") + " used");
    for (int32_t prn : r.used) got.back() += " " + std::to_string(prn);
  }
  EXPECT_EQ(got,
            (std::vector<std::string>{"10:00:09 speed used", "10:00:10 speed sky used 2 3", "10:00:11 speed sky used 2",
                                      "10:00:12 speed used 2", "10:00:13 speed used 2", "10:00:14 used 2"}));
}

TEST(EpochAssembler, WhatReachedTheLibraryWithTheNextEpochIsToldFromTheEpochsOwnSentences) {
  // The playback fell behind: RMC, VTG and the next GGA came in one chunk,
  // so the record read before them holds the first GGA only, without a date.
  Reading gga;
  GPSLocation& l = gga.location;
  l.Latitude = 48 + 7.038 / 60, l.Longitude = 11 + 31.002 / 60, l.Altitude = 520, l.FixQuality = 1;
  l.Time = 45000.0 + 36000 * kSecond, l.TimeType = GPS_TIME_OF_DAY;
  l.ValidFlags = GPS_VALID_POSITION | GPS_VALID_ALTITUDE;
  std::vector<EpochReport> reports;
  EpochAssembler epochs(300, [&](const EpochReport& r) { reports.push_back(r); });
  epochs.Sentence("$GPGGA,100000.00,4807.0380,N,01131.0020,E,1,,,520.0,M,,M,,*00", Reading{}, 0);
  for (const char* sentence :
       {"$GPRMC,100000.00,A,4807.0380,N,01131.0020,E,0.50,233.4,140524,,,A*00",
        "$GPVTG,233.4,T,230.4,M,0.50,N,0.93,K,A*00", "$GPGGA,100001.00,4807.0379,N,01131.0018,E,1,,,520.0,M,,M,,*00"})
    epochs.Sentence(sentence, gga, 10);
  ASSERT_EQ(reports.size(), 1u);
  EXPECT_EQ(TpvJson(reports[0].reading, ""),
            "{\"class\":\"TPV\",\"mode\":3,\"status\":1,\"time\":\"2024-05-14T10:00:00.000Z\",\"lat\":48.1173,"
            "\"lon\":11.5167,\"alt\":520,\"altMSL\":520,\"speed\":0.257,\"track\":233.4,\"magtrack\":230.4}");
}

TEST(JsonReport, TpvFollowsTheFixSkyNamesEachSatellitesSystemAndNumbersStayPlain) {
  Reading reading{FullFix(), {}, GPS_STATUS_RECEIVING};
  reading.location.ValidFlags = GPS_VALID_POSITION;  // no altitude: two-dimensional
  reading.location.FixQuality = 6;                   // dead reckoning
  reading.location.TimeType = GPS_TIME_OF_DAY;       // no date: no time field
  EXPECT_EQ(TpvJson(reading, ""), "{\"class\":\"TPV\",\"mode\":2,\"status\":5,\"lat\":48.5,\"lon\":-11.25}");
  EXPECT_EQ(JsonNumber(1e20, 1), "100000000000000000000");  // never in exponent form
  // Rounded from the double's exact value, halfway to even, trailing zeros
  // cut: 1.0005 and 2.675 lie just below halfway, 0.125, 2.5 and -7.25 on it.
  const std::pair<double, int> rounded[] = {{0.125, 2},  {0.375, 2},   {2.5, 0},        {-0.04, 1},
                                            {999999.9999, 3}, {1e6 + 0.25, 1}, {48.1173, 9}, {0.1 + 0.2, 9},
                                            {-1e-300, 2}, {1.0005, 3}, {2.675, 2},     {-7.25, 1}};
  const char* const texts[] = {"0.12", "0.38", "2", "0", "1000000", "1000000.2", "48.1173", "0.3", "0", "1", "2.67", "-7.2"};
  for (size_t i = 0; i < std::size(rounded); ++i)
    EXPECT_EQ(JsonNumber(rounded[i].first, rounded[i].second), texts[i]) << rounded[i].first;
  EXPECT_EQ(JsonString("C:\\a \"b\"\n"), "\"C:\\\\a \\\"b\\\"\\u000a\"");

  const std::vector<std::pair<int32_t, std::string>> satellites = {{7, ",\"gnssid\":0,\"svid\":7,\"used\":true}"},
                                                                   {40, ",\"gnssid\":1,\"svid\":127,\"used\":false}"},
                                                                   {70, ",\"gnssid\":6,\"svid\":6,\"used\":false}"},
                                                                   {195, ",\"gnssid\":5,\"svid\":3,\"used\":false}"},
                                                                   {305, ",\"gnssid\":2,\"svid\":5,\"used\":true}"},
                                                                   {410, ",\"gnssid\":3,\"svid\":10,\"used\":false}"},
                                                                   {250, ",\"used\":false}"}};
  for (const auto& satellite : satellites) reading.satellites.push_back({satellite.first, 30, 0, 0});
  const std::string sky = SkyJson(reading, "", {7, 305});
  for (const auto& [prn, system] : satellites)
    EXPECT_NE(sky.find("{\"PRN\":" + std::to_string(prn) + ",\"el\":0,\"az\":0,\"ss\":30" + system), std::string::npos)
        << sky;
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
  FixTrack track([&](const Fix& fix) { gpx.Add(fix); });
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

TEST(LiveView, ScreenShowsTheFixInPeoplesUnits) {
  const Reading reading{FullFix(), std::vector<GPSSatellite>(1, {12, 45, 77 * kPi / 180, 209 * kPi / 180}),
                        GPS_STATUS_RECEIVING};
  std::ostringstream out;
  TerminalView view(out, "title", [] { return 16; });
  EpochReport report;
  report.reading = reading;
  view.Show(report);
  view.Close();
  const std::string frame = out.str();
  for (const char* piece : {"receiving NMEA", "2024-05-14 10:00:05 UTC", "48.500000 N  11.250000 W",
                            "DGPS fix (quality 2), 9 satellites in use", "16.1 km/h", "90.0 deg true",
                            "   12    77   209   45  [######### ]"})
    EXPECT_NE(frame.find(piece), std::string::npos) << piece << " in\n" << frame;
}

}  // namespace
}  // namespace kavo::cli
