#include "platform/posix/registry_loader.h"

#include <cstdlib>
#include <fstream>
#include <sstream>

#include "platform/platform.h"
#include "platform/posix/reg_file_parser.h"
#include "platform/posix/registry_sysfs.h"

namespace kavo::platform::posix {
namespace {

bool ReadWholeFile(const std::string& path, std::string* bytes) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return false;
  std::ostringstream content;
  content << in.rdbuf();
  *bytes = content.str();
  return !in.bad();
}

RegistryHive LoadFromFile(const std::string& path, std::u16string* report) {
  const std::u16string widePath = Utf8ToUtf16(path);
  std::string bytes;
  if (!ReadWholeFile(path, &bytes)) {
    *report += u"Registry file " + widePath + u" cannot be read; the registry is empty\n";
    return RegistryHive();
  }
  RegistryHive hive;
  RegFileError error;
  if (ParseRegText(DecodeRegFileBytes(bytes), hive, &error)) return hive;
  *report += u"Registry file " + widePath + u", line " + Utf8ToUtf16(std::to_string(error.line)) +
             u": " + error.reason + u"; the registry is empty\n";
  return RegistryHive();
}

}  // namespace

RegistryHive LoadRegistryHive(std::u16string* report) {
  const char* file = std::getenv("KAVOGPS_REGISTRY");
  if (file && *file) return LoadFromFile(file, report);
  const char* sysfs = std::getenv("KAVOGPS_SYSFS_ROOT");
  const char* dev = std::getenv("KAVOGPS_DEV_ROOT");
  RegistryHive hive;
  AddSerialDevicesFromSysfs(sysfs && *sysfs ? sysfs : "/sys", hive, dev && *dev ? dev : "/dev");
  return hive;
}

}  // namespace kavo::platform::posix
