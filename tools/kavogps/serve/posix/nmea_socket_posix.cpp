#include <algorithm>
#include <array>
#include <atomic>
#include <filesystem>
#include <mutex>
#include <vector>

#include <asio/io_context.hpp>
#include <asio/local/stream_protocol.hpp>
#include <asio/post.hpp>
#include <asio/steady_timer.hpp>
#include <asio/write.hpp>

#include "serve/nmea_socket.h"
#include "serve/out_queue.h"

namespace kavo::serve {
namespace {

using asio::local::stream_protocol;
namespace fs = std::filesystem;

// Why `path` cannot be listened on; empty when nothing is there, or a
// socket file nobody listens on any more, which is removed.
std::string ClearPath(asio::io_context& io, const std::string& path) {
  std::error_code error;
  const fs::file_status status = fs::symlink_status(path, error);
  if (status.type() == fs::file_type::not_found) return {};
  if (error) return error.message();
  if (status.type() != fs::file_type::socket) return "it exists and is not a socket; remove it or name another path";
  stream_protocol::socket probe(io);
  probe.connect(stream_protocol::endpoint(path), error);
  if (!error) return "another program is listening on it";
  if (error != asio::error::connection_refused) return error.message();
  fs::remove(path, error);
  return error ? "cannot remove the socket left there: " + error.message() : std::string();
}

// The server's state, which its handlers share: the output may go while
// they are still queued on the network thread.
class NmeaSocketServer : public NmeaSocketOutput, public std::enable_shared_from_this<NmeaSocketServer> {
 public:
  NmeaSocketServer(asio::io_context& io, NmeaSocketOptions options)
      : io_(io), options_(std::move(options)), acceptor_(io) {}

  // Why it cannot listen; empty when it does.
  std::string Open() {
    std::string why = ClearPath(io_, options_.path);
    if (!why.empty()) return why;
    std::error_code error;
    acceptor_.open(stream_protocol(), error);
    if (!error) acceptor_.bind(stream_protocol::endpoint(options_.path), error);
    if (error) return error.message();
    created_ = true;
    // Before listening, so that no one connects through a wider mode.
    fs::permissions(options_.path, static_cast<fs::perms>(options_.mode), error);
    if (!error) acceptor_.listen(asio::socket_base::max_listen_connections, error);
    if (error) {
      RemoveFile();
      return error.message();
    }
    Accept();
    return {};
  }

  ~NmeaSocketServer() override { RemoveFile(); }

  void Close() override {
    asio::post(io_, [this, self = shared_from_this()] {
      const std::lock_guard<std::mutex> lock(mutex_);
      closed_ = true;
      std::error_code ignored;
      acceptor_.close(ignored);
      while (!peers_.empty()) Drop(peers_.back());
    });
    RemoveFile();
  }

  void Epoch(const std::string&, std::string, std::string) override {}
  bool WantsNmea() const override { return count_ > 0; }
  void Nmea(const std::string&, std::string sentence) override {
    const OutLine line = std::make_shared<const std::string>(sentence + "\r\n");
    const std::lock_guard<std::mutex> lock(mutex_);
    for (const auto& peer : peers_) {
      const uint64_t dropped = peer->queue.Dropped();
      peer->queue.Push(line);
      dropped_ += peer->queue.Dropped() - dropped;
      Write(peer);
    }
  }
  void Device(DeviceState) override {}

  size_t ClientCount() const override { return count_; }
  uint64_t DroppedLines() const override { return dropped_; }

 private:
  struct Peer {
    Peer(stream_protocol::socket s, size_t queueBytes) : socket(std::move(s)), queue(queueBytes) {}
    stream_protocol::socket socket;
    OutQueue queue;
    std::vector<OutLine> inFlight;  // what the pending write is sending
    bool writing = false;
    std::array<char, 256> ignored{};  // what a client writes is read and dropped
  };
  using PeerPtr = std::shared_ptr<Peer>;

