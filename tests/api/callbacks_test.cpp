// Callbacks are application code. Whatever one does (wait for the thread
// that stops or releases the driver, stop or release the driver itself,
// read it), Stop and Release stay bounded, a stopped driver stays stopped,
// nothing calls back once Stop or Release returned, and nothing is freed
// under a running callback. Through the exported functions, on a recording
// and on a receiver at a serial port.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <memory>
#include <string>
#include <thread>

#include "KavoMobileGPS.h"
#include "common/eventually.h"
#include "common/log_capture.h"
#include "common/port_peer.h"
#include "common/temp_dir.h"
#include "driver/gps_reading_thread_impl.h"

namespace kavo {
namespace {

using namespace std::chrono_literals;
using test::Eventually;

// Real time, but a stop gives up on a thread after 300 ms instead of 5 s,
// the watchdog notices a silent source after 20 ms, and the pause before a
// port opens is short.
class BoundClock : public platform::Clock {
 public:
  BoundClock() { platform::SetClock(this); }
  ~BoundClock() override { platform::SetClock(nullptr); }
  uint32_t TickCount() override { return platform::SystemClock().TickCount(); }
  void Sleep(uint32_t ms) override { platform::SystemClock().Sleep(ms < 10 ? ms : 10); }
  platform::LocalTime LocalNow() override { return platform::SystemClock().LocalNow(); }
  uint32_t RealWaitMs(uint32_t ms) override {
    if (ms == GpsReadingThreadImpl::kStopWaitMs) return 300;
    if (ms == GpsReadingThreadImpl::kWatchdogMs) return 20;
    return ms;
  }
};

// Epochs whose position moves, so that data keeps changing.
std::string Epoch(int i) {
  char text[160];
  std::snprintf(text, sizeof text,
                "$GPGGA,12%02d%02d,4807.%03d,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,\r\n"
                "$GPGSV,1,1,02,01,40,083,46,02,17,308,%02d\r\n",
                i / 60 % 60, i % 60, i % 1000, 20 + i % 30);
  return text;
}

enum class Source { kRecording, kPort };
// Which callback acts: the sentence, data or status callback, or the
// status callback of a silent source (from the watchdog).
enum class Trigger { kSentence, kData, kStatus, kSilence };
// What it does. kAppStops and kAppReleases: it waits until the
// application's Stop or Release (on its own thread) returned.
enum class Action { kAppStops, kAppReleases, kStop, kRelease, kRead };

struct Case {
  Source source;
  Trigger trigger;
  Action action;

  std::atomic<GPSDriverHandle> driver{nullptr};
  std::atomic<bool> acting{false}, acted{false}, ended{false};
  std::atomic<int> late{0};
  // What the callback saw.
  std::atomic<bool> waitExpired{false}, readOk{false};
  std::atomic<int32_t> stopResult{-1}, statusAfterStop{1};

  void Called(Trigger kind) {
    if (ended) ++late;
    if (kind != trigger || acting.exchange(true)) return;
    Act();
    acted = true;
  }

  void Act() {
    switch (action) {
      case Action::kAppStops:
      case Action::kAppReleases:
        waitExpired = !Eventually([&] { return ended.load(); }, 10s);
        break;
      case Action::kStop:
        stopResult = GPSDriver_Stop(driver);
        statusAfterStop = GPSDriver_GetStatus(driver);
        ended = true;
        break;
      case Action::kRelease:
        GPSDriver_Release(driver.exchange(nullptr));
        ended = true;
        break;
      case Action::kRead: {
        GPSLocation location;
        GPSSatellitesStateHandle sky = GPSDriver_GetSatellitesInfo(driver);
        readOk = GPSDriver_GetLocation(driver, &location) == 1 && sky != nullptr &&
                 GPSDriver_GetStatus(driver) >= GPS_STATUS_PARSE_ERROR && GPSDriver_GetTimeoutInterval(driver) == 0;
        GPSSatellitesState_Release(sky);
        break;
      }
    }
  }
};

Case* g_case = nullptr;
void OnStatus() { g_case->Called(Trigger::kStatus); }
void OnData(uint32_t) { g_case->Called(Trigger::kData); }
void OnSentence(const KavoChar*) { g_case->Called(Trigger::kSentence); }
void OnSilentStatus() { g_case->Called(Trigger::kSilence); }

const KavoChar* K(const std::u16string& text) { return reinterpret_cast<const KavoChar*>(text.c_str()); }

class CallbackRun {
 public:
  explicit CallbackRun(Case& c) : case_(c) {
    g_case = &c;
    const bool silent = c.trigger == Trigger::kSilence;
    GPSStatusCallback onStatus = silent ? OnSilentStatus : OnStatus;
    if (c.source == Source::kRecording) {
      std::string text;
      for (int i = 0; i < 200; ++i) text += Epoch(i);
      dir_.Write("run.nmea", text);
      // Quiet between slow lines: the watchdog notices before the next one.
      c.driver =
          GPSDriver_CreateFromFile(K(dir_.WideFile("run.nmea")), silent ? 100 : 2, 1, onStatus, OnData, OnSentence);
    } else {
      peer_ = test::NewPortPeer();
      const COMPortParams params{4800, 0, 0, 8};
      COMPortInfoHandle port = COMPortInfo_Create(K(peer_->PortName()), &params);
      c.driver = GPSDriver_CreateFromCOMPort(port, onStatus, OnData, OnSentence);
      COMPortInfo_Release(port);
      feeder_ = std::thread([this, silent] { Feed(silent ? 1 : -1); });
    }
    if (c.driver) {
      GPSDriver_SetTimeoutInterval(c.driver, silent || c.action == Action::kRead ? 0 : 60000);
      started_ = GPSDriver_Start(c.driver) == 1;
    }
  }

