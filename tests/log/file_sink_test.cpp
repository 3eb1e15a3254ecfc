// The file sink and the configuration read at load.
#include <gtest/gtest.h>

#include <filesystem>

#include "common/temp_dir.h"
#include "log/logger.h"
#include "support/error.h"

namespace kavo {
namespace {

bool IsDebugSink(Logger& logger) {
  Ref<LogSink> sink = logger.SetSink(Ref<LogSink>());
  logger.SetSink(sink);
  return dynamic_cast<DebugLogSink*>(sink.get()) != nullptr;
}

TEST(FileLogSink, CreatesTheFileEmptyAndWritesSingleBytes) {
  test::TempDir dir;
  dir.Write("gps.log", "the previous run's log");
  Ref<FileLogSink> sink(new FileLogSink(dir.WideFile("gps.log")));
  EXPECT_EQ(dir.Read("gps.log"), "");
  EXPECT_EQ(sink->WriteText(u"Gr\u00FC\u00DFe \u65E5\r\n"), 1);
  EXPECT_EQ(sink->WriteText(u""), 1);
  EXPECT_EQ(sink->WriteText(nullptr), 0);
  const std::u16string longLine(2000, u'x');  // beyond the stack buffer
  EXPECT_EQ(sink->WriteText(longLine.c_str()), 1);
  EXPECT_EQ(sink->Flush(), 1);
  EXPECT_EQ(dir.Read("gps.log"), "Gr\xFC\xDF" "e ?\r\n" + std::string(2000, 'x'));
}

TEST(FileLogSink, AFileThatCannotBeCreatedRaisesNotSupported) {
  test::TempDir dir;
  try {
    FileLogSink sink(dir.WideFile("missing-folder/gps.log"));
    FAIL() << "created a sink without a file";
  } catch (const CIMExceptionEx& error) {
    EXPECT_EQ(error.Code(), kErrNotSupported);
  }
}

// A library in a folder whose name has a dot: only the file name's first
// dot starts the part the .ini name replaces.
class LoadConfiguration : public ::testing::Test {
 protected:
  LoadConfiguration() { std::filesystem::create_directories(Path("")); }
  std::string Path(const std::string& name) const { return dir_.File("lib.d/" + name); }
  void Write(const std::string& name, const std::string& text) const { dir_.Write("lib.d/" + name, text); }
  std::string Read(const std::string& name) const { return dir_.Read("lib.d/" + name); }
  void Load(const std::string& library) { ConfigureLoggerAtLoad(logger_, FromUtf8(Path(library))); }

  test::TempDir dir_;
  Logger logger_;
};

TEST_F(LoadConfiguration, WithoutAnIniFileTheLogGoesToTheDebugOutput) {
  Load("KavoMobileGPS.dll");
  EXPECT_TRUE(IsDebugSink(logger_));

  Write("KavoMobileGPS.ini", "[Logger]\r\nLevel=1\r\n");  // no file named
  Load("KavoMobileGPS.dll");
  EXPECT_TRUE(IsDebugSink(logger_));

  // A file that cannot be created leaves the debug output in place, and
  // the loading thread's last error as it was.
  Write("KavoMobileGPS.ini", "[Logger]\r\nFileName=" + Path("no-folder/gps.log") + "\r\n");
  platform::SetLastError(1234);
  Load("KavoMobileGPS.dll");
  EXPECT_TRUE(IsDebugSink(logger_));
  EXPECT_EQ(platform::GetLastError(), 1234u);
}

TEST_F(LoadConfiguration, TheNamedFileIsCreatedEmptyAndReceivesTheLog) {
  const struct { const char* library; const char* ini; } names[] = {
      {"KavoMobileGPS.dll", "KavoMobileGPS.ini"},
      {"libKavoMobileGPS.so.0.1.0", "libKavoMobileGPS.ini"},
      {"KavoMobileGPS", "KavoMobileGPS.ini"},
  };
  for (const auto& n : names) {
    SCOPED_TRACE(n.library);
    Write("gps.log", "left from before");
    Write(n.ini, "[Logger]\r\nFileName=" + Path("gps.log") + "\r\n");
    Load(n.library);
    EXPECT_FALSE(IsDebugSink(logger_));
    EXPECT_EQ(Read("gps.log"), "");
    logger_.Indent();
    logger_.Write(u"Opened \u00E9\n");
    logger_.Unindent();
    EXPECT_EQ(Read("gps.log"), " Opened \xE9\n");
    logger_.SetSink(Ref<LogSink>());  // closes the file before the next round
    std::filesystem::remove(Path(n.ini));
  }
}

}  // namespace
}  // namespace kavo
