#include "session/bundled_data.h"

#include "session/console.h"

namespace kavo::cli {

std::vector<std::filesystem::path> BundledDataFolders() {
  std::vector<std::filesystem::path> folders;
  const std::filesystem::path program = ExecutablePath();
  // KAVOGPS_DATA_FROM_BIN: the install's data folder relative to its
  // program folder, so a relocated install still finds its recordings.
  if (!program.empty()) folders.push_back((program.parent_path() / KAVOGPS_DATA_FROM_BIN).lexically_normal());
  folders.emplace_back(KAVOGPS_SOURCE_DATA_DIR);
  return folders;
}

std::filesystem::path FindBundledFile(const std::string& name) {
  for (const std::filesystem::path& folder : BundledDataFolders()) {
    std::error_code error;
    if (std::filesystem::is_regular_file(folder / name, error)) return (folder / name).make_preferred();
  }
  return {};
}

}  // namespace kavo::cli
