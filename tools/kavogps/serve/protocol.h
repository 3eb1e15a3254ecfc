// The request/response protocol GPS clients speak to a GPS daemon: request
// lines such as "?WATCH={...};" in, JSON objects out, one per line. Pure
// text in and out, so it runs without a network.
#pragma once

#include <string>
#include <vector>

#include "serve/feed.h"

namespace kavo::serve {

// A receiver the server serves, and its last reports.
struct ServedDevice {
  DeviceState device;
  std::string tpv;  // the last TPV, empty before the first
  std::string sky;  // the last SKY, likewise
};

// What the server knows that answers depend on.
struct ServerState {
  std::vector<ServedDevice> devices;  // in the order they were named
  std::string now;                    // the time of the answer, ISO 8601
};

std::string VersionJson();
std::string DeviceJson(const DeviceState& device);
std::string DevicesJson(const std::vector<ServedDevice>& devices);
std::string ErrorJson(const std::string& message);
// The time of the system clock as the objects carry it.
std::string IsoNow();

// One client's side: what it watches and the answers to its requests.
class ClientProtocol {
 public:
  // The answers to one request line (without its line end), in order. A
  // line may hold several requests; one that cannot be understood gets an
  // ERROR object and ends the line, never the connection.
  std::vector<std::string> Answer(const std::string& line, const ServerState& state);

  bool WantsJson() const { return watching_ && json_; }
  bool WantsNmea() const { return watching_ && nmea_; }
  // Whether the reports of `device` go to this client.
  bool Watches(const std::string& device) const { return device_.empty() || device == device_; }

 private:
  // Answers one request, `argument` null when it has none; false when the
  // rest of the line goes unanswered (an ERROR is added).
  bool Respond(const std::string& name, const std::string* argument, const ServerState& state,
               std::vector<std::string>* answers);
  // False when `argument` cannot be taken (an ERROR is added).
  bool Watch(const std::string* argument, const ServerState& state, std::vector<std::string>* answers);
  std::string WatchJson() const;

  bool watching_ = false;
  bool json_ = false;
  bool nmea_ = false;
  std::string device_;  // the one device watched; empty: all
};

}  // namespace kavo::serve
