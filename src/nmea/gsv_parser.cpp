#include "nmea/field_reader.h"
#include "nmea/sentence_parsers.h"

namespace kavo::nmea {

// A cycle of messages is assembled in the working table and published on
// its last message. The order of messages is not checked: a cycle that does
// not start with message 1 adds to what the table holds, up to 12 entries.
void ParseGsv(WideView sentence, ReceiverState& state) {
  FieldReader fields(sentence);
  WideView total, number;
  if (!fields.Skip(1) || !fields.Next(&total) || !fields.Next(&number)) return;
  const int32_t messages = IntegerField(total);
  const int32_t message = IntegerField(number);
  if (message == 1) state.StartSatelliteCycle();
  if (!fields.Skip(1)) return;  // satellites in view: the table counts them itself
  for (int block = 0; block < 4; ++block) {
    WideView prn, elevation, azimuth, snr;
    // The checksum reads as one more field, so it starts a block that can
    // never be completed.
    if (!fields.Next(&prn) || !fields.Next(&elevation) || !fields.Next(&azimuth) || !fields.Next(&snr)) break;
    GPSSatellite satellite;
    satellite.PRN = IntegerField(prn);
    satellite.SNR = IntegerField(snr);
    satellite.Elevation = DegreesToRadians(IntegerField(elevation));
    satellite.Azimuth = DegreesToRadians(IntegerField(azimuth));
    if (!state.AddSatellite(satellite)) break;
  }
  if (message != messages) return;
  state.CompleteSatelliteCycle();
}

}  // namespace kavo::nmea
