// Tells, from the sentences as they arrive, where a receiver's epoch (the
// sentences it sends for one fix time) ends, so that a fix goes out once
// per epoch and complete. An epoch is over when a sentence carries a new
// fix time; once one epoch has been seen whole, its last kind of sentence
// marks the end of the next ones as soon as it arrives.
#pragma once

#include <string>

namespace kavo::serve {

class EpochCutter {
 public:
  struct Cut {
    bool before = false;  // the epoch before this sentence is complete without it
    bool after = false;   // this sentence completes its epoch
  };

  // For each sentence, before it is applied.
  Cut Next(const std::string& sentence);
  // Whether an epoch has begun and was not reported yet (at the end of a
  // recording, say); MarkReported says it now is.
  bool Unreported() const { return !time_.empty() && !reported_; }
  void MarkReported() { reported_ = true; }

 private:
  std::string time_;   // fix time of the epoch in progress
  std::string last_;   // kind of the sentence before
  std::string ender_;  // kind that ended the last epoch seen whole
  bool reported_ = false;
};

}  // namespace kavo::serve
