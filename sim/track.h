// The path the simulated receiver travels: a walk or a drive, with speed,
// course and altitude changing as a pedestrian's or a car's would.
#pragma once

#include "sim/geodesy.h"
#include "sim/prng.h"

namespace kavo::sim {

enum class Mode { kWalk, kDrive };

struct TrackPoint {
  Geodetic position;
  double speed = 0;   // metres per second over ground
  double course = 0;  // degrees from true north, [0, 360)
};

class Track {
 public:
  Track(Mode mode, const Geodetic& start, Prng random);

  const TrackPoint& Current() const { return point_; }
  // Moves on by `seconds`, integrating in short steps so that the path is
  // the same smooth curve whatever the reporting rate.
  void Advance(double seconds);

 private:
  struct Limits;
  static const Limits& LimitsFor(Mode mode);
  void Step(double dt);
  void NextSegment();

  const Limits& limits_;
  Prng random_;
  TrackPoint point_;
  double homeAltitude_;
  double targetSpeed_ = 0;
  double segmentLeft_ = 0;  // seconds until the next change of plan
  double turnLeft_ = 0;     // degrees still to turn, signed
  double wander_ = 0;       // slow drift of the course, degrees per second
  double climb_ = 0;        // metres per second
};

}  // namespace kavo::sim
