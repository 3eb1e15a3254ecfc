#include <fcntl.h>
#include <io.h>

#include <cstdio>

#include "commands/live_receiver.h"
#include "commands/simulate_command.h"

namespace kavo::cli {

// Windows has no pseudo-terminals to stand in for a serial port.
bool LiveReceiverAvailable() { return false; }

void UseBinaryStandardOutput() { _setmode(_fileno(stdout), _O_BINARY); }

int RunLiveReceiver(const SimulateSettings&, std::ostream&, std::ostream& err) {
  err << "kavogps simulate: a live receiver is not available on this platform\n";
  return kExitUsage;
}

}  // namespace kavo::cli
