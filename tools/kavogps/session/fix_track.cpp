#include "session/fix_track.h"

#include <cmath>
#include <cstdio>

#include "session/epoch_assembler.h"
#include "session/reading.h"

namespace kavo::cli {
namespace {

constexpr double kEarthMeanRadius = 6371008.8;  // metres, IUGG
constexpr double kRadiansPerDegree = 3.14159265358979323846 / 180.0;

// Milliseconds of the day: the part of the fix time that tells epochs apart
// while the date may still be the local one (a GGA before the first RMC).
int64_t TimeOfDayMs(const GPSLocation& location) {
  const double fraction = location.Time - std::floor(location.Time);
  return std::llround(fraction * 86400000.0) % 86400000;
}

Fix FixFrom(const GPSLocation& location) {
  Fix fix;
  fix.latitude = location.Latitude;
  fix.longitude = location.Longitude;
  if (Has(location, GPS_VALID_ALTITUDE)) fix.altitude = location.Altitude;
  fix.time = IsoTime(location);
  fix.timeOfDay = TimeOfDay(location);
  fix.oleTime = location.Time;
  fix.timeType = location.TimeType;
  return fix;
}

std::string Distance(double metres) {
  char text[40];
  if (metres < 1000.0)
    std::snprintf(text, sizeof text, "%.0f m", metres);
  else
    std::snprintf(text, sizeof text, "%.2f km", metres / 1000.0);
  return text;
}

std::string Duration(double seconds) {
  const long long total = std::llround(seconds);
  char text[48];
  if (total < 60)
    std::snprintf(text, sizeof text, "%lld s", total);
  else if (total < 3600)
    std::snprintf(text, sizeof text, "%lld min %lld s", total / 60, total % 60);
  else
    std::snprintf(text, sizeof text, "%lld h %lld min %lld s", total / 3600, total / 60 % 60, total % 60);
  return text;
}

// Seconds from `from` to `to`; times of day alone step forward across midnight.
double StepSeconds(const Fix& from, const Fix& to) {
  double step = (to.oleTime - from.oleTime) * 86400.0;
  if (to.timeType != GPS_TIME_FULL || from.timeType != GPS_TIME_FULL) {
    step = std::fmod(step, 86400.0);
    if (step < -43200.0)
      step += 86400.0;
    else if (step > 43200.0)
      step -= 86400.0;
  }
  return step;
}

}  // namespace

double GreatCircleMetres(double lat1, double lon1, double lat2, double lon2) {
  // Haversine: well conditioned for the short steps between fixes.
  const double phi1 = lat1 * kRadiansPerDegree, phi2 = lat2 * kRadiansPerDegree;
  const double dPhi = phi2 - phi1, dLambda = (lon2 - lon1) * kRadiansPerDegree;
  const double a = std::sin(dPhi / 2) * std::sin(dPhi / 2) +
                   std::cos(phi1) * std::cos(phi2) * std::sin(dLambda / 2) * std::sin(dLambda / 2);
  return 2.0 * kEarthMeanRadius * std::asin(std::sqrt(std::fmin(1.0, a)));
}

void FixTrack::Add(const EpochReport& report) { Add(report.reading.location); }

void FixTrack::Add(const GPSLocation& location) {
  if (!HasFix(location)) {
    Finish();
    lost_ = true;
    return;
  }
  const int64_t timeMs = TimeOfDayMs(location);
  if (current_ && current_->latitude == location.Latitude && current_->longitude == location.Longitude &&
      currentTimeMs_ == timeMs) {
    *current_ = FixFrom(location);  // the same fix, now perhaps with its date or altitude
    return;
  }
  Finish();
  current_ = FixFrom(location);
  currentTimeMs_ = timeMs;
}

void FixTrack::Finish() {
  if (!current_) return;
  Fix fix = *current_;
  current_.reset();
  fix.startsSegment =
      !last_ || lost_ || (!fix.timeOfDay.empty() && !last_->timeOfDay.empty() && StepSeconds(*last_, fix) < 0);
  lost_ = false;
  if (last_) distance_ += GreatCircleMetres(last_->latitude, last_->longitude, fix.latitude, fix.longitude);
  if (!first_) first_ = fix;
  last_ = fix;
  ExtendSpan(fix);
  ++count_;
  if (onFix_) onFix_(fix);
}

void FixTrack::ExtendSpan(const Fix& fix) {
  if (fix.timeOfDay.empty()) return;
  const bool dated = fix.timeType == GPS_TIME_FULL;
  if (!span_ || (dated && span_->first.timeType != GPS_TIME_FULL)) {
    // The first fix with a time, or the first with a date after undated ones.
    Span span;
    if (span_) span.undatedBefore = span_->undatedBefore + 1 + span_->stepsBack;
    span.first = span.last = fix;
    span_ = span;
    return;
  }
  if (!dated && span_->first.timeType != GPS_TIME_FULL) ++span_->undatedBefore;
  const double step = StepSeconds(span_->last, fix);
  if (step >= 0)
    span_->seconds += step;
  else
    ++span_->stepsBack;
  span_->last = fix;
}

bool FixTrack::TimeSpan(Span* span) const {
  if (!span_) return false;
  *span = *span_;
  return true;
}

std::string Summary(const FixTrack& track) {
  std::string text = "Fixes:      " + std::to_string(track.Count()) + "\n";
  if (track.Count() == 0) return text;
  text += "Distance:   " + Distance(track.DistanceMetres()) + " (great-circle sum between fixes)\n";
  FixTrack::Span span;
  if (!track.TimeSpan(&span)) return text + "Time span:  unknown (the receiver sent no time)\n";
  // "2024-05-14 10:00:00 to 10:04:59 UTC", the date given once when both
  // fixes carry the same one.
  const std::string firstDate = span.first.time.substr(0, 10), lastDate = span.last.time.substr(0, 10);
  const std::string from = (firstDate.empty() ? "" : firstDate + " ") + span.first.timeOfDay;
  const std::string to = (lastDate.empty() || lastDate == firstDate ? "" : lastDate + " ") + span.last.timeOfDay;
  text += "Time span:  " + from + " to " + to + " UTC (" + Duration(span.seconds) + ")\n";
  if (firstDate.empty())
    text += "            the receiver sent no date\n";
  else if (span.undatedBefore > 0)
    text +=
        "            from the first fix with a date; " + std::to_string(span.undatedBefore) + " before it had none\n";
  if (span.stepsBack > 0)
    text += "            time went back " + std::to_string(span.stepsBack) +
            (span.stepsBack == 1 ? " time" : " times") + " (a repeat or a jump); only forward steps count\n";
  return text;
}

}  // namespace kavo::cli
