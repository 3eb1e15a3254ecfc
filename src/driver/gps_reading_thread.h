// Keeps text flowing from a data source to a text sink on threads of its
// own. The driver holds one and feeds its receiver through it.
#pragma once

#include "sources/text_sink.h"
#include "support/error.h"
#include "support/ref_counted.h"

namespace kavo {

class GpsReadingThread : public virtual RefCounted {
 public:
  // 1 on success; 0 with code -1 and an empty message on `error`.
  virtual int Start(TextSink* sink, CIMExceptionImpl* error) = 0;
  // The result of the last platform call made (non-zero for success).
  virtual int Stop() = 0;
};

}  // namespace kavo
