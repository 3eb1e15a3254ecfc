#include "serve/epoch_cutter.h"

#include <vector>

namespace kavo::serve {
namespace {

std::vector<std::string> Fields(const std::string& sentence) {
  std::vector<std::string> fields(1);
  for (char c : sentence.substr(0, sentence.find('*'))) {
    if (c == ',') fields.emplace_back();
    else fields.back() += c;
  }
  return fields;
}

// The sentence's kind without its talker: "GGA" for $GPGGA and $GNGGA. A
// satellite cycle's last part is a kind of its own, since only it ends one.
std::string Kind(const std::vector<std::string>& fields) {
  const std::string& address = fields[0];
  std::string kind = address.size() == 6 && address[1] != 'P' ? address.substr(3) : address.substr(1);
  if (kind == "GSV") kind = fields.size() > 2 && fields[1] == fields[2] ? "GSV" : "GSV part";
  return kind;
}

std::string FixTime(const std::string& kind, const std::vector<std::string>& fields) {
  size_t index = 0;
  if (kind == "GGA" || kind == "RMC" || kind == "ZDA" || kind == "GNS") index = 1;
  else if (kind == "GLL") index = 5;
  return index > 0 && index < fields.size() ? fields[index] : std::string();
}

}  // namespace

EpochCutter::Cut EpochCutter::Next(const std::string& sentence) {
  const std::vector<std::string> fields = Fields(sentence);
  const std::string kind = Kind(fields);
  const std::string time = FixTime(kind, fields);
  Cut cut;
  if (!time.empty() && time != time_) {
    if (!time_.empty()) {
      ender_ = last_;
      cut.before = !reported_;
    }
    time_ = time;
    reported_ = false;
  }
  last_ = kind;
  if (kind == ender_ && !reported_) {
    cut.after = true;
    reported_ = true;
  }
  return cut;
}

}  // namespace kavo::serve
