#include "support/ole_date.h"

#include <gtest/gtest.h>

#include <limits>
#include <vector>

namespace kavo {
namespace {

DateTimeParts Parts(int y, int mo, int d, int h = 0, int mi = 0, int s = 0) {
  DateTimeParts p;
  p.year = y, p.month = mo, p.day = d, p.hour = h, p.minute = mi, p.second = s;
  return p;
}

std::vector<int> Fields(const DateTimeParts& p) { return {p.year, p.month, p.day, p.hour, p.minute, p.second}; }

TEST(OleDate, InstantsConvertBothWays) {
  const struct {
    DateTimeParts parts;
    double date;
    bool fromParts;  // false: only splitting gives these parts
  } cases[] = {
      {Parts(1899, 12, 30), 0.0, true},
      {Parts(1899, 12, 31, 18), 1.75, true},
      {Parts(1900, 3, 1), 61.0, true},  // 1900 is no leap year in this calendar
      {Parts(2024, 2, 29, 6, 30, 15), 45351.0 + (6 * 3600 + 30 * 60 + 15) / 86400.0, true},
      {Parts(100, 1, 1), -657434.0, true},
      {Parts(9999, 12, 31, 23, 59, 59), 2958465.0 + 86399 / 86400.0, true},
      // Before the epoch the days count down but the time of day runs forward.
      {Parts(1899, 12, 29, 6), -1.25, true},
      {Parts(1899, 12, 28, 18), -2.75, true},
      {Parts(1899, 12, 30, 6), -0.25, false},
      // Splitting rounds to the nearest second, across midnight too.
      {Parts(2000, 1, 1, 0, 0, 2), 36526.0 + 1.6 / 86400.0, false},
      {Parts(2000, 1, 1), 36526.0 - 0.2 / 86400.0, false},
  };
  for (const auto& c : cases) {
    double date = std::numeric_limits<double>::quiet_NaN();
    if (c.fromParts) {
      EXPECT_TRUE(OleDateFromParts(c.parts, &date));
      EXPECT_NEAR(date, c.date, 1e-9) << c.parts.year << "-" << c.parts.month;
    }
    DateTimeParts split;
    ASSERT_TRUE(OleDateToParts(c.date, &split)) << c.date;
    EXPECT_EQ(Fields(split), Fields(c.parts)) << c.date;
  }
}

TEST(OleDate, RejectsWhatIsNotAnInstant) {
  for (const DateTimeParts& p : {Parts(99, 12, 31), Parts(10000, 1, 1), Parts(2023, 2, 29), Parts(1900, 2, 29),
                                 Parts(2024, 4, 31), Parts(2024, 0, 1), Parts(2024, 13, 1), Parts(2024, 1, 0),
                                 Parts(2024, 1, 1, 24), Parts(2024, 1, 1, 0, 60), Parts(2024, 1, 1, 0, 0, 60),
                                 Parts(2024, 1, 1, -1)}) {
    double date = 42.0;
    EXPECT_FALSE(OleDateFromParts(p, &date)) << p.year << "-" << p.month << "-" << p.day << " " << p.hour;
  }
  DateTimeParts out;
  for (double date : {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity(),
                      -657435.0, 2958466.0})
    EXPECT_FALSE(OleDateToParts(date, &out)) << date;

  platform::LocalTime t;  // milliseconds are dropped
  t.year = 2026, t.month = 11, t.day = 22, t.hour = 9, t.minute = 5, t.second = 7, t.milliseconds = 999;
  double expected = 0;
  ASSERT_TRUE(OleDateFromParts(Parts(2026, 11, 22, 9, 5, 7), &expected));
  EXPECT_EQ(OleDateFromLocalTime(t), expected);
}

}  // namespace
}  // namespace kavo
