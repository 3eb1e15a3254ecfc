// Satellites on circular orbits laid out like the GPS, GLONASS, Galileo
// and BeiDou (medium orbit) constellations, so that elevations and azimuths seen from the track move
// slowly and consistently, as real ones do.
#pragma once

#include <vector>

#include "sim/geodesy.h"
#include "sim/prng.h"

namespace kavo::sim {

enum class System { kGps, kGlonass, kGalileo, kBeidou };

struct SkyPosition {
  System system = System::kGps;
  int prn = 0;
  LookAngles look;
};

class Constellation {
 public:
  // The seed turns the whole constellation and the Earth under it, so each
  // seed sees another sky.
  Constellation(System system, Prng random);

  // Satellites above the horizon from `observer`, `seconds` after the start,
  // in PRN order.
  std::vector<SkyPosition> InView(const Geodetic& observer, double seconds) const;

 private:
  struct Orbit {
    int prn;
    double node;     // right ascension of the ascending node, radians
    double anomaly;  // argument of latitude at the start, radians
  };
  System system_;
  double radius_, inclination_, meanMotion_;
  double earthAngle_;
  std::vector<Orbit> orbits_;
};

}  // namespace kavo::sim
