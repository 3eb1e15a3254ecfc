#include "session/sentence_facts.h"

#include <algorithm>
#include <array>
#include <charconv>

namespace kavo::cli {
namespace {

constexpr double kMphPerKnot = 1852.0 / 1609.344;

// A sentence's fields, its address first, as views into the sentence; no
// sentence the readers know has more than kMaxFields. Fields past its end
// read as empty, so a reader need not check the length for each.
class SentenceFields {
 public:
  static constexpr size_t kMaxFields = 40;

  // One pass from the address to the checksum or line end.
  explicit SentenceFields(std::string_view sentence) {
    size_t i = 0;
    while (i < sentence.size() && sentence[i] != '$' && sentence[i] != '!') ++i;
    i = i < sentence.size() ? i + 1 : 0;
    size_t at = i;
    for (; i < sentence.size(); ++i) {
      const char c = sentence[i];
      if (c == '*' || c == '\r' || c == '\n') break;
      if (c != ',') continue;
      if (sent_ + 1 == kMaxFields) break;  // the last field ends at this comma
      fields_[sent_++] = sentence.substr(at, i - at);
      at = i + 1;
    }
    if (i > at || sent_ > 0) fields_[sent_++] = sentence.substr(at, i - at);
  }

  size_t Sent() const { return sent_; }  // how many fields the sentence had
  std::string_view operator[](size_t i) const { return i < kMaxFields ? fields_[i] : std::string_view(); }
  bool Given(size_t i) const { return !(*this)[i].empty(); }
  double Number(size_t i) const { return FieldNumber((*this)[i]); }
  int Integer(size_t i) const { return static_cast<int>(Number(i)); }

