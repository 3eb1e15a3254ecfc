#include "serve/server.h"

#include <system_error>

#include <asio/ip/v6_only.hpp>
#include <asio/post.hpp>

#include "serve/client.h"

namespace kavo::serve {

using asio::ip::tcp;

Server::Server(asio::io_context& io, ServerOptions options, const std::vector<DeviceState>& devices)
    : io_(io), options_(std::move(options)) {
  for (const DeviceState& device : devices)
    if (!device.path.empty()) Served(device.path).device = device;
}

Server::~Server() = default;

void Server::Open(const std::vector<HandedSocket>& handed) {
  for (const HandedSocket& socket : handed) {
    auto acceptor = std::make_unique<tcp::acceptor>(io_);
    std::error_code error;
    acceptor->assign(socket.ipv6 ? tcp::v6() : tcp::v4(), static_cast<tcp::acceptor::native_handle_type>(socket.handle),
                     error);
    if (error) throw std::system_error(error, "cannot use the socket handed over as " + std::to_string(socket.handle));
    endpoints_.push_back(acceptor->local_endpoint());
    acceptors_.push_back(std::move(acceptor));
  }
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
    const auto lock = clients_.Lock();
    if (closed_) return;
    if (!error) {
      auto client = std::make_shared<Client>(std::move(socket), clients_,
                                             ClientLimits{options_.queueBytes, options_.maxRequestLength},
                                             [this] { return State(); });
      clients_.Add(client);
      client->Start();
      return Accept(acceptor);
    }
    // Out of descriptors or the like: try again a little later rather than spin.
    auto timer = std::make_shared<asio::steady_timer>(io_, std::chrono::milliseconds(100));
    timer->async_wait([this, &acceptor, timer](std::error_code) {
      const auto lock = clients_.Lock();
      if (!closed_) Accept(acceptor);
    });
  });
}

void Server::Close() {
  asio::post(io_, [this] {
    const auto lock = clients_.Lock();
    closed_ = true;
    for (auto& acceptor : acceptors_) {
      std::error_code ignored;
      acceptor->close(ignored);
    }
    for (const auto& client : clients_.All()) client->Close();
  });
}

// A device whose path is not known yet (one a search is to find) is not
// listed.
ServerState Server::State() const {
  ServerState state{{}, IsoNow()};
  for (const ServedDevice& served : devices_)
    if (!served.device.path.empty()) state.devices.push_back(served);
  return state;
}

ServedDevice& Server::Served(const std::string& path) {
  for (ServedDevice& served : devices_)
    if (served.device.path == path) return served;
  devices_.emplace_back();
  devices_.back().device.path = path;
  return devices_.back();
}

void Server::Broadcast(Kind kind, const std::string& device, std::string line) {
  line += "\r\n";
  const OutLine shared = std::make_shared<const std::string>(std::move(line));
  for (const auto& client : clients_.All()) client->Deliver(kind == Kind::kJson, device, shared);
}

// The feed's calls write at once, on the caller's thread: the sockets do
// not block, and what a socket cannot take now stays in its client's queue
// for the network thread.
void Server::Epoch(const std::string& device, std::string tpv, std::string sky) {
  const auto lock = clients_.Lock();
  ServedDevice& served = Served(device);
  served.tpv = std::move(tpv);
  if (sky.empty()) return Broadcast(Kind::kJson, device, served.tpv);
  served.sky = std::move(sky);
  std::string both;
  both.reserve(served.tpv.size() + served.sky.size() + 4);
  both.append(served.tpv).append("\r\n").append(served.sky);
  Broadcast(Kind::kJson, device, std::move(both));
}

void Server::Nmea(const std::string& device, std::string sentence) {
  const auto lock = clients_.Lock();
  Broadcast(Kind::kNmea, device, std::move(sentence));
}

void Server::Device(DeviceState state) {
  const auto lock = clients_.Lock();
  if (state.path.empty()) return;  // not found yet: nothing to tell
  ServedDevice& served = Served(state.path);
  served.device = std::move(state);
  Broadcast(Kind::kJson, served.device.path, DeviceJson(served.device));
}

}  // namespace kavo::serve
