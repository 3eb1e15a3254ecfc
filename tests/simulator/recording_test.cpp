// Recordings decode back to the lines written, in every encoding.
#include <gtest/gtest.h>

#include <sstream>

#include "nmea_check.h"
#include "simulator/recording.h"
#include "simulator/simulator.h"

namespace kavo::sim {
namespace {

TEST(Recording, EveryEncodingDecodesBackToTheLinesWritten) {
  SimulatorOptions options;
  options.damage = 0.3;  // stray bytes from 0x00 to 0xFF, not just ASCII
  Simulator simulator(options);
  std::vector<std::string> lines = {"\xA5\xFF\x01$GPGGA,garbage\xE9"};
  for (int i = 0; i < 20; ++i)
    for (Line& line : simulator.Next().lines) lines.push_back(line.text);

  std::u32string expected;
  for (const std::string& line : lines) {
    for (unsigned char c : line) expected.push_back(c);
    expected += U"\r\n";
  }
  for (const char* name : {"ascii", "utf8", "utf16le", "utf16be"}) {
    SCOPED_TRACE(name);
    std::ostringstream out;
    RecordingWriter writer(out, *ParseEncoding(name));
    for (const std::string& line : lines) writer.WriteLine(line);
    ASSERT_TRUE(writer.Good());
    std::u32string decoded;
    std::string problem;
    ASSERT_TRUE(test::DecodeRecording(out.str(), name, &decoded, &problem)) << problem;
    EXPECT_EQ(decoded, expected);
  }
}

TEST(Recording, EncodingNamesAreReadLeniently) {
  EXPECT_EQ(ParseEncoding("UTF-16LE"), Encoding::kUtf16Le);
  EXPECT_EQ(ParseEncoding("utf_16_be"), Encoding::kUtf16Be);
  EXPECT_EQ(ParseEncoding("Utf8"), Encoding::kUtf8);
  EXPECT_EQ(ParseEncoding("ASCII"), Encoding::kAscii);
  EXPECT_FALSE(ParseEncoding("utf32"));
  EXPECT_FALSE(ParseEncoding(""));
  for (Encoding e : {Encoding::kAscii, Encoding::kUtf8, Encoding::kUtf16Le, Encoding::kUtf16Be})
    EXPECT_EQ(ParseEncoding(EncodingName(e)), e);
}

}  // namespace
}  // namespace kavo::sim
