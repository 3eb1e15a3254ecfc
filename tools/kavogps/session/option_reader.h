// Walks a command's arguments: options as "--name value" or "--name=value",
// flags, and plain arguments, with one message for whatever is wrong.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "session/command_line.h"

namespace kavo::cli {

class OptionReader {
 public:
  explicit OptionReader(const Arguments& args) : args_(args) {}

  // Moves to the next argument; false at the end.
  bool Next();
  // Whether the current argument is an option ("-" alone is a plain argument).
  bool IsOption() const;
  // The option's name without an "=value" part, or the plain argument.
  const std::string& Name() const { return name_; }

  // The option's value, from "=value" or the next argument.
  bool Value(std::string* value);
  // A flag takes no value.
  bool Flag(bool* flag);
  // A whole number from `min` to `max`; `expected` says what is wanted.
  bool Number(int64_t min, int64_t max, const char* expected, int64_t* value);

  // Refuses the option's value `text`, saying what was `expected`.
  bool Invalid(const std::string& text, const char* expected);
  // Refuses the current option: "option NAME <why>".
  bool Refuse(const std::string& why);
  // Refuses the current argument as unknown.
  bool Unknown();
  const std::string& Error() const { return error_; }

 private:
  const Arguments& args_;
  size_t next_ = 0;
  std::string name_;
  std::optional<std::string> inlineValue_;
  std::string error_;
};

}  // namespace kavo::cli
