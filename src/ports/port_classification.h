// Which active serial ports go to the end of the port list: those whose
// driver calls itself Bluetooth, DGPS or TSIP. They rarely carry a plain
// NMEA receiver, so the GPS search tries them last.
#pragma once

#include "ports/registry_key.h"

namespace kavo {

// `entry` is the port's subkey of the active drivers key. Follows its "Key"
// value to the driver's own key (or that key's "Unimodem" subkey) and reads
// its "FriendlyName". Logged as the scope "Check if bluetooth port".
bool IsSpecialPort(RegistryKey& entry);

}  // namespace kavo
