#include "driver/gps_driver.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

namespace kavo {
namespace {

std::vector<std::string>* g_calls = nullptr;

class FakeReceiver : public Receiver {
 public:
  int Start(CIMExceptionImpl* error) override {
    g_calls->push_back("receiver.Start");
    if (startCode == 0) return 1;
    SetError(error, startCode);
    return 0;
  }
  void Stop() override { g_calls->push_back("receiver.Stop"); }
  int32_t GetStatus() override { return -2; }
  int GetLocation(GPSLocation*, CIMExceptionImpl*) override { return 1; }
  int GetSatellitesInfo(GPSSatellites*, CIMExceptionImpl*) override { return 1; }
  int SetNotificationInterval(uint32_t) override { return 1; }
  uint32_t GetNotificationInterval() override { return 100; }
  int SetTimeoutInterval(uint32_t ms, CIMExceptionImpl*) override {
    timeout = ms;
    return 1;
  }
  uint32_t GetTimeoutInterval() override { return timeout; }
  void AddListener(ListenerEntry* entry) override { listeners.Append(entry); }

  int32_t startCode = 0;
  uint32_t timeout = 3000;
  ListenerList listeners;
};

class FakePlayback : public PlaybackControl {
 public:
  int Pause() override {
    g_calls->push_back("playback.Pause");
    return 1;
  }
  int Resume(CIMExceptionImpl*) override {
    g_calls->push_back("playback.Resume");
    return resumes ? 1 : 0;
  }
  bool resumes = true;
};

void OnStatus() { g_calls->push_back("status"); }
void OnData(uint32_t mask) { g_calls->push_back("data " + std::to_string(mask)); }
void OnSentence(const KavoChar* text) {
  std::string narrow;
  for (; *text; ++text) narrow += static_cast<char>(*text);
  g_calls->push_back("sentence " + narrow);
}

class GpsDriverTest : public ::testing::Test {
 protected:
  void SetUp() override { g_calls = &calls; }
  void TearDown() override { g_calls = nullptr; }

  Ref<GpsDriver> MakeDriver(GPSStatusCallback s = OnStatus, GPSDataCallback d = OnData,
                            GPSSentenceCallback t = OnSentence) {
    Ref<GpsDriver> driver(new GpsDriver(Ref<Receiver>(receiver.get()), Ref<PlaybackControl>(playback.get())));
    driver->Initialise(s, d, t);
    return driver;
  }

  std::vector<std::string> calls;
  Ref<FakeReceiver> receiver{new FakeReceiver};
  Ref<FakePlayback> playback{new FakePlayback};
};

TEST_F(GpsDriverTest, StartResumesPlaybackThenStartsReceiverAndStopReversesIt) {
  auto driver = MakeDriver();
  CIMExceptionImpl error;
  EXPECT_EQ(driver->Start(&error), 1);
  EXPECT_EQ(driver->Stop(), 1);
  EXPECT_EQ(calls, (std::vector<std::string>{"playback.Resume", "receiver.Start", "receiver.Stop",
                                             "playback.Pause"}));
}

TEST_F(GpsDriverTest, PlaybackThatRefusesToResumeFailsWithoutStartingTheReceiver) {
  playback->resumes = false;
  auto driver = MakeDriver();
  CIMExceptionImpl error;
  EXPECT_EQ(driver->Start(&error), 0);
  EXPECT_EQ(error.Code(), kErrNotSupported);
  EXPECT_EQ(calls, (std::vector<std::string>{"playback.Resume"}));
  EXPECT_EQ(driver->Start(nullptr), 0) << "a missing error record is tolerated";
}

TEST_F(GpsDriverTest, ReceiverThatFailsToStartPausesPlaybackAgainAndKeepsItsCode) {
  receiver->startCode = kErrOutOfMemory;
  auto driver = MakeDriver();
  CIMExceptionImpl error;
  EXPECT_EQ(driver->Start(&error), 0);
  EXPECT_EQ(error.Code(), kErrOutOfMemory);
  EXPECT_EQ(calls, (std::vector<std::string>{"playback.Resume", "receiver.Start", "playback.Pause"}));
}

TEST_F(GpsDriverTest, ReleasingANeverStartedDriverStopsTheReceiverOnce) {
  MakeDriver();  // the only reference goes at the end of the statement
  EXPECT_EQ(calls, (std::vector<std::string>{"receiver.Stop"}));
}

TEST_F(GpsDriverTest, ReleasingAStoppedDriverDoesNotStopAgain) {
  {
    auto driver = MakeDriver();
    EXPECT_EQ(driver->Stop(), 1);
  }
  EXPECT_EQ(calls, (std::vector<std::string>{"receiver.Stop", "playback.Pause"}));
}

TEST_F(GpsDriverTest, NotificationsReachTheCallbacksOfEveryListeningDriver) {
  auto first = MakeDriver();
  auto second = MakeDriver(nullptr, OnData, nullptr);
  receiver->listeners.ForEach([](ReceiverListener& l) { l.OnDataChanged(0x21); });
  receiver->listeners.ForEach([](ReceiverListener& l) { l.OnStatusChanged(); });
  receiver->listeners.ForEach([](ReceiverListener& l) { l.OnSentence(u"$GPGGA,1"); });
  EXPECT_EQ(calls, (std::vector<std::string>{"data 33", "data 33", "status", "sentence $GPGGA,1"}));

  calls.clear();
  first.reset();  // unlinks: its callbacks are no longer called
  calls.clear();
  receiver->listeners.ForEach([](ReceiverListener& l) { l.OnDataChanged(1); });
  EXPECT_EQ(calls, (std::vector<std::string>{"data 1"}));
}

TEST_F(GpsDriverTest, QueriesForwardToTheReceiver) {
  auto driver = MakeDriver();
  CIMExceptionImpl error;
  EXPECT_EQ(driver->SetTimeoutInterval(0, &error), 1);
  EXPECT_EQ(driver->GetTimeoutInterval(), 0u);
  EXPECT_EQ(driver->GetStatus(), -2);
}

// The walk reaches entries added while it runs and skips ones removed.
TEST(ListenerList, WalkReachesEntriesAddedDuringIt) {
  struct Probe : ReceiverListener {
    std::vector<int>* seen;
    int id;
    std::function<void()> onData;
    void OnDataChanged(uint32_t) override {
      seen->push_back(id);
      if (onData) onData();
    }
    void OnStatusChanged() override {}
    void OnSentence(const char16_t*) override {}
  };
  std::vector<int> seen;
  ListenerList list;
  Probe a, b, c;
  a.seen = b.seen = c.seen = &seen;
  a.id = 1, b.id = 2, c.id = 3;
  ListenerEntry ea(&a), eb(&b), ec(&c);
  list.Append(&ea);
  list.Append(&eb);
  b.onData = [&] { list.Append(&ec); };  // added while the walk is at the tail
  list.ForEach([](ReceiverListener& l) { l.OnDataChanged(0); });
  EXPECT_EQ(seen, (std::vector<int>{1, 2, 3}));

  seen.clear();
  b.onData = nullptr;
  a.onData = [&] { eb.Unlink(); };  // removed before the walk reaches it
  list.ForEach([](ReceiverListener& l) { l.OnDataChanged(0); });
  EXPECT_EQ(seen, (std::vector<int>{1, 3}));

  seen.clear();
  a.onData = nullptr;
  list.Append(&ea);  // appending again moves it to the tail, once
  list.ForEach([](ReceiverListener& l) { l.OnDataChanged(0); });
  EXPECT_EQ(seen, (std::vector<int>{3, 1}));
}

}  // namespace
}  // namespace kavo
