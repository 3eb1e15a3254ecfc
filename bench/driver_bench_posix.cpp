// A running driver on a pseudo-terminal, through the exported functions:
// sentence latency, CPU on a silent port, memory a driver adds, and how long
// GPSDriver_Stop takes on a live port.
//
//   bench_driver [--smoke] [--seconds N]
#include <fcntl.h>
#include <pty.h>
#include <sys/resource.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "KavoMobileGPS.h"

namespace {

using Clock = std::chrono::steady_clock;

std::atomic<int64_t> g_sentenceAt{0};  // steady-clock ns of the last sentence callback
std::atomic<int> g_sentences{0};

void OnSentence(const KavoChar*) {
  g_sentenceAt = Clock::now().time_since_epoch().count();
  ++g_sentences;
}

struct Pty {
  int master = -1, slave = -1;
  std::string path;
  Pty() {
    char name[256];
    termios raw{};
    cfmakeraw(&raw);
    if (openpty(&master, &slave, name, &raw, nullptr) != 0) {
      perror("openpty");
      std::exit(2);
    }
    path = name;
    // The slave stays open here so the line does not hang up when the
    // driver closes and reopens it.
  }
  ~Pty() {
    close(master);
    close(slave);
  }
};

GPSDriverHandle OpenDriver(const std::string& path, GPSSentenceCallback onSentence) {
  std::u16string wide(path.begin(), path.end());
  const COMPortParams params{4800, 0, 0, 8};
  COMPortInfoHandle port = COMPortInfo_Create(reinterpret_cast<const KavoChar*>(wide.c_str()), &params);
  GPSDriverHandle driver = GPSDriver_CreateFromCOMPort(port, nullptr, nullptr, onSentence);
  COMPortInfo_Release(port);
  if (!driver || !GPSDriver_Start(driver)) {
    std::fprintf(stderr, "cannot run a driver on %s (error %u)\n", path.c_str(), KavoMobileGPS_GetLastError());
    std::exit(2);
  }
  return driver;
}

long ResidentKiB() {
  std::ifstream statm("/proc/self/statm");
  long pages = 0, resident = 0;
  statm >> pages >> resident;
  return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

double CpuSeconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return usage.ru_utime.tv_sec + usage.ru_stime.tv_sec + (usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

void Latency(int samples) {
  Pty pty;
  GPSDriverHandle driver = OpenDriver(pty.path, OnSentence);
  const std::string sentence = "$GPGGA,123519,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,*47\r\n";
  std::vector<double> microseconds;
  for (int i = 0; i < samples; ++i) {
    const int before = g_sentences;
    if (write(pty.master, sentence.data(), sentence.size()) != static_cast<ssize_t>(sentence.size())) break;
    const auto written = Clock::now();
    while (g_sentences == before) {
      if (Clock::now() - written > std::chrono::seconds(2)) break;
      std::this_thread::yield();
    }
    if (g_sentences == before) {
      std::fprintf(stderr, "sentence %d never arrived\n", i);
      continue;
    }
    microseconds.push_back((g_sentenceAt - written.time_since_epoch().count()) / 1e3);
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }

  // Stop on a live port, five times: the reading thread is blocked in a
  // read between sentences, which a stop should cut short.
  std::vector<double> stopMs;
  for (int i = 0; i < 5; ++i) {
    if (i > 0 && GPSDriver_Start(driver) != 1) break;
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    const auto stopStart = Clock::now();
    GPSDriver_Stop(driver);
    stopMs.push_back(std::chrono::duration<double, std::milli>(Clock::now() - stopStart).count());
  }
  GPSDriver_Release(driver);
  std::sort(stopMs.begin(), stopMs.end());

  std::sort(microseconds.begin(), microseconds.end());
  if (microseconds.empty()) return;
  const auto at = [&](double q) { return microseconds[static_cast<size_t>(q * (microseconds.size() - 1))]; };
  std::printf("sentence latency: %zu samples, median %.0f us, p99 %.0f us, max %.0f us (target p99 < 5000 us)\n",
              microseconds.size(), at(0.5), at(0.99), microseconds.back());
  std::printf(
      "GPSDriver_Stop on a live port: median %.1f ms, max %.1f ms over %zu stops "
      "(target: a few ms where a read can be cut short, else within one read time-out, 700 ms)\n",
      stopMs[stopMs.size() / 2], stopMs.back(), stopMs.size());
}

void SilentPort(int seconds) {
  Pty pty;
  GPSDriverHandle driver = OpenDriver(pty.path, nullptr);
  std::this_thread::sleep_for(std::chrono::seconds(1));  // settle: threads and buffers exist
  const double cpuBefore = CpuSeconds();
  const auto start = Clock::now();
  std::this_thread::sleep_for(std::chrono::seconds(seconds));
  const double wall = std::chrono::duration<double>(Clock::now() - start).count();
  const double cpu = CpuSeconds() - cpuBefore;
  GPSDriver_Stop(driver);
  GPSDriver_Release(driver);
  std::printf("silent port: %.4f%% of one core over %.0f s (target < 0.1%%)\n", 100.0 * cpu / wall, wall);
}

// A single driver adds less than a page can show, so many run at once and
// the growth is shared out among them.
void MemoryPerDriver(int drivers) {
  std::vector<std::unique_ptr<Pty>> ptys;
  std::vector<GPSDriverHandle> handles;
  for (int i = 0; i < drivers; ++i) ptys.push_back(std::make_unique<Pty>());
  // One driver first, so what every driver shares (the library's own
  // start-up, the log) is not counted.
  handles.push_back(OpenDriver(ptys[0]->path, nullptr));
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  const long before = ResidentKiB();
  for (int i = 1; i < drivers; ++i) handles.push_back(OpenDriver(ptys[i]->path, nullptr));
  std::this_thread::sleep_for(std::chrono::seconds(1));
  const long after = ResidentKiB();
  for (GPSDriverHandle driver : handles) {
    GPSDriver_Stop(driver);
    GPSDriver_Release(driver);
  }
  std::printf("resident memory a running driver adds: %.1f KiB (%d drivers; target < 256 KiB)\n",
              double(after - before) / (drivers - 1), drivers - 1);
}

}  // namespace

int main(int argc, char** argv) {
  bool smoke = false;
  int seconds = 60;
  for (int i = 1; i < argc; ++i) {
    if (!std::strcmp(argv[i], "--smoke"))
      smoke = true;
    else if (!std::strcmp(argv[i], "--seconds") && i + 1 < argc)
      seconds = std::atoi(argv[++i]);
    else {
      std::fprintf(stderr, "usage: %s [--smoke] [--seconds N]\n", argv[0]);
      return 2;
    }
  }
  if (smoke) seconds = 2;
  Latency(smoke ? 50 : 1000);
  SilentPort(seconds);
  MemoryPerDriver(smoke ? 5 : 33);
  return 0;
}
