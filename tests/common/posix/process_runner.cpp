#include "common/process_runner.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <thread>

namespace kavo::test {
namespace {

using Clock = std::chrono::steady_clock;
void Pause() { std::this_thread::sleep_for(std::chrono::milliseconds(5)); }

}  // namespace

ProcessRunner::ProcessRunner(const std::string& program, const std::vector<std::string>& args,
                             const Environment& environment) {
  const std::string out = files_.File("out"), err = files_.File("err");
  pid_ = fork();
  if (pid_ != 0) return;
  dup2(open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), 1);
  dup2(open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), 2);
  for (const auto& [name, value] : environment) setenv(name.c_str(), value.c_str(), 1);
  std::vector<char*> argv{const_cast<char*>(program.c_str())};
  for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
  argv.push_back(nullptr);
  execv(program.c_str(), argv.data());
  _exit(127);
}

ProcessRunner::~ProcessRunner() {
  if (pid_ <= 0) return;
  kill(pid_, SIGKILL);
  waitpid(pid_, nullptr, 0);
}

bool ProcessRunner::WaitForOutput(const std::function<bool(const std::string&)>& done, int ms) const {
  const auto deadline = Clock::now() + std::chrono::milliseconds(ms);
  while (!done(Out())) {
    if (Clock::now() > deadline) return false;
    Pause();
  }
  return true;
}

void ProcessRunner::Signal(int signal) const {
  if (pid_ > 0) kill(pid_, signal);
}

int ProcessRunner::Finish(int ms) {
  const auto deadline = Clock::now() + std::chrono::milliseconds(ms);
  int status = 0;
  pid_t ended = 0;
  while (pid_ > 0 && (ended = waitpid(pid_, &status, WNOHANG)) == 0 && Clock::now() < deadline) Pause();
  const bool killed = ended != pid_;  // still running when the time ran out
  if (killed && pid_ > 0) {
    kill(pid_, SIGKILL);
    waitpid(pid_, &status, 0);
  }
  pid_ = -1;
  return killed || !WIFEXITED(status) ? -1 : WEXITSTATUS(status);
}

ProcessResult RunProcess(const std::string& program, const std::vector<std::string>& args,
                         const ProcessRunner::Environment& environment, int ms) {
  ProcessRunner process(program, args, environment);
  const int code = process.Finish(ms);
  return {code, process.Out(), process.Err()};
}

}  // namespace kavo::test
