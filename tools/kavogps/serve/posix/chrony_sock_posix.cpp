// chronyd's SOCK reference clock: one datagram per sample to the socket
// chronyd made, laid out as chronyd reads it.
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "serve/time_outputs.h"

namespace kavo::serve {
namespace {

struct ChronySample {
  timeval time;   // the system clock at the measurement
  double offset;  // the true time less the system clock, seconds
  int pulse;      // 0: the sample carries whole seconds
  int leap;       // 0 none, 1 insert, 2 delete
  int padding;
  int magic;
};
constexpr int kChronyMagic = 0x534f434b;  // "SOCK"

class ChronySock : public TimeOutput {
 public:
  ChronySock(int socket, const sockaddr_un& address, std::string path, std::string device, std::ostream& err)
      : socket_(socket), address_(address), path_(std::move(path)), device_(std::move(device)), err_(err) {}
  ~ChronySock() override { close(socket_); }

  void Sample(const FixTime& fix) override {
    const auto since = fix.arrival.time_since_epoch();
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(since);
    ChronySample sample{};
    sample.time.tv_sec = static_cast<time_t>(seconds.count());
    sample.time.tv_usec =
        static_cast<suseconds_t>(std::chrono::duration_cast<std::chrono::microseconds>(since - seconds).count());
    sample.offset = fix.Offset();
    sample.leap = fix.leap;
    sample.magic = kChronyMagic;
    const ssize_t sent = sendto(socket_, &sample, sizeof sample, MSG_DONTWAIT | MSG_NOSIGNAL,
                                reinterpret_cast<const sockaddr*>(&address_), sizeof address_);
    if (sent == static_cast<ssize_t>(sizeof sample)) return Say(0, "chronyd takes the samples again");
    // A chronyd too busy for this sample gets the next one: nothing to tell.
    if (errno == EAGAIN || errno == EWOULDBLOCK || errno == ENOBUFS) return;
    Say(errno, Why(errno) + "; trying again with each fix");
  }

 private:
  std::string Why(int error) const {
    struct stat status {};
    if (error == ENOENT) return "no socket at " + path_ + ": is chronyd running with 'refclock SOCK " + path_ + "'?";
    if (stat(path_.c_str(), &status) == 0 && !S_ISSOCK(status.st_mode)) return path_ + " is not a socket";
    if (error == ECONNREFUSED) return "chronyd does not listen on " + path_ + " (it has stopped?)";
    return "cannot send to " + path_ + ": " + std::strerror(error);
  }

  // Tells each change of fortune once: `error` 0 once samples go again.
  void Say(int error, const std::string& what) {
    if (error == said_) return;
    said_ = error;
    err_ << "kavogps serve: " << device_ << ": " << what << '\n';
  }

  int socket_;
  sockaddr_un address_;
  std::string path_, device_;
  std::ostream& err_;
  int said_ = 0;
};

}  // namespace

bool TimeOutputsAvailable() { return true; }

std::unique_ptr<TimeOutput> ChronySockOutput(const std::string& path, const std::string& device, std::ostream& err) {
  sockaddr_un address{};
  if (path.empty() || path.size() >= sizeof address.sun_path) {
    err << "kavogps serve: '" << path << "' cannot name a socket: at most " << sizeof address.sun_path - 1
        << " characters\n";
    return nullptr;
  }
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
  const int socket = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (socket < 0) {
    err << "kavogps serve: cannot make a socket for chronyd: " << std::strerror(errno) << '\n';
    return nullptr;
  }
  return std::make_unique<ChronySock>(socket, address, path, device, err);
}

}  // namespace kavo::serve
