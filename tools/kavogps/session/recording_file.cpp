#include "session/recording_file.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <vector>

namespace kavo::cli {
namespace {

namespace fs = std::filesystem;

// Calls `found` with the address ("GPGGA") of each sentence-shaped text in
// `path` until it returns false. Zero bytes are dropped, so UTF-16 text
// reads as its single-byte twin; the tail of each block is kept so a
// sentence across blocks is still seen.
void ForEachAddress(const std::string& path, const std::function<bool(const std::string&)>& found) {
  std::ifstream in(path, std::ios::binary);
  std::string text;
  std::vector<char> buffer(1 << 16);
  while (in.read(buffer.data(), static_cast<std::streamsize>(buffer.size())) || in.gcount() > 0) {
    for (std::streamsize i = 0; i < in.gcount(); ++i)
      if (buffer[static_cast<size_t>(i)] != '\0') text += buffer[static_cast<size_t>(i)];
    for (size_t at = text.find_first_of("$!"); at != std::string::npos; at = text.find_first_of("$!", at + 1)) {
      if (at + 6 >= text.size()) break;
      const bool address = std::all_of(text.begin() + at + 1, text.begin() + at + 6, [](char c) {
        return std::isupper(static_cast<unsigned char>(c)) || std::isdigit(static_cast<unsigned char>(c));
      });
      if (address && text[at + 6] == ',' && !found(text.substr(at, 6))) return;
    }
    text.erase(0, text.size() > 6 ? text.size() - 6 : 0);
  }
}

bool LooksLikeNmea(const std::string& path) {
  bool any = false;
  ForEachAddress(path, [&](const std::string&) { return !(any = true); });
  return any;
}

}  // namespace

std::set<std::string> TalkersInFile(const std::string& path) {
  std::set<std::string> talkers;
  ForEachAddress(path, [&](const std::string& address) {
    if (address[0] == '$' && address[1] != 'P') talkers.insert(address.substr(1, 2));
    return true;
  });
  return talkers;
}

std::string RecordingProblem(const std::string& path) {
  std::error_code error;
  const fs::file_status status = fs::status(path, error);
  if (!fs::exists(status)) return "no such file";
  if (fs::is_directory(status)) return "it is a folder, not a file";
  if (!std::ifstream(path, std::ios::binary)) return std::string("cannot be read: ") + std::strerror(errno);
  if (!LooksLikeNmea(path)) return "it holds no NMEA sentence";
  return {};
}

}  // namespace kavo::cli
