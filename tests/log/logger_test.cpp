// The logger, its file sink and the configuration read at load.
#include "log/logger.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <vector>

#include "common/temp_dir.h"
#include "support/error.h"

namespace kavo {
namespace {

bool IsDebugSink(Logger& logger) {
  Ref<LogSink> sink = logger.SetSink(Ref<LogSink>());
  logger.SetSink(sink);
  return dynamic_cast<DebugLogSink*>(sink.get()) != nullptr;
}

// Keeps every WriteText call apart, so that the indentation is seen to be a
// write of its own.
class RecordingSink : public LogSink {
 public:
  int WriteText(const char16_t* text) override {
    calls.emplace_back(text);
    return result;
  }
  int Flush() override { return 1; }
  std::u16string All() {
    std::u16string all;
    for (const auto& c : calls) all += c;
    calls.clear();
    return all;
  }
  std::vector<std::u16string> calls;
  int result = 1;
};

class LoggerTest : public ::testing::Test {
 protected:
  LoggerTest() : sink_(new RecordingSink) { logger_.SetSink(sink_); }
  Logger logger_;
  Ref<RecordingSink> sink_;
};

TEST_F(LoggerTest, IndentsInAWriteOfItsOwnClampedTo127AndScopesCloseOnEveryWayOut) {
  logger_.Indent();
  logger_.Indent();
  EXPECT_EQ(logger_.Write(u"deep\n"), 1);
  EXPECT_EQ(sink_->calls, (std::vector<std::u16string>{u"  ", u"deep\n"}));
  sink_->calls.clear();
  for (int i = 0; i < 135; ++i) logger_.Unindent();  // below zero counts as the most
  logger_.Write(u"y");
  EXPECT_EQ(sink_->calls, (std::vector<std::u16string>{std::u16string(127, u' '), u"y"}));
  for (int i = 0; i < 133; ++i) logger_.Indent();
  sink_->All();
  EXPECT_THROW(
      {
        LogScope outer(u"Outer", logger_);
        LogScope inner(u"Inner", logger_);
        Raise(kErrOperationFailed);
      },
      CIMExceptionEx);
  // The title's line end is a write of its own, so it is indented too.
  EXPECT_EQ(sink_->All(), u"Outer\n Inner \n Finished\nFinished\n");
  EXPECT_EQ(logger_.Level(), 0);
}

TEST_F(LoggerTest, WriteAndFormatReportWhatTheSinkDidAndDropLongMessages) {
  EXPECT_EQ(logger_.Write(nullptr), 0);
  EXPECT_EQ(logger_.Format(u"Port %s at %d baud, handle %x/%X, %05d %c %u%% [%s|%d]\n", u"com3:", 4800, 0xbeefu,
                           0xbeefu, -42, u'Z', 7u, u"only"),
            1);
  EXPECT_EQ(sink_->All(), u"Port com3: at 4800 baud, handle beef/BEEF, -0042 Z 7% [only|0]\n");
  const std::u16string fits(255, u'a');
  EXPECT_EQ(logger_.Format(u"%s", fits), 1);
  EXPECT_EQ(logger_.Format(u"%s!", fits), 0);  // 256 characters: dropped, not cut
  EXPECT_EQ(sink_->All(), fits);
  sink_->result = 0;
  EXPECT_EQ(logger_.Write(u"text"), 0);
  EXPECT_EQ(logger_.SetSink(Ref<LogSink>()).get(), sink_.get());  // the old sink comes back
  EXPECT_EQ(logger_.Write(u"nowhere"), 0);
  EXPECT_TRUE(IsDebugSink(Logger::Instance())) << "the library's logger starts on the debug output";
}

TEST(FileLogSink, WritesSingleBytesAndLongLines) {
  test::TempDir dir;
  Ref<FileLogSink> sink(new FileLogSink(dir.WideFile("gps.log")));
  EXPECT_EQ(sink->WriteText(u"Gr\u00FC\u00DFe \u65E5\r\n"), 1);
  EXPECT_EQ(sink->WriteText(nullptr), 0);
  const std::u16string longLine(2000, u'x');  // beyond the stack buffer
  EXPECT_EQ(sink->WriteText(longLine.c_str()), 1);
  EXPECT_EQ(sink->Flush(), 1);
  EXPECT_EQ(dir.Read("gps.log"),
            "Gr\xFC\xDF"
            "e ?\r\n" +
                std::string(2000, 'x'));
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
  const struct {
    const char *library, *ini, *logFile;
  } cases[] = {
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
    if (c.ini)
      dir.Write("lib.d/" + std::string(c.ini),
                c.logFile ? "[Logger]\r\nFileName=" + path(c.logFile) + "\r\n" : "[Logger]\r\n");
    platform::SetLastError(1234);
    ConfigureLoggerAtLoad(logger, FromUtf8(path(c.library)));
    EXPECT_EQ(platform::GetLastError(), 1234u);
    const bool toFile = c.logFile && std::string(c.logFile) == "gps.log";
    EXPECT_EQ(IsDebugSink(logger), !toFile);
    if (!toFile) continue;
    EXPECT_EQ(dir.Read("lib.d/gps.log"), "");
    logger.Write(u"Opened\n");
    EXPECT_EQ(dir.Read("lib.d/gps.log"), "Opened\n");
    logger.SetSink(Ref<LogSink>());  // closes the file before the next round
    std::filesystem::remove(path(c.ini));
  }
}

}  // namespace
}  // namespace kavo
