#include "sources/encoded_text_reader.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "common/temp_dir.h"

namespace kavo {
namespace {

using test::TempDir;
using namespace std::string_literals;
using Lines = std::vector<std::u16string>;

std::string Utf16(const std::u16string& text, bool bigEndian) {
  std::string out = bigEndian ? "\xFE\xFF" : "\xFF\xFE";
  for (char16_t c : text) {
    const char high = static_cast<char>(c >> 8), low = static_cast<char>(c & 0xFF);
    out += bigEndian ? std::string{high, low} : std::string{low, high};
  }
  return out;
}

struct Opened {
  TempDir dir;
  EncodedTextReader reader;
  explicit Opened(const std::string& bytes) {
    dir.Write("f.nmea", bytes);
    reader.Open(dir.WideFile("f.nmea"));
  }
  Lines ReadLines(uint32_t capacity = 256) {
    Lines lines;
    std::vector<char16_t> buffer(capacity + 1, u'#');
    while (reader.ReadLine(buffer.data(), capacity)) lines.emplace_back(buffer.data());
    return lines;
  }
  std::u16string ReadChars() {
    std::u16string out;
    for (char16_t c = 0; reader.ReadChar(&c);) out += c;
    return out;
  }
};

TEST(EncodedTextReader, EveryEncodingYieldsTheSameLinesAndRewindsPastTheMark) {
  const std::u16string text = u"$GPGGA,123519,4807.038,N*47\r\ncaf\u00E9\r\n";
  const Lines expected = {u"$GPGGA,123519,4807.038,N*47\n", u"caf\u00E9\n"};
  const struct {
    std::string bytes;
    EncodedTextReader::Encoding encoding;
  } cases[] = {
      {"$GPGGA,123519,4807.038,N*47\r\ncaf\xE9\r\n", EncodedTextReader::kCodePage},
      {"\xEF\xBB\xBF$GPGGA,123519,4807.038,N*47\r\ncaf\xC3\xA9\r\n", EncodedTextReader::kUtf8},
      {Utf16(text, false), EncodedTextReader::kUtf16LittleEndian},
      {Utf16(text, true), EncodedTextReader::kUtf16BigEndian},
  };
  for (const auto& c : cases) {
    Opened file(c.bytes);
    EXPECT_EQ(file.reader.GetEncoding(), c.encoding);
    EXPECT_EQ(file.ReadLines(), expected);
    file.reader.Rewind();
    EXPECT_EQ(file.ReadLines(), expected) << c.encoding;
  }
}

TEST(EncodedTextReader, DecodesMarksAndSequencesAsWritten) {
  const std::string bom = "\xEF\xBB\xBF";
  const struct {
    std::string bytes;
    std::u16string chars;
  } cases[] = {
      // Marks that are not quite one are text; a mark alone is an empty file.
      {"\xEF\xBB"
       "A",
       u"\u00EF\u00BB"
       u"A"},
      {"\xEF\xBB", u"\u00EF\u00BB"},
      {"", u""},
      {"\xFF\xFE", u""},
      // 2-, 3- and 4-byte sequences; the last yields a surrogate pair.
      {bom + "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80!", u"\u00E9\u20AC\U0001F600!"},
      // A byte outside 80-BF breaks a sequence: "?" for it, then decoding
      // resumes at that byte, which may lead a sequence of its own.
      {bom + "\xC3"
             "A",
       u"?A"},
      {bom + "\xE2\x82"
             "B",
       u"?B"},
      {bom + "\xF0\x9F\xC3\xA9", u"?\u00E9"},
      // A stray continuation byte stands alone; a lead byte no sequence has
      // still takes four bytes and decodes to the replacement character.
      {bom + "\xA9Z", u"\u00A9Z"},
      {bom + "\xF8\x80\x80\x80Z", u"\uFFFDZ"},
      // A sequence cut by the end of the file yields nothing; UTF-16 drops
      // an odd trailing byte.
      {bom + "ok\xE2\x82", u"ok"},
      {"\xFF\xFE"
       "A\0B\0C"s,
       u"AB"},
      {"\xFE\xFF\0A\x20\xAC\0"s, u"A\u20AC"},
  };
  for (const auto& c : cases) EXPECT_EQ(Opened(c.bytes).ReadChars(), c.chars) << c.bytes;
}

TEST(EncodedTextReader, SequencesAcrossBlockBoundariesDecodeWhole) {
  // After the 3-byte mark, 3-byte characters straddle the 4096-byte block.
  std::string bytes = "\xEF\xBB\xBF";
  std::u16string expected, joined;
  for (int i = 0; i < 3000; ++i) {
    bytes += i % 100 == 99 ? "\xE2\x82\xAC\r\n" : "\xE2\x82\xAC";
    expected += i % 100 == 99 ? u"\u20AC\n" : u"\u20AC";
  }
  for (const std::u16string& line : Opened(bytes).ReadLines()) joined += line;
  EXPECT_EQ(joined, expected);
}

TEST(EncodedTextReader, OnlyCrLfEndsALine) {
  const struct {
    std::string bytes;
    uint32_t capacity;
    Lines lines;
  } cases[] = {
      // LF alone is text: LF-only lines read as runs cut at the capacity.
      {"L1\nL2\nL3\n", 5, {u"L1\nL", u"2\nL3", u"\n"}},
      // A lone CR stays, and the character after it is taken as it is.
      {"A\rB\r\nC\r\r\nD\r\n", 256, {u"A\rB\n", u"C\r\r\nD\n"}},
      // The last line needs no end, and a CR at the very end stays.
      {"X\r\nYZ", 256, {u"X\n", u"YZ"}},
      {"X\r", 256, {u"X\r"}},
      // A lone CR that fills the line carries the character after it.
      {"AB\rC\r\nD\r\n", 4, {u"AB\r", u"C\n", u"D\n"}},
  };
  for (const auto& c : cases) EXPECT_EQ(Opened(c.bytes).ReadLines(c.capacity), c.lines) << c.bytes;
}

}  // namespace
}  // namespace kavo
