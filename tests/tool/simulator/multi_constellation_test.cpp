// A simulated modern receiver (GPS, GLONASS, Galileo, BeiDou, two signals on
// many satellites) read by the library: out comes what the simulator put in.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <map>

#include "common/test_clock.h"
#include "nmea/receiver_state_store.h"
#include "simulator/simulator.h"
#include "support/wide_string.h"

namespace kavo::sim {
namespace {

SimulatorOptions Modern(uint64_t seed) {
  SimulatorOptions o;
  o.seed = seed;
  o.mode = Mode::kDrive;
  o.constellations = {System::kGps, System::kGlonass, System::kGalileo, System::kBeidou};
  return o;
}

// One table for all systems: GLONASS as NMEA numbers it (65-96), Galileo
// from 301, BeiDou from 401.
int TableNumber(const SatelliteView& s) {
  static const int kOffsets[] = {0, 0, 300, 400};
  return kOffsets[static_cast<int>(s.system)] + s.prn;
}

TEST(MultiConstellation, AllTalkersGiveTheFixAndOneSkyOfTheUsedAndStrongest) {
  nmea::ReceiverOptions options;
  ASSERT_TRUE(options.SetTalkers("GP,GN,GL,GA,GB") && options.SetChecksums("require"));
  nmea::ReceiverStateStore store(options);
  store.Reset();
  Simulator simulator(Modern(11));
  int crowded = 0;
  for (int i = 0; i < 40; ++i) {
    const Epoch e = simulator.Next();
    store.ProcessChunk(FromUtf8(e.Text()));
    const GPSLocation& fix = store.Location();
    SCOPED_TRACE(e.index);
    ASSERT_TRUE(e.fix);
    EXPECT_NEAR(fix.Latitude, e.truth.position.latitude, 2e-6);
    EXPECT_NEAR(fix.Longitude, e.truth.position.longitude, 2e-6);
    EXPECT_NEAR(fix.Altitude, e.truth.position.altitude, 0.051);
    EXPECT_EQ(fix.SatellitesInUse, e.usedCount);
    for (const auto& [read, put] : {std::pair{fix.PDOP, e.pdop}, {fix.HDOP, e.hdop}, {fix.VDOP, e.vdop}})
      EXPECT_NEAR(read, put, 0.051);

    // Each satellite once, with its stronger signal.
    std::map<int, const SatelliteView*> truth;
    for (const SatelliteView& s : e.satellites) ASSERT_TRUE(truth.emplace(TableNumber(s), &s).second);
    auto strength = [](const SatelliteView& s) { return std::max({s.snr, s.snr2, 0}); };
    const GPSSatellites& sky = store.Satellites();
    ASSERT_EQ(static_cast<size_t>(sky.Count), std::min<size_t>(truth.size(), GPS_MAX_SATELLITES));
    std::map<int, const SatelliteView*> dropped = truth;
    for (int k = 0; k < sky.Count; ++k) {
      const GPSSatellite& kept = sky.Satellites[k];
      ASSERT_EQ(dropped.count(kept.PRN), 1u) << kept.PRN << " twice, or not in view";
      const SatelliteView& s = *dropped[kept.PRN];
      EXPECT_EQ(kept.SNR, strength(s)) << kept.PRN;
      EXPECT_DOUBLE_EQ(kept.Elevation, s.elevation * 0.0174532925) << kept.PRN;
      EXPECT_DOUBLE_EQ(kept.Azimuth, s.azimuth * 0.0174532925) << kept.PRN;
      dropped.erase(kept.PRN);
    }
    // Nothing left out beats what was kept: used first, then stronger.
    crowded += dropped.empty() ? 0 : 1;
    for (int k = 0; k < sky.Count; ++k) {
      const SatelliteView& kept = *truth[sky.Satellites[k].PRN];
      for (const auto& [number, left] : dropped)
        EXPECT_TRUE(kept.used ? !left->used || strength(*left) <= strength(kept) : !left->used)
            << number << " was dropped for " << sky.Satellites[k].PRN;
    }
  }
  EXPECT_GT(crowded, 30);  // the sky holds more than twelve
}

// Default options: none of the fixes (all "GN"); of the satellites, as ever,
// the last "$GPGSV" cycle: the GPS satellites' second signal, as sent.
TEST(MultiConstellation, DefaultOptionsSeeOnlyTheLastGpsCycle) {
  const test::ManualClock clock;  // both stamped at one local time
  nmea::ReceiverStateStore store, untouched;
  store.Reset(), untouched.Reset();
  Simulator simulator(Modern(13));
  for (int i = 0; i < 10; ++i) {
    const Epoch e = simulator.Next();
    store.ProcessChunk(FromUtf8(e.Text()));
    EXPECT_EQ(std::memcmp(&store.Location(), &untouched.Location(), sizeof(GPSLocation)), 0);
    std::vector<const SatelliteView*> second;
    for (const SatelliteView& s : e.satellites)
      if (s.system == System::kGps && s.snr2 >= 0) second.push_back(&s);
    ASSERT_EQ(static_cast<size_t>(store.Satellites().Count), second.size());
    for (size_t k = 0; k < second.size(); ++k) {
      EXPECT_EQ(store.Satellites().Satellites[k].PRN, second[k]->prn);
      EXPECT_EQ(store.Satellites().Satellites[k].SNR, second[k]->snr2);
    }
  }
}

}  // namespace
}  // namespace kavo::sim
