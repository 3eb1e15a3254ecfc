#include "nmea/field_reader.h"
#include "nmea/sentence_parsers.h"

namespace kavo::nmea {

void ParseVtg(WideView sentence, ReceiverState& state) {
  FieldReader fields(sentence);
  WideView trueCourse, magneticCourse, knots;
  if (!fields.Skip(1) || !fields.Next(&trueCourse)) return;
  const double course = DegreesToRadians(NumberField(trueCourse));
  if (!fields.Skip(1) || !fields.Next(&magneticCourse)) return;  // skips "T"
  const double magnetic = magneticCourse.empty() ? 0.0 : DegreesToRadians(NumberField(magneticCourse));
  if (!fields.Skip(1) || !fields.Next(&knots)) return;  // skips "M"; km/h is not read
  const double speed = KnotsToMph(NumberField(knots));

  state.UpdateTogether(
      {{&GPSLocation::Course, course}, {&GPSLocation::Speed, speed}, {&GPSLocation::MagneticCourse, magnetic}},
      GPS_CHANGED_MOTION);
  uint32_t flags = 0;
  if (!trueCourse.empty()) flags |= GPS_VALID_COURSE;
  if (!magneticCourse.empty()) flags |= GPS_VALID_MAGNETIC_COURSE;
  if (!knots.empty()) flags |= GPS_VALID_SPEED;
  state.AddValidFlags(flags);
}

}  // namespace kavo::nmea
