#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>

#include "serve/handed_sockets.h"

namespace kavo::serve {
namespace {

int SocketOption(int fd, int name) {
  int value = 0;
  socklen_t size = sizeof value;
  return getsockopt(fd, SOL_SOCKET, name, &value, &size) == 0 ? value : -1;
}

// The socket's address family when `fd` is a listening TCP socket, else 0.
sa_family_t ListeningTcpFamily(int fd) {
  sockaddr_storage address{};
  socklen_t size = sizeof address;
  if (SocketOption(fd, SO_TYPE) != SOCK_STREAM || SocketOption(fd, SO_ACCEPTCONN) != 1) return 0;
  if (getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size) != 0) return 0;
  return address.ss_family == AF_INET || address.ss_family == AF_INET6 ? address.ss_family : 0;
}

}  // namespace

std::vector<HandedSocket> TakeHandedSockets() {
  const std::optional<int> count =
      AnnouncedSocketCount(std::getenv("LISTEN_PID"), std::getenv("LISTEN_FDS"), static_cast<long>(getpid()));
  for (const char* name : {"LISTEN_PID", "LISTEN_FDS", "LISTEN_FDNAMES"}) unsetenv(name);
  if (!count) throw std::runtime_error("LISTEN_PID and LISTEN_FDS from the service manager are not numbers");
  std::vector<HandedSocket> sockets;
  for (int fd = kFirstHandedDescriptor; fd < kFirstHandedDescriptor + *count; ++fd) {
    const sa_family_t family = ListeningTcpFamily(fd);
    if (family == 0)
      throw std::runtime_error("descriptor " + std::to_string(fd) +
                               " from the service manager is not a listening TCP socket");
    fcntl(fd, F_SETFD, FD_CLOEXEC);  // the service manager leaves it inheritable
    sockets.push_back({fd, family == AF_INET6});
  }
  return sockets;
}

}  // namespace kavo::serve
