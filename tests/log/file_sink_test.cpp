// The file sink and the configuration read at load.
#include <gtest/gtest.h>

#include <filesystem>

#include "common/temp_dir.h"
#include "log/logger.h"

namespace kavo {
namespace {

bool IsDebugSink(Logger& logger) {
  Ref<LogSink> sink = logger.SetSink(Ref<LogSink>());
  logger.SetSink(sink);
  return dynamic_cast<DebugLogSink*>(sink.get()) != nullptr;
}

TEST(FileLogSink, WritesSingleBytesAndLongLines) {
  test::TempDir dir;
  Ref<FileLogSink> sink(new FileLogSink(dir.WideFile("gps.log")));
  EXPECT_EQ(sink->WriteText(u"Gr\u00FC\u00DFe \u65E5\r\n"), 1);
  EXPECT_EQ(sink->WriteText(nullptr), 0);
  const std::u16string longLine(2000, u'x');  // beyond the stack buffer
  EXPECT_EQ(sink->WriteText(longLine.c_str()), 1);
  EXPECT_EQ(sink->Flush(), 1);
  EXPECT_EQ(dir.Read("gps.log"), "Gr\xFC\xDF" "e ?\r\n" + std::string(2000, 'x'));
}

// The .ini beside the library (in a folder whose name has a dot: only the
// file name's first dot starts the part replaced) names the log file. With
// none, or one that cannot be created, the log stays on the debug output and
// the loading thread's last error stays as it was.
TEST(LoadConfiguration, TheNamedFileIsCreatedEmptyAndReceivesTheLog) {
  test::TempDir dir;
  std::filesystem::create_directories(dir.File("lib.d"));
  const auto path = [&](const std::string& name) { return dir.File("lib.d/" + name); };
  Logger logger;
  const struct { const char *library, *ini, *logFile; } cases[] = {
      {"KavoMobileGPS.dll", nullptr, nullptr},
      {"KavoMobileGPS.dll", "KavoMobileGPS.ini", nullptr},
      {"KavoMobileGPS.dll", "KavoMobileGPS.ini", "no-folder/gps.log"},
      {"KavoMobileGPS.dll", "KavoMobileGPS.ini", "gps.log"},
      {"libKavoMobileGPS.so.0.1.0", "libKavoMobileGPS.ini", "gps.log"},
      {"KavoMobileGPS", "KavoMobileGPS.ini", "gps.log"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.library) + " " + (c.logFile ? c.logFile : "-"));
    dir.Write("lib.d/gps.log", "left from before");
    if (c.ini) dir.Write("lib.d/" + std::string(c.ini), c.logFile ? "[Logger]\r\nFileName=" + path(c.logFile) + "\r\n" : "[Logger]\r\n");
    platform::SetLastError(1234);
    ConfigureLoggerAtLoad(logger, FromUtf8(path(c.library)));
    EXPECT_EQ(platform::GetLastError(), 1234u);
    const bool toFile = c.logFile && std::string(c.logFile) == "gps.log";
    EXPECT_EQ(IsDebugSink(logger), !toFile);
    if (!toFile) continue;
    EXPECT_EQ(dir.Read("lib.d/gps.log"), "");
    logger.Indent();
    logger.Write(u"Opened \u00E9\n");
    logger.Unindent();
    EXPECT_EQ(dir.Read("lib.d/gps.log"), " Opened \xE9\n");
    logger.SetSink(Ref<LogSink>());  // closes the file before the next round
    std::filesystem::remove(path(c.ini));
  }
}

}  // namespace
}  // namespace kavo
