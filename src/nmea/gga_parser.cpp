#include "nmea/field_reader.h"
#include "nmea/sentence_parsers.h"

namespace kavo::nmea {

void ParseGga(WideView sentence, ReceiverState& state) {
  FieldReader fields(sentence);
  WideView time, latitude, north, longitude, east, quality, inUse, hdop, altitude, geoid;
  if (!fields.Skip(1) || !fields.Next(&time)) return;
  const ReceiverTime fixTime = TimeOfDay(time, state.LocalNow());
  if (!fields.Next(&latitude, kShortFieldBuffer) || !fields.Next(&north, kShortFieldBuffer)) return;
  const double lat = Coordinate(latitude, north);
  if (!fields.Next(&longitude, kShortFieldBuffer) || !fields.Next(&east, kShortFieldBuffer)) return;
  const double lon = Coordinate(longitude, east);
  if (!fields.Next(&quality)) return;
  const int32_t fixQuality = FixQualityFromField(quality);
  if (!fields.Next(&inUse)) return;
  const int32_t satellitesInUse = TruncateToInt(NumberField(inUse));
  if (!fields.Next(&hdop)) return;
  const double horizontal = NumberField(hdop);
  if (!fields.Next(&altitude)) return;
  const double height = NumberField(altitude);
  if (!fields.Skip(1) || !fields.Next(&geoid)) return;  // skips the altitude unit
  const double separation = NumberField(geoid);

  state.Update(&GPSLocation::FixQuality, fixQuality, GPS_CHANGED_FIX_QUALITY);
  state.Update(&GPSLocation::SatellitesInUse, satellitesInUse, GPS_CHANGED_PRECISION);
  state.UpdateTogether({{&GPSLocation::Longitude, lon}, {&GPSLocation::Latitude, lat}}, GPS_CHANGED_POSITION);
  state.UpdateTogether({{&GPSLocation::Altitude, height}, {&GPSLocation::GeoidSeparation, separation}},
                       GPS_CHANGED_ALTITUDE);
  state.Update(&GPSLocation::HDOP, horizontal, GPS_CHANGED_PRECISION);

  uint32_t flags = GPS_VALID_POSITION;
  if (!inUse.empty()) flags |= GPS_VALID_SATELLITES_IN_USE;
  if (!altitude.empty()) flags |= GPS_VALID_ALTITUDE;
  if (!hdop.empty()) flags |= GPS_VALID_HDOP;
  if (!geoid.empty()) flags |= GPS_VALID_GEOID_SEPARATION;
  state.AddValidFlags(flags);
  state.SetTime(fixTime);
}

}  // namespace kavo::nmea
