#include <clocale>
#include <cstring>
#include <limits>
#include <string>

#include "nmea/number_conversion.h"
#include "nmea_test_support.h"

namespace kavo::test {
namespace {

using nmea::ParseDouble;
using nmea::ParseInteger;

uint64_t Bits(double value) {
  uint64_t bits;
  std::memcpy(&bits, &value, sizeof bits);
  return bits;
}

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
    EXPECT_EQ(Bits(value), Bits(c.value)) << ToUtf8(c.text) << " gave " << value;
  }
}

TEST(ParseInteger, TakesLeadingDigitsAndSaturates) {
  const std::pair<const char16_t*, int32_t> cases[] = {
      {u"08", 8}, {u" -12x", -12}, {u"", 0}, {u"x1", 0}, {u"1.9", 1}, {u"0x10", 0}, {u"- 1", 0},
      {u"2147483648", INT32_MAX}, {u"-99999999999999999999", INT32_MIN}};
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

}  // namespace
}  // namespace kavo::test
