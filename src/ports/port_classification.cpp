#include "ports/port_classification.h"

#include "log/logger.h"
#include "support/wide_string.h"

namespace kavo {
namespace {

constexpr uint32_t kPathBuffer = 260;  // characters, terminator included
// A driver path leaves this much of the path buffer for the root prefix.
constexpr size_t kRootPrefixLength = 21;

}  // namespace

bool IsSpecialPort(RegistryKey& entry) {
  LogScope scope(u"Check if bluetooth port");
  char16_t driverPath[kPathBuffer];
  uint32_t length = kPathBuffer;
  if (!entry.QueryString(u"Key", driverPath, &length)) return false;
  if (WideLength(driverPath) + kRootPrefixLength >= kPathBuffer + 1) return false;
  const WideString fullPath = WideString(u"HKEY_LOCAL_MACHINE\\") + driverPath;

  Ref<RegistryKey> driver = RegistryKey::OpenPath(fullPath.c_str(), platform::registry::kKeyRead);
  if (!driver) return false;
  Ref<RegistryKey> unimodem;
  if (driver->OpenSubkey(u"Unimodem", &unimodem, platform::registry::kKeyRead)) driver = unimodem;

  char16_t friendlyName[kPathBuffer];
  length = kPathBuffer;
  if (!driver->QueryString(u"FriendlyName", friendlyName, &length)) return false;
  Logger::Instance().Format(u"Friendly name: %s\n", friendlyName);
  return Contains(friendlyName, u"Bluetooth") || Contains(friendlyName, u"DGPS") || Contains(friendlyName, u"TSIP");
}

}  // namespace kavo
