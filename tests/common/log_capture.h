// Captures what the library logs while the object lives.
#pragma once

#include <mutex>
#include <string>

#include "log/logger.h"

namespace kavo::test {

class LogCapture {
 public:
  explicit LogCapture(Logger& logger = Logger::Instance());
  ~LogCapture();
  std::u16string Text() const;
  std::string Utf8() const;  // for readable assertion messages
  bool Contains(const std::u16string& piece) const;

 private:
  class Sink;
  Logger& logger_;
  Ref<Sink> sink_;
  Ref<LogSink> previous_;
};

}  // namespace kavo::test
