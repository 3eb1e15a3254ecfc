// `kavogps play`: plays a recorded NMEA file through the library, as if a
// receiver were attached, and shows what it decodes.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>

#include "session/command_line.h"
#include "session/session_output.h"

namespace kavo::cli {

struct PlaySettings {
  std::string file;  // empty: the bundled walk.nmea
  int64_t intervalMs = 100;
  bool repeat = false;
  bool help = false;
  OutputOptions output;
};

bool ParsePlayArguments(const Arguments& args, PlaySettings* settings, std::string* error);

int RunPlay(const Arguments& args, std::ostream& out, std::ostream& err);

}  // namespace kavo::cli
