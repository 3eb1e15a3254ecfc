#include "serve/server.h"

#include <array>
#include <system_error>

#include <asio/ip/v6_only.hpp>
#include <asio/post.hpp>
#include <asio/write.hpp>

#include "serve/request_lines.h"

namespace kavo::serve {

using asio::ip::tcp;

class Client : public std::enable_shared_from_this<Client> {
 public:
  Client(tcp::socket socket, Server& server)
      : socket_(std::move(socket)),
        server_(server),
        requests_(server.Options().maxRequestLength),
        queue_(server.Options().queueBytes) {}

  void Start() {
    std::error_code ignored;
    socket_.set_option(tcp::no_delay(true), ignored);
    socket_.non_blocking(true, ignored);  // a write takes what fits and never waits
    Send(VersionJson());
    Read();
  }

  void Deliver(bool json, const OutLine& line) {
    if (json ? protocol_.WantsJson() : protocol_.WantsNmea()) Queue(line);
  }

  void Close() {
    if (!open_) return;
    open_ = false;
    server_.CountNmeaWatcher(&nmeaCounted_, false);
    std::error_code ignored;
    socket_.shutdown(tcp::socket::shutdown_both, ignored);
    socket_.close(ignored);
    server_.Forget(this);  // may drop the last owner: nothing after this
  }

 private:
  void Send(const std::string& json) { Queue(std::make_shared<const std::string>(json + "\r\n")); }

  void Queue(const OutLine& line) {
    const uint64_t dropped = queue_.Dropped();
    queue_.Push(line);
    server_.CountDropped(queue_.Dropped() - dropped);
    Write();
  }

  void Read() {
    socket_.async_read_some(asio::buffer(buffer_), [self = shared_from_this()](std::error_code error, size_t size) {
      const auto lock = self->server_.Lock();
      if (error) return self->Close();
      self->OnRequests(size);
    });
  }

  void OnRequests(size_t size) {
    std::vector<RequestLines::Line> lines;
    requests_.Add(buffer_.data(), size, &lines);
    for (const RequestLines::Line& line : lines) {
      if (line.tooLong) {
        Send(ErrorJson("Request line too long: at most " + std::to_string(server_.Options().maxRequestLength) +
                       " characters"));
        continue;
      }
      const std::vector<std::string> answers = protocol_.Answer(line.text, server_.State());
      // Counted before the answer goes: a client told it watches sentences
      // gets the next one.
      server_.CountNmeaWatcher(&nmeaCounted_, open_ && protocol_.WantsNmea());
      for (const std::string& answer : answers) Send(answer);
    }
    if (open_) Read();
  }

  // Sends what the socket takes at once; only the rest waits for the
  // network thread, so a client that keeps up costs one send per report.
  void Write() {
    if (writing_ || !open_ || queue_.Empty()) return;
    inFlight_ = queue_.TakeAll();
    std::vector<asio::const_buffer> buffers;
    for (const OutLine& line : inFlight_) buffers.push_back(asio::buffer(*line));
    std::error_code error;
    size_t sent = socket_.write_some(buffers, error);
    if (error && error != asio::error::would_block) return Close();
    size_t done = 0;  // lines sent whole
    while (done < buffers.size() && sent >= buffers[done].size()) sent -= buffers[done++].size();
    if (done == buffers.size()) return inFlight_.clear();
    buffers.erase(buffers.begin(), buffers.begin() + static_cast<std::ptrdiff_t>(done));
    buffers.front() += sent;
    writing_ = true;
    asio::async_write(socket_, buffers, [self = shared_from_this()](std::error_code error, size_t) {
      const auto lock = self->server_.Lock();
      self->writing_ = false;
      self->inFlight_.clear();
      if (error) return self->Close();
      self->Write();
    });
  }

