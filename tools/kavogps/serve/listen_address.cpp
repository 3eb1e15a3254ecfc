#include "serve/listen_address.h"

#include <system_error>

#include <asio/ip/address.hpp>

namespace kavo::serve {

std::optional<ListenAddress> ParseListenAddress(const std::string& text) {
  const size_t colon = text.rfind(':');
  if (colon == std::string::npos || colon + 1 == text.size()) return std::nullopt;
  std::string host = text.substr(0, colon);
  if (host.size() >= 2 && host.front() == '[' && host.back() == ']')
    host = host.substr(1, host.size() - 2);
  else if (host.find(':') != std::string::npos)
    return std::nullopt;  // an IPv6 address needs its brackets
  const std::string port = text.substr(colon + 1);
  if (port.size() > 5 || port.find_first_not_of("0123456789") != std::string::npos || std::stoul(port) > 65535)
    return std::nullopt;
  std::error_code error;
  const asio::ip::address address = asio::ip::make_address(host == "localhost" ? "127.0.0.1" : host, error);
  if (error) return std::nullopt;
  return ListenAddress{address.to_string(), static_cast<unsigned short>(std::stoul(port))};
}

}  // namespace kavo::serve
