// The receiver object: owns the state store, turns the flow of text it is
// fed into a status, keeps the copies callers read, and tells its listeners
// what changed. The driver decides where the text comes from.
#pragma once

#include <atomic>
#include <cstdint>

#include "nmea/receiver.h"
#include "nmea/receiver_state_store.h"
#include "support/critical_section_lock.h"

namespace kavo {

class GpsReceiver : public Receiver {
 public:
  static constexpr uint32_t kNoSentenceMs = 3000;

  // Reads the text as `options` say.
  explicit GpsReceiver(const nmea::ReceiverOptions& options = nmea::ReceiverOptions());

  int Start(CIMExceptionImpl* error) override;
  void Stop() override;
  int32_t GetStatus() override { return status_.load(); }
  int GetLocation(GPSLocation* location, CIMExceptionImpl* error) override;
  int GetSatellitesInfo(GPSSatellites* satellites, CIMExceptionImpl* error) override;
  int SetNotificationInterval(uint32_t ms) override;
  uint32_t GetNotificationInterval() override;
  int SetTimeoutInterval(uint32_t ms, CIMExceptionImpl* error) override;
  uint32_t GetTimeoutInterval() override;
  void AddListener(ListenerEntry* entry) override;
  Ref<TextSink> RunSink() override;

  // Text and events for the run in progress; ignored when stopped.
  void OnText(const char16_t* text, uint32_t count) override;
  void OnNoData() override;
  void OnError(const CIMExceptionImpl& error) override;

 private:
  class Run;
  ~GpsReceiver() override;

  Ref<Run> CurrentRun();
  void ProcessText(const Run& run, const char16_t* text, uint32_t count);
  bool DeliverSentences(const Run& run);
  bool CopyRecords(uint32_t mask);
  void NotifyDataThrottled(const Run& run, uint32_t mask);
  void ProcessNoData(const Run& run);
  void ProcessError(const Run& run, const CIMExceptionImpl& error);
  // Sets the status unless the run has ended; true when it changed.
  bool SetStatus(const Run& run, int32_t status);
  void SetStatusAndNotify(const Run& run, int32_t status);
  void NotifyStatusChanged(const Run& run, int32_t status);
  void NotifyDataChanged(const Run& run, uint32_t mask, const GPSLocation& location);

  std::atomic<uint32_t> started_{0};
  ListenerList listeners_;  // its lock is the listeners lock
  CriticalSectionLock runLock_;
  Ref<Run> run_;  // under runLock_; the run in progress
  GPSLocation location_{};
  GPSSatellites satellites_{};
  std::atomic<int32_t> status_{GPS_STATUS_STOPPED};
  nmea::ReceiverStateStore store_;
  CriticalSectionLock locationLock_;
  CriticalSectionLock notificationLock_;
  CriticalSectionLock satellitesLock_;
  CriticalSectionLock startStopLock_;
  CriticalSectionLock timeoutLock_;
  uint32_t notificationInterval_ = kDefaultNotificationIntervalMs;  // under notificationLock_
  uint32_t timeoutInterval_ = kDefaultTimeoutIntervalMs;            // under timeoutLock_
  uint32_t pendingMask_ = 0;                                        // under notificationLock_
  uint32_t lastNotification_ = 0;                                   // under notificationLock_
  std::atomic<uint32_t> lastData_{0};
  std::atomic<uint32_t> lastSentence_{0};
};

}  // namespace kavo
