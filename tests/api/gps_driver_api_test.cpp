// The GPSDriver_ and GPSSatellitesState_ functions as an application calls
// them, on recordings the tests write.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "KavoMobileGPS.h"
#include "common/eventually.h"
#include "common/temp_dir.h"
#include "common/test_clock.h"
#include "platform/platform.h"

namespace kavo {
namespace {

using test::Eventually;

using std::chrono::milliseconds;

// What the callbacks saw, with the clock's time of each data callback.
struct Heard {
  std::mutex mutex;
  std::vector<uint32_t> masks;
  std::vector<uint32_t> maskTicks;
  std::vector<std::u16string> sentences;
  std::atomic<int> statusChanges{0};
};
Heard* g_heard = nullptr;

void OnStatus() { ++g_heard->statusChanges; }
void OnData(uint32_t mask) {
  std::lock_guard<std::mutex> lock(g_heard->mutex);
  g_heard->masks.push_back(mask);
  g_heard->maskTicks.push_back(platform::TickCount());
}
void OnSentence(const KavoChar* text) {
  std::lock_guard<std::mutex> lock(g_heard->mutex);
  g_heard->sentences.emplace_back(reinterpret_cast<const char16_t*>(text));
}

class DriverApi : public ::testing::Test {
 protected:
  DriverApi() { g_heard = &heard; }
  ~DriverApi() override {
    if (driver) GPSDriver_Release(driver);
    g_heard = nullptr;
  }

  // A recording of `lines`, played one line per `intervalMs`.
  GPSDriverHandle Play(const std::vector<std::string>& lines, int32_t intervalMs, bool repeat = false) {
    std::string text;
    for (const auto& line : lines) text += line + "\r\n";
    dir.Write("recording.nmea", text);
    const std::u16string path = dir.WideFile("recording.nmea");
    driver = GPSDriver_CreateFromFile(reinterpret_cast<const KavoChar*>(path.c_str()), intervalMs,
                                      repeat ? 1 : 0, OnStatus, OnData, OnSentence);
    return driver;
  }

  // The library's clock, run faster; it outlives the driver, whose threads
  // use it until the fixture releases the driver.
  void RunClockFaster(uint32_t speedUp) { clock = std::make_unique<test::FastClock>(speedUp); }

