// Walks the fields of one sentence. A comma or an asterisk ends a field, so
// the checksum after the asterisk reads as one more field; the text after
// the last separator is the last field, and once the text is used up every
// read fails. A read also fails when the field is longer than the buffer
// the parser would copy it into.
#pragma once

#include <cstddef>

#include "support/wide_string.h"

namespace kavo::nmea {

// Capacities of the parsers' field buffers, terminator included.
constexpr size_t kFieldBuffer = 256;
constexpr size_t kShortFieldBuffer = 20;  // coordinates, RMC time and date

class FieldReader {
 public:
  explicit FieldReader(WideView sentence) : text_(sentence) {}

  // The next field; false when the text is used up or the field does not
  // fit `buffer` units with its terminator.
  bool Next(WideView* field, size_t buffer = kFieldBuffer);
  // Reads `count` fields and ignores them; false as soon as one fails.
  bool Skip(size_t count);

 private:
  WideView text_;
  size_t position_ = 0;
};

}  // namespace kavo::nmea
