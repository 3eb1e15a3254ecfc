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
