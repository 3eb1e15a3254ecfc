// Files, the module path and the clock seam.
#include <gtest/gtest.h>

#include "common/temp_dir.h"
#include "common/test_clock.h"
#include "platform/platform.h"

namespace kavo::platform {
namespace {

std::unique_ptr<File> Open(const std::u16string& path, FileAccess access = FileAccess::kRead) {
  return File::Open(path, access, access == FileAccess::kRead ? FileDisposition::kOpenExisting
                                                              : FileDisposition::kCreateAlways);
}

std::string ReadAll(File& file) {
  std::string bytes;
  char block[3];  // small, so that reads continue where the last stopped
  uint32_t got = 0;
  while (file.Read(block, sizeof block, &got) && got > 0) bytes.append(block, got);
  return bytes;
}

TEST(File, CreateTruncatesReadersShareAndSeekAndNonAsciiNamesWork) {
  test::TempDir dir;
  const std::u16string path = dir.WideFile("") + u"\u00F1and\u00FA-\u6E2C.nmea";
  EXPECT_FALSE(FileExists(path));
  for (const char* text : {"old content that must go", "hello\r\n"}) {
    auto writer = Open(path, FileAccess::kWrite);
    ASSERT_TRUE(writer);
    uint32_t written = 0;
    ASSERT_TRUE(writer->Write(text, static_cast<uint32_t>(strlen(text)), &written));
    EXPECT_TRUE(writer->Flush());
  }
  auto reader = Open(path), second = Open(path);
  ASSERT_TRUE(reader && second);
  EXPECT_EQ(ReadAll(*reader), "hello\r\n");
  ASSERT_TRUE(reader->SeekFromStart(2));
  EXPECT_EQ(ReadAll(*reader), "llo\r\n");
  EXPECT_EQ(ReadAll(*second), "hello\r\n");  // each handle has its own position
  uint32_t written = 7;
  EXPECT_FALSE(reader->Write("y", 1, &written));  // opened for reading only
  EXPECT_EQ(written, 0u);
}

TEST(File, FailuresSetTheLastError) {
  test::TempDir dir;
  SetLastError(0);
  EXPECT_FALSE(Open(dir.WideFile("missing.nmea")));
  EXPECT_EQ(GetLastError(), kErrorFileNotFound);
  for (const auto& path : {dir.WideFile("no-such-folder/x.log"), Utf8ToUtf16(dir.Path())}) {
    SetLastError(0);
    EXPECT_FALSE(Open(path, path.back() == u'g' ? FileAccess::kWrite : FileAccess::kRead));
    EXPECT_NE(GetLastError(), 0u);
  }
}

TEST(Process, ModulePathNamesThisProgramAndTheClockIsReplaceable) {
  const std::string path = Utf16ToUtf8(ModulePath());  // linked statically: this program
  EXPECT_NE(path.find("test_platform"), std::string::npos) << path;
  EXPECT_TRUE(FileExists(ModulePath()));
  EXPECT_EQ(&CurrentClock(), &SystemClock());
  {
    test::ManualClock manual(5000);
    Sleep(250);  // no real time passes
    EXPECT_EQ(TickCount(), 5250u);
  }
  EXPECT_EQ(&CurrentClock(), &SystemClock());
  const LocalTime now = LocalNow();
  EXPECT_GE(now.year, 2024);
  EXPECT_TRUE(now.month >= 1 && now.month <= 12 && now.day >= 1 && now.day <= 31 && now.hour < 24);
}

}  // namespace
}  // namespace kavo::platform
