#include "sim/dop.h"

#include <cmath>
#include <utility>

namespace kavo::sim {

bool ComputeDilution(const std::vector<LookAngles>& used, Dilution* out) {
  if (used.size() < 4) return false;
  // Normal matrix G'G of the rows (unit line of sight east, north, up, 1),
  // inverted by Gauss-Jordan with the identity beside it.
  double m[4][8] = {};
  for (const LookAngles& look : used) {
    const double el = look.elevation * kDegToRad, az = look.azimuth * kDegToRad;
    const double row[4] = {std::cos(el) * std::sin(az), std::cos(el) * std::cos(az), std::sin(el), 1.0};
    for (int i = 0; i < 4; ++i)
      for (int j = 0; j < 4; ++j) m[i][j] += row[i] * row[j];
  }
  for (int i = 0; i < 4; ++i) m[i][4 + i] = 1.0;
  for (int col = 0; col < 4; ++col) {
    int pivot = col;
    for (int r = col + 1; r < 4; ++r)
      if (std::fabs(m[r][col]) > std::fabs(m[pivot][col])) pivot = r;
    if (std::fabs(m[pivot][col]) < 1e-9) return false;
    for (int c = 0; c < 8; ++c) std::swap(m[col][c], m[pivot][c]);
    const double p = m[col][col];
    for (int c = 0; c < 8; ++c) m[col][c] /= p;
    for (int r = 0; r < 4; ++r) {
      if (r == col) continue;
      const double f = m[r][col];
      for (int c = 0; c < 8; ++c) m[r][c] -= f * m[col][c];
    }
  }
  const double east = m[0][4], north = m[1][5], up = m[2][6];
  if (east <= 0 || north <= 0 || up <= 0) return false;
  out->hdop = std::sqrt(east + north);
  out->vdop = std::sqrt(up);
  out->pdop = std::sqrt(east + north + up);
  return true;
}

}  // namespace kavo::sim
