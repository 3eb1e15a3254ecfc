// Epochs assembled from sentences and the records read around them: one
// report per epoch, holding only what that epoch's sentences carried.
#include <gtest/gtest.h>

#include <vector>

#include "cli/epoch_assembler.h"
#include "cli/json_report.h"

namespace kavo::cli {
namespace {

constexpr double kSecond = 1.0 / 86400.0;

// The record after an epoch at 10:00:`second` (flags only ever grow).
Reading Record(int second, uint32_t flags, int32_t quality, double latitude = 48.1) {
  Reading r;
  r.location.Latitude = latitude;
  r.location.Speed = 30;
  r.location.GeoidSeparation = 38.8;
  r.location.FixQuality = quality;
  r.location.Time = 45426.0 + (36000 + second) * kSecond;
  r.location.TimeType = GPS_TIME_FULL;
  r.location.ValidFlags = flags;
  r.status = GPS_STATUS_RECEIVING;
  return r;
}

struct Feed {
  std::vector<EpochReport> reports;
  EpochAssembler epochs{300, [this](const EpochReport& r) { reports.push_back(r); }};
  uint64_t ms = 0;
  void operator()(const std::string& sentence, const Reading& before) { epochs.Sentence(sentence, before, ms += 10); }
};

TEST(EpochAssembler, OneReportPerEpochWithOnlyWhatItsSentencesCarried) {
  Feed feed;
  const Reading none, fixed = Record(0, 0x7ff, 1);
  feed("$GPGGA,100000.00,4807.0380,N,01131.0020,E,1,10,1.0,520.0,M,38.8,M,,*69", none);
  feed("$GPGSA,A,3,02,03,06,07,08,11,12,13,17,18,,,1.7,1.0,1.4*36", Record(0, 0x560, 1));
  feed("$GPRMC,100000.00,A,4807.0380,N,01131.0020,E,0.00,233.4,140524,,,A*6F", Record(0, 0x7e0, 1));
  feed("$GPVTG,233.4,T,230.4,M,0.00,N,0.00,K,A*20", Record(0, 0x7ef, 1));
  // The fix is lost: empty fields, and the record keeps its old values.
  feed("$GPGGA,100001.00,,,,,0,00,,,M,,M,,*66", fixed);
  EXPECT_EQ(feed.reports.size(), 1u) << "an epoch is reported once, when the next begins";
  feed("$GPGSA,A,1,,,,,,,,,,,,,,,*1E", Record(1, 0x7ff, 0));
  feed("$GPRMC,100001.00,V,,,,,,,140524,,,N*4A", Record(1, 0x7ff, 0));
  feed("$GPVTG,,T,,M,,N,,K,N*2C", Record(1, 0x7ff, 0));
  feed.epochs.Finish(Record(1, 0x7ff, 0));

  ASSERT_EQ(feed.reports.size(), 2u);
  const EpochReport &fix = feed.reports[0], &lost = feed.reports[1];
  EXPECT_TRUE(fix.fix);
  EXPECT_EQ(fix.reading.location.ValidFlags, 0x7ffu);
  EXPECT_FALSE(lost.fix);
  EXPECT_EQ(lost.reading.location.ValidFlags, static_cast<uint32_t>(GPS_VALID_SATELLITES_IN_USE));
  EXPECT_EQ(TpvJson(lost.reading, ""), "{\"class\":\"TPV\",\"mode\":1,\"time\":\"2024-05-14T10:00:01.000Z\"}");
  EXPECT_TRUE(fix.skyChanged && lost.skyChanged);
}

TEST(EpochAssembler, EpochsEndByTimeRepeatOrSilenceAndOneNeverReadAloneIsLeftOut) {
  Feed feed;
  const Reading none;
  // Epoch 0 reached the library with the start of epoch 1: the record went
  // from nothing to epoch 1 and never held epoch 0.
  feed("$GPGGA,100000.00,4807.0380,N,01131.0020,E,1,10,1.0,520.0,M,38.8,M,,*69", none);
  feed("$GPGGA,100001.00,4807.0379,N,01131.0018,E,1,10,1.0,520.0,M,38.8,M,,*65", none);
  // Without times, a sentence the epoch already had starts the next one.
  Reading sky40 = Record(1, 0x567, 1), sky41;
  sky40.satellites = {{7, 40, 0.5, 1.0}};
  sky41 = sky40;
  sky41.satellites[0].SNR = 41;
  feed("$GPGSV,1,1,01,07,29,057,40*4C", Record(1, 0x567, 1));
  feed("$GPGSV,1,1,01,07,29,057,40*4C", sky40);
  feed("$GPGSV,1,1,01,07,29,057,41*4D", sky40);
  // Silence ends the last one; a reading before that does not.
  feed.epochs.Latest(sky41, feed.ms + 299);
  EXPECT_EQ(feed.reports.size(), 2u);
  feed.epochs.Latest(sky41, feed.ms + 300);
  feed.epochs.Finish(sky41);

  ASSERT_EQ(feed.reports.size(), 3u);
  EXPECT_EQ(TimeOfDay(feed.reports[0].reading.location), "10:00:01");
  std::vector<bool> changed;
  for (const EpochReport& r : feed.reports) changed.push_back(r.skyChanged);
  EXPECT_EQ(changed, (std::vector<bool>{true, false, true}));
  EXPECT_EQ(feed.reports[2].reading.satellites[0].SNR, 41);
}

TEST(EpochAssembler, SentenceFieldsTellWhatIsKnown) {
  struct Case {
    const char* sentence;
    uint32_t known;
    std::optional<bool> fix;
  };
  const Case cases[] = {
      {"$GPGGA,100000,4807.0,N,01131.0,E,2,08,0.9,545.4,M,,M,,*47", 0x523, true},
      {"$GNRMC,100000,A,4807.0,N,01131.0,E,,084.4,230394,003.1,W*6A", 0x00b, true},
      {"$GPGLL,4916.45,N,12311.12,W,225444,V*31", 0, false},
      {"$GPVTG,054.7,T,,M,005.5,N,010.2,K*48", 0x00c, std::nullopt},
      {"$GPGSA,A,3,04,05,,,,,,,,,,,2.5,,2.1*39", 0x280, std::nullopt},
  };
  for (const Case& c : cases) {
    const SentenceFacts facts = ReadSentenceFacts(c.sentence);
    EXPECT_EQ(facts.known, c.known) << c.sentence;
    EXPECT_EQ(facts.fix, c.fix) << c.sentence;
  }
}

}  // namespace
}  // namespace kavo::cli
