#include "log/logger.h"
#include "support/error.h"
#include "support/ini_reader.h"
#include "support/library_ini_path.h"

namespace kavo {

void ConfigureLoggerAtLoad(Logger& logger, const WideString& modulePath) {
  // Loading the library must not change the loading thread's last error,
  // whatever the file checks and opens below leave in it.
  struct KeepLastError {
    const uint32_t saved = platform::GetLastError();
    ~KeepLastError() { platform::SetLastError(saved); }
  } keep;
  // Loading never fails over the log: whatever goes wrong, the debug sink
  // stays.
  CatchInto(nullptr, [&] {
    logger.SetSink(Ref<LogSink>(new DebugLogSink));
    const WideString iniPath = LibraryIniPath(modulePath);
    if (iniPath.empty() || !platform::FileExists(iniPath)) return;
    char16_t fileName[kMaxPath] = {};
    if (ReadIniString(iniPath, u"Logger", u"FileName", u"", fileName, kMaxPath) == 0) return;
    logger.SetSink(Ref<LogSink>(new FileLogSink(fileName)));
  });
}

}  // namespace kavo
