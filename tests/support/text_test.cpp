// Wide-string helpers and the code-page text converter.
#include <gtest/gtest.h>

#include "support/text_converter.h"
#include "support/wide_string.h"

namespace kavo {
namespace {

TEST(WideString, LengthAndTruncatingCopy) {
  EXPECT_EQ(WideLength(nullptr), 0u);
  EXPECT_EQ(WideLength(u""), 0u);
  EXPECT_EQ(WideLength(u"com3:"), 5u);

  char16_t buffer[6];
  for (auto& c : buffer) c = u'#';
  EXPECT_EQ(CopyTruncated(buffer, 5, u"abcdefgh"), 5u);
  EXPECT_EQ(WideString(buffer), u"abcde");
  EXPECT_EQ(CopyTruncated(buffer, 5, u"ab"), 2u);
  EXPECT_EQ(WideString(buffer), u"ab");
  EXPECT_EQ(CopyTruncated(buffer, 5, nullptr), 0u);
  EXPECT_EQ(buffer[0], 0);
}

TEST(WideString, LowerCasesAsciiAndLatin1LettersOnly) {
  EXPECT_EQ(ToLower(u"COM12:"), u"com12:");
  EXPECT_EQ(ToLower(u"/dev/ttyUSB0"), u"/dev/ttyusb0");
  // À..Þ lower by 0x20, except × (0xD7); ß, ÿ and non-Latin letters stay.
  EXPECT_EQ(ToLower(u"\u00C0\u00D7\u00DE\u00DF\u0100\u0416"), u"\u00E0\u00D7\u00FE\u00DF\u0100\u0416");
  char16_t name[] = u"GPS-PORT\u00C9";
  ToLowerInPlace(name);
  EXPECT_EQ(WideString(name), u"gps-port\u00E9");
  ToLowerInPlace(nullptr);

  EXPECT_TRUE(EqualsIgnoreCase(u"Logger", u"LOGGER"));
  EXPECT_FALSE(EqualsIgnoreCase(u"Logger", u"Loggers"));
  EXPECT_FALSE(EqualsIgnoreCase(u"[", u"{"));  // 0x5B and 0x7B are not letters
  EXPECT_TRUE(Contains(u"$GPGGA,1", u"$GP"));
  EXPECT_FALSE(Contains(u"$GNGGA", u"$GP"));
}

TEST(WideString, Utf8RoundTripAndMalformedInput) {
  const std::string utf8 = "a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x9B\xB0";  // a é € 🛰
  const WideString wide = FromUtf8(utf8);
  EXPECT_EQ(wide, u"a\u00E9\u20AC\U0001F6F0");
  EXPECT_EQ(ToUtf8(wide), utf8);
  EXPECT_EQ(FromUtf8("x\xC3"), u"x\uFFFD");           // cut short
  EXPECT_EQ(FromUtf8("\xC0\xAF"), u"\uFFFD\uFFFD");   // overlong
  EXPECT_EQ(FromUtf8("\xED\xA0\x80"), u"\uFFFD");     // a surrogate
  EXPECT_EQ(ToUtf8(WideString(1, char16_t(0xD800))), "\xEF\xBF\xBD");  // lone surrogate
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
  const uint8_t want[] = {'G', 'r', 0xFC, 0xDF, 'e', ' ', '?', '?', '!'};
  for (size_t i = 0; i < 9; ++i) EXPECT_EQ(out[i], want[i]) << i;
  EXPECT_EQ(converter.WideToBytes(text, 0, out), 0u);
}

TEST(TextConverter, DecodesOneUtf8Sequence) {
  const TextConverter converter;
  char16_t out[2] = {};
  const uint8_t two[] = {0xC3, 0xA9}, three[] = {0xE2, 0x82, 0xAC}, four[] = {0xF0, 0x9F, 0x9B, 0xB0};
  ASSERT_EQ(converter.Utf8SequenceToWide(two, 2, out), 1u);
  EXPECT_EQ(out[0], 0xE9);
  ASSERT_EQ(converter.Utf8SequenceToWide(three, 3, out), 1u);
  EXPECT_EQ(out[0], 0x20AC);
  ASSERT_EQ(converter.Utf8SequenceToWide(four, 4, out), 2u);
  EXPECT_EQ(out[0], 0xD83D);
  EXPECT_EQ(out[1], 0xDEF0);
  const uint8_t broken[] = {0xE2, 0x41, 0x41};
  ASSERT_EQ(converter.Utf8SequenceToWide(broken, 3, out), 1u);
  EXPECT_EQ(out[0], 0xFFFD);
}

}  // namespace
}  // namespace kavo
