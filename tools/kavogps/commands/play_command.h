// `kavogps play`: plays a recorded NMEA file through the library, as if a
// receiver were attached, and shows what it decodes.
#pragma once

#include <cstdint>
#include <set>
#include <string>

#include "commands/commands.h"
#include "session/driver_session.h"
#include "session/receiver_settings.h"
#include "session/session_output.h"

namespace kavo::cli {

struct PlaySettings {
  std::string file;  // empty: the bundled walk.nmea
  int64_t intervalMs = 100;
  bool repeat = false;
  bool help = false;
  OutputOptions output;
};

constexpr int64_t kMaxIntervalMs = 60000;
constexpr const char* kDefaultRecording = "walk.nmea";

bool ParsePlayArguments(const Arguments& args, PlaySettings* settings, std::string* error);

// How a session plays a recording at `intervalMs` per line: it ends with
// the recording unless `repeat`. The end shows as the driver's time-out
// (to be set on the driver): the gap between lines is one interval (a
// little more when the machine is busy), so twice that and a second more
// never cuts a recording short.
SessionOptions PlaybackOptions(int64_t intervalMs, bool repeat);

// The talkers of the NMEA sentences in `path`, proprietary ones aside.
std::set<std::string> TalkersInFile(const std::string& path);
// Why the recording at `path` cannot be played ("no such file", "it holds
// no NMEA sentence"...), or empty when it can. A file holds NMEA when
// something in it is shaped like a sentence ("$" or "!", a five-character
// address, a comma), in a single-byte or UTF-16 encoding: reading it
// through the library takes seconds to tell.
std::string RecordingProblem(const std::string& path);

int RunPlay(const Arguments& args, std::ostream& out, std::ostream& err);

}  // namespace kavo::cli
