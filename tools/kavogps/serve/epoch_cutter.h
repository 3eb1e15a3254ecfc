// Tells, from the sentences as they arrive, where a receiver's epoch (the
// sentences it sends for one fix time) ends, so that a fix goes out once
// per epoch and complete. An epoch is over when a sentence carries a new
// fix time; once one epoch has been seen whole, its last kind of sentence
// marks the end of the next ones as soon as it arrives.
//
// It also keeps what the records alone cannot say: the epoch's own time
// (a receiver standing still changes nothing else) and which satellites
// the fix uses, as the latest group of GSA sentences names them.
#pragma once

#include <cstdint>
#include <set>
#include <string>

namespace kavo::serve {

class EpochCutter {
 public:
  struct Cut {
    bool before = false;  // the epoch before this sentence is complete without it
    bool after = false;   // this sentence completes its epoch
    double beforeTime = 0, afterTime = 0;  // their times (OLE dates), 0 when unknown
  };

  // For each sentence, before it is applied.
  Cut Next(const std::string& sentence);
  // Whether an epoch has begun and was not reported yet (at the end of a
  // recording, say), and its time; MarkReported says it now is.
  bool Unreported() const { return !time_.empty() && !reported_; }
  double Time() const { return EpochDate(time_); }
  void MarkReported() { reported_ = true; }
  const std::set<int32_t>& UsedSatellites() const { return used_; }

 private:
  double EpochDate(const std::string& time) const;

  std::string time_;   // fix time of the epoch in progress, hhmmss.ss
  int year_ = 0, month_ = 0, day_ = 0;  // the latest date a sentence gave
  std::string last_;   // kind of the sentence before
  std::string ender_;  // kind that ended the last epoch seen whole
  bool reported_ = false;
  std::set<int32_t> used_;
};

}  // namespace kavo::serve
