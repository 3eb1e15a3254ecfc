#include "posix/pty_reader.h"

#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>

namespace kavo::test {

PtyReader::PtyReader(const std::string& path, uint32_t baud, bool flush) {
  fd_ = open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  if (fd_ < 0) return;
  termios t{};
  tcgetattr(fd_, &t);
  cfmakeraw(&t);
  cfsetspeed(&t, baud == 9600 ? B9600 : B4800);
  tcsetattr(fd_, flush ? TCSAFLUSH : TCSANOW, &t);
}

PtyReader::~PtyReader() {
  if (fd_ >= 0) close(fd_);
}

std::string PtyReader::ReadUntil(const std::function<bool(const std::string&)>& done, int timeoutMs) {
  using namespace std::chrono;
  std::string text;
  const auto deadline = steady_clock::now() + milliseconds(timeoutMs);
  while (!done(text)) {
    const auto left = std::max<int64_t>(0, duration_cast<milliseconds>(deadline - steady_clock::now()).count());
    pollfd p{fd_, POLLIN, 0};
    if (poll(&p, 1, static_cast<int>(left)) <= 0) {
      if (left == 0) break;
      continue;
    }
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

}  // namespace kavo::test
