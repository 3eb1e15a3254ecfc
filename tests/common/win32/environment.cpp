#include "common/environment.h"

#include <stdlib.h>

namespace kavo::test {

ScopedEnvironment::ScopedEnvironment(const std::string& name, const std::string& value) : name_(name) {
  _putenv_s(name.c_str(), value.c_str());
}

ScopedEnvironment::~ScopedEnvironment() { _putenv_s(name_.c_str(), ""); }

}  // namespace kavo::test
