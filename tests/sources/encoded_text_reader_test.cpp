#include "sources/encoded_text_reader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "common/temp_dir.h"
#include "support/error.h"

namespace kavo {
namespace {

using test::TempDir;
using namespace std::string_literals;

// A recording with one Latin-1 letter, so that every encoding must agree on
// more than ASCII.
const std::u16string kRecording =
    u"$GPGGA,123519,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,*47\r\n"
    u"$GPRMC,123519,A,4807.038,N,01131.000,E,022.4,084.4,230394,003.1,W*6A\r\n"
    u"caf\u00E9\r\n";

std::string Latin1(const std::u16string& text) {
  std::string out;
  for (char16_t c : text) out += static_cast<char>(c);
  return out;
}

std::string Utf16(const std::u16string& text, bool bigEndian) {
  std::string out = bigEndian ? "\xFE\xFF" : "\xFF\xFE";
  for (char16_t c : text) {
    const char high = static_cast<char>(c >> 8), low = static_cast<char>(c & 0xFF);
    out += bigEndian ? std::string{high, low} : std::string{low, high};
  }
  return out;
}

std::vector<std::u16string> Lines(EncodedTextReader& reader, uint32_t capacity = 256) {
  std::vector<std::u16string> lines;
  std::vector<char16_t> buffer(capacity + 1, u'#');
  while (reader.ReadLine(buffer.data(), capacity)) lines.emplace_back(buffer.data());
  return lines;
}

std::vector<std::u16string> LinesOf(const TempDir& dir, const std::string& bytes,
                                    uint32_t capacity = 256) {
  dir.Write("f.nmea", bytes);
  EncodedTextReader reader;
  reader.Open(dir.WideFile("f.nmea"));
  return Lines(reader, capacity);
}

std::u16string CharsOf(const TempDir& dir, const std::string& bytes) {
  dir.Write("c.txt", bytes);
  EncodedTextReader reader;
  reader.Open(dir.WideFile("c.txt"));
  std::u16string out;
  char16_t c = 0;
  while (reader.ReadChar(&c)) out += c;
  return out;
}

TEST(EncodedTextReader, EveryEncodingYieldsTheSameLines) {
  TempDir dir;
  const std::vector<std::u16string> expected = {
      u"$GPGGA,123519,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,*47\n",
      u"$GPRMC,123519,A,4807.038,N,01131.000,E,022.4,084.4,230394,003.1,W*6A\n",
      u"caf\u00E9\n"};
  struct Case {
    const char* name;
    std::string bytes;
    EncodedTextReader::Encoding encoding;
  };
  const Case cases[] = {
      {"bytes", Latin1(kRecording), EncodedTextReader::kCodePage},
      {"utf-8", "\xEF\xBB\xBF" + Latin1(kRecording).replace(Latin1(kRecording).size() - 3, 1, "\xC3\xA9"),
       EncodedTextReader::kUtf8},
      {"utf-16le", Utf16(kRecording, false), EncodedTextReader::kUtf16LittleEndian},
      {"utf-16be", Utf16(kRecording, true), EncodedTextReader::kUtf16BigEndian},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    dir.Write("r.nmea", c.bytes);
    EncodedTextReader reader;
    reader.Open(dir.WideFile("r.nmea"));
    EXPECT_EQ(reader.GetEncoding(), c.encoding);
    EXPECT_EQ(Lines(reader), expected);
    // Rewinding starts after the byte-order mark, never on it.
    reader.Rewind();
    EXPECT_EQ(Lines(reader), expected);
  }
}

TEST(EncodedTextReader, ByteOrderMarksThatAreNotQuiteOneAreText) {
  TempDir dir;
  EXPECT_EQ(CharsOf(dir, "\xEF\xBB" "A"), u"\u00EF\u00BB" u"A");
  EXPECT_EQ(CharsOf(dir, "\xEF\xBB"), u"\u00EF\u00BB");
  EXPECT_EQ(CharsOf(dir, "Z"), u"Z");
  EXPECT_EQ(CharsOf(dir, ""), u"");
  // A mark alone is an empty file in its encoding.
  EXPECT_EQ(CharsOf(dir, "\xFF\xFE"), u"");
}

TEST(EncodedTextReader, Utf8SequencesOfEveryLengthAndBrokenOnes) {
  TempDir dir;
  const std::string bom = "\xEF\xBB\xBF";
  // 2-, 3- and 4-byte sequences; the last yields a surrogate pair.
  EXPECT_EQ(CharsOf(dir, bom + "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80!"), u"\u00E9\u20AC\U0001F600!");
  // A byte outside 80-BF breaks the sequence: "?" for it, then decoding
  // resumes at that byte, which may lead a sequence of its own.
  EXPECT_EQ(CharsOf(dir, bom + "\xC3" "A"), u"?A");
  EXPECT_EQ(CharsOf(dir, bom + "\xE2\x82" "B"), u"?B");
  EXPECT_EQ(CharsOf(dir, bom + "\xF0\x9F\xC3\xA9"), u"?\u00E9");
  // A stray continuation byte stands alone; a lead byte no sequence has
  // still takes four bytes and decodes to the replacement character.
  EXPECT_EQ(CharsOf(dir, bom + "\xA9Z"), u"\u00A9Z");
  EXPECT_EQ(CharsOf(dir, bom + "\xF8\x80\x80\x80Z"), u"\uFFFDZ");
  // A sequence cut by the end of the file yields nothing.
  EXPECT_EQ(CharsOf(dir, bom + "ok\xE2\x82"), u"ok");
}

TEST(EncodedTextReader, Utf16DropsAnOddTrailingByte) {
  TempDir dir;
  EXPECT_EQ(CharsOf(dir, "\xFF\xFE" "A\0B\0C"s), u"AB");
  EXPECT_EQ(CharsOf(dir, "\xFE\xFF\0A\x20\xAC\0"s), u"A\u20AC");
}

TEST(EncodedTextReader, SequencesAcrossBlockBoundariesDecodeWhole) {
  TempDir dir;
  // After the 3-byte mark, 3-byte characters straddle the 4096-byte block.
  std::string bytes = "\xEF\xBB\xBF";
  std::u16string expected;
  for (int i = 0; i < 3000; ++i) {
    bytes += "\xE2\x82\xAC";
    expected += u'\u20AC';
    if (i % 100 == 99) {
      bytes += "\r\n";
      expected += u'\n';
    }
  }
  std::u16string joined;
  for (const std::u16string& line : LinesOf(dir, bytes)) joined += line;
  EXPECT_EQ(joined, expected);
}

TEST(EncodedTextReader, OnlyCrLfEndsALine) {
  TempDir dir;
  // LF alone is text: a file of LF-only lines reads as runs cut at the
  // capacity.
  EXPECT_THAT(LinesOf(dir, "L1\nL2\nL3\n", 5), testing::ElementsAre(u"L1\nL", u"2\nL3", u"\n"));
  // A lone CR stays, and the character after it is taken as it is, a CR
  // included.
  EXPECT_THAT(LinesOf(dir, "A\rB\r\nC\r\r\nD\r\n"), testing::ElementsAre(u"A\rB\n", u"C\r\r\nD\n"));
  // The last line needs no end, and a CR at the very end stays.
  EXPECT_THAT(LinesOf(dir, "X\r\nYZ"), testing::ElementsAre(u"X\n", u"YZ"));
  EXPECT_THAT(LinesOf(dir, "X\r"), testing::ElementsAre(u"X\r"));
}

TEST(EncodedTextReader, TheCharacterAfterALoneCrIsCarriedWhenTheLineIsFull) {
  TempDir dir;
  dir.Write("f.nmea", "AB\rC\r\nD\r\n");
  EncodedTextReader reader;
  reader.Open(dir.WideFile("f.nmea"));
  char16_t line[8];
  ASSERT_EQ(reader.ReadLine(line, 4), 1);
  EXPECT_EQ(std::u16string(line), u"AB\r");
  // With room for the terminator only, the carried character waits.
  ASSERT_EQ(reader.ReadLine(line, 1), 1);
  EXPECT_EQ(line[0], 0);
  ASSERT_EQ(reader.ReadLine(line, 4), 1);
  EXPECT_EQ(std::u16string(line), u"C\n");
  ASSERT_EQ(reader.ReadLine(line, 4), 1);
  EXPECT_EQ(std::u16string(line), u"D\n");
  EXPECT_EQ(reader.ReadLine(line, 4), 0);
  // A capacity of 0 writes nothing at all.
  line[0] = u'#';
  EXPECT_EQ(reader.ReadLine(line, 0), 1);
  EXPECT_EQ(line[0], u'#');
}

TEST(EncodedTextReader, AMissingFileRaisesTheSystemError) {
  TempDir dir;
  EncodedTextReader reader;
  try {
    reader.Open(dir.WideFile("absent.nmea"));
    FAIL() << "opened a missing file";
  } catch (const CIMExceptionEx& error) {
    EXPECT_EQ(error.Code(), 2);  // ERROR_FILE_NOT_FOUND
    EXPECT_NE(std::u16string(error.Detail()).find(u"absent.nmea"), std::u16string::npos);
  }
  EXPECT_FALSE(reader.IsOpen());
  char16_t c = 0;
  EXPECT_FALSE(reader.ReadChar(&c));
}

}  // namespace
}  // namespace kavo
