#include "platform/posix/serial_device_path.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "common/temp_dir.h"
#include "platform/platform.h"

namespace kavo::platform::posix {
namespace {

TEST(SerialDevicePath, APathIsFoundWhateverTheCaseItWasLoweredToAndAnExactMatchWins) {
  test::TempDir dir;
  std::filesystem::create_directories(dir.File("Dev/Serial"));
  dir.Write("Dev/Serial/ttyUSB0", "");
  const std::string real = dir.File("Dev/Serial/ttyUSB0");
  EXPECT_EQ(ResolveSerialDevicePath(Utf8ToUtf16(dir.File("dev/serial/ttyusb0:"))), real);
  dir.Write("Dev/Serial/ttyusb0", "");
  EXPECT_EQ(FindPathIgnoringCase(dir.File("Dev/Serial/ttyusb0")), dir.File("Dev/Serial/ttyusb0"));
  EXPECT_EQ(FindPathIgnoringCase(real), real);
  EXPECT_EQ(FindPathIgnoringCase(dir.File("dev/serial/TTYUSB0")), dir.File("Dev/Serial/ttyUSB0"));
  EXPECT_EQ(FindPathIgnoringCase(dir.File("Dev/Serial/ttyUSB1")), std::nullopt);
  EXPECT_EQ(FindPathIgnoringCase("relative/path"), std::nullopt);
}

TEST(SerialDevicePath, PortNamesWithoutAMapAndMissingPathsAreNotFound) {
  for (const char16_t* name : {u"com3:", u"/no/such/device:"}) {
    SetLastError(0);
    EXPECT_EQ(ResolveSerialDevicePath(name), std::nullopt);
    EXPECT_EQ(GetLastError(), kErrorFileNotFound);
  }
}

}  // namespace
}  // namespace kavo::platform::posix
