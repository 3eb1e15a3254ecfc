#include "serve/handed_sockets.h"

#include <charconv>
#include <cstring>

namespace kavo::serve {
namespace {

std::optional<long> Whole(const char* text) {
  long value = 0;
  const char* end = text + std::strlen(text);
  const auto [stop, error] = std::from_chars(text, end, value);
  if (error != std::errc() || stop != end || value < 0) return std::nullopt;
  return value;
}

}  // namespace

std::optional<int> AnnouncedSocketCount(const char* listenPid, const char* listenFds, long ownPid) {
  if (!listenPid || !listenFds) return 0;
  const std::optional<long> pid = Whole(listenPid), count = Whole(listenFds);
  if (!pid || !count || *count > 1024) return std::nullopt;
  return *pid == ownPid ? static_cast<int>(*count) : 0;
}

}  // namespace kavo::serve
