// Number conversion and the sentence parsers, fed through the store.
#include <clocale>
#include <limits>
#include <tuple>

#include "nmea/number_conversion.h"
#include "nmea_test_support.h"

namespace kavo::test {
namespace {

const std::string kWorkedGga = "$GPGGA,123519,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,*47";

using nmea::ParseDouble;
using nmea::ParseInteger;
using ParsersTest = StoreTest;

TEST(ParseDouble, ReadsTheDecimalFormsOnly) {
  const double inf = std::numeric_limits<double>::infinity();
  const struct {
    const char16_t* text;
    double value;  // the compiler's reading of the same literal is the reference
    size_t used;
  } cases[] = {
      {u"4807.038", 4807.038, 8},
      {u" \t\r\n\v\f-0.5", -0.5, 10},
      {u"-0", -0.0, 2},
      {u"1E-3x", 1e-3, 4},
      {u"1e+", 1.0, 1},
      {u".5", 0.5, 2},
      {u"5.", 5.0, 2},
      {u"9007199254740993", 9007199254740992.0, 16},  // halfway: ties to even
      {u"1e400", inf, 5},
      {u"-1e-400", -0.0, 7},
      {u"1\u00b2", 1.0, 1},  // a non-ASCII unit ends the number
      // What a receiver never sends is no number, or ends at the "0".
      {u"0x1.8p3", 0.0, 1},
      {u"-0X10", -0.0, 2},
      {u"inf", 0.0, 0},
      {u"-Infinity", 0.0, 0},
      {u"nan", 0.0, 0},
      {u"NaN(123)", 0.0, 0},
      {u"", 0.0, 0},
      {u"+-1", 0.0, 0},
      {u".", 0.0, 0},
      {u"e5", 0.0, 0},
      {u"\u00a01", 0.0, 0},
  };
  for (const auto& c : cases) {
    double value = -7.0;
    EXPECT_EQ(ParseDouble(c.text, &value), c.used) << ToUtf8(c.text);
    EXPECT_TRUE(SameBits(&value, &c.value, sizeof value)) << ToUtf8(c.text) << " gave " << value;
  }
}

TEST(ParseInteger, TakesLeadingDigitsAndSaturates) {
  const std::pair<const char16_t*, int32_t> cases[] = {{u"08", 8},
                                                       {u" -12x", -12},
                                                       {u"", 0},
                                                       {u"x1", 0},
                                                       {u"1.9", 1},
                                                       {u"0x10", 0},
                                                       {u"- 1", 0},
                                                       {u"2147483648", INT32_MAX},
                                                       {u"-99999999999999999999", INT32_MIN}};
  for (const auto& [text, expected] : cases) EXPECT_EQ(ParseInteger(text), expected) << ToUtf8(text);
}

// A process that runs in a comma-decimal language must read receivers the
// same way.
TEST(CommaDecimalLocale, ChangesNothing) {
  const std::string previous = std::setlocale(LC_ALL, nullptr);
  if (!std::setlocale(LC_ALL, "de_DE.UTF-8")) GTEST_SKIP() << "locale de_DE.UTF-8 is not installed";
  double value = 0;
  EXPECT_EQ(ParseDouble(u"4807.038", &value), 8u);
  EXPECT_EQ(value, 4807.038);
  EXPECT_EQ(ParseDouble(u"4807,038", &value), 4u);
  std::setlocale(LC_ALL, previous.c_str());
}

TEST_F(ParsersTest, HemispheresAndFixQualities) {
  // Only "N" and "E" are positive; quality 0 and 2 to 8 are kept, the rest is 1.
  const std::tuple<const char*, bool, const char*, int32_t> cases[] = {
      {"N", true, "0", 0},  {"E", true, "2", 2}, {"S", false, "8", 8},   {"s", false, "9", 1},
      {"", false, "-3", 1}, {"n", false, "", 0}, {"N ", false, "4x", 4}, {"W", false, "1", 1}};
  for (const auto& [hemisphere, positive, quality, expected] : cases) {
    Feed({std::string("$GPGGA,123519,4807.038,") + hemisphere + ",01131.000," + hemisphere + "," + quality +
          ",08,0.9,545.4,M,46.9,M,,"});
    EXPECT_EQ(Location().Latitude, positive ? k4807_038 : -k4807_038) << '"' << hemisphere << '"';
    EXPECT_EQ(Location().Longitude, positive ? k1131_000 : -k1131_000) << '"' << hemisphere << '"';
    EXPECT_EQ(Location().FixQuality, expected) << quality;
  }
}

TEST_F(ParsersTest, RmcDatesPivotAt1971) {
  Feed({"$GPRMC,123519,A,4807.038,N,01131.000,E,022.4,084.4,230394,003.1,W*6A"});
  EXPECT_EQ(Location().Time, OleDate(34416, 12, 35, 19));  // 23 March 1994
  Feed({"$GPRMC,000000,A,4807.038,N,01131.000,E,,,230370,,*6A"});
  EXPECT_EQ(Location().Time, OleDate(62175, 0, 0, 0));  // 23 March 2070
}

// Damage reads as 0, quietly: PDOP must be a number to its end, HDOP and
// VDOP need only begin with one (no checksum leaves the line end on VDOP).
TEST_F(ParsersTest, GsaReadsDamagedDilutionsAsZero) {
  const std::tuple<const char*, double, double, double> cases[] = {
      {",1.3x,2.1", 0.0, 1.3, 2.1}, {"2.5,x1.3,nan", 2.5, 0.0, 0.0}, {"x,,", 0.0, 0.0, 0.0}};
  for (const auto& [dops, pdop, hdop, vdop] : cases) {
    Feed({std::string("$GPGSA,A,3,04,05,,09,12,,,24,,,,,") + dops});
    EXPECT_EQ(std::make_tuple(Location().PDOP, Location().HDOP, Location().VDOP), std::make_tuple(pdop, hdop, vdop))
        << dops;
  }
  EXPECT_FALSE(log_.Contains(u"Exception"));
}

std::string Gsv(int total, int number, const std::string& blocks) {
  return "$GPGSV," + std::to_string(total) + "," + std::to_string(number) + ",09" + blocks + "*70";
}

TEST_F(ParsersTest, GsvCyclesArePublishedOnTheirLastMessageAndStampedWhenTheSkyChanges) {
  const std::string first = Gsv(3, 1, ",01,40,083,46,02,17,308,41,12,07,344,39,14,22,228,45");
  const std::string second = Gsv(3, 2, ",15,61,102,,18,35,190,48,21,03,010,,24,50,275,43");
  Feed({first, second});
  EXPECT_EQ(Satellites().Count, 0);
  clock_.SetLocalTime({2026, 11, 0, 22, 9, 30, 15, 999});  // stamped to the whole second
  Feed({Gsv(3, 3, ",25,28,045,36")});                      // short last message
  ASSERT_EQ(Satellites().Count, 9);
  EXPECT_EQ(store_.UpdateMask(), GPS_CHANGED_SATELLITES);
  EXPECT_EQ(Satellites().Time, OleDate(kToday, 9, 30, 15));
  // Same satellites, one new SNR: the entry is refreshed, the time is not.
  clock_.SetLocalTime({2026, 11, 0, 22, 9, 31, 0, 0});
  Feed({first, second, Gsv(3, 3, ",25,28,045,37")});
  EXPECT_EQ(Satellites().Satellites[8].SNR, 37);
  EXPECT_EQ(Satellites().Time, OleDate(kToday, 9, 30, 15));
  // A different count replaces the table and its time.
  Feed({Gsv(1, 1, ",01,40,083,46,02,17,308,41")});
  EXPECT_EQ(Satellites().Count, 2);
  EXPECT_EQ(Satellites().Time, OleDate(kToday, 9, 31, 0));
  // Only the first twelve are kept.
  std::vector<std::string> cycle;
  for (int message = 1; message <= 4; ++message) {
    std::string blocks;
    for (int i = 0; i < 4; ++i) blocks += "," + std::to_string(message * 10 + i) + ",10,100,30";
    cycle.push_back(Gsv(4, message, blocks));
  }
  Feed({cycle});
  ASSERT_EQ(Satellites().Count, 12);
  EXPECT_EQ(Satellites().Satellites[11].PRN, 33);
}

TEST_F(ParsersTest, RejectedFieldsAreLoggedOnOneLineAndKeepEarlierValues) {
  Feed({kWorkedGga});
  const GPSLocation before = Location();
  const char* rejected[] = {
      "$GPGGA,240000,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,",  // hour 24
      "$GPGGA,126019,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,",  // minute 60
      "$GPGGA,123560,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,",  // second 60
      "$GPGGA,123519,48o7.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,",
      "$GPGGA,123519,4807.038,N,01131.000,E,1,08,0.9x,545.4,M,46.9,M,,",  // after a number
      "$GPGGA,123519,4807.038,N,01131.000,E,1,8 ,0.9,545.4,M,46.9,M,,",
      "$GPGGA,123519,4807.038,N,01131.000,E,1,08,0.9,nan,M,46.9,M,,",  // no NaN, inf or hex
      "$GPGGA,123519,4807.038,N,01131.000,E,1,08,inf,545.4,M,46.9,M,,",
      "$GPGGA,123519,4807.038,N,01131.000,E,1,08,0.9,545.4,M,0x2e,M,,",
      "$GPRMC,123519,A,4807.038,N,01131.000,E,022.4,084.4,320394,,",  // day 32
      "$GPRMC,123519,A,4807.038,N,01131.000,E,022.4,084.4,231394,,",  // month 13
      "$GPRMC,1235,A,4807.038,N,01131.000,E,022.4,084.4,230394,,",    // time too short
      "$GPRMC,123519,A,4807.038,N,01131.000,E,022.4,084.4,300294,,",  // 30 February
      "$GPVTG,05x,T,034.4,M,005.5,N,010.2,K",
      "$GPVTG,054.7,T,034.4,M,005.5",  // the carriage return ends the last field
  };
  for (const char* sentence : rejected) {
    LogCapture log;
    EXPECT_EQ(Feed({sentence}), 1) << sentence;
    EXPECT_TRUE(Recognised().empty()) << sentence;
    EXPECT_EQ(log.Text().rfind(u"Exception on parsing: ", 0), 0u) << log.Utf8();
    EXPECT_EQ(log.Text().find_first_of(u"\r\n"), log.Text().size() - 1) << log.Utf8();
    EXPECT_TRUE(SameBits(&Location(), &before, sizeof before)) << sentence;
  }
}

TEST_F(ParsersTest, OverlongFieldsEndTheSentenceQuietly) {
  const std::string lat19 = "4807.03800000000000";  // the most a coordinate may have
  Feed({"$GPGGA,123519," + lat19 + ",N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,"});
  const GPSLocation before = Location();
  EXPECT_EQ(before.Latitude, k4807_038);
  for (const std::string& sentence :
       {std::string("$GPGGA,123519,000000000004807.0390,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,"),  // one too many
        "$GPGGA,123519,4807.038,N,01131.000,E,1,08," + std::string(256, '1') + ",545.4,M,46.9,M,,",
        std::string("$GPRMC,123520.0000000000000,A,4807.038,N,01131.000,E,022.4,084.4,230394,,")}) {
    Feed({sentence});
    EXPECT_EQ(Recognised().size(), 1u);  // the parser ran
    EXPECT_TRUE(SameBits(&Location(), &before, sizeof before)) << sentence.substr(0, 40);
  }
  EXPECT_EQ(log_.Text(), u"");
}

}  // namespace
}  // namespace kavo::test
