#include "support/ini_reader.h"

#include <gtest/gtest.h>

#include "common/temp_dir.h"

namespace kavo {
namespace {

class IniReader : public ::testing::Test {
 protected:
  // The value of [section] key with an empty default, and what was returned.
  std::pair<std::u16string, size_t> Read(const std::string& bytes, const std::u16string& section,
                                         const std::u16string& key, size_t length = 260,
                                         const char16_t* fallback = u"") {
    dir_.Write("file.ini", bytes);
    std::u16string buffer(length + 1, u'#');
    const size_t n = ReadIniString(dir_.WideFile("file.ini"), section, key, fallback, buffer.data(), length);
    return {std::u16string(buffer.c_str()), n};
  }
  test::TempDir dir_;
};

TEST_F(IniReader, FindsTheKeyOfItsSectionOnly) {
  const std::string ini =
      "; settings\r\n"
      "FileName=top-level is in no section\r\n"
      "[Other]\r\n"
      "FileName=wrong section\r\n"
      "  [ logger ]  \r\n"
      "# FileName=commented out\r\n"
      "Level=3\r\n"
      "  fileNAME  =   \\Temp\\gps log.txt   \r\n"
      "[Next]\r\n"
      "FileName=after the section\r\n";
  EXPECT_EQ(Read(ini, u"Logger", u"FileName"), std::make_pair(std::u16string(u"\\Temp\\gps log.txt"), size_t(17)));
  EXPECT_EQ(Read(ini, u"Logger", u"Missing").second, 0u);
  EXPECT_EQ(Read(ini, u"Absent", u"FileName").second, 0u);
  // The first occurrence wins; a quoted value keeps its outer spaces.
  EXPECT_EQ(Read("[Logger]\nFileName=\" a \"\nFileName=b\n", u"Logger", u"FileName").first, u" a ");
  // The last line needs no line end; the value is cut to the buffer.
  EXPECT_EQ(Read("[Logger]\nFileName=x.log", u"Logger", u"FileName", 4),
            std::make_pair(std::u16string(u"x.l"), size_t(3)));
  EXPECT_EQ(Read("[Logger]\n", u"Logger", u"FileName", 260, u"debug").first, u"debug");
  char16_t buffer[8] = u"garbage";
  EXPECT_EQ(ReadIniString(dir_.WideFile("none.ini"), u"Logger", u"FileName", u"", buffer, 8), 0u);
  EXPECT_EQ(buffer[0], 0);
}

TEST_F(IniReader, ReadsUtf16AndUtf8FilesWithAByteOrderMark) {
  const std::u16string text = u"[Logger]\r\nFileName=c:\\d\u00E9j\u00E0 \u65E5.log\r\n";
  std::string utf16 = "\xFF\xFE";
  for (char16_t c : text) utf16 += {char(c & 0xFF), char(c >> 8)};
  EXPECT_EQ(Read(utf16, u"Logger", u"FileName").first, u"c:\\d\u00E9j\u00E0 \u65E5.log");
  EXPECT_EQ(Read("\xEF\xBB\xBF[Logger]\nFileName=d\xC3\xA9j\xC3\xA0\n", u"Logger", u"FileName").first,
            u"d\u00E9j\u00E0");
  // Without a mark the bytes are the system code page.
  EXPECT_EQ(Read("[Logger]\nFileName=d\xE9j\xE0\n", u"Logger", u"FileName").first, u"d\u00E9j\u00E0");
}

}  // namespace
}  // namespace kavo
