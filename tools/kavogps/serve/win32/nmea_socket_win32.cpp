// Windows has no place for a desktop location service to read a Unix
// socket from, so `--nmea-socket` is refused there.
#include "serve/nmea_socket.h"

namespace kavo::serve {

bool NmeaSocketSupported() { return false; }

std::unique_ptr<NmeaSocketOutput> OpenNmeaSocket(asio::io_context&, const NmeaSocketOptions&, std::string* why) {
  *why = "Unix sockets are for Unix systems; not available on Windows";
  return nullptr;
}

}  // namespace kavo::serve
