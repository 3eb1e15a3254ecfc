// A registry for a Linux machine without a hive file: its serial devices,
// found in sysfs, laid out as the port discovery expects them.
#pragma once

#include <string>

#include "platform/posix/registry/hive.h"

namespace kavo::platform::posix {

// For each serial device under `sysfsRoot`/class/tty (USB ttyUSB*/ttyACM*,
// Bluetooth rfcomm*, on-board ttyS* with a real UART, any other tty with a
// device behind it), in natural order of their names, numbered COM1, COM2,
// ...:
//   HKLM\Drivers\Active\NN          "Name"="COMn:", "Key"="Drivers\Serial\<tty>"
//   HKLM\Drivers\Serial\<tty>       "FriendlyName" (the USB product name,
//                                   "Bluetooth ..." for rfcomm), "Device"
//   HKLM\Hardware\DeviceMap\SerialComm  "/dev/<tty>"="COMn"
// The active drivers key exists even when no device was found.
// `devRoot` is where the device files are (/dev on a real machine).
void AddSerialDevicesFromSysfs(const std::string& sysfsRoot, RegistryHive& hive, const std::string& devRoot = "/dev");

}  // namespace kavo::platform::posix
