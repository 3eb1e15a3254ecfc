// The standard .reg text format ("Windows Registry Editor Version 5.00"):
// [KEY] and [-KEY] sections, "Name"= and @= values as strings, dword:, hex:
// and hex(n):, "Name"=- deletions, ; comments and lines continued by a
// trailing backslash. Header-only and free of everything else in the code
// base, so that the library's registry emulation and the kavogps tool,
// which tells a user what is wrong with a file, read files alike.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "utf_conversion.h"

namespace kavo::regfile {

// Value types as the registry numbers them.
constexpr uint32_t kTypeString = 1;  // REG_SZ
constexpr uint32_t kTypeBinary = 3;  // REG_BINARY
constexpr uint32_t kTypeDword = 4;   // REG_DWORD

// The predefined keys a section may start with, long and short names in the
// registry's order (HKEY_CLASSES_ROOT is the first).
constexpr const char16_t* kRootNames[] = {u"HKEY_CLASSES_ROOT", u"HKEY_CURRENT_USER", u"HKEY_LOCAL_MACHINE",
                                          u"HKEY_USERS"};
constexpr const char16_t* kRootShortNames[] = {u"HKCR", u"HKCU", u"HKLM", u"HKU"};

// The index of a root key name in kRootNames, ignoring case; -1 when unknown.
inline int RootIndex(std::u16string_view name) {
  std::u16string upper(name);
  for (char16_t& c : upper) c = c >= u'a' && c <= u'z' ? c - 0x20 : c;
  for (int i = 0; i < 4; ++i)
    if (upper == kRootNames[i] || upper == kRootShortNames[i]) return i;
  return -1;
}

struct Error {
  size_t line = 0;  // from 1; the first line of a continued one
  std::u16string reason;
};

// What a file says, in order. Section returns null, or why the file cannot
// be used (the reading stops there).
class Handler {
 public:
  virtual ~Handler() = default;
  // `rootIndex` into kRootNames; `subPath` the rest of the key's path.
  virtual const char16_t* Section(int rootIndex, std::u16string_view subPath, bool remove) = 0;
  virtual void Value(const std::u16string& name, uint32_t type, std::vector<uint8_t> data) = 0;
  virtual void DeleteValue(const std::u16string& name) = 0;
};

namespace detail {

using View = std::u16string_view;

inline bool IsSpace(char16_t c) { return c == u' ' || c == u'\t' || c == u'\r' || c == 0xFEFF; }

inline View Trim(View text) {
  while (!text.empty() && IsSpace(text.front())) text.remove_prefix(1);
  while (!text.empty() && IsSpace(text.back())) text.remove_suffix(1);
  return text;
}

// Parses 1 to `maxDigits` hex digits making up the whole of `text`.
inline bool ParseHex(View text, size_t maxDigits, uint32_t* value) {
  if (text.empty() || text.size() > maxDigits) return false;
  *value = 0;
  for (char16_t c : text) {
    const int digit = c >= u'0' && c <= u'9'   ? c - u'0'
                      : c >= u'a' && c <= u'f' ? c - u'a' + 10
                      : c >= u'A' && c <= u'F' ? c - u'A' + 10
                                               : -1;
    if (digit < 0) return false;
    *value = *value * 16 + static_cast<uint32_t>(digit);
  }
  return true;
}

// Whether a line goes on in the next one: it ends with a backslash that is
// not inside a quoted string.
inline bool ContinuesOnNextLine(View line) {
  bool quoted = false;
  for (size_t i = 0; i < line.size(); ++i) {
    if (quoted && line[i] == u'\\') {
      ++i;
    } else if (line[i] == u'"') {
      quoted = !quoted;
    }
  }
  return !quoted && !line.empty() && line.back() == u'\\';
}

struct LogicalLine {
  size_t number;
  std::u16string text;
};

inline std::vector<LogicalLine> JoinLines(View text) {
  std::vector<LogicalLine> lines;
  bool continuing = false;
  size_t number = 0;
  size_t start = 0;
  while (start < text.size()) {
    size_t end = text.find(u'\n', start);
    if (end == View::npos) end = text.size();
    ++number;
    View line = Trim(text.substr(start, end - start));
    start = end + 1;
    if (!continuing) lines.push_back(LogicalLine{number, {}});
    // A comment ends with its line, whatever its last character.
    const bool comment = !continuing && !line.empty() && line.front() == u';';
    continuing = !comment && ContinuesOnNextLine(line);
    if (continuing) line.remove_suffix(1);
    lines.back().text += line;
  }
  return lines;
}

class Reader {
 public:
  Reader(Handler& handler, Error* error) : handler_(handler), error_(error) {}

  bool Run(View text) {
    bool sawHeader = false;
    for (const auto& line : JoinLines(text)) {
      line_ = line.number;
      const View content = Trim(line.text);
      if (content.empty() || content.front() == u';') continue;
      if (!sawHeader) {
        if (content != u"Windows Registry Editor Version 5.00" && content != u"REGEDIT4") {
          return Fail(u"not a registry file (no \"Windows Registry Editor Version 5.00\" header)");
        }
        sawHeader = true;
      } else if (!ParseLine(content)) {
        return false;
      }
    }
    if (sawHeader) return true;
    line_ = 1;
    return Fail(u"empty file");
  }

 private:
  bool ParseLine(View line) {
    if (line.front() == u'[') return ParseSection(line);
    if (line.front() == u'"' || line.front() == u'@') return ParseValue(line);
    return Fail(u"unrecognised line");
  }

