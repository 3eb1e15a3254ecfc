#include "nmea/gps_receiver.h"

#include <cstring>

#include "platform/platform.h"

namespace kavo {

namespace {

// Whether more than `interval` ms passed from `stamp` to `now` on the 32-bit
// tick count, which wraps every 49.7 days: the difference is taken first, so
// the wrap does not matter. A stamp ahead of `now` (the first notification
// deadline, or one another thread just wrote) has not passed.
bool Elapsed(uint32_t now, uint32_t stamp, uint32_t interval) {
  return int64_t{static_cast<int32_t>(now - stamp)} > int64_t{interval};
}

}  // namespace

// One run of the receiver, from Start to Stop: the sink its reading thread
// feeds. Each call holds the receiver, so a callback that releases the
// driver cannot free the receiver under the thread; once closed it passes
// nothing on, so a thread given up by Stop neither changes the receiver nor
// calls anybody back, even after a later Start. It does not keep the
// receiver alive between calls: a receiver released while started still
// goes, and its destructor closes the run.
class GpsReceiver::Run : public TextSink {
 public:
  explicit Run(GpsReceiver* receiver) : receiver_(receiver) {}
  bool Open() const { return open_.load(); }
  void Close() {
    CriticalSectionLock::Guard guard(lock_);
    open_ = false;
    receiver_ = nullptr;
  }

  void OnText(const char16_t* text, uint32_t count) override {
    if (const Ref<GpsReceiver> receiver = Receiver()) receiver->ProcessText(*this, text, count);
  }
  void OnNoData() override {
    if (const Ref<GpsReceiver> receiver = Receiver()) receiver->ProcessNoData(*this);
  }
  void OnError(const CIMExceptionImpl& error) override {
    if (const Ref<GpsReceiver> receiver = Receiver()) receiver->ProcessError(*this, error);
  }

 private:
  Ref<GpsReceiver> Receiver() {
    CriticalSectionLock::Guard guard(lock_);
    return Ref<GpsReceiver>::IfAlive(receiver_);
  }

