// Splits what a client sends into request lines, with a bound on a line's
// length so that a client sending without line ends cannot make the server
// hold more and more.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace kavo::serve {

class RequestLines {
 public:
  struct Line {
    std::string text;      // without its line end
    bool tooLong = false;  // the line passed the bound and was dropped
  };

  explicit RequestLines(size_t maxLength) : maxLength_(maxLength) {}

  // Adds bytes as they arrived; the lines they complete go to `lines`. A
  // line too long shows once, when it passes the bound, and its rest is
  // skipped up to its line end.
  void Add(const char* data, size_t size, std::vector<Line>* lines);

 private:
  size_t maxLength_;
  std::string partial_;
  bool skipping_ = false;
};

}  // namespace kavo::serve
