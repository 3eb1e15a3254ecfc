#include "simulator/posix/pty_receiver.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <stdexcept>
#include <system_error>

namespace kavo::sim {
namespace {

struct Speed {
  uint32_t baud;
  speed_t code;
};

constexpr Speed kSpeeds[] = {
    {0, B0},         {300, B300},       {600, B600},       {1200, B1200},     {2400, B2400},
    {4800, B4800},   {9600, B9600},     {19200, B19200},   {38400, B38400},   {57600, B57600},
    {115200, B115200}, {230400, B230400},
};

// The baud rate of a speed code; UINT32_MAX for one outside the table.
uint32_t BaudOf(speed_t code) {
  for (const Speed& s : kSpeeds)
    if (s.code == code) return s.baud;
  return UINT32_MAX;
}

speed_t CodeOf(uint32_t baud) {
  for (const Speed& s : kSpeeds)
    if (s.baud == baud) return s.code;
  return B0;
}

[[noreturn]] void ThrowSystem(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

}  // namespace

bool PtyReceiver::IsSupportedBaud(uint32_t baud) { return baud != 0 && CodeOf(baud) != B0; }

PtyReceiver::PtyReceiver(PtyReceiverOptions options)
    : options_(std::move(options)),
      baud_(options_.baudRate),
      silent_(options_.silent),
      garbage_(options_.simulation.seed, 0x6A7B) {
  const std::string problem = ValidateOptions(options_.simulation);
  if (!problem.empty()) throw std::invalid_argument(problem);
  if (!IsSupportedBaud(options_.baudRate)) throw std::invalid_argument("unsupported baud rate");
}

PtyReceiver::~PtyReceiver() { Stop(); }

void PtyReceiver::SetBaudRate(uint32_t baud) {
  if (!IsSupportedBaud(baud)) throw std::invalid_argument("unsupported baud rate");
  baud_ = baud;
}

std::string PtyReceiver::DevicePath() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return devicePath_;
}

PtyReceiver::Counters PtyReceiver::Snapshot() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return counters_;
}

void PtyReceiver::Start() {
  if (Running()) return;
  const int master = posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  if (master < 0) ThrowSystem("posix_openpt");
  char name[128] = {};
  if (grantpt(master) != 0 || unlockpt(master) != 0 || ptsname_r(master, name, sizeof name) != 0) {
    const int error = errno;
    close(master);
    throw std::system_error(error, std::generic_category(), "pseudo-terminal setup");
  }
  const int slave = open(name, O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  if (slave < 0) {
    const int error = errno;
    close(master);
    throw std::system_error(error, std::generic_category(), name);
  }
  // A raw line at the receiver's own speed until a reader sets another.
  termios settings{};
  tcgetattr(slave, &settings);
  cfmakeraw(&settings);
  settings.c_cflag |= CLOCAL | CREAD;
  cfsetispeed(&settings, CodeOf(baud_));
  cfsetospeed(&settings, CodeOf(baud_));
  tcsetattr(slave, TCSANOW, &settings);

  std::lock_guard<std::mutex> lock(mutex_);
  master_ = master;
  slave_ = slave;
  devicePath_ = name;
  stopping_ = false;
  counters_ = Counters{};
  thread_ = std::thread(&PtyReceiver::Run, this);
}

void PtyReceiver::Stop() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    stopping_ = true;
  }
  wake_.notify_all();
  if (thread_.joinable()) thread_.join();
  std::lock_guard<std::mutex> lock(mutex_);
  if (slave_ >= 0) close(slave_);
  if (master_ >= 0) close(master_);
  slave_ = master_ = -1;
}

void PtyReceiver::Run() {
  Simulator simulator(options_.simulation);
  const auto interval = std::chrono::milliseconds(
      options_.realWaitMs ? options_.realWaitMs(simulator.IntervalMs()) : simulator.IntervalMs());
  auto due = std::chrono::steady_clock::now();
  for (;;) {
    const Epoch epoch = simulator.Next();
    SendEpoch(epoch.Text());
    if (options_.onEpoch) options_.onEpoch(epoch);

    // A receiver that fell behind carries on from now rather than catching up.
    due += interval;
    const auto now = std::chrono::steady_clock::now();
    if (due < now - interval) due = now;
    std::unique_lock<std::mutex> lock(mutex_);
    if (wake_.wait_until(lock, due, [this] { return stopping_; })) return;
  }
}

void PtyReceiver::SendEpoch(const std::string& text) {
  // What readers wrote to the receiver goes nowhere.
  char sink[512];
  while (read(master_, sink, sizeof sink) > 0) {
  }

  termios line{};
  const bool known = tcgetattr(master_, &line) == 0;
  const speed_t code = cfgetispeed(&line) != B0 ? cfgetispeed(&line) : cfgetospeed(&line);
  const uint32_t lineBaud = known ? BaudOf(code) : UINT32_MAX;

  int unread = 0;
  uint64_t discarded = 0;
  if (ioctl(slave_, FIONREAD, &unread) == 0 && unread > 0) {
    tcflush(slave_, TCIFLUSH);
    discarded = static_cast<uint64_t>(unread);
  }

  const uint32_t baud = baud_;
  uint64_t nmea = 0, garbage = 0, dropped = 0;
  if (!silent_ && lineBaud != 0) {
    std::string bytes = text;
    if (lineBaud != baud) {
      // Heard at the wrong speed, every byte breaks into noise: more bytes
      // when the port is faster than the receiver, fewer when slower.
      const double ratio = lineBaud == UINT32_MAX ? 1.0 : static_cast<double>(lineBaud) / baud;
      const double wanted = static_cast<double>(text.size()) * (ratio > 4.0 ? 4.0 : ratio);
      bytes.assign(wanted < 1.0 ? 1 : static_cast<size_t>(wanted), '\0');
      for (char& c : bytes) {
        do c = static_cast<char>(garbage_.Next() & 0xFF);
        while (c == '$');
      }
    }
    const uint64_t written = WriteToLine(bytes);
    (lineBaud == baud ? nmea : garbage) = written;
    dropped = bytes.size() - written;
  }

  std::lock_guard<std::mutex> lock(mutex_);
  ++counters_.epochs;
  counters_.nmeaBytes += nmea;
  counters_.garbageBytes += garbage;
  counters_.droppedBytes += dropped;
  counters_.discardedBytes += discarded;
  counters_.lineBaud = lineBaud == UINT32_MAX ? 0 : lineBaud;
}

uint64_t PtyReceiver::WriteToLine(const std::string& bytes) {
  size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t n = write(master_, bytes.data() + done, bytes.size() - done);
    if (n > 0) {
      done += static_cast<size_t>(n);
    } else if (n < 0 && errno == EINTR) {
      continue;
    } else {
      break;  // full (EAGAIN) or gone: the rest is lost, as on a real line
    }
  }
  return done;
}

}  // namespace kavo::sim
