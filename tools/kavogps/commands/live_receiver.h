// The live receiver of `kavogps simulate --pty`, and how the tool's standard
// output is set up; per-OS files implement these.
#pragma once

#include <ostream>

namespace kavo::cli {

struct SimulateSettings;

// Whether this platform offers a live receiver (pseudo-terminals).
bool LiveReceiverAvailable();
// Streams the simulation on a new pseudo-terminal until SIGINT or SIGTERM,
// or for the duration when one was given. Prints the device path on `out`.
int RunLiveReceiver(const SimulateSettings& settings, std::ostream& out, std::ostream& err);
// Standard output that passes CR LF through unchanged.
void UseBinaryStandardOutput();

}  // namespace kavo::cli
