// Windows has neither chronyd's socket nor System V shared memory: the
// options that ask for them are refused before anything starts.
#include "serve/time_outputs.h"

namespace kavo::serve {

bool TimeOutputsAvailable() { return false; }

std::unique_ptr<TimeOutput> ChronySockOutput(const std::string&, const std::string&, std::ostream& err) {
  err << "kavogps serve: chronyd's socket is not available on Windows\n";
  return nullptr;
}

std::unique_ptr<TimeOutput> NtpShmOutput(int, const std::string&, std::ostream& err) {
  err << "kavogps serve: NTP shared memory is not available on Windows\n";
  return nullptr;
}

}  // namespace kavo::serve
