#include "sim/constellation.h"

#include <cmath>

namespace kavo::sim {
namespace {

constexpr double kEarthRotation = 7.2921151467e-5;  // rad/s

}  // namespace

Constellation::Constellation(System system, Prng random) : system_(system) {
  // Orbit radius (m), inclination, period (s), satellites, planes, first
  // number as NMEA reports it, share of slots out of service. GPS: 1-32 over
  // six planes; GLONASS: 65-88, eight to each of three planes; Galileo:
  // 1-24 over three planes; BeiDou: its medium orbits, 19-42.
  struct Layout {
    double radius, inclination, period;
    int count, planes, first;
    double outOfService;
  };
  static constexpr Layout kLayouts[] = {{26559.7e3, 55.0, 43082.0, 32, 6, 1, 0.06},
                                        {25508.2e3, 64.8, 40544.0, 24, 3, 65, 0.0},
                                        {29599.8e3, 56.0, 50680.0, 24, 3, 1, 0.1},
                                        {27906.1e3, 55.0, 46380.0, 24, 3, 19, 0.1}};
  const Layout& layout = kLayouts[static_cast<int>(system)];
  const bool gps = system == System::kGps;
  radius_ = layout.radius;
  inclination_ = layout.inclination * kDegToRad;
  meanMotion_ = 2.0 * kPi / layout.period;
  earthAngle_ = random.Uniform(0.0, 2.0 * kPi);
  const double nodeOffset = random.Uniform(0.0, 2.0 * kPi);

  const int planes = layout.planes;
  const int slots = (layout.count + planes - 1) / planes;
  for (int i = 0; i < layout.count; ++i) {
    if (layout.outOfService > 0.0 && random.Chance(layout.outOfService)) continue;
    // GPS numbers go round the planes; the others fill one plane first.
    const int plane = gps ? i % planes : i / slots;
    const int slot = gps ? i / planes : i % slots;
    Orbit orbit;
    orbit.prn = layout.first + i;
    orbit.node = nodeOffset + plane * 2.0 * kPi / planes;
    orbit.anomaly = slot * 2.0 * kPi / slots + plane * 0.26 + random.Uniform(-0.15, 0.15);
    orbits_.push_back(orbit);
  }
}

std::vector<SkyPosition> Constellation::InView(const Geodetic& observer, double seconds) const {
  std::vector<SkyPosition> result;
  const double earth = earthAngle_ + kEarthRotation * seconds;
  for (const Orbit& orbit : orbits_) {
    const double u = orbit.anomaly + meanMotion_ * seconds;
    const double node = orbit.node - earth;  // Earth-fixed longitude of the node
    const Vec3 position{
        radius_ * (std::cos(u) * std::cos(node) - std::sin(u) * std::cos(inclination_) * std::sin(node)),
        radius_ * (std::cos(u) * std::sin(node) + std::sin(u) * std::cos(inclination_) * std::cos(node)),
        radius_ * std::sin(u) * std::sin(inclination_)};
    const LookAngles look = Look(observer, position);
    if (look.elevation >= 0.0) result.push_back({system_, orbit.prn, look});
  }
  return result;
}

}  // namespace kavo::sim
