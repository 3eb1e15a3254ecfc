#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "session/console.h"

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

// SIGINT and SIGTERM are blocked, so threads started meanwhile inherit
// the mask and never take them; a Wait lets them in for its ppoll alone,
// where a handler notes them. Wake writes to a pipe that ppoll watches. A
// closed output pipe shows as a failed write instead of ending the program
// before it cleans up.
namespace {
volatile sig_atomic_t interruptArrived = 0;
void NoteInterrupt(int) { interruptArrived = 1; }
}  // namespace

struct InterruptWatch::State {
  sigset_t set{};
  sigset_t previousMask{};
  struct sigaction previousPipe {
  }, previousInt{}, previousTerm{};
  int wake[2] = {-1, -1};
  std::atomic<bool> wakePending{false};
  bool interrupted = false;
};

InterruptWatch::InterruptWatch() : state_(new State) {
  sigemptyset(&state_->set);
  sigaddset(&state_->set, SIGINT);
  sigaddset(&state_->set, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &state_->set, &state_->previousMask);
  interruptArrived = 0;
  struct sigaction note {};
  note.sa_handler = NoteInterrupt;
  sigemptyset(&note.sa_mask);
  sigaction(SIGINT, &note, &state_->previousInt);
  sigaction(SIGTERM, &note, &state_->previousTerm);
  struct sigaction ignore {};
  ignore.sa_handler = SIG_IGN;
  sigemptyset(&ignore.sa_mask);
  sigaction(SIGPIPE, &ignore, &state_->previousPipe);
  if (pipe2(state_->wake, O_NONBLOCK | O_CLOEXEC) != 0) state_->wake[0] = state_->wake[1] = -1;
}

InterruptWatch::~InterruptWatch() {
  // A second Ctrl+C still pending would end the program as the mask goes.
  timespec none{0, 0};
  while (sigtimedwait(&state_->set, nullptr, &none) > 0) {}
  sigaction(SIGINT, &state_->previousInt, nullptr);
  sigaction(SIGTERM, &state_->previousTerm, nullptr);
  sigaction(SIGPIPE, &state_->previousPipe, nullptr);
  pthread_sigmask(SIG_SETMASK, &state_->previousMask, nullptr);
  for (int fd : state_->wake)
    if (fd >= 0) close(fd);
  delete state_;
}

bool InterruptWatch::Wait(uint32_t ms) {
  if (state_->interrupted) return true;
  sigset_t during = state_->previousMask;
  sigdelset(&during, SIGINT);
  sigdelset(&during, SIGTERM);
  pollfd wake{state_->wake[0], POLLIN, 0};
  const timespec wait{static_cast<time_t>(ms / 1000), static_cast<long>(ms % 1000) * 1000000L};
  if (ppoll(&wake, 1, &wait, &during) > 0 && (wake.revents & POLLIN)) {
    char drained[64];
    while (read(state_->wake[0], drained, sizeof drained) > 0) {}
    // Only now: a Wake between the read and this is seen by the caller,
    // who is awake anyway.
    state_->wakePending.store(false);
  }
  if (interruptArrived) state_->interrupted = true;
  return state_->interrupted;
}

void InterruptWatch::Wake() {
  if (state_->wakePending.exchange(true)) return;
  const char byte = 0;
  if (write(state_->wake[1], &byte, 1) < 0) {
    // Full, so a wake is already there; or no pipe, and Wait times out.
  }
}

}  // namespace kavo::cli
