#include "support/ini_reader.h"

#include <memory>
#include <string>

#include "platform/platform.h"
#include "support/text_converter.h"
#include "support/wide_string.h"
#include "utf_conversion.h"

namespace kavo {
namespace {

WideView Trim(WideView text) {
  const auto space = [](char16_t c) { return c == u' ' || c == u'\t' || c == u'\r'; };
  while (!text.empty() && space(text.front())) text.remove_prefix(1);
  while (!text.empty() && space(text.back())) text.remove_suffix(1);
  return text;
}

// The whole file as text: UTF-16 with a byte-order mark, UTF-8 with one,
// else the system code page.
bool ReadText(const std::u16string& path, WideString* text) {
  auto file = platform::File::Open(path, platform::FileAccess::kRead, platform::FileDisposition::kOpenExisting);
  if (!file) return false;
  std::string bytes;
  char block[4096];
  uint32_t got = 0;
  while (file->Read(block, sizeof block, &got) && got > 0) bytes.append(block, got);
  if (bytes.size() >= 2 && uint8_t(bytes[0]) == 0xFF && uint8_t(bytes[1]) == 0xFE) {
    for (size_t i = 2; i + 1 < bytes.size(); i += 2)
      text->push_back(char16_t(uint8_t(bytes[i]) | (uint8_t(bytes[i + 1]) << 8)));
  } else if (bytes.size() >= 3 && bytes.compare(0, 3, "\xEF\xBB\xBF") == 0) {
    *text = unicode::Utf8ToUtf16(bytes.substr(3));
  } else {
    text->resize(bytes.size());
    TextConverter().BytesToWide(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size(), text->data());
  }
  return true;
}

}  // namespace

size_t ReadIniString(const std::u16string& path, const std::u16string& section, const std::u16string& key,
                     const char16_t* defaultValue, char16_t* buffer, size_t length) {
  if (!buffer || length == 0) return 0;
  const auto copyOut = [&](WideView value) {
    const size_t n = std::min(value.size(), length - 1);
    value.copy(buffer, n);
    buffer[n] = 0;
    return n;
  };
  WideString text;
  if (!ReadText(path, &text)) return copyOut(defaultValue ? defaultValue : u"");

  bool inSection = false;
  WideView rest(text);
  while (!rest.empty()) {
    const size_t end = rest.find(u'\n');
    WideView line = Trim(rest.substr(0, end));
    rest = end == WideView::npos ? WideView() : rest.substr(end + 1);
    if (line.empty() || line.front() == u';' || line.front() == u'#') continue;
    if (line.front() == u'[') {
      const size_t close = line.find(u']');
      inSection = close != WideView::npos && EqualsIgnoreCase(Trim(line.substr(1, close - 1)), section);
      continue;
    }
    const size_t equals = line.find(u'=');
    if (!inSection || equals == WideView::npos) continue;
    if (!EqualsIgnoreCase(Trim(line.substr(0, equals)), key)) continue;
    WideView value = Trim(line.substr(equals + 1));
    // A value may be quoted to keep its outer spaces.
    if (value.size() >= 2 && value.front() == u'"' && value.back() == u'"') value = value.substr(1, value.size() - 2);
    return copyOut(value);
  }
  return copyOut(defaultValue ? defaultValue : u"");
}

}  // namespace kavo
