// Runs the tool's commands in-process, as main() does.
#pragma once

#include <sstream>
#include <string>

#include "commands/commands.h"

namespace kavo::test {

struct ToolRun {
  int code = -1;
  std::string out, err;
};

inline ToolRun RunInProcess(const cli::Arguments& args) {
  std::ostringstream out, err;
  const int code = cli::RunTool(args, out, err);
  return {code, out.str(), err.str()};
}

inline bool Contains(const std::string& text, const std::string& piece) {
  return text.find(piece) != std::string::npos;
}

}  // namespace kavo::test
