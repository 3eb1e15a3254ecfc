// The parsers of the five sentences the library understands. Each reads its
// sentence field by field and writes into the receiver state. A sentence
// that ends early is dropped quietly, keeping what was stored before; a
// value that cannot be accepted raises (see field_conversions.h).
#pragma once

#include "nmea/receiver_state.h"
#include "support/wide_string.h"

namespace kavo::nmea {

void ParseGga(WideView sentence, ReceiverState& state);  // fix data
void ParseRmc(WideView sentence, ReceiverState& state);  // minimum data with date
void ParseGsa(WideView sentence, ReceiverState& state);  // dilutions of precision
void ParseGsv(WideView sentence, ReceiverState& state);  // satellites in view
void ParseVtg(WideView sentence, ReceiverState& state);  // course and speed

}  // namespace kavo::nmea
