#include "common/registry_model.h"

#include <cstdlib>

#include "platform/posix/registry/loader.h"

namespace kavo::test {

RegistryModel::RegistryModel(const std::string& keys) {
  dir_.Write("machine.reg", "Windows Registry Editor Version 5.00\r\n\r\n" + keys);
  setenv("KAVOGPS_REGISTRY", dir_.File("machine.reg").c_str(), 1);
  platform::posix::ReloadRegistry();
  ok_ = true;
}

RegistryModel::~RegistryModel() {
  unsetenv("KAVOGPS_REGISTRY");
  platform::posix::ReloadRegistry();
}

}  // namespace kavo::test
