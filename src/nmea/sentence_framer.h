// Turns text that arrives in chunks of any size into lines ended by a line
// feed (a carriage return before it stays part of the sentence), hands the
// known sentences to their parsers and collects those it recognised.
// With the default options only "$GP" sentences are read and checksums are
// not verified: the parsers' own field checks are then the only defence
// against damaged lines, and a receiver that sends none still works. Other
// options accept more talkers (their satellites merged into one table) and
// check checksums; with any of them a sentence is also found after other
// bytes on its line (a binary protocol mixed into the NMEA), from the
// line's last "$" on.
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
  explicit SentenceFramer(const ReceiverOptions& options = ReceiverOptions());

  // The unterminated tail kept between chunks; a stream without line feeds
  // keeps only its newest text.
  static constexpr size_t kMaxLeftover = 512;
  // What a chunk of the reading thread usually holds, at most.
  static constexpr size_t kChunkHint = 1024;
  // The line buffer's first size: NMEA allows 82 characters a sentence.
  static constexpr size_t kLineHint = 128;

  // Parses the chunk's complete lines into `state`. 0 when the framing
  // itself failed (out of memory): logged as "Parser error", GPS_STATUS_PARSE_ERROR.
  int Process(WideView chunk, ReceiverState& state);
  // Forgets the unterminated tail.
  void Clear() { leftoverLength_ = 0; }
  // Forgets the satellites gathered from several talkers.
  void ResetSky() {
    if (sky_) sky_->Reset();
  }
  const ReceiverOptions& Options() const { return options_; }

  const SentenceList& Sentences() const { return sentences_; }
  WideView Leftover() const { return WideView(leftover_, leftoverLength_); }
  size_t LineBufferCapacity() const { return lineCapacity_; }

 private:
  void TakeLine(WideView head, WideView tail, ReceiverState& state);
  // The part of the line from its last "$" on (all of it without one).
  static WideView FromLastDollar(WideView line);
  // `head` and `tail` together in the line buffer, terminated.
  WideView Joined(WideView head, WideView tail);
  // The line terminated, for the log: copied into the line buffer.
  const char16_t* Terminated(WideView line);
  void GrowLineBuffer(size_t capacity);
  void KeepTail(bool afterLeftover, WideView rest);
  int Failed(ReceiverState& state);
  // Runs the parser of a GGA, GSV, RMC, GSA or VTG sentence from an
  // accepted talker whose checksum passes: 1 when it ran; 0 for anything
  // else, and for a sentence whose parser rejected a value (logged as
  // "Exception on parsing: ...").
  int Dispatch(WideView line, ReceiverState& state);

  char16_t leftover_[kMaxLeftover + 1];  // up to leftoverLength_, terminated
  size_t leftoverLength_ = 0;
  // Reused for every line that began in the previous chunk (and for a line
  // the log shows), never shrunk; a line within one chunk is read in place.
  std::unique_ptr<char16_t[]> line_;
  size_t lineCapacity_ = 0;
  SentenceList sentences_;
  ReceiverOptions options_;
  bool mixed_;  // options_.ReadsMixedStreams(): binary bytes may precede a sentence
  // Only when the options merge constellations: it is most of a
  // receiver's memory, and of no use to one that reads "$GP" alone.
  std::unique_ptr<SkyMerger> sky_;
};

}  // namespace kavo::nmea
