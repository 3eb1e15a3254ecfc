// What the operating system knows about a serial port beside the name the
// library gives it, and why a port cannot be opened; per-OS files
// implement it.
#pragma once

#include <string>

namespace kavo::cli {

// The device behind a port name ("COM3:", or a path on POSIX): its path and
// what the system says it is (maker, product, driver); empty when unknown.
struct PortDevice {
  std::string path;
  std::string description;
};
PortDevice DescribePort(const std::string& portName);

// Why a port the library could not open is unavailable.
enum class PortTrouble { kBusy, kMissing, kNoPermission };
struct PortDiagnosis {
  PortTrouble trouble = PortTrouble::kBusy;
  std::string group;  // with kNoPermission: the group that usually grants access
};
PortDiagnosis DiagnosePort(const std::string& portName);

// A long device path resolved to the node it names (POSIX: a link under
// /dev/serial/by-id or by-path); the name unchanged when it is not a path.
std::string ResolveDevicePath(const std::string& portName);

// Why the description of the machine the library reads ports from cannot
// be used (POSIX: the file KAVOGPS_REGISTRY names), or empty.
std::string MachineDescriptionProblem();

}  // namespace kavo::cli
