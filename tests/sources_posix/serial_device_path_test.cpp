#include "platform/posix/serial_device_path.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "common/temp_dir.h"
#include "platform/platform.h"

namespace kavo::platform::posix {
namespace {

std::string Lower(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

TEST(SerialDevicePath, APathIsFoundWhateverTheCaseItWasLoweredTo) {
  test::TempDir dir;
  std::filesystem::create_directories(dir.File("Dev/Serial"));
  dir.Write("Dev/Serial/ttyUSB0", "");
  const std::string real = dir.File("Dev/Serial/ttyUSB0");
  EXPECT_EQ(FindPathIgnoringCase(Lower(real)), real);
  EXPECT_EQ(FindPathIgnoringCase(real), real);
  EXPECT_EQ(ResolveSerialDevicePath(Utf8ToUtf16(Lower(real) + ":")), real);
  // An exact match wins over one that differs in case only.
  dir.Write("Dev/Serial/ttyusb0", "");
  EXPECT_EQ(FindPathIgnoringCase(dir.File("Dev/Serial/ttyusb0")), dir.File("Dev/Serial/ttyusb0"));
  EXPECT_EQ(FindPathIgnoringCase(dir.File("Dev/Serial/ttyUSB0")), real);
  EXPECT_EQ(FindPathIgnoringCase(dir.File("dev/serial/TTYUSB0")), dir.File("Dev/Serial/ttyUSB0"));
  EXPECT_EQ(FindPathIgnoringCase(dir.File("Dev/Serial/ttyUSB1")), std::nullopt);
  EXPECT_EQ(FindPathIgnoringCase("relative/path"), std::nullopt);
}

TEST(SerialDevicePath, PortNamesWithoutAMapAreNotFound) {
  SetLastError(0);
  EXPECT_EQ(ResolveSerialDevicePath(u"com3:"), std::nullopt);
  EXPECT_EQ(GetLastError(), kErrorFileNotFound);
  SetLastError(0);
  EXPECT_EQ(ResolveSerialDevicePath(u"/no/such/device:"), std::nullopt);
  EXPECT_EQ(GetLastError(), kErrorFileNotFound);
}

}  // namespace
}  // namespace kavo::platform::posix
