// The checksum at the end of a sentence: "*" and two hex digits, the XOR of
// every character between "$" and "*". Line ends and spaces after it are
// allowed; anything else there makes it wrong.
#pragma once

#include "support/wide_string.h"

namespace kavo::nmea {

enum class ChecksumState { kValid, kWrong, kMissing };

ChecksumState CheckChecksum(WideView sentence);

}  // namespace kavo::nmea
