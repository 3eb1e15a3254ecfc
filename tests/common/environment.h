// Sets an environment variable for the life of the object, then clears it.
#pragma once

#include <string>

namespace kavo::test {

class ScopedEnvironment {
 public:
  ScopedEnvironment(const std::string& name, const std::string& value);
  ~ScopedEnvironment();

 private:
  std::string name_;
};

}  // namespace kavo::test
