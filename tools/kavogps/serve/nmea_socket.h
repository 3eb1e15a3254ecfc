// `serve --nmea-socket PATH`: a Unix stream socket where every client gets
// the receivers' raw sentences as they arrive, which is what desktop
// location services read (GeoClue's `nmea-socket`). Each client has its
// own bounded queue, like a TCP client: one that does not read loses its
// oldest sentences and holds back no one. Unix systems only.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "serve/feed.h"

namespace asio {
class io_context;  // declared only: the command line asks NmeaSocketSupported without network headers
}

namespace kavo::serve {

struct NmeaSocketOptions {
  std::string path;
  unsigned mode = 0660;           // of the socket file
  size_t queueBytes = 64 * 1024;  // per client
};

class NmeaSocketOutput : public FeedSink {
 public:
  // Stops listening, closes every client (from any thread) and removes the
  // socket file.
  virtual void Close() = 0;
  virtual size_t ClientCount() const = 0;
  virtual uint64_t DroppedLines() const = 0;
};

// Whether this system has Unix sockets for OpenNmeaSocket.
bool NmeaSocketSupported();

// Listens on `options.path`, on `io`'s thread: a socket file left by a run
// that ended without removing it is replaced; a path that is something
// else, or a socket someone listens on, is refused. Null with `*why`.
std::unique_ptr<NmeaSocketOutput> OpenNmeaSocket(asio::io_context& io, const NmeaSocketOptions& options,
                                                 std::string* why);

}  // namespace kavo::serve
