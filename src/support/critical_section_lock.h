// The lock object used throughout the library: a re-entrant critical section.
#pragma once

#include "platform/platform.h"

namespace kavo {

class CriticalSectionLock {
 public:
  int Lock() {
    section_.Enter();
    return 1;
  }
  // Kept for its slot: the lock needs no preparation and always succeeds.
  int Prepare() { return 1; }
  int Unlock() {
    section_.Leave();
    return 1;
  }

  class Guard {
   public:
    explicit Guard(CriticalSectionLock& lock) : lock_(lock) { lock_.Lock(); }
    ~Guard() { lock_.Unlock(); }
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;

   private:
    CriticalSectionLock& lock_;
  };

 private:
  platform::CriticalSection section_;
};

}  // namespace kavo
