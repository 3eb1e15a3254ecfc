// Turns text that arrives in chunks of any size into lines ended by a line
// feed (a carriage return before it stays part of the sentence), hands the
// known sentences to their parsers and collects those it recognised.
// With the default options only "$GP" sentences are read and checksums are
// not verified: the parsers' own field checks are then the only defence
// against damaged lines, and a receiver that sends none still works. Other
// options accept more talkers (their satellites merged into one table) and
// check checksums.
#pragma once

#include <cstddef>
#include <memory>

#include "nmea/receiver_options.h"
#include "nmea/receiver_state.h"
#include "nmea/sentence_list.h"
#include "nmea/sky_merger.h"
#include "support/wide_string.h"

namespace kavo::nmea {

class SentenceFramer {
 public:
  explicit SentenceFramer(const ReceiverOptions& options = ReceiverOptions()) : options_(options) {}

  // The unterminated tail kept between chunks; a stream without line feeds
  // keeps only its newest text.
  static constexpr size_t kMaxLeftover = 512;

  // Parses the chunk's complete lines into `state`. 0 when the framing
  // itself failed (out of memory): logged as "Parser error", GPS_STATUS_PARSE_ERROR.
  int Process(WideView chunk, ReceiverState& state);
  // Forgets the unterminated tail.
  void Clear() { leftoverLength_ = 0; }
  // Forgets the satellites gathered from several talkers.
  void ResetSky() { sky_.Reset(); }
  const ReceiverOptions& Options() const { return options_; }

  const SentenceList& Sentences() const { return sentences_; }
  WideView Leftover() const { return WideView(leftover_, leftoverLength_); }
  size_t LineBufferCapacity() const { return lineCapacity_; }

 private:
  void TakeLine(WideView head, WideView tail, ReceiverState& state);
  void KeepTail(bool afterLeftover, WideView rest);
  int Failed(ReceiverState& state);
  // Runs the parser of a GGA, GSV, RMC, GSA or VTG sentence from an
  // accepted talker whose checksum passes: 1 when it ran; 0 for anything
  // else, and for a sentence whose parser rejected a value (logged as
  // "Exception on parsing: ...").
  int Dispatch(WideView line, ReceiverState& state);

  char16_t leftover_[kMaxLeftover + 1] = {};
  size_t leftoverLength_ = 0;
  std::unique_ptr<char16_t[]> line_;  // reused for every line, never shrunk
  size_t lineCapacity_ = 0;
  SentenceList sentences_;
  ReceiverOptions options_;
  SkyMerger sky_;
};

}  // namespace kavo::nmea
