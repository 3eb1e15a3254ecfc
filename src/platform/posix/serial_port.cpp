// Serial ports over termios, behaving as the Win32 communications API does:
// opened exclusively, raw, with the DCB codes mapped onto termios and reads
// that honour COMMTIMEOUTS. A wake-up pipe polled beside the port lets
// another thread end a waiting read.
#include "platform/serial_port.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <climits>
#include <cstdlib>

#include "platform/posix/custom_baud_rate.h"
#include "platform/posix/errno_map.h"
#include "platform/posix/serial_device_path.h"
#include "platform/posix/termios_settings.h"

namespace kavo::platform {
namespace {

constexpr uint32_t kDcbDtrControlDisable = 0x0000;
constexpr uint32_t kDcbDtrControlHandshake = 0x0020;

bool Fail(uint32_t code) {
  SetLastError(code);
  return false;
}

bool FailFromErrno() {
  posix::SetLastErrorFromErrno();
  return false;
}

int PollMs(std::chrono::steady_clock::time_point deadline) {
  const auto left =
      std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now()).count();
  return left <= 0 ? 0 : left > INT_MAX ? INT_MAX : static_cast<int>(left);
}

// Real milliseconds of a wait of `ms` clock milliseconds; kInfinite stays.
int64_t RealMs(uint64_t ms) {
  if (ms >= kInfinite) return -1;
  return CurrentClock().RealWaitMs(static_cast<uint32_t>(ms));
}

// A UART divides its clock: a rate within 2 % of the one asked for is it.
bool CloseEnough(uint32_t applied, uint32_t rate) {
  return std::llabs(int64_t(applied) - int64_t(rate)) * 50 <= int64_t(rate);
}

class PosixSerialPort final : public SerialPort {
 public:
  PosixSerialPort(int fd, bool ownsExclusive) : fd_(fd), ownsExclusive_(ownsExclusive) {
    // Without a wake-up pipe a read just ends at its time-out.
    if (pipe2(wake_, O_CLOEXEC | O_NONBLOCK) != 0) wake_[0] = wake_[1] = -1;
  }
  ~PosixSerialPort() override {
    Close();
    for (int end : wake_)
      if (end >= 0) close(end);
  }

  bool SetupQueues(uint32_t, uint32_t) override {
    // The kernel sizes a tty's queues itself.
    return fd_ >= 0 || Fail(kErrorInvalidHandle);
  }

  bool GetState(SerialState* state) override {
    termios tio{};
    if (tcgetattr(fd_, &tio) != 0) return FailFromErrno();
    *state = posix::DcbFrom(tio, flags_);
    if (const std::optional<uint32_t> rate = posix::ReadBaudRate(fd_)) state->baudRate = *rate;
    // The DTR line when the device has one (a pseudo-terminal has none).
    int lines = 0;
    const uint32_t dtr = state->flags & kDcbDtrControlMask;
    if (dtr != kDcbDtrControlHandshake && ioctl(fd_, TIOCMGET, &lines) == 0) {
      state->flags =
          (state->flags & ~kDcbDtrControlMask) | ((lines & TIOCM_DTR) ? kDcbDtrControlEnable : kDcbDtrControlDisable);
    }
    return true;
  }

  bool SetState(const SerialState& state) override {
    termios tio{};
    if (tcgetattr(fd_, &tio) != 0) return FailFromErrno();
    if (!posix::ApplyDcb(state, &tio)) return Fail(kErrorInvalidParameter);
    if (tcsetattr(fd_, TCSANOW, &tio) != 0) return FailFromErrno();
    speed_t speed = B0;
    const bool constant = posix::SpeedOf(state.baudRate, &speed);
    if (!constant && !posix::SetCustomBaudRate(fd_, state.baudRate)) return Fail(kErrorInvalidParameter);
    // tcsetattr succeeds when any part applied; the speed must have.
    termios applied{};
    if (tcgetattr(fd_, &applied) != 0) return FailFromErrno();
    const std::optional<uint32_t> rate = posix::ReadBaudRate(fd_);
    if (rate ? !CloseEnough(*rate, state.baudRate) : cfgetospeed(&applied) != speed)
      return Fail(kErrorInvalidParameter);

    // Modem lines fail on devices without them; that is no error here.
    const uint32_t dtr = state.flags & kDcbDtrControlMask;
    int bit = TIOCM_DTR;
    if (dtr == kDcbDtrControlEnable) ioctl(fd_, TIOCMBIS, &bit);
    if (dtr == kDcbDtrControlDisable) ioctl(fd_, TIOCMBIC, &bit);
    flags_ = state.flags;
    return true;
  }

  bool GetTimeouts(SerialTimeouts* timeouts) override {
    if (fd_ < 0) return Fail(kErrorInvalidHandle);
    *timeouts = timeouts_;
    return true;
  }

