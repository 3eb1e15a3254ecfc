// Turns what a driver delivers (its records, read as sentences arrive, and
// the sentences themselves) into one complete report per epoch: the burst
// of sentences a receiver sends for one fix time. An epoch is complete when
// the next one starts (a new fix time, or a sentence the epoch already
// had) or when the receiver has been quiet for a while; once an epoch has
// been seen whole, the kind of sentence that ended it ends the next ones as
// soon as the record holds what they sent, so a report leaves with its
// epoch's last sentence. When some of an epoch's sentences reached the
// library together with the next epoch's, the record read at its end
// lacks what they sent or holds the next epoch's values instead: those
// values, and RMC's date, are taken from the epoch's own sentences rather
// than left out or reported from another epoch. Independent of how the
// reports are shown.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "session/reading.h"
#include "session/sentence_facts.h"

namespace kavo::cli {

struct EpochReport {
  Reading reading;  // ValidFlags hold only what this epoch carried
  bool fix = false;
  bool timeKnown = false;
  bool skyChanged = false;    // satellites or dilutions differ from the last report
  std::vector<int32_t> used;  // the satellites the fix uses, as the latest GSA named them, in order
  // The system clock when the epoch's first sentence came: what a time
  // server sets the fix's time against.
  std::chrono::system_clock::time_point arrival{};
};

class EpochAssembler {
 public:
  using Listener = std::function<void(const EpochReport& report)>;
  EpochAssembler(uint32_t quietMs, Listener onEpoch) : quietMs_(quietMs), onEpoch_(std::move(onEpoch)) {}

  // A sentence arrived, at `arrival` by the system clock; `before` is the
  // driver's state before it was applied.
  void Sentence(const std::string& sentence, const Reading& before, uint64_t nowMs,
                std::chrono::system_clock::time_point arrival = {});
  // The driver's newest state.
  void Latest(const Reading& reading, uint64_t nowMs);
  // The open epoch's last sentence came and the record did not yet show
  // it: a reading taken soon completes the epoch.
  bool Due() const { return due_; }
  // Whether sentences of an epoch not yet reported came.
  bool Open() const { return open_; }
  // No more sentences come: the open epoch is complete with `reading`.
  void Finish(const Reading& reading);

 private:
  void Close(const Reading& reading);
  // Whether `reading` holds every value the open epoch sent.
  bool Holds(const Reading& reading) const;

  uint32_t quietMs_;
  Listener onEpoch_;
  bool open_ = false;
  std::string time_;
  std::optional<calendar::CivilTime> date_;
  std::vector<std::string> keys_;  // a handful: a set would allocate for each
  std::string lastKind_, ender_;   // the open epoch's last kind; the kind that ends epochs
  bool due_ = false;
  uint32_t said_ = 0, known_ = 0;
  std::optional<bool> fix_;
  std::optional<int> quality_;
  bool sky_ = false;
  uint64_t lastSentenceMs_ = 0;
  std::chrono::system_clock::time_point arrival_{};
  std::optional<EpochReport> lastSky_;
  std::vector<std::pair<uint32_t, double>> values_;  // the epoch's last value of each
  std::vector<GPSSatellite> cycle_, cycleSoFar_;     // its last whole satellite cycle; the one arriving
  bool hasUsed_ = false;                             // it had a GSA sentence
  std::vector<int32_t> used_, lastUsed_;             // their satellites, in order; the last reported
};

}  // namespace kavo::cli
