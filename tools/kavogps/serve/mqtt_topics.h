// The topics a receiver's reports go to: PREFIX/DEVICE/tpv, .../sky and
// .../status, where DEVICE is the receiver's name made into one topic level.
#pragma once

#include <string>

namespace kavo::serve {

// The last part of the receiver's path ("/dev/ttyUSB0" gives "ttyUSB0",
// "COM4:" gives "COM4", "data/walk.nmea" gives "walk.nmea"), with every
// character but letters, digits, '-', '_' and '.' made '_': a topic level
// may not hold '/', '+' or '#', and subscribers' shells and dashboards
// cope best with plain names.
std::string DeviceTopicLevel(const std::string& devicePath);

// PREFIX/DEVICE/leaf.
std::string DeviceTopic(const std::string& prefix, const std::string& devicePath, const std::string& leaf);

}  // namespace kavo::serve
