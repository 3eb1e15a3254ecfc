#include "nmea/gps_receiver.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "common/test_clock.h"

namespace kavo {
namespace {

class Events : public ReceiverListener {
 public:
  void OnDataChanged(uint32_t mask, const GPSLocation& location) override {
    data.push_back(mask);
    latitudes.push_back(location.Latitude);
  }
  void OnStatusChanged(int32_t status) override { statuses.push_back(status); }
  void OnSentence(const char16_t*) override {}
  std::vector<uint32_t> data;
  std::vector<double> latitudes;  // of the location each data notification carried
  std::vector<int32_t> statuses;  // each status announced
};

constexpr char16_t kGga[] = u"$GPGGA,123519,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,*47\r\n";
constexpr char16_t kGga2[] = u"$GPGGA,123520,4807.040,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,*47\r\n";
constexpr char16_t kGsv[] = u"$GPGSV,1,1,02,01,40,083,46,02,17,308,41*70\r\n";

// After `advance` ms the receiver gets text, a source error (`error`), or
// neither (an empty read); then its status is `status`.
struct Step {
  uint32_t advance;
  const char16_t* text;
  int32_t error;
  int32_t status;
};

class GpsReceiverTest : public ::testing::Test {
 protected:
  GpsReceiverTest() : receiver(new GpsReceiver), entry(&events) { receiver->AddListener(&entry); }
  ~GpsReceiverTest() override { receiver->Stop(); }

  void Feed(const std::u16string& text) { receiver->OnText(text.c_str(), static_cast<uint32_t>(text.size())); }
  void Start() {
    CIMExceptionImpl error;
    ASSERT_EQ(receiver->Start(&error), 1);
  }
  // A change of status is announced, the last announcement with the new
  // status; an unchanged status is not announced again.
  void Run(std::initializer_list<Step> steps) {
    for (const Step& step : steps) {
      const int32_t before = receiver->GetStatus();
      const size_t announced = events.statuses.size();
      clock.Advance(step.advance);
      CIMExceptionImpl error;
      SetError(&error, step.error);
      if (step.text)
        Feed(step.text);
      else if (step.error)
        receiver->OnError(error);
      else
        receiver->OnNoData();
      EXPECT_EQ(receiver->GetStatus(), step.status) << "at step " << &step - steps.begin();
      const std::vector<int32_t> seen(events.statuses.begin() + announced, events.statuses.end());
      EXPECT_EQ(seen.empty(), step.status == before) << "at step " << &step - steps.begin();
      EXPECT_EQ(seen.empty() ? before : seen.back(), step.status) << "at step " << &step - steps.begin();
    }
  }

  test::ManualClock clock{10000};
  Ref<GpsReceiver> receiver;
  Ref<Events> listener{new Events};
  Events& events = *listener;
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
  Run({{0, kGga, 0, 0},
       // Silence: nothing until the time-out interval has passed, then -1.
       {0, nullptr, 0, 0},
       {3000, nullptr, 0, 0},
       {1, nullptr, 0, -1},
       {0, nullptr, 0, -1},
       // Text again, but none the receiver knows, and no sentence for over 3 s.
       {0, u"$GNGGA,1,2,3\r\n", 0, -3},
       {0, kGga2, 0, 0},
       // Unknown text alone keeps the status until 3 s pass without a sentence.
       {1000, u"$PGRME,15.0,M,45.0,M,25.0,M*1C\r\nnoise", 0, 0},
       {2001, u" more noise\n", 0, -3},
       {10, u"noise\n", 0, -3}});
  CIMExceptionImpl error;
  EXPECT_EQ(receiver->SetTimeoutInterval(500, &error), 1);
  EXPECT_EQ(receiver->GetTimeoutInterval(), 500u);
  Run({{0, kGga, 0, 0}, {501, nullptr, 0, -1}});
  receiver->Stop();
  EXPECT_EQ(receiver->GetStatus(), -2);
}

TEST_P(GpsReceiverAcrossWraps, SourceErrorsChangeStatusOnlyAfterTheNotificationDeadline) {
  clock.Set(GetParam());
  Start();
  Run({{0, kGga, 0, 0},
       {0, nullptr, kErrOperationFailed, 0},  // too soon after start
       {201, nullptr, kErrOutOfMemory, -4},
       {0, kGga2, 0, 0},  // the next sentence clears it
       {201, nullptr, kErrOperationFailed, -2},
       // Stopped by the source: silence is no time-out.
       {3001, nullptr, 0, -2}});
}

TEST_P(GpsReceiverAcrossWraps, DataNotificationsAreThrottledAndCarryTheMasksInBetween) {
  clock.Set(GetParam());
  Start();
  // The first notification comes no sooner than two intervals after start
  // (at 150 ms, one interval and two differ).
  Feed(kGga);
  clock.Advance(150);
  Feed(kGga2);
  EXPECT_TRUE(events.data.empty());
  clock.Advance(51);
  Feed(kGsv);
  ASSERT_EQ(events.data.size(), 1u);
  EXPECT_EQ(events.data[0], 0x01u | 0x08u | 0x10u | 0x20u | 0x02u);

  // A new position every 50 ms: about one notification per two sentences,
  // each with the position just fed.
  events.data.clear();
  for (int i = 0; i < 20; ++i) {
    clock.Advance(50);
    const size_t notified = events.data.size();
    Feed(i % 2 ? kGga2 : kGga);
    if (events.data.size() > notified) {
      EXPECT_NEAR(events.latitudes.back(), i % 2 ? 48.117333 : 48.1173, 1e-6);
    }
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
