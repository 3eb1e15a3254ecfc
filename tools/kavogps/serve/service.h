// `kavogps serve` once its command line is read: the server on its
// addresses, its network thread, and the feeds from the receivers.
#pragma once

#include <ostream>
#include <vector>

#include "serve/driver_feed.h"
#include "serve/listen_address.h"
#include "serve/output_options.h"
#include "session/console.h"

namespace kavo::serve {

// Serves every receiver of `sources` to the clients on `listen`, and to
// `extraOutputs`, until interrupted; says where it listens, and what goes
// wrong, on `err`. The tool's exit code.
int ServeReceiver(const std::vector<SourceSpec>& sources, const std::vector<ListenAddress>& listen,
                  const OutputOptions& extraOutputs, std::ostream& err, cli::InterruptWatch& interrupt);

}  // namespace kavo::serve
