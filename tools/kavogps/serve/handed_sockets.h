// Listening sockets a service manager handed over (socket activation):
// inherited descriptors from 3 on, announced by LISTEN_FDS for the process
// LISTEN_PID names. The per-OS files take them; Windows hands none over.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kavo::serve {

constexpr int kFirstHandedDescriptor = 3;

struct HandedSocket {
  intptr_t handle = -1;  // the native socket: a descriptor on POSIX
  bool ipv6 = false;
};

// How many sockets LISTEN_PID and LISTEN_FDS (either may be null) announce
// for the process `ownPid`: 0 when they are not set or name another
// process, nullopt when they are not numbers.
std::optional<int> AnnouncedSocketCount(const char* listenPid, const char* listenFds, long ownPid);

// The sockets handed to this process, taken once: the variables go, so
// nothing this process starts takes the sockets too. Throws
// std::runtime_error when the variables are malformed or a descriptor is
// not a listening TCP socket.
std::vector<HandedSocket> TakeHandedSockets();

}  // namespace kavo::serve
