// The registry hive of a POSIX machine: read from a .reg file, or
// synthesised from the serial devices in sysfs when there is none.
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "common/log_capture.h"
#include "common/temp_dir.h"
#include "platform/platform.h"
#include "platform/posix/registry/loader.h"
#include "platform/posix/registry/reg_file_parser.h"
#include "platform/posix/serial_port_map.h"
#include "ports/registry_key.h"
#include "utf_conversion.h"

namespace kavo::platform::posix {
namespace {

using Bytes = std::vector<uint8_t>;

Bytes Utf16Bytes(const std::u16string& text) {
  Bytes bytes;
  for (char16_t c : text) bytes.insert(bytes.end(), {static_cast<uint8_t>(c & 0xFF), static_cast<uint8_t>(c >> 8)});
  return bytes;
}

const char* kEveryConstruct =
    "Windows Registry Editor Version 5.00\r\n\r\n"
    "; a comment\r\n"
    "[HKEY_LOCAL_MACHINE\\Test\\Key]\r\n"
    "\"Text\"=\"a \\\"quoted\\\" C:\\\\path\"\r\n"
    "@=\"default\"\r\n"
    "\"Number\"=dword:0000001e\r\n"
    "\"Bin\"=hex:01,02,\\\r\n"
    "  ff\r\n"
    "\"Expand\"=hex(2):25,00,41,00,00,00\r\n"
    "; a comment that ends in a backslash \\\r\n"
    "\"Kept\"=dword:1\r\n"
    "\"Gone\"=\"x\"\r\n"
    "\"Gone\"=-\r\n"
    "[hkey_current_user\\Other]\n"
    "\"Empty\"=hex:\n"
    "[HKEY_LOCAL_MACHINE\\Test\\Doomed\\Child]\r\n"
    "[-HKEY_LOCAL_MACHINE\\Test\\Doomed]\r\n"
    "\"ignored\"=dword:2\r\n";

TEST(RegFile, EveryConstructReadsTheSameInUtf8AndUtf16) {
  std::string utf16 = "\xFF\xFE";
  for (char16_t c : unicode::Utf8ToUtf16(kEveryConstruct))
    utf16 += {static_cast<char>(c & 0xFF), static_cast<char>(c >> 8)};
  for (const std::string& bytes : {std::string(kEveryConstruct), utf16}) {
    RegistryHive hive;
    RegFileError error;
    ASSERT_TRUE(ParseRegText(DecodeRegFileBytes(bytes), hive, &error)) << error.line;
    const auto key = RegistryHive::Find(hive.Root(registry::kLocalMachine), u"Test\\Key");
    ASSERT_NE(key, nullptr);
    const std::pair<const char16_t*, RegistryValue> expected[] = {
        {u"Text", {u"", registry::kTypeString, Utf16Bytes(std::u16string(u"a \"quoted\" C:\\path") + u'\0')}},
        {u"", {u"", registry::kTypeString, Utf16Bytes(std::u16string(u"default") + u'\0')}},
        {u"Number", {u"", registry::kTypeDword, {0x1e, 0, 0, 0}}},
        {u"Bin", {u"", registry::kTypeBinary, {1, 2, 0xff}}},
        {u"Expand", {u"", registry::kTypeExpandString, {0x25, 0, 0x41, 0, 0, 0}}},
        {u"Kept", {u"", registry::kTypeDword, {1, 0, 0, 0}}},  // not part of the comment before it
    };
    for (const auto& [name, value] : expected) {
      const RegistryValue* found = key->FindValue(name);
      ASSERT_NE(found, nullptr) << unicode::Utf16ToUtf8(name);
      EXPECT_EQ(found->type, value.type);
      EXPECT_EQ(found->data, value.data) << unicode::Utf16ToUtf8(name);
    }
    EXPECT_EQ(key->FindValue(u"Gone"), nullptr);
    EXPECT_EQ(key->ValueCount(), 6u);
    EXPECT_TRUE(RegistryHive::Find(hive.Root(registry::kCurrentUser), u"Other")->FindValue(u"Empty")->data.empty());
    EXPECT_EQ(RegistryHive::Find(hive.Root(registry::kLocalMachine), u"Test\\Doomed"), nullptr);
  }
}

TEST(RegFile, AMalformedLineIsReportedWithItsNumber) {
  const std::string header = "Windows Registry Editor Version 5.00\r\n\r\n[HKEY_LOCAL_MACHINE\\K]\r\n";
  const std::pair<std::string, size_t> cases[] = {
      {"REGEDIT5\r\n", 1},
      {"Windows Registry Editor Version 5.00\r\n\"Early\"=dword:1\r\n", 2},
      {header + "\"N\"=dword:123456789\r\n", 4},
      {header + "\"N\"=\"unterminated\r\n", 4},
      {header + "\"N\"=\"text\" trailing\r\n", 4},
      {header + "\"N\"=hex:01,\\\r\n  02,zz\r\n", 4},
      {header + "\"N\" dword:1\r\n", 4},
      {header + "\r\n[HKEY_NOWHERE\\X]\r\n", 5},
      {header + "[-HKEY_LOCAL_MACHINE]\r\n", 4},
  };
  for (const auto& [text, line] : cases) {
    RegistryHive hive;
    RegFileError error;
    EXPECT_FALSE(ParseRegText(DecodeRegFileBytes(text), hive, &error)) << text;
    EXPECT_EQ(error.line, line) << text;
  }
}

// Runs `work` on a thread with a small stack, where recursion as deep as
// the input would overflow it.
void OnSmallStack(std::function<void()> work) {
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstacksize(&attributes, 256 * 1024);
  pthread_t thread;
  auto run = [](void* w) -> void* {
    (*static_cast<std::function<void()>*>(w))();
    return nullptr;
  };
  ASSERT_EQ(pthread_create(&thread, &attributes, run, &work), 0);
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attributes);
}

TEST(RegFile, KeysNestedBeyondTheLimitAreAnErrorAndNothingRecurses) {
  std::string deep = "HKEY_LOCAL_MACHINE";
  for (int level = 0; level < 200000; ++level) deep += "\\k";
  const std::string header = "Windows Registry Editor Version 5.00\r\n";
  std::string limit = "HKEY_LOCAL_MACHINE";
  for (size_t level = 0; level < kMaxKeyDepth; ++level) limit += "\\k";
  OnSmallStack([&] {
    RegistryHive hive;
    RegFileError error;
    EXPECT_FALSE(ParseRegText(DecodeRegFileBytes(header + "[" + deep + "]\r\nbad line\r\n"), hive, &error));
    EXPECT_EQ(error.line, 2u);
    EXPECT_EQ(error.reason, u"key nested too deep");
    EXPECT_TRUE(ParseRegText(
        DecodeRegFileBytes(header + "[" + limit + "]\r\n[-" + deep + "]\r\n[-" + limit.substr(0, 20) + "]\r\n"), hive,
        &error));
    EXPECT_EQ(RegistryHive::Find(hive.Root(registry::kLocalMachine), u"k"), nullptr);
  });
}

// The registry as loaded afresh from the file or sysfs folder a test names.
class Hive : public ::testing::Test {
 protected:
  void SetUp() override { TearDown(); }  // nothing from the test's environment
  void TearDown() override {
    unsetenv("KAVOGPS_REGISTRY");
    unsetenv("KAVOGPS_SYSFS_ROOT");
    ReloadRegistry();
  }
  static void Use(const char* variable, const std::string& path) {
    setenv(variable, path.c_str(), 1);
    ReloadRegistry();
  }
  // What the log says when the registry is first used with `path` as its file.
  static std::string FirstUse(const std::string& path) {
    Use("KAVOGPS_REGISTRY", path);
    test::LogCapture log;
    RegistryKey key;
    EXPECT_FALSE(key.Open(u"HKEY_LOCAL_MACHINE\\Drivers\\Active", registry::kKeyRead));
    return log.Utf8();
  }
  test::TempDir dir_;
};

TEST_F(Hive, AFileThatCannotModelAMachineIsReportedByWhatItIs) {
  dir_.Write("bad.reg",
             "Windows Registry Editor Version 5.00\r\n[HKEY_LOCAL_MACHINE\\Drivers\\Active\\01]\r\n\"B\"=dword:\r\n");
  ASSERT_EQ(mkfifo(dir_.File("fifo.reg").c_str(), 0600), 0);
  dir_.Write("huge.reg", "");
  ASSERT_EQ(truncate(dir_.File("huge.reg").c_str(), 17 << 20), 0);
  const std::pair<std::string, std::string> cases[] = {
      {dir_.File("bad.reg"), "bad.reg, line 3: malformed dword value; the registry is empty\n"},
      {dir_.File("fifo.reg"), "fifo.reg is a FIFO, not a regular file;"},
      {"/dev/zero", "/dev/zero is a device or special file, not a regular file;"},
      {dir_.File("huge.reg"), "huge.reg is larger than 16 MB;"},
  };
  for (const auto& [path, report] : cases) {
    const std::string log = FirstUse(path);
    EXPECT_NE(log.find("Registry file " + path), std::string::npos) << log;
    EXPECT_NE(log.find(report), std::string::npos) << log;
  }
}

namespace fs = std::filesystem;

std::u16string Text(const std::u16string& path, const char16_t* name) {
  RegistryKey key;
  char16_t buffer[260];
  uint32_t length = 260;
  if (!key.Open(path.c_str(), registry::kKeyRead)) return u"<no key>";
  return key.QueryString(name, buffer, &length) ? buffer : u"<no value>";
}

TEST_F(Hive, WithoutAFileEachSerialDeviceInSysfsIsAnActiveDriverWithAFriendlyNameAndAPortMapEntry) {
  // A tty whose "device" link leads to `device` under devices/ (none when
  // empty), with the UART `type` and USB `product` when given.
  const auto tty = [&](const std::string& name, const std::string& device, const std::string& type,
                       const std::string& product = "") {
    const fs::path path = fs::path(dir_.Path()) / "class" / "tty" / name;
    fs::create_directories(path);
    if (!type.empty()) dir_.Write("class/tty/" + name + "/type", type + "\n");
    if (device.empty()) return;
    fs::create_directories(fs::path(dir_.Path()) / "devices" / device);
    fs::create_directory_symlink(fs::path(dir_.Path()) / "devices" / device, path / "device");
    if (!product.empty()) dir_.Write("devices/" + device.substr(0, device.rfind('/')) + "/product", product + "\n");
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
  Use("KAVOGPS_SYSFS_ROOT", dir_.Path());

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
  ASSERT_TRUE(active.Open(u"HKEY_LOCAL_MACHINE\\Drivers\\Active", registry::kKeyRead));
  active.EnumerateSubkeys([&](const char16_t* name) { entries.emplace_back(name); });
  ASSERT_EQ(entries.size(), expected.size());
  for (size_t i = 0; i < expected.size(); ++i) {
    const std::u16string number = unicode::Utf8ToUtf16(std::to_string(i + 1));
    const std::u16string entry = u"HKEY_LOCAL_MACHINE\\Drivers\\Active\\" + entries[i];
    EXPECT_EQ(Text(entry, u"Name"), u"COM" + number + u":");
    EXPECT_EQ(Text(u"HKEY_LOCAL_MACHINE\\" + Text(entry, u"Key"), u"FriendlyName"), expected[i].second) << i;
    EXPECT_EQ(DeviceForPortName(u"com" + number + u":"), u"/dev/" + expected[i].first);
  }
  EXPECT_EQ(DeviceForPortName(u"com7:"), u"");
}

}  // namespace
}  // namespace kavo::platform::posix
