// The simulated receiver's output: well-formed, in a receiver's order, and
// where the truth is, north and east or south and west.
#include <gtest/gtest.h>

#include <cstdio>
#include <sstream>

#include "nmea/receiver_state_store.h"
#include "sim/simulator.h"
#include "support/wide_string.h"

namespace kavo::sim {
namespace {

// Empty when `line` is a well-formed sentence: at most 82 printable ASCII
// characters from "$" to "*" and the upper-case hex XOR of the body.
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

TEST(Simulator, SentencesAreWellFormedAndInAReceiversOrder) {
  for (const bool extras : {false, true}) {
    SimulatorOptions o;
    o.mode = Mode::kDrive;
    o.rateHz = 5.0;
    o.otherTalkers = o.proprietary = o.fixLoss = extras;
    o.startTime = {2024, 12, 31, 23, 59, 30, 0};        // the year rolls over mid-run
    if (extras) o.start = {-33.8688, -151.2093, 40.0};  // south and west
    nmea::ReceiverStateStore store;                     // the position as the library reads it
    store.Reset();
    for (const Epoch& e : Simulate(o, 1000)) {
      store.ProcessChunk(FromUtf8(e.Text()));
      if (e.fix) EXPECT_NEAR(store.Location().Latitude, e.truth.position.latitude, 2e-6) << e.index;
      if (e.fix) EXPECT_NEAR(store.Location().Longitude, e.truth.position.longitude, 2e-6) << e.index;
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
    }
  }
}

}  // namespace
}  // namespace kavo::sim
