#include "nmea_test_support.h"

namespace kavo::test {
namespace {

using FramingTest = StoreTest;

const std::string kGga = "$GPGGA,123519,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,*47";

TEST_F(FramingTest, OnlyTheFiveGpsSentencesAreRecognisedSilently) {
  const std::string fields = kGga.substr(6), badSum = kGga.substr(0, kGga.size() - 2) + "00";
  Feed({"$GPGG", "$GPGGX,1,2", "$GNGGA" + fields, "$gpgga" + fields, "$PGRME,15.0,M,45.0,M,25.0,M*1C",
        "noise $GPGGA,123519", "", badSum, "$GPGSV,1,1,00", "$GPRMC,", "$GPGSA,A", "$GPVTG"});
  const std::vector<WideString> expected = {W(badSum + "\r"),  // a checksum is not checked by default
                                            u"$GPGSV,1,1,00\r", u"$GPRMC,\r", u"$GPGSA,A\r", u"$GPVTG\r"};
  EXPECT_EQ(Recognised(), expected);
  EXPECT_EQ(log_.Text(), u"");
  EXPECT_EQ(Location().Latitude, k4807_038);
}

// Receivers that mix a binary protocol into their NMEA put its messages
// between sentences: NUL bytes, lone CRs and LFs and "$" come before a
// sentence on its line. With the defaults such a sentence is not seen, as
// the contract says; once the options go beyond them it is, from the
// line's last "$".
TEST_F(FramingTest, ASentenceAfterBinaryBytesIsFoundOnlyWithOptionsBeyondTheDefaults) {
  using namespace std::string_literals;
  const std::string rmc = "$GPRMC,123519,A,4807.038,N,01131.000,E,022.4,084.4,230394,003.1,W*6A";
  const std::string vtg = "$GPVTG,054.7,T,034.4,M,005.5,N,010.2,K*48";
  const std::string gsvWithDollar = "$GPGSV,1,1,00,$PGRMZ,246,f,3*1B";
  const struct {
    const char* name;
    std::string line;  // sent with CR LF
    std::vector<std::string> byDefault, withOptions;
  } cases[] = {
      {"a plain sentence", kGga, {kGga}, {kGga}},
      {"binary bytes before it", "\xB5\x62\x01\x07\x1C" + rmc, {}, {rmc}},
      {"a NUL among them", "\xB5\x62\x00\x07" + kGga, {}, {kGga}},
      {"a \"$\" among them", "\xB5$\x00\x62$\x01" + vtg, {}, {vtg}},
      {"a lone CR among them", "\xB5\x62\r\x07" + rmc, {}, {rmc}},
      {"a lone LF among them: two lines", "\xB5\x62\n\x07" + vtg, {}, {vtg}},
      {"a NUL and a \"$\" right before it", "\x01\x00$" + kGga, {}, {kGga}},
      {"a sentence with a \"$\" inside: only its tail counts", gsvWithDollar, {gsvWithDollar}, {}},
      {"binary alone", "\xB5\x62\x00\r$\x00"s, {}, {}},
  };
  nmea::ReceiverOptions talkers, checksums;
  ASSERT_TRUE(talkers.SetTalkers("GP,GN"));
  ASSERT_TRUE(checksums.SetChecksums("verify"));
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const auto lines = [](const std::vector<std::string>& sentences) {
      std::vector<WideString> texts;
      for (const std::string& sentence : sentences) texts.push_back(W(sentence + "\r"));
      return texts;
    };
    Feed({c.line});
    EXPECT_EQ(Recognised(), lines(c.byDefault)) << "by default";
    for (const nmea::ReceiverOptions* options : {&talkers, &checksums}) {
      nmea::ReceiverStateStore store(*options);
      store.Reset();
      store.ProcessChunk(W(c.line + "\r\n"));
      std::vector<WideString> recognised;
      for (size_t i = 0; i < store.RecognisedSentences().Count(); ++i)
        recognised.emplace_back(store.RecognisedSentences()[i]);
      EXPECT_EQ(recognised, lines(c.withOptions)) << (options == &talkers ? "talkers GP,GN" : "checksums verified");
    }
  }
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
  EXPECT_EQ(Location().Latitude, k4807_038);
  EXPECT_EQ(Location().Speed, 0.0);
  // A sentence cut over three chunks is read whole.
  store_.ProcessChunk(W(kGga.substr(0, 20)));
  store_.ProcessChunk(W(kGga.substr(20, 20)));
  store_.ProcessChunk(W(kGga.substr(40) + "\n"));
  EXPECT_EQ(Recognised(), std::vector<WideString>{W(kGga)});
}

}  // namespace
}  // namespace kavo::test
