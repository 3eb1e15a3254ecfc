// The network side of `kavogps serve`: listens on TCP, speaks the GPS
// daemon protocol to every client, and hands each the reports the feed
// gives it. Requests and completions run on the thread that runs the
// io_context; the feed's calls, from any thread, send at once what each
// socket takes without waiting and leave the rest queued, so a report
// reaches clients without a thread hand-over and the receiver's reading
// thread never waits on a socket. The client registry's lock guards the
// clients and the state their answers read.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <asio/io_context.hpp>
#include <asio/ip/tcp.hpp>
#include <asio/steady_timer.hpp>

#include "serve/client_registry.h"
#include "serve/feed.h"
#include "serve/handed_sockets.h"
#include "serve/protocol.h"

namespace kavo::serve {

struct ServerOptions {
  std::vector<asio::ip::tcp::endpoint> listen;
  size_t queueBytes = 64 * 1024;  // per client; beyond it its oldest lines go
  size_t maxRequestLength = 1024;
};

class Server : public FeedSink {
 public:
  // `devices`: the receivers named so far, in order; those the feed names
  // later are added as it does.
  Server(asio::io_context& io, ServerOptions options, const std::vector<DeviceState>& devices);
  ~Server() override;

  // Listens on the sockets a service manager handed over, already
  // listening, then binds and listens on every address of the options;
  // throws std::system_error naming the socket or address that failed.
  void Open(const std::vector<HandedSocket>& handed = {});
  // Where it listens (with the ports the system chose for port 0).
  const std::vector<asio::ip::tcp::endpoint>& Endpoints() const { return endpoints_; }
  // Stops listening and closes every connection (from any thread); the
  // io_context's run returns once they are gone.
  void Close();

  void Epoch(const std::string& device, std::string tpv, std::string sky) override;
  bool WantsNmea() const override { return clients_.AnyNmeaWatcher(); }
  void Nmea(const std::string& device, std::string sentence) override;
  void Device(DeviceState state) override;

  // Connections open, and lines dropped for clients too slow for them.
  size_t ClientCount() const { return clients_.Count(); }
  uint64_t DroppedLines() const { return clients_.Dropped(); }

 private:
  enum class Kind { kJson, kNmea };
  void Accept(asio::ip::tcp::acceptor& acceptor);
  void Broadcast(Kind kind, const std::string& device, std::string line);
  // The device of that path, added when new; with the registry's lock held.
  ServedDevice& Served(const std::string& path);
  // What the clients' answers depend on, with the registry's lock held.
  ServerState State() const;

  asio::io_context& io_;
  ServerOptions options_;
  std::vector<std::unique_ptr<asio::ip::tcp::acceptor>> acceptors_;
  std::vector<asio::ip::tcp::endpoint> endpoints_;
  ClientRegistry clients_;
  std::vector<ServedDevice> devices_;
  bool closed_ = false;
};

}  // namespace kavo::serve