  std::unique_ptr<test::FastClock> clock;
  test::TempDir dir;
  Heard heard;
  GPSDriverHandle driver = nullptr;
};

std::string Gga(int second, const char* latitude) {
  char text[128];
  snprintf(text, sizeof text, "$GPGGA,1200%02d,%s,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,*47", second, latitude);
  return text;
}

TEST(DriverApiArguments, NullHandlesAndBadArgumentsFailWith160AndTheFamilysValue) {
  const auto lastError = [] { return KavoMobileGPS_GetLastError(); };
  GPSLocation location;
  GPSSatellite satellite;
  double time = 0;
  const KavoChar path[] = {'x', 0};

  EXPECT_EQ(GPSDriver_CreateFromCOMPort(nullptr, nullptr, nullptr, nullptr), nullptr);
  EXPECT_EQ(lastError(), 160u);
  EXPECT_EQ(GPSDriver_CreateFromFile(nullptr, 100, 0, nullptr, nullptr, nullptr), nullptr);
  EXPECT_EQ(lastError(), 160u);
  EXPECT_EQ(GPSDriver_CreateFromFile(path, 0, 0, nullptr, nullptr, nullptr), nullptr);
  EXPECT_EQ(lastError(), 160u);
  EXPECT_EQ(GPSDriver_CreateFromFile(path, -5, 0, nullptr, nullptr, nullptr), nullptr);
  EXPECT_EQ(lastError(), 160u);
  GPSDriver_Release(nullptr);
  EXPECT_EQ(lastError(), 160u);
  EXPECT_EQ(GPSDriver_Start(nullptr), 0);
  EXPECT_EQ(lastError(), 160u);
  EXPECT_EQ(GPSDriver_Stop(nullptr), 0);
  EXPECT_EQ(lastError(), 160u);
  EXPECT_EQ(GPSDriver_GetLocation(nullptr, &location), 0);
  EXPECT_EQ(lastError(), 160u);
  EXPECT_EQ(GPSDriver_GetSatellitesInfo(nullptr), nullptr);
  EXPECT_EQ(lastError(), 160u);
  EXPECT_EQ(GPSDriver_GetStatus(nullptr), -4);
  EXPECT_EQ(lastError(), 160u);
  EXPECT_EQ(GPSDriver_SetTimeoutInterval(nullptr, 10), 0);
  EXPECT_EQ(lastError(), 160u);
  EXPECT_EQ(GPSDriver_GetTimeoutInterval(nullptr), -1);
  EXPECT_EQ(lastError(), 160u);

  EXPECT_EQ(GPSSatellitesState_GetVisibleSatellitesCount(nullptr), 0);
  EXPECT_EQ(lastError(), 160u);
  EXPECT_EQ(GPSSatellitesState_GetSatellite(nullptr, 0, &satellite), 0);
  EXPECT_EQ(lastError(), 160u);
  EXPECT_EQ(GPSSatellitesState_GetTime(nullptr, &time), 0);
  EXPECT_EQ(lastError(), 160u);
  EXPECT_EQ(GPSSatellitesState_GetTimeType(nullptr), 2);
  EXPECT_EQ(lastError(), 160u);
  GPSSatellitesState_Release(nullptr);
  EXPECT_EQ(lastError(), 160u);
}

TEST(DriverApiArguments, MissingRecordingFailsWithoutAHandle) {
  test::TempDir dir;
  const std::u16string path = dir.WideFile("absent.nmea");
  EXPECT_EQ(GPSDriver_CreateFromFile(reinterpret_cast<const KavoChar*>(path.c_str()), 100, 0, nullptr,
                                     nullptr, nullptr),
            nullptr);
  EXPECT_NE(KavoMobileGPS_GetLastError(), 0u);
  EXPECT_NE(KavoMobileGPS_GetLastError(), 160u);
}

TEST_F(DriverApi, NewDriverAnswersQueriesBeforeStartAndChecksItsArguments) {
  ASSERT_NE(Play({Gga(0, "4807.038")}, 100), nullptr);
  EXPECT_EQ(KavoMobileGPS_GetLastError(), 0u);
  EXPECT_EQ(GPSDriver_GetStatus(driver), -2);
  EXPECT_EQ(GPSDriver_GetTimeoutInterval(driver), 3000);
  GPSLocation location;
  std::memset(&location, 0xAB, sizeof location);
  EXPECT_EQ(GPSDriver_GetLocation(driver, &location), 1);
  EXPECT_EQ(location.ValidFlags, 0u);
  EXPECT_EQ(location.TimeType, 2) << "an empty record before the first start";
  EXPECT_EQ(location.Latitude, 0.0);
  EXPECT_EQ(location.Time, 0.0);
  EXPECT_EQ(GPSDriver_GetLocation(driver, nullptr), 0);
  EXPECT_EQ(KavoMobileGPS_GetLastError(), 160u);

  EXPECT_EQ(GPSDriver_SetTimeoutInterval(driver, -1), 0);
  EXPECT_EQ(KavoMobileGPS_GetLastError(), 160u);
  EXPECT_EQ(GPSDriver_GetTimeoutInterval(driver), 3000) << "nothing was touched";
  EXPECT_EQ(GPSDriver_SetTimeoutInterval(driver, 0), 1);
  EXPECT_EQ(KavoMobileGPS_GetLastError(), 0u) << "a success resets the last error";
  EXPECT_EQ(GPSDriver_GetTimeoutInterval(driver), 0);

  // A snapshot before any satellites: empty, local clock, no entries.
  GPSSatellitesStateHandle snapshot = GPSDriver_GetSatellitesInfo(driver);
  ASSERT_NE(snapshot, nullptr);
  EXPECT_EQ(GPSSatellitesState_GetVisibleSatellitesCount(snapshot), 0);
  EXPECT_EQ(GPSSatellitesState_GetTimeType(snapshot), 2);
  GPSSatellite satellite;
  EXPECT_EQ(GPSSatellitesState_GetSatellite(snapshot, 0, &satellite), 0);
  EXPECT_EQ(KavoMobileGPS_GetLastError(), 160u);
  GPSSatellitesState_Release(snapshot);
  EXPECT_EQ(KavoMobileGPS_GetLastError(), 0u);

  EXPECT_EQ(GPSDriver_Stop(driver), 1) << "stopping a driver that never started";
}

TEST_F(DriverApi, StatusLivesThroughStartSilenceAndStop) {
  RunClockFaster(20);
  ASSERT_NE(Play({Gga(0, "4807.038"), Gga(1, "4807.039"), Gga(2, "4807.040")}, 100), nullptr);
  ASSERT_EQ(GPSDriver_SetTimeoutInterval(driver, 1000), 1);
  ASSERT_EQ(GPSDriver_Start(driver), 1);
  ASSERT_TRUE(Eventually([&] { return GPSDriver_GetStatus(driver) == 0; }));
  // The recording ends: after the time-out interval without text, -1.
  ASSERT_TRUE(Eventually([&] { return GPSDriver_GetStatus(driver) == -1; }));
  {
    std::lock_guard<std::mutex> lock(heard.mutex);
    EXPECT_EQ(heard.sentences.size(), 3u);
  }
  EXPECT_GE(heard.statusChanges.load(), 2);
  EXPECT_EQ(GPSDriver_Stop(driver), 1);
  EXPECT_EQ(GPSDriver_GetStatus(driver), -2);
}

TEST_F(DriverApi, TextWithoutKnownSentencesTurnsToMinusThree) {
  RunClockFaster(20);
  ASSERT_NE(Play({"$GNGGA,120000,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,*59",
                  "$PGRME,15.0,M,45.0,M,25.0,M*1C"},
                 100, true),
            nullptr);
  ASSERT_EQ(GPSDriver_Start(driver), 1);
  ASSERT_TRUE(Eventually([&] { return GPSDriver_GetStatus(driver) == -3; }));
  std::lock_guard<std::mutex> lock(heard.mutex);
  EXPECT_TRUE(heard.sentences.empty());
  EXPECT_TRUE(heard.masks.empty());
}

TEST_F(DriverApi, DataCallbacksAreThrottledAndCarryEveryChange) {
  RunClockFaster(5);
  std::vector<std::string> lines;
  for (int i = 0; i < 40; ++i) lines.push_back(Gga(i, i % 2 ? "4807.038" : "4807.039"));
  ASSERT_NE(Play(lines, 50), nullptr);
  const uint32_t started = platform::TickCount();
  ASSERT_EQ(GPSDriver_Start(driver), 1);
  ASSERT_TRUE(Eventually([&] {
    std::lock_guard<std::mutex> lock(heard.mutex);
    return heard.sentences.size() == lines.size();
  }));
  GPSDriver_Stop(driver);

  std::lock_guard<std::mutex> lock(heard.mutex);
  ASSERT_FALSE(heard.masks.empty());
  EXPECT_GE(heard.maskTicks.front() - started, 200u) << "no sooner than two intervals after start";
  // The first carries everything the first sentence set; later ones the position.
  EXPECT_EQ(heard.masks.front() & 0x33u, 0x33u);
  for (size_t i = 1; i < heard.masks.size(); ++i) EXPECT_EQ(heard.masks[i], 0x01u);
  // A sentence every 50 ms against a 100 ms interval: one callback for every
  // two or three sentences.
  EXPECT_GE(heard.masks.size(), lines.size() / 4);
  EXPECT_LE(heard.masks.size(), lines.size() / 2 + 1);
}

TEST_F(DriverApi, SatellitesAloneAreCopiedWithoutTheLocation) {
  RunClockFaster(20);
  ASSERT_NE(Play({"$GPGSV,2,1,05,01,40,083,46,02,17,308,41,12,07,344,39,14,22,228,45*75",
                  "$GPGSV,2,2,05,15,30,050,47*7A"},
                 50),
            nullptr);
  ASSERT_EQ(GPSDriver_Start(driver), 1);
  GPSSatellitesStateHandle snapshot = nullptr;
  ASSERT_TRUE(Eventually([&] {
    if (snapshot) GPSSatellitesState_Release(snapshot);
    snapshot = GPSDriver_GetSatellitesInfo(driver);
    return GPSSatellitesState_GetVisibleSatellitesCount(snapshot) == 5;
  }));
  GPSSatellite last;
  EXPECT_EQ(GPSSatellitesState_GetSatellite(snapshot, 4, &last), 1);
  EXPECT_EQ(last.PRN, 15);
  EXPECT_EQ(last.SNR, 47);
  EXPECT_EQ(GPSSatellitesState_GetSatellite(snapshot, 5, &last), 0);
  EXPECT_EQ(GPSSatellitesState_GetSatellite(snapshot, -1, &last), 0);
  double time = 0;
  EXPECT_EQ(GPSSatellitesState_GetTime(snapshot, &time), 1);
  EXPECT_GT(time, 40000.0) << "assembled now, by the local clock";

  GPSLocation location;
  GPSDriver_GetLocation(driver, &location);
  EXPECT_EQ(location.ValidFlags, 0u);
  EXPECT_EQ(location.TimeType, 2);

  GPSDriver_Release(driver);
  driver = nullptr;
  EXPECT_EQ(GPSSatellitesState_GetVisibleSatellitesCount(snapshot), 5) << "outlives its driver";
  GPSSatellitesState_Release(snapshot);
}

TEST_F(DriverApi, StartAndStopAlternateAndASecondStartIsRefused) {
  RunClockFaster(20);
  ASSERT_NE(Play({Gga(0, "4807.038"), Gga(1, "4807.039")}, 50, true), nullptr);
  for (int round = 0; round < 3; ++round) {
    ASSERT_EQ(GPSDriver_Start(driver), 1);
    ASSERT_TRUE(Eventually([&] { return GPSDriver_GetStatus(driver) == 0; }));
    EXPECT_EQ(GPSDriver_Stop(driver), 1);
    EXPECT_EQ(GPSDriver_GetStatus(driver), -2);
  }
  ASSERT_EQ(GPSDriver_Start(driver), 1);
  EXPECT_EQ(GPSDriver_Start(driver), 0) << "the receiver is already running";
  EXPECT_EQ(KavoMobileGPS_GetLastError(), 50u);
  EXPECT_EQ(GPSDriver_Stop(driver), 1);
}

}  // namespace
}  // namespace kavo
