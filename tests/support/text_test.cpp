// Wide-string helpers and the code-page text converter.
#include <gtest/gtest.h>

#include "support/text_converter.h"
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
  char16_t buffer[6];
  EXPECT_EQ(CopyTruncated(buffer, 5, u"abcdefgh"), 5u);
  EXPECT_EQ(WideString(buffer), u"abcde");
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

TEST(TextConverter, OneByteForOneUnitWithQuestionMarkForTheUnsayable) {
  const TextConverter converter;
  const uint8_t bytes[] = {'$', 'G', 'P', 0xE9, 0xFC, 0x0D, 0x0A};
  char16_t wide[sizeof bytes];
  ASSERT_EQ(converter.BytesToWide(bytes, sizeof bytes, wide), sizeof bytes);
  EXPECT_EQ(WideString(wide, sizeof bytes), u"$GP\u00E9\u00FC\r\n");
  const char16_t text[] = u"Gr\u00FC\u00DFe \u4E2D\u0100!";
  uint8_t out[9] = {};
  ASSERT_EQ(converter.WideToBytes(text, 9, out), 9u);
  EXPECT_EQ(std::string(out, out + 9), "Gr\xFC\xDF" "e ?" "?!");
}

}  // namespace
}  // namespace kavo
