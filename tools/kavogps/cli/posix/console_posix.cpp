#include <poll.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <ctime>

#include "cli/console.h"

namespace kavo::cli {

bool StandardOutputIsAnsiTerminal() {
  const char* term = std::getenv("TERM");
  return isatty(STDOUT_FILENO) == 1 && !(term && std::strcmp(term, "dumb") == 0);
}

int StandardOutputRows() {
  winsize size{};
  return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 ? size.ws_row : 0;
}

bool StandardErrorIsTerminal() { return isatty(STDERR_FILENO) == 1; }

bool SetEnvironment(const char* name, const std::string& value) { return setenv(name, value.c_str(), 1) == 0; }

void SurviveClosedOutput() { signal(SIGPIPE, SIG_IGN); }

bool StandardOutputClosed() {
  pollfd out{STDOUT_FILENO, POLLOUT, 0};
  return poll(&out, 1, 0) == 1 && (out.revents & (POLLERR | POLLHUP)) != 0;
}

std::filesystem::path ExecutablePath() {
  std::error_code error;
  return std::filesystem::read_symlink("/proc/self/exe", error);
}

// SIGINT and SIGTERM are blocked and collected with sigtimedwait; threads
// started meanwhile inherit the mask. A closed output pipe shows as a
// failed write instead of ending the program before it cleans up.
struct InterruptWatch::State {
  sigset_t set{};
  sigset_t previousMask{};
  struct sigaction previousPipe {};
  bool interrupted = false;
};

InterruptWatch::InterruptWatch() : state_(new State) {
  sigemptyset(&state_->set);
  sigaddset(&state_->set, SIGINT);
  sigaddset(&state_->set, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &state_->set, &state_->previousMask);
  struct sigaction ignore {};
  ignore.sa_handler = SIG_IGN;
  sigemptyset(&ignore.sa_mask);
  sigaction(SIGPIPE, &ignore, &state_->previousPipe);
}

InterruptWatch::~InterruptWatch() {
  // A second Ctrl+C still pending would end the program as the mask goes.
  timespec none{0, 0};
  while (sigtimedwait(&state_->set, nullptr, &none) > 0) {
  }
  sigaction(SIGPIPE, &state_->previousPipe, nullptr);
  pthread_sigmask(SIG_SETMASK, &state_->previousMask, nullptr);
  delete state_;
}

bool InterruptWatch::Wait(uint32_t ms) {
  if (state_->interrupted) return true;
  timespec wait{static_cast<time_t>(ms / 1000), static_cast<long>(ms % 1000) * 1000000L};
  if (sigtimedwait(&state_->set, nullptr, &wait) > 0) state_->interrupted = true;
  return state_->interrupted;
}

}  // namespace kavo::cli
