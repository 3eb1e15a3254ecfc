#include "civil_calendar.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>

namespace kavo::calendar {
namespace {

std::string Text(const CivilTime& t) {
  char text[48];
  std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d.%03d", t.year, t.month, t.day, t.hour, t.minute,
                t.second, t.millisecond);
  return text;
}

std::string Split(double date, int64_t resolutionMs = 1) {
  CivilTime t;
  return CivilFromOleDate(date, &t, resolutionMs) ? Text(t) : "invalid";
}

TEST(CivilCalendar, KnownInstantsBothWays) {
  struct Case {
    CivilTime time;
    double date;
  } cases[] = {
      {{1899, 12, 30}, 0.0},
      {{1900, 1, 1}, 2.0},
      {{1900, 3, 1}, 61.0},     // 1900 is no leap year
      {{2000, 3, 1}, 36586.0},  // 2000 is
      {{2024, 2, 29, 6, 30, 15}, 45351.0 + (6 * 3600 + 30 * 60 + 15) / 86400.0},
      {{2024, 5, 14, 10, 0, 5, 250}, 45426.0 + 36005.25 / 86400.0},
      {{100, 1, 1}, -657434.0},
      {{9999, 12, 31, 23, 59, 59}, 2958465.0 + 86399 / 86400.0},
  };
  for (const auto& c : cases) {
    EXPECT_TRUE(IsValid(c.time)) << Text(c.time);
    EXPECT_NEAR(OleDateFromCivil(c.time), c.date, 1e-9) << Text(c.time);
    EXPECT_EQ(Split(c.date), Text(c.time)) << c.date;
  }
}

TEST(CivilCalendar, RejectsWhatIsNotAnInstant) {
  const CivilTime bad[] = {
      {0, 12, 31},      {10000, 1, 1},       {2023, 2, 29},          {1900, 2, 29},
      {2024, 4, 31},    {2024, 0, 1},        {2024, 13, 1},          {2024, 1, 0},
      {2024, 1, 1, 24}, {2024, 1, 1, 0, 60}, {2024, 1, 1, 0, 0, 60}, {2024, 1, 1, 0, 0, 0, 1000},
  };
  for (const auto& t : bad) EXPECT_FALSE(IsValid(t)) << Text(t);
  for (double date : {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity(), -657435.0,
                      2958466.0, 2958466.0 - 1e-11}) {
    EXPECT_EQ(Split(date), "invalid") << date;  // the last rounds into the year 10000
  }
}

TEST(CivilCalendar, SplittingRoundsToTheResolutionAcrossMidnight) {
  const double jan1 = 36526.0, second = 1.0 / 86400.0;
  EXPECT_EQ(Split(jan1 + 0.4 * second, 1000), "2000-01-01 00:00:00.000");
  EXPECT_EQ(Split(jan1 + 1.6 * second, 1000), "2000-01-01 00:00:02.000");
  EXPECT_EQ(Split(jan1 - 0.2 * second, 1000), "2000-01-01 00:00:00.000");  // 23:59:59.8
  EXPECT_EQ(Split(jan1 + 1.6 * second), "2000-01-01 00:00:01.600");
  EXPECT_EQ(Split(jan1 - 1e-10), "2000-01-01 00:00:00.000");  // never 24:00:00
}

TEST(CivilCalendar, AddingMillisecondsCrossesDaysMonthsAndYears) {
  struct Case {
    CivilTime from;
    uint64_t ms;
    const char* want;
  } cases[] = {
      {{2024, 12, 31, 23, 59, 30, 500}, 30000, "2025-01-01 00:00:00.500"},
      {{2024, 2, 28, 12}, 86400000, "2024-02-29 12:00:00.000"},
      {{2023, 2, 28, 12}, 86400000, "2023-03-01 12:00:00.000"},
      {{1999, 6, 1, 0, 0, 0, 999}, 1, "1999-06-01 00:00:01.000"},
      {{2000, 1, 1}, 146097ull * 86400000, "2400-01-01 00:00:00.000"},  // 400 years
      {{2024, 5, 14, 10}, 0, "2024-05-14 10:00:00.000"},
  };
  for (const auto& c : cases) EXPECT_EQ(Text(AddMilliseconds(c.from, c.ms)), c.want) << Text(c.from);
}

}  // namespace
}  // namespace kavo::calendar
