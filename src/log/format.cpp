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
    ++p;
    bool zero = false;
    int width = 0;
    if (*p == u'0') {
      zero = true;
      ++p;
    }
    while (*p >= u'0' && *p <= u'9') width = width * 10 + (*p++ - u'0');
    while (*p == u'l' || *p == u'h' || *p == u'z') ++p;  // sizes are known from the argument
    const char16_t conversion = *p;
    if (conversion == 0) break;
    if (conversion == u'%') {
      ok = text.Put(u'%');
      continue;
    }
    const LogArg arg = next < count ? args[next++] : LogArg(u"");
    char digits[32] = "";
    switch (conversion) {
      case u's':
        for (const char16_t* s = arg.IsText() ? arg.Text() : u""; *s && ok; ++s) ok = text.Put(*s);
        continue;
      case u'c':
        ok = text.Put(static_cast<char16_t>(arg.Unsigned()));
        continue;
      case u'd':
      case u'i':
        snprintf(digits, sizeof digits, zero ? "%0*lld" : "%*lld", width, static_cast<long long>(arg.Signed()));
        break;
      case u'u':
        snprintf(digits, sizeof digits, zero ? "%0*llu" : "%*llu", width,
                 static_cast<unsigned long long>(arg.Unsigned()));
        break;
      case u'x':
      case u'X':
        snprintf(digits, sizeof digits, conversion == u'x' ? (zero ? "%0*llx" : "%*llx") : (zero ? "%0*llX" : "%*llX"),
                 width, static_cast<unsigned long long>(arg.Unsigned()));
        break;
      default:
        ok = text.Put(u'%') && text.Put(conversion);
        continue;
    }
    ok = text.PutAscii(digits);
  }
  text.Terminate();
  return ok;
}

}  // namespace kavo
