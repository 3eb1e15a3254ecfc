// `kavogps serve`: shares one receiver (a recording, a port or the port a
// search finds) with every program that speaks the GPS daemon protocol.
#pragma once

#include <string>
#include <vector>

#include <asio/ip/tcp.hpp>

#include "commands/commands.h"
#include "serve/driver_feed.h"
#include "session/receiver_settings.h"

namespace kavo::serve {

struct ServeSettings {
  SourceSpec source;
  std::vector<asio::ip::tcp::endpoint> listen;  // empty: the default
  bool help = false;
  cli::ReceiverSettings receiver;
};

constexpr unsigned short kDefaultPort = 2947;

bool ParseServeArguments(const cli::Arguments& args, ServeSettings* settings, std::string* error);
// "127.0.0.1:2947", "[::1]:2947"; false when it is not an address and port.
bool ParseListenAddress(const std::string& text, asio::ip::tcp::endpoint* endpoint);

int RunServe(const cli::Arguments& args, std::ostream& out, std::ostream& err);

}  // namespace kavo::serve
