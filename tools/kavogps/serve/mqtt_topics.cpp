#include "serve/mqtt_topics.h"

namespace kavo::serve {

std::string DeviceTopicLevel(const std::string& devicePath) {
  std::string name = devicePath;
  while (!name.empty() && (name.back() == ':' || name.back() == '/' || name.back() == '\\')) name.pop_back();
  name.erase(0, name.find_last_of("/\\") + 1);  // npos + 1 erases nothing
  for (char& c : name) {
    const bool plain =
        (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '_' || c == '.';
    if (!plain) c = '_';
  }
  return name.empty() ? "receiver" : name;
}

std::string DeviceTopic(const std::string& prefix, const std::string& devicePath, const std::string& leaf) {
  return prefix + "/" + DeviceTopicLevel(devicePath) + "/" + leaf;
}

}  // namespace kavo::serve
