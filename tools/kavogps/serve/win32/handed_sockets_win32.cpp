#include "serve/handed_sockets.h"

namespace kavo::serve {

// No service manager on Windows hands sockets over this way.
std::vector<HandedSocket> TakeHandedSockets() { return {}; }

}  // namespace kavo::serve
