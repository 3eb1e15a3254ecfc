#include "support/ole_date.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace kavo {
namespace {

DateTimeParts Parts(int y, int mo, int d, int h = 0, int mi = 0, int s = 0) {
  DateTimeParts p;
  p.year = y, p.month = mo, p.day = d, p.hour = h, p.minute = mi, p.second = s;
  return p;
}

double Date(const DateTimeParts& p) {
  double date = std::numeric_limits<double>::quiet_NaN();
  EXPECT_TRUE(OleDateFromParts(p, &date));
  return date;
}

void ExpectParts(double date, const DateTimeParts& want) {
  DateTimeParts got;
  ASSERT_TRUE(OleDateToParts(date, &got)) << date;
  EXPECT_EQ(got.year, want.year) << date;
  EXPECT_EQ(got.month, want.month) << date;
  EXPECT_EQ(got.day, want.day) << date;
  EXPECT_EQ(got.hour, want.hour) << date;
  EXPECT_EQ(got.minute, want.minute) << date;
  EXPECT_EQ(got.second, want.second) << date;
}

TEST(OleDate, KnownInstantsBothWays) {
  struct Case { DateTimeParts parts; double date; } cases[] = {
      {Parts(1899, 12, 30), 0.0},
      {Parts(1899, 12, 31, 18), 1.75},
      {Parts(1900, 1, 1), 2.0},
      {Parts(1900, 3, 1), 61.0},  // 1900 is no leap year in this calendar
      {Parts(2000, 1, 1, 12), 36526.5},
      {Parts(2024, 2, 29, 6, 30, 15), 45351.0 + (6 * 3600 + 30 * 60 + 15) / 86400.0},
      {Parts(100, 1, 1), -657434.0},
      {Parts(9999, 12, 31, 23, 59, 59), 2958465.0 + 86399 / 86400.0},
  };
  for (const auto& c : cases) {
    EXPECT_NEAR(Date(c.parts), c.date, 1e-9) << c.parts.year << "-" << c.parts.month;
    ExpectParts(c.date, c.parts);
  }
}

// Before the epoch the whole days count down but the time of day still runs
// forward: 29 December 1899 06:00 is -1.25, not -0.75.
TEST(OleDate, BeforeTheEpochTheFractionCountsAwayFromZero) {
  EXPECT_NEAR(Date(Parts(1899, 12, 29, 6)), -1.25, 1e-12);
  EXPECT_NEAR(Date(Parts(1899, 12, 28, 18)), -2.75, 1e-12);
  ExpectParts(-1.25, Parts(1899, 12, 29, 6));
  ExpectParts(-2.75, Parts(1899, 12, 28, 18));
  // Between -1 and 0 the day is still the epoch's.
  ExpectParts(-0.25, Parts(1899, 12, 30, 6));
}

TEST(OleDate, RejectsWhatIsNotAnInstant) {
  const DateTimeParts bad[] = {
      Parts(99, 12, 31),  Parts(10000, 1, 1),  Parts(2023, 2, 29), Parts(1900, 2, 29),
      Parts(2024, 4, 31), Parts(2024, 0, 1),   Parts(2024, 13, 1), Parts(2024, 1, 0),
      Parts(2024, 1, 1, 24), Parts(2024, 1, 1, 0, 60), Parts(2024, 1, 1, 0, 0, 60),
      Parts(2024, 1, 1, -1),
  };
  for (const auto& p : bad) {
    double date = 42.0;
    EXPECT_FALSE(OleDateFromParts(p, &date)) << p.year << "-" << p.month << "-" << p.day << " " << p.hour;
  }
  double leap = 0;
  EXPECT_TRUE(OleDateFromParts(Parts(2000, 2, 29), &leap));

  DateTimeParts out;
  EXPECT_FALSE(OleDateToParts(std::numeric_limits<double>::quiet_NaN(), &out));
  EXPECT_FALSE(OleDateToParts(std::numeric_limits<double>::infinity(), &out));
  EXPECT_FALSE(OleDateToParts(-657435.0, &out));
  EXPECT_FALSE(OleDateToParts(2958466.0, &out));
}

TEST(OleDate, SplittingRoundsToTheNearestSecondAcrossMidnight) {
  ExpectParts(36526.0 + 0.4 / 86400.0, Parts(2000, 1, 1));
  ExpectParts(36526.0 + 1.6 / 86400.0, Parts(2000, 1, 1, 0, 0, 2));
  ExpectParts(36526.0 - 0.2 / 86400.0, Parts(2000, 1, 1));  // 23:59:59.8 rounds up
}

TEST(OleDate, LocalTimeDropsTheMilliseconds) {
  platform::LocalTime t;
  t.year = 2026, t.month = 11, t.day = 22, t.hour = 9, t.minute = 5, t.second = 7, t.milliseconds = 999;
  EXPECT_NEAR(OleDateFromLocalTime(t), Date(Parts(2026, 11, 22, 9, 5, 7)), 1e-12);
}

}  // namespace
}  // namespace kavo
