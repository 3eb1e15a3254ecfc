#include "simulator/constellation.h"

#include <cmath>

namespace kavo::sim {
namespace {

constexpr double kEarthRotation = 7.2921151467e-5;  // rad/s

}  // namespace

Constellation::Constellation(System system, Prng random) : system_(system) {
  const bool gps = system == System::kGps;
  radius_ = gps ? 26559.7e3 : 25508.2e3;
  inclination_ = (gps ? 55.0 : 64.8) * kDegToRad;
  meanMotion_ = 2.0 * kPi / (gps ? 43082.0 : 40544.0);
  earthAngle_ = random.Uniform(0.0, 2.0 * kPi);
  const double nodeOffset = random.Uniform(0.0, 2.0 * kPi);

  // GPS: PRNs 1-32 over six planes, less a few out of service. GLONASS:
  // PRNs 65-88, eight to each of three planes.
  const int count = gps ? 32 : 24;
  const int planes = gps ? 6 : 3;
  const int slots = gps ? 6 : 8;
  for (int i = 0; i < count; ++i) {
    if (gps && random.Chance(0.06)) continue;
    const int plane = gps ? i % planes : i / slots;
    const int slot = gps ? i / planes : i % slots;
    Orbit orbit;
    orbit.prn = (gps ? 1 : 65) + i;
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
