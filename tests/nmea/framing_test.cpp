#include <fstream>
#include <iterator>
#include <tuple>

#include "nmea_test_support.h"

namespace kavo::test {
namespace {

using FramingTest = StoreTest;

const std::string kGga = "$GPGGA,123519,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,*47";

TEST_F(FramingTest, OnlyTheFiveGpsSentencesAreRecognisedSilently) {
  Feed({"$GPGG", "$GPGGX,1,2", "$GNGGA,123519,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,*47",
        "$gpgga,123519,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,*47", "$PGRME,15.0,M,45.0,M,25.0,M*1C",
        "noise $GPGGA,123519", "", "$GPGGA,123519,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,*00",
        "$GPGSV,1,1,00", "$GPRMC,", "$GPGSA,A", "$GPVTG"});
  const std::vector<WideString> expected = {
      W("$GPGGA,123519,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,*00\r"),  // bad checksum
      u"$GPGSV,1,1,00\r", u"$GPRMC,\r", u"$GPGSA,A\r", u"$GPVTG\r"};
  EXPECT_EQ(Recognised(), expected);
  EXPECT_EQ(log_.Text(), u"");
  EXPECT_EQ(Location().Latitude, Degrees(4807.038));
}

TEST_F(FramingTest, GarbageWithoutLineFeedsKeepsOnlyTheNewest512Units) {
  std::string garbage;
  for (int i = 0; i < 700; ++i) garbage += static_cast<char>('a' + i % 26);
  EXPECT_EQ(store_.ProcessChunk(W(garbage.substr(0, 300))), 1);
  EXPECT_EQ(store_.Framer().Leftover(), W(garbage.substr(0, 300)));
  store_.ProcessChunk(W(garbage.substr(300)));
  EXPECT_EQ(store_.Framer().Leftover(), W(garbage.substr(700 - 512)));
  // The kept tail becomes one (unrecognised) line; the stream recovers.
  store_.ProcessChunk(W("\n" + kGga + "\n"));
  EXPECT_EQ(Recognised(), std::vector<WideString>{W(kGga)});
  EXPECT_EQ(store_.Framer().Leftover(), u"");
  // Clear forgets an unterminated tail but keeps the records.
  store_.ProcessChunk(W("$GPVTG,054.7,T,034.4,M"));
  store_.Clear();
  store_.ProcessChunk(W(",005.5,N,010.2,K*48\n"));
  EXPECT_TRUE(Recognised().empty());
  EXPECT_EQ(Location().Latitude, Degrees(4807.038));
  EXPECT_EQ(Location().Speed, 0.0);
}

// Three receiver styles read whole, in reading-thread chunks, a unit at a
// time and split anywhere: the same sentences and records, to the bit.
struct Result {
  GPSLocation location;
  GPSSatellites satellites;
  std::vector<WideString> sentences;
};

Result Play(const WideString& text, size_t chunk, size_t split = WideString::npos) {
  Result result;
  nmea::ReceiverStateStore store;
  store.Reset();
  std::vector<WideView> chunks;
  if (split != WideString::npos) {
    chunks = {WideView(text).substr(0, split), WideView(text).substr(split)};
  } else {
    for (size_t at = 0; at < text.size(); at += chunk) chunks.push_back(WideView(text).substr(at, chunk));
  }
  for (WideView part : chunks) {
    store.ProcessChunk(part);
    for (size_t i = 0; i < store.RecognisedSentences().Count(); ++i)
      result.sentences.emplace_back(store.RecognisedSentences()[i]);
  }
  result.location = store.Location();
  result.satellites = store.Satellites();
  return result;
}

TEST_F(FramingTest, RecordingsReadTheSameHoweverTheyAreCut) {
  const struct {
    const char* file;
    size_t sentences;
    double latitude, longitude, time;
    int32_t satellites;
  } cases[] = {
      {"cold_start_crlf.nmea", 48, Degrees(4807.0548), Degrees(1131.0272), OleDate(kToday, 9, 30, 8), 11},
      {"multi_gnss_lf.nmea", 42, Degrees(3351.24, false), Degrees(15112.88, false), OleDate(36525, 23, 11, 5), 12},
      {"handheld_mixed.nmea", 30, Degrees(5133.824), Degrees(7.354, false), OleDate(37718, 18, 46, 8), 10},
  };
  for (const auto& c : cases) {
    std::ifstream file(std::string(KAVOGPS_NMEA_DATA "/") + c.file, std::ios::binary);
    ASSERT_TRUE(file.is_open()) << c.file;
    const std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    const WideString text(bytes.begin(), bytes.end());  // Latin-1, as the reading thread widens it
    const Result whole = Play(text, text.size() + 1);
    EXPECT_EQ(whole.sentences.size(), c.sentences) << c.file;  // GN and GL sentences skipped
    EXPECT_EQ(std::make_tuple(whole.location.Latitude, whole.location.Longitude, whole.location.Time),
              std::make_tuple(c.latitude, c.longitude, c.time)) << c.file;
    EXPECT_EQ(whole.satellites.Count, c.satellites) << c.file;
    std::vector<Result> cuts = {Play(text, 1), Play(text, 7), Play(text, 1024)};
    for (size_t split = 1; split < text.size(); split += 3) cuts.push_back(Play(text, 0, split));
    for (const Result& cut : cuts) {
      ASSERT_EQ(cut.sentences, whole.sentences) << c.file;
      ASSERT_TRUE(SameBits(&cut.location, &whole.location, sizeof(GPSLocation))) << c.file;
      ASSERT_TRUE(SameBits(&cut.satellites, &whole.satellites, sizeof(GPSSatellites))) << c.file;
    }
  }
  EXPECT_TRUE(log_.Contains(u"Exception on parsing: not a number \"51#3.820\"\n")) << log_.Utf8();
}

}  // namespace
}  // namespace kavo::test
