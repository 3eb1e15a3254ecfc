// Readings as JSON lines in the shape programs reading a GPS daemon's
// stream expect: TPV objects for time, position and velocity, SKY objects
// for the satellites and the dilutions of precision. Field names and units
// follow that stream (metres, metres per second, degrees); fields the
// library cannot give are left out.
#pragma once

#include <cmath>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "session/reading.h"

namespace kavo::cli {

// A number with at most `decimals` places, trailing zeros dropped, never in
// exponent form; appended to `out`, or returned.
void AppendJsonNumber(std::string* out, double value, int decimals);
std::string JsonNumber(double value, int decimals);
void AppendInteger(std::string* out, long long value);
std::string JsonString(const std::string& text);

// One JSON object, written field by field: the only writer of the tool's
// JSON, so every object of the stream has the same shape.
class JsonObject {
 public:
  // `expected`: about the length it will have, so that it grows at most once.
  explicit JsonObject(const char* cls, size_t expected = 384) {
    text_.reserve(expected);
    text_.append("{\"class\":\"").append(cls).append("\"");
  }
  // Starts field `name`: its value is what the caller appends to the text returned.
  std::string& Value(const char* name) { return text_.append(",\"").append(name).append("\":"); }
  void Raw(const char* name, const std::string& value) { Value(name).append(value); }
  void Number(const char* name, double value, int decimals) {
    if (std::isfinite(value)) AppendJsonNumber(&Value(name), value, decimals);
  }
  void Integer(const char* name, long long value) { AppendInteger(&Value(name), value); }
  void String(const char* name, const std::string& value) { Raw(name, JsonString(value)); }
  void Bool(const char* name, bool value) { Raw(name, value ? "true" : "false"); }
  std::string Close() { return std::move(text_.append("}")); }

 private:
  std::string text_;
};

std::string TpvJson(const Reading& reading, const std::string& device);
// `used` names the satellites the fix uses ("used" of each), in ascending order.
std::string SkyJson(const Reading& reading, const std::string& device, const std::vector<int32_t>& used);

}  // namespace kavo::cli
