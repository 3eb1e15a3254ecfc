// A simulated modern receiver (GPS, GLONASS, Galileo, BeiDou, two signals
// on many satellites) read by the library with all talkers accepted: what
// comes out must be what the simulator put in.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>

#include "nmea/receiver_state_store.h"
#include "simulator/simulator.h"
#include "support/wide_string.h"

namespace kavo::sim {
namespace {

SimulatorOptions Modern(uint64_t seed, double badChecksums = 0.0) {
  SimulatorOptions o;
  o.seed = seed;
  o.mode = Mode::kDrive;
  o.constellations = {System::kGps, System::kGlonass, System::kGalileo, System::kBeidou};
  o.badChecksums = badChecksums;
  return o;
}

nmea::ReceiverOptions Options(const char* talkers, const char* checksums) {
  nmea::ReceiverOptions options;
  EXPECT_TRUE(options.SetTalkers(talkers) && options.SetChecksums(checksums));
  return options;
}

// One table for all systems: GLONASS as NMEA numbers it (65-96), Galileo
// from 301, BeiDou from 401.
int TableNumber(const SatelliteView& s) {
  static const int kOffsets[] = {0, 0, 300, 400};
  return kOffsets[static_cast<int>(s.system)] + s.prn;
}

TEST(MultiConstellation, AllTalkersGiveTheFixAndOneSkyOfTheUsedAndStrongest) {
  for (uint64_t seed : {11u, 12u}) {
    nmea::ReceiverStateStore store(Options("GP,GN,GL,GA,GB", "require"));
    store.Reset();
    Simulator simulator(Modern(seed));
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
      EXPECT_NEAR(fix.GeoidSeparation, e.geoidSeparation, 0.051);
      EXPECT_EQ(fix.SatellitesInUse, e.usedCount);
      EXPECT_NEAR(fix.PDOP, e.pdop, 0.051);
      EXPECT_NEAR(fix.HDOP, e.hdop, 0.051);
      EXPECT_NEAR(fix.VDOP, e.vdop, 0.051);
      EXPECT_EQ(fix.FixQuality, 1);

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
}

// Default options on the same receiver: none of its fixes (all "GN"), and
// the satellites exactly as the contract reads "$GPGSV": the last cycle,
// here the GPS satellites' second signal, in the order sent.
TEST(MultiConstellation, DefaultOptionsSeeOnlyTheLastGpsCycle) {
  nmea::ReceiverStateStore store;
  store.Reset();
  Simulator simulator(Modern(13));
  for (int i = 0; i < 10; ++i) {
    const Epoch e = simulator.Next();
    store.ProcessChunk(FromUtf8(e.Text()));
    EXPECT_EQ(store.Location().ValidFlags, 0u);
    EXPECT_EQ(store.Location().Latitude, 0.0);
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

// Lines whose checksum the simulator broke are read or refused as the
// checksum option says; every other line is read in every mode.
TEST(MultiConstellation, BrokenChecksumsAreRefusedAsTheOptionSays) {
  const struct { const char* mode; bool wrongRead, missingRead; } modes[] = {
      {"ignore", true, true}, {"verify", false, true}, {"require", false, false}};
  for (const auto& m : modes) {
    SCOPED_TRACE(m.mode);
    nmea::ReceiverStateStore store(Options("GP,GN,GL,GA,GB", m.mode));
    store.Reset();
    Simulator simulator(Modern(14, 0.3));
    size_t expected = 0, read = 0, wrong = 0, missing = 0;
    for (int i = 0; i < 20; ++i) {
      for (const Line& line : simulator.Next().lines) {
        wrong += line.damage == Damage::kWrongChecksum;
        missing += line.damage == Damage::kNoChecksum;
        expected += line.damage == Damage::kWrongChecksum ? m.wrongRead
                    : line.damage == Damage::kNoChecksum  ? m.missingRead
                                                          : true;
        store.ProcessChunk(FromUtf8(line.text + "\r\n"));
        read += store.RecognisedSentences().Count();
      }
    }
    EXPECT_GT(wrong, 20u);
    EXPECT_GT(missing, 20u);
    EXPECT_EQ(read, expected);
  }
}

}  // namespace
}  // namespace kavo::sim
