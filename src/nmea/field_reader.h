// Walks the fields of one sentence. A comma or an asterisk ends a field, so
// the checksum after the asterisk reads as one more field; the text after
// the last separator is the last field, and once the text is used up every
// read fails. A read also fails when the field is longer than the buffer
// the parser would copy it into.
//
// The separators are found in one pass over the sentence, a batch at a
// time, so that a read costs a few instructions whatever the field.
#pragma once

#include <cstddef>
#include <cstdint>

#include "nmea/unit_search.h"
#include "support/wide_string.h"

namespace kavo::nmea {

// Capacities of the parsers' field buffers, terminator included.
constexpr size_t kFieldBuffer = 256;
constexpr size_t kShortFieldBuffer = 20;  // coordinates, RMC time and date

class FieldReader {
 public:
  explicit FieldReader(WideView sentence) : text_(sentence) { FindEnds(); }

  // The next field; false when the text is used up or the field does not
  // fit `buffer` units with its terminator.
  bool Next(WideView* field, size_t buffer = kFieldBuffer) {
    if (position_ >= text_.size()) return false;
    if (next_ == count_) FindEnds();
    const size_t length = ends_[next_] - position_;
    if (length >= buffer) return false;
    *field = WideView(text_.data() + position_, length);
    position_ += length + 1;  // past the separator; past the end for the last field
    ++next_;
    return true;
  }
  // Reads `count` fields and ignores them; false as soon as one fails.
  bool Skip(size_t count) {
    WideView ignored;
    for (size_t i = 0; i < count; ++i)
      if (!Next(&ignored)) return false;
    return true;
  }

 private:
  static constexpr size_t kBatch = 32;  // a GSV of four blocks has 21 fields

  // The ends of the fields from the current position on; the last field of
  // the text ends where the text does.
  void FindEnds() {
    const char16_t* base = text_.data();
    count_ = FindSeparators(base, base + position_, base + text_.size(), ends_, kBatch);
    if (count_ < kBatch) ends_[count_++] = static_cast<uint32_t>(text_.size());
    next_ = 0;
  }

  WideView text_;
  size_t position_ = 0;
  uint32_t ends_[kBatch];
  size_t count_ = 0;
  size_t next_ = 0;
};

}  // namespace kavo::nmea
