// The commands of the kavogps tool, by name.
#pragma once

#include <ostream>
#include <vector>

#include "session/command_line.h"

namespace kavo::cli {

using CommandProc = int (*)(const Arguments& args, std::ostream& out, std::ostream& err);

struct Command {
  const char* name;
  const char* summary;
  CommandProc run;
};

const std::vector<Command>& Commands();

// The whole tool: `args` without the program name. Output goes to `out`,
// messages to `err`; returns the exit code.
int RunTool(const Arguments& args, std::ostream& out, std::ostream& err);

}  // namespace kavo::cli
