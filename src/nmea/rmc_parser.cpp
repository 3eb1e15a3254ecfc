#include "nmea/field_reader.h"
#include "nmea/sentence_parsers.h"

namespace kavo::nmea {

void ParseRmc(WideView sentence, ReceiverState& state) {
  FieldReader fields(sentence);
  WideView time, status, latitude, north, longitude, east, speed, course, date;
  if (!fields.Skip(1) || !fields.Next(&time, kShortFieldBuffer) || !fields.Next(&status)) return;
  // An active fix raises "no fix" to a plain fix but keeps a better quality
  // from GGA; anything else (V, void, empty) means no fix.
  const int32_t stored = state.Location().FixQuality;
  const int32_t fixQuality = !status.empty() && status[0] == u'A' ? (stored == 0 ? 1 : stored) : 0;
  if (!fields.Next(&latitude, kShortFieldBuffer) || !fields.Next(&north, kShortFieldBuffer)) return;
  const double lat = Coordinate(latitude, north);
  if (!fields.Next(&longitude, kShortFieldBuffer) || !fields.Next(&east, kShortFieldBuffer)) return;
  const double lon = Coordinate(longitude, east);
  if (!fields.Next(&speed)) return;
  const double mph = KnotsToMph(NumberField(speed));
  if (!fields.Next(&course)) return;
  const double radians = DegreesToRadians(NumberField(course));
  if (!fields.Next(&date, kShortFieldBuffer)) return;
  const ReceiverTime fixTime = DateAndTime(time, date, state.LocalNow());

  state.Update(&GPSLocation::FixQuality, fixQuality, GPS_CHANGED_FIX_QUALITY);
  state.UpdateTogether({{&GPSLocation::Longitude, lon}, {&GPSLocation::Latitude, lat}}, GPS_CHANGED_POSITION);
  state.UpdateTogether({{&GPSLocation::Speed, mph}, {&GPSLocation::Course, radians}}, GPS_CHANGED_MOTION);
  state.SetTime(fixTime);

  uint32_t flags = GPS_VALID_POSITION;
  if (!speed.empty()) flags |= GPS_VALID_SPEED;
  if (!course.empty()) flags |= GPS_VALID_COURSE;
  state.AddValidFlags(flags);
}

}  // namespace kavo::nmea