  bool ParseSection(View line) {
    if (line.back() != u']') return Fail(u"section without a closing bracket");
    View path = line.substr(1, line.size() - 2);
    const bool remove = !path.empty() && path.front() == u'-';
    if (remove) path.remove_prefix(1);
    const size_t slash = path.find(u'\\');
    const int root = RootIndex(path.substr(0, slash));
    if (root < 0) return Fail(u"unknown root key");
    const View subPath = slash == View::npos ? View() : path.substr(slash + 1);
    if (remove && subPath.find_first_not_of(u'\\') == View::npos) return Fail(u"a root key cannot be deleted");
    inSection_ = false;
    if (const char16_t* refused = handler_.Section(root, subPath, remove)) return Fail(refused);
    inSection_ = true;
    return true;
  }

  bool ParseValue(View line) {
    std::u16string name;
    View rest;
    if (line.front() == u'@') {
      rest = line.substr(1);
    } else if (!ParseQuoted(line, &name, &rest)) {
      return false;
    }
    rest = Trim(rest);
    if (rest.empty() || rest.front() != u'=') return Fail(u"'=' expected after the value name");
    rest = Trim(rest.substr(1));
    if (!inSection_) return Fail(u"value outside a key section");
    if (rest == u"-") {
      handler_.DeleteValue(name);
      return true;
    }
    uint32_t type = kTypeString;
    std::vector<uint8_t> data;
    if (!ParseData(rest, &type, &data)) return false;
    handler_.Value(name, type, std::move(data));
    return true;
  }

  bool ParseData(View text, uint32_t* type, std::vector<uint8_t>* data) {
    if (!text.empty() && text.front() == u'"') {
      std::u16string value;
      View rest;
      if (!ParseQuoted(text, &value, &rest)) return false;
      if (!Trim(rest).empty()) return Fail(u"text after the closing quote");
      value.push_back(0);
      for (char16_t c : value) {
        data->push_back(static_cast<uint8_t>(c & 0xFF));
        data->push_back(static_cast<uint8_t>(c >> 8));
      }
      *type = kTypeString;
      return true;
    }
    constexpr View kDword = u"dword:";
    if (text.substr(0, kDword.size()) == kDword) {
      uint32_t value;
      if (!ParseHex(Trim(text.substr(kDword.size())), 8, &value)) return Fail(u"malformed dword value");
      for (int i = 0; i < 4; ++i) data->push_back(static_cast<uint8_t>(value >> (8 * i)));
      *type = kTypeDword;
      return true;
    }
    constexpr View kHex = u"hex";
    if (text.substr(0, kHex.size()) != kHex) return Fail(u"unknown value type");
    text.remove_prefix(kHex.size());
    *type = kTypeBinary;
    if (!text.empty() && text.front() == u'(') {
      const size_t close = text.find(u')');
      if (close == View::npos || !ParseHex(text.substr(1, close - 1), 8, type)) return Fail(u"malformed hex(type)");
      text.remove_prefix(close + 1);
    }
    if (text.empty() || text.front() != u':') return Fail(u"':' expected after hex");
    return ParseBytes(Trim(text.substr(1)), data);
  }

  bool ParseBytes(View text, std::vector<uint8_t>* data) {
    if (text.empty()) return true;
    size_t start = 0;
    while (start <= text.size()) {
      size_t end = text.find(u',', start);
      if (end == View::npos) end = text.size();
      uint32_t byte;
      if (!ParseHex(Trim(text.substr(start, end - start)), 2, &byte)) return Fail(u"malformed hex byte");
      data->push_back(static_cast<uint8_t>(byte));
      start = end + 1;
    }
    return true;
  }

  // A string in double quotes with \\ \" \n \r \0 escapes; `rest` is what
  // follows the closing quote.
  bool ParseQuoted(View text, std::u16string* out, View* rest) {
    static constexpr std::u16string_view kEscaped = u"\\\"nr0";
    static constexpr char16_t kMeaning[] = {u'\\', u'"', u'\n', u'\r', 0};
    for (size_t i = 1; i < text.size(); ++i) {
      const char16_t c = text[i];
      if (c == u'"') {
        *rest = text.substr(i + 1);
        return true;
      }
      if (c != u'\\') {
        out->push_back(c);
        continue;
      }
      if (++i == text.size()) break;
      const size_t escape = kEscaped.find(text[i]);
      if (escape == View::npos) return Fail(u"unknown escape in a quoted string");
      out->push_back(kMeaning[escape]);
    }
    return Fail(u"missing closing quote");
  }

  bool Fail(const char16_t* reason) {
    if (error_) *error_ = Error{line_, reason};
    return false;
  }

  Handler& handler_;
  Error* error_;
  size_t line_ = 0;
  bool inSection_ = false;  // a section was read, so values may follow
};

}  // namespace detail

// Hands what `text` says to `handler`. Stops at the first malformed line
// and returns false with `error` filled; what came before stays handed on.
inline bool Read(std::u16string_view text, Handler& handler, Error* error) {
  return detail::Reader(handler, error).Run(text);
}

// A file's bytes as text: UTF-16 LE with its byte-order mark, else UTF-8
// (or plain ASCII) with or without one.
inline std::u16string Decode(const std::string& bytes) {
  if (bytes.size() >= 2 && static_cast<uint8_t>(bytes[0]) == 0xFF && static_cast<uint8_t>(bytes[1]) == 0xFE) {
    std::u16string text;
    for (size_t i = 2; i + 1 < bytes.size(); i += 2)
      text.push_back(static_cast<char16_t>(static_cast<uint8_t>(bytes[i]) | (static_cast<uint8_t>(bytes[i + 1]) << 8)));
    return text;
  }
  const bool utf8Bom = bytes.size() >= 3 && bytes.compare(0, 3, "\xEF\xBB\xBF") == 0;
  return unicode::Utf8ToUtf16(utf8Bom ? bytes.substr(3) : bytes);
}

}  // namespace kavo::regfile
