// The network side of `kavogps serve`: listens on TCP, speaks the GPS
// daemon protocol to every client, and hands each the reports the feed
// gives it. Requests and completions run on the thread that runs the
// io_context; the feed's calls, from any thread, send at once what each
// socket takes without waiting and leave the rest queued, so a report
// reaches clients without a thread hand-over and the receiver's reading
// thread never waits on a socket. One lock guards the clients.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include <asio/io_context.hpp>
#include <asio/ip/tcp.hpp>
#include <asio/steady_timer.hpp>

#include "serve/feed.h"
#include "serve/out_queue.h"
#include "serve/protocol.h"

namespace kavo::serve {

struct ServerOptions {
  std::vector<asio::ip::tcp::endpoint> listen;
  size_t queueBytes = 64 * 1024;  // per client; beyond it its oldest lines go
  size_t maxRequestLength = 1024;
};

class Client;

class Server : public FeedSink {
 public:
  Server(asio::io_context& io, ServerOptions options, DeviceState device);
  ~Server() override;

  // Binds and listens on every address; throws std::system_error naming
  // the address that failed.
  void Open();
  // Where it listens (with the ports the system chose for port 0).
  const std::vector<asio::ip::tcp::endpoint>& Endpoints() const { return endpoints_; }
  // Stops listening and closes every connection (from any thread); the
  // io_context's run returns once they are gone.
  void Close();

  void Epoch(std::string tpv, std::string sky) override;
  bool WantsNmea() const override { return nmeaWatchers_ > 0; }
  void Nmea(std::string sentence) override;
  void Device(DeviceState state) override;

  // Connections open, and lines dropped for clients too slow for them.
  size_t ClientCount() const { return clientCount_; }
  uint64_t DroppedLines() const { return dropped_; }

  // For the clients, on the io_context's thread.
  ServerState State() const;
  const ServerOptions& Options() const { return options_; }
  void Forget(Client* client);
  void CountDropped(uint64_t lines) { dropped_ += lines; }
  // Held by every handler and feed call while it touches the clients.
  std::unique_lock<std::mutex> Lock() { return std::unique_lock<std::mutex>(mutex_); }
  // Counts a client in or out of those reading raw sentences.
  void CountNmeaWatcher(bool* counted, bool watching);

 private:
  enum class Kind { kJson, kNmea };
  void Accept(asio::ip::tcp::acceptor& acceptor);
  void Broadcast(Kind kind, const std::string& line);

  asio::io_context& io_;
  std::mutex mutex_;
  ServerOptions options_;
  std::vector<std::unique_ptr<asio::ip::tcp::acceptor>> acceptors_;
  std::vector<asio::ip::tcp::endpoint> endpoints_;
  std::unordered_map<Client*, std::shared_ptr<Client>> clients_;
  DeviceState device_;
  std::string tpv_, sky_;
  bool closed_ = false;
  std::atomic<size_t> clientCount_{0};
  std::atomic<size_t> nmeaWatchers_{0};
  std::atomic<uint64_t> dropped_{0};
};

}  // namespace kavo::serve
