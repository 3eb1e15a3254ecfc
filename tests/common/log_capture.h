// Captures what the library logs while the object lives.
#pragma once

#include <functional>
#include <mutex>
#include <string>

#include "log/logger.h"

namespace kavo::test {

class LogCapture {
 public:
  using Listener = std::function<void(const std::u16string& text)>;
  // `onText` (optional) sees each piece of text as it is logged, on the
  // logging thread, after it was recorded.
  explicit LogCapture(Logger& logger = Logger::Instance(), Listener onText = nullptr);
  explicit LogCapture(Listener onText) : LogCapture(Logger::Instance(), std::move(onText)) {}
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