  CriticalSectionLock lock_;
  GpsReceiver* receiver_;  // under lock_; none once closed
  std::atomic<bool> open_{true};
};

GpsReceiver::GpsReceiver(const nmea::ReceiverOptions& options) : store_(options) {
  // Before any data the records read all zero, with no receiver time.
  location_.TimeType = GPS_TIME_LOCAL_CLOCK;
  satellites_.TimeType = GPS_TIME_LOCAL_CLOCK;
}

GpsReceiver::~GpsReceiver() { Stop(); }

int GpsReceiver::Start(CIMExceptionImpl* error) {
  CriticalSectionLock::Guard guard(startStopLock_);
  bool reset = false;
  const int started = CatchInto(error, [&] {
    if (started_) throw CNotSupportedException(u"the receiver is already started");
    CIMExceptionImpl record;
    CheckOrRaise(store_.Reset(), &record);
    reset = true;
    const uint32_t now = platform::TickCount();
    {
      CriticalSectionLock::Guard notification(notificationLock_);
      // One interval in the future: the first data notification comes no
      // sooner than two intervals after start.
      lastNotification_ = now + notificationInterval_;
    }
    lastData_ = now;
    lastSentence_ = now;
    {
      CriticalSectionLock::Guard location(locationLock_);
      location_ = store_.Location();
    }
    {
      CriticalSectionLock::Guard satellites(satellitesLock_);
      satellites_ = store_.Satellites();
    }
    Ref<Run> run(new Run(this));
    CriticalSectionLock::Guard runGuard(runLock_);
    run_ = std::move(run);
    started_ = 1;
  });
  if (started) return 1;
  status_ = GPS_STATUS_STOPPED;
  if (reset) store_.Clear();
  return 0;
}

void GpsReceiver::Stop() {
  CriticalSectionLock::Guard guard(startStopLock_);
  Ref<Run> run;
  {
    // Closed and stopped in one step: no status a closing run computes
    // can land after this one.
    CriticalSectionLock::Guard runGuard(runLock_);
    run = std::move(run_);
    if (run) run->Close();
    if (!started_) return;
    status_ = GPS_STATUS_STOPPED;
  }
  store_.Clear();
  {
    CriticalSectionLock::Guard notification(notificationLock_);
    pendingMask_ = 0;
  }
  started_ = 0;
}

Ref<TextSink> GpsReceiver::RunSink() { return CurrentRun(); }

Ref<GpsReceiver::Run> GpsReceiver::CurrentRun() {
  CriticalSectionLock::Guard guard(runLock_);
  return run_;
}

int GpsReceiver::GetLocation(GPSLocation* location, CIMExceptionImpl*) {
  CriticalSectionLock::Guard guard(locationLock_);
  std::memcpy(location, &location_, sizeof location_);
  return 1;
}

int GpsReceiver::GetSatellitesInfo(GPSSatellites* satellites, CIMExceptionImpl*) {
  CriticalSectionLock::Guard guard(satellitesLock_);
  std::memcpy(satellites, &satellites_, sizeof satellites_);
  return 1;
}

int GpsReceiver::SetNotificationInterval(uint32_t ms) {
  CriticalSectionLock::Guard guard(notificationLock_);
  notificationInterval_ = ms;
  return 1;
}

uint32_t GpsReceiver::GetNotificationInterval() {
  CriticalSectionLock::Guard guard(notificationLock_);
  return notificationInterval_;
}

int GpsReceiver::SetTimeoutInterval(uint32_t ms, CIMExceptionImpl*) {
  CriticalSectionLock::Guard guard(timeoutLock_);
  timeoutInterval_ = ms;
  return 1;
}

uint32_t GpsReceiver::GetTimeoutInterval() {
  CriticalSectionLock::Guard guard(timeoutLock_);
  return timeoutInterval_;
}

void GpsReceiver::AddListener(ListenerEntry* entry) { listeners_.Append(entry); }

void GpsReceiver::OnText(const char16_t* text, uint32_t count) {
  if (Ref<Run> run = CurrentRun()) ProcessText(*run, text, count);
}

void GpsReceiver::OnNoData() {
  if (Ref<Run> run = CurrentRun()) ProcessNoData(*run);
}

void GpsReceiver::OnError(const CIMExceptionImpl& error) {
  if (Ref<Run> run = CurrentRun()) ProcessError(*run, error);
}

// Every callback may stop the run; from then on nothing of this chunk
// reaches the records, the status or anybody's callbacks.
void GpsReceiver::ProcessText(const Run& run, const char16_t* text, uint32_t count) {
  if (!run.Open()) return;
  const bool parsed = store_.ProcessChunk(WideView(text, count)) != 0;
  if (!parsed) SetStatus(run, GPS_STATUS_PARSE_ERROR);
  if (!DeliverSentences(run)) return;

  const uint32_t mask = store_.UpdateMask();
  const bool copied = CopyRecords(mask);
  const bool seen = store_.SentencesSeen();
  if (seen || status_ == GPS_STATUS_TIMEOUT) {
    const int32_t status = store_.Status();
    if (SetStatus(run, status)) NotifyStatusChanged(run, status);
  }
  if (copied) NotifyDataThrottled(run, mask);

  if (seen || copied) {
    lastSentence_ = platform::TickCount();
  } else if (Elapsed(platform::TickCount(), lastSentence_, kNoSentenceMs) && status_ != GPS_STATUS_NO_SENTENCE) {
    SetStatusAndNotify(run, GPS_STATUS_NO_SENTENCE);
  }
  lastData_ = platform::TickCount();
}

// The chunk's recognised sentences to every listener; false once the run
// was stopped.
bool GpsReceiver::DeliverSentences(const Run& run) {
  const nmea::SentenceList& sentences = store_.RecognisedSentences();
  for (size_t i = 0; run.Open() && i < sentences.Count(); ++i) {
    const char16_t* sentence = sentences.Text(i);
    listeners_.ForEach([&](ReceiverListener& listener) {
      if (!run.Open()) return false;
      listener.OnSentence(sentence);
      return true;
    });
  }
  return run.Open();
}

// Publishes what changed to the records the getters read; whether any was.
bool GpsReceiver::CopyRecords(uint32_t mask) {
  bool copied = false;
  if (mask != 0 && mask != GPS_CHANGED_SATELLITES) {
    CriticalSectionLock::Guard guard(locationLock_);
    location_ = store_.Location();
    copied = true;
  }
  if (mask & GPS_CHANGED_SATELLITES) {
    CriticalSectionLock::Guard guard(satellitesLock_);
    satellites_ = store_.Satellites();
    copied = true;
  }
  return copied;
}

// Data notifications are throttled to one per interval; what changed in
// between is carried to the next one.
void GpsReceiver::NotifyDataThrottled(const Run& run, uint32_t mask) {
  const uint32_t now = platform::TickCount();
  uint32_t deliver = 0;
  {
    CriticalSectionLock::Guard guard(notificationLock_);
    if (Elapsed(now, lastNotification_, notificationInterval_)) {
      deliver = pendingMask_ | mask;
      lastNotification_ = now;
      pendingMask_ = 0;
    } else {
      pendingMask_ |= mask;
    }
  }
  if (!deliver) return;
  GPSLocation location;
  {
    CriticalSectionLock::Guard guard(locationLock_);
    location = location_;
  }
  NotifyDataChanged(run, deliver, location);
}

void GpsReceiver::ProcessNoData(const Run& run) {
  const uint32_t now = platform::TickCount();
  uint32_t timeout;
  {
    CriticalSectionLock::Guard guard(timeoutLock_);
    timeout = timeoutInterval_;
  }
  const int32_t status = status_;
  if (Elapsed(now, lastData_, timeout) && status != GPS_STATUS_TIMEOUT && status != GPS_STATUS_STOPPED)
    SetStatusAndNotify(run, GPS_STATUS_TIMEOUT);
}

void GpsReceiver::ProcessError(const Run& run, const CIMExceptionImpl& error) {
  {
    CriticalSectionLock::Guard guard(notificationLock_);
    if (!Elapsed(platform::TickCount(), lastNotification_, notificationInterval_)) return;
  }
  if (error.Code() == kErrOutOfMemory && status_ != GPS_STATUS_PARSE_ERROR) {
    SetStatusAndNotify(run, GPS_STATUS_PARSE_ERROR);
  } else if (status_ != GPS_STATUS_STOPPED) {
    SetStatusAndNotify(run, GPS_STATUS_STOPPED);
  }
}

bool GpsReceiver::SetStatus(const Run& run, int32_t status) {
  CriticalSectionLock::Guard guard(runLock_);
  return run.Open() && status_.exchange(status) != status;
}

// Announces a change even when the status was already this: the rules that
// call it compare first, as a status set by another thread meanwhile may
// still need its announcement.
void GpsReceiver::SetStatusAndNotify(const Run& run, int32_t status) {
  SetStatus(run, status);
  NotifyStatusChanged(run, status);
}

void GpsReceiver::NotifyStatusChanged(const Run& run, int32_t status) {
  listeners_.ForEach([&](ReceiverListener& listener) {
    if (!run.Open()) return false;
    listener.OnStatusChanged(status);
    return true;
  });
}

void GpsReceiver::NotifyDataChanged(const Run& run, uint32_t mask, const GPSLocation& location) {
  listeners_.ForEach([&](ReceiverListener& listener) {
    if (!run.Open()) return false;
    listener.OnDataChanged(mask, location);
    return true;
  });
}

}  // namespace kavo
