#include "serve/protocol.h"

#include <cctype>
#include <chrono>

#include <nlohmann/json.hpp>

#include "session/json_report.h"

namespace kavo::serve {
namespace {

using cli::JsonObject;

// Levels of the protocol whose objects and requests these answers follow.
constexpr int kProtoMajor = 3;
constexpr int kProtoMinor = 14;

// Client text quoted back in a message: printable ASCII only, kept short,
// so the message is valid JSON whatever the client sent.
std::string Quoted(const std::string& text) {
  std::string shown;
  for (char c : text.substr(0, 40)) shown += std::isprint(static_cast<unsigned char>(c)) ? c : '?';
  return "'" + shown + (text.size() > 40 ? "...'" : "'");
}

// Where the JSON object starting at `begin` ends (one past its closing
// brace), or npos when the line ends first.
size_t ObjectEnd(const std::string& line, size_t begin) {
  int depth = 0;
  bool inString = false;
  for (size_t i = begin; i < line.size(); ++i) {
    const char c = line[i];
    if (inString) {
      if (c == '\\')
        ++i;
      else if (c == '"')
        inString = false;
    } else if (c == '"') {
      inString = true;
    } else if (c == '{' || c == '[') {
      ++depth;
    } else if ((c == '}' || c == ']') && --depth == 0) {
      return i + 1;
    }
  }
  return std::string::npos;
}

// The items of a JSON array.
std::string Items(const std::vector<std::string>& items) {
  std::string joined;
  for (const std::string& item : items) joined += (joined.empty() ? "" : ",") + item;
  return "[" + joined + "]";
}

// A TPV and a SKY for each device: a device without a fix yet has a TPV of
// mode 0, so that every device is answered for.
std::string PollJson(const ServerState& state) {
  JsonObject poll("POLL");
  poll.String("time", state.now);
  int active = 0;
  std::vector<std::string> tpvs, skies;
  for (const ServedDevice& served : state.devices) {
    active += !served.device.activated.empty();
    if (served.tpv.empty()) {
      JsonObject none("TPV");
      none.String("device", served.device.path);
      none.Integer("mode", 0);
      tpvs.push_back(none.Close());
    } else {
      tpvs.push_back(served.tpv);
    }
    if (!served.sky.empty()) skies.push_back(served.sky);
  }
  poll.Integer("active", active);
  poll.Raw("tpv", Items(tpvs));
  poll.Raw("sky", Items(skies));
  return poll.Close();
}

}  // namespace

std::string IsoNow() {
  using namespace std::chrono;
  const auto ms = duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
  GPSLocation clock{};
  clock.TimeType = GPS_TIME_FULL;
  clock.Time = 25569.0 + static_cast<double>(ms) / 86400000.0;  // days since 30 December 1899
  return cli::IsoTime(clock);
}

std::string VersionJson() {
  JsonObject version("VERSION");
  version.String("release", KAVOGPS_VERSION);
  version.String("rev", std::string("kavogps ") + KAVOGPS_VERSION);
  version.Integer("proto_major", kProtoMajor);
  version.Integer("proto_minor", kProtoMinor);
  return version.Close();
}

std::string DeviceJson(const DeviceState& device) {
  JsonObject object("DEVICE");
  object.String("path", device.path);
  if (device.activated.empty()) {
    object.Integer("activated", 0);  // how clients learn that a device went away
    return object.Close();
  }
  object.String("driver", device.driver);
  object.String("activated", device.activated);
  object.Integer("flags", 1);  // GPS data
  object.Integer("native", 0);
  if (device.bps > 0) {
    object.Integer("bps", device.bps);
    object.String("parity", "N");
    object.String("stopbits", "1");
  }
  return object.Close();
}

std::string DevicesJson(const std::vector<ServedDevice>& devices) {
  std::vector<std::string> items;
  for (const ServedDevice& served : devices) items.push_back(DeviceJson(served.device));
  JsonObject object("DEVICES");
  object.Raw("devices", Items(items));
  return object.Close();
}

std::string ErrorJson(const std::string& message) {
  JsonObject error("ERROR");
  error.String("message", message);
  return error.Close();
}

namespace {

// One request of a line: "?NAME;" or "?NAME={...};".
struct Request {
  std::string name;
  bool hasArgument = false;
  std::string argument;
};

// Reads the request at `*pos`, which moves past it; an ERROR object's text
// in `*error` when it cannot be read.
bool ReadRequest(const std::string& line, size_t* pos, Request* request, std::string* error) {
  const size_t start = *pos;
  if (line[start] != '?') {
    *error = ErrorJson("Unrecognized request " + Quoted(line.substr(start)));
    return false;
  }
  size_t end = start + 1;
  while (end < line.size() && std::isalpha(static_cast<unsigned char>(line[end]))) ++end;
  request->name = line.substr(start + 1, end - start - 1);
  request->hasArgument = end < line.size() && line[end] == '=';
  if (request->hasArgument) {
    const size_t objectEnd = ObjectEnd(line, end + 1);
    if (objectEnd == std::string::npos) {
      *error = ErrorJson("Invalid " + request->name + ": its JSON argument is incomplete");
      return false;
    }
    request->argument = line.substr(end + 1, objectEnd - end - 1);
    end = objectEnd;
  } else if (end < line.size() && line[end] != ';') {
    *error = ErrorJson("Unrecognized request " + Quoted(line.substr(start)));
    return false;
  }
  *pos = end;
  return true;
}

}  // namespace

std::vector<std::string> ClientProtocol::Answer(const std::string& line, const ServerState& state) {
  std::vector<std::string> answers;
  size_t pos = 0;
  for (;;) {
    pos = line.find_first_not_of(" \t\r;", pos);
    if (pos == std::string::npos) return answers;
    Request request;
    std::string error;
    if (!ReadRequest(line, &pos, &request, &error)) {
      answers.push_back(error);
      return answers;
    }
    if (!Respond(request.name, request.hasArgument ? &request.argument : nullptr, state, &answers)) return answers;
  }
}

bool ClientProtocol::Respond(const std::string& name, const std::string* argument, const ServerState& state,
                             std::vector<std::string>* answers) {
  if (name == "VERSION" && !argument) {
    answers->push_back(VersionJson());
  } else if (name == "DEVICES" && !argument) {
    answers->push_back(DevicesJson(state.devices));
  } else if (name == "DEVICE" && !argument) {
    // The first device's settings: this server changes none of them.
    answers->push_back(DeviceJson(state.devices.empty() ? DeviceState{} : state.devices.front().device));
  } else if (name == "DEVICE") {
    answers->push_back(ErrorJson("Device settings cannot be changed through this server"));
  } else if (name == "POLL" && !argument) {
    answers->push_back(PollJson(state));
  } else if (name == "WATCH") {
    return Watch(argument, state, answers);
  } else {
    answers->push_back(
        ErrorJson("Unrecognized request '?" + Quoted(name).substr(1) + (argument ? " with an argument" : "")));
    return false;
  }
  return true;
}

bool ClientProtocol::Watch(const std::string* argument, const ServerState& state, std::vector<std::string>* answers) {
  if (argument) {
    const nlohmann::json policy = nlohmann::json::parse(*argument, nullptr, false);
    if (!policy.is_object()) {
      answers->push_back(ErrorJson("Invalid WATCH: its argument is not a JSON object"));
      return false;
    }
    bool enable = true, json = json_, nmea = nmea_;
    std::string device = device_;
    for (const auto& [key, value] : policy.items()) {
      const bool isFlag = key == "enable" || key == "json" || key == "nmea";
      if (isFlag && !value.is_boolean()) {
        answers->push_back(ErrorJson("Invalid WATCH: '" + key + "' must be true or false"));
        return false;
      }
      if (key == "raw" && !value.is_number_integer()) {
        answers->push_back(ErrorJson("Invalid WATCH: 'raw' must be 0, 1 or 2"));
        return false;
      }
      if (key == "device" && !value.is_string()) {
        answers->push_back(ErrorJson("Invalid WATCH: 'device' must be a device's path"));
        return false;
      }
      if (key == "enable")
        enable = value.get<bool>();
      else if (key == "json")
        json = value.get<bool>();
      else if (key == "nmea")
        nmea = value.get<bool>();
      else if (key == "raw")
        nmea = value > 0;  // raw sentences are what raw mode shows
      else if (key == "device")
        device = value.get<std::string>();
    }
    // A watcher that asks for no kind of report wants the reports.
    if (enable && !json && !nmea) json = !policy.contains("json");
    watching_ = enable;
    json_ = enable && json;
    nmea_ = enable && nmea;
    device_ = device;
  }
  if (watching_) answers->push_back(DevicesJson(state.devices));
  answers->push_back(WatchJson());
  return true;
}

std::string ClientProtocol::WatchJson() const {
  JsonObject watch("WATCH");
  watch.Bool("enable", watching_);
  watch.Bool("json", json_);
  watch.Bool("nmea", nmea_);
  watch.Integer("raw", 0);
  watch.Bool("scaled", false);
  watch.Bool("timing", false);
  watch.Bool("split24", false);
  watch.Bool("pps", false);
  if (!device_.empty()) watch.String("device", device_);
  return watch.Close();
}

}  // namespace kavo::serve
