// A Linux machine without a hive file: its serial devices modelled as a
// sysfs tree in a temporary folder.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "KavoMobileGPS.h"
#include "common/temp_dir.h"
#include "platform/platform.h"
#include "platform/posix/registry_loader.h"
#include "platform/posix/serial_port_map.h"
#include "ports/registry_key.h"

namespace kavo {
namespace {

namespace fs = std::filesystem;
namespace reg = platform::registry;

class ModelledSysfs : public ::testing::Test {
 protected:
  void SetUp() override {
    // A USB GPS mouse (ACM), a USB serial adapter, a Bluetooth port, three
    // on-board UARTs of which one has no hardware, and a virtual console.
    AddUsbTty("ttyACM0", "usb1/1-1", "u-blox 7 - GPS/GNSS Receiver");
    AddUsbTty("ttyUSB0", "usb2/2-1", "FT232R USB UART");
    AddTty("rfcomm0", "");
    AddTty("ttyS40", "platform/serial8250/tty/ttyS40", "4");
    AddTty("ttyS41", "platform/serial8250/tty/ttyS41", "0");
    AddTty("ttyS100", "platform/serial8250/tty/ttyS100", "4");
    AddTty("ttyS42", "platform/serial8250/tty/ttyS42", "4");
    AddTty("tty0", "");
    unsetenv("KAVOGPS_REGISTRY");
    setenv("KAVOGPS_SYSFS_ROOT", sysfs_.Path().c_str(), 1);
    platform::posix::ReloadRegistry();
  }
  void TearDown() override {
    unsetenv("KAVOGPS_SYSFS_ROOT");
    platform::posix::ReloadRegistry();
  }

  // A tty whose "device" link leads to `device` under devices/ (none when
  // empty), with the UART `type` when given.
  void AddTty(const std::string& name, const std::string& device, const std::string& type = "") {
    const fs::path tty = fs::path(sysfs_.Path()) / "class" / "tty" / name;
    fs::create_directories(tty);
    if (!type.empty()) sysfs_.Write("class/tty/" + name + "/type", type + "\n");
    if (device.empty()) return;
    const fs::path target = fs::path(sysfs_.Path()) / "devices" / device;
    fs::create_directories(target);
    fs::create_directory_symlink(target, tty / "device");
  }

  // The tty's device is the USB interface; the product name is on the USB
  // device above it.
  void AddUsbTty(const std::string& name, const std::string& usbDevice, const std::string& product) {
    AddTty(name, usbDevice + "/" + usbDevice.substr(usbDevice.find('/') + 1) + ":1.0");
    sysfs_.Write("devices/" + usbDevice + "/product", product + "\n");
  }

  static std::u16string Text(const char16_t* path, const char16_t* name) {
    RegistryKey key;
    if (!key.Open(path, reg::kKeyRead)) return u"<no key>";
    char16_t buffer[260];
    uint32_t length = 260;
    return key.QueryString(name, buffer, &length) ? buffer : u"<no value>";
  }

  test::TempDir sysfs_;
};

TEST_F(ModelledSysfs, EachSerialDeviceIsAnActiveDriverWithAFriendlyNameAndAPortMapEntry) {
  const std::vector<std::pair<std::u16string, std::u16string>> expected = {
      {u"rfcomm0", u"Bluetooth serial port (rfcomm0)"},
      {u"ttyACM0", u"u-blox 7 - GPS/GNSS Receiver"},
      {u"ttyS40", u"Serial port (ttyS40)"},
      {u"ttyS42", u"Serial port (ttyS42)"},
      {u"ttyS100", u"Serial port (ttyS100)"},
      {u"ttyUSB0", u"FT232R USB UART"},
  };
  std::vector<std::u16string> entries;
  RegistryKey active;
  ASSERT_TRUE(active.Open(u"HKEY_LOCAL_MACHINE\\Drivers\\Active", reg::kKeyRead));
  active.EnumerateSubkeys([&](const char16_t* name) { entries.emplace_back(name); });
  ASSERT_EQ(entries.size(), expected.size());

  for (size_t i = 0; i < expected.size(); ++i) {
    const std::u16string number = platform::Utf8ToUtf16(std::to_string(i + 1));
    const std::u16string entry = u"HKEY_LOCAL_MACHINE\\Drivers\\Active\\" + entries[i];
    EXPECT_EQ(Text(entry.c_str(), u"Name"), u"COM" + number + u":");
    const std::u16string driver = u"HKEY_LOCAL_MACHINE\\" + Text(entry.c_str(), u"Key");
    EXPECT_EQ(Text(driver.c_str(), u"FriendlyName"), expected[i].second) << i;
    const std::u16string device = u"/dev/" + expected[i].first;
    EXPECT_EQ(Text(u"HKEY_LOCAL_MACHINE\\Hardware\\DeviceMap\\SerialComm", device.c_str()), u"COM" + number);
    EXPECT_EQ(platform::posix::DeviceForPortName(u"com" + number + u":"), device);
  }
  EXPECT_EQ(platform::posix::DeviceForPortName(u"com7:"), u"");
}

TEST_F(ModelledSysfs, TheCollectionListsThemWithTheBluetoothPortLast) {
  COMPortCollectionHandle ports = COMPortCollection_Create(1);
  ASSERT_NE(ports, nullptr);
  std::vector<std::u16string> names;
  for (int32_t i = 0; i < COMPortCollection_GetCount(ports); ++i) {
    uint8_t busy = 0;
    COMPortInfoHandle port = COMPortCollection_GetPort(ports, i, &busy);
    ASSERT_NE(port, nullptr);
    names.emplace_back(reinterpret_cast<const char16_t*>(COMPortInfo_GetName(port)));
    COMPortInfo_Release(port);
  }
  COMPortCollection_Release(ports);
  EXPECT_EQ(names, (std::vector<std::u16string>{u"COM6:", u"COM5:", u"COM4:", u"COM3:", u"COM2:", u"COM1:"}));
}

}  // namespace
}  // namespace kavo
