// The conventions every command of the tool shares: its arguments, its exit
// codes, and what it does when its reader has gone.
#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace kavo::cli {

// Exit codes: success, a failure while working, a command line that makes
// no sense (nothing was done), a file that cannot be found, read or written,
// a port that is busy or missing, no GPS receiver on any port.
constexpr int kExitOk = 0;
constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;
constexpr int kExitFile = 3;
constexpr int kExitPortUnavailable = 4;
constexpr int kExitNoReceiver = 5;

// The table above as --help prints it.
extern const char kExitCodeHelp[];

using Arguments = std::vector<std::string>;

// Whether `out` is the program's standard output and its reader has gone:
// then a command stops quietly, with status 0.
bool OutputClosed(std::ostream& out);

}  // namespace kavo::cli
