// The data side of `kavogps serve` for every receiver it serves: a
// DriverFeed each, on a thread of its own, with the receiver's time
// outputs. A receiver that fails, or whose feed ends, leaves the others
// serving.
#pragma once

#include <vector>

#include "serve/driver_feed.h"
#include "serve/line_log.h"
#include "session/waiter.h"

namespace kavo::serve {

// Feeds `sink` from every source until `interrupt` stops them, or until
// every feed has ended by itself. The tool's exit code: success when
// interrupted, else the first source's failure.
int RunReceiverFeeds(const std::vector<SourceSpec>& sources, FeedSink& sink, LineLog& log, cli::Waiter& interrupt);

}  // namespace kavo::serve
