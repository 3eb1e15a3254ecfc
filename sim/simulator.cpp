#include "sim/simulator.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "sim/damage.h"
#include "sim/dop.h"
#include "sim/nmea_format.h"
#include "sim/sentences.h"
#include "sim/sky_tracker.h"

namespace kavo::sim {
namespace {

// Salts of the independent random streams.
// Salts of the independent random streams; new ones go at the end, so
// that older options keep their recordings.
enum Stream : uint64_t {
  kTrack = 1,
  kGpsSky,
  kGlonassSky,
  kGpsSignals,
  kGlonassSignals,
  kOutages,
  kDamage,
  kGalileoSky,
  kBeidouSky,
  kGalileoSignals,
  kBeidouSignals,
  kSecondSignals,
  kChecksums
};

const char* TalkerOf(System system) {
  static const char* const kTalkers[] = {"GP", "GL", "GA", "GB"};
  return kTalkers[static_cast<int>(system)];
}

// NMEA 4.10 system ids, and the NMEA 4.11 signal ids of the first and the
// second signal (0: none): GPS L1 C/A and L5, GLONASS G1, Galileo E1 and
// E5a, BeiDou B1I and B2a.
int SystemId(System system) { return static_cast<int>(system) + 1; }
int FirstSignal(System system) { return system == System::kGalileo ? 7 : 1; }
int SecondSignal(System system) {
  static const int kSignals[] = {8, 0, 1, 5};
  return kSignals[static_cast<int>(system)];
}
// Newer GPS satellites (here the even-numbered ones), and every Galileo
// and BeiDou one, send a second civil signal.
bool HasSecondSignal(System system, int prn) {
  return SecondSignal(system) != 0 && (system != System::kGps || prn % 2 == 0);
}

// A checksum that no longer matches, or none at all.
Damage BreakChecksum(std::string& line, Prng& random) {
  const size_t star = line.rfind('*');
  if (random.Chance(0.5)) {
    line.resize(star);
    return Damage::kNoChecksum;
  }
  const uint8_t wrong =
      static_cast<uint8_t>(NmeaChecksum(std::string_view(line).substr(1, star - 1)) ^ random.Int(1, 255));
  static const char kHex[] = "0123456789ABCDEF";
  line[star + 1] = kHex[wrong >> 4];
  line[star + 2] = kHex[wrong & 15];
  return Damage::kWrongChecksum;
}

// A smooth, plausible geoid height (metres) for a position.
double GeoidSeparation(const Geodetic& p) {
  return 28.0 * std::sin(2.0 * p.latitude * kDegToRad) +
         21.0 * std::cos(p.latitude * kDegToRad) * std::sin((p.longitude + 40.0) * kDegToRad);
}

}  // namespace

std::string ValidateOptions(const SimulatorOptions& o) {
  if (!(o.rateHz >= 1.0 / 60.0 && o.rateHz <= 50.0)) return "the rate must be between 1/60 and 50 Hz";
  if (!(o.damage >= 0.0 && o.damage <= 1.0)) return "the damage probability must be between 0 and 1";
  if (!(o.badChecksums >= 0.0 && o.badChecksums <= 1.0))
    return "the probability of bad checksums must be between 0 and 1";
  for (size_t i = 0; i < o.constellations.size(); ++i)
    for (size_t j = 0; j < i; ++j)
      if (o.constellations[i] == o.constellations[j]) return "a constellation is named twice";
  if (!(std::fabs(o.start.latitude) <= 85.0)) return "the start latitude must be within 85 degrees of the equator";
  if (!(o.start.longitude >= -180.0 && o.start.longitude < 180.0)) return "the start longitude must be in [-180, 180)";
  if (!(o.start.altitude >= -500.0 && o.start.altitude <= 9000.0))
    return "the start altitude must be between -500 and 9000 m";
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
        skies{Constellation(System::kGps, root.Fork(kGpsSky)), Constellation(System::kGlonass, root.Fork(kGlonassSky)),
              Constellation(System::kGalileo, root.Fork(kGalileoSky)),
              Constellation(System::kBeidou, root.Fork(kBeidouSky))},
        signals{SkyTracker(root.Fork(kGpsSignals)), SkyTracker(root.Fork(kGlonassSignals)),
                SkyTracker(root.Fork(kGalileoSignals)), SkyTracker(root.Fork(kBeidouSignals))},
        outages(root.Fork(kOutages)),
        damage(root.Fork(kDamage)),
        secondSignals(root.Fork(kSecondSignals)),
        checksums(root.Fork(kChecksums)) {}

  Prng root;
  Track track;
  Constellation skies[4];  // by System
  SkyTracker signals[4];
  Prng outages, damage, secondSignals, checksums;
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

  // The sky: the constellations asked for; else GPS, and GLONASS when other
  // talkers are on.
  const bool modern = !options_.constellations.empty();
  std::vector<System> systems = options_.constellations;
  if (!modern) {
    systems.push_back(System::kGps);
    if (options_.otherTalkers) systems.push_back(System::kGlonass);
  }
  std::vector<LookAngles> gpsUsed, allUsed;
  for (const System system : systems) {
    const int index = static_cast<int>(system);
    for (const TrackedSatellite& t :
         s.signals[index].Update(s.skies[index].InView(e.truth.position, seconds), dt, obstructed)) {
      e.satellites.push_back(t.view);
      SatelliteView& view = e.satellites.back();
      if (modern && view.snr >= 0 && HasSecondSignal(system, view.prn))
        view.snr2 = std::clamp(view.snr + static_cast<int>(std::lround(s.secondSignals.Uniform(-6.0, 4.0))), 0, 99);
      if (!t.view.used) continue;
      allUsed.push_back(t.look);
      if (t.view.system == System::kGps) gpsUsed.push_back(t.look);
    }
  }
  // Older receivers fix with GPS alone; modern ones with all they track.
  const std::vector<LookAngles>& fixUsed = modern ? allUsed : gpsUsed;
  e.usedCount = static_cast<int>(fixUsed.size());

  Dilution dop;
  e.fix = ComputeDilution(fixUsed, &dop);
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
  if (modern) {
    const std::string talker = systems.size() > 1 ? "GN" : TalkerOf(systems[0]);
    texts.push_back(Gga(e, talker, e.usedCount, e.hdop));
    for (const System system : systems)
      texts.push_back(Gsa(e, talker, system, e.pdop, e.hdop, e.vdop, SystemId(system)));
    if (e.satellitesReported) {
      for (const System system : systems) {
        for (std::string& gsv : Gsv(e, TalkerOf(system), system, FirstSignal(system), false))
          texts.push_back(std::move(gsv));
        if (SecondSignal(system) != 0)
          for (std::string& gsv : Gsv(e, TalkerOf(system), system, SecondSignal(system), true))
            texts.push_back(std::move(gsv));
      }
    }
    texts.push_back(Rmc(e, talker, true));
    texts.push_back(Vtg(e, talker));
  } else {
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
  }
  if (options_.proprietary) {
    texts.push_back(Pgrme(e));
    texts.push_back(Pgrmz(e));
  }

  for (std::string& text : texts) {
    Line line{std::move(text), Damage::kNone};
    if (options_.damage > 0.0 && s.damage.Chance(options_.damage))
      line.damage = DamageLine(line.text, s.damage);
    else if (options_.badChecksums > 0.0 && s.checksums.Chance(options_.badChecksums))
      line.damage = BreakChecksum(line.text, s.checksums);
    e.lines.push_back(std::move(line));
  }
  return e;
}

}  // namespace kavo::sim
