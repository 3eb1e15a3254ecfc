#include <signal.h>

#include <cerrno>
#include <chrono>
#include <ctime>
#include <exception>

#include "commands/live_receiver.h"
#include "commands/simulate_command.h"
#include "sim/posix/pty_receiver.h"

namespace kavo::cli {
namespace {

// SIGINT and SIGTERM are blocked while the receiver runs, so its thread
// never takes them, and collected with sigtimedwait on this one.
class BlockedStopSignals {
 public:
  BlockedStopSignals() {
    sigemptyset(&set_);
    sigaddset(&set_, SIGINT);
    sigaddset(&set_, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &set_, &previous_);
  }
  ~BlockedStopSignals() { pthread_sigmask(SIG_SETMASK, &previous_, nullptr); }

  // The signal that arrived, or 0 when `ms` passed first (negative: never).
  int Wait(long long ms) const {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
    for (;;) {
      if (ms < 0) {
        const int signal = sigwaitinfo(&set_, nullptr);
        if (signal > 0) return signal;
        continue;  // EINTR from another signal
      }
      const auto left =
          std::chrono::duration_cast<std::chrono::nanoseconds>(deadline - std::chrono::steady_clock::now());
      if (left.count() <= 0) return 0;
      timespec wait{static_cast<time_t>(left.count() / 1000000000), static_cast<long>(left.count() % 1000000000)};
      const int signal = sigtimedwait(&set_, nullptr, &wait);
      if (signal > 0) return signal;
    }
  }

 private:
  sigset_t set_{};
  sigset_t previous_{};
};

}  // namespace

bool LiveReceiverAvailable() { return true; }

void UseBinaryStandardOutput() {}

int RunLiveReceiver(const SimulateSettings& settings, std::ostream& out, std::ostream& err) {
  BlockedStopSignals signals;
  sim::PtyReceiverOptions options;
  options.simulation = settings.simulation;
  options.baudRate = settings.baud;
  options.silent = settings.silent;
  sim::PtyReceiver receiver(options);
  try {
    receiver.Start();
  } catch (const std::exception& e) {
    err << "kavogps simulate: cannot open a pseudo-terminal: " << e.what() << '\n';
    return kExitFailure;
  }
  out << receiver.DevicePath() << std::endl;
  err << "kavogps simulate: receiver at " << settings.baud << " baud on " << receiver.DevicePath()
      << (settings.silent ? " (silent)" : "") << "; Ctrl+C stops it\n";

  const long long ms = settings.duration ? static_cast<long long>(*settings.duration * 1000.0) : -1;
  const int signal = signals.Wait(ms);
  receiver.Stop();
  const sim::PtyReceiver::Counters c = receiver.Snapshot();
  err << "kavogps simulate: "
      << (signal == SIGINT    ? "interrupted"
          : signal == SIGTERM ? "terminated"
                              : "done")
      << " after " << c.epochs << (c.epochs == 1 ? " epoch; " : " epochs; ") << c.nmeaBytes << " NMEA bytes, "
      << c.garbageBytes << " garbage bytes at the wrong speed, " << c.discardedBytes << " bytes left unread\n";
  return kExitOk;
}

}  // namespace kavo::cli
