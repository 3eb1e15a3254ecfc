// Where the POSIX registry comes from: the .reg file named by the
// environment variable KAVOGPS_REGISTRY when it is set, else the machine's
// serial devices as sysfs shows them under KAVOGPS_SYSFS_ROOT (default
// /sys), with their device files under KAVOGPS_DEV_ROOT (default /dev).
#pragma once

#include <string>

#include "platform/posix/registry/hive.h"

namespace kavo::platform::posix {

// Builds the hive. A file that cannot be read or parsed gives an empty hive
// and a line in `report` naming the file and the line at fault.
RegistryHive LoadRegistryHive(std::u16string* report);

// Forgets the loaded hive and every open key, so that the next registry call
// loads it again from the environment. Tests use it to model one machine
// per case.
void ReloadRegistry();

}  // namespace kavo::platform::posix
