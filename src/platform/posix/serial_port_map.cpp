#include "platform/posix/serial_port_map.h"

#include <vector>

#include "platform/platform.h"
#include "platform/posix/registry/hive.h"
#include "platform/registry.h"

namespace kavo::platform::posix {
namespace {

std::u16string PortKey(std::u16string_view name) {
  while (!name.empty() && (name.back() == u':' || name.back() == 0)) name.remove_suffix(1);
  return FoldRegistryName(name);
}

// The string data of a value, or empty.
std::u16string StringValue(registry::Key key, const char16_t* name) {
  uint32_t type = 0;
  uint32_t size = 0;
  if (registry::QueryValue(key, name, &type, nullptr, &size) != kErrorSuccess) return {};
  if (type != registry::kTypeString || size < 2) return {};
  std::u16string text(size / 2, u'\0');
  if (registry::QueryValue(key, name, &type, text.data(), &size) != kErrorSuccess) return {};
  text.resize(size / 2);
  return text;
}

}  // namespace

std::u16string DeviceForPortName(std::u16string_view portName) {
  const std::u16string wanted = PortKey(portName);
  if (wanted.empty()) return {};
  registry::Key map = 0;
  if (registry::OpenKey(registry::kLocalMachine, u"Hardware\\DeviceMap\\SerialComm", registry::kKeyRead, &map) !=
      kErrorSuccess) {
    return {};
  }
  std::u16string device;
  std::vector<char16_t> name(1024);
  for (uint32_t index = 0; device.empty();) {
    auto length = static_cast<uint32_t>(name.size());
    const uint32_t result = registry::EnumValue(map, index, name.data(), &length);
    if (result == kErrorMoreData && name.size() < (1u << 20)) {
      name.resize(name.size() * 2);
      continue;
    }
    if (result != kErrorSuccess) break;
    if (PortKey(StringValue(map, name.data())) == wanted) device.assign(name.data(), length);
    ++index;
  }
  registry::CloseKey(map);
  return device;
}

}  // namespace kavo::platform::posix
