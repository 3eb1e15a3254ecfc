#include <dlfcn.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <string>

#include "platform/platform.h"
#include "utf_conversion.h"

namespace kavo::platform {

// Windows shows debug output only to a debugger that listens; the nearest
// POSIX equivalent is standard error for whoever asks for it with
// KAVOGPS_DEBUG_OUTPUT, so applications' own output stays clean.
void DebugOutput(const char16_t* text) {
  static const bool wanted = [] {
    const char* setting = std::getenv("KAVOGPS_DEBUG_OUTPUT");
    return setting && *setting && std::string(setting) != "0";
  }();
  if (!text || !wanted) return;
  const std::string bytes = unicode::Utf16ToUtf8(text);
  ssize_t ignored = write(STDERR_FILENO, bytes.data(), bytes.size());
  (void)ignored;
}

std::u16string ModulePath() {
  Dl_info info{};
  if (dladdr(reinterpret_cast<void*>(&ModulePath), &info) == 0 || !info.dli_fname) return {};
  char resolved[PATH_MAX];
  const char* path = realpath(info.dli_fname, resolved) ? resolved : info.dli_fname;
  return unicode::Utf8ToUtf16(path);
}

// The POSIX code page is Latin-1: each byte is the code point of the same
// value; characters beyond it become '?'.
size_t CodePageToWide(const uint8_t* bytes, size_t count, char16_t* out) {
  for (size_t i = 0; i < count; ++i) out[i] = bytes[i];
  return count;
}

size_t WideToCodePage(const char16_t* text, size_t count, uint8_t* out) {
  for (size_t i = 0; i < count; ++i) out[i] = text[i] < 0x100 ? static_cast<uint8_t>(text[i]) : '?';
  return count;
}

}  // namespace kavo::platform
