#include "serve/epoch_cutter.h"

#include <cstdlib>
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

int Number(const std::string& text, size_t at, size_t length) { return std::atoi(text.substr(at, length).c_str()); }

// Days since 1 March of year 0 in the civil calendar (Howard Hinnant's
// days-from-civil), for OLE dates.
long DaysFromCivil(int year, int month, int day) {
  year -= month <= 2;
  const long era = (year >= 0 ? year : year - 399) / 400;
  const long yearOfEra = year - era * 400;
  const long dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
  return era * 146097 + yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
}

}  // namespace

double EpochCutter::EpochDate(const std::string& time) const {
  if (year_ == 0 || month_ < 1 || month_ > 12 || day_ < 1 || day_ > 31 || time.size() < 6) return 0;
  const double seconds = Number(time, 0, 2) * 3600.0 + Number(time, 2, 2) * 60.0 + std::atof(time.c_str() + 4);
  const long days = DaysFromCivil(year_, month_, day_) - DaysFromCivil(1899, 12, 30);
  return static_cast<double>(days) + seconds / 86400.0;
}

EpochCutter::Cut EpochCutter::Next(const std::string& sentence) {
  const std::vector<std::string> fields = Fields(sentence);
  const std::string kind = Kind(fields);
  const std::string time = FixTime(kind, fields);
  Cut cut;
  if (!time.empty() && time != time_) {
    if (!time_.empty()) {
      ender_ = last_;
      cut.before = !reported_;
      cut.beforeTime = EpochDate(time_);
    }
    time_ = time;
    reported_ = false;
  }
  if (kind == "RMC" && fields.size() > 9 && fields[9].size() == 6) {
    year_ = 2000 + Number(fields[9], 4, 2);
    month_ = Number(fields[9], 2, 2);
    day_ = Number(fields[9], 0, 2);
  } else if (kind == "ZDA" && fields.size() > 4 && fields[4].size() == 4) {
    year_ = Number(fields[4], 0, 4);
    month_ = Number(fields[3], 0, 2);
    day_ = Number(fields[2], 0, 2);
  }
  if (kind == "GSA") {
    // Consecutive GSA sentences (one per constellation) make one list.
    if (last_ != kind) used_.clear();
    for (size_t i = 3; i < fields.size() && i <= 14; ++i)
      if (!fields[i].empty()) used_.insert(std::atoi(fields[i].c_str()));
  }
  last_ = kind;
  if (kind == ender_ && !reported_) {
    cut.after = true;
    cut.afterTime = EpochDate(time_);
    reported_ = true;
  }
  return cut;
}

}  // namespace kavo::serve
