#include <clocale>
#include <cmath>
#include <cstdint>
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

struct DoubleCase {
  const char16_t* text;
  double value;  // the compiler's reading of the same literal is the reference
  size_t used;
};

TEST(ParseDouble, ConvertsWhatTheCLibraryConverts) {
  const double inf = std::numeric_limits<double>::infinity();
  const DoubleCase cases[] = {
      {u"4807.038", 4807.038, 8},
      {u" \t\r\n\v\f-0.5", -0.5, 10},
      {u"+1", 1.0, 2},
      {u"-0", -0.0, 2},
      {u"1E-3x", 1e-3, 4},
      {u"1e", 1.0, 1},
      {u"1e+", 1.0, 1},
      {u".5", 0.5, 2},
      {u"5.", 5.0, 2},
      {u"9007199254740993", 9007199254740992.0, 16},  // halfway: ties to even
      {u"0.1000000000000000055511151231257827021181583404541015625", 0.1, 57},
      {u"0x1.8p3", 0x1.8p3, 7},
      {u"-0X.8P1", -1.0, 7},
      {u"0x", 0.0, 1},  // the "0" alone
      {u"0xg", 0.0, 1},
      {u"0x1p", 1.0, 3},
      {u"inf", inf, 3},
      {u"-Infinity", -inf, 9},
      {u"INFINIT", inf, 3},
      {u"1e400", inf, 5},
      {u"-1e400", -inf, 6},
      {u"0x1p1024", inf, 8},
      {u"1e-400", 0.0, 6},
      {u"-0x1p-1080", -0.0, 10},
      {u"4.9e-324", 4.9e-324, 8},
      {u"0x1.8p-1074", 0x1p-1073, 11},
      {u"1\u00b2", 1.0, 1},  // a non-ASCII unit ends the number
  };
  for (const DoubleCase& c : cases) {
    double value = -7.0;
    EXPECT_EQ(ParseDouble(c.text, &value), c.used) << ToUtf8(c.text);
    EXPECT_EQ(Bits(value), Bits(c.value)) << ToUtf8(c.text) << " gave " << value;
  }
}

TEST(ParseDouble, RejectsWhatIsNoNumber) {
  for (const char16_t* text : {u"", u"-", u"+-1", u"--1", u".", u"e5", u"  ", u"x1", u"in",
                               u"\u00a01", u"\u20031", u"0x-1", u"0xnan(1)", u"-0xinf"}) {
    double value = -7.0;
    const size_t used = ParseDouble(text, &value);
    // After "0x" only hex digits count: the rest reads as the 0 before it.
    const size_t zero = WideView(text).find(u"0x");
    EXPECT_EQ(used, zero == WideView::npos ? 0u : zero + 1) << ToUtf8(text);
    EXPECT_EQ(Bits(value), Bits(WideView(text)[0] == u'-' && zero != WideView::npos ? -0.0 : 0.0))
        << ToUtf8(text);
  }
}

TEST(ParseDouble, NotANumberKeepsSignAndPayload) {
  double value = 0;
  EXPECT_EQ(ParseDouble(u"nan", &value), 3u);
  EXPECT_EQ(Bits(value), 0x7ff8000000000000u);
  EXPECT_EQ(ParseDouble(u"-NaN", &value), 4u);
  EXPECT_EQ(Bits(value), 0xfff8000000000000u);
  EXPECT_EQ(ParseDouble(u"nan(123)", &value), 8u);
  EXPECT_EQ(Bits(value), 0x7ff800000000007bu);
  EXPECT_EQ(ParseDouble(u"nan(0x10)", &value), 9u);
  EXPECT_EQ(Bits(value), 0x7ff8000000000010u);
  EXPECT_EQ(ParseDouble(u"nan(017)", &value), 8u);  // octal, as the C library reads it
  EXPECT_EQ(Bits(value), 0x7ff800000000000fu);
  EXPECT_EQ(ParseDouble(u"nan(1x_)", &value), 8u);  // not a number: plain NaN
  EXPECT_EQ(Bits(value), 0x7ff8000000000000u);
  EXPECT_EQ(ParseDouble(u"nan(abc", &value), 3u);  // unclosed: "nan" alone
}

TEST(ParseInteger, TakesLeadingDigitsAndSaturates) {
  const std::pair<const char16_t*, int32_t> cases[] = {
      {u"08", 8},           {u" -12x", -12},      {u"+7", 7},
      {u"", 0},             {u"x1", 0},           {u"1.9", 1},
      {u"0x10", 0},         {u"- 1", 0},          {u"2147483647", 2147483647},
      {u"2147483648", std::numeric_limits<int32_t>::max()},
      {u"-2147483648", std::numeric_limits<int32_t>::min()},
      {u"-99999999999999999999", std::numeric_limits<int32_t>::min()},
  };
  for (const auto& [text, expected] : cases) EXPECT_EQ(ParseInteger(text), expected) << ToUtf8(text);
}

// A process that runs in a comma-decimal language must read receivers the
// same way.
class CommaDecimalLocale : public StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    const char* previous = std::setlocale(LC_ALL, nullptr);
    previous_ = previous ? previous : "C";
    if (!std::setlocale(LC_ALL, "de_DE.UTF-8"))
      GTEST_SKIP() << "locale de_DE.UTF-8 is not installed (localedef -i de_DE -f UTF-8 de_DE.UTF-8)";
  }
  void TearDown() override { std::setlocale(LC_ALL, previous_.c_str()); }
  std::string previous_;
};

TEST_F(CommaDecimalLocale, ChangesNothing) {
  double value = 0;
  EXPECT_EQ(ParseDouble(u"4807.038", &value), 8u);
  EXPECT_EQ(value, 4807.038);
  EXPECT_EQ(ParseDouble(u"4807,038", &value), 4u);
  Feed("$GPGGA,123519,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,*47");
  EXPECT_EQ(Location().Latitude, Degrees(4807.038));
  EXPECT_EQ(Location().HDOP, 0.9);
  EXPECT_EQ(Location().Altitude, 545.4);
}

}  // namespace
}  // namespace kavo::test
