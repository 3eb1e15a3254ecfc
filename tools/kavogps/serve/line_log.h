// Standard error shared by the threads of `kavogps serve`: each writer has
// a stream of its own, and the log takes whole lines, so that the lines of
// several receivers never run into each other.
#pragma once

#include <mutex>
#include <ostream>
#include <streambuf>
#include <string>

namespace kavo::serve {

class LineLog {
 public:
  explicit LineLog(std::ostream& out) : out_(out) {}
  // Writes whole lines at once and flushes them. Any thread.
  void Write(const std::string& lines);

 private:
  std::mutex mutex_;
  std::ostream& out_;
};

// One writer's stream: what it writes goes to the log a line at a time.
// Used by one thread at a time.
class LogWriter : public std::ostream {
 public:
  explicit LogWriter(LineLog& log) : std::ostream(&buffer_), buffer_(log) {}

 private:
  class LineBuffer : public std::streambuf {
   public:
    explicit LineBuffer(LineLog& log) : log_(log) {}

   protected:
    int_type overflow(int_type c) override;
    std::streamsize xsputn(const char* text, std::streamsize size) override;

   private:
    void Put(char c);
    LineLog& log_;
    std::string line_;
  };
  LineBuffer buffer_;
};

}  // namespace kavo::serve
