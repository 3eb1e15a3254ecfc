#include "recording_generator.h"

#include <cmath>
#include <cstdint>
#include <cstdio>

namespace kavo::bench {
namespace {

// Appends "$body*hh\r\n".
void Sentence(std::string* out, const char* body) {
  uint8_t sum = 0;
  for (const char* p = body; *p; ++p) sum ^= static_cast<uint8_t>(*p);
  char tail[8];
  std::snprintf(tail, sizeof tail, "*%02X\r\n", sum);
  *out += '$';
  *out += body;
  *out += tail;
}

// ddmm.mmmm with its hemisphere letter.
void Angle(char* out, size_t size, double degrees, int width, char positive, char negative) {
  const double a = std::fabs(degrees);
  const int whole = static_cast<int>(a);
  std::snprintf(out, size, "%0*d%07.4f,%c", width, whole, (a - whole) * 60.0, degrees >= 0 ? positive : negative);
}

}  // namespace

std::string GenerateRecording(size_t bytes) {
  std::string out;
  out.reserve(bytes + 1024);
  uint32_t seed = 12345;
  auto noise = [&seed] {  // a small deterministic generator
    seed = seed * 1103515245u + 12345u;
    return static_cast<int>((seed >> 16) % 1000);
  };
  double lat = 48.1173, lon = 11.5166;
  char body[256], la[32], lo[32];
  for (int second = 0; out.size() < bytes; ++second) {
    const int hh = (8 + second / 3600) % 24, mm = second / 60 % 60, ss = second % 60;
    const int day = 1 + second / 86400 % 28;
    const double course = std::fmod(second * 0.7, 360.0);
    const double knots = 20.0 + noise() / 100.0;
    lat += std::cos(course * 0.0174532925) * knots / 216000.0;
    lon += std::sin(course * 0.0174532925) * knots / 216000.0;
    Angle(la, sizeof la, lat, 2, 'N', 'S');
    Angle(lo, sizeof lo, lon, 3, 'E', 'W');
    std::snprintf(body, sizeof body, "GPGGA,%02d%02d%02d.%02d,%s,%s,1,%02d,%.1f,%.1f,M,46.9,M,,", hh, mm, ss,
                  noise() % 100, la, lo, 6 + noise() % 6, 0.8 + noise() / 1000.0, 540.0 + noise() / 100.0);
    Sentence(&out, body);
    std::snprintf(body, sizeof body, "GPGSA,A,3,03,06,14,18,19,22,25,29,,,,,%.1f,%.1f,%.1f", 1.5 + noise() / 1000.0,
                  0.8 + noise() / 1000.0, 1.2 + noise() / 1000.0);
    Sentence(&out, body);
    if (second % 2 == 0) {
      for (int message = 1; message <= 3; ++message) {
        int n = std::snprintf(body, sizeof body, "GPGSV,3,%d,10", message);
        for (int i = 0; i < (message < 3 ? 4 : 2); ++i)
          n += std::snprintf(body + n, sizeof body - n, ",%02d,%02d,%03d,%02d", message * 4 + i, noise() % 90,
                             noise() % 360, 20 + noise() % 30);
        Sentence(&out, body);
      }
    }
    std::snprintf(body, sizeof body, "GPRMC,%02d%02d%02d.00,A,%s,%s,%.2f,%.1f,%02d0426,,,A", hh, mm, ss, la, lo, knots,
                  course, day);
    Sentence(&out, body);
    std::snprintf(body, sizeof body, "GPVTG,%.1f,T,%.1f,M,%.2f,N,%.2f,K,A", course, std::fmod(course + 357.5, 360.0),
                  knots, knots * 1.852);
    Sentence(&out, body);
  }
  return out;
}

}  // namespace kavo::bench
