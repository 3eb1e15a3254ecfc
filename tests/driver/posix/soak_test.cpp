// Drivers created, started, stopped and released from several threads in
// random order, on recordings and on simulated receivers, with port
// searches beside them; afterwards no descriptor and no thread may be left.
// KAVOGPS_SOAK_SECONDS sets how long (3 s unless given).
// With the argument "exit", starts four drivers and returns from main while
// they run: nothing the threads reach may be destroyed under them.
#include <dirent.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "KavoMobileGPS.h"
#include "common/test_clock.h"
#include "sim/posix/pty_receiver.h"

namespace {

using Clock = std::chrono::steady_clock;

int Entries(const char* folder) {
  int count = 0;
  if (DIR* dir = opendir(folder)) {
    while (readdir(dir)) ++count;
    closedir(dir);
  }
  return count;
}

std::u16string Wide(const std::string& text) { return std::u16string(text.begin(), text.end()); }
const KavoChar* K(const std::u16string& text) { return reinterpret_cast<const KavoChar*>(text.c_str()); }

std::u16string WriteRecording() {
  const std::string path = "/tmp/kavogps-soak-" + std::to_string(getpid()) + ".nmea";
  std::ofstream(path) << "$GPGGA,123519,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,*47\r\n"
                         "$GPGSV,1,1,02,01,40,083,46,02,17,308,41*70\r\n";
  return Wide(path);
}

std::atomic<long> g_sentences{0};
void OnSentence(const KavoChar*) { ++g_sentences; }

GPSDriverHandle PortDriver(const std::u16string& name) {
  const COMPortParams params{4800, 0, 0, 8};
  COMPortInfoHandle port = COMPortInfo_Create(K(name), &params);
  GPSDriverHandle driver = GPSDriver_CreateFromCOMPort(port, nullptr, nullptr, OnSentence);
  COMPortInfo_Release(port);
  return driver;
}

struct Slot {
  std::mutex mutex;
  GPSDriverHandle driver = nullptr;
  bool running = false;
};

}  // namespace

int main(int argc, char** argv) {
  const std::u16string recording = WriteRecording();
  if (argc > 1 && std::string(argv[1]) == "exit") {
    static GPSDriverHandle running[4];  // reachable to the end, never released
    for (auto& driver : running) {
      driver = GPSDriver_CreateFromFile(K(recording), 1 + int(&driver - running), 1, nullptr, nullptr, OnSentence);
      if (GPSDriver_Start(driver) != 1) return 1;
    }
    // Threads start and end, and log it, while the process exits.
    for (GPSDriverHandle driver : running)
      std::thread([driver] {
        for (;;) GPSDriver_Stop(driver), GPSDriver_Start(driver);
      }).detach();
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    return 0;
  }
  const char* seconds = std::getenv("KAVOGPS_SOAK_SECONDS");
  const auto length = std::chrono::seconds(seconds ? std::atoi(seconds) : 3);
  std::thread([] {}).join();  // a sanitizer's own helper thread starts with the first thread
  const int fdsBefore = Entries("/proc/self/fd"), threadsBefore = Entries("/proc/self/task");
  std::atomic<long> cycles{0}, failures{0};
  bool receiving = false;
  {
    kavo::test::FastClock clock(10);  // the 500 ms pause before a port opens lasts 50 ms
    std::vector<std::unique_ptr<kavo::sim::PtyReceiver>> receivers;
    std::vector<std::u16string> ports;
    for (uint32_t seed : {1u, 2u, 3u}) {
      kavo::sim::PtyReceiverOptions options;
      options.simulation.seed = seed;
      options.realWaitMs = [](uint32_t ms) { return ms / 10; };
      receivers.push_back(std::make_unique<kavo::sim::PtyReceiver>(options));
      receivers.back()->Start();
      ports.push_back(Wide(receivers.back()->DevicePath()));
    }
    std::vector<Slot> slots(6);
    const auto end = Clock::now() + length;
    std::vector<std::thread> workers;
    for (unsigned id = 0; id < 4; ++id) {
      workers.emplace_back([&, id] {
        std::mt19937 random(id);
        while (Clock::now() < end) {
          Slot& slot = slots[random() % slots.size()];
          std::lock_guard<std::mutex> lock(slot.mutex);
          if (!slot.driver) {
            const size_t source = random() % ports.size();  // the last stands for a recording
            slot.driver = source < ports.size() - 1
                              ? PortDriver(ports[source])
                              : GPSDriver_CreateFromFile(K(recording), 1 + random() % 50, random() % 2, nullptr,
                                                         nullptr, OnSentence);
          } else if (random() % 4 == 0) {
            GPSDriver_Release(slot.driver);
            slot.driver = nullptr;
            slot.running = false;
            ++cycles;
          } else if (slot.running) {
            if (!GPSDriver_Stop(slot.driver)) ++failures;
            slot.running = false;
          } else {
            slot.running = GPSDriver_Start(slot.driver) == 1;
            if (!slot.running) ++failures;
          }
        }
      });
    }
    std::thread searcher([&] {
      while (Clock::now() < end) {
        COMPortInfo_Release(COMPortInfo_FindGPSCOMPort(0));
        COMPortCollection_Release(COMPortCollection_Create(0));
      }
    });
    for (auto& worker : workers) worker.join();
    searcher.join();
    for (Slot& slot : slots) GPSDriver_Release(slot.driver);
    // Afterwards the library still works: a driver on the receiver the
    // soak left alone (the last of them) receives.
    GPSDriverHandle driver = PortDriver(ports[2]);
    receiving = GPSDriver_Start(driver) == 1;
    for (int wait = 0; receiving && wait < 600 && GPSDriver_GetStatus(driver) != GPS_STATUS_RECEIVING; ++wait)
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    receiving = receiving && GPSDriver_GetStatus(driver) == GPS_STATUS_RECEIVING;
    GPSDriver_Release(driver);
  }
  // Threads given up on end within one read; give them that long.
  int fdsAfter = 0, threadsAfter = 0;
  for (int wait = 0; wait < 100; ++wait) {
    fdsAfter = Entries("/proc/self/fd");
    threadsAfter = Entries("/proc/self/task");
    if (fdsAfter <= fdsBefore && threadsAfter <= threadsBefore) break;
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  std::remove(std::string(recording.begin(), recording.end()).c_str());
  std::printf(
      "soak: %ld driver lives in %lld s, %ld sentences, %ld failed starts or stops, a port driver %s "
      "afterwards; descriptors %d -> %d, threads %d -> %d\n",
      cycles.load(), static_cast<long long>(length.count()), g_sentences.load(), failures.load(),
      receiving ? "receives" : "DOES NOT RECEIVE", fdsBefore, fdsAfter, threadsBefore, threadsAfter);
  return receiving && cycles > 0 && fdsAfter <= fdsBefore && threadsAfter <= threadsBefore ? 0 : 1;
}
