#include "session/command_line.h"

#include <iostream>

#include "session/console.h"

namespace kavo::cli {

const char kExitCodeHelp[] =
    "Exit status:\n"
    "  0  done (also when interrupted with Ctrl+C)\n"
    "  1  failed while working\n"
    "  2  bad command line\n"
    "  3  a file cannot be found, read or written, or holds no NMEA sentence\n"
    "  4  the port is busy or does not exist\n"
    "  5  no GPS receiver found\n";

bool OutputClosed(std::ostream& out) { return &out == &std::cout && StandardOutputClosed(); }

}  // namespace kavo::cli
