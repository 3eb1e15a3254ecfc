#include "session/option_reader.h"

#include <charconv>

namespace kavo::cli {

bool OptionReader::Next() {
  if (next_ >= args_.size()) return false;
  name_ = args_[next_++];
  inlineValue_.reset();
  const size_t equals = name_.find('=');
  if (name_.rfind("--", 0) == 0 && equals != std::string::npos) {
    inlineValue_ = name_.substr(equals + 1);
    name_.resize(equals);
  }
  return true;
}

bool OptionReader::IsOption() const { return name_.size() > 1 && name_[0] == '-'; }

bool OptionReader::Value(std::string* value) {
  if (inlineValue_) {
    *value = *inlineValue_;
  } else if (next_ < args_.size()) {
    *value = args_[next_++];
  } else {
    return Refuse("needs a value");
  }
  return !value->empty() || Refuse("needs a value");
}

bool OptionReader::Flag(bool* flag) {
  if (inlineValue_) return Refuse("takes no value");
  *flag = true;
  return true;
}

bool OptionReader::Number(int64_t min, int64_t max, const char* expected, int64_t* value) {
  std::string text;
  if (!Value(&text)) return false;
  const char* end = text.data() + text.size();
  const auto result = std::from_chars(text.data(), end, *value);
  if (result.ec == std::errc() && result.ptr == end && *value >= min && *value <= max) return true;
  return Invalid(text, expected);
}

bool OptionReader::Invalid(const std::string& text, const char* expected) {
  error_ = "invalid value '" + text + "' for " + name_ + ": expected " + expected;
  return false;
}

bool OptionReader::Refuse(const std::string& why) {
  error_ = "option " + name_ + " " + why;
  return false;
}

bool OptionReader::Unknown() {
  error_ = (IsOption() ? "unknown option '" : "unexpected argument '") + name_ + "'";
  return false;
}

}  // namespace kavo::cli
