// What the receiver makes of the satellites in view: which it tracks, at
// what signal strength, and which it uses in the fix.
#pragma once

#include <map>
#include <vector>

#include "sim/constellation.h"
#include "sim/simulator.h"

namespace kavo::sim {

struct TrackedSatellite {
  SatelliteView view;
  LookAngles look;  // exact angles, for the geometry of the fix
};

class SkyTracker {
 public:
  explicit SkyTracker(Prng random) : random_(random) {}

  // Satellites in view after `dt` seconds. While `obstructed` (a tunnel, an
  // urban canyon) only the two highest still get through, weakly.
  std::vector<TrackedSatellite> Update(const std::vector<SkyPosition>& inView, double dt, bool obstructed);

 private:
  struct Signal {
    double offset = 0;      // this satellite's own strength, dB
    double noise = 0;       // slowly varying fading, dB
    double blockedFor = 0;  // seconds still behind an obstacle
  };
  // The satellite's signal `dt` seconds on: its fading, and whether
  // something blocks it (more often low in the sky).
  Signal& SignalAfter(int prn, double elevation, double dt);

  Prng random_;
  std::map<int, Signal> signals_;
};

}  // namespace kavo::sim
