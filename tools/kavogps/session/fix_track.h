// The fixes of a session, one per position and time the receiver reported,
// with what a summary needs: their count, the distance along them and the
// time they span.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "KavoMobileGPS.h"

namespace kavo::cli {

struct Fix {
  double latitude = 0, longitude = 0;
  std::optional<double> altitude;  // metres above mean sea level
  std::string time;                // ISO 8601 UTC; empty without the receiver's date
  std::string timeOfDay;           // empty when the receiver sent no time
  double oleTime = 0;              // as the location record holds it
  int32_t timeType = GPS_TIME_LOCAL_CLOCK;
  // The first fix of a stretch: the first of all, the first after the fix
  // was lost, or one whose time is before the last fix's (a repeat, a jump).
  bool startsSegment = false;
};

// Great-circle distance in metres on a sphere of the Earth's mean radius.
double GreatCircleMetres(double lat1, double lon1, double lat2, double lon2);

class FixTrack {
 public:
  using Listener = std::function<void(const Fix& fix)>;
  // `onFix` receives each fix once it is complete.
  explicit FixTrack(Listener onFix = nullptr) : onFix_(std::move(onFix)) {}

  // A location read from the driver; one without a fix ends the stretch of
  // fixes. A location that repeats the position and time of the fix
  // completes it instead of adding one.
  void Add(const GPSLocation& location);
  void Add(const struct EpochReport& report);
  // The last fix is complete: no more locations come.
  void Finish();

  uint64_t Count() const { return count_; }
  double DistanceMetres() const { return distance_; }
  // The receiver time the fixes cover. It starts at the first fix with a
  // date when the receiver sends dates, so a bare time of day is never set
  // against a dated end; steps back in time (a repeated recording, a jump)
  // start the count again from there instead of subtracting.
  struct Span {
    Fix first, last;
    double seconds = 0;          // forward steps between consecutive fixes, added up
    uint64_t undatedBefore = 0;  // fixes with a time of day only, before `first`
    uint64_t stepsBack = 0;
  };
  // False when no fix carried the receiver's time.
  bool TimeSpan(Span* span) const;

 private:
  Listener onFix_;
  std::optional<Fix> current_, first_, last_;
  int64_t currentTimeMs_ = 0;
  uint64_t count_ = 0;
  double distance_ = 0;
  std::optional<Span> span_;
  bool lost_ = false;

  void ExtendSpan(const Fix& fix);
};

// "Fixes: ..., distance ..., time span ..." as lines for people.
std::string Summary(const FixTrack& track);

}  // namespace kavo::cli
