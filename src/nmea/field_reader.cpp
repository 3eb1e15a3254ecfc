#include "nmea/field_reader.h"

namespace kavo::nmea {

bool FieldReader::Next(WideView* field, size_t buffer) {
  if (position_ >= text_.size()) return false;
  size_t end = position_;
  while (end < text_.size() && text_[end] != u',' && text_[end] != u'*') ++end;
  const size_t length = end - position_;
  if (length >= buffer) return false;
  *field = text_.substr(position_, length);
  position_ = end + 1;  // past the separator; past the end for the last field
  return true;
}

bool FieldReader::Skip(size_t count) {
  WideView ignored;
  for (size_t i = 0; i < count; ++i)
    if (!Next(&ignored)) return false;
  return true;
}

}  // namespace kavo::nmea
