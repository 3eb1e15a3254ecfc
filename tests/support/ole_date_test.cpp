// The library's use of the shared calendar: whole seconds. The years it
// takes are checked where dates are read.
#include "support/ole_date.h"

#include <gtest/gtest.h>

namespace kavo {
namespace {

TEST(OleDate, SplitsIntoWholeSeconds) {
  DateTimeParts parts;
  ASSERT_TRUE(OleDateToParts(36526.0 + 1.6 / 86400.0, &parts));
  EXPECT_EQ(parts.second, 2);
  EXPECT_EQ(parts.millisecond, 0);
}

}  // namespace
}  // namespace kavo
