// WGS-84 geometry for the track and the sky: geodetic to Earth-fixed
// coordinates, look angles from an observer, and moving a point by metres.
#pragma once

namespace kavo::sim {

constexpr double kPi = 3.14159265358979323846;
constexpr double kDegToRad = kPi / 180.0;
constexpr double kRadToDeg = 180.0 / kPi;

struct Vec3 {
  double x = 0, y = 0, z = 0;
};

struct Geodetic {
  double latitude = 0;   // degrees, north positive
  double longitude = 0;  // degrees, east positive
  double altitude = 0;   // metres above the ellipsoid
};

struct LookAngles {
  double elevation = 0;  // degrees above the horizon
  double azimuth = 0;    // degrees from true north, [0, 360)
};

Vec3 ToEcef(const Geodetic& point);
LookAngles Look(const Geodetic& observer, const Vec3& target);
// Moves `point` by `north` and `east` metres over the ellipsoid's local radii.
void Move(Geodetic& point, double north, double east);
// Brings an angle in degrees into [0, 360).
double NormalizeDegrees(double degrees);

}  // namespace kavo::sim
