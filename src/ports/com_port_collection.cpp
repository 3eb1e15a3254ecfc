#include "ports/com_port_collection.h"

#include <iterator>

#include "log/logger.h"
#include "platform/registry.h"
#include "platform/serial_port.h"
#include "ports/port_classification.h"
#include "ports/registry_key.h"
#include "sources/port_name.h"

namespace kavo {
namespace {

constexpr uint32_t kNameBuffer = 20;  // characters, terminator included
constexpr uint32_t kInvalidHandleValue = 0xFFFFFFFFu;

// Reads a port name of at most 19 characters; false when it is missing, is
// not text or does not fit.
bool QueryPortName(RegistryKey& key, const char16_t* value, char16_t (&name)[kNameBuffer]) {
  uint32_t length = kNameBuffer;
  return key.QueryString(value, name, &length) != 0;
}

}  // namespace

Ref<COMPortCollection> COMPortCollection::Create(int32_t reserved) {
  Ref<COMPortCollection> collection(new COMPortCollection);
  CIMExceptionImpl record;
  CheckOrRaise(collection->Initialize(reserved, &record), &record);
  return collection;
}

int COMPortCollection::Initialize(int32_t /*reserved*/, CIMExceptionImpl* error) {
  LogScope scope(u"Initializing COM ports collection");
  if (FillList()) {
    initialized_ = true;
    return 1;
  }
  Logger::Instance().Write(u"COM ports collection failed to initialize\n");
  SetError(error, kErrPortCollection);
  return 0;
}

bool COMPortCollection::FillList() {
  LogScope scope(u"Filling ports list");
  names_.clear();
  names_.shrink_to_fit();
  if (!AddCommonPorts()) return false;
  AddBluetoothPorts();  // a device without Bluetooth still has its ports
  return true;
}

bool COMPortCollection::AddCommonPorts() {
  LogScope scope(u"Adding common com ports");
  RegistryKey active;
  if (!active.Open(kActiveDriversPath, platform::registry::kKeyRead)) return false;
  std::vector<WideString> normal;
  const int enumerated = active.EnumerateSubkeys([&](const char16_t* subkey) { ProcessEntry(active, subkey, normal); });
  // Each normal port goes in front of those before it: all of them, last
  // found first, ahead of the special ports.
  names_.insert(names_.begin(), std::make_move_iterator(normal.rbegin()), std::make_move_iterator(normal.rend()));
  return enumerated != 0;
}

void COMPortCollection::ProcessEntry(RegistryKey& active, const char16_t* subkey, std::vector<WideString>& normal) {
  LogScope scope(u"Processing registry entry");
  Ref<RegistryKey> entry;
  if (!active.OpenSubkey(subkey, &entry, platform::registry::kKeyRead)) return;
  char16_t name[kNameBuffer];
  if (!QueryPortName(*entry, u"Name", name)) return;
  Logger::Instance().Format(u"Device name: %s\n", name);
  // Disks, audio and the GPS intermediate driver's ports are not "COM".
  if (WideView(name).substr(0, 3) != u"COM") return;
  if (IsSpecialPort(*entry)) {
    names_.emplace_back(name);
    Logger::Instance().Format(u"Device %s added to the end of list\n", name);
  } else {
    normal.emplace_back(name);
    Logger::Instance().Format(u"Device %s added as normal port\n", name);
  }
}

bool COMPortCollection::AddBluetoothPorts() {
  LogScope scope(u"Adding bluetooth com ports");
  RegistryKey ports;
  if (!ports.Open(kBluetoothPortsPath, platform::registry::kKeyRead)) return false;
  return ports.EnumerateSubkeys([&](const char16_t* subkey) { ProcessBluetoothEntry(ports, subkey); }) != 0;
}

void COMPortCollection::ProcessBluetoothEntry(RegistryKey& ports, const char16_t* subkey) {
  LogScope scope(u"Processing bluetooth registry entry");
  Ref<RegistryKey> entry;
  if (!ports.OpenSubkey(subkey, &entry, platform::registry::kKeyRead)) return;
  char16_t name[kNameBuffer];
  if (!QueryPortName(*entry, u"Port", name) || name[0] == 0) return;
  names_.emplace_back(name);
  Logger::Instance().Format(u"Device %s added as bluetooth port\n", name);
}

const WideString& COMPortCollection::NameAt(uint32_t index) const {
  if (index >= names_.size()) Raise(kErrInvalidParameter, u"Port index out of range");
  return names_[index];
}

int COMPortCollection::GetPort(uint32_t index, COMPortInfo* port, CIMExceptionImpl* /*error*/) const {
  port->Reset();
  port->SetName(NameAt(index).c_str());
  return 1;
}

int COMPortCollection::ObtainPort(uint32_t index, COMPortInfo* port, uint8_t* busy, CIMExceptionImpl* /*error*/) const {
  LogScope scope(u"Obtaining port");
  const WideString& name = NameAt(index);
  WideString corrected;
  if (!CorrectPortName(name, &corrected)) Raise(kErrGeneralFailure, u"Not a port name", name.c_str());

  std::unique_ptr<platform::SerialPort> opened = platform::SerialPort::Open(corrected, platform::SerialAccess::kQuery);
  Logger::Instance().Format(u"Create file returned: %X\n",
                            opened ? opened->HandleValue() : uintptr_t{kInvalidHandleValue});
  platform::SerialState state;
  bool haveState = false;
  if (opened) {
    haveState = opened->GetState(&state);
    if (!opened->Close()) Raise(kErrOperationFailed, name.c_str());
  }

  if (name.size() > COMPortInfo::kMaxName) Raise(kErrGeneralFailure, u"Port name too long", name.c_str());
  port->Reset();
  port->SetName(name.c_str());
  if (opened && haveState && state.length != 0) {
    port->BaudRate = state.baudRate;
    port->ByteSize = state.byteSize;
    port->StopBits = state.stopBits;
    // The parity-checking switch, not the parity mode, as the port's
    // description has always reported it.
    port->Parity = (state.flags & platform::kDcbParityCheck) ? 1 : 0;
  }
  *busy = opened ? 0 : 1;
  return 1;
}

}  // namespace kavo
