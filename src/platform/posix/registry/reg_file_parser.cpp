#include "platform/posix/registry/reg_file_parser.h"

#include <algorithm>
#include <iterator>
#include <utility>
#include <vector>

#include "platform/platform.h"
#include "utf_conversion.h"

namespace kavo::platform::posix {
namespace {

using View = std::u16string_view;

bool IsSpace(char16_t c) { return c == u' ' || c == u'\t' || c == u'\r' || c == 0xFEFF; }

View Trim(View text) {
  while (!text.empty() && IsSpace(text.front())) text.remove_prefix(1);
  while (!text.empty() && IsSpace(text.back())) text.remove_suffix(1);
  return text;
}

int HexDigit(char16_t c) {
  if (c >= u'0' && c <= u'9') return c - u'0';
  if (c >= u'a' && c <= u'f') return c - u'a' + 10;
  if (c >= u'A' && c <= u'F') return c - u'A' + 10;
  return -1;
}

// Parses 1 to `maxDigits` hex digits making up the whole of `text`.
bool ParseHex(View text, size_t maxDigits, uint32_t* value) {
  if (text.empty() || text.size() > maxDigits) return false;
  *value = 0;
  for (char16_t c : text) {
    const int digit = HexDigit(c);
    if (digit < 0) return false;
    *value = *value * 16 + static_cast<uint32_t>(digit);
  }
  return true;
}

// Whether a line goes on in the next one: it ends with a backslash that is
// not inside a quoted string.
bool ContinuesOnNextLine(View line) {
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

std::vector<LogicalLine> JoinLines(View text) {
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

class Parser {
 public:
  Parser(RegistryHive& hive, RegFileError* error) : hive_(hive), error_(error) {}

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
    const View rootName = path.substr(0, slash);
    const View subPath = slash == View::npos ? View() : path.substr(slash + 1);
    const auto root = hive_.Root(RegistryHive::RootByName(rootName));
    if (!root) return Fail(u"unknown root key");
    current_.reset();
    skipping_ = remove;
    if (remove) {
      if (subPath.find_first_not_of(u'\\') == View::npos) return Fail(u"a root key cannot be deleted");
      RegistryHive::DeleteTree(root, subPath);
      return true;
    }
    current_ = RegistryHive::Create(root, subPath, nullptr);
    if (!current_) return Fail(u"key nested too deep");
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
    if (!current_ && !skipping_) return Fail(u"value outside a key section");

    uint32_t type = registry::kTypeString;
    std::vector<uint8_t> data;
    if (rest == u"-") {
      if (current_) current_->RemoveValue(name);
      return true;
    }
    if (!ParseData(rest, &type, &data)) return false;
    if (current_) current_->SetValue(name, type, std::move(data));
    return true;
  }

  bool ParseData(View text, uint32_t* type, std::vector<uint8_t>* data) {
    if (!text.empty() && text.front() == u'"') {
      std::u16string value;
      View rest;
      if (!ParseQuoted(text, &value, &rest)) return false;
      if (!Trim(rest).empty()) return Fail(u"text after the closing quote");
      value.push_back(0);
      AppendUtf16(value, data);
      *type = registry::kTypeString;
      return true;
    }
    constexpr View kDword = u"dword:";
    if (text.substr(0, kDword.size()) == kDword) {
      uint32_t value;
      if (!ParseHex(Trim(text.substr(kDword.size())), 8, &value)) return Fail(u"malformed dword value");
      for (int i = 0; i < 4; ++i) data->push_back(static_cast<uint8_t>(value >> (8 * i)));
      *type = registry::kTypeDword;
      return true;
    }
    constexpr View kHex = u"hex";
    if (text.substr(0, kHex.size()) != kHex) return Fail(u"unknown value type");
    text.remove_prefix(kHex.size());
    *type = registry::kTypeBinary;
    if (!text.empty() && text.front() == u'(') {
      const size_t close = text.find(u')');
      if (close == View::npos || !ParseHex(text.substr(1, close - 1), 8, type)) {
        return Fail(u"malformed hex(type)");
      }
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
      static constexpr std::pair<char16_t, char16_t> kEscapes[] = {
          {u'\\', u'\\'}, {u'"', u'"'}, {u'n', u'\n'}, {u'r', u'\r'}, {u'0', 0}};
      const auto* escape = std::find_if(std::begin(kEscapes), std::end(kEscapes),
                                        [&](const auto& known) { return known.first == text[i]; });
      if (escape == std::end(kEscapes)) return Fail(u"unknown escape in a quoted string");
      out->push_back(escape->second);
    }
    return Fail(u"missing closing quote");
  }

  static void AppendUtf16(const std::u16string& text, std::vector<uint8_t>* data) {
    for (char16_t c : text) {
      data->push_back(static_cast<uint8_t>(c & 0xFF));
      data->push_back(static_cast<uint8_t>(c >> 8));
    }
  }

  bool Fail(const char16_t* reason) {
    if (error_) *error_ = RegFileError{line_, reason};
    return false;
  }

  RegistryHive& hive_;
  RegFileError* error_;
  size_t line_ = 0;
  std::shared_ptr<RegistryNode> current_;
  bool skipping_ = false;  // values under a [-KEY] section are ignored
};

}  // namespace

bool ParseRegText(std::u16string_view text, RegistryHive& hive, RegFileError* error) {
  return Parser(hive, error).Run(text);
}

std::u16string DecodeRegFileBytes(const std::string& bytes) {
  if (bytes.size() >= 2 && static_cast<uint8_t>(bytes[0]) == 0xFF && static_cast<uint8_t>(bytes[1]) == 0xFE) {
    std::u16string text;
    for (size_t i = 2; i + 1 < bytes.size(); i += 2) {
      text.push_back(static_cast<char16_t>(static_cast<uint8_t>(bytes[i]) | (static_cast<uint8_t>(bytes[i + 1]) << 8)));
    }
    return text;
  }
  const bool utf8Bom = bytes.size() >= 3 && bytes.compare(0, 3, "\xEF\xBB\xBF") == 0;
  return unicode::Utf8ToUtf16(utf8Bom ? bytes.substr(3) : bytes);
}

}  // namespace kavo::platform::posix
