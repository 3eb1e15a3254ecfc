#include "nmea_check.h"

#include <cmath>
#include <cstdlib>
#include <sstream>

#include "common/temp_dir.h"
#include "sources/encoded_text_reader.h"

namespace kavo::test {

std::string SentenceProblem(const std::string& line) {
  if (line.empty() || line[0] != '$') return "does not start with $";
  for (unsigned char c : line)
    if (c < 0x20 || c > 0x7E) return "holds a byte outside printable ASCII";
  const size_t star = line.find('*');
  if (star == std::string::npos || line.find('*', star + 1) != std::string::npos) return "needs exactly one *";
  if (line.size() != star + 3) return "needs two checksum digits after *";
  unsigned sum = 0;
  for (size_t i = 1; i < star; ++i) sum ^= static_cast<unsigned char>(line[i]);
  const std::string digits = line.substr(star + 1);
  if (digits.find_first_not_of("0123456789ABCDEF") != std::string::npos) return "checksum not upper-case hex";
  if (std::strtoul(digits.c_str(), nullptr, 16) != sum) return "checksum does not match";
  if (line.size() > 82) return "longer than 82 characters";
  return {};
}

std::vector<std::string> Fields(const std::string& line) {
  const size_t star = line.find('*');
  std::string body = line.substr(1, star == std::string::npos ? std::string::npos : star - 1);
  std::vector<std::string> fields;
  std::stringstream stream(body);
  std::string field;
  while (std::getline(stream, field, ',')) fields.push_back(field);
  if (!body.empty() && body.back() == ',') fields.emplace_back();
  return fields;
}

double Coordinate(const std::string& value, const std::string& hemisphere) {
  const double raw = std::stod(value);
  const double degrees = std::floor(raw / 100.0);
  const double result = degrees + (raw - degrees * 100.0) / 60.0;
  return hemisphere == "S" || hemisphere == "W" ? -result : result;
}

std::string ReadBack(const std::string& bytes) {
  TempDir dir;
  dir.Write("r.nmea", bytes);
  EncodedTextReader reader;
  reader.Open(dir.WideFile("r.nmea"));
  std::string text;
  for (char16_t c; reader.ReadChar(&c);) text += c <= 0xFF ? static_cast<char>(c) : '?';
  return text;
}

}  // namespace kavo::test
