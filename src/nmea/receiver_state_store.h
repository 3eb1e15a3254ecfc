// The receiver state store: the latest fix and satellites (ReceiverState),
// the framing of incoming text (SentenceFramer), and the lock that keeps a
// chunk's parsing apart from reset and clear. The receiver object drives it
// from its reading thread and copies the records out under its own locks.
#pragma once

#include <cstdint>

#include "KavoMobileGPS.h"
#include "nmea/receiver_options.h"
#include "nmea/receiver_state.h"
#include "nmea/sentence_framer.h"
#include "support/critical_section_lock.h"
#include "support/wide_string.h"

namespace kavo::nmea {

class ReceiverStateStore {
 public:
  explicit ReceiverStateStore(const ReceiverOptions& options = ReceiverOptions()) : framer_(options) {}
  ReceiverStateStore(const ReceiverStateStore&) = delete;
  ReceiverStateStore& operator=(const ReceiverStateStore&) = delete;

  // Empty records stamped with the local clock. Returns 1.
  int Reset();
  // Forgets the unterminated text. The records stay.
  void Clear();
  // Frames and parses one chunk under the lock. 1, or 0 when the framing
  // failed (GPS_STATUS_PARSE_ERROR then).
  int ProcessChunk(WideView chunk);

  // What the last chunk did; read on the thread that processes chunks.
  const GPSLocation& Location() const { return state_.Location(); }
  const GPSSatellites& Satellites() const { return state_.Satellites(); }
  int32_t Status() const { return state_.Status(); }
  uint32_t UpdateMask() const { return state_.UpdateMask(); }
  uint32_t SentencesSeen() const { return state_.SentencesSeen() ? 1u : 0u; }
  // The recognised sentences of the last chunk, valid until the next one.
  const SentenceList& RecognisedSentences() const { return framer_.Sentences(); }

  // For diagnostics, tests and fuzzing.
  const ReceiverState& State() const { return state_; }
  const SentenceFramer& Framer() const { return framer_; }

 private:
  CriticalSectionLock lock_;
  ReceiverState state_;
  SentenceFramer framer_;
};

}  // namespace kavo::nmea
