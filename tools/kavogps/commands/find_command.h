// `kavogps find`: searches the serial ports for a GPS receiver.
#pragma once

#include <ostream>

#include "session/command_line.h"

namespace kavo::cli {

int RunFind(const Arguments& args, std::ostream& out, std::ostream& err);

}  // namespace kavo::cli
