// A driver on a simulated receiver, used only through the exported
// functions, as an application uses a receiver plugged into the machine.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <mutex>
#include <thread>

#include "KavoMobileGPS.h"
#include "common/eventually.h"
#include "common/test_clock.h"
#include "simulator/posix/pty_receiver.h"

namespace kavo {
namespace {

using test::Eventually;

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr uint32_t kSpeedUp = 10;

std::atomic<int> g_statusChanges{0};
void OnStatus() { ++g_statusChanges; }

std::u16string Wide(const std::string& text) { return std::u16string(text.begin(), text.end()); }

class LiveReceiver : public ::testing::Test {
 protected:
  LiveReceiver() {
    sim::PtyReceiverOptions options;
    options.simulation.seed = 7;
    options.simulation.rateHz = 5;
    options.realWaitMs = [](uint32_t ms) { return ms / kSpeedUp; };
    options.onEpoch = [this](const sim::Epoch& epoch) {
      std::lock_guard<std::mutex> lock(mutex_);
      if (epoch.fix) latest_ = epoch;
    };
    receiver_ = std::make_unique<sim::PtyReceiver>(options);
    receiver_->Start();
  }
  // The receiver's thread writes the fixture's members: it stops first.
  ~LiveReceiver() override { receiver_->Stop(); }

  GPSDriverHandle Open(uint32_t* lastError = nullptr) {
    const std::u16string name = Wide(receiver_->DevicePath());
    const COMPortParams params{4800, 0, 0, 8};
    COMPortInfoHandle port = COMPortInfo_Create(reinterpret_cast<const KavoChar*>(name.c_str()), &params);
    EXPECT_NE(port, nullptr);
    GPSDriverHandle driver = GPSDriver_CreateFromCOMPort(port, OnStatus, nullptr, nullptr);
    if (lastError) *lastError = KavoMobileGPS_GetLastError();
    COMPortInfo_Release(port);  // the driver keeps what it needs
    return driver;
  }

  sim::Epoch Latest() {
    std::lock_guard<std::mutex> lock(mutex_);
    return latest_;
  }

  test::FastClock clock_{kSpeedUp};
  std::unique_ptr<sim::PtyReceiver> receiver_;
  std::mutex mutex_;
  sim::Epoch latest_;
};

TEST_F(LiveReceiver, FixArrivesAndUnpluggingIsReportedAndStopIsPrompt) {
  GPSDriverHandle driver = Open();
  ASSERT_NE(driver, nullptr) << KavoMobileGPS_GetLastError();
  ASSERT_EQ(GPSDriver_Start(driver), 1);

  GPSLocation location{};
  ASSERT_TRUE(Eventually([&] {
    GPSDriver_GetLocation(driver, &location);
    return GPSDriver_GetStatus(driver) == GPS_STATUS_RECEIVING && location.FixQuality > 0;
  }));
  // The fix is the simulated position, to the resolution NMEA carries.
  const sim::Epoch truth = Latest();
  EXPECT_NEAR(location.Latitude, truth.truth.position.latitude, 1e-3);
  EXPECT_NEAR(location.Longitude, truth.truth.position.longitude, 1e-3);
  GPSSatellitesStateHandle satellites = GPSDriver_GetSatellitesInfo(driver);
  ASSERT_NE(satellites, nullptr);
  EXPECT_TRUE(Eventually([&] {
    GPSSatellitesState_Release(satellites);
    satellites = GPSDriver_GetSatellitesInfo(driver);
    return GPSSatellitesState_GetVisibleSatellitesCount(satellites) > 3;
  }));
  GPSSatellitesState_Release(satellites);

  // Unplugged: reads fail and the driver reports the source as gone.
  const int changesBefore = g_statusChanges;
  receiver_->Stop();
  EXPECT_TRUE(Eventually([&] { return GPSDriver_GetStatus(driver) == GPS_STATUS_STOPPED; }));
  EXPECT_GT(g_statusChanges.load(), changesBefore);

  const auto start = steady_clock::now();
  EXPECT_EQ(GPSDriver_Stop(driver), 1);
  GPSDriver_Release(driver);
  EXPECT_LT(steady_clock::now() - start, milliseconds(2000)) << "stop waits for at most one read";
}

TEST_F(LiveReceiver, APortHeldByAnotherDriverCannotBeOpened) {
  GPSDriverHandle first = Open();
  ASSERT_NE(first, nullptr);
  uint32_t lastError = 0;
  GPSDriverHandle second = Open(&lastError);
  EXPECT_EQ(second, nullptr);
  EXPECT_EQ(lastError, 2u) << "the port cannot be opened";
  GPSDriver_Release(first);
  GPSDriverHandle again = Open();
  EXPECT_NE(again, nullptr) << "released drivers close their port";
  GPSDriver_Release(again);
}

}  // namespace
}  // namespace kavo