  tcp::socket socket_;
  Server& server_;
  std::array<char, 512> buffer_{};
  RequestLines requests_;
  ClientProtocol protocol_;
  OutQueue queue_;
  std::vector<OutLine> inFlight_;  // what the pending write is sending
  bool writing_ = false;
  bool open_ = true;
  bool nmeaCounted_ = false;  // among the server's raw-sentence readers
};

Server::Server(asio::io_context& io, ServerOptions options, DeviceState device)
    : io_(io), options_(std::move(options)), device_(std::move(device)) {}

Server::~Server() = default;

void Server::Open() {
  for (const tcp::endpoint& endpoint : options_.listen) {
    auto acceptor = std::make_unique<tcp::acceptor>(io_);
    std::error_code error;
    acceptor->open(endpoint.protocol(), error);
    if (!error) acceptor->set_option(tcp::acceptor::reuse_address(true), error);
    // Each address family listens on its own socket, so both can share a port.
    if (!error && endpoint.address().is_v6()) acceptor->set_option(asio::ip::v6_only(true), error);
    if (!error) acceptor->bind(endpoint, error);
    if (!error) acceptor->listen(asio::socket_base::max_listen_connections, error);
    if (error)
      throw std::system_error(
          error, "cannot listen on " + endpoint.address().to_string() + " port " + std::to_string(endpoint.port()));
    endpoints_.push_back(acceptor->local_endpoint());
    acceptors_.push_back(std::move(acceptor));
  }
  for (auto& acceptor : acceptors_) Accept(*acceptor);
}

void Server::Accept(tcp::acceptor& acceptor) {
  acceptor.async_accept([this, &acceptor](std::error_code error, tcp::socket socket) {
    const auto lock = Lock();
    if (closed_) return;
    if (!error) {
      auto client = std::make_shared<Client>(std::move(socket), *this);
      clients_.emplace(client.get(), client);
      clientCount_ = clients_.size();
      client->Start();
      return Accept(acceptor);
    }
    // Out of descriptors or the like: try again a little later rather than spin.
    auto timer = std::make_shared<asio::steady_timer>(io_, std::chrono::milliseconds(100));
    timer->async_wait([this, &acceptor, timer](std::error_code) {
      const auto lock = Lock();
      if (!closed_) Accept(acceptor);
    });
  });
}

void Server::Close() {
  asio::post(io_, [this] {
    const auto lock = Lock();
    closed_ = true;
    for (auto& acceptor : acceptors_) {
      std::error_code ignored;
      acceptor->close(ignored);
    }
    std::vector<std::shared_ptr<Client>> all;
    for (auto& entry : clients_) all.push_back(entry.second);
    for (auto& client : all) client->Close();
  });
}

void Server::Forget(Client* client) {
  clients_.erase(client);
  clientCount_ = clients_.size();
}

ServerState Server::State() const { return {device_, tpv_, sky_, IsoNow()}; }

void Server::Broadcast(Kind kind, const std::string& line) {
  const OutLine shared = std::make_shared<const std::string>(line + "\r\n");
  std::vector<std::shared_ptr<Client>> all;
  all.reserve(clients_.size());
  for (auto& entry : clients_) all.push_back(entry.second);
  for (auto& client : all) client->Deliver(kind == Kind::kJson, shared);
}

// The feed's calls write at once, on the caller's thread: the sockets do
// not block, and what a socket cannot take now stays in its client's queue
// for the network thread.
void Server::Epoch(std::string tpv, std::string sky) {
  const auto lock = Lock();
  tpv_ = std::move(tpv);
  if (sky.empty()) return Broadcast(Kind::kJson, tpv_);
  sky_ = std::move(sky);
  Broadcast(Kind::kJson, tpv_ + "\r\n" + sky_);
}

void Server::CountNmeaWatcher(bool* counted, bool watching) {
  if (*counted == watching) return;
  *counted = watching;
  if (watching)
    ++nmeaWatchers_;
  else
    --nmeaWatchers_;
}

void Server::Nmea(std::string sentence) {
  const auto lock = Lock();
  Broadcast(Kind::kNmea, sentence);
}

void Server::Device(DeviceState state) {
  const auto lock = Lock();
  device_ = std::move(state);
  Broadcast(Kind::kJson, DeviceJson(device_));
}

}  // namespace kavo::serve
