#include "session/epoch_assembler.h"

#include <algorithm>
#include <cmath>
#include <string_view>
#include <vector>

namespace kavo::cli {
namespace {

constexpr uint32_t kSkyFlags = GPS_VALID_PDOP | GPS_VALID_HDOP | GPS_VALID_VDOP | GPS_VALID_SATELLITES_IN_USE;
constexpr uint32_t kNeedsFix = GPS_VALID_POSITION | GPS_VALID_ALTITUDE | GPS_VALID_GEOID_SEPARATION | GPS_VALID_SPEED |
                               GPS_VALID_COURSE | GPS_VALID_MAGNETIC_COURSE;

// Whether the record's satellites are the cycle's: the library publishes a
// cycle when its last message comes, the first twelve of it.
bool HoldsCycle(const std::vector<GPSSatellite>& held, const std::vector<GPSSatellite>& cycle) {
  for (const GPSSatellite& sent : cycle) {
    const auto same = [&](const GPSSatellite& s) {
      return s.PRN == sent.PRN && s.SNR == sent.SNR && std::lround(Degrees(s.Elevation)) == sent.Elevation &&
             std::lround(Degrees(s.Azimuth)) == sent.Azimuth;
    };
    if (std::none_of(held.begin(), held.end(), same)) return false;
  }
  return true;
}

bool SameSky(const Reading& a, const Reading& b) {
  const GPSLocation &x = a.location, &y = b.location;
  if ((x.ValidFlags & kSkyFlags) != (y.ValidFlags & kSkyFlags)) return false;
  if (Has(x, GPS_VALID_PDOP) && x.PDOP != y.PDOP) return false;
  if (Has(x, GPS_VALID_HDOP) && x.HDOP != y.HDOP) return false;
  if (Has(x, GPS_VALID_VDOP) && x.VDOP != y.VDOP) return false;
  if (Has(x, GPS_VALID_SATELLITES_IN_USE) && x.SatellitesInUse != y.SatellitesInUse) return false;
  if (a.satellites.size() != b.satellites.size()) return false;
  for (size_t i = 0; i < a.satellites.size(); ++i) {
    const GPSSatellite &s = a.satellites[i], &t = b.satellites[i];
    if (s.PRN != t.PRN || s.SNR != t.SNR || s.Elevation != t.Elevation || s.Azimuth != t.Azimuth) return false;
  }
  return true;
}

// The record's time moved to the epoch's own time of day `hhmmss`: the
// library leaves its record alone for a sentence that repeats the last
// position, time and all. The date is the epoch's own when it sent one;
// else the record's, a day on when the time of day wrapped past midnight.
void SetTime(GPSLocation& l, const std::string& hhmmss, const std::optional<calendar::CivilTime>& date) {
  if (hhmmss.size() < 6) return;
  const std::string_view text(hhmmss);
  const double sent =
      (FieldNumber(text.substr(0, 2)) * 3600.0 + FieldNumber(text.substr(2, 2)) * 60.0 + FieldNumber(text.substr(4))) /
      86400.0;
  if (date) {
    l.Time = calendar::OleDateFromCivil(*date) + sent;
    l.TimeType = GPS_TIME_FULL;
    return;
  }
  if (l.TimeType == GPS_TIME_LOCAL_CLOCK) l.TimeType = GPS_TIME_OF_DAY;
  double day = std::floor(l.Time);
  const double held = l.Time - day;
  if (sent < held - 0.5)
    day += 1;
  else if (sent > held + 0.5)
    day -= 1;
  l.Time = day + sent;
}

double Held(const GPSLocation& l, uint32_t flag) {
  switch (flag) {
    case GPS_VALID_POSITION:
      return l.Latitude;
    case 0:
      return l.Longitude;  // the second half of the position
    case GPS_VALID_SPEED:
      return l.Speed;
    case GPS_VALID_COURSE:
      return Degrees(l.Course);
    case GPS_VALID_MAGNETIC_COURSE:
      return Degrees(l.MagneticCourse);
    case GPS_VALID_ALTITUDE:
      return l.Altitude;
    case GPS_VALID_GEOID_SEPARATION:
      return l.GeoidSeparation;
    case GPS_VALID_SATELLITES_IN_USE:
      return l.SatellitesInUse;
    case GPS_VALID_PDOP:
      return l.PDOP;
    case GPS_VALID_HDOP:
      return l.HDOP;
    default:
      return l.VDOP;
  }
}

// Puts the epoch's own `value` where Held reads it.
void Put(GPSLocation& l, uint32_t flag, double value) {
  constexpr double kRadiansPerDegree = 3.14159265358979323846 / 180.0;
  switch (flag) {
    case GPS_VALID_POSITION:
      l.Latitude = value;
      break;
    case 0:
      l.Longitude = value;
      break;
    case GPS_VALID_SPEED:
      l.Speed = value;
      break;
    case GPS_VALID_COURSE:
      l.Course = value * kRadiansPerDegree;
      break;
    case GPS_VALID_MAGNETIC_COURSE:
      l.MagneticCourse = value * kRadiansPerDegree;
      break;
    case GPS_VALID_ALTITUDE:
      l.Altitude = value;
      break;
    case GPS_VALID_GEOID_SEPARATION:
      l.GeoidSeparation = value;
      break;
    case GPS_VALID_SATELLITES_IN_USE:
      l.SatellitesInUse = static_cast<int32_t>(value);
      break;
    case GPS_VALID_PDOP:
      l.PDOP = value;
      break;
    case GPS_VALID_HDOP:
      l.HDOP = value;
      break;
    default:
      l.VDOP = value;
  }
}

// The flags whose values in the record differ from what the epoch sent:
// those sentences reached the library only with the next epoch's.
uint32_t Differing(const GPSLocation& l, const std::vector<std::pair<uint32_t, double>>& values) {
  uint32_t differing = 0;
  for (const auto& [flag, value] : values) {
    double difference = std::fabs(Held(l, flag) - value);
    if (flag == GPS_VALID_COURSE || flag == GPS_VALID_MAGNETIC_COURSE) difference = std::fmod(difference, 360.0);
    // Speeds come in knots or km/h, rounded: a thousandth of the value more.
    const double tolerance = flag == GPS_VALID_SPEED ? 0.01 + std::fabs(value) / 1000.0 : 0.01;
    if (difference > tolerance && difference < 360.0 - tolerance) differing |= flag ? flag : GPS_VALID_POSITION;
  }
  return differing;
}

// Adds `prn` to the ascending `prns` unless it is there.
void InsertInOrder(std::vector<int32_t>& prns, int32_t prn) {
  const auto at = std::lower_bound(prns.begin(), prns.end(), prn);
  if (at == prns.end() || *at != prn) prns.insert(at, prn);
}

}  // namespace

void EpochAssembler::Sentence(const std::string& sentence, const Reading& before, uint64_t nowMs,
                              std::chrono::system_clock::time_point arrival) {
  const SentenceFacts facts = ReadSentenceFacts(sentence);
  bool keySeen = std::find(keys_.begin(), keys_.end(), facts.key) != keys_.end();
  if (open_ && !due_ &&
      (keySeen || nowMs - lastSentenceMs_ >= quietMs_ ||
       (!facts.time.empty() && !time_.empty() && facts.time != time_))) {
    ender_ = lastKind_;
    Close(before);
  }
  if (open_ && due_) Close(before);  // the record never showed its end: what it lacks is left out
  if (!open_) {
    arrival_ = arrival;
    keySeen = false;  // Close forgot the keys
  }
  open_ = true;
  lastSentenceMs_ = nowMs;
  if (!keySeen) keys_.push_back(facts.key);
  lastKind_ = facts.kind;
  if (time_.empty()) time_ = facts.time;
  if (facts.date) date_ = facts.date;
  said_ |= facts.said;
  known_ |= facts.known;
  sky_ |= facts.sky;
  if (facts.quality) quality_ = facts.quality;
  if (facts.fix) fix_ = fix_.value_or(false) || *facts.fix;
  for (const auto& value : facts.values) {
    const auto same = [&](const auto& held) { return held.first == value.first; };
    values_.erase(std::remove_if(values_.begin(), values_.end(), same), values_.end());
    values_.push_back(value);
  }
  if (facts.key.size() > 3 && facts.key.compare(facts.key.size() - 4, 4, "GSV1") == 0) cycleSoFar_.clear();
  cycleSoFar_.insert(cycleSoFar_.end(), facts.satellites.begin(), facts.satellites.end());
  if (facts.cycleEnd) {
    cycle_.assign(cycleSoFar_.begin(), cycleSoFar_.begin() + std::min<size_t>(cycleSoFar_.size(), GPS_MAX_SATELLITES));
    cycleSoFar_.clear();
  }
  if (facts.hasUsed) {
    hasUsed_ = true;
    for (const int32_t prn : facts.used) InsertInOrder(used_, prn);
  }
  if (facts.kind != ender_) return;
  due_ = true;
  // A last sentence that changes nothing the record holds ends its epoch now.
  if (Holds(before)) Close(before);
}

void EpochAssembler::Latest(const Reading& reading, uint64_t nowMs) {
  if (!open_) return;
  if (due_ && Holds(reading)) {
    Close(reading);
  } else if (nowMs - lastSentenceMs_ >= quietMs_) {
    if (!due_) ender_ = lastKind_;
    Close(reading);
  }
}

void EpochAssembler::Finish(const Reading& reading) {
  if (open_) Close(reading);
}

bool EpochAssembler::Holds(const Reading& reading) const {
  return Differing(reading.location, values_) == 0 && HoldsCycle(reading.satellites, cycle_);
}

void EpochAssembler::Close(const Reading& reading) {
  const uint32_t differing = Differing(reading.location, values_);
  EpochReport report;
  report.reading = reading;
  report.arrival = arrival_;
  GPSLocation& l = report.reading.location;
  // GGA's quality decides; without a GGA, the position sentences' status.
  report.fix = quality_ ? *quality_ > 0 && fix_.value_or(false) : fix_.value_or(false);
  // Values the record does not hold yet reached the library only with the
  // next epoch's sentences: the epoch's own sentences tell them.
  uint32_t told = 0;
  for (const auto& [flag, value] : values_) {
    const uint32_t valid = flag ? flag : GPS_VALID_POSITION;
    if ((differing & valid) || !Has(l, valid)) {
      Put(l, flag, value);
      told |= valid;
    }
  }
  report.timeKnown = !time_.empty();
  // What the epoch's sentences left empty is unknown; satellites and
  // dilutions no sentence of the epoch spoke of are the last ones known.
  l.ValidFlags = (l.ValidFlags | told) & (known_ | (kSkyFlags & ~said_)) & (report.fix ? ~0u : ~kNeedsFix);
  l.FixQuality = !report.fix ? 0 : quality_ ? *quality_ : l.FixQuality > 0 ? l.FixQuality : 1;
  if (report.timeKnown)
    SetTime(l, time_, date_);
  else
    l.TimeType = GPS_TIME_LOCAL_CLOCK;
  if (hasUsed_) lastUsed_ = used_;
  report.used = lastUsed_;
  // A sky the record does not hold yet is reported with a later epoch.
  if (sky_ && HoldsCycle(reading.satellites, cycle_) &&
      (!lastSky_ || !SameSky(lastSky_->reading, report.reading) || lastSky_->used != report.used)) {
    report.skyChanged = true;
    lastSky_ = report;
  }
  open_ = due_ = false;
  time_.clear();
  date_.reset();
  keys_.clear();
  lastKind_.clear();
  said_ = known_ = 0;
  fix_.reset();
  quality_.reset();
  sky_ = false;
  values_.clear();
  cycle_.clear();
  hasUsed_ = false;
  used_.clear();
  onEpoch_(report);
}

}  // namespace kavo::cli
