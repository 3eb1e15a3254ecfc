#include "driver/gps_driver.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

namespace kavo {
namespace {

std::vector<std::string>* g_calls = nullptr;

int Call(const char* name, int32_t code, CIMExceptionImpl* error) {
  g_calls->push_back(name);
  if (code != 0) SetError(error, code);
  return code == 0;
}

class FakeReceiver : public Receiver {
 public:
  int Start(CIMExceptionImpl* error) override { return Call("receiver.Start", startCode, error); }
  void Stop() override { g_calls->push_back("receiver.Stop"); }
  int32_t GetStatus() override { return -2; }
  int GetLocation(GPSLocation*, CIMExceptionImpl*) override { return 1; }
  int GetSatellitesInfo(GPSSatellites*, CIMExceptionImpl*) override { return 1; }
  int SetNotificationInterval(uint32_t) override { return 1; }
  uint32_t GetNotificationInterval() override { return 100; }
  int SetTimeoutInterval(uint32_t ms, CIMExceptionImpl*) override { return timeout = ms, 1; }
  uint32_t GetTimeoutInterval() override { return timeout; }
  void AddListener(ListenerEntry* entry) override { listeners.Append(entry); }
  Ref<TextSink> RunSink() override { return this; }
  void OnText(const char16_t*, uint32_t) override {}
  void OnNoData() override {}
  void OnError(const CIMExceptionImpl&) override {}
  int32_t startCode = 0;
  uint32_t timeout = 3000;
  ListenerList listeners;
};

class FakeReadingThread : public GpsReadingThread {
 public:
  int Start(TextSink*, CIMExceptionImpl* error) override { return Call("thread.Start", startCode, error); }
  int Stop() override { return Call("thread.Stop", 0, nullptr); }
  int32_t startCode = 0;
};

class FakePlayback : public PlaybackControl {
 public:
  int Pause() override { return Call("playback.Pause", 0, nullptr); }
  int Resume(CIMExceptionImpl*) override { return Call("playback.Resume", 0, nullptr) && resumes; }
  bool resumes = true;
};

void OnStatus() { g_calls->push_back("status"); }
void OnData(uint32_t mask) { g_calls->push_back("data " + std::to_string(mask)); }
void OnSentence(const KavoChar* text) {
  std::string narrow;
  for (; *text; ++text) narrow += static_cast<char>(*text);
  g_calls->push_back("sentence " + narrow);
}
void OnContextStatus(void* context, int32_t status) {
  g_calls->push_back(static_cast<const char*>(context) + (": status " + std::to_string(status)));
}
void OnContextData(void* context, uint32_t mask, const GPSLocation* at) {
  g_calls->push_back(static_cast<const char*>(context) + (": data " + std::to_string(mask)) + " at " +
                     std::to_string(static_cast<int>(at->Latitude)));
}

class GpsDriverTest : public ::testing::Test {
 protected:
  GpsDriverTest() { g_calls = &calls; }
  ~GpsDriverTest() override { g_calls = nullptr; }
  Ref<GpsDriver> MakeDriver(const DriverCallbacks& callbacks = {OnStatus, OnData, OnSentence}) {
    Ref<GpsDriver> driver(new GpsDriver(receiver, thread, playback));
    driver->Initialise(callbacks);
    return driver;
  }
  using Calls = std::vector<std::string>;
  Calls calls;
  Ref<FakeReceiver> receiver{new FakeReceiver};
  Ref<FakeReadingThread> thread{new FakeReadingThread};
  Ref<FakePlayback> playback{new FakePlayback};
};

// Whichever step fails, what was done is undone and the step's code stands.
TEST_F(GpsDriverTest, FailedStartUndoesWhatItDid) {
  struct Case {
    bool resumes;
    int32_t receiverCode, threadCode, expectedCode;
    Calls expected;
  };
  const Case cases[] = {
      {false, 0, 0, kErrNotSupported, {"playback.Resume"}},
      {true, kErrOutOfMemory, 0, kErrOutOfMemory, {"playback.Resume", "receiver.Start", "playback.Pause"}},
      {true,
       0,
       kErrGeneralFailure,
       kErrGeneralFailure,
       {"playback.Resume", "receiver.Start", "thread.Start", "receiver.Stop", "playback.Pause"}},
  };
  for (const Case& c : cases) {
    playback->resumes = c.resumes;
    receiver->startCode = c.receiverCode;
    thread->startCode = c.threadCode;
    auto driver = MakeDriver();
    calls.clear();
    CIMExceptionImpl error;
    EXPECT_EQ(driver->Start(&error), 0);
    EXPECT_EQ(error.Code(), c.expectedCode);
    EXPECT_EQ(calls, c.expected);
    EXPECT_EQ(driver->Start(nullptr), 0) << "a missing error record is tolerated";
    driver->Stop();
  }
}

TEST_F(GpsDriverTest, ReleaseStopsOnlyADriverThatMayRun) {
  MakeDriver();  // never started: the only reference goes at the end of the statement
  EXPECT_EQ(calls, (Calls{"thread.Stop", "receiver.Stop"}));
  calls.clear();
  MakeDriver()->Stop();
  EXPECT_EQ(calls, (Calls{"thread.Stop", "receiver.Stop", "playback.Pause"}));
}

// The second driver's callbacks carry a context, and one is missing.
TEST_F(GpsDriverTest, NotificationsReachTheCallbacksOfEveryListeningDriverAndQueriesForward) {
  auto first = MakeDriver();
  const KavoMobileGPS_Callbacks withContext{OnContextStatus, OnContextData, nullptr};
  auto second = MakeDriver({&withContext, const_cast<char*>("second")});
  calls.clear();
  GPSLocation location{};
  location.Latitude = 48.5;
  receiver->listeners.ForEach([&](ReceiverListener& l) { return l.OnDataChanged(0x21, location), true; });
  receiver->listeners.ForEach([](ReceiverListener& l) { return l.OnStatusChanged(-3), true; });
  receiver->listeners.ForEach([](ReceiverListener& l) { return l.OnSentence(u"$GPGGA,1"), true; });
  EXPECT_EQ(calls, (Calls{"data 33", "second: data 33 at 48", "status", "second: status -3", "sentence $GPGGA,1"}));
  first.reset();  // unlinks: its callbacks are no longer called
  calls.clear();
  receiver->listeners.ForEach([&](ReceiverListener& l) { return l.OnDataChanged(1, location), true; });
  EXPECT_EQ(calls, (Calls{"second: data 1 at 48"}));
  EXPECT_EQ(second->SetTimeoutInterval(0, nullptr), 1);
  EXPECT_EQ(second->GetTimeoutInterval(), 0u);
}

// Walks hold no lock while a listener runs, so a listener may add or
// remove entries, or start a walk of its own, and every walk's cursor
// stays right.
TEST(ListenerList, WalksReachEntriesAddedDuringThemAndSkipRemovedOnes) {
  struct Probe : ReceiverListener {
    Probe(std::vector<int>* s, int i) : seen(s), id(i) {}
    std::vector<int>* seen;
    int id;
    std::function<void()> onData;
    void OnDataChanged(uint32_t, const GPSLocation&) override {
      seen->push_back(id);
      if (auto once = std::move(onData)) once();
    }
    void OnStatusChanged(int32_t) override {}
    void OnSentence(const char16_t*) override {}
  };
  std::vector<int> seen;
  ListenerList list;
  Ref<Probe> a(new Probe(&seen, 1)), b(new Probe(&seen, 2)), c(new Probe(&seen, 3));
  ListenerEntry ea(a.get()), eb(b.get()), ec(c.get());
  list.Append(&ea);
  list.Append(&eb);
  const GPSLocation location{};
  const auto notifyAll = [&] { list.ForEach([&](ReceiverListener& l) { return l.OnDataChanged(0, location), true; }); };
  const auto walk = [&](std::vector<int> expected) {
    seen.clear();
    notifyAll();
    EXPECT_EQ(seen, expected);
  };
  b->onData = [&] { list.Append(&ec); };  // added while the walk is at the tail
  walk({1, 2, 3});
  a->onData = [&] { eb.Unlink(); };  // removed before the walk reaches it
  walk({1, 3});
  list.Append(&ea);  // appending again moves it to the tail, once
  walk({3, 1});
  // A walk inside a walk: the inner one removes the entry the outer one
  // would call next, and the outer one skips it.
  list.Append(&eb);  // 3, 1, 2
  c->onData = [&] {
    a->onData = [&] { eb.Unlink(); };
    notifyAll();
  };
  walk({3, 3, 1, 1});
  // A walk stops where its notification says so.
  seen.clear();
  list.ForEach([&](ReceiverListener& l) { return l.OnDataChanged(0, location), false; });
  EXPECT_EQ(seen, std::vector<int>{3});
}

}  // namespace
}  // namespace kavo
