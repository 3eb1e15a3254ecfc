#include "sim/geodesy.h"

#include <cmath>

namespace kavo::sim {
namespace {

constexpr double kSemiMajor = 6378137.0;
constexpr double kEccentricity2 = 6.69437999014e-3;

}  // namespace

Vec3 ToEcef(const Geodetic& point) {
  const double lat = point.latitude * kDegToRad;
  const double lon = point.longitude * kDegToRad;
  const double n = kSemiMajor / std::sqrt(1.0 - kEccentricity2 * std::sin(lat) * std::sin(lat));
  return {(n + point.altitude) * std::cos(lat) * std::cos(lon), (n + point.altitude) * std::cos(lat) * std::sin(lon),
          (n * (1.0 - kEccentricity2) + point.altitude) * std::sin(lat)};
}

LookAngles Look(const Geodetic& observer, const Vec3& target) {
  const Vec3 origin = ToEcef(observer);
  const double dx = target.x - origin.x, dy = target.y - origin.y, dz = target.z - origin.z;
  const double lat = observer.latitude * kDegToRad;
  const double lon = observer.longitude * kDegToRad;
  const double east = -std::sin(lon) * dx + std::cos(lon) * dy;
  const double north = -std::sin(lat) * std::cos(lon) * dx - std::sin(lat) * std::sin(lon) * dy + std::cos(lat) * dz;
  const double up = std::cos(lat) * std::cos(lon) * dx + std::cos(lat) * std::sin(lon) * dy + std::sin(lat) * dz;
  const double horizontal = std::sqrt(east * east + north * north);
  return {std::atan2(up, horizontal) * kRadToDeg, NormalizeDegrees(std::atan2(east, north) * kRadToDeg)};
}

void Move(Geodetic& point, double north, double east) {
  const double lat = point.latitude * kDegToRad;
  const double w = std::sqrt(1.0 - kEccentricity2 * std::sin(lat) * std::sin(lat));
  const double meridian = kSemiMajor * (1.0 - kEccentricity2) / (w * w * w) + point.altitude;
  const double prime = kSemiMajor / w + point.altitude;
  point.latitude += north / meridian * kRadToDeg;
  point.longitude += east / (prime * std::cos(lat)) * kRadToDeg;
  if (point.longitude >= 180.0) point.longitude -= 360.0;
  if (point.longitude < -180.0) point.longitude += 360.0;
}

double NormalizeDegrees(double degrees) {
  double d = std::fmod(degrees, 360.0);
  if (d < 0) d += 360.0;
  return d >= 360.0 ? 0.0 : d;
}

}  // namespace kavo::sim
