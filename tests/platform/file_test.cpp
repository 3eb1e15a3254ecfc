// Files, the module path, the clock and the debug output seam.
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "common/temp_dir.h"
#include "common/test_clock.h"
#include "platform/platform.h"

namespace kavo::platform {
namespace {

std::unique_ptr<File> OpenRead(const std::u16string& path) {
  return File::Open(path, FileAccess::kRead, FileDisposition::kOpenExisting);
}
std::unique_ptr<File> Create(const std::u16string& path) {
  return File::Open(path, FileAccess::kWrite, FileDisposition::kCreateAlways);
}

std::string ReadAll(File& file) {
  std::string bytes;
  char block[3];  // small, so that reads continue where the last stopped
  uint32_t got = 0;
  while (file.Read(block, sizeof block, &got) && got > 0) bytes.append(block, got);
  return bytes;
}

TEST(File, CreateAlwaysTruncatesAndReadersShareWithReaders) {
  test::TempDir dir;
  dir.Write("log.txt", "old content that must go");
  const auto path = dir.WideFile("log.txt");
  {
    auto writer = Create(path);
    ASSERT_TRUE(writer);
    EXPECT_EQ(dir.Read("log.txt"), "");  // others may read what it writes
    uint32_t written = 0;
    ASSERT_TRUE(writer->Write("hello\r\n", 7, &written));
    EXPECT_EQ(written, 7u);
    EXPECT_TRUE(writer->Flush());
    EXPECT_EQ(dir.Read("log.txt"), "hello\r\n");
  }

  auto reader = OpenRead(path);
  ASSERT_TRUE(reader);
  auto second = OpenRead(path);  // readers share with readers
  ASSERT_TRUE(second);
  EXPECT_EQ(ReadAll(*reader), "hello\r\n");
  uint32_t got = 99;
  EXPECT_TRUE(reader->Read(&got, sizeof got, &got));
  EXPECT_EQ(got, 0u);  // at the end
  ASSERT_TRUE(reader->SeekFromStart(2));
  EXPECT_EQ(ReadAll(*reader), "llo\r\n");
  EXPECT_EQ(ReadAll(*second), "hello\r\n");  // each handle has its own position
}

TEST(File, FailuresSetTheLastError) {
  test::TempDir dir;
  SetLastError(0);
  EXPECT_FALSE(OpenRead(dir.WideFile("missing.nmea")));
  EXPECT_EQ(GetLastError(), kErrorFileNotFound);

  SetLastError(0);
  EXPECT_FALSE(Create(dir.WideFile("no-such-folder/x.log")));
  EXPECT_NE(GetLastError(), 0u);

  SetLastError(0);
  EXPECT_FALSE(OpenRead(Utf8ToUtf16(dir.Path())));  // a folder is no file
  EXPECT_NE(GetLastError(), 0u);

  dir.Write("data.txt", "x");
  auto reader = OpenRead(dir.WideFile("data.txt"));
  ASSERT_TRUE(reader);
  uint32_t written = 7;
  EXPECT_FALSE(reader->Write("y", 1, &written));  // opened for reading only
  EXPECT_EQ(written, 0u);
}

TEST(File, ExistsAndNonAsciiNames) {
  test::TempDir dir;
  const std::u16string name = dir.WideFile("") + u"\u00F1and\u00FA-\u6E2C.nmea";
  EXPECT_FALSE(FileExists(name));
  {
    auto writer = Create(name);
    ASSERT_TRUE(writer);
    uint32_t written = 0;
    ASSERT_TRUE(writer->Write("$GP", 3, &written));
  }
  EXPECT_TRUE(FileExists(name));
  EXPECT_TRUE(FileExists(Utf8ToUtf16(dir.Path())));
  auto reader = OpenRead(name);
  ASSERT_TRUE(reader);
  EXPECT_EQ(ReadAll(*reader), "$GP");
}

TEST(Process, ModulePathNamesTheModuleThatHoldsTheLibrary) {
  // Linked statically, the library lives in this test program.
  const std::u16string path = ModulePath();
  ASSERT_FALSE(path.empty());
  EXPECT_TRUE(FileExists(path));
  const std::string utf8 = Utf16ToUtf8(path);
  EXPECT_NE(utf8.find("test_platform"), std::string::npos) << utf8;
  DebugOutput(nullptr);  // ignored, no crash
}

TEST(Clock, ReplaceableAndTheSystemClockRuns) {
  EXPECT_EQ(&CurrentClock(), &SystemClock());
  {
    test::ManualClock manual(5000);
    EXPECT_EQ(&CurrentClock(), &manual);
    EXPECT_EQ(TickCount(), 5000u);
    Sleep(250);  // no real time passes
    EXPECT_EQ(TickCount(), 5250u);
    EXPECT_EQ(LocalNow().year, 2026);
  }
  EXPECT_EQ(&CurrentClock(), &SystemClock());

  const uint32_t before = TickCount();
  Sleep(50);
  EXPECT_GE(uint32_t(TickCount() - before), 30u);  // tick granularity may be 16 ms

  // The local time is a real calendar date whose weekday agrees with it.
  const LocalTime now = LocalNow();
  EXPECT_GE(now.year, 2024);
  ASSERT_TRUE(now.month >= 1 && now.month <= 12) << now.month;
  ASSERT_TRUE(now.day >= 1 && now.day <= 31) << now.day;
  EXPECT_LT(now.hour, 24);
  EXPECT_LT(now.minute, 60);
  EXPECT_LT(now.second, 60);
  EXPECT_LT(now.milliseconds, 1000);
  static const int kMonthOffset[] = {0, 3, 2, 5, 0, 3, 5, 1, 4, 6, 2, 4};
  const int y = now.year - (now.month < 3);
  const int weekday = (y + y / 4 - y / 100 + y / 400 + kMonthOffset[now.month - 1] + now.day) % 7;
  EXPECT_EQ(now.dayOfWeek, weekday);
}

}  // namespace
}  // namespace kavo::platform
