// The time of one epoch as a time server takes it: the receiver's UTC time
// of the fix against the system clock when the epoch began to arrive.
#pragma once

#include <chrono>
#include <optional>

#include "session/epoch_assembler.h"

namespace kavo::serve {

struct FixTime {
  std::chrono::system_clock::time_point utc;      // the fix's time, from the receiver
  std::chrono::system_clock::time_point arrival;  // the system clock at the epoch's first sentence
  // 0 no warning, 1 a second is inserted at the end of the day, 2 one is
  // deleted. NMEA sentences carry no such warning, so it stays 0.
  int leap = 0;

  // How far the system clock is behind the receiver's, in seconds.
  double Offset() const { return std::chrono::duration<double>(utc - arrival).count(); }
};

// The time of an epoch with a fix and the receiver's full date and time;
// nothing for any other (a time of day alone, a receiver without a fix).
std::optional<FixTime> EpochTime(const cli::EpochReport& report);

// Where the epochs' times go: a reference clock of chronyd or ntpd. Called
// on the library's reading thread; returns at once.
class TimeOutput {
 public:
  virtual ~TimeOutput() = default;
  virtual void Sample(const FixTime& time) = 0;
};

}  // namespace kavo::serve
