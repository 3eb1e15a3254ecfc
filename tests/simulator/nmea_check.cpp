#include "nmea_check.h"

#include <cmath>
#include <cstdlib>
#include <sstream>

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

namespace {
constexpr double kRad = 3.14159265358979323846 / 180.0;
}

double DistanceMetres(double lat1, double lon1, double lat2, double lon2) {
  const double dLat = (lat2 - lat1) * kRad, dLon = (lon2 - lon1) * kRad;
  const double a = std::sin(dLat / 2) * std::sin(dLat / 2) +
                   std::cos(lat1 * kRad) * std::cos(lat2 * kRad) * std::sin(dLon / 2) * std::sin(dLon / 2);
  return 2.0 * 6371008.8 * std::asin(std::sqrt(a));
}

double BearingDegrees(double lat1, double lon1, double lat2, double lon2) {
  const double y = std::sin((lon2 - lon1) * kRad) * std::cos(lat2 * kRad);
  const double x = std::cos(lat1 * kRad) * std::sin(lat2 * kRad) -
                   std::sin(lat1 * kRad) * std::cos(lat2 * kRad) * std::cos((lon2 - lon1) * kRad);
  return std::fmod(std::atan2(y, x) / kRad + 360.0, 360.0);
}

double AngleDifference(double a, double b) {
  const double d = std::fmod(std::fabs(a - b), 360.0);
  return d > 180.0 ? 360.0 - d : d;
}

bool Dilution(const std::vector<Look>& looks, double* pdop, double* hdop, double* vdop) {
  if (looks.size() < 4) return false;
  // Normal matrix, then its inverse through a Cholesky factor L: the
  // diagonal of (L L')^-1 from the columns of L^-1.
  double a[4][4] = {};
  for (const Look& l : looks) {
    const double row[4] = {std::cos(l.elevation * kRad) * std::sin(l.azimuth * kRad),
                           std::cos(l.elevation * kRad) * std::cos(l.azimuth * kRad),
                           std::sin(l.elevation * kRad), 1.0};
    for (int i = 0; i < 4; ++i)
      for (int j = 0; j < 4; ++j) a[i][j] += row[i] * row[j];
  }
  double lower[4][4] = {};
  for (int i = 0; i < 4; ++i) {
    for (int j = 0; j <= i; ++j) {
      double sum = a[i][j];
      for (int k = 0; k < j; ++k) sum -= lower[i][k] * lower[j][k];
      if (i == j) {
        if (sum <= 1e-12) return false;
        lower[i][i] = std::sqrt(sum);
      } else {
        lower[i][j] = sum / lower[j][j];
      }
    }
  }
  double inverse[4][4] = {};  // L^-1, lower triangular
  for (int i = 0; i < 4; ++i) {
    inverse[i][i] = 1.0 / lower[i][i];
    for (int j = 0; j < i; ++j) {
      double sum = 0;
      for (int k = j; k < i; ++k) sum -= lower[i][k] * inverse[k][j];
      inverse[i][j] = sum / lower[i][i];
    }
  }
  double diagonal[3] = {};  // (L^-1)' L^-1
  for (int d = 0; d < 3; ++d)
    for (int k = 0; k < 4; ++k) diagonal[d] += inverse[k][d] * inverse[k][d];
  *hdop = std::sqrt(diagonal[0] + diagonal[1]);
  *vdop = std::sqrt(diagonal[2]);
  *pdop = std::sqrt(diagonal[0] + diagonal[1] + diagonal[2]);
  return true;
}

bool DecodeRecording(const std::string& bytes, const std::string& encoding, std::u32string* text,
                     std::string* problem) {
  const std::string mark = encoding == "utf8"      ? "\xEF\xBB\xBF"
                           : encoding == "utf16le" ? "\xFF\xFE"
                           : encoding == "utf16be" ? "\xFE\xFF"
                                                   : "";
  *problem = bytes.compare(0, mark.size(), mark) != 0 ? "no byte-order mark for " + encoding : "";
  const bool wide = mark.size() == 2;
  if (wide && bytes.size() % 2 != 0) *problem = "odd length of UTF-16 text";
  text->clear();
  for (size_t i = mark.size(); i < bytes.size() && problem->empty(); ++i) {
    auto byte = [&](size_t at) { return static_cast<char32_t>(static_cast<unsigned char>(bytes[at])); };
    if (wide) {
      text->push_back(encoding == "utf16le" ? byte(i) | byte(i + 1) << 8 : byte(i) << 8 | byte(i + 1));
      ++i;
    } else if (encoding != "utf8" || byte(i) < 0x80) {
      text->push_back(byte(i));
    } else if ((byte(i) & 0xE0) == 0xC0 && i + 1 < bytes.size() && (byte(i + 1) & 0xC0) == 0x80) {
      text->push_back((byte(i) & 0x1F) << 6 | (byte(i + 1) & 0x3F));
      ++i;
    } else {
      *problem = "unexpected UTF-8 sequence at byte " + std::to_string(i);
    }
  }
  return problem->empty();
}

}  // namespace kavo::test
