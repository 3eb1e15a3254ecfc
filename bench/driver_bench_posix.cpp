// A running driver on a pseudo-terminal, through the exported functions:
// sentence latency, CPU on a silent port, context switches and CPU on a
// port at a receiver's pace, memory a driver adds, and how long
// GPSDriver_Stop takes on a live port.
//
//   bench_driver [--smoke] [--seconds N]
#include <fcntl.h>
#include <pthread.h>
#include <pty.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
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

// Voluntary and involuntary context switches of every thread of this
// process, by thread id, from /proc (getrusage has only the process's sum).
std::map<int, std::pair<long, long>> SwitchesByThread() {
  std::map<int, std::pair<long, long>> threads;
  for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
    std::ifstream status(task.path() / "status");
    std::string key;
    long value = 0;
    auto& counts = threads[std::stoi(task.path().filename().string())];
    while (status >> key)
      if (key == "voluntary_ctxt_switches:" && status >> value)
        counts.first = value;
      else if (key == "nonvoluntary_ctxt_switches:" && status >> value)
        counts.second = value;
  }
  return threads;
}

// A receiver's pace: 5 epochs a second of 7 sentences, each epoch written at
// once, from a child process so that the writer's own sleeps are not counted.
// Over `seconds` the process's context switches (getrusage) and CPU time are
// shared out per epoch and per sentence that reached the callback.
void ReceiverPace(int seconds) {
  std::string epoch;
  for (const char* body :
       {"GPGGA,123519,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,", "GPGSA,A,3,04,05,,09,12,,,24,,,,,2.5,1.3,2.1",
        "GPGSV,3,1,11,03,03,111,00,04,15,270,00,06,01,010,00,13,06,292,00",
        "GPGSV,3,2,11,14,25,170,00,16,57,208,39,18,67,296,40,19,40,246,00",
        "GPGSV,3,3,11,22,42,067,42,24,14,311,43,27,05,244,00,,,,",
        "GPRMC,123519,A,4807.038,N,01131.000,E,022.4,084.4,230394,003.1,W", "GPVTG,054.7,T,034.4,M,005.5,N,010.2,K"}) {
    unsigned sum = 0;
    for (const char* p = body; *p; ++p) sum ^= static_cast<unsigned char>(*p);
    char tail[8];
    std::snprintf(tail, sizeof tail, "*%02X\r\n", sum);
    epoch += std::string("$") + body + tail;
  }
  constexpr int kSentencesPerEpoch = 7, kEpochMs = 200;
  Pty pty;
  const pid_t writer = fork();
  if (writer == 0) {
    auto next = Clock::now();
    for (;;) {
      if (write(pty.master, epoch.data(), epoch.size()) < 0) _exit(1);
      next += std::chrono::milliseconds(kEpochMs);
      std::this_thread::sleep_until(next);
    }
  }
  GPSDriverHandle driver = OpenDriver(pty.path, OnSentence);
  std::this_thread::sleep_for(std::chrono::seconds(1));  // settle: threads and buffers exist
  rusage before{}, after{};
  const auto threadsBefore = SwitchesByThread();
  const int sentencesBefore = g_sentences;
  getrusage(RUSAGE_SELF, &before);
  std::this_thread::sleep_for(std::chrono::seconds(seconds));
  getrusage(RUSAGE_SELF, &after);
  const int sentences = g_sentences - sentencesBefore;
  const auto threadsAfter = SwitchesByThread();
  GPSDriver_Stop(driver);
  GPSDriver_Release(driver);
  kill(writer, SIGKILL);
  waitpid(writer, nullptr, 0);
  if (sentences < kSentencesPerEpoch) return (void)std::fprintf(stderr, "receiver pace: no sentences arrived\n");

  const double epochs = double(sentences) / kSentencesPerEpoch;
  const long voluntary = after.ru_nvcsw - before.ru_nvcsw, involuntary = after.ru_nivcsw - before.ru_nivcsw;
  const auto us = [](const rusage& u) {
    return (u.ru_utime.tv_sec + u.ru_stime.tv_sec) * 1e6 + u.ru_utime.tv_usec + u.ru_stime.tv_usec;
  };
  std::printf(
      "receiver pace (%d epochs/s of %d sentences, %d s, %d sentences): context switches per epoch %.2f "
      "(%.2f voluntary, %.2f involuntary), per sentence %.2f; CPU %.0f us per epoch (target <= 1.5 per epoch)\n",
      1000 / kEpochMs, kSentencesPerEpoch, seconds, sentences, (voluntary + involuntary) / epochs, voluntary / epochs,
      involuntary / epochs, (voluntary + involuntary) / double(sentences), (us(after) - us(before)) / epochs);
  std::printf("  per epoch by thread, voluntary/involuntary:");
  for (const auto& [tid, counts] : threadsAfter) {
    const auto was = threadsBefore.find(tid);
    const auto base = was == threadsBefore.end() ? std::pair<long, long>() : was->second;
    if (counts != base)
      std::printf(" %.2f/%.2f", (counts.first - base.first) / epochs, (counts.second - base.second) / epochs);
  }
  std::printf("\n");
}

