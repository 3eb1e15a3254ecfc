#include "common/environment.h"

#include <stdlib.h>

namespace kavo::test {

ScopedEnvironment::ScopedEnvironment(const std::string& name, const std::string& value) : name_(name) {
  setenv(name.c_str(), value.c_str(), 1);
}

ScopedEnvironment::~ScopedEnvironment() { unsetenv(name_.c_str()); }

}  // namespace kavo::test
