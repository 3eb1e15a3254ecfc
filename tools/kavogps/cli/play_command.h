// `kavogps play`: plays a recorded NMEA file through the library, as if a
// receiver were attached, and shows what it decodes.
#pragma once

#include <cstdint>
#include <set>
#include <string>

#include "cli/commands.h"
#include "cli/receiver_settings.h"

namespace kavo::cli {

struct PlaySettings {
  std::string file;  // empty: the bundled walk.nmea
  int64_t intervalMs = 100;
  bool repeat = false;
  bool json = false;
  bool nmea = false;
  std::string gpx;  // empty: no track file
  bool help = false;
  ReceiverSettings receiver;
};

constexpr int64_t kMaxIntervalMs = 60000;
constexpr const char* kDefaultRecording = "walk.nmea";

bool ParsePlayArguments(const Arguments& args, PlaySettings* settings, std::string* error);

// How long after its last line the end of a recording shows: the gap
// between lines is one interval (a little more when the machine is busy),
// so twice that and a second more never cuts a recording short.
uint32_t EndTimeoutMs(int64_t intervalMs);

// Whether the file at `path` holds something shaped like an NMEA sentence
// ("$" or "!", a five-character address, a comma), in a single-byte or
// UTF-16 encoding; reading it through the library takes seconds to tell.
bool LooksLikeNmea(const std::string& path);
// The talkers of the NMEA sentences in `path`, proprietary ones aside.
std::set<std::string> TalkersInFile(const std::string& path);

int RunPlay(const Arguments& args, std::ostream& out, std::ostream& err);

}  // namespace kavo::cli
