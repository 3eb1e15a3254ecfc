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
  kChecksums,
  kBinary
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
  if (!(o.binaryMessages >= 0.0 && o.binaryMessages <= 1.0))
    return "the probability of binary messages must be between 0 and 1";
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
    text += line.binary;
    text += line.text;
    text += "\r\n";
  }
  return text;
}

namespace {

// The systems in the sky: the constellations asked for; else GPS, and
// GLONASS when other talkers are on.
std::vector<System> SystemsInSky(const SimulatorOptions& options) {
  if (!options.constellations.empty()) return options.constellations;
  std::vector<System> systems{System::kGps};
  if (options.otherTalkers) systems.push_back(System::kGlonass);
  return systems;
}

// The exact angles of the satellites a fix uses.
struct UsedSatellites {
  std::vector<LookAngles> gps, all;
};

// The epoch's fix from the satellites it uses: older receivers fix with GPS
// alone, modern ones with all they track. Returns what the combined
// sentences of other talkers report: every satellite used.
CombinedFix SetFix(const UsedSatellites& used, bool modern, Epoch* e) {
  const std::vector<LookAngles>& fixUsed = modern ? used.all : used.gps;
  e->usedCount = static_cast<int>(fixUsed.size());
  Dilution dop;
  e->fix = ComputeDilution(fixUsed, &dop);
  e->quality = e->fix ? 1 : 0;
  e->pdop = e->fix ? dop.pdop : 99.99;
  e->hdop = e->fix ? dop.hdop : 99.99;
  e->vdop = e->fix ? dop.vdop : 99.99;
  CombinedFix combined;
  combined.usedCount = static_cast<int>(used.all.size());
  Dilution all;
  if (e->fix && ComputeDilution(used.all, &all)) {
    combined.pdop = all.pdop;
    combined.hdop = all.hdop;
    combined.vdop = all.vdop;
  }
  return combined;
}

void Append(std::vector<std::string>&& more, std::vector<std::string>* texts) {
  for (std::string& text : more) texts->push_back(std::move(text));
}

// A modern receiver's epoch: position sentences from the system's talker
// ("GN" for several), a GSA per system, and a GSV cycle per signal.
std::vector<std::string> ModernSentences(const Epoch& e, const std::vector<System>& systems) {
  const std::string talker = systems.size() > 1 ? "GN" : TalkerOf(systems[0]);
  std::vector<std::string> texts{Gga(e, talker, e.usedCount, e.hdop)};
  for (const System system : systems) texts.push_back(Gsa(e, talker, system, e.pdop, e.hdop, e.vdop, SystemId(system)));
  if (e.satellitesReported) {
    for (const System system : systems) {
      Append(Gsv(e, TalkerOf(system), system, FirstSignal(system), false), &texts);
      if (SecondSignal(system) != 0) Append(Gsv(e, TalkerOf(system), system, SecondSignal(system), true), &texts);
    }
  }
  texts.push_back(Rmc(e, talker, true));
  texts.push_back(Vtg(e, talker));
  return texts;
}

// An older receiver's epoch: GPS sentences, and with other talkers the
// combined GGA and GSA and GLONASS's satellites beside them.
std::vector<std::string> ClassicSentences(const Epoch& e, bool otherTalkers, const CombinedFix& combined) {
  std::vector<std::string> texts{Gga(e, "GP", e.usedCount, e.hdop)};
  if (otherTalkers) texts.push_back(Gga(e, "GN", combined.usedCount, combined.hdop));
  texts.push_back(Gsa(e, "GP", System::kGps, e.pdop, e.hdop, e.vdop));
  if (otherTalkers) texts.push_back(Gsa(e, "GN", System::kGlonass, combined.pdop, combined.hdop, combined.vdop));
  if (e.satellitesReported) {
    Append(Gsv(e, "GP", System::kGps), &texts);
    if (otherTalkers) Append(Gsv(e, "GL", System::kGlonass), &texts);
  }
  texts.push_back(Rmc(e));
  texts.push_back(Vtg(e));
  return texts;
}

std::vector<std::string> EpochSentences(const SimulatorOptions& options, const std::vector<System>& systems,
                                        const CombinedFix& combined, const Epoch& e) {
  std::vector<std::string> texts;
  if (options.proprietary && e.index == 0) texts.push_back(Sentence("PSRFTXT,KAVO RECEIVER SIMULATOR"));
  Append(options.constellations.empty() ? ClassicSentences(e, options.otherTalkers, combined)
                                        : ModernSentences(e, systems),
         &texts);
  if (options.proprietary) {
    texts.push_back(Pgrme(e));
    texts.push_back(Pgrmz(e));
  }
  return texts;
}

}  // namespace

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
        checksums(root.Fork(kChecksums)),
        binary(root.Fork(kBinary)) {}

  Prng root;
  Track track;
  Constellation skies[4];  // by System
  SkyTracker signals[4];
  Prng outages, damage, secondSignals, checksums, binary;
  uint64_t index = 0;
  double nextOutage = 0, outageEnd = 0;

  // Whether the sky is blocked at `seconds`, with outages now and then.
  bool Obstructed(const SimulatorOptions& options, double seconds) {
    if (!options.fixLoss) return false;
    if (seconds >= nextOutage) {
      outageEnd = nextOutage + outages.Uniform(8.0, 25.0);
      nextOutage = outageEnd + outages.Uniform(60.0, 180.0);
    }
    return seconds < outageEnd;
  }

  // The satellites in view of `e` after `dt` seconds, system by system,
  // with second signals for modern receivers; returns those used.
  UsedSatellites TrackSky(const std::vector<System>& systems, bool modern, double dt, bool obstructed, Epoch* e) {
    const double seconds = e->elapsedMs / 1000.0;
    UsedSatellites used;
    for (const System system : systems) {
      const int index = static_cast<int>(system);
      for (const TrackedSatellite& t :
           signals[index].Update(skies[index].InView(e->truth.position, seconds), dt, obstructed)) {
        e->satellites.push_back(t.view);
        SatelliteView& view = e->satellites.back();
        if (modern && view.snr >= 0 && HasSecondSignal(system, view.prn))
          view.snr2 = std::clamp(view.snr + static_cast<int>(std::lround(secondSignals.Uniform(-6.0, 4.0))), 0, 99);
        if (!t.view.used) continue;
        used.all.push_back(t.look);
        if (t.view.system == System::kGps) used.gps.push_back(t.look);
      }
    }
    return used;
  }

  // `text` as sent: now and then damaged, or with a bad checksum.
  Line Sent(const SimulatorOptions& options, std::string text) {
    Line line{std::move(text), Damage::kNone};
    if (options.damage > 0.0 && damage.Chance(options.damage))
      line.damage = DamageLine(line.text, damage);
    else if (options.badChecksums > 0.0 && checksums.Chance(options.badChecksums))
      line.damage = BreakChecksum(line.text, checksums);
    if (options.binaryMessages > 0.0 && binary.Chance(options.binaryMessages)) line.binary = BinaryMessage(binary);
    return line;
  }
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
  const double dt = e.index == 0 ? 0.0 : intervalMs_ / 1000.0;
  s.track.Advance(dt);
  e.truth = s.track.Current();
  e.geoidSeparation = GeoidSeparation(e.truth.position);

  const bool modern = !options_.constellations.empty();
  const std::vector<System> systems = SystemsInSky(options_);
  const bool obstructed = s.Obstructed(options_, e.elapsedMs / 1000.0);
  const CombinedFix combined = SetFix(s.TrackSky(systems, modern, dt, obstructed, &e), modern, &e);
  // Satellites in view once a second, as receivers do at higher rates.
  e.satellitesReported = e.index == 0 || e.elapsedMs / 1000 != (e.elapsedMs - intervalMs_) / 1000;
  for (std::string& text : EpochSentences(options_, systems, combined, e))
    e.lines.push_back(s.Sent(options_, std::move(text)));
  return e;
}

}  // namespace kavo::sim
