// The commands about serial ports: `kavogps ports` lists them,
// `kavogps find` searches them for a GPS receiver, `kavogps monitor` shows
// what a receiver on one of them sends.
#pragma once

#include <string>

#include "commands/commands.h"
#include "session/gps_library.h"

namespace kavo::cli {

int RunPorts(const Arguments& args, std::ostream& out, std::ostream& err);
int RunFind(const Arguments& args, std::ostream& out, std::ostream& err);
int RunMonitor(const Arguments& args, std::ostream& out, std::ostream& err);

// The speeds a port description accepts, as a message lists them.
extern const char kBaudRates[];

// Why the library could not open `portName` (busy, missing, no
// permission), as a message says it after "cannot open PORT: ".
std::string TroubleText(const std::string& portName);

// The name to hand the library for `portName`: the name itself, or, when
// that is too long for the library (a /dev/serial/by-id link), the device
// it names; empty when even that is too long.
std::string LibraryPortName(const std::string& portName);

// "none", "odd"... and "1", "1.5", "2" for the parameter codes.
const char* ParityName(int32_t parity);
const char* StopBitsName(int32_t stopBits);

}  // namespace kavo::cli
