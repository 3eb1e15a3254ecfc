// Where `serve --mqtt` publishes, as the command line names it:
// mqtt://[user[:password]@]host[:port]/topic-prefix, or mqtts:// for TLS.
#pragma once

#include <optional>
#include <string>

namespace kavo::serve {

struct BrokerAddress {
  std::string host;  // without the brackets of an IPv6 address
  int port = 1883;   // 8883 for mqtts
  bool tls = false;
  std::string user, password;      // percent-decoded; empty user: none
  std::string prefix = "kavogps";  // the topics' first levels, no '/' at either end
};

// Empty, with `*why` set, when `url` is not such an address.
std::optional<BrokerAddress> ParseBrokerUrl(const std::string& url, std::string* why);

// The address as it may be shown: without the password.
std::string Shown(const BrokerAddress& broker);

}  // namespace kavo::serve
