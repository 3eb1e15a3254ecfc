#include "sim/sky_tracker.h"

#include <algorithm>
#include <cmath>

namespace kavo::sim {
namespace {

constexpr double kTrackingMask = 5.0;       // degrees: below, nothing is tracked
constexpr double kFixMask = 10.0;           // degrees: below, not used in the fix
constexpr int kSensitivity = 20;            // dB-Hz: weaker signals are lost
constexpr int kUsableSignal = 25;           // dB-Hz: weaker ones stay out of the fix
constexpr double kBlockRate = 1.0 / 400.0;  // obstructions per second and satellite
constexpr size_t kMaxUsed = 12;             // GSA has twelve slots

// Below the two highest satellites is where an obstruction blocks them.
double SecondHighest(const std::vector<SkyPosition>& inView) {
  std::vector<double> elevations;
  for (const SkyPosition& sky : inView) elevations.push_back(sky.look.elevation);
  std::sort(elevations.rbegin(), elevations.rend());
  return elevations.size() >= 2 ? elevations[1] : 0.0;
}

// The strongest usable signals make the fix.
void ChooseUsed(std::vector<TrackedSatellite>& satellites) {
  std::vector<TrackedSatellite*> candidates;
  for (TrackedSatellite& t : satellites)
    if (t.view.snr >= kUsableSignal && t.look.elevation >= kFixMask) candidates.push_back(&t);
  std::stable_sort(candidates.begin(), candidates.end(),
                   [](const TrackedSatellite* a, const TrackedSatellite* b) { return a->view.snr > b->view.snr; });
  if (candidates.size() > kMaxUsed) candidates.resize(kMaxUsed);
  for (TrackedSatellite* t : candidates) t->view.used = true;
}

}  // namespace

SkyTracker::Signal& SkyTracker::SignalAfter(int prn, double elevation, double dt) {
  auto found = signals_.find(prn);
  if (found == signals_.end()) {
    Signal fresh;
    fresh.offset = random_.Uniform(-3.0, 3.0);
    found = signals_.emplace(prn, fresh).first;
  }
  Signal& s = found->second;
  s.noise += (-0.1 * s.noise + 0.8 * random_.Normal()) * dt;
  s.noise = std::clamp(s.noise, -4.0, 4.0);
  const double lowFactor = elevation < 20.0 ? 3.0 : 1.0;
  if (s.blockedFor > 0) {
    s.blockedFor -= dt;
  } else if (random_.Chance(std::min(1.0, kBlockRate * lowFactor * dt))) {
    s.blockedFor = random_.Uniform(5.0, 30.0);
  }
  return s;
}

std::vector<TrackedSatellite> SkyTracker::Update(const std::vector<SkyPosition>& inView, double dt, bool obstructed) {
  std::vector<TrackedSatellite> result;
  const double weakThreshold = SecondHighest(inView);
  for (const SkyPosition& sky : inView) {
    const double el = sky.look.elevation;
    const Signal& s = SignalAfter(sky.prn, el, dt);
    double strength = 20.0 + 26.0 * std::sin(el * kDegToRad) + s.offset + s.noise;
    if (obstructed) strength -= 12.0;
    const int snr = std::clamp(static_cast<int>(std::lround(strength)), 0, 99);
    const bool blocked = s.blockedFor > 0 || (obstructed && el < weakThreshold);
    const bool tracked = el >= kTrackingMask && !blocked && snr >= kSensitivity;

    TrackedSatellite t;
    t.look = sky.look;
    t.view.system = sky.system;
    t.view.prn = sky.prn;
    t.view.elevation = static_cast<int>(std::lround(el));
    t.view.azimuth = static_cast<int>(std::lround(sky.look.azimuth)) % 360;
    t.view.snr = tracked ? snr : -1;
    result.push_back(t);
  }
  ChooseUsed(result);
  return result;
}

}  // namespace kavo::sim
