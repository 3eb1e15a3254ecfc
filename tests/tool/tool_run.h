// Runs the tool's commands in-process, as main() does.
#pragma once

#include <sstream>
#include <string>

#include "cli/commands.h"

namespace kavo::test {

struct ToolResult {
  int code = -1;
  std::string out, err;
};

inline ToolResult RunInProcess(const cli::Arguments& args) {
  std::ostringstream out, err;
  ToolResult result;
  result.code = cli::RunTool(args, out, err);
  result.out = out.str();
  result.err = err.str();
  return result;
}

inline bool Contains(const std::string& text, const std::string& piece) {
  return text.find(piece) != std::string::npos;
}

}  // namespace kavo::test
