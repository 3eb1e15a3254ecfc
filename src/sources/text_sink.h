// What the reading thread feeds: the receiver object.
#pragma once

#include <cstdint>

#include "support/error.h"

namespace kavo {

class TextSink {
 public:
  // `count` characters of text (also zero-terminated).
  virtual void OnText(const char16_t* text, uint32_t count) = 0;
  // A read returned no text, or no read completed for 2000 ms.
  virtual void OnNoData() = 0;
  // The source's Read failed with `error`.
  virtual void OnError(const CIMExceptionImpl& error) = 0;

 protected:
  ~TextSink() = default;
};

}  // namespace kavo
