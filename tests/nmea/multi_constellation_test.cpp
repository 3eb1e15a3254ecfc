// A simulated GPS, GLONASS, Galileo and BeiDou receiver read by the library.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <map>

#include "common/test_clock.h"
#include "nmea/receiver_state_store.h"
#include "sim/simulator.h"
#include "support/wide_string.h"

namespace kavo::sim {
namespace {

// Each satellite kept is one in view, once, with its stronger signal.
TEST(MultiConstellation, AllTalkersGiveTheFixAndTheSky) {
  SimulatorOptions modern;
  modern.seed = 11;
  modern.mode = Mode::kDrive;
  modern.constellations = {System::kGps, System::kGlonass, System::kGalileo, System::kBeidou};
  modern.start = {-33.8688, -151.2093, 40.0};  // south and west
  nmea::ReceiverOptions options;
  ASSERT_TRUE(options.SetTalkers("GP,GN,GL,GA,GB") && options.SetChecksums("require"));
  const test::ManualClock clock;  // every store stamped at one local time
  nmea::ReceiverStateStore store(options);
  store.Reset();
  Simulator simulator(modern);
  for (int i = 0; i < 40; ++i) {
    const Epoch e = simulator.Next();
    store.ProcessChunk(FromUtf8(e.Text()));
    const GPSLocation& fix = store.Location();
    SCOPED_TRACE(e.index);
    ASSERT_TRUE(e.fix);
    EXPECT_NEAR(fix.Latitude, e.truth.position.latitude, 2e-6);

    // GLONASS as NMEA numbers it (65-96), Galileo from 301, BeiDou from 401.
    std::map<int, const SatelliteView*> inView;
    for (const SatelliteView& s : e.satellites)
      ASSERT_TRUE(inView.emplace(std::array{0, 0, 300, 400}[static_cast<int>(s.system)] + s.prn, &s).second);
    const GPSSatellites& sky = store.Satellites();
    ASSERT_EQ(static_cast<size_t>(sky.Count), std::min<size_t>(inView.size(), GPS_MAX_SATELLITES));
    for (int k = 0; k < sky.Count; ++k) {
      const GPSSatellite& kept = sky.Satellites[k];
      ASSERT_EQ(inView.count(kept.PRN), 1u) << kept.PRN << " twice, or not in view";
      const SatelliteView& s = *inView[kept.PRN];
      EXPECT_EQ(kept.SNR, std::max({s.snr, s.snr2, 0})) << kept.PRN;
      EXPECT_DOUBLE_EQ(kept.Elevation, s.elevation * 0.0174532925) << kept.PRN;
      EXPECT_DOUBLE_EQ(kept.Azimuth, s.azimuth * 0.0174532925) << kept.PRN;
      inView.erase(kept.PRN);
    }
  }
}

}  // namespace
}  // namespace kavo::sim
