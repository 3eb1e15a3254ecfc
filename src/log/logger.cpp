#include "log/logger.h"

#include <cstdlib>
#include <mutex>

namespace kavo {

Logger& Logger::Instance() {
  // Built once on first use, with the debug sink, and never destroyed:
  // threads the library abandoned may still log while the process exits.
  static Logger* instance = [] {
    auto* logger = new Logger;
    logger->SetSink(Ref<LogSink>(new DebugLogSink));
    return logger;
  }();
  return *instance;
}

int Logger::Write(const char16_t* text) {
  if (!text) return 0;
  Ref<LogSink> sink;
  int32_t level;
  {
    CriticalSectionLock::Guard guard(lock_);
    sink = sink_;
    level = level_;
  }
  if (!sink) return 0;
  // Taken as unsigned: a negative level gives the full 127 spaces too.
  uint32_t spaces = static_cast<uint32_t>(level);
  if (spaces > static_cast<uint32_t>(kMaxIndent)) spaces = kMaxIndent;
  if (spaces > 0) {
    char16_t indent[kMaxIndent + 1];
    for (uint32_t i = 0; i < spaces; ++i) indent[i] = u' ';
    indent[spaces] = 0;
    sink->WriteText(indent);
  }
  return sink->WriteText(text);
}

int Logger::FormatList(const char16_t* format, const LogArg* args, size_t count) {
  char16_t text[kFormatLimit + 1];
  if (!format || !FormatLogText(format, args, count, text)) return 0;
  return Write(text);
}

void Logger::Indent() {
  CriticalSectionLock::Guard guard(lock_);
  ++level_;
}

void Logger::Unindent() {
  CriticalSectionLock::Guard guard(lock_);
  --level_;
}

int32_t Logger::Level() {
  CriticalSectionLock::Guard guard(lock_);
  return level_;
}

Ref<LogSink> Logger::SetSink(Ref<LogSink> sink) {
  CriticalSectionLock::Guard guard(lock_);
  sink_.swap(sink);
  return sink;
}

LogScope::LogScope(const char16_t* title, Logger& logger) : logger_(logger) {
  logger_.Write(title);
  logger_.Write(u"\n");
  logger_.Indent();
}

LogScope::~LogScope() {
  logger_.Unindent();
  logger_.Write(u"Finished\n");
}

}  // namespace kavo
