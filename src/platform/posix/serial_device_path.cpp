#include "platform/posix/serial_device_path.h"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <vector>

#include "platform/platform.h"
#include "platform/posix/serial_port_map.h"
#include "utf_conversion.h"

namespace kavo::platform::posix {
namespace {

char16_t Fold(char16_t c) {
  if (c >= u'A' && c <= u'Z') return static_cast<char16_t>(c + 0x20);
  if (c >= 0xC0 && c <= 0xDE && c != 0xD7) return static_cast<char16_t>(c + 0x20);
  return c;
}

bool SameIgnoringCase(const std::string& a, const std::string& b) {
  const std::u16string wa = unicode::Utf8ToUtf16(a), wb = unicode::Utf8ToUtf16(b);
  return wa.size() == wb.size() &&
         std::equal(wa.begin(), wa.end(), wb.begin(), [](char16_t x, char16_t y) { return Fold(x) == Fold(y); });
}

bool Exists(const std::string& path) {
  struct stat info {};
  return lstat(path.c_str(), &info) == 0;
}

// The entry of `dir` named like `component`; the first in sorted order when
// several differ only in case.
std::optional<std::string> FindEntry(const std::string& dir, const std::string& component) {
  DIR* handle = opendir(dir.empty() ? "/" : dir.c_str());
  if (!handle) return std::nullopt;
  std::vector<std::string> matches;
  while (const dirent* entry = readdir(handle)) {
    if (SameIgnoringCase(entry->d_name, component)) matches.emplace_back(entry->d_name);
  }
  closedir(handle);
  if (matches.empty()) return std::nullopt;
  return *std::min_element(matches.begin(), matches.end());
}

}  // namespace

std::optional<std::string> FindPathIgnoringCase(const std::string& path) {
  if (path.empty() || path[0] != '/') return std::nullopt;
  if (Exists(path)) return path;
  std::string resolved;
  size_t start = 1;
  while (start <= path.size()) {
    size_t end = path.find('/', start);
    if (end == std::string::npos) end = path.size();
    const std::string component = path.substr(start, end - start);
    start = end + 1;
    if (component.empty()) continue;
    const std::string exact = resolved + "/" + component;
    if (Exists(exact)) {
      resolved = exact;
      continue;
    }
    const std::optional<std::string> entry = FindEntry(resolved, component);
    if (!entry) return std::nullopt;
    resolved += "/" + *entry;
  }
  return resolved.empty() ? std::string("/") : resolved;
}

std::optional<std::string> ResolveSerialDevicePath(const std::u16string& correctedName) {
  std::u16string name = correctedName;
  if (!name.empty() && name.back() == u':') name.pop_back();
  if (!name.empty() && name[0] == u'/') {
    if (std::optional<std::string> path = FindPathIgnoringCase(unicode::Utf16ToUtf8(name))) return path;
  }
  // Names such as "com3:" are ports of the registry's port map.
  if (!name.empty() && name[0] != u'/') {
    const std::u16string device = DeviceForPortName(name);
    if (!device.empty()) {
      if (std::optional<std::string> path = FindPathIgnoringCase(unicode::Utf16ToUtf8(device))) return path;
    }
  }
  SetLastError(kErrorFileNotFound);
  return std::nullopt;
}

}  // namespace kavo::platform::posix
