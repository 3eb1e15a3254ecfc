#include "common/process_runner.h"

#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>

namespace kavo::test {
namespace {

int MsUntil(std::chrono::steady_clock::time_point deadline) {
  const auto left = deadline - std::chrono::steady_clock::now();
  return static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(left).count());
}

}  // namespace

ProcessRunner::ProcessRunner(const std::string& program, const std::vector<std::string>& args,
                             const Environment& environment) {
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
    std::vector<char*> argv{const_cast<char*>(program.c_str())};
    for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    execv(program.c_str(), argv.data());
    _exit(127);
  }
  close(out[1]), close(err[1]);
  outFd_ = out[0];
  errFd_ = err[0];
}

ProcessRunner::~ProcessRunner() {
  if (pid_ > 0) {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  if (outFd_ >= 0) close(outFd_);
  if (errFd_ >= 0) close(errFd_);
}

bool ProcessRunner::ReadSome(int ms) {
  if (outFd_ < 0 && errFd_ < 0) return false;
  pollfd fds[2] = {{outFd_, POLLIN, 0}, {errFd_, POLLIN, 0}};
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

bool ProcessRunner::WaitForOutput(const std::function<bool(const std::string&)>& done, int ms) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
  while (!done(out_)) {
    const int left = MsUntil(deadline);
    if (left <= 0 || !ReadSome(left)) return done(out_);
  }
  return true;
}

void ProcessRunner::Signal(int signal) const {
  if (pid_ > 0) kill(pid_, signal);
}

int ProcessRunner::Finish(int ms) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
  while (MsUntil(deadline) > 0 && ReadSome(MsUntil(deadline))) {
  }
  int status = 0;
  pid_t ended = 0;
  while ((ended = waitpid(pid_, &status, WNOHANG)) == 0 && MsUntil(deadline) > 0) usleep(10000);
  const bool killed = ended != pid_;  // still running when the time ran out
  if (killed) {
    kill(pid_, SIGKILL);
    waitpid(pid_, &status, 0);
  }
  pid_ = -1;
  return killed || !WIFEXITED(status) ? -1 : WEXITSTATUS(status);
}

ProcessResult RunProcess(const std::string& program, const std::vector<std::string>& args,
                         const ProcessRunner::Environment& environment, int ms) {
  ProcessRunner process(program, args, environment);
  ProcessResult result;
  result.code = process.Finish(ms);
  result.out = process.Out();
  result.err = process.Err();
  return result;
}

}  // namespace kavo::test
