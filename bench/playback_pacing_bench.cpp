// How closely a recording plays at its pace, through the exported functions
// and the standard library's steady clock:
//   bench_playback_pacing [--check] [MS_PER_LINE...]   (default 5 20 100)
// Plays 300 lines at each pace and prints the time per line from the first
// sentence callback to the last. With --check it fails when one runs more
// than 3 % fast or 10 % slow: the Windows build runs it so under Wine, where
// the library's clock once made the pace up to 40 % fast, or, ticking in
// 16 ms steps, up to 40 % slow. A loaded machine only delays lines, hence
// the wider bound on that side.
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "KavoMobileGPS.h"

namespace {

using Clock = std::chrono::steady_clock;
constexpr int kLines = 300;

// The times are written by the reading thread before the count rises.
struct Arrivals {
  std::atomic<int> count{0};
  Clock::time_point first, last;
};

void OnSentence(void* context, const KavoChar*) {
  auto& arrivals = *static_cast<Arrivals*>(context);
  const Clock::time_point now = Clock::now();
  if (arrivals.count.load() == 0) arrivals.first = now;
  arrivals.last = now;
  ++arrivals.count;
}

// Milliseconds a line at `msPerLine`, or -1 when the playback failed.
double Play(const std::basic_string<KavoChar>& path, unsigned msPerLine) {
  const KavoMobileGPS_Callbacks callbacks{nullptr, nullptr, OnSentence};
  Arrivals arrivals;
  GPSDriverHandle driver = KavoMobileGPS_CreateDriverFromFile(path.c_str(), msPerLine, 0, &callbacks, &arrivals);
  if (!driver || !GPSDriver_Start(driver)) return -1;
  const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(3 * kLines * msPerLine);
  while (arrivals.count.load() < kLines && Clock::now() < deadline)
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  GPSDriver_Stop(driver);  // no callback after it returned
  GPSDriver_Release(driver);
  if (arrivals.count.load() < kLines) return -1;
  return std::chrono::duration<double, std::milli>(arrivals.last - arrivals.first).count() / (arrivals.count - 1);
}

}  // namespace

int main(int argc, char** argv) {
  bool check = false;
  std::vector<unsigned> paces;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--check") == 0)
      check = true;
    else
      paces.push_back(static_cast<unsigned>(std::strtoul(argv[i], nullptr, 10)));
  }
  if (paces.empty()) paces = {5, 20, 100};

  const char* name = "pacing.nmea";
  std::FILE* file = std::fopen(name, "wb");
  if (!file) return std::perror(name), 2;
  for (int i = 0; i < kLines; ++i)
    std::fprintf(file, "$GPGGA,1200%02d,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,\r\n", i % 60);
  std::fclose(file);
  const std::basic_string<KavoChar> path(name, name + std::strlen(name));

  int failures = 0;
  for (const unsigned pace : paces) {
    const double measured = Play(path, pace);
    const bool ok = measured >= 0.97 * pace && measured <= 1.1 * pace;
    std::printf("%3u ms a line: %7.2f ms over %d lines%s\n", pace, measured, kLines, ok ? "" : "  (out of bounds)");
    failures += !ok;
  }
  std::remove(name);
  return check && failures ? 1 : 0;
}
