// What a command checks of a recording before it hands it to the library,
// which takes seconds to find that a file holds no NMEA at all.
#pragma once

#include <set>
#include <string>

namespace kavo::cli {

// The talkers of the NMEA sentences in `path`, proprietary ones aside.
std::set<std::string> TalkersInFile(const std::string& path);
// Why the recording at `path` cannot be played ("no such file", "it holds
// no NMEA sentence"...), or empty when it can. A file holds NMEA when
// something in it is shaped like a sentence ("$" or "!", a five-character
// address, a comma), in a single-byte or UTF-16 encoding.
std::string RecordingProblem(const std::string& path);

}  // namespace kavo::cli
