// A simulated receiver behind a pseudo-terminal: the slave side is a serial
// port any program (or the library under test) can open. The receiver
// streams the simulation at its rate, and reads the speed the port is set to
// from the master side: while it differs from the receiver's own baud rate
// it sends garbage, as a receiver heard at the wrong speed would.
//
// Like a real port, it keeps nothing for readers to come: while nobody has
// the port open nothing is sent, and what one reader leaves unread is
// discarded when it closes, so the next never gets sentences sent at
// another speed. After an open the receiver gives the reader a moment to
// set the port up before the next epoch goes out. Watching opens and closes
// uses inotify and /proc, so this part is for Linux.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

#include "sim/prng.h"
#include "sim/simulator.h"

namespace kavo::sim {

struct PtyReceiverOptions {
  SimulatorOptions simulation;
  uint32_t baudRate = 4800;
  bool silent = false;  // a port with nothing sending on it
  // How long a wait of `ms` simulated milliseconds lasts in real time; tests
  // that run the library on a faster clock pass theirs. Empty: real time.
  std::function<uint32_t(uint32_t ms)> realWaitMs;
  // Called on the receiver's thread with each epoch just before it goes on
  // the line, so a reader never sees sentences the callback has not.
  std::function<void(const Epoch&)> onEpoch;
};

class PtyReceiver {
 public:
  struct Counters {
    uint64_t epochs = 0;          // epochs simulated, heard or not
    uint64_t nmeaBytes = 0;       // sentence bytes put on the line
    uint64_t garbageBytes = 0;    // bytes sent while the port was at another speed
    uint64_t droppedBytes = 0;    // bytes the line had no room for (a reader not reading)
    uint64_t discardedBytes = 0;  // bytes left unread when a reader came or went
    uint32_t lineBaud = 0;        // speed the port was last seen at
    int readers = 0;              // descriptors on the port other than the receiver's
  };

  // Throws std::invalid_argument for unusable simulation options or an
  // unsupported baud rate.
  explicit PtyReceiver(PtyReceiverOptions options);
  ~PtyReceiver();  // stops
  PtyReceiver(const PtyReceiver&) = delete;
  PtyReceiver& operator=(const PtyReceiver&) = delete;

  // Opens the pseudo-terminal and starts streaming; throws std::system_error
  // when the system refuses. Starting a running receiver does nothing.
  void Start();
  // Stops streaming and closes the pseudo-terminal; waits for the thread.
  void Stop();
  bool Running() const { return thread_.joinable(); }

  // The slave device, e.g. "/dev/pts/3"; empty before Start.
  std::string DevicePath() const;
  Counters Snapshot() const;
  void SetSilent(bool silent) { silent_ = silent; }
  // Takes effect at the next epoch; throws std::invalid_argument for an
  // unsupported rate.
  void SetBaudRate(uint32_t baud);

  // Whether `baud` is a speed a serial port can be set to here.
  static bool IsSupportedBaud(uint32_t baud);

 private:
  using Clock = std::chrono::steady_clock;
  void Run();
  bool WaitUntil(Clock::time_point due);  // false when stopping
  void HandlePortEvents();
  int CountReaders() const;
  void DiscardUnread();
  void SendEpoch(const std::string& text);
  uint64_t WriteToLine(const std::string& bytes);
  void CloseAll();

  PtyReceiverOptions options_;
  std::atomic<uint32_t> baud_;
  std::atomic<bool> silent_;
  int master_ = -1;
  int slave_ = -1;          // kept open so the line and its settings stay up
  int watch_ = -1;          // inotify on the slave device
  int wake_[2] = {-1, -1};  // a byte in the pipe stops the thread
  std::string devicePath_;
  std::thread thread_;
  Clock::time_point settleUntil_{};
  mutable std::mutex mutex_;  // guards counters_ and devicePath_
  Counters counters_;
  Prng garbage_;
};

}  // namespace kavo::sim
