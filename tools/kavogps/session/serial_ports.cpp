#include "session/serial_ports.h"

#include "session/gps_library.h"
#include "session/port_device.h"

namespace kavo::cli {
namespace {

size_t PortNameLength(const std::string& name) {
  const size_t length = ToLibraryText(name).size();
  return !name.empty() && name.back() == ':' ? length - 1 : length;
}

}  // namespace

std::string LibraryPortName(const std::string& portName) {
  if (PortNameLength(portName) <= kMaxPortName) return portName;
  const std::string device = ResolveDevicePath(portName);
  return PortNameLength(device) <= kMaxPortName ? device : std::string();
}

std::string TroubleText(const std::string& portName) {
  const PortDiagnosis diagnosis = DiagnosePort(portName);
  switch (diagnosis.trouble) {
    case PortTrouble::kMissing:
      return "there is no such device";
    case PortTrouble::kNoPermission:
      return "permission denied" + (diagnosis.group.empty() ? std::string()
                                                            : "; members of the group '" + diagnosis.group +
                                                                  "' may use it (sudo usermod -aG " + diagnosis.group +
                                                                  " $USER, then log in again)");
    case PortTrouble::kBusy:
      break;
  }
  return "it is busy: another program is using it";
}

const char kBaudRates[] = "110, 1200, 2400, 4800, 9600, 14400, 19200, 38400, 56000, 57600, 115200, 128000 or 256000";

const char* ParityName(int32_t parity) {
  static const char* const names[] = {"none", "odd", "even", "mark", "space"};
  return parity >= 0 && parity <= 4 ? names[parity] : "?";
}

const char* StopBitsName(int32_t stopBits) {
  static const char* const names[] = {"1", "1.5", "2"};
  return stopBits >= 0 && stopBits <= 2 ? names[stopBits] : "?";
}

// "/dev/ttyUSB0: u-blox AG u-blox 7 (cdc_acm)", or empty when unknown.
std::string DeviceText(const std::string& portName) {
  const PortDevice device = DescribePort(portName);
  if (device.path.empty()) return device.description;
  return device.description.empty() ? device.path : device.path + ": " + device.description;
}

// A machine description that cannot be used is told, not taken for a
// machine without ports.
bool MachineUsable(const char* command, std::ostream& err) {
  const std::string problem = MachineDescriptionProblem();
  if (problem.empty()) return true;
  err << "kavogps " << command << ": " << problem << '\n';
  return false;
}

}  // namespace kavo::cli
