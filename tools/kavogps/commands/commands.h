// The commands of the kavogps tool and the conventions they share.
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
using CommandProc = int (*)(const Arguments& args, std::ostream& out, std::ostream& err);

struct Command {
  const char* name;
  const char* summary;
  CommandProc run;
};

const std::vector<Command>& Commands();

// Whether `out` is the program's standard output and its reader has gone:
// then a command stops quietly, with status 0.
bool OutputClosed(std::ostream& out);

// The whole tool: `args` without the program name. Output goes to `out`,
// messages to `err`; returns the exit code.
int RunTool(const Arguments& args, std::ostream& out, std::ostream& err);

}  // namespace kavo::cli
