// Turns a port name into the device name the platform opens: lower case
// with a trailing colon ("COM3" -> "com3:").
#pragma once

#include <cstddef>

#include "support/wide_string.h"

namespace kavo {

constexpr size_t kCorrectedPortNameCapacity = 20;  // units, terminator included

// Logs "colon symbol is not found in port name" when it appends the colon,
// then "port name length: %d". false (and `corrected` untouched) for an
// empty name or one longer than 19 characters with its colon.
bool CorrectPortName(WideView name, WideString* corrected);

}  // namespace kavo
