// `kavogps ports`: lists the serial ports with their settings.
#pragma once

#include <ostream>

#include "session/command_line.h"

namespace kavo::cli {

int RunPorts(const Arguments& args, std::ostream& out, std::ostream& err);

}  // namespace kavo::cli
