#include <fstream>
#include <iterator>

#include "nmea_test_support.h"

namespace kavo::test {
namespace {

using FramingTest = StoreTest;

const std::string kGga = "$GPGGA,123519,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,*47";

TEST_F(FramingTest, SentencesSplitAnywhereAreDispatchedOnceOnTheirLineFeed) {
  const std::string text = kGga + "\r\n$GPVTG,054.7,T,034.4,M,005.5,N,010.2,K*48\n$GPGS";
  for (size_t split = 0; split <= text.size(); ++split) {
    nmea::ReceiverStateStore store;
    store.Reset();
    std::vector<WideString> seen;
    for (const std::string& part : {text.substr(0, split), text.substr(split)}) {
      store.ProcessChunk(W(part));
      for (size_t i = 0; i < store.RecognisedSentences().Count(); ++i)
        seen.emplace_back(store.RecognisedSentences()[i]);
    }
    ASSERT_EQ(seen.size(), 2u) << split;
    EXPECT_EQ(seen[0], W(kGga + "\r"));  // the carriage return stays
    EXPECT_EQ(seen[1], W("$GPVTG,054.7,T,034.4,M,005.5,N,010.2,K*48"));
    EXPECT_EQ(store.Framer().Leftover(), u"$GPGS");
    EXPECT_EQ(store.Location().Latitude, Degrees(4807.038));
  }
}

TEST_F(FramingTest, OnlyTheFiveGpsSentencesAreRecognised) {
  Feed({"$GPGG", "$GPGGX,1,2", "$GNGGA,123519,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,*47",
        "$gpgga,123519,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,*47", "$PGRME,15.0,M,45.0,M,25.0,M*1C",
        "$GLGSV,1,1,04,65,30,100,33", "noise $GPGGA,123519", "", "$GPGGA,123519,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,*00",
        "$GPGSV,1,1,00", "$GPRMC,", "$GPGSA,A", "$GPVTG"});
  const std::vector<WideString> expected = {
      W("$GPGGA,123519,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,*00\r"),  // bad checksum
      u"$GPGSV,1,1,00\r", u"$GPRMC,\r", u"$GPGSA,A\r", u"$GPVTG\r"};
  EXPECT_EQ(Recognised(), expected);
  EXPECT_EQ(log_.Text(), u"");  // skipping is silent
  EXPECT_EQ(Location().Latitude, Degrees(4807.038));
}

TEST_F(FramingTest, GarbageWithoutLineFeedsKeepsOnlyTheNewest512Units) {
  std::string garbage;
  for (int i = 0; i < 700; ++i) garbage += static_cast<char>('a' + i % 26);
  EXPECT_EQ(store_.ProcessChunk(W(garbage.substr(0, 300))), 1);
  EXPECT_EQ(store_.Framer().Leftover(), W(garbage.substr(0, 300)));
  store_.ProcessChunk(W(garbage.substr(300)));
  EXPECT_EQ(store_.Framer().Leftover(), W(garbage.substr(700 - 512)));
  store_.ProcessChunk(W(std::string(2000, 'x')));
  EXPECT_EQ(store_.Framer().Leftover(), W(std::string(512, 'x')));
  // The kept tail becomes one (unrecognised) line; the stream recovers.
  store_.ProcessChunk(W("\n" + kGga + "\n"));
  EXPECT_EQ(Recognised(), std::vector<WideString>{W(kGga)});
  EXPECT_EQ(store_.Framer().Leftover(), u"");
  EXPECT_EQ(store_.Framer().LineBufferCapacity(), 513u);  // grown to the longest line, kept
}

TEST_F(FramingTest, ClearForgetsTheUnterminatedTailButKeepsTheRecords) {
  Feed(kGga);
  store_.ProcessChunk(W("$GPVTG,054.7,T,034.4,M"));
  store_.Clear();
  EXPECT_EQ(store_.Started(), 0u);
  store_.ProcessChunk(W(",005.5,N,010.2,K*48\n"));
  EXPECT_TRUE(Recognised().empty());
  EXPECT_EQ(Location().Latitude, Degrees(4807.038));
  EXPECT_EQ(Location().Speed, 0.0);
}

TEST_F(FramingTest, PerChunkBookkeeping) {
  EXPECT_EQ(Location().Time, OleDate(kToday, 9, 0, 0));  // before any sentence
  EXPECT_EQ(Location().TimeType, GPS_TIME_LOCAL_CLOCK);
  EXPECT_EQ(Location().ValidFlags, 0u);
  EXPECT_EQ(store_.Started(), 1u);
  Feed(kGga);
  EXPECT_EQ(store_.SentencesSeen(), 1u);
  EXPECT_NE(store_.UpdateMask(), 0u);
  store_.ProcessChunk(u"$GPGGA,1235");
  EXPECT_EQ(store_.SentencesSeen(), 0u);
  EXPECT_EQ(store_.UpdateMask(), 0u);
  EXPECT_TRUE(Recognised().empty());
}

// Recordings of three receiver styles (CR LF and LF endings, fractional and
// whole seconds, empty fields while there is no fix, other talkers,
// proprietary sentences, noise), fed as one chunk, as the reading thread
// delivers them (1024 units), a unit at a time, and split at every place.
struct Result {
  GPSLocation location;
  GPSSatellites satellites;
  std::vector<WideString> sentences;
};

Result Play(const WideString& text, size_t chunk, size_t split = WideString::npos) {
  nmea::ReceiverStateStore store;
  store.Reset();
  Result result;
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

class RecordingTest : public StoreTest {
 protected:
  WideString Load(const std::string& name) {
    std::ifstream file(std::string(KAVOGPS_NMEA_DATA "/") + name, std::ios::binary);
    EXPECT_TRUE(file.is_open()) << name;
    const std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    WideString text;  // Latin-1, as the reading thread widens it
    for (unsigned char byte : bytes) text.push_back(byte);
    return text;
  }

  // Plays the recording every way and checks that all agree.
  Result PlayEveryWay(const std::string& name) {
    const WideString text = Load(name);
    const Result whole = Play(text, text.size() + 1);
    for (size_t chunk : {size_t{1}, size_t{7}, size_t{1024}}) Expect(whole, Play(text, chunk), chunk);
    for (size_t split = 1; split < text.size(); split += 3) Expect(whole, Play(text, 0, split), split);
    return whole;
  }

  static void Expect(const Result& expected, const Result& actual, size_t how) {
    ASSERT_EQ(actual.sentences, expected.sentences) << how;
    ASSERT_TRUE(SameBits(&actual.location, &expected.location, sizeof(GPSLocation))) << how;
    ASSERT_TRUE(SameBits(&actual.satellites, &expected.satellites, sizeof(GPSSatellites))) << how;
  }
};

TEST_F(RecordingTest, ColdStartWithCrLf) {
  const Result r = PlayEveryWay("cold_start_crlf.nmea");
  EXPECT_EQ(r.sentences.size(), 48u);
  EXPECT_EQ(r.location.Latitude, Degrees(4807.0548));
  EXPECT_EQ(r.location.Longitude, Degrees(1131.0272));
  EXPECT_EQ(r.location.Time, OleDate(kToday, 9, 30, 8));
  EXPECT_EQ(r.location.TimeType, GPS_TIME_FULL);
  EXPECT_EQ(r.location.FixQuality, 1);
  EXPECT_EQ(r.location.ValidFlags, 0x7FFu);
  EXPECT_EQ(r.satellites.Count, 11);
}

TEST_F(RecordingTest, MultiConstellationWithLf) {
  const Result r = PlayEveryWay("multi_gnss_lf.nmea");
  EXPECT_EQ(r.sentences.size(), 42u);  // GN and GL sentences skipped
  EXPECT_EQ(r.location.Latitude, Degrees(3351.2400, false));
  EXPECT_EQ(r.location.Longitude, Degrees(15112.8800, false));
  EXPECT_EQ(r.location.FixQuality, 2);
  EXPECT_EQ(r.location.Time, OleDate(36525, 23, 11, 5));
  ASSERT_EQ(r.satellites.Count, 12);
  EXPECT_EQ(r.satellites.Satellites[11].PRN, 28);
}

TEST_F(RecordingTest, HandheldWithProprietarySentencesAndDamage) {
  const Result r = PlayEveryWay("handheld_mixed.nmea");
  EXPECT_EQ(r.sentences.size(), 30u);
  EXPECT_EQ(r.location.Latitude, Degrees(5133.824));
  EXPECT_EQ(r.location.Longitude, Degrees(7.354, false));
  EXPECT_EQ(r.location.Time, OleDate(37718, 18, 46, 8));
  EXPECT_EQ(r.satellites.Count, 10);
  EXPECT_TRUE(log_.Contains(u"Exception on parsing: not a number \"51#3.820\"\n")) << log_.Utf8();
}

}  // namespace
}  // namespace kavo::test
