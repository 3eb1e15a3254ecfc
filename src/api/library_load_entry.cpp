// At load the log goes where the .ini beside the library says. Nothing else
// happens at load.
#include "log/logger.h"
#include "platform/library_load.h"
#include "platform/platform.h"

namespace kavo {

void OnLibraryLoad() { ConfigureLoggerAtLoad(Logger::Instance(), platform::ModulePath()); }

}  // namespace kavo
