#include "nmea/field_reader.h"
#include "nmea/sentence_parsers.h"

namespace kavo::nmea {

void ParseGsa(WideView sentence, ReceiverState& state) {
  FieldReader fields(sentence);
  WideView pdop, hdop, vdop;
  // Mode, fix type and the twelve satellite numbers must be there, unread.
  if (!fields.Skip(15) || !fields.Next(&pdop) || !fields.Next(&hdop) || !fields.Next(&vdop)) return;
  // A dilution that is missing or damaged reads as 0, without an error.
  // PDOP must be a number in full; HDOP and VDOP only need to begin with
  // one, so a VDOP followed by the line's end (no checksum) still counts.
  const double position = NumberFieldOrZero(pdop);
  const double horizontal = LeadingNumberOrZero(hdop);
  const double vertical = LeadingNumberOrZero(vdop);
  // Unlike GGA, a flag marks a value this sentence changed.
  if (state.Update(&GPSLocation::PDOP, position, GPS_CHANGED_PRECISION)) state.AddValidFlags(GPS_VALID_PDOP);
  if (state.Update(&GPSLocation::VDOP, vertical, GPS_CHANGED_PRECISION)) state.AddValidFlags(GPS_VALID_VDOP);
  if (state.Update(&GPSLocation::HDOP, horizontal, GPS_CHANGED_PRECISION)) state.AddValidFlags(GPS_VALID_HDOP);
}

}  // namespace kavo::nmea
