// The kavogps program run as a user runs it: arguments, environment, its
// output and messages (in files, read as they grow), signals, exit status.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "common/temp_dir.h"
#include "tool_run.h"

namespace kavo::test {

class ToolProcess {
 public:
  using Environment = std::vector<std::pair<std::string, std::string>>;
  explicit ToolProcess(const std::vector<std::string>& args, const Environment& environment = {});
  ~ToolProcess();  // kills a program still running

  // Waits up to `ms` for `done` to hold; whether it did.
  bool WaitFor(const std::function<bool()>& done, int ms = 20000) const;
  void Signal(int signal) const;
  // Waits up to `ms` for the end: the exit code, or -1 (killed, or a signal).
  int Finish(int ms = 20000);

  std::string Out() const { return files_.Read("out"); }
  std::string Err() const { return files_.Read("err"); }

 private:
  TempDir files_;
  pid_t pid_ = -1;
};

ToolRun RunToolProcess(const std::vector<std::string>& args, const ToolProcess::Environment& environment = {});

}  // namespace kavo::test
