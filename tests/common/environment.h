// Sets an environment variable of this process for the life of the object,
// and clears it afterwards.
#pragma once

#include <string>

namespace kavo::test {

class ScopedEnvironment {
 public:
  ScopedEnvironment(const std::string& name, const std::string& value);
  ~ScopedEnvironment();
  ScopedEnvironment(const ScopedEnvironment&) = delete;
  ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

 private:
  std::string name_;
};

}  // namespace kavo::test