  void Accept() {
    acceptor_.async_accept([this, self = shared_from_this()](std::error_code error, stream_protocol::socket socket) {
      const std::lock_guard<std::mutex> lock(mutex_);
      if (closed_) return;
      if (!error) {
        peers_.push_back(std::make_shared<Peer>(std::move(socket), options_.queueBytes));
        ++count_;
        Read(peers_.back());
        return Accept();
      }
      // Out of descriptors or the like: try again a little later rather than spin.
      auto timer = std::make_shared<asio::steady_timer>(io_, std::chrono::milliseconds(100));
      timer->async_wait([this, self, timer](std::error_code) {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (!closed_) Accept();
      });
    });
  }

  // Only to learn when the client goes.
  void Read(const PeerPtr& peer) {
    peer->socket.async_read_some(asio::buffer(peer->ignored),
                                 [this, self = shared_from_this(), peer](std::error_code error, size_t) {
                                   const std::lock_guard<std::mutex> lock(mutex_);
                                   if (error) return Drop(peer);
                                   Read(peer);
                                 });
  }

  // With the lock held.
  void Write(const PeerPtr& peer) {
    if (peer->writing || peer->queue.Empty() || !peer->socket.is_open()) return;
    peer->queue.TakeAll(&peer->inFlight);
    std::vector<asio::const_buffer> buffers;
    for (const OutLine& line : peer->inFlight) buffers.push_back(asio::buffer(*line));
    peer->writing = true;
    asio::async_write(peer->socket, buffers, [this, self = shared_from_this(), peer](std::error_code error, size_t) {
      const std::lock_guard<std::mutex> lock(mutex_);
      peer->writing = false;
      peer->inFlight.clear();
      if (error) return Drop(peer);
      Write(peer);
    });
  }

  // With the lock held; a client already gone is left alone.
  void Drop(const PeerPtr& peer) {
    const auto found = std::find(peers_.begin(), peers_.end(), peer);
    if (found == peers_.end()) return;
    std::error_code ignored;
    peer->socket.close(ignored);
    peers_.erase(found);
    --count_;
  }

  void RemoveFile() {
    if (!created_.exchange(false)) return;
    std::error_code ignored;
    fs::remove(options_.path, ignored);
  }

  asio::io_context& io_;
  NmeaSocketOptions options_;
  stream_protocol::acceptor acceptor_;
  std::mutex mutex_;
  std::vector<PeerPtr> peers_;
  std::atomic<size_t> count_{0};
  std::atomic<uint64_t> dropped_{0};
  bool closed_ = false;
  std::atomic<bool> created_{false};  // the socket file is ours to remove
};

// What OpenNmeaSocket hands out: closes the server when it goes.
class NmeaSocketHandle : public NmeaSocketOutput {
 public:
  explicit NmeaSocketHandle(std::shared_ptr<NmeaSocketServer> server) : server_(std::move(server)) {}
  ~NmeaSocketHandle() override { server_->Close(); }

  void Close() override { server_->Close(); }
  size_t ClientCount() const override { return server_->ClientCount(); }
  uint64_t DroppedLines() const override { return server_->DroppedLines(); }
  void Epoch(const std::string&, std::string, std::string) override {}
  bool WantsNmea() const override { return server_->WantsNmea(); }
  void Nmea(const std::string& device, std::string sentence) override { server_->Nmea(device, std::move(sentence)); }
  void Device(DeviceState) override {}

 private:
  std::shared_ptr<NmeaSocketServer> server_;
};

}  // namespace

bool NmeaSocketSupported() { return true; }

std::unique_ptr<NmeaSocketOutput> OpenNmeaSocket(asio::io_context& io, const NmeaSocketOptions& options,
                                                 std::string* why) {
  auto server = std::make_shared<NmeaSocketServer>(io, options);
  *why = server->Open();
  if (!why->empty()) return nullptr;
  return std::make_unique<NmeaSocketHandle>(std::move(server));
}

}  // namespace kavo::serve
