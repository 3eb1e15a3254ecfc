// Which talkers and checksums the library accepts, as the tool's commands
// take them on the command line. The tool reaches the library only through
// its public header, so the settings go over in the environment the library
// reads when a driver is created or a port searched.
#pragma once

#include <set>
#include <string>

#include "session/option_reader.h"

namespace kavo::cli {

// Every standard talker with checksums verified: a person checking a
// receiver sees what it sends, not what an application would pick from it.
struct ReceiverSettings {
  std::string talkers = "GP,GN,GL,GA,GB,BD,GQ,QZ";
  std::string checksums = "verify";
};

// The options' lines for a command's --help, their text from `column`.
std::string ReceiverOptionsHelp(size_t column);

// Reads --talkers or --checksums when the reader stands on one of them:
// true when it did (`*ok` false for a bad value, the reader holding why).
bool ReadReceiverOption(OptionReader& reader, ReceiverSettings* settings, bool* ok);
// Hands `settings` to the library; false when the environment refused.
bool ApplyReceiverSettings(const ReceiverSettings& settings);

// Why sentences of `seen` were not read, and how to accept them; empty when
// `seen` holds an accepted talker, or nothing.
std::string TalkersHint(const std::set<std::string>& seen, const ReceiverSettings& settings);

}  // namespace kavo::cli
