#include "sim/track.h"

#include <algorithm>
#include <cmath>

namespace kavo::sim {

// How a pedestrian or a car moves: speeds in m/s, times in seconds.
struct Track::Limits {
  double moveProbability;     // chance that the next segment moves at all
  double minSpeed, maxSpeed;  // cruising speed of a moving segment
  double minMove, maxMove;    // length of a moving segment
  double minStop, maxStop;    // length of a stop
  double turnProbability;     // chance of a corner at the start of a segment
  double minTurn, maxTurn;
  double accelerate, brake;  // m/s^2
  double lateral;            // largest sideways acceleration in a turn
  double maxYawRate;         // degrees per second
  double maxWander;          // degrees per second
  double maxClimb;           // m/s
};

namespace {

constexpr double kMaxStep = 0.2;

}  // namespace

Track::Track(Mode mode, const Geodetic& start, Prng random)
    : limits_(LimitsFor(mode)), random_(random), homeAltitude_(start.altitude) {
  point_.position = start;
  point_.course = random_.Uniform(0.0, 360.0);
}

void Track::Advance(double seconds) {
  while (seconds > 1e-9) {
    const double dt = std::min(seconds, kMaxStep);
    Step(dt);
    seconds -= dt;
  }
}

void Track::NextSegment() {
  const Limits& l = limits_;
  if (random_.Chance(l.moveProbability)) {
    targetSpeed_ = random_.Uniform(l.minSpeed, l.maxSpeed);
    segmentLeft_ = random_.Uniform(l.minMove, l.maxMove);
    if (random_.Chance(l.turnProbability)) {
      const double angle = random_.Uniform(l.minTurn, l.maxTurn);
      turnLeft_ = random_.Chance(0.5) ? angle : -angle;
    }
  } else {
    targetSpeed_ = 0;
    segmentLeft_ = random_.Uniform(l.minStop, l.maxStop);
  }
}

void Track::Step(double dt) {
  const Limits& l = limits_;
  segmentLeft_ -= dt;
  if (segmentLeft_ <= 0) NextSegment();

  const double oldSpeed = point_.speed;
  const double oldCourse = point_.course;

  // Speed moves toward the segment's target within the vehicle's limits.
  const double gap = targetSpeed_ - point_.speed;
  point_.speed += std::clamp(gap, -l.brake * dt, l.accelerate * dt);
  if (point_.speed < 1e-6) point_.speed = 0;

  // Course: a corner still to take, plus a slow wander; only while moving,
  // and never faster than the sideways acceleration allows.
  wander_ += (-0.2 * wander_ + 0.6 * random_.Normal()) * dt;
  wander_ = std::clamp(wander_, -l.maxWander, l.maxWander);
  if (point_.speed > 0.3) {
    const double yawLimit = std::min(l.maxYawRate, l.lateral / point_.speed * kRadToDeg);
    double turn = std::clamp(turnLeft_, -yawLimit * dt, yawLimit * dt);
    turnLeft_ -= turn;
    turn += std::clamp(wander_ * dt, -yawLimit * dt - turn, yawLimit * dt - turn);
    point_.course = NormalizeDegrees(point_.course + turn);
  }

  // Gentle hills, drawn back toward the starting height.
  climb_ += (-0.05 * climb_ + 0.02 * random_.Normal() - 0.0005 * (point_.position.altitude - homeAltitude_)) * dt;
  climb_ = std::clamp(climb_, -l.maxClimb, l.maxClimb);
  point_.position.altitude += climb_ * dt * std::min(1.0, point_.speed / std::max(l.minSpeed, 0.1));

  // Position by the mean velocity over the step.
  const double north =
      0.5 * (oldSpeed * std::cos(oldCourse * kDegToRad) + point_.speed * std::cos(point_.course * kDegToRad)) * dt;
  const double east =
      0.5 * (oldSpeed * std::sin(oldCourse * kDegToRad) + point_.speed * std::sin(point_.course * kDegToRad)) * dt;
  Move(point_.position, north, east);
}

const Track::Limits& Track::LimitsFor(Mode mode) {
  static const Limits walk{0.85, 1.1, 1.7, 20, 90, 3, 15, 0.5, 30, 100, 0.5, 0.8, 1.5, 60, 3.0, 0.15};
  static const Limits drive{0.75, 8, 22, 15, 60, 5, 30, 0.4, 60, 100, 2.0, 3.0, 2.5, 25, 1.0, 0.5};
  return mode == Mode::kWalk ? walk : drive;
}

}  // namespace kavo::sim
