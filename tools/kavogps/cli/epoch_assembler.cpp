#include "cli/epoch_assembler.h"

#include <cmath>
#include <cstdlib>
#include <sstream>
#include <vector>

namespace kavo::cli {
namespace {

constexpr uint32_t kSkyFlags = GPS_VALID_PDOP | GPS_VALID_HDOP | GPS_VALID_VDOP | GPS_VALID_SATELLITES_IN_USE;
constexpr uint32_t kNeedsFix = GPS_VALID_POSITION | GPS_VALID_ALTITUDE | GPS_VALID_GEOID_SEPARATION |
                               GPS_VALID_SPEED | GPS_VALID_COURSE | GPS_VALID_MAGNETIC_COURSE;

std::vector<std::string> Fields(const std::string& sentence) {
  size_t start = sentence.find_first_of("$!");
  start = start == std::string::npos ? 0 : start + 1;
  const std::string body = sentence.substr(start, sentence.find_first_of("*\r\n", start) - start);
  std::vector<std::string> fields;
  std::istringstream stream(body);
  for (std::string field; std::getline(stream, field, ',');) fields.push_back(field);
  if (!body.empty() && body.back() == ',') fields.emplace_back();
  return fields;
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

// Whether the record holds the fix time `hhmmss` (with any fraction): when
// the epoch's sentences reached the library in one piece with the next
// epoch's, the record went from before this epoch to after it.
bool HoldsTime(const GPSLocation& l, const std::string& hhmmss) {
  if (l.TimeType == GPS_TIME_LOCAL_CLOCK || hhmmss.size() < 6) return false;
  const double sent = std::atof(hhmmss.substr(0, 2).c_str()) * 3600000.0 +
                      std::atof(hhmmss.substr(2, 2).c_str()) * 60000.0 + std::atof(hhmmss.substr(4).c_str()) * 1000.0;
  const double held = (l.Time - std::floor(l.Time)) * 86400000.0;
  return std::fabs(sent - held) < 5.0;
}

}  // namespace

SentenceFacts ReadSentenceFacts(const std::string& sentence) {
  SentenceFacts facts;
  std::vector<std::string> f = Fields(sentence);
  if (f.empty() || f[0].size() < 3) return facts;
  f.resize(std::max<size_t>(f.size(), 20));
  const auto given = [&](size_t i) { return !f[i].empty(); };
  const auto flag = [&](bool value, uint32_t bit) { facts.known |= value ? bit : 0; };
  const std::string type = f[0].substr(f[0].size() - 3);
  facts.key = f[0];
  if (type == "GGA") {
    facts.time = f[1];
    facts.quality = given(6) ? std::atoi(f[6].c_str()) : 0;
    facts.fix = *facts.quality > 0 && given(2) && given(4);
    facts.said = GPS_VALID_POSITION | GPS_VALID_ALTITUDE | GPS_VALID_GEOID_SEPARATION |
                 GPS_VALID_SATELLITES_IN_USE | GPS_VALID_HDOP;
    flag(*facts.fix, GPS_VALID_POSITION);
    flag(*facts.fix && given(9), GPS_VALID_ALTITUDE);
    flag(*facts.fix && given(11), GPS_VALID_GEOID_SEPARATION);
    flag(given(7), GPS_VALID_SATELLITES_IN_USE);
    flag(given(8), GPS_VALID_HDOP);
  } else if (type == "RMC") {
    facts.time = f[1];
    facts.fix = f[2] == "A" && given(3) && given(5);
    facts.said = GPS_VALID_POSITION | GPS_VALID_SPEED | GPS_VALID_COURSE;
    flag(*facts.fix, GPS_VALID_POSITION);
    flag(*facts.fix && given(7), GPS_VALID_SPEED);
    flag(*facts.fix && given(8), GPS_VALID_COURSE);
  } else if (type == "GLL") {
    facts.time = f[5];
    facts.fix = f[6] == "A" && given(1) && given(3);
    facts.said = GPS_VALID_POSITION;
    flag(*facts.fix, GPS_VALID_POSITION);
  } else if (type == "VTG") {
    const bool valid = f[9] != "N";  // the mode field of newer receivers: N is no fix
    facts.said = GPS_VALID_COURSE | GPS_VALID_MAGNETIC_COURSE | GPS_VALID_SPEED;
    flag(valid && given(1), GPS_VALID_COURSE);
    flag(valid && given(3), GPS_VALID_MAGNETIC_COURSE);
    flag(valid && (given(5) || given(7)), GPS_VALID_SPEED);
  } else if (type == "GSA") {
    facts.sky = true;
    facts.said = GPS_VALID_PDOP | GPS_VALID_HDOP | GPS_VALID_VDOP;
    flag(given(15), GPS_VALID_PDOP);
    flag(given(16), GPS_VALID_HDOP);
    flag(given(17), GPS_VALID_VDOP);
  } else if (type == "GSV") {
    facts.sky = true;
    facts.key += f[2];  // one key per message of the group
  } else if (type == "ZDA") {
    facts.time = f[1];
  }
  return facts;
}

void EpochAssembler::Sentence(const std::string& sentence, const Reading& before, uint64_t nowMs) {
  const SentenceFacts facts = ReadSentenceFacts(sentence);
  if (open_ && (keys_.count(facts.key) || nowMs - lastSentenceMs_ >= quietMs_ ||
                (!facts.time.empty() && !time_.empty() && facts.time != time_)))
    Close(before);
  open_ = true;
  lastSentenceMs_ = nowMs;
  keys_.insert(facts.key);
  if (time_.empty()) time_ = facts.time;
  said_ |= facts.said;
  known_ |= facts.known;
  sky_ |= facts.sky;
  if (facts.quality) quality_ = facts.quality;
  if (facts.fix) fix_ = fix_.value_or(false) || *facts.fix;
}

void EpochAssembler::Latest(const Reading& reading, uint64_t nowMs) {
  if (open_ && nowMs - lastSentenceMs_ >= quietMs_) Close(reading);
}

void EpochAssembler::Finish(const Reading& reading) {
  if (open_) Close(reading);
}

void EpochAssembler::Close(const Reading& reading) {
  const bool whole = time_.empty() || HoldsTime(reading.location, time_);
  EpochReport report;
  report.reading = reading;
  GPSLocation& l = report.reading.location;
  // GGA's quality decides; without a GGA, the position sentences' status.
  report.fix = quality_ ? *quality_ > 0 && fix_.value_or(false) : fix_.value_or(false);
  report.timeKnown = !time_.empty();
  // What the epoch's sentences left empty is unknown; satellites and
  // dilutions no sentence of the epoch spoke of are the last ones known.
  l.ValidFlags &= (known_ | (kSkyFlags & ~said_)) & (report.fix ? ~0u : ~kNeedsFix);
  l.FixQuality = !report.fix ? 0 : quality_ ? *quality_ : l.FixQuality > 0 ? l.FixQuality : 1;
  if (!report.timeKnown) l.TimeType = GPS_TIME_LOCAL_CLOCK;
  if (whole && sky_ && (!lastSky_ || !SameSky(*lastSky_, report.reading))) {
    report.skyChanged = true;
    lastSky_ = report.reading;
  }
  open_ = false;
  time_.clear();
  keys_.clear();
  said_ = known_ = 0;
  fix_.reset();
  quality_.reset();
  sky_ = false;
  if (whole) onEpoch_(report);
}

}  // namespace kavo::cli
