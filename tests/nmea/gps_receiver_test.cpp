#include "nmea/gps_receiver.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "common/test_clock.h"

namespace kavo {
namespace {

class Events : public ReceiverListener {
 public:
  void OnDataChanged(uint32_t mask) override { data.push_back(mask); }
  void OnStatusChanged() override { ++statusChanges; }
  void OnSentence(const char16_t*) override {}
  std::vector<uint32_t> data;
  int statusChanges = 0;
};

constexpr char16_t kGga[] = u"$GPGGA,123519,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,*47\r\n";
constexpr char16_t kGga2[] = u"$GPGGA,123520,4807.040,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,*47\r\n";
constexpr char16_t kGsv[] = u"$GPGSV,1,1,02,01,40,083,46,02,17,308,41*70\r\n";

class GpsReceiverTest : public ::testing::Test {
 protected:
  GpsReceiverTest() : receiver(new GpsReceiver), entry(&events) {
    receiver->AddListener(&entry);
  }
  ~GpsReceiverTest() override { receiver->Stop(); }

  void Feed(const std::u16string& text) {
    receiver->OnText(text.c_str(), static_cast<uint32_t>(text.size()));
  }
  void Start() {
    CIMExceptionImpl error;
    ASSERT_EQ(receiver->Start(&error), 1);
  }

  test::ManualClock clock{10000};
  Ref<GpsReceiver> receiver;
  Events events;
  ListenerEntry entry;
};

// Run from an ordinary start, and from starts just before each wrap of the
// 32-bit tick count (unsigned, then signed), where every deadline of the
// run lies past the wrap.
class GpsReceiverAcrossWraps : public GpsReceiverTest, public ::testing::WithParamInterface<uint32_t> {};
INSTANTIATE_TEST_SUITE_P(Ticks, GpsReceiverAcrossWraps, ::testing::Values(10000u, 0xFFFFFFFFu - 50, 0x7FFFFFFFu - 50));

TEST_P(GpsReceiverAcrossWraps, StatusFollowsTheStream) {
  clock.Set(GetParam());
  EXPECT_EQ(receiver->GetStatus(), -2);
  Start();
  EXPECT_EQ(receiver->GetStatus(), -2) << "nothing received yet";
  Feed(kGga);
  EXPECT_EQ(receiver->GetStatus(), 0);
  EXPECT_EQ(events.statusChanges, 1);

  // Silence: nothing until the time-out interval has passed, then -1 once.
  receiver->OnNoData();
  clock.Advance(3000);
  receiver->OnNoData();
  EXPECT_EQ(receiver->GetStatus(), 0);
  clock.Advance(1);
  receiver->OnNoData();
  receiver->OnNoData();
  EXPECT_EQ(receiver->GetStatus(), -1);
  EXPECT_EQ(events.statusChanges, 2);

  // Text again, but none the receiver knows, and no sentence for over 3 s.
  Feed(u"$GNGGA,1,2,3\r\n");
  EXPECT_EQ(receiver->GetStatus(), -3);
  Feed(kGga2);
  EXPECT_EQ(receiver->GetStatus(), 0);

  // Unknown text alone keeps the status until 3 s pass without a sentence.
  clock.Advance(1000);
  Feed(u"$PGRME,15.0,M,45.0,M,25.0,M*1C\r\nnoise");
  EXPECT_EQ(receiver->GetStatus(), 0);
  clock.Advance(2001);
  Feed(u" more noise\n");
  EXPECT_EQ(receiver->GetStatus(), -3);
  const int changes = events.statusChanges;
  clock.Advance(10);
  Feed(u"noise\n");
  EXPECT_EQ(events.statusChanges, changes) << "-3 is announced once";

  // A shorter time-out is honoured.
  CIMExceptionImpl error;
  EXPECT_EQ(receiver->SetTimeoutInterval(500, &error), 1);
  EXPECT_EQ(receiver->GetTimeoutInterval(), 500u);
  Feed(kGga);
  clock.Advance(501);
  receiver->OnNoData();
  EXPECT_EQ(receiver->GetStatus(), -1);
  receiver->Stop();
  EXPECT_EQ(receiver->GetStatus(), -2);
}

TEST_P(GpsReceiverAcrossWraps, SourceErrorsChangeStatusOnlyAfterTheNotificationDeadline) {
  clock.Set(GetParam());
  Start();
  Feed(kGga);
  CIMExceptionImpl outOfMemory, failed;
  SetError(&outOfMemory, kErrOutOfMemory);
  SetError(&failed, kErrOperationFailed);
  receiver->OnError(failed);
  EXPECT_EQ(receiver->GetStatus(), 0) << "too soon after start";
  clock.Advance(201);
  receiver->OnError(outOfMemory);
  EXPECT_EQ(receiver->GetStatus(), -4);
  Feed(kGga2);
  EXPECT_EQ(receiver->GetStatus(), 0) << "the next sentence clears it";
  clock.Advance(201);
  receiver->OnError(failed);
  EXPECT_EQ(receiver->GetStatus(), -2);
}

TEST_P(GpsReceiverAcrossWraps, DataNotificationsAreThrottledAndCarryTheMasksInBetween) {
  clock.Set(GetParam());
  Start();
  // The first notification comes no sooner than two intervals after start.
  Feed(kGga);
  clock.Advance(100);
  Feed(kGga2);
  EXPECT_TRUE(events.data.empty());
  clock.Advance(101);
  Feed(kGsv);
  ASSERT_EQ(events.data.size(), 1u);
  EXPECT_EQ(events.data[0], 0x01u | 0x08u | 0x10u | 0x20u | 0x02u);

  // A sentence every 50 ms: about one notification per two sentences.
  events.data.clear();
  for (int i = 0; i < 20; ++i) {
    clock.Advance(50);
    const std::u16string lat = i % 2 ? u"4807.038" : u"4807.039";
    Feed(u"$GPGGA,1235" + std::u16string(i < 10 ? u"0" : u"") + WideString(1, u'0' + i % 10) + u"," + lat +
         u",N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,*47\r\n");
  }
  EXPECT_GE(events.data.size(), 6u);
  EXPECT_LE(events.data.size(), 10u);
  for (uint32_t mask : events.data) EXPECT_EQ(mask, 0x01u);
}

TEST_F(GpsReceiverTest, CopiesFollowTheMask) {
  Start();
  Feed(kGsv);
  GPSLocation location;
  GPSSatellites satellites;
  CIMExceptionImpl error;
  receiver->GetLocation(&location, &error);
  receiver->GetSatellitesInfo(&satellites, &error);
  EXPECT_EQ(satellites.Count, 2);
  EXPECT_EQ(satellites.Satellites[1].PRN, 2);
  EXPECT_EQ(location.ValidFlags, 0u) << "a satellites-only chunk copies no location";
  EXPECT_EQ(location.TimeType, 2);

  Feed(kGga);
  receiver->GetLocation(&location, &error);
  EXPECT_EQ(location.FixQuality, 1);
  EXPECT_EQ(location.SatellitesInUse, 8);

  // Starting twice fails; the copies survive a stop; a new start resets them.
  EXPECT_EQ(receiver->Start(&error), 0);
  EXPECT_EQ(error.Code(), kErrNotSupported);
  receiver->Stop();
  receiver->GetLocation(&location, &error);
  EXPECT_EQ(location.SatellitesInUse, 8);
  Start();
  receiver->GetLocation(&location, &error);
  EXPECT_EQ(location.SatellitesInUse, 0);
}

}  // namespace
}  // namespace kavo
