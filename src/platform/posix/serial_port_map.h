// Port names such as "com3:" resolved to devices through the registry's port
// map, HKEY_LOCAL_MACHINE\Hardware\DeviceMap\SerialComm, laid out as on
// desktop Windows: value name the device ("/dev/ttyUSB0"), data the port
// ("COM3").
#pragma once

#include <string>
#include <string_view>

namespace kavo::platform::posix {

// The device the port map gives `portName`, compared ignoring case and a
// trailing colon; empty when the map has no such port.
std::u16string DeviceForPortName(std::u16string_view portName);

}  // namespace kavo::platform::posix
