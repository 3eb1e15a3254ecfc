// Readings as JSON lines in the shape programs reading a GPS daemon's
// stream expect: TPV objects for time, position and velocity, SKY objects
// for the satellites and the dilutions of precision. Field names and units
// follow that stream (metres, metres per second, degrees); fields the
// library cannot give are left out.
#pragma once

#include <cmath>
#include <cstdint>
#include <set>
#include <string>
#include <utility>

#include "session/reading.h"

namespace kavo::cli {

// A number with at most `decimals` places, trailing zeros dropped, never in
// exponent form.
std::string JsonNumber(double value, int decimals);
std::string JsonString(const std::string& text);

// One JSON object, written field by field: the only writer of the tool's
// JSON, so every object of the stream has the same shape.
class JsonObject {
 public:
  explicit JsonObject(const char* cls) { text_.append("{\"class\":\"").append(cls).append("\""); }
  void Raw(const char* name, const std::string& value) { text_.append(",\"").append(name).append("\":").append(value); }
  void Number(const char* name, double value, int decimals) {
    if (std::isfinite(value)) Raw(name, JsonNumber(value, decimals));
  }
  void Integer(const char* name, long long value) { Raw(name, std::to_string(value)); }
  void String(const char* name, const std::string& value) { Raw(name, JsonString(value)); }
  void Bool(const char* name, bool value) { Raw(name, value ? "true" : "false"); }
  std::string Close() { return std::move(text_.append("}")); }

 private:
  std::string text_;
};

std::string TpvJson(const Reading& reading, const std::string& device);
// `used` names the satellites the fix uses ("used" of each).
std::string SkyJson(const Reading& reading, const std::string& device, const std::set<int32_t>& used);

}  // namespace kavo::cli
