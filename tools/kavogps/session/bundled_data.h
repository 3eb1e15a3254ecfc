// Finds the recordings that come with the tool: beside an installed
// program in its share folder, else in the source tree it was built from.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace kavo::cli {

// The recording a command plays when given none.
constexpr const char* kDefaultRecording = "walk.nmea";

// The folders searched, in order.
std::vector<std::filesystem::path> BundledDataFolders();
// The path of the bundled file `name`, or empty when no folder has it.
std::filesystem::path FindBundledFile(const std::string& name);

}  // namespace kavo::cli
