// One connection of `kavogps serve`: reads its requests, answers them, and
// sends it the reports it watches. Its handlers run on the network thread,
// the feed's deliveries on any thread, each with the registry's lock held.
#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <asio/ip/tcp.hpp>

#include "serve/client_registry.h"
#include "serve/out_queue.h"
#include "serve/protocol.h"
#include "serve/request_lines.h"

namespace kavo::serve {

struct ClientLimits {
  size_t queueBytes = 64 * 1024;  // beyond it the oldest lines go
  size_t maxRequestLength = 1024;
};

class Client : public std::enable_shared_from_this<Client> {
 public:
  // `state` tells what the server knows, for the answers.
  Client(asio::ip::tcp::socket socket, ClientRegistry& registry, ClientLimits limits,
         std::function<ServerState()> state);

  // Greets the client and starts reading its requests.
  void Start();
  // Queues `line`, from `device`, when the client watches that device and
  // the line's kind (JSON or raw sentences).
  void Deliver(bool json, const std::string& device, const OutLine& line);
  // Closes the connection, and the registry forgets the client: nothing
  // may use it after this.
  void Close();

 private:
  void Send(const std::string& json);
  void Queue(const OutLine& line);
  void Read();
  void OnRequests(size_t size);
  void Write();

  asio::ip::tcp::socket socket_;
  ClientRegistry& registry_;
  ClientLimits limits_;
  std::function<ServerState()> state_;
  std::array<char, 512> buffer_{};
  RequestLines requests_;
  ClientProtocol protocol_;
  OutQueue queue_;
  std::vector<OutLine> inFlight_;            // what the pending write is sending
  std::vector<asio::const_buffer> buffers_;  // kept from write to write: no allocation per report
  bool writing_ = false;
  bool open_ = true;
  bool nmeaCounted_ = false;  // among the registry's raw-sentence readers
};

}  // namespace kavo::serve
