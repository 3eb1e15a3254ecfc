// The interfaces between data sources, the driver and the reading thread.
#pragma once

#include <cstdint>

#include "support/error.h"
#include "support/ref_counted.h"

namespace kavo {

// Where text comes from: a serial port or a recorded file.
class DataSource : public virtual RefCounted {
 public:
  // Places at most `capacity - 1` characters in `buffer`, zero-terminated,
  // and their number in `count`. Returns 1, or 0 with `error` filled.
  virtual int Read(char16_t* buffer, uint32_t capacity, uint32_t* count, CIMExceptionImpl* error) = 0;
  virtual int Write(const char16_t* text, uint32_t length, uint32_t* written, CIMExceptionImpl* error) = 0;
  // Asks a Read that waits for data to return now, with what it has (maybe
  // nothing), so a stop need not sit out the read time-out. Safe from any
  // thread; a source that never waits long may ignore it.
  virtual void CancelRead() {}
  // Forgets a cancel no read took up, before a new run reads: it would cut
  // that run's first read short.
  virtual void ResetCancelRead() {}
};

// Pauses and resumes the flow of data at its origin.
class PlaybackControl : public virtual RefCounted {
 public:
  virtual int Pause() = 0;
  // Non-zero on success.
  virtual int Resume(CIMExceptionImpl* error) = 0;
};

}  // namespace kavo
