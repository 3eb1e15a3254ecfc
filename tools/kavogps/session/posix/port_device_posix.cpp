#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <utility>
#include <vector>

#include "reg_file_syntax.h"
#include "session/port_device.h"
#include "utf_conversion.h"

namespace kavo::cli {
namespace {

namespace fs = std::filesystem;

std::string Upper(std::string text) {
  for (char& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  while (!text.empty() && text.back() == ':') text.pop_back();
  return text;
}

std::string FirstLine(const fs::path& path) {
  std::ifstream in(path);
  std::string line;
  std::getline(in, line);
  while (!line.empty() && std::isspace(static_cast<unsigned char>(line.back()))) line.pop_back();
  return line;
}

// A registry file's text with its UTF-16 zero bytes and BOM dropped.
std::string RegistryText(const std::string& path, bool* readable) {
  std::ifstream in(path, std::ios::binary);
  *readable = static_cast<bool>(in);
  std::string text(std::istreambuf_iterator<char>(in), {});
  text.erase(std::remove(text.begin(), text.end(), '\0'), text.end());
  const size_t start = text.find_first_not_of("\xef\xbb\xbf\xff\xfe");
  return start == std::string::npos ? std::string() : text.substr(start);
}

// A .reg file's sections and values, only to find what is malformed.
class SyntaxOnly : public regfile::Handler {
 public:
  const char16_t* Section(int, std::u16string_view, bool) override { return nullptr; }
  void Value(const std::u16string&, uint32_t, std::vector<uint8_t>) override {}
  void DeleteValue(const std::u16string&) override {}
};

std::string Unescaped(const std::string& quoted) {
  std::string text;
  for (size_t i = 1; i + 1 < quoted.size(); ++i) text += quoted[i] == '\\' ? quoted[++i] : quoted[i];
  return text;
}

// The port map of a registry file: "device"="COMn" lines under SerialComm.
std::vector<std::pair<std::string, std::string>> MapFromRegistryFile(const std::string& path) {
  bool readable = false;
  std::istringstream lines(RegistryText(path, &readable));
  std::vector<std::pair<std::string, std::string>> map;
  bool inMap = false;
  for (std::string line; std::getline(lines, line);) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (!line.empty() && line[0] == '[') inMap = Upper(line) == "[HKEY_LOCAL_MACHINE\\HARDWARE\\DEVICEMAP\\SERIALCOMM]";
    const size_t equals = line.find("\"=\"");
    if (inMap && line[0] == '"' && equals != std::string::npos)
      map.emplace_back(Unescaped(line.substr(0, equals + 1)), Unescaped(line.substr(equals + 2)));
  }
  return map;
}

// Without a registry file the library numbers the system's serial devices
// in natural order (ttyS2 before ttyS10): ttyUSB, ttyACM, rfcomm and
// serial ports whose UART answers.
std::vector<std::pair<std::string, std::string>> MapFromSysfs() {
  std::vector<std::string> names;
  std::error_code error;
  for (fs::directory_iterator it("/sys/class/tty", error), end; !error && it != end; it.increment(error)) {
    const std::string name = it->path().filename().string();
    if (name.rfind("rfcomm", 0) != 0 && !fs::exists(it->path() / "device", error)) continue;
    if (name.rfind("ttyS", 0) == 0 && FirstLine(it->path() / "type") == "0") continue;
    names.push_back(name);
  }
  const auto split = [](const std::string& s) {
    const size_t digits = s.find_last_not_of("0123456789") + 1;
    const std::string number = s.substr(digits);
    return std::make_pair(s.substr(0, digits), number.empty() ? -1L : std::stol(number.substr(0, 9)));
  };
  std::sort(names.begin(), names.end(), [&](const std::string& a, const std::string& b) {
    return split(a) < split(b) || (split(a) == split(b) && a < b);
  });
  std::vector<std::pair<std::string, std::string>> map;
  for (size_t i = 0; i < names.size(); ++i) map.emplace_back("/dev/" + names[i], "COM" + std::to_string(i + 1));
  return map;
}

std::string DevicePath(const std::string& portName) {
  if (!portName.empty() && portName[0] == '/') {
    std::string path = portName;
    while (!path.empty() && path.back() == ':') path.pop_back();
    return path;
  }
  const char* file = std::getenv("KAVOGPS_REGISTRY");
  for (const auto& [device, port] : file&&* file ? MapFromRegistryFile(file) : MapFromSysfs())
    if (Upper(port) == Upper(portName)) return device;
  return {};
}

// Maker, product and driver from sysfs, for a USB device the nearest USB
// device above the tty's.
std::string SysfsDescription(const std::string& device) {
  std::error_code error;
  const fs::path tty = fs::path("/sys/class/tty") / fs::canonical(device, error).filename();
  if (error || !fs::exists(tty / "device", error)) return {};
  std::string maker, product;
  fs::path dir = fs::canonical(tty / "device", error);
  for (int depth = 0; depth < 8 && !error && dir.has_relative_path() && product.empty(); ++depth) {
    product = FirstLine(dir / "product");
    maker = FirstLine(dir / "manufacturer");
    dir = dir.parent_path();
  }
  const std::string driver = fs::read_symlink(tty / "device" / "driver", error).filename().string();
  std::string text = maker.empty() ? product : product.empty() ? maker : maker + " " + product;
  if (!driver.empty()) text += (text.empty() ? "driver " : " (") + driver + (text.empty() ? "" : ")");
  return text;
}

}  // namespace

PortDevice DescribePort(const std::string& portName) {
  PortDevice device;
  device.path = DevicePath(portName);
  if (!device.path.empty()) device.description = SysfsDescription(device.path);
  return device;
}

PortDiagnosis DiagnosePort(const std::string& portName) {
  PortDiagnosis diagnosis;
  const std::string path = DevicePath(portName);
  struct stat info {};
  if (path.empty() || stat(path.c_str(), &info) != 0) {
    diagnosis.trouble = PortTrouble::kMissing;
  } else if (access(path.c_str(), R_OK | W_OK) != 0 && errno == EACCES) {
    diagnosis.trouble = PortTrouble::kNoPermission;
    if (const group* owner = getgrgid(info.st_gid)) diagnosis.group = owner->gr_name;
  }
  return diagnosis;
}

std::string ResolveDevicePath(const std::string& portName) {
  if (portName.empty() || portName[0] != '/') return portName;
  std::error_code error;
  const fs::path resolved = fs::canonical(portName, error);
  return error ? portName : resolved.string();
}

std::string MachineDescriptionProblem() {
  const char* file = std::getenv("KAVOGPS_REGISTRY");
  if (!file || !*file) return {};
  const std::string name = std::string("KAVOGPS_REGISTRY names '") + file + "'";
  std::error_code error;
  if (!fs::exists(file, error)) return name + ", which does not exist";
  if (fs::is_directory(file, error)) return name + ", a folder, not a registry file";
  std::ifstream in(file, std::ios::binary);
  if (!in) return name + ", which cannot be read: " + std::strerror(errno);
  const std::string bytes(std::istreambuf_iterator<char>(in), {});
  // Read as the library reads it, which then leaves the registry empty.
  SyntaxOnly syntax;
  regfile::Error wrong;
  if (!regfile::Read(regfile::Decode(bytes), syntax, &wrong))
    return name + ", which is not a usable registry file: line " + std::to_string(wrong.line) + ": " +
           unicode::Utf16ToUtf8(wrong.reason);
  return {};
}

}  // namespace kavo::cli
