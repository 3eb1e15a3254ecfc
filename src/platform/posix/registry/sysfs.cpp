#include "platform/posix/registry/sysfs.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <vector>

#include "platform/platform.h"
#include "utf_conversion.h"

namespace kavo::platform::posix {
namespace {

namespace fs = std::filesystem;

struct SerialDevice {
  std::string name;  // ttyUSB0
  std::string friendlyName;
};

bool StartsWith(const std::string& text, const char* prefix) { return text.rfind(prefix, 0) == 0; }

std::string ReadFirstLine(const fs::path& path) {
  std::ifstream in(path);
  std::string line;
  std::getline(in, line);
  while (!line.empty() && std::isspace(static_cast<unsigned char>(line.back()))) line.pop_back();
  return line;
}

// The USB product name: the "product" file of the nearest USB device above
// the tty's device.
std::string UsbProductName(const fs::path& deviceLink, const fs::path& sysfsRoot) {
  std::error_code error;
  fs::path dir = fs::canonical(deviceLink, error);
  const fs::path root = fs::canonical(sysfsRoot, error);
  if (dir.empty()) return {};
  for (int depth = 0; depth < 8 && dir.has_relative_path() && dir != root; ++depth) {
    const std::string product = ReadFirstLine(dir / "product");
    if (!product.empty()) return product;
    dir = dir.parent_path();
  }
  return {};
}

// Names whose letters match order by their numbers: ttyS2 before ttyS10.
bool NaturalLess(const std::string& a, const std::string& b) {
  const auto split = [](const std::string& s) {
    const size_t digits = s.find_last_not_of("0123456789") + 1;
    const std::string number = s.substr(digits);
    return std::make_pair(s.substr(0, digits), number.empty() ? -1L : std::stol(number.substr(0, 9)));
  };
  return split(a) < split(b) || (split(a) == split(b) && a < b);
}

bool Describe(const fs::path& ttyDir, const std::string& name, const fs::path& sysfsRoot, SerialDevice* device) {
  std::error_code error;
  const fs::path link = ttyDir / "device";
  const bool hasDevice = fs::exists(link, error);
  device->name = name;
  if (StartsWith(name, "rfcomm")) {
    device->friendlyName = "Bluetooth serial port (" + name + ")";
    return true;
  }
  if (!hasDevice) return false;  // virtual terminals, pseudo-terminals, consoles
  if (StartsWith(name, "ttyUSB") || StartsWith(name, "ttyACM")) {
    const std::string product = UsbProductName(link, sysfsRoot);
    device->friendlyName = product.empty() ? "USB serial port (" + name + ")" : product;
    return true;
  }
  // The 8250 driver registers ttyS0-31 whether or not a UART answers; the
  // ones without hardware report type 0.
  if (StartsWith(name, "ttyS") && ReadFirstLine(ttyDir / "type") == "0") return false;
  device->friendlyName = "Serial port (" + name + ")";
  return true;
}

std::vector<uint8_t> StringData(const std::string& utf8) {
  std::vector<uint8_t> data;
  for (char16_t c : unicode::Utf8ToUtf16(utf8) + u'\0') {
    data.push_back(static_cast<uint8_t>(c & 0xFF));
    data.push_back(static_cast<uint8_t>(c >> 8));
  }
  return data;
}

void SetString(RegistryNode& key, const char16_t* name, const std::string& utf8) {
  key.SetValue(name, registry::kTypeString, StringData(utf8));
}

}  // namespace

void AddSerialDevicesFromSysfs(const std::string& sysfsRoot, RegistryHive& hive, const std::string& devRoot) {
  const auto machine = hive.Root(registry::kLocalMachine);
  const auto active = RegistryHive::Create(machine, u"Drivers\\Active", nullptr);
  const auto portMap = RegistryHive::Create(machine, u"Hardware\\DeviceMap\\SerialComm", nullptr);

  std::vector<SerialDevice> devices;
  std::error_code error;
  const fs::path ttyClass = fs::path(sysfsRoot) / "class" / "tty";
  for (fs::directory_iterator it(ttyClass, error), end; !error && it != end; it.increment(error)) {
    SerialDevice device;
    if (Describe(it->path(), it->path().filename().string(), sysfsRoot, &device)) devices.push_back(device);
  }
  std::sort(devices.begin(), devices.end(),
            [](const SerialDevice& a, const SerialDevice& b) { return NaturalLess(a.name, b.name); });

  for (size_t i = 0; i < devices.size(); ++i) {
    const SerialDevice& device = devices[i];
    const std::string number = std::to_string(i + 1);
    const std::string entryName = (i + 1 < 10 ? "0" : "") + number;
    const std::string driverKey = "Drivers\\Serial\\" + device.name;
    const std::string path = devRoot + "/" + device.name;

    const auto entry = RegistryHive::Create(active, unicode::Utf8ToUtf16(entryName), nullptr);
    SetString(*entry, u"Name", "COM" + number + ":");
    SetString(*entry, u"Key", driverKey);
    const auto driver = RegistryHive::Create(machine, unicode::Utf8ToUtf16(driverKey), nullptr);
    SetString(*driver, u"FriendlyName", device.friendlyName);
    SetString(*driver, u"Device", path);
    portMap->SetValue(unicode::Utf8ToUtf16(path), registry::kTypeString, StringData("COM" + number));
  }
}

}  // namespace kavo::platform::posix
