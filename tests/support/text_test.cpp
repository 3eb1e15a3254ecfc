// Wide-string helpers. The code-page converter is checked where text
// reaches a log file or comes from a port.
#include <gtest/gtest.h>

#include "support/wide_string.h"

namespace kavo {
namespace {

TEST(WideString, CaseFoldsAsciiAndLatin1LettersOnly) {
  // À..Þ lower by 0x20, except × (0xD7); ß, ÿ and non-Latin letters stay.
  EXPECT_EQ(ToLower(u"/dev/ttyUSB0 \u00C0\u00D7\u00DE\u00DF\u0100\u0416"),
            u"/dev/ttyusb0 \u00E0\u00D7\u00FE\u00DF\u0100\u0416");
  EXPECT_TRUE(EqualsIgnoreCase(u"Logger", u"LOGGER"));
  EXPECT_FALSE(EqualsIgnoreCase(u"Logger", u"Loggers"));
  EXPECT_FALSE(EqualsIgnoreCase(u"[", u"{"));  // 0x5B and 0x7B are not letters
}

TEST(WideString, Utf8RoundTripAndMalformedInput) {
  const std::string utf8 = "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x9B\xB0";  // a é € 🛰
  EXPECT_EQ(FromUtf8(utf8), u"a\u00E9\u20AC\U0001F6F0");
  EXPECT_EQ(ToUtf8(FromUtf8(utf8)), utf8);
  EXPECT_EQ(FromUtf8("x\xC3"), u"x\uFFFD");          // cut short
  EXPECT_EQ(FromUtf8("\xC0\xAF"), u"\uFFFD\uFFFD");  // overlong
  EXPECT_EQ(FromUtf8("\xED\xA0\x80"), u"\uFFFD");    // a surrogate
  EXPECT_EQ(ToUtf8(WideString(1, char16_t(0xD800))), "\xEF\xBF\xBD");
}

}  // namespace
}  // namespace kavo
