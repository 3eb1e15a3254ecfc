// The kavogps program run as a user runs it: arguments, environment,
// standard output and error read as they come, signals, exit status.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace kavo::test {

class ToolProcess {
 public:
  using Environment = std::vector<std::pair<std::string, std::string>>;
  ToolProcess(const std::vector<std::string>& args, const Environment& environment = {});
  ~ToolProcess();  // kills a program still running
  ToolProcess(const ToolProcess&) = delete;
  ToolProcess& operator=(const ToolProcess&) = delete;

  bool Started() const { return pid_ > 0; }
  // Reads until `done` holds for standard output or `ms` pass; whether it held.
  bool WaitForOutput(const std::function<bool(const std::string& out)>& done, int ms);
  void Signal(int signal) const;
  // Waits up to `ms` for the end, reading both streams; the exit code, or
  // -1 when it had to be killed or died of a signal.
  int Finish(int ms);

  const std::string& Out() const { return out_; }
  const std::string& Err() const { return err_; }

 private:
  bool ReadSome(int ms);  // false once both streams are closed
  pid_t pid_ = -1;
  int outFd_ = -1, errFd_ = -1;
  std::string out_, err_;
};

struct ToolRun {
  int code = -1;
  std::string out, err;
};

ToolRun RunToolProcess(const std::vector<std::string>& args, const ToolProcess::Environment& environment = {},
                       int ms = 60000);

}  // namespace kavo::test