 private:
  std::array<std::string_view, kMaxFields> fields_{};
  size_t sent_ = 0;
};

// ddmm.mmmm and its hemisphere as signed degrees.
double Angle(std::string_view text, std::string_view hemisphere, size_t degreeDigits) {
  const double degrees =
      FieldNumber(text.substr(0, degreeDigits)) + FieldNumber(text.substr(std::min(degreeDigits, text.size()))) / 60.0;
  return hemisphere == "S" || hemisphere == "W" ? -degrees : degrees;
}

// The position of fields `at` to `at + 3` (latitude, its hemisphere,
// longitude, its hemisphere); the longitude goes under flag 0.
void AddPosition(const SentenceFields& f, size_t at, SentenceFacts& facts) {
  facts.values.push_back({GPS_VALID_POSITION, Angle(f[at], f[at + 1], 2)});
  facts.values.push_back({0, Angle(f[at + 2], f[at + 3], 3)});
}

void Known(SentenceFacts& facts, bool given, uint32_t flag) { facts.known |= given ? flag : 0; }

void ReadGga(const SentenceFields& f, SentenceFacts& facts) {
  facts.time = f[1];
  facts.quality = f.Given(6) ? f.Integer(6) : 0;
  const bool fix = *facts.quality > 0 && f.Given(2) && f.Given(4);
  facts.fix = fix;
  facts.said = GPS_VALID_POSITION | GPS_VALID_ALTITUDE | GPS_VALID_GEOID_SEPARATION | GPS_VALID_SATELLITES_IN_USE |
               GPS_VALID_HDOP;
  Known(facts, fix, GPS_VALID_POSITION);
  Known(facts, fix && f.Given(9), GPS_VALID_ALTITUDE);
  Known(facts, fix && f.Given(11), GPS_VALID_GEOID_SEPARATION);
  Known(facts, f.Given(7), GPS_VALID_SATELLITES_IN_USE);
  Known(facts, f.Given(8), GPS_VALID_HDOP);
  if (fix) AddPosition(f, 2, facts);
  const std::pair<size_t, uint32_t> numbers[] = {
      {7, GPS_VALID_SATELLITES_IN_USE}, {8, GPS_VALID_HDOP}, {9, GPS_VALID_ALTITUDE}, {11, GPS_VALID_GEOID_SEPARATION}};
  for (const auto& [field, flag] : numbers)
    if (f.Given(field) && (fix || field <= 8)) facts.values.push_back({flag, f.Number(field)});
}

// ddmmyy; two-digit years pivot at 1971, as the library reads them.
std::optional<calendar::CivilTime> Date(std::string_view text) {
  if (text.size() < 6) return std::nullopt;
  calendar::CivilTime date;
  date.day = static_cast<int>(FieldNumber(text.substr(0, 2)));
  date.month = static_cast<int>(FieldNumber(text.substr(2, 2)));
  const int year = static_cast<int>(FieldNumber(text.substr(4, 2)));
  date.year = (year < 71 ? 2000 : 1900) + year;
  if (!calendar::IsValid(date)) return std::nullopt;
  return date;
}

void ReadRmc(const SentenceFields& f, SentenceFacts& facts) {
  facts.time = f[1];
  facts.date = Date(f[9]);
  const bool fix = f[2] == "A" && f.Given(3) && f.Given(5);
  facts.fix = fix;
  facts.said = GPS_VALID_POSITION | GPS_VALID_SPEED | GPS_VALID_COURSE;
  Known(facts, fix, GPS_VALID_POSITION);
  Known(facts, fix && f.Given(7), GPS_VALID_SPEED);
  Known(facts, fix && f.Given(8), GPS_VALID_COURSE);
  if (!fix) return;
  AddPosition(f, 3, facts);
  if (f.Given(7)) facts.values.push_back({GPS_VALID_SPEED, f.Number(7) * kMphPerKnot});
  if (f.Given(8)) facts.values.push_back({GPS_VALID_COURSE, f.Number(8)});
}

void ReadGll(const SentenceFields& f, SentenceFacts& facts) {
  facts.time = f[5];
  facts.fix = f[6] == "A" && f.Given(1) && f.Given(3);
  facts.said = GPS_VALID_POSITION;
  Known(facts, *facts.fix, GPS_VALID_POSITION);
}

void ReadVtg(const SentenceFields& f, SentenceFacts& facts) {
  const bool valid = f[9] != "N";  // the mode field of newer receivers: N is no fix
  facts.said = GPS_VALID_COURSE | GPS_VALID_MAGNETIC_COURSE | GPS_VALID_SPEED;
  Known(facts, valid && f.Given(1), GPS_VALID_COURSE);
  Known(facts, valid && f.Given(3), GPS_VALID_MAGNETIC_COURSE);
  Known(facts, valid && (f.Given(5) || f.Given(7)), GPS_VALID_SPEED);
  if (!valid) return;
  if (f.Given(1)) facts.values.push_back({GPS_VALID_COURSE, f.Number(1)});
  if (f.Given(3)) facts.values.push_back({GPS_VALID_MAGNETIC_COURSE, f.Number(3)});
  if (f.Given(5)) facts.values.push_back({GPS_VALID_SPEED, f.Number(5) * kMphPerKnot});
}

void ReadGsa(const SentenceFields& f, SentenceFacts& facts) {
  facts.sky = true;
  facts.said = GPS_VALID_PDOP | GPS_VALID_HDOP | GPS_VALID_VDOP;
  facts.hasUsed = true;
  for (size_t field = 3; field <= 14; ++field)
    if (f.Given(field)) facts.used.push_back(f.Integer(field));
  facts.key += f[18];  // one per system, where newer receivers send several
  facts.kind = facts.key;
  const std::pair<size_t, uint32_t> dilutions[] = {{15, GPS_VALID_PDOP}, {16, GPS_VALID_HDOP}, {17, GPS_VALID_VDOP}};
  for (const auto& [field, flag] : dilutions) Known(facts, f.Given(field), flag);
  for (const auto& [field, flag] : dilutions)
    if (f.Given(field)) facts.values.push_back({flag, f.Number(field)});
}

void ReadGsv(const SentenceFields& f, SentenceFacts& facts) {
  facts.sky = true;
  facts.key += f[2];  // one key per message of the group
  facts.cycleEnd = f[1] == f[2];
  if (!facts.cycleEnd) facts.kind = facts.key;
  for (size_t at = 4; at + 3 < f.Sent(); at += 4)  // PRN, elevation, azimuth, signal
    facts.satellites.push_back({f.Integer(at), f.Integer(at + 3), f.Number(at + 1), f.Number(at + 2)});
}

void ReadZda(const SentenceFields& f, SentenceFacts& facts) { facts.time = f[1]; }

// One reader per sentence type; other types say nothing about the fix.
struct SentenceReader {
  const char* type;
  void (*read)(const SentenceFields& fields, SentenceFacts& facts);
};
constexpr SentenceReader kReaders[] = {{"GGA", ReadGga}, {"RMC", ReadRmc}, {"GLL", ReadGll}, {"VTG", ReadVtg},
                                       {"GSA", ReadGsa}, {"GSV", ReadGsv}, {"ZDA", ReadZda}};

}  // namespace

double FieldNumber(std::string_view field) {
  // Most fields are a few digits: read at once.
  if (!field.empty() && field.size() <= 9) {
    unsigned whole = 0;
    size_t digits = 0;
    for (; digits < field.size() && field[digits] >= '0' && field[digits] <= '9'; ++digits)
      whole = whole * 10 + static_cast<unsigned>(field[digits] - '0');
    if (digits == field.size()) return whole;
  }
  // Otherwise as atof reads it, but without the C library's locale-aware
  // parsing, which cost most of a sentence.
  if (!field.empty() && field.front() == '+') field.remove_prefix(1);
  double value = 0;
  std::from_chars(field.data(), field.data() + field.size(), value);
  return value;
}

SentenceFacts ReadSentenceFacts(const std::string& sentence) {
  SentenceFacts facts;
  const SentenceFields fields(sentence);
  if (fields.Sent() == 0 || fields[0].size() < 3) return facts;
  facts.key = fields[0];
  facts.kind = fields[0];
  const std::string_view type = fields[0].substr(fields[0].size() - 3);
  for (const SentenceReader& reader : kReaders)
    if (type == reader.type) reader.read(fields, facts);
  return facts;
}

}  // namespace kavo::cli
