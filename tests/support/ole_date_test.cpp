// The library's use of the shared calendar: whole seconds, the years 100 to
// 9999.
#include "support/ole_date.h"

#include <gtest/gtest.h>

namespace kavo {
namespace {

TEST(OleDate, KeepsWholeSecondsOfTheYears100To9999) {
  double date = 42.0;
  EXPECT_FALSE(OleDateFromParts(DateTimeParts{99, 12, 31}, &date));  // valid to the calendar itself
  EXPECT_EQ(date, 42.0);
  ASSERT_TRUE(OleDateFromParts(DateTimeParts{100, 1, 1}, &date));
  EXPECT_EQ(date, -657434.0);

  DateTimeParts parts;
  ASSERT_TRUE(OleDateToParts(36526.0 + 1.6 / 86400.0, &parts));
  EXPECT_EQ(parts.second, 2);
  EXPECT_EQ(parts.millisecond, 0);
}

}  // namespace
}  // namespace kavo
