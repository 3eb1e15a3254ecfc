#include "posix/tool_process.h"

#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>

namespace kavo::test {

ToolProcess::ToolProcess(const std::vector<std::string>& args, const Environment& environment) {
  int out[2], err[2];
  if (pipe(out) != 0) return;
  if (pipe(err) != 0) {
    close(out[0]), close(out[1]);
    return;
  }
  pid_ = fork();
  if (pid_ == 0) {
    dup2(out[1], 1);
    dup2(err[1], 2);
    close(out[0]), close(out[1]), close(err[0]), close(err[1]);
    for (const auto& [name, value] : environment) setenv(name.c_str(), value.c_str(), 1);
    std::vector<char*> argv{const_cast<char*>(KAVOGPS_TOOL)};
    for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    execv(KAVOGPS_TOOL, argv.data());
    _exit(127);
  }
  close(out[1]), close(err[1]);
  outFd_ = out[0];
  errFd_ = err[0];
}

ToolProcess::~ToolProcess() {
  if (pid_ > 0) {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  if (outFd_ >= 0) close(outFd_);
  if (errFd_ >= 0) close(errFd_);
}

bool ToolProcess::ReadSome(int ms) {
  pollfd fds[2] = {{outFd_, POLLIN, 0}, {errFd_, POLLIN, 0}};
  if (outFd_ < 0 && errFd_ < 0) return false;
  if (poll(fds, 2, ms) <= 0) return true;
  int* owners[2] = {&outFd_, &errFd_};
  std::string* texts[2] = {&out_, &err_};
  for (int i = 0; i < 2; ++i) {
    if (fds[i].fd < 0 || !(fds[i].revents & (POLLIN | POLLHUP | POLLERR))) continue;
    char buffer[4096];
    const ssize_t n = read(fds[i].fd, buffer, sizeof buffer);
    if (n > 0) {
      texts[i]->append(buffer, static_cast<size_t>(n));
    } else {
      close(fds[i].fd);
      *owners[i] = -1;
    }
  }
  return true;
}

bool ToolProcess::WaitForOutput(const std::function<bool(const std::string&)>& done, int ms) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
  while (!done(out_)) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0 || !ReadSome(static_cast<int>(left.count()))) return done(out_);
  }
  return true;
}

void ToolProcess::Signal(int signal) const {
  if (pid_ > 0) kill(pid_, signal);
}

int ToolProcess::Finish(int ms) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
  for (;;) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) break;
    if (!ReadSome(static_cast<int>(left.count()))) break;
  }
  int status = 0;
  pid_t ended = 0;
  while ((ended = waitpid(pid_, &status, WNOHANG)) == 0 && std::chrono::steady_clock::now() < deadline)
    usleep(10000);
  if (ended != pid_) {  // still running when the time ran out
    kill(pid_, SIGKILL);
    waitpid(pid_, &status, 0);
    pid_ = -1;
    return -1;
  }
  pid_ = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

ToolRun RunToolProcess(const std::vector<std::string>& args, const ToolProcess::Environment& environment, int ms) {
  ToolProcess process(args, environment);
  ToolRun run;
  run.code = process.Finish(ms);
  run.out = process.Out();
  run.err = process.Err();
  return run;
}

}  // namespace kavo::test
