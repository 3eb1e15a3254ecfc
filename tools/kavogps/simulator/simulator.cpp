#include "simulator/simulator.h"

#include <cmath>
#include <stdexcept>

#include "simulator/damage.h"
#include "simulator/dop.h"
#include "simulator/nmea_format.h"
#include "simulator/sentences.h"
#include "simulator/sky_tracker.h"

namespace kavo::sim {
namespace {

// Salts of the independent random streams.
enum Stream : uint64_t { kTrack = 1, kGpsSky, kGlonassSky, kGpsSignals, kGlonassSignals, kOutages, kDamage };

// A smooth, plausible geoid height (metres) for a position.
double GeoidSeparation(const Geodetic& p) {
  return 28.0 * std::sin(2.0 * p.latitude * kDegToRad) + 21.0 * std::cos(p.latitude * kDegToRad) *
                                                            std::sin((p.longitude + 40.0) * kDegToRad);
}

}  // namespace

std::string ValidateOptions(const SimulatorOptions& o) {
  if (!(o.rateHz >= 1.0 / 60.0 && o.rateHz <= 50.0)) return "the rate must be between 1/60 and 50 Hz";
  if (!(o.damage >= 0.0 && o.damage <= 1.0)) return "the damage probability must be between 0 and 1";
  if (!(std::fabs(o.start.latitude) <= 85.0)) return "the start latitude must be within 85 degrees of the equator";
  if (!(o.start.longitude >= -180.0 && o.start.longitude < 180.0)) return "the start longitude must be in [-180, 180)";
  if (!(o.start.altitude >= -500.0 && o.start.altitude <= 9000.0)) return "the start altitude must be between -500 and 9000 m";
  if (!IsValid(o.startTime)) return "the start time is not a valid UTC date and time";
  return {};
}

uint64_t EpochsFor(const SimulatorOptions& options, double seconds) {
  const double epochs = std::ceil(seconds * options.rateHz - 1e-9);
  return epochs < 1.0 ? 1 : static_cast<uint64_t>(epochs);
}

std::string Epoch::Text() const {
  std::string text;
  for (const Line& line : lines) {
    text += line.text;
    text += "\r\n";
  }
  return text;
}

struct Simulator::State {
  explicit State(const SimulatorOptions& o)
      : root(o.seed),
        track(o.mode, o.start, root.Fork(kTrack)),
        gpsSky(System::kGps, root.Fork(kGpsSky)),
        glonassSky(System::kGlonass, root.Fork(kGlonassSky)),
        gpsSignals(root.Fork(kGpsSignals)),
        glonassSignals(root.Fork(kGlonassSignals)),
        outages(root.Fork(kOutages)),
        damage(root.Fork(kDamage)) {}

  Prng root;
  Track track;
  Constellation gpsSky, glonassSky;
  SkyTracker gpsSignals, glonassSignals;
  Prng outages, damage;
  uint64_t index = 0;
  double nextOutage = 0, outageEnd = 0;
};

Simulator::Simulator(const SimulatorOptions& options) : options_(options) {
  const std::string problem = ValidateOptions(options);
  if (!problem.empty()) throw std::invalid_argument(problem);
  intervalMs_ = static_cast<uint32_t>(std::lround(1000.0 / options.rateHz));
  state_ = std::make_unique<State>(options);
  state_->nextOutage = state_->outages.Uniform(40.0, 90.0);
}

Simulator::~Simulator() = default;

Epoch Simulator::Next() {
  State& s = *state_;
  Epoch e;
  e.index = s.index++;
  e.elapsedMs = e.index * intervalMs_;
  e.time = AddMilliseconds(options_.startTime, e.elapsedMs);
  const double seconds = e.elapsedMs / 1000.0;
  const double dt = e.index == 0 ? 0.0 : intervalMs_ / 1000.0;
  s.track.Advance(dt);
  e.truth = s.track.Current();
  e.geoidSeparation = GeoidSeparation(e.truth.position);

  bool obstructed = false;
  if (options_.fixLoss) {
    if (seconds >= s.nextOutage) {
      s.outageEnd = s.nextOutage + s.outages.Uniform(8.0, 25.0);
      s.nextOutage = s.outageEnd + s.outages.Uniform(60.0, 180.0);
    }
    obstructed = seconds < s.outageEnd;
  }

  // The sky: GPS always, GLONASS when other talkers are on.
  std::vector<TrackedSatellite> gps = s.gpsSignals.Update(s.gpsSky.InView(e.truth.position, seconds), dt, obstructed);
  std::vector<TrackedSatellite> glonass;  // stays empty without other talkers
  if (options_.otherTalkers)
    glonass = s.glonassSignals.Update(s.glonassSky.InView(e.truth.position, seconds), dt, obstructed);
  std::vector<LookAngles> gpsUsed, allUsed;
  for (const std::vector<TrackedSatellite>* group : {&gps, &glonass}) {
    for (const TrackedSatellite& t : *group) {
      e.satellites.push_back(t.view);
      if (!t.view.used) continue;
      allUsed.push_back(t.look);
      if (t.view.system == System::kGps) gpsUsed.push_back(t.look);
    }
  }
  e.usedCount = static_cast<int>(gpsUsed.size());

  Dilution dop;
  e.fix = ComputeDilution(gpsUsed, &dop);
  e.quality = e.fix ? 1 : 0;
  e.pdop = e.fix ? dop.pdop : 99.99;
  e.hdop = e.fix ? dop.hdop : 99.99;
  e.vdop = e.fix ? dop.vdop : 99.99;
  CombinedFix combined;
  combined.usedCount = static_cast<int>(allUsed.size());
  Dilution all;
  if (e.fix && ComputeDilution(allUsed, &all)) {
    combined.pdop = all.pdop;
    combined.hdop = all.hdop;
    combined.vdop = all.vdop;
  }

  // Satellites in view once a second, as receivers do at higher rates.
  e.satellitesReported = e.index == 0 || e.elapsedMs / 1000 != (e.elapsedMs - intervalMs_) / 1000;

  std::vector<std::string> texts;
  if (options_.proprietary && e.index == 0) texts.push_back(Sentence("PSRFTXT,KAVO RECEIVER SIMULATOR"));
  texts.push_back(Gga(e, "GP", e.usedCount, e.hdop));
  if (options_.otherTalkers) texts.push_back(Gga(e, "GN", combined.usedCount, combined.hdop));
  texts.push_back(Gsa(e, "GP", System::kGps, e.pdop, e.hdop, e.vdop));
  if (options_.otherTalkers)
    texts.push_back(Gsa(e, "GN", System::kGlonass, combined.pdop, combined.hdop, combined.vdop));
  if (e.satellitesReported) {
    for (std::string& gsv : Gsv(e, "GP", System::kGps)) texts.push_back(std::move(gsv));
    if (options_.otherTalkers)
      for (std::string& gsv : Gsv(e, "GL", System::kGlonass)) texts.push_back(std::move(gsv));
  }
  texts.push_back(Rmc(e));
  texts.push_back(Vtg(e));
  if (options_.proprietary) {
    texts.push_back(Pgrme(e));
    texts.push_back(Pgrmz(e));
  }

  for (std::string& text : texts) {
    Line line{std::move(text), Damage::kNone};
    if (options_.damage > 0.0 && s.damage.Chance(options_.damage)) line.damage = DamageLine(line.text, s.damage);
    e.lines.push_back(std::move(line));
  }
  return e;
}

}  // namespace kavo::sim
