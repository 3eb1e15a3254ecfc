// Where `kavogps serve` listens, as the command line names it:
// "127.0.0.1:2947", "[::1]:2947", "localhost:2947".
#pragma once

#include <optional>
#include <string>

namespace kavo::serve {

constexpr unsigned short kDefaultPort = 2947;

struct ListenAddress {
  std::string address;  // numeric, without brackets
  unsigned short port = kDefaultPort;
};

// Empty when `text` is not an address and port.
std::optional<ListenAddress> ParseListenAddress(const std::string& text);

}  // namespace kavo::serve
