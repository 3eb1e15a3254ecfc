#include "log/logger.h"
#include "support/ini_reader.h"

namespace kavo {
namespace {

constexpr size_t kMaxPath = 260;

}  // namespace

WideString LibraryIniPath(const WideString& modulePath) {
  const size_t nameStart = modulePath.find_last_of(u"\\/") + 1;  // npos + 1 == 0
  const size_t dot = modulePath.find(u'.', nameStart);
  WideString path = modulePath.substr(0, dot) + u".ini";
  return path.size() < kMaxPath ? path : WideString();
}

void ConfigureLoggerAtLoad(Logger& logger, const WideString& modulePath) {
  // Loading the library must not change the loading thread's last error,
  // whatever the file checks and opens below leave in it.
  struct KeepLastError {
    const uint32_t saved = platform::GetLastError();
    ~KeepLastError() { platform::SetLastError(saved); }
  } keep;
  try {
    logger.SetSink(Ref<LogSink>(new DebugLogSink));
    const WideString iniPath = LibraryIniPath(modulePath);
    if (iniPath.empty() || !platform::FileExists(iniPath)) return;
    char16_t fileName[kMaxPath] = {};
    if (ReadIniString(iniPath, u"Logger", u"FileName", u"", fileName, kMaxPath) == 0) return;
    logger.SetSink(Ref<LogSink>(new FileLogSink(fileName)));
  } catch (...) {
    // Loading never fails over the log: the debug sink stays.
  }
}

}  // namespace kavo
