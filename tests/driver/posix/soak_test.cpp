// Drivers created, started, stopped and released from several threads in
// random order, and from their own callbacks, on recordings and on
// simulated receivers, with port searches beside them; afterwards no
// descriptor and no thread may be left.
// KAVOGPS_SOAK_SECONDS sets how long (3 s unless given).
// With the argument "exit", starts four drivers and returns from main while
// they run: nothing the threads reach may be destroyed under them.
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
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

long Entries(const char* folder) {
  return std::distance(std::filesystem::directory_iterator(folder), std::filesystem::directory_iterator());
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

GPSDriverHandle PortDriver(const std::u16string& name, GPSSentenceCallback onSentence = OnSentence) {
  const COMPortParams params{4800, 0, 0, 8};
  COMPortInfoHandle port = COMPortInfo_Create(K(name), &params);
  GPSDriverHandle driver = GPSDriver_CreateFromCOMPort(port, nullptr, nullptr, onSentence);
  COMPortInfo_Release(port);
  return driver;
}

struct Slot {
  std::mutex mutex;
  GPSDriverHandle driver = nullptr;
  bool running = false;
};

std::vector<Slot>* g_slots = nullptr;
std::atomic<long> g_cycles{0}, g_fromCallbacks{0};

// The sentence callback of the driver in slot N, which now and then stops
// or releases that driver itself. It never waits for the slot: a worker
// holding it may be stopping this very driver.
template <size_t N>
void SelfEnding(const KavoChar*) {
  ++g_sentences;
  thread_local std::mt19937 random(static_cast<unsigned>(N));
  if (random() % 8 != 0) return;
  Slot& slot = (*g_slots)[N];
  std::unique_lock<std::mutex> lock(slot.mutex, std::try_to_lock);
  if (!lock || !slot.driver) return;
  ++g_fromCallbacks;
  if (random() % 2) {
    GPSDriver_Stop(slot.driver);
  } else {
    GPSDriver_Release(slot.driver);
    slot.driver = nullptr;
    ++g_cycles;
  }
  slot.running = false;
}
constexpr GPSSentenceCallback kSelfEnding[] = {SelfEnding<0>, SelfEnding<1>};

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
  const long fdsBefore = Entries("/proc/self/fd"), threadsBefore = Entries("/proc/self/task");
  std::atomic<long>& cycles = g_cycles;
  std::atomic<long> failures{0};
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
    g_slots = &slots;
    const auto end = Clock::now() + length;
    std::vector<std::thread> workers;
    for (unsigned id = 0; id < 4; ++id) {
      workers.emplace_back([&, id] {
        std::mt19937 random(id);
        while (Clock::now() < end) {
          const size_t index = random() % slots.size();
          Slot& slot = slots[index];
          std::lock_guard<std::mutex> lock(slot.mutex);
          if (!slot.driver) {
            const size_t source = random() % ports.size();  // the last stands for a recording
            const GPSSentenceCallback onSentence = index < std::size(kSelfEnding) ? kSelfEnding[index] : OnSentence;
            slot.driver = source < ports.size() - 1
                              ? PortDriver(ports[source], onSentence)
                              : GPSDriver_CreateFromFile(K(recording), 1 + random() % 50, random() % 2, nullptr,
                                                         nullptr, onSentence);
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
  long fdsAfter = 0, threadsAfter = 0;
  for (int wait = 0; wait < 100; ++wait) {
    fdsAfter = Entries("/proc/self/fd");
    threadsAfter = Entries("/proc/self/task");
    if (fdsAfter <= fdsBefore && threadsAfter <= threadsBefore) break;
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  std::remove(std::string(recording.begin(), recording.end()).c_str());
  std::printf(
      "soak: %ld driver lives in %lld s, %ld sentences, %ld stops or releases from callbacks, %ld failed starts "
      "or stops, a port driver %s afterwards; descriptors %ld -> %ld, threads %ld -> %ld\n",
      cycles.load(), static_cast<long long>(length.count()), g_sentences.load(), g_fromCallbacks.load(),
      failures.load(), receiving ? "receives" : "DOES NOT RECEIVE", fdsBefore, fdsAfter, threadsBefore, threadsAfter);
  return receiving && cycles > 0 && g_fromCallbacks > 0 && fdsAfter <= fdsBefore && threadsAfter <= threadsBefore ? 0
                                                                                                                  : 1;
}
