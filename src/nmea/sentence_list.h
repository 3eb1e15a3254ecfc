// The sentences recognised in one chunk, in arrival order. The texts share
// one buffer whose storage is kept from chunk to chunk, so once it has
// grown to a chunk's worth, keeping a sentence costs no allocation.
#pragma once

#include <cstddef>
#include <vector>

#include "support/wide_string.h"

namespace kavo::nmea {

class SentenceList {
 public:
  void Clear();
  // Room for `units` of text in sentences of usual length, made now rather
  // than as the first chunks come (on the reading thread).
  void Reserve(size_t units);
  // May throw std::bad_alloc.
  void Append(WideView sentence);

  size_t Count() const { return starts_.size(); }
  WideView operator[](size_t index) const;
  // The sentence zero-terminated, valid until the list changes.
  const char16_t* Text(size_t index) const { return text_.c_str() + starts_[index]; }

 private:
  WideString text_;  // every sentence followed by a terminator
  std::vector<size_t> starts_;
};

}  // namespace kavo::nmea
