#include "serve/broker_address.h"

#include <charconv>

namespace kavo::serve {
namespace {

// "%40" for '@' and the like, so that a password may hold any character.
std::optional<std::string> PercentDecoded(const std::string& text) {
  std::string decoded;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      decoded += text[i];
      continue;
    }
    unsigned value = 0;
    const char* digits = text.data() + i + 1;
    if (i + 2 >= text.size() || std::from_chars(digits, digits + 2, value, 16).ptr != digits + 2) return std::nullopt;
    decoded += static_cast<char>(value);
    i += 2;
  }
  return decoded;
}

bool ReadPort(const std::string& text, int* port) {
  const char* end = text.data() + text.size();
  const auto [last, error] = std::from_chars(text.data(), end, *port);
  return error == std::errc() && last == end && *port >= 1 && *port <= 65535;
}

bool Refused(std::string* why, const char* reason) {
  *why = reason;
  return false;
}

// Each step reads its part of the URL into `broker`, or says why it cannot.
bool ReadScheme(const std::string& url, BrokerAddress* broker, std::string* rest, std::string* why) {
  if (url.rfind("mqtt://", 0) == 0) {
    *rest = url.substr(7);
  } else if (url.rfind("mqtts://", 0) == 0) {
    *rest = url.substr(8);
    broker->tls = true;
    broker->port = 8883;
  } else {
    return Refused(why, "expected mqtt://[USER[:PASSWORD]@]HOST[:PORT]/PREFIX or mqtts://...");
  }
  return true;
}

bool ReadPrefix(std::string prefix, BrokerAddress* broker, std::string* why) {
  while (!prefix.empty() && prefix.back() == '/') prefix.pop_back();
  if (prefix.find_first_of("+#") != std::string::npos || prefix.rfind('/', 0) == 0)
    return Refused(why, "the topic prefix may not hold '+' or '#', nor start with '/'");
  if (!prefix.empty()) broker->prefix = prefix;
  return true;
}

// Takes USER[:PASSWORD]@ off the front of `authority`, when there.
bool ReadCredentials(std::string* authority, BrokerAddress* broker, std::string* why) {
  const size_t at = authority->rfind('@');
  if (at == std::string::npos) return true;
  const std::string credentials = authority->substr(0, at);
  const size_t colon = credentials.find(':');
  const auto user = PercentDecoded(credentials.substr(0, colon));
  const auto password = PercentDecoded(colon == std::string::npos ? "" : credentials.substr(colon + 1));
  if (!user || !password || user->empty())
    return Refused(why, "the user name is empty or a '%' in the user or password is not followed by two hex digits");
  broker->user = *user;
  broker->password = *password;
  authority->erase(0, at + 1);
  return true;
}

bool ReadHostAndPort(const std::string& authority, BrokerAddress* broker, std::string* why) {
  std::string port;
  if (authority.rfind('[', 0) == 0) {
    const size_t close = authority.find(']');
    if (close == std::string::npos) return Refused(why, "an IPv6 address needs its closing ']'");
    broker->host = authority.substr(1, close - 1);
    if (close + 1 < authority.size()) {
      if (authority[close + 1] != ':') return Refused(why, "expected ':PORT' after ']'");
      port = authority.substr(close + 2);
      if (port.empty()) port = "-";  // a colon without a port
    }
  } else {
    const size_t colon = authority.find(':');
    broker->host = authority.substr(0, colon);
    if (colon != std::string::npos) port = authority.substr(colon + 1) + (colon + 1 == authority.size() ? "-" : "");
  }
  if (broker->host.empty()) return Refused(why, "no broker host");
  if (!port.empty() && !ReadPort(port, &broker->port)) return Refused(why, "the port must be a number from 1 to 65535");
  return true;
}

}  // namespace

std::optional<BrokerAddress> ParseBrokerUrl(const std::string& url, std::string* why) {
  BrokerAddress broker;
  std::string rest;
  if (!ReadScheme(url, &broker, &rest, why)) return std::nullopt;
  const size_t slash = rest.find('/');
  std::string authority = rest.substr(0, slash);
  if (slash != std::string::npos && !ReadPrefix(rest.substr(slash + 1), &broker, why)) return std::nullopt;
  if (!ReadCredentials(&authority, &broker, why) || !ReadHostAndPort(authority, &broker, why)) return std::nullopt;
  return broker;
}

std::string Shown(const BrokerAddress& broker) {
  const std::string host = broker.host.find(':') == std::string::npos ? broker.host : "[" + broker.host + "]";
  return (broker.tls ? "mqtts://" : "mqtt://") + (broker.user.empty() ? "" : broker.user + "@") + host + ":" +
         std::to_string(broker.port) + "/" + broker.prefix;
}

}  // namespace kavo::serve
