// What the reading thread feeds: the receiver object.
#pragma once

#include <cstdint>

#include "support/error.h"
#include "support/ref_counted.h"

namespace kavo {

// Counted, so that a reading thread abandoned on POSIX can keep its sink
// alive for the step it is in.
class TextSink : public virtual RefCounted {
 public:
  // `count` characters of text (also zero-terminated).
  virtual void OnText(const char16_t* text, uint32_t count) = 0;
  // A read returned no text, or no read completed for 2000 ms.
  virtual void OnNoData() = 0;
  // The source's Read failed with `error`.
  virtual void OnError(const CIMExceptionImpl& error) = 0;
};

}  // namespace kavo
