#include "serve/fix_time.h"

#include <cmath>

namespace kavo::serve {

std::optional<FixTime> EpochTime(const cli::EpochReport& report) {
  const GPSLocation& location = report.reading.location;
  if (!report.fix || !report.timeKnown || location.TimeType != GPS_TIME_FULL || location.Time <= 0) return {};
  // Days since 30 December 1899; whole milliseconds, the finest a receiver sends.
  constexpr double kUnixEpochDay = 25569.0;
  const auto ms = std::chrono::milliseconds(std::llround((location.Time - kUnixEpochDay) * 86400000.0));
  FixTime time;
  time.utc = std::chrono::system_clock::time_point(std::chrono::duration_cast<std::chrono::system_clock::duration>(ms));
  time.arrival = report.arrival;
  return time;
}

}  // namespace kavo::serve
