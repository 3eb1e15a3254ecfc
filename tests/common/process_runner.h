// A program run as a user runs it: arguments, environment, standard output
// and error (kept in files while it runs), signals, exit status. POSIX only.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "common/temp_dir.h"

namespace kavo::test {

class ProcessRunner {
 public:
  using Environment = std::vector<std::pair<std::string, std::string>>;
  // Starts `program` with `args`, its environment this one's plus `environment`.
  ProcessRunner(const std::string& program, const std::vector<std::string>& args, const Environment& environment = {});
  ~ProcessRunner();  // kills a program still running
  ProcessRunner(const ProcessRunner&) = delete;
  ProcessRunner& operator=(const ProcessRunner&) = delete;

  bool Started() const { return pid_ > 0; }
  // Until `done` holds for standard output or `ms` pass; whether it held.
  bool WaitForOutput(const std::function<bool(const std::string& out)>& done, int ms) const;
  void Signal(int signal) const;
  // Waits up to `ms` for the end; the exit code, or -1 when it had to be
  // killed or died of a signal.
  int Finish(int ms);
  std::string Out() const { return files_.Read("out"); }
  std::string Err() const { return files_.Read("err"); }

 private:
  TempDir files_;
  pid_t pid_ = -1;
};

struct ProcessResult {
  int code = -1;
  std::string out, err;
};

// Runs `program` to its end (killed after `ms`).
ProcessResult RunProcess(const std::string& program, const std::vector<std::string>& args,
                         const ProcessRunner::Environment& environment = {}, int ms = 60000);

}  // namespace kavo::test
