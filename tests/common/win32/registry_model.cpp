#include "common/registry_model.h"

#include <cstdlib>

#include "ports/registry_key.h"

namespace kavo::test {
namespace {

// The keys the port discovery reads, cleared before and after each model.
void ClearModelledKeys() {
  RegistryKey machine;
  if (!machine.Open(u"HKEY_LOCAL_MACHINE\\", platform::registry::kKeyReadWrite)) return;
  machine.DeleteSubkeyTree(u"Drivers");
  machine.DeleteSubkeyTree(u"Software\\Microsoft\\Bluetooth");
  machine.DeleteSubkeyTree(u"Software\\KavoMobileGPS Tests");
}

}  // namespace

RegistryModel::RegistryModel(const std::string& keys) {
  ClearModelledKeys();
  dir_.Write("machine.reg", "Windows Registry Editor Version 5.00\r\n\r\n" + keys);
  const std::string command = "reg import \"" + dir_.File("machine.reg") + "\" >NUL 2>&1";
  ok_ = std::system(command.c_str()) == 0;
}

RegistryModel::~RegistryModel() { ClearModelledKeys(); }

}  // namespace kavo::test