  ~CallbackRun() {
    stopFeeding_ = true;
    if (feeder_.joinable()) feeder_.join();
    if (GPSDriverHandle driver = case_.driver.exchange(nullptr)) {
      GPSDriver_Stop(driver);
      GPSDriver_Release(driver);
    }
    g_case = nullptr;
  }

  bool Started() const { return started_; }

 private:
  // `epochs` of them, or until the end of the run (-1); the receiver is
  // silent afterwards.
  void Feed(int epochs) {
    for (int i = 0; !stopFeeding_ && i != epochs; ++i) {
      peer_->Send(Epoch(i));
      std::this_thread::sleep_for(10ms);
    }
  }

  Case& case_;
  test::TempDir dir_;
  std::unique_ptr<test::PortPeer> peer_;
  std::thread feeder_;
  std::atomic<bool> stopFeeding_{false};
  bool started_ = false;
};

TEST(Callbacks, StopAndReleaseStayBoundedAndFinalWhateverACallbackDoes) {
  BoundClock clock;
  struct Row {
    Trigger trigger;
    Action action;
  };
  const Row rows[] = {
      {Trigger::kSentence, Action::kAppStops}, {Trigger::kSentence, Action::kAppReleases},
      {Trigger::kSentence, Action::kStop},     {Trigger::kData, Action::kStop},
      {Trigger::kStatus, Action::kStop},       {Trigger::kSilence, Action::kStop},
      {Trigger::kSentence, Action::kRelease},  {Trigger::kData, Action::kRelease},
      {Trigger::kStatus, Action::kRelease},    {Trigger::kSilence, Action::kRelease},
      {Trigger::kSentence, Action::kRead},     {Trigger::kData, Action::kRead},
      {Trigger::kStatus, Action::kRead},
  };
  for (const Source source : {Source::kRecording, Source::kPort}) {
    for (const Row& row : rows) {
      Case c{source, row.trigger, row.action};
      SCOPED_TRACE(testing::Message() << "source " << int(source) << ", trigger " << int(row.trigger) << ", action "
                                      << int(row.action));
      test::LogCapture log;
      CallbackRun run(c);
      ASSERT_TRUE(run.Started()) << KavoMobileGPS_GetLastError();
      ASSERT_TRUE(Eventually([&] { return c.acting.load(); }));
      if (c.action == Action::kAppStops) {
        EXPECT_EQ(GPSDriver_Stop(c.driver), 1);
        c.ended = true;
        EXPECT_EQ(GPSDriver_GetStatus(c.driver), GPS_STATUS_STOPPED);
      } else if (c.action == Action::kAppReleases) {
        GPSDriver_Release(c.driver.exchange(nullptr));
        c.ended = true;
      }
      ASSERT_TRUE(Eventually([&] { return c.acted.load(); }));
      EXPECT_FALSE(c.waitExpired) << "the application's call waited for the callback";
      // Whatever a late thread would still do, it does now.
      std::this_thread::sleep_for(150ms);
      EXPECT_EQ(c.late, 0) << "callbacks after Stop or Release returned";
      if (c.action == Action::kRead) {
        EXPECT_TRUE(c.readOk);
      }
      if (c.action == Action::kStop) {
        EXPECT_EQ(c.stopResult, 1);
        EXPECT_EQ(c.statusAfterStop, GPS_STATUS_STOPPED);
        EXPECT_EQ(GPSDriver_GetStatus(c.driver), GPS_STATUS_STOPPED) << "a stopped driver stays stopped";
      }
      if (c.action == Action::kStop || c.action == Action::kRelease) {
        EXPECT_FALSE(log.Contains(u"Terminating")) << "the callback's thread waited for itself";
      }
    }
  }
}

// A stop ends a playback's wait for its next line at once: no thread is
// given up, so none can take lines from the next run.
TEST(Callbacks, StopEndsAPlaybackWaitingForItsNextLine) {
  BoundClock clock;
  test::TempDir dir;
  dir.Write("slow.nmea", Epoch(0));
  test::LogCapture log;
  GPSDriverHandle driver =
      GPSDriver_CreateFromFile(K(dir.WideFile("slow.nmea")), 3600000, 0, nullptr, nullptr, nullptr);
  ASSERT_NE(driver, nullptr);
  ASSERT_EQ(GPSDriver_Start(driver), 1);
  std::this_thread::sleep_for(50ms);  // into the wait
  EXPECT_EQ(GPSDriver_Stop(driver), 1);
  EXPECT_FALSE(log.Contains(u"Terminating")) << log.Utf8();
  GPSDriver_Release(driver);
}

}  // namespace
}  // namespace kavo
