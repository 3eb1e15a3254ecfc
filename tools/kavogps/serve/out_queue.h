// The lines waiting to be written to one client, bounded in bytes: when a
// client does not read as fast as reports come, its oldest lines go, whole,
// so that it stays current and the server's memory stays bounded.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

namespace kavo::serve {

// One line of output, shared by every client it goes to.
using OutLine = std::shared_ptr<const std::string>;

class OutQueue {
 public:
  explicit OutQueue(size_t maxBytes) : maxBytes_(maxBytes) {}

  // Queues `line`, dropping the oldest lines while the queue is over its
  // bound; the newest line always stays.
  void Push(OutLine line);
  // Everything queued, oldest first, for one write: replaces what `into`
  // held, keeping its storage for the next time.
  void TakeAll(std::vector<OutLine>* into);
  bool Empty() const { return lines_.empty(); }
  uint64_t Dropped() const { return dropped_; }

 private:
  size_t maxBytes_;
  size_t bytes_ = 0;
  uint64_t dropped_ = 0;
  std::deque<OutLine> lines_;
};

}  // namespace kavo::serve
