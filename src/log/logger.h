// The process-wide diagnostic log. Text carries its own line ends; the
// logger adds indentation, one space per open scope, at most 127.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <type_traits>

#include "platform/platform.h"
#include "support/critical_section_lock.h"
#include "support/ref_counted.h"
#include "support/wide_string.h"

namespace kavo {

class LogSink : public virtual RefCounted {
 public:
  virtual int WriteText(const char16_t* text) = 0;
  virtual int Flush() = 0;
};

// One argument of Logger::Format: %s takes text, %d %u %x %X take numbers,
// %c one character.
class LogArg {
 public:
  LogArg(const char16_t* text) : text_(text ? text : u"(null)"), isText_(true) {}  // NOLINT
  LogArg(char16_t* text) : LogArg(static_cast<const char16_t*>(text)) {}           // NOLINT
  LogArg(const WideString& text) : LogArg(text.c_str()) {}                         // NOLINT
  template <class T, class = std::enable_if_t<std::is_integral_v<T> || std::is_enum_v<T>>>
  LogArg(T value)  // NOLINT
      : number_(static_cast<int64_t>(value)), unsignedBits_(static_cast<uint64_t>(value)) {}
  template <class T>
  LogArg(T* pointer)  // NOLINT: handles are logged by value
      : number_(static_cast<int64_t>(reinterpret_cast<uintptr_t>(pointer))),
        unsignedBits_(reinterpret_cast<uintptr_t>(pointer)) {}

  bool IsText() const { return isText_; }
  const char16_t* Text() const { return text_; }
  int64_t Signed() const { return number_; }
  uint64_t Unsigned() const { return unsignedBits_; }

 private:
  const char16_t* text_ = nullptr;
  bool isText_ = false;
  int64_t number_ = 0;
  uint64_t unsignedBits_ = 0;
};

class Logger {
 public:
  static constexpr int kFormatLimit = 255;
  static constexpr int kMaxIndent = 127;

  static Logger& Instance();

  // Writes the indentation, then the text. 0 for a null text or no sink.
  int Write(const char16_t* text);
  // Formats into 256 units at most 255 long; a longer result is dropped,
  // not cut, and 0 returned.
  template <class... Args>
  int Format(const char16_t* format, const Args&... args) {
    const LogArg list[] = {LogArg(args)..., LogArg(0)};
    return FormatList(format, list, sizeof...(Args));
  }
  int FormatList(const char16_t* format, const LogArg* args, size_t count);

  void Indent();
  void Unindent();
  int32_t Level();
  // Swaps in a new sink and returns the old one.
  Ref<LogSink> SetSink(Ref<LogSink> sink);

  Logger() = default;  // for tests; the library uses Instance()

 private:
  CriticalSectionLock lock_;
  Ref<LogSink> sink_;
  int32_t level_ = 0;
};

// Formats a message like Logger::Format; false when it is longer than 255.
bool FormatLogText(const char16_t* format, const LogArg* args, size_t count, char16_t (&out)[Logger::kFormatLimit + 1]);

// A scope in the log: writes the title, "\n" and indents; on every way out
// unindents and writes "Finished\n".
class LogScope {
 public:
  explicit LogScope(const char16_t* title, Logger& logger = Logger::Instance());
  ~LogScope();
  LogScope(const LogScope&) = delete;
  LogScope& operator=(const LogScope&) = delete;

 private:
  Logger& logger_;
};

// Writes to the platform's debug output.
class DebugLogSink : public LogSink {
 public:
  int WriteText(const char16_t* text) override;
  int Flush() override { return 1; }
};

// Writes single-byte text to a file created empty. Throws CIMExceptionEx
// with code -16 when the file cannot be created.
class FileLogSink : public LogSink {
 public:
  explicit FileLogSink(const WideString& path);
  int WriteText(const char16_t* text) override;
  int Flush() override;

 private:
  std::unique_ptr<platform::File> file_;
};

// Load-time configuration: installs the debug sink, then a file sink when
// the initialisation file beside `modulePath` names one in
// [Logger] FileName. Never throws.
void ConfigureLoggerAtLoad(Logger& logger, const WideString& modulePath);

}  // namespace kavo
