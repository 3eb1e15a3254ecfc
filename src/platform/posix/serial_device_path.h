// Which device a corrected port name ("com3:", "/dev/ttyusb0:") opens on a
// POSIX host.
#pragma once

#include <optional>
#include <string>

namespace kavo::platform::posix {

// A name that starts with "/" is a path: the trailing colon is dropped and
// the file whose path matches ignoring case is taken, since the name was
// lower-cased on its way here. Other names ("com3:") are looked up in the
// registry's port map, ignoring case and the colon. nullopt with the last
// error set when nothing answers to the name.
std::optional<std::string> ResolveSerialDevicePath(const std::u16string& correctedName);

// The existing file whose path equals `path` ignoring the case of ASCII and
// Latin-1 letters; an exact match wins. nullopt when there is none.
std::optional<std::string> FindPathIgnoringCase(const std::string& path);

}  // namespace kavo::platform::posix
