#include "posix/tool_process.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <thread>

namespace kavo::test {

ToolProcess::ToolProcess(const std::vector<std::string>& args, const Environment& environment) {
  const std::string out = files_.File("out"), err = files_.File("err");
  pid_ = fork();
  if (pid_ != 0) return;
  dup2(open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), 1);
  dup2(open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), 2);
  for (const auto& [name, value] : environment) setenv(name.c_str(), value.c_str(), 1);
  std::vector<char*> argv{const_cast<char*>(KAVOGPS_TOOL)};
  for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
  argv.push_back(nullptr);
  execv(KAVOGPS_TOOL, argv.data());
  _exit(127);
}

ToolProcess::~ToolProcess() {
  if (pid_ > 0) kill(pid_, SIGKILL), waitpid(pid_, nullptr, 0);
}

bool ToolProcess::WaitFor(const std::function<bool()>& done, int ms) const {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
  while (!done()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return true;
}

void ToolProcess::Signal(int signal) const { kill(pid_, signal); }

int ToolProcess::Finish(int ms) {
  int status = 0;
  const bool ended = WaitFor([&] { return waitpid(pid_, &status, WNOHANG) == pid_; }, ms);
  if (!ended) kill(pid_, SIGKILL), waitpid(pid_, &status, 0);
  pid_ = -1;
  return ended && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

ToolRun RunToolProcess(const std::vector<std::string>& args, const ToolProcess::Environment& environment) {
  ToolProcess process(args, environment);
  const int code = process.Finish(60000);
  return {code, process.Out(), process.Err()};
}

}  // namespace kavo::test
