// A simulated GPS receiver: a track, a sky of satellites and the NMEA 0183
// sentences a receiver on that track would send, one epoch at a time. The
// same options and seed always give the same epochs, byte for byte, on
// every platform. Each epoch also carries what went into its sentences, so
// tests can compare what a parser decodes with the truth.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "sim/constellation.h"
#include "sim/track.h"
#include "sim/utc_time.h"

namespace kavo::sim {

struct SimulatorOptions {
  uint64_t seed = 1;
  double rateHz = 1.0;  // epochs per second, 1/60 to 50
  Mode mode = Mode::kWalk;
  bool otherTalkers = false;  // $GNGGA, $GNGSA and $GLGSV beside the GPS sentences
  // Systems a modern receiver uses, in this order; empty: GPS alone (and
  // GLONASS for otherTalkers) as older receivers report. With any given,
  // the output is a modern receiver's: position sentences from the system's
  // talker ("GN" for several), one GSA per system with the NMEA 4.10
  // system id, and per system a GSV cycle for each signal (NMEA 4.11
  // signal ids; second signals on dual-frequency satellites).
  std::vector<System> constellations;
  double badChecksums = 0.0;  // chance that a line's checksum is wrong or missing
  // Chance that a binary message (as survey and RTK modules mix their own
  // protocol into NMEA: NUL bytes, lone CR and LF, "$" among its bytes)
  // comes before a line, with no line end between it and the sentence.
  double binaryMessages = 0.0;
  bool proprietary = false;                 // $PGRME, $PGRMZ, and $PSRFTXT at the start
  double damage = 0.0;                      // chance that a line is damaged, 0 to 1
  bool fixLoss = false;                     // now and then the sky is blocked and the fix lost
  Geodetic start{48.1173, 11.5167, 520.0};  // altitude above mean sea level
  UtcTime startTime{2024, 5, 14, 10, 0, 0, 0};
};

// Checks options; an empty string when they are usable, else what is wrong.
std::string ValidateOptions(const SimulatorOptions& options);

enum class Damage { kNone, kCut, kFlip, kGarbage, kWrongChecksum, kNoChecksum };

struct Line {
  std::string text;  // without the line end; bytes are Latin-1
  Damage damage = Damage::kNone;
  std::string binary;  // a binary message sent just before `text`, or empty
};

struct SatelliteView {
  System system = System::kGps;
  int prn = 0;
  int elevation = 0;  // whole degrees, as reported
  int azimuth = 0;    // whole degrees, as reported
  int snr = -1;       // dB-Hz; -1 when not tracked (an empty field)
  int snr2 = -1;      // dB-Hz of a second signal; -1 when not sent
  bool used = false;  // listed in GSA
};

struct Epoch {
  uint64_t index = 0;
  uint64_t elapsedMs = 0;  // since the first epoch
  UtcTime time;
  TrackPoint truth;
  double geoidSeparation = 0;  // metres
  bool fix = false;
  int quality = 0;                        // GGA fix quality
  int usedCount = 0;                      // satellites in the fix: GPS ones, or all for constellations
  double pdop = 0, hdop = 0, vdop = 0;    // their geometry; 99.99 without a fix
  bool satellitesReported = false;        // GSV sent in this epoch
  std::vector<SatelliteView> satellites;  // in view, system by system
  std::vector<Line> lines;

  // The lines as a receiver sends them, each ending in CR LF, each after
  // its binary message.
  std::string Text() const;
};

class Simulator {
 public:
  // Throws std::invalid_argument with ValidateOptions' text.
  explicit Simulator(const SimulatorOptions& options);
  ~Simulator();
  Simulator(const Simulator&) = delete;
  Simulator& operator=(const Simulator&) = delete;

  Epoch Next();
  uint32_t IntervalMs() const { return intervalMs_; }
  const SimulatorOptions& Options() const { return options_; }

 private:
  struct State;
  SimulatorOptions options_;
  uint32_t intervalMs_;
  std::unique_ptr<State> state_;
};

// Epochs needed to cover `seconds` at the options' rate (at least one).
uint64_t EpochsFor(const SimulatorOptions& options, double seconds);

}  // namespace kavo::sim
