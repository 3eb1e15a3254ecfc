// The field reader and the field conversions on arbitrary text, widened
// byte for byte. The number conversions are compared with the C library's
// own (wcstod on the text's decimal prefix, wcstol) in the "C" locale,
// which this program never leaves: same length consumed, same bits. The other conversions may only accept
// or raise the library's own errors.
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstring>
#include <cwchar>
#include <string>

#include "fuzz_support.h"
#include "nmea/field_conversions.h"
#include "nmea/field_reader.h"
#include "nmea/number_conversion.h"
#include "support/error.h"
#include "support/ole_date.h"

namespace {

using namespace kavo;
using namespace kavo::nmea;

// The text cut where a decimal number (white space, sign, digits, point,
// exponent) can no longer go on, so wcstod reads only the forms ours does.
std::wstring DecimalPrefix(std::u16string_view text) {
  std::wstring wide;
  size_t i = 0;
  for (; i < text.size() && (text[i] == u' ' || (text[i] >= u'\t' && text[i] <= u'\r')); ++i) wide += text[i];
  for (; i < text.size() && text[i] != 0 && std::u16string_view(u"0123456789.eE+-").find(text[i]) != text.npos; ++i)
    wide += text[i];
  return wide;
}

void CompareNumbers(std::u16string_view text) {
  const std::wstring wide = DecimalPrefix(text);
  wchar_t* end = nullptr;
  const double expected = std::wcstod(wide.c_str(), &end);
  double value = 0;
  const size_t used = ParseDouble(text, &value);
  FUZZ_CHECK(used == static_cast<size_t>(end - wide.c_str()));
  FUZZ_CHECK(std::memcmp(&value, &expected, sizeof value) == 0);
  FUZZ_CHECK(!std::isnan(value));

  const std::wstring whole(text.begin(), text.end());  // stops at an embedded NUL, as ours does
  const long integer = std::wcstol(whole.c_str(), nullptr, 10);
  const long saturated = integer > INT_MAX ? INT_MAX : integer < INT_MIN ? INT_MIN : integer;
  FUZZ_CHECK(ParseInteger(text) == saturated);
}

// Conversions may raise only the library's own errors, and what they
// accept is a real instant of the right kind.
template <class F>
void Accepts(F convert) {
  try {
    convert();
  } catch (const CException&) {}
}

void CheckTime(const ReceiverTime& time, int32_t allowedTypes) {
  FUZZ_CHECK((1 << time.type) & allowedTypes);
  DateTimeParts parts;
  FUZZ_CHECK(OleDateToParts(time.value, &parts));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  kavo::fuzz::QuietFixedWorld();
  const std::u16string text(data, data + size);
  CompareNumbers(text);

  platform::LocalTime now = platform::LocalNow();
  FieldReader reader(text);
  std::u16string_view fields[4];
  size_t count = 0, consumed = 0;
  for (std::u16string_view field; reader.Next(&field, kFieldBuffer); ++count) {
    FUZZ_CHECK(field.size() < kFieldBuffer);
    FUZZ_CHECK(field.find_first_of(u",*") == field.npos);
    FUZZ_CHECK(field.data() == text.data() + consumed);  // fields tile the text
    consumed += field.size() + 1;
    CompareNumbers(field);
    fields[count % 4] = field;
    const std::u16string_view a = fields[count % 4], b = fields[(count + 3) % 4];
    Accepts([&] { CheckTime(TimeOfDay(a, now), 0b110); });
    Accepts([&] { CheckTime(DateAndTime(b, a, now), 0b111); });
    Accepts([&] {
      const double degrees = Coordinate(a, b);
      FUZZ_CHECK(std::isnan(degrees) || std::fabs(degrees) <= std::fabs(NumberField(a)));
    });
    const int32_t quality = FixQualityFromField(a);
    FUZZ_CHECK(quality >= 0 && quality <= 8);
    const double lenient = NumberFieldOrZero(a);
    Accepts([&] {
      const double strict = NumberField(a);
      FUZZ_CHECK(std::memcmp(&lenient, &strict, sizeof strict) == 0);
    });
  }
  // The reader stops at the end of the text or at a field too long.
  FUZZ_CHECK(consumed >= text.size() || text.find_first_of(u",*", consumed) - consumed >= kFieldBuffer);
  return 0;
}