// Resident KiB by kind of mapping, from /proc/self/smaps: the main malloc
// heap, thread stacks (the size a thread gets by default), the malloc arenas
// of threads (glibc reserves 64 MiB for each, aligned to its size) and the
// rest.
std::map<std::string, long> ResidentByKind() {
  constexpr unsigned long kArena = 64ul << 20;
  pthread_attr_t attr;
  size_t stack = 0;
  pthread_attr_init(&attr);
  pthread_attr_getstacksize(&attr, &stack);
  pthread_attr_destroy(&attr);
  std::map<std::string, long> kib;
  std::ifstream smaps("/proc/self/smaps");
  std::string line, kind;
  unsigned long start = 0, end = 0, arena = ~0ul;
  while (std::getline(smaps, line)) {
    char perms[8] = {}, name[256] = {};
    if (std::sscanf(line.c_str(), "%lx-%lx %7s %*s %*s %*s %255s", &start, &end, perms, name) >= 3) {
      const bool anonymous = name[0] == 0;
      if (std::strcmp(name, "[heap]") == 0) {
        kind = "malloc heap";
      } else if (anonymous && std::strcmp(perms, "rw-p") == 0 && end - start == stack) {
        kind = "thread stacks";
      } else if (anonymous && (start % kArena == 0 || start / kArena == arena)) {
        kind = "thread malloc arenas";
        arena = start / kArena;
      } else {
        kind = "other";
      }
    } else if (line.rfind("Rss:", 0) == 0) {
      kib[kind] += std::atol(line.c_str() + 4);
    }
  }
  return kib;
}

int OpenFiles() {
  int files = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) ++files;
  return files;
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
  auto kinds = ResidentByKind();  // first, so that what reading it takes is in both counts
  const long before = ResidentKiB();
  const int files = OpenFiles();
  for (int i = 1; i < drivers; ++i) handles.push_back(OpenDriver(ptys[i]->path, nullptr));
  std::this_thread::sleep_for(std::chrono::seconds(1));
  const long after = ResidentKiB();
  for (auto& [kind, kib] : ResidentByKind()) kinds[kind] = kib - kinds[kind];
  const int moreFiles = OpenFiles() - files;
  for (GPSDriverHandle driver : handles) {
    GPSDriver_Stop(driver);
    GPSDriver_Release(driver);
  }
  std::printf("resident memory a running driver adds: %.1f KiB (%d drivers; target < 32 KiB)\n",
              double(after - before) / (drivers - 1), drivers - 1);
  std::printf("  of which, per driver:");
  for (const auto& [kind, kib] : kinds) std::printf(" %s %.1f KiB,", kind.c_str(), double(kib) / (drivers - 1));
  std::printf(" and %.1f open files\n", double(moreFiles) / (drivers - 1));
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
  ReceiverPace(smoke ? 2 : std::min(seconds, 20));
  MemoryPerDriver(smoke ? 5 : 33);
  return 0;
}
