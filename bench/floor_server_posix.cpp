// The least a server of a receiver's epochs can do, for serve_vs_gpsd.py
// --floor: wake when the pty is readable, read it, and send every client one
// line naming the epoch (a TPV with the GGA's time, padded to the size of
// what `kavogps serve` sends an epoch). No parsing, no state, one thread.
// What it costs per epoch is the kernel's part (the wake-up, the read, a
// loopback send per client) that any server of the same stream pays.
//
//   bench_floor_server DEVICE PORT
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

namespace {

constexpr size_t kEpochBytes = 1150;  // serve's TPV and SKY for data/walk.nmea

int Listen(int port) {
  const int fd = socket(AF_INET, SOCK_STREAM, 0);
  const int one = 1;
  setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 || listen(fd, 512) != 0) return -1;
  return fd;
}

// The epoch's line, or empty when the chunk holds no whole GGA time (the
// benchmark writes each epoch in one piece, so that does not happen).
std::string EpochLine(std::string_view chunk) {
  const size_t gga = chunk.find("$GPGGA,");
  if (gga == std::string_view::npos || chunk.size() < gga + 13) return {};
  const std::string_view t = chunk.substr(gga + 7, 6);
  std::string line = "{\"class\":\"TPV\",\"time\":\"2024-05-14T" + std::string(t.substr(0, 2)) + ":" +
                     std::string(t.substr(2, 2)) + ":" + std::string(t.substr(4, 2)) + ".000Z\",\"pad\":\"";
  line.append(kEpochBytes - line.size() - 3, 'x');
  return line + "\"}\n";
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: bench_floor_server DEVICE PORT\n");
    return 2;
  }
  const int port = open(argv[1], O_RDONLY | O_NOCTTY);
  const int listener = Listen(std::atoi(argv[2]));
  if (port < 0 || listener < 0) {
    std::perror("bench_floor_server");
    return 1;
  }
  std::vector<pollfd> watched = {{port, POLLIN, 0}, {listener, POLLIN, 0}};  // then the clients
  char buffer[4096];
  for (;;) {
    if (poll(watched.data(), watched.size(), -1) < 0) continue;
    for (size_t i = watched.size(); i-- > 2;) {  // a client's request is read and ignored; a gone one dropped
      if (watched[i].revents == 0) continue;
      if (read(watched[i].fd, buffer, sizeof buffer) > 0) continue;
      close(watched[i].fd);
      watched.erase(watched.begin() + static_cast<long>(i));
    }
    if (watched[1].revents & POLLIN) {
      const int client = accept(listener, nullptr, nullptr);
      if (client >= 0) watched.push_back({client, POLLIN, 0});
    }
    if (!(watched[0].revents & POLLIN)) continue;
    const ssize_t got = read(port, buffer, sizeof buffer);
    if (got <= 0) return 0;  // the receiver side hung up
    const std::string line = EpochLine(std::string_view(buffer, static_cast<size_t>(got)));
    if (line.empty()) continue;
    for (size_t i = 2; i < watched.size(); ++i) send(watched[i].fd, line.data(), line.size(), MSG_NOSIGNAL);
  }
}
