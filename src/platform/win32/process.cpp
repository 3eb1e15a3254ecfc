#include <vector>

#include "platform/win32/win32_handles.h"

namespace kavo::platform {

void DebugOutput(const char16_t* text) {
  if (text) OutputDebugStringW(win32::Wide(text));
}

std::u16string ModulePath() {
  // The module holding this code: the DLL when built into it, else the
  // program the library was linked into.
  HMODULE module = nullptr;
  if (!GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                          reinterpret_cast<LPCWSTR>(&ModulePath), &module)) {
    return {};
  }
  std::vector<wchar_t> path(MAX_PATH);
  for (;;) {
    const DWORD length = GetModuleFileNameW(module, path.data(), static_cast<DWORD>(path.size()));
    if (length == 0) return {};
    if (length < path.size()) return std::u16string(reinterpret_cast<const char16_t*>(path.data()), length);
    if (path.size() >= 32768) return {};  // longer than any Windows path
    path.resize(path.size() * 2);         // cut short: try a longer buffer
  }
}

// The system code page (CP_ACP), one byte for one unit: the library's text is
// NMEA and log lines, which single-byte code pages carry whole. Anything the
// code page cannot say in one byte becomes '?'.
size_t CodePageToWide(const uint8_t* bytes, size_t count, char16_t* out) {
  if (count == 0) return 0;
  const int n = MultiByteToWideChar(CP_ACP, 0, reinterpret_cast<const char*>(bytes), static_cast<int>(count),
                                    reinterpret_cast<wchar_t*>(out), static_cast<int>(count));
  if (n > 0) return static_cast<size_t>(n);
  for (size_t i = 0; i < count; ++i) out[i] = bytes[i];
  return count;
}

size_t WideToCodePage(const char16_t* text, size_t count, uint8_t* out) {
  if (count == 0) return 0;
  const auto convert = [](const char16_t* from, size_t units, uint8_t* to, size_t room) {
    return WideCharToMultiByte(CP_ACP, WC_NO_BEST_FIT_CHARS, reinterpret_cast<const wchar_t*>(from),
                               static_cast<int>(units), reinterpret_cast<char*>(to), static_cast<int>(room), "?",
                               nullptr);
  };
  const int n = convert(text, count, out, count);
  if (n > 0) return static_cast<size_t>(n);
  // Too long for one byte each (a double-byte code page): unit by unit.
  for (size_t i = 0; i < count; ++i) {
    if (convert(text + i, 1, out + i, 1) != 1) out[i] = '?';
  }
  return count;
}

}  // namespace kavo::platform
