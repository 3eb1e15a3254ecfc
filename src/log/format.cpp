#include <cstdio>

#include "log/logger.h"

namespace kavo {
namespace {

// Appends within the limit; false once the text would not fit.
class Output {
 public:
  explicit Output(char16_t (&buffer)[Logger::kFormatLimit + 1]) : buffer_(buffer) {}
  bool Put(char16_t c) {
    if (size_ >= Logger::kFormatLimit) return false;
    buffer_[size_++] = c;
    return true;
  }
  bool PutAscii(const char* text) {
    for (; *text; ++text)
      if (!Put(static_cast<char16_t>(*text))) return false;
    return true;
  }
  void Terminate() { buffer_[size_] = 0; }

 private:
  char16_t (&buffer_)[Logger::kFormatLimit + 1];
  size_t size_ = 0;
};

// A conversion's flags: '0' and a width.
struct Spec {
  bool zero = false;
  int width = 0;
};

// Reads the flags, width and size letters after '%'; `p` is left on the
// conversion letter.
Spec ReadSpec(const char16_t*& p) {
  Spec spec;
  if (*p == u'0') {
    spec.zero = true;
    ++p;
  }
  while (*p >= u'0' && *p <= u'9') spec.width = spec.width * 10 + (*p++ - u'0');
  while (*p == u'l' || *p == u'h' || *p == u'z') ++p;  // sizes are known from the argument
  return spec;
}

// Writes one argument as `conversion` says; false once the text is full.
bool PutConversion(Output& text, char16_t conversion, const Spec& spec, const LogArg& arg) {
  char digits[32] = "";
  const auto number = [&](const char* padded, const char* plain, auto value) {
    snprintf(digits, sizeof digits, spec.zero ? padded : plain, spec.width, value);
    return text.PutAscii(digits);
  };
  switch (conversion) {
    case u's': {
      bool ok = true;
      for (const char16_t* s = arg.IsText() ? arg.Text() : u""; *s && ok; ++s) ok = text.Put(*s);
      return ok;
    }
    case u'c':
      return text.Put(static_cast<char16_t>(arg.Unsigned()));
    case u'd':
    case u'i':
      return number("%0*lld", "%*lld", static_cast<long long>(arg.Signed()));
    case u'u':
      return number("%0*llu", "%*llu", static_cast<unsigned long long>(arg.Unsigned()));
    case u'x':
      return number("%0*llx", "%*llx", static_cast<unsigned long long>(arg.Unsigned()));
    case u'X':
      return number("%0*llX", "%*llX", static_cast<unsigned long long>(arg.Unsigned()));
    default:
      return text.Put(u'%') && text.Put(conversion);
  }
}

}  // namespace

// A small printf for 16-bit text: %s %d %i %u %x %X %c %%, with an optional
// width and '0' flag. Arguments are typed, so a mismatch cannot crash.
bool FormatLogText(const char16_t* format, const LogArg* args, size_t count,
                   char16_t (&out)[Logger::kFormatLimit + 1]) {
  Output text(out);
  size_t next = 0;
  bool ok = true;
  for (const char16_t* p = format; *p && ok; ++p) {
    if (*p != u'%') {
      ok = text.Put(*p);
      continue;
    }
    const Spec spec = ReadSpec(++p);
    const char16_t conversion = *p;
    if (conversion == 0) break;
    if (conversion == u'%') {
      ok = text.Put(u'%');
      continue;
    }
    ok = PutConversion(text, conversion, spec, next < count ? args[next++] : LogArg(u""));
  }
  text.Terminate();
  return ok;
}

}  // namespace kavo
