// The reference clocks `kavogps serve` feeds, one receiver's epochs each:
// chronyd's SOCK refclock and the shared-memory segment chronyd and ntpd
// both read. They need Unix sockets and System V shared memory, so each
// system's folder has its own file.
#pragma once

#include <memory>
#include <ostream>
#include <string>

#include "serve/fix_time.h"

namespace kavo::serve {

// Whether this system has them; where not, the options say so.
bool TimeOutputsAvailable();

// Sends every sample to the datagram socket chronyd created at `path`.
// Null, with why on `err`, when `path` cannot name a socket. What goes
// wrong later (no chronyd, a path that is not a socket) is told once on
// `err`, and each sample tries again.
std::unique_ptr<TimeOutput> ChronySockOutput(const std::string& path, const std::string& device, std::ostream& err);

// Writes every sample to the shared-memory segment of `unit` (key
// 0x4E545030 + unit), making it when no daemon has. A segment that cannot
// be used is told once on `err`, and each sample tries again.
std::unique_ptr<TimeOutput> NtpShmOutput(int unit, const std::string& device, std::ostream& err);

constexpr int kMaxNtpShmUnit = 255;

}  // namespace kavo::serve