  bool SetTimeouts(const SerialTimeouts& timeouts) override {
    if (fd_ < 0) return Fail(kErrorInvalidHandle);
    timeouts_ = timeouts;
    return true;
  }

  bool SetEventMask(uint32_t mask) override {
    if (fd_ < 0) return Fail(kErrorInvalidHandle);
    eventMask_ = mask;
    return true;
  }

  bool DiscardInput() override {
    const int fd = fd_;
    if (fd < 0) return Fail(kErrorInvalidHandle);
    return tcflush(fd, TCIFLUSH) == 0 || FailFromErrno();
  }

  bool Read(void* buffer, uint32_t size, uint32_t* got) override;
  bool Write(const void* data, uint32_t size, uint32_t* written) override;

  void InterruptRead() override {
    const char byte = 1;
    // Failing only when the pipe is full, that is when a wake-up is pending.
    [[maybe_unused]] const ssize_t n = wake_[1] >= 0 ? write(wake_[1], &byte, 1) : 0;
  }

  void ClearInterrupt() override { TakeWakeUp(); }

  bool Close() override {
    const int fd = fd_.exchange(-1);
    if (fd < 0) return Fail(kErrorInvalidHandle);
    // Only our own exclusivity is ours to lift.
    if (ownsExclusive_) ioctl(fd, TIOCNXCL);
    return close(fd) == 0 || FailFromErrno();
  }

  uintptr_t HandleValue() const override { return static_cast<uintptr_t>(fd_.load()); }

 private:
  // True when a wake-up was pending, which it consumes.
  bool TakeWakeUp() {
    char bytes[64];
    bool woken = false;
    while (wake_[0] >= 0 && read(wake_[0], bytes, sizeof bytes) > 0) woken = true;
    return woken;
  }

  std::atomic<int> fd_;
  const bool ownsExclusive_;
  int wake_[2];
  uint32_t flags_ = kDcbBinary | kDcbDtrControlEnable | kDcbRtsControlEnable;  // as a driver starts
  SerialTimeouts timeouts_;
  uint32_t eventMask_ = 0;
};

// How long a read of `size` bytes may take, in real milliseconds (-1: no
// limit), and whether it returns as soon as anything came.
struct ReadLimits {
  int64_t totalMs = -1;
  int64_t intervalMs = -1;
  bool returnWithAny = false;
};

// COMMTIMEOUTS: interval MAXDWORD with no totals returns at once with what
// is queued; with multiplier MAXDWORD and a constant it waits up to the
// constant for the first byte and then returns with what is queued;
// otherwise the read ends when `size` bytes came, the total time-out
// (multiplier per byte plus constant; none when both are 0) passed, or the
// interval between two bytes exceeded the interval time-out.
ReadLimits LimitsFor(const SerialTimeouts& t, uint32_t size) {
  const bool atOnce = t.readInterval == kMaxDword && t.readTotalMultiplier == 0 && t.readTotalConstant == 0;
  const bool firstByte = t.readInterval == kMaxDword && t.readTotalMultiplier == kMaxDword &&
                         t.readTotalConstant != 0 && t.readTotalConstant != kMaxDword;
  ReadLimits limits;
  limits.returnWithAny = atOnce || firstByte;
  if (atOnce) {
    limits.totalMs = 0;
  } else if (firstByte) {
    limits.totalMs = RealMs(t.readTotalConstant);
  } else if (t.readTotalMultiplier != 0 || t.readTotalConstant != 0) {
    limits.totalMs = RealMs(uint64_t(t.readTotalMultiplier) * size + t.readTotalConstant);
  }
  if (!limits.returnWithAny && t.readInterval != 0) limits.intervalMs = RealMs(t.readInterval);
  return limits;
}

bool PosixSerialPort::Read(void* buffer, uint32_t size, uint32_t* got) {
  using Clock = std::chrono::steady_clock;
  *got = 0;
  const int fd = fd_;
  if (fd < 0) return Fail(kErrorInvalidHandle);
  if (size == 0) return true;
  const ReadLimits limits = LimitsFor(timeouts_, size);
  const Clock::time_point start = Clock::now();
  Clock::time_point lastByte = start;

  uint8_t* out = static_cast<uint8_t*>(buffer);
  uint32_t have = 0;
  for (;;) {
    int waitMs = -1;
    if (limits.totalMs >= 0) waitMs = PollMs(start + std::chrono::milliseconds(limits.totalMs));
    if (have > 0 && limits.intervalMs >= 0) {
      const int gap = PollMs(lastByte + std::chrono::milliseconds(limits.intervalMs));
      waitMs = waitMs < 0 ? gap : std::min(waitMs, gap);
    }
    pollfd p[2] = {{fd, POLLIN, 0}, {wake_[0], POLLIN, 0}};
    const int ready = poll(p, 2, waitMs);
    if (ready < 0 && errno == EINTR) continue;
    if (ready < 0) return FailFromErrno();
    if (ready == 0) return true;  // timed out: what came is the result
    if (p[0].revents & POLLNVAL) return Fail(kErrorInvalidHandle);
    if (p[0].revents == 0 && TakeWakeUp()) return true;  // interrupted: what came is the result
    if (p[0].revents == 0) continue;
    const ssize_t n = read(fd, out + have, size - have);
    if (n < 0 && (errno == EAGAIN || errno == EINTR)) continue;
    // Readable yet nothing to read, or EIO: the other side hung up.
    if (n <= 0) return Fail(kErrorDeviceNotConnected);
    have += static_cast<uint32_t>(n);
    *got = have;
    if (have == size || limits.returnWithAny) return true;
    lastByte = Clock::now();
  }
}

// Write time-outs: multiplier per byte plus constant, none when both are 0.
// Running out of time is not a failure; `written` tells how far it got.
bool PosixSerialPort::Write(const void* data, uint32_t size, uint32_t* written) {
  using Clock = std::chrono::steady_clock;
  *written = 0;
  const int fd = fd_;
  if (fd < 0) return Fail(kErrorInvalidHandle);
  const SerialTimeouts t = timeouts_;
  int64_t totalMs = -1;
  if (t.writeTotalMultiplier != 0 || t.writeTotalConstant != 0)
    totalMs = RealMs(uint64_t(t.writeTotalMultiplier) * size + t.writeTotalConstant);
  const Clock::time_point start = Clock::now();
  const uint8_t* in = static_cast<const uint8_t*>(data);
  uint32_t done = 0;
  while (done < size) {
    const ssize_t n = write(fd, in + done, size - done);
    if (n > 0) {
      done += static_cast<uint32_t>(n);
      *written = done;
      continue;
    }
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 && errno != EAGAIN) return errno == EIO ? Fail(kErrorDeviceNotConnected) : FailFromErrno();
    pollfd p{fd, POLLOUT, 0};
    const int ready = poll(&p, 1, totalMs < 0 ? -1 : PollMs(start + std::chrono::milliseconds(totalMs)));
    if (ready < 0 && errno == EINTR) continue;
    if (ready < 0) return FailFromErrno();
    if (ready == 0) return true;
    if (p.revents & (POLLHUP | POLLERR)) return Fail(kErrorDeviceNotConnected);
  }
  return true;
}

