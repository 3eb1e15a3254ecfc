// The device's serial ports, listed once from the registry: the active
// drivers whose name starts with "COM" (plain ports first, in reverse
// registry order; Bluetooth, DGPS and TSIP ports after them), then the
// Bluetooth virtual serial ports. The GPS search probes them in this order.
#pragma once

#include <cstdint>
#include <vector>

#include "sources/com_port_info.h"
#include "support/error.h"
#include "support/ref_counted.h"
#include "support/wide_string.h"

namespace kavo {

class RegistryKey;

class COMPortCollection : public virtual RefCounted {
 public:
  static constexpr const char16_t* kActiveDriversPath = u"HKEY_LOCAL_MACHINE\\Drivers\\Active";
  static constexpr const char16_t* kBluetoothPortsPath =
      u"HKEY_LOCAL_MACHINE\\Software\\Microsoft\\Bluetooth\\Serial\\Ports";

  // A filled collection. `reserved` is handed to the initialisation, which
  // ignores it. Raises internal code -5 when the active drivers cannot be
  // listed.
  static Ref<COMPortCollection> Create(int32_t reserved);

  uint32_t GetCount() const { return static_cast<uint32_t>(names_.size()); }
  // The name at `index` with the default parameters. Always 1.
  int GetPort(uint32_t index, COMPortInfo* port, CIMExceptionImpl* error) const;
  // The name at `index` with the settings the port reports; `busy` 1 when
  // the port could not be opened (the parameters are then the defaults).
  // Raises when the name cannot be a port or closing the port fails (-11).
  int ObtainPort(uint32_t index, COMPortInfo* port, uint8_t* busy, CIMExceptionImpl* error) const;

 private:
  COMPortCollection() = default;

  int Initialize(int32_t reserved, CIMExceptionImpl* error);
  bool FillList();
  bool AddCommonPorts();
  // Appends a normal port to `normal`, a special one to the list.
  void ProcessEntry(RegistryKey& active, const char16_t* subkey, std::vector<WideString>& normal);
  bool AddBluetoothPorts();
  void ProcessBluetoothEntry(RegistryKey& ports, const char16_t* subkey);
  const WideString& NameAt(uint32_t index) const;

  bool initialized_ = false;
  std::vector<WideString> names_;
};

}  // namespace kavo
