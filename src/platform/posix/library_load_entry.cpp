// Runs when the shared library is loaded, as DllMain's process attach does
// on Windows: the log goes where the .ini beside the library says.
#include "log/logger.h"
#include "platform/platform.h"

namespace {

__attribute__((constructor)) void ConfigureAtLoad() {
  kavo::ConfigureLoggerAtLoad(kavo::Logger::Instance(), kavo::platform::ModulePath());
}

}  // namespace
