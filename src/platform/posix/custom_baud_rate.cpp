#include "platform/posix/custom_baud_rate.h"

#include <cerrno>

#if defined(__linux__)
// The kernel's termios2 carries the speeds as numbers; its header cannot
// share a file with the C library's <termios.h>.
#  include <asm/termbits.h>
#  include <sys/ioctl.h>
#endif

namespace kavo::platform::posix {

#if defined(__linux__)

bool SetCustomBaudRate(int fd, uint32_t rate) {
  struct termios2 tio {};
  if (ioctl(fd, TCGETS2, &tio) != 0) return false;
  tio.c_cflag &= ~(CBAUD | (CBAUD << IBSHIFT));
  tio.c_cflag |= BOTHER | (BOTHER << IBSHIFT);
  tio.c_ispeed = rate;
  tio.c_ospeed = rate;
  return ioctl(fd, TCSETS2, &tio) == 0;
}

std::optional<uint32_t> ReadBaudRate(int fd) {
  struct termios2 tio {};
  if (ioctl(fd, TCGETS2, &tio) != 0) return std::nullopt;
  return tio.c_ospeed;
}

#else

bool SetCustomBaudRate(int, uint32_t) {
  errno = EINVAL;
  return false;
}

std::optional<uint32_t> ReadBaudRate(int) { return std::nullopt; }

#endif

}  // namespace kavo::platform::posix
