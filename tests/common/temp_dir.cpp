#include "common/temp_dir.h"

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>

#include "platform/platform.h"
#include "utf_conversion.h"

namespace kavo::test {

TempDir::TempDir() {
  // Test cases run as processes of their own, side by side: the random
  // part tells apart two that start in the same tick.
  static std::atomic<int> counter{0};
  static const unsigned process = std::random_device{}();
  const auto stamp = std::chrono::steady_clock::now().time_since_epoch().count();
  auto dir = std::filesystem::temp_directory_path() / ("kavogps-test-" + std::to_string(stamp) + "-" +
                                                       std::to_string(process) + "-" + std::to_string(counter++));
  std::filesystem::create_directories(dir);
  path_ = dir.string();
}

TempDir::~TempDir() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string TempDir::File(const std::string& name) const { return (std::filesystem::path(path_) / name).string(); }

std::u16string TempDir::WideFile(const std::string& name) const { return unicode::Utf8ToUtf16(File(name)); }

void TempDir::Write(const std::string& name, const std::string& bytes) const {
  std::ofstream out(File(name), std::ios::binary);
  out << bytes;
}

std::string TempDir::Read(const std::string& name) const {
  std::ifstream in(File(name), std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

}  // namespace kavo::test
