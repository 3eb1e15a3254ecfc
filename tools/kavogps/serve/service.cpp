#include "serve/service.h"

#include <stdexcept>
#include <system_error>
#include <thread>

#include <asio/io_context.hpp>

#include "serve/feed_fan_out.h"
#include "serve/handed_sockets.h"
#include "serve/line_log.h"
#include "serve/outputs.h"
#include "serve/receiver_feeds.h"
#include "serve/server.h"
#include "session/command_line.h"

namespace kavo::serve {
namespace {

using asio::ip::tcp;

std::string Shown(const tcp::endpoint& endpoint) {
  const std::string address = endpoint.address().to_string();
  return (endpoint.address().is_v6() ? "[" + address + "]" : address) + ":" + std::to_string(endpoint.port());
}

}  // namespace

int ServeReceiver(const std::vector<SourceSpec>& sources, const std::vector<ListenAddress>& listen,
                  const OutputOptions& extraOutputs, std::ostream& err, cli::InterruptWatch& interrupt) {
  ServerOptions options;
  std::vector<HandedSocket> handed;
  try {
    handed = TakeHandedSockets();
  } catch (const std::runtime_error& e) {
    err << "kavogps serve: " << e.what() << '\n';
    return cli::kExitFailure;
  }
  for (const ListenAddress& address : listen)
    options.listen.emplace_back(asio::ip::make_address(address.address), address.port);
  // Sockets from a service manager stand for the default address.
  if (options.listen.empty() && handed.empty())
    options.listen.emplace_back(asio::ip::make_address("127.0.0.1"), kDefaultPort);

  asio::io_context io;
  // Clients that come before the feeds start see the devices named.
  std::vector<DeviceState> named;
  for (const SourceSpec& source : sources) named.push_back(NamedDevice(source));
  Server server(io, options, named);
  try {
    server.Open(handed);
  } catch (const std::system_error& e) {
    err << "kavogps serve: " << e.what() << '\n';
    return cli::kExitFailure;
  }
  FeedFanOut outputs;
  outputs.Add(server);
  Outputs extra;
  if (!extra.Open(extraOutputs, io, outputs, err)) return cli::kExitFailure;
  // Said once every output is open: whoever waits for it finds them all.
  for (const tcp::endpoint& endpoint : server.Endpoints())
    err << "kavogps serve: listening on " << Shown(endpoint) << '\n';
  err.flush();
  std::thread network([&io] { io.run(); });
  LineLog log(err);
  const int code = RunReceiverFeeds(sources, outputs, log, interrupt);
  extra.Close();
  server.Close();
  network.join();
  return code;
}

}  // namespace kavo::serve
