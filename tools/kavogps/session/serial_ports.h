// What the commands say about serial ports: the names the library takes,
// why a port cannot be opened, its settings in words, and its device.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string>

namespace kavo::cli {

// The longest port name the library takes, without the colon it adds.
constexpr size_t kMaxPortName = 18;

// The name to hand the library for `portName`: the name itself, or, when
// that is too long for the library (a /dev/serial/by-id link), the device
// it names; empty when even that is too long.
std::string LibraryPortName(const std::string& portName);

// Why the library could not open `portName` (busy, missing, no
// permission), as a message says it after "cannot open PORT: ".
std::string TroubleText(const std::string& portName);

// The speeds a port description accepts, as a message lists them.
extern const char kBaudRates[];

// "none", "odd"... and "1", "1.5", "2" for the parameter codes.
const char* ParityName(int32_t parity);
const char* StopBitsName(int32_t stopBits);

// "/dev/ttyUSB0: u-blox AG u-blox 7 (cdc_acm)", or empty when unknown.
std::string DeviceText(const std::string& portName);

// A machine description that cannot be used is told ("kavogps COMMAND:
// why"), not taken for a machine without ports.
bool MachineUsable(const char* command, std::ostream& err);

}  // namespace kavo::cli
