// The simulated receiver's output: well-formed, in a receiver's order, true
// to the epoch it reports, and the same for the same seed.
#include <gtest/gtest.h>

#include <cstdio>
#include <sstream>

#include "common/temp_dir.h"
#include "simulator/recording.h"
#include "simulator/simulator.h"
#include "sources/encoded_text_reader.h"

namespace kavo::sim {
namespace {

// Empty when `line` is a well-formed sentence: "$", printable ASCII, at
// most 82 characters, and a "*" with the two upper-case hex digits of the
// XOR of the body at the end. Written apart from the simulator's formatting.
std::string SentenceProblem(const std::string& line) {
  if (line.size() < 4 || line.size() > 82 || line[0] != '$') return "wrong start or length";
  for (unsigned char c : line)
    if (c < 0x20 || c > 0x7E) return "holds a byte outside printable ASCII";
  const size_t star = line.find('*');
  if (star != line.size() - 3) return "needs one * and two checksum digits after it";
  unsigned sum = 0;
  for (size_t i = 1; i < star; ++i) sum ^= static_cast<unsigned char>(line[i]);
  char digits[3];
  std::snprintf(digits, sizeof digits, "%02X", sum);
  return line.substr(star + 1) == digits ? "" : "checksum does not match";
}

// The comma-separated fields of a sentence's body, the id first ("GPGGA").
std::vector<std::string> Fields(const std::string& line) {
  std::vector<std::string> fields;
  std::stringstream body(line.substr(1, line.find('*') - 1) + ",");
  for (std::string field; std::getline(body, field, ',');) fields.push_back(field);
  return fields;
}

std::vector<Epoch> Simulate(const SimulatorOptions& options, int count) {
  Simulator simulator(options);
  std::vector<Epoch> epochs;
  for (int i = 0; i < count; ++i) epochs.push_back(simulator.Next());
  return epochs;
}

using Sentences = std::vector<std::vector<std::string>>;  // an epoch's, each its fields

// The ids of the sentences, a run of one id written once.
std::string Ids(const Sentences& sentences) {
  std::string ids;
  for (size_t i = 0; i < sentences.size(); ++i)
    if (i == 0 || sentences[i][0] != sentences[i - 1][0]) ids += " " + sentences[i][0];
  return ids;
}

std::vector<std::string> Find(const Sentences& sentences, const std::string& id) {
  for (const auto& fields : sentences)
    if (fields[0] == id) return fields;
  return {};
}

TEST(Simulator, SentencesAreWellFormedInOrderAndAgreeOnTheFix) {
  for (const bool extras : {false, true}) {
    SimulatorOptions o;
    o.mode = Mode::kDrive;
    o.rateHz = 5.0;
    o.otherTalkers = o.proprietary = o.fixLoss = extras;
    o.startTime = {2024, 12, 31, 23, 59, 30, 0};  // the year rolls over mid-run
    if (extras) o.start = {-33.8688, -151.2093, 40.0};  // south and west
    int lost = 0;
    for (const Epoch& e : Simulate(o, 1000)) {
      Sentences all;
      for (const Line& line : e.lines) {
        ASSERT_EQ(SentenceProblem(line.text), "") << line.text;
        all.push_back(Fields(line.text));
      }
      std::string expected = std::string(extras && e.index == 0 ? " PSRFTXT" : "") + " GPGGA" +
                             (extras ? " GNGGA" : "") + " GPGSA" + (extras ? " GNGSA" : "");
      if (e.satellitesReported) expected += extras ? " GPGSV GLGSV" : " GPGSV";
      expected += extras ? " GPRMC GPVTG PGRME PGRMZ" : " GPRMC GPVTG";
      ASSERT_EQ(Ids(all), expected) << "epoch " << e.index;
      // Satellites in view once a second; fractions of a second stamped.
      EXPECT_EQ(e.satellitesReported, e.index % 5 == 0);
      EXPECT_EQ(Find(all, "GPRMC")[1].substr(6), "." + std::to_string(e.index % 5 * 2) + "0");

      const auto gga = Find(all, "GPGGA"), rmc = Find(all, "GPRMC");
      EXPECT_EQ(gga[6], e.fix ? "1" : "0");
      EXPECT_EQ(rmc[2], e.fix ? "A" : "V");
      EXPECT_EQ(Find(all, "GPGSA")[2], e.fix ? "3" : "1");
      EXPECT_EQ(gga[2].empty(), !e.fix);
      EXPECT_EQ(std::stoi(gga[7]), e.usedCount);
      EXPECT_EQ(rmc[9], e.index < 150 ? "311224" : "010125");
      EXPECT_EQ(rmc[3] + rmc[4] + rmc[5] + rmc[6], gga[2] + gga[3] + gga[4] + gga[5]);  // the library reads both
      lost += !e.fix;
      if (!e.satellitesReported) continue;
      int listed = 0;  // GSV lists the GPS satellites in view, four a message
      for (const auto& fields : all)
        if (fields[0] == "GPGSV") listed += static_cast<int>(fields.size() - 4) / 4;
      EXPECT_EQ(std::to_string(listed), Find(all, "GPGSV")[3]);
    }
    EXPECT_EQ(lost > 0, extras) << "the fix is lost only when asked for";
  }
}

TEST(Simulator, TheSeedChoosesTheRun) {
  SimulatorOptions one, two;
  two.seed = one.seed + 1;
  EXPECT_EQ(Simulate(one, 60).back().Text(), Simulate(one, 60).back().Text());
  EXPECT_NE(Simulate(one, 60).back().Text(), Simulate(two, 60).back().Text());
}

// A recording's bytes as the library's reader decodes them, as Latin-1.
std::string ReadBack(const std::string& bytes) {
  test::TempDir dir;
  dir.Write("r.nmea", bytes);
  EncodedTextReader reader;
  reader.Open(dir.WideFile("r.nmea"));
  std::string text;
  for (char16_t c; reader.ReadChar(&c);) text += c <= 0xFF ? static_cast<char>(c) : '?';
  return text;
}

TEST(Recording, EveryEncodingReadsBackAsTheLinesWritten) {
  SimulatorOptions options;
  options.damage = 0.3;  // stray bytes from 0x00 to 0xFF, not just ASCII
  Simulator simulator(options);
  std::string expected = "\xA5\xFF\x01$GPGGA,garbage\xE9\r\n";
  for (int i = 0; i < 20; ++i) expected += simulator.Next().Text();
  for (const char* name : {"ascii", "UTF-8", "utf16le", "utf_16_be"}) {
    SCOPED_TRACE(name);
    std::ostringstream out;
    RecordingWriter writer(out, ParseEncoding(name).value());
    for (size_t at = 0, end; (end = expected.find("\r\n", at)) != std::string::npos; at = end + 2)
      writer.WriteLine(std::string_view(expected).substr(at, end - at));
    ASSERT_TRUE(writer.Good());
    // Single bytes are the text itself; the others as the library reads them.
    if (name[0] == 'a') EXPECT_EQ(out.str(), expected);
    else EXPECT_EQ(ReadBack(out.str()), expected);
  }
}

}  // namespace
}  // namespace kavo::sim
