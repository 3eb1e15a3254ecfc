// `kavogps monitor`: shows what a GPS receiver on a port sends.
#pragma once

#include <ostream>

#include "session/command_line.h"

namespace kavo::cli {

int RunMonitor(const Arguments& args, std::ostream& out, std::ostream& err);

}  // namespace kavo::cli
