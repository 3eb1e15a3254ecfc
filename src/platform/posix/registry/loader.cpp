#include "platform/posix/registry/loader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <new>

#include "platform/platform.h"
#include "platform/posix/registry/reg_file_parser.h"
#include "platform/posix/registry/sysfs.h"
#include "utf_conversion.h"

namespace kavo::platform::posix {
namespace {

// Far more than any machine's ports need; a larger file is not a model of one.
constexpr off_t kMaxRegistryFileBytes = 16 << 20;

constexpr const char16_t* kTooLarge = u"is larger than 16 MB";

// Why a file cannot model a machine, or null when it can.
const char16_t* Unsuitable(const struct stat& info) {
  if (S_ISDIR(info.st_mode)) return u"is a directory";
  if (S_ISFIFO(info.st_mode)) return u"is a FIFO, not a regular file";
  if (!S_ISREG(info.st_mode)) return u"is a device or special file, not a regular file";
  if (info.st_size > kMaxRegistryFileBytes) return kTooLarge;
  return nullptr;
}

struct Descriptor {
  int fd;
  ~Descriptor() {
    if (fd >= 0) close(fd);
  }
};

// Reads a regular file of bounded size; returns null, or why it cannot.
// Opening without blocking keeps a FIFO from stalling the registry's first use.
const char16_t* ReadRegularFile(const std::string& path, std::string* bytes) {
  const Descriptor file{open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY)};
  if (file.fd < 0) return errno == ENOENT ? u"does not exist" : u"cannot be opened";
  struct stat info;
  if (fstat(file.fd, &info) != 0) return u"cannot be read";
  if (const char16_t* why = Unsuitable(info)) return why;
  char chunk[65536];
  for (ssize_t got; (got = read(file.fd, chunk, sizeof chunk)) != 0;) {
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return u"cannot be read";
    bytes->append(chunk, static_cast<size_t>(got));
    // A file that grows while it is read is held to the limit too.
    if (bytes->size() > static_cast<size_t>(kMaxRegistryFileBytes)) return kTooLarge;
  }
  return nullptr;
}

RegistryHive LoadFromFile(const std::string& path, std::u16string* report) {
  const std::u16string widePath = unicode::Utf8ToUtf16(path);
  std::string bytes;
  if (const char16_t* why = ReadRegularFile(path, &bytes)) {
    *report += u"Registry file " + widePath + u" " + why + u"; the registry is empty\n";
    return RegistryHive();
  }
  RegistryHive hive;
  RegFileError error;
  if (ParseRegText(DecodeRegFileBytes(bytes), hive, &error)) return hive;
  *report += u"Registry file " + widePath + u", line " + unicode::Utf8ToUtf16(std::to_string(error.line)) + u": " +
             error.reason + u"; the registry is empty\n";
  return RegistryHive();
}

}  // namespace

RegistryHive LoadRegistryHive(std::u16string* report) {
  const char* file = std::getenv("KAVOGPS_REGISTRY");
  if (file && *file) {
    try {
      return LoadFromFile(file, report);
    } catch (const std::bad_alloc&) {
      *report += u"Registry file " + unicode::Utf8ToUtf16(file) + u" does not fit in memory; the registry is empty\n";
      return RegistryHive();
    }
  }
  const char* sysfs = std::getenv("KAVOGPS_SYSFS_ROOT");
  const char* dev = std::getenv("KAVOGPS_DEV_ROOT");
  RegistryHive hive;
  AddSerialDevicesFromSysfs(sysfs && *sysfs ? sysfs : "/sys", hive, dev && *dev ? dev : "/dev");
  return hive;
}

}  // namespace kavo::platform::posix
