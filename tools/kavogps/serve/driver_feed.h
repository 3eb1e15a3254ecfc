// The data side of `kavogps serve`: runs a driver session on a recording
// or a serial port, as play and monitor do, and gives the feed its epochs
// (a TPV each, a SKY when the sky changed), every sentence as it arrived,
// and the device coming and going. A port that cannot be opened or that
// fails is tried again once a second; a recording that ends leaves its
// last fix to be served. The time of each fix goes to the receiver's time
// outputs, if it has any.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "serve/feed.h"
#include "serve/fix_time.h"
#include "session/waiter.h"

namespace kavo::serve {

struct SourceSpec {
  std::string file;  // a recording to play; or
  int64_t intervalMs = 100;
  bool repeat = false;
  std::string port;  // a serial port; or
  int64_t baud = 4800;
  bool find = false;  // the port where a search finds a receiver
  // Where its time goes, when anywhere: chronyd's socket, an NTP
  // shared-memory unit.
  std::string chronySock;
  int ntpShmUnit = -1;  // none
};

// The receiver `spec` names, before it is there (a port a search is to
// find has no name yet).
DeviceState NamedDevice(const SourceSpec& spec);

class DriverFeed {
 public:
  DriverFeed(FeedSink& sink, std::ostream& err) : sink_(sink), err_(err) {}

  // Each epoch's time goes to `output` too; added before Run.
  void AddTimeOutput(TimeOutput& output) { timeOutputs_.push_back(&output); }

  // Feeds the sink until `interrupt` stops it; the tool's exit code.
  int Run(SourceSpec source, cli::Waiter& interrupt);

 private:
  FeedSink& sink_;
  std::ostream& err_;
  std::vector<TimeOutput*> timeOutputs_;
};

}  // namespace kavo::serve
