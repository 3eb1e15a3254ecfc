// Under Wine: the GPS port search finds a receiver on a COM name mapped to a
// pseudo-terminal, and a driver made from the port found reads its fixes.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "KavoMobileGPS.h"
#include "common/eventually.h"
#include "common/registry_model.h"
#include "common/test_clock.h"
#include "platform/platform.h"
#include "port_peer.h"
#include "ports/gps_port_search.h"

namespace kavo {
namespace {

// Real time, except that the search waits for its probe as long as the
// probe takes on a slow machine.
class PatientClock : public test::FastClock {
 public:
  PatientClock() : FastClock(1) {}
  uint32_t RealWaitMs(uint32_t ms) override { return ms == GpsPortSearch::kProbeWaitMs ? 120000 : ms; }
};

TEST(FoundPort, ASearchFindsTheReceiverAt9600AndTheDriverMadeFromItReadsFixes) {
  PatientClock clock;
  const std::unique_ptr<test::PortPeer> peer = test::NewPortPeer();
  const std::string name = platform::Utf16ToUtf8(peer->PortName()) + ":";
  test::RegistryModel model("[HKEY_LOCAL_MACHINE\\Drivers\\Active\\01]\r\n\"Name\"=\"" + name + "\"\r\n");
  ASSERT_TRUE(model.Ok());
  // A receiver at 9600: at any other speed the port sees garbage.
  struct Receiver {
    std::atomic<bool> stop{false};
    std::thread thread;
    ~Receiver() {
      stop = true;
      thread.join();
    }
  } receiver;
  receiver.thread = std::thread([&] {
    while (!receiver.stop) {
      const bool at9600 = peer->Settings().rfind("9600 ", 0) == 0;
      peer->Send(at9600 ? "$GPGGA,123519,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,*47\r\n"
                        : "\xF0\x8E\x7F\xC3\x81\x99\xE6\x1F");
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
  });
  COMPortInfoHandle port = COMPortInfo_FindGPSCOMPort(1);
  ASSERT_NE(port, nullptr) << KavoMobileGPS_GetLastError();
  COMPortParams params{};
  ASSERT_EQ(COMPortInfo_GetParams(port, &params), 1);
  EXPECT_EQ(params.BaudRate, 9600);
  GPSDriverHandle driver = GPSDriver_CreateFromCOMPort(port, nullptr, nullptr, nullptr);
  COMPortInfo_Release(port);
  ASSERT_NE(driver, nullptr) << KavoMobileGPS_GetLastError();
  ASSERT_EQ(GPSDriver_Start(driver), 1);
  GPSLocation location{};
  EXPECT_TRUE(test::Eventually([&] {
    GPSDriver_GetLocation(driver, &location);
    return location.FixQuality > 0 && GPSDriver_GetStatus(driver) == 0;
  }));
  EXPECT_NEAR(location.Latitude, 48.1173, 0.001);
  GPSDriver_Stop(driver);
  GPSDriver_Release(driver);
}

}  // namespace
}  // namespace kavo
