#include "posix/pty_reader.h"

#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <thread>

namespace kavo::test {
namespace {

speed_t Code(uint32_t baud) {
  switch (baud) {
    case 2400: return B2400;
    case 4800: return B4800;
    case 9600: return B9600;
    case 19200: return B19200;
    default: return B38400;
  }
}

}  // namespace

PtyReader::PtyReader(const std::string& path, uint32_t baud, bool flush) {
  fd_ = open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  if (fd_ < 0) return;
  termios t{};
  tcgetattr(fd_, &t);
  cfmakeraw(&t);
  cfsetspeed(&t, Code(baud));
  tcsetattr(fd_, flush ? TCSAFLUSH : TCSANOW, &t);
}

PtyReader::~PtyReader() {
  if (fd_ >= 0) close(fd_);
}

std::string PtyReader::ReadUntil(const std::function<bool(const std::string&)>& done, int timeoutMs) {
  std::string text;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
  while (!done(text)) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) break;
    pollfd p{fd_, POLLIN, 0};
    if (poll(&p, 1, static_cast<int>(left.count())) <= 0) continue;
    char buffer[1024];
    const ssize_t n = read(fd_, buffer, sizeof buffer);
    if (n > 0) {
      text.append(buffer, static_cast<size_t>(n));
    } else if (n == 0 || (errno != EAGAIN && errno != EINTR)) {
      hungUp_ = true;
      break;
    }
  }
  return text;
}

std::string PtyReader::ReadAvailable() {
  std::string text;
  char buffer[1024];
  ssize_t n;
  while ((n = read(fd_, buffer, sizeof buffer)) > 0) text.append(buffer, static_cast<size_t>(n));
  return text;
}

bool WaitFor(const std::function<bool()>& condition, int timeoutMs) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

}  // namespace kavo::test