// Whether another open file of the port holds it: by TIOCEXCL, which does
// not keep root out, or by flock. Takes the flock for `fd` when it is free.
bool HeldElsewhere(int fd) {
  int exclusive = 0;
#ifdef TIOCGEXCL
  if (ioctl(fd, TIOCGEXCL, &exclusive) != 0) exclusive = 0;  // a kernel that cannot tell
#endif
  return exclusive != 0 || flock(fd, LOCK_EX | LOCK_NB) != 0;
}

}  // namespace

std::unique_ptr<SerialPort> SerialPort::Open(const std::u16string& name, SerialAccess access) {
  const std::optional<std::string> path = posix::ResolveSerialDevicePath(name);
  if (!path) return nullptr;
  const bool use = access == SerialAccess::kReadWrite;
  // Non-blocking, so that a port waiting for carrier does not hang the open.
  const int fd = open(path->c_str(), (use ? O_RDWR : O_RDONLY) | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) {
    Fail(errno == EBUSY ? kErrorAccessDenied : posix::Win32FromErrno(errno));
    return nullptr;
  }
  const auto reject = [fd](uint32_t code) {
    close(fd);
    SetLastError(code);
    return nullptr;
  };
  if (!isatty(fd)) return reject(kErrorFileNotFound);  // a file, not a port
  if (HeldElsewhere(fd)) return reject(kErrorAccessDenied);
  // A query only reads the settings: the port stays as it was.
  if (!use) return std::make_unique<PosixSerialPort>(fd, false);
  // flock keeps out everyone who asks, root too; TIOCEXCL also keeps out
  // programs that do not ask.
  if (ioctl(fd, TIOCEXCL) != 0) return reject(posix::Win32FromErrno(errno));
  termios tio{};
  if (tcgetattr(fd, &tio) != 0) return reject(posix::Win32FromErrno(errno));
  cfmakeraw(&tio);
  tio.c_cflag |= CLOCAL | CREAD;
  tio.c_cc[VMIN] = 0;
  tio.c_cc[VTIME] = 0;
  if (tcsetattr(fd, TCSANOW, &tio) != 0) {
    ioctl(fd, TIOCNXCL);
    return reject(posix::Win32FromErrno(errno));
  }
  return std::make_unique<PosixSerialPort>(fd, true);
}

}  // namespace kavo::platform
