// A Linux machine without a hive file: its serial devices modelled as a
// sysfs tree in a temporary folder.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "common/temp_dir.h"
#include "platform/platform.h"
#include "platform/posix/registry_loader.h"
#include "platform/posix/serial_port_map.h"
#include "ports/registry_key.h"

namespace kavo {
namespace {

namespace fs = std::filesystem;

std::u16string Text(const std::u16string& path, const char16_t* name) {
  RegistryKey key;
  char16_t buffer[260];
  uint32_t length = 260;
  if (!key.Open(path.c_str(), platform::registry::kKeyRead)) return u"<no key>";
  return key.QueryString(name, buffer, &length) ? buffer : u"<no value>";
}

TEST(ModelledSysfs, EachSerialDeviceIsAnActiveDriverWithAFriendlyNameAndAPortMapEntry) {
  test::TempDir sysfs;
  // A tty whose "device" link leads to `device` under devices/ (none when
  // empty), with the UART `type` and USB `product` when given.
  const auto tty = [&](const std::string& name, const std::string& device, const std::string& type,
                       const std::string& product = "") {
    const fs::path path = fs::path(sysfs.Path()) / "class" / "tty" / name;
    fs::create_directories(path);
    if (!type.empty()) sysfs.Write("class/tty/" + name + "/type", type + "\n");
    if (device.empty()) return;
    fs::create_directories(fs::path(sysfs.Path()) / "devices" / device);
    fs::create_directory_symlink(fs::path(sysfs.Path()) / "devices" / device, path / "device");
    if (!product.empty()) sysfs.Write("devices/" + device.substr(0, device.rfind('/')) + "/product", product + "\n");
  };
  // A USB GPS mouse (ACM), a USB serial adapter, a Bluetooth port, three
  // on-board UARTs of which one has no hardware, and a virtual console.
  tty("ttyACM0", "usb1/1-1/1-1:1.0", "", "u-blox 7 - GPS/GNSS Receiver");
  tty("ttyUSB0", "usb2/2-1/2-1:1.0", "", "FT232R USB UART");
  tty("rfcomm0", "", "");
  tty("ttyS40", "platform/serial8250/tty/ttyS40", "4");
  tty("ttyS41", "platform/serial8250/tty/ttyS41", "0");
  tty("ttyS100", "platform/serial8250/tty/ttyS100", "4");
  tty("ttyS42", "platform/serial8250/tty/ttyS42", "4");
  tty("tty0", "", "");
  unsetenv("KAVOGPS_REGISTRY");
  setenv("KAVOGPS_SYSFS_ROOT", sysfs.Path().c_str(), 1);
  platform::posix::ReloadRegistry();

  const std::vector<std::pair<std::u16string, std::u16string>> expected = {
      {u"rfcomm0", u"Bluetooth serial port (rfcomm0)"}, {u"ttyACM0", u"u-blox 7 - GPS/GNSS Receiver"},
      {u"ttyS40", u"Serial port (ttyS40)"},             {u"ttyS42", u"Serial port (ttyS42)"},
      {u"ttyS100", u"Serial port (ttyS100)"},           {u"ttyUSB0", u"FT232R USB UART"},
  };
  std::vector<std::u16string> entries;
  RegistryKey active;
  ASSERT_TRUE(active.Open(u"HKEY_LOCAL_MACHINE\\Drivers\\Active", platform::registry::kKeyRead));
  active.EnumerateSubkeys([&](const char16_t* name) { entries.emplace_back(name); });
  ASSERT_EQ(entries.size(), expected.size());
  for (size_t i = 0; i < expected.size(); ++i) {
    const std::u16string number = platform::Utf8ToUtf16(std::to_string(i + 1));
    const std::u16string entry = u"HKEY_LOCAL_MACHINE\\Drivers\\Active\\" + entries[i];
    EXPECT_EQ(Text(entry, u"Name"), u"COM" + number + u":");
    EXPECT_EQ(Text(u"HKEY_LOCAL_MACHINE\\" + Text(entry, u"Key"), u"FriendlyName"), expected[i].second) << i;
    EXPECT_EQ(platform::posix::DeviceForPortName(u"com" + number + u":"), u"/dev/" + expected[i].first);
  }
  EXPECT_EQ(platform::posix::DeviceForPortName(u"com7:"), u"");
  unsetenv("KAVOGPS_SYSFS_ROOT");
  platform::posix::ReloadRegistry();
}

}  // namespace
}  // namespace kavo
