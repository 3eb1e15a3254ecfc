#include <atomic>

#include "platform/posix/wait_hub.h"

namespace kavo::platform {
namespace {

// Each event has its own mutex and condition variable, so that setting one
// wakes only the threads waiting for it: a process reading many receivers
// would otherwise wake every waiter of every driver at every set. A wait
// for "thread ended or event set" waits on the hub instead, and the event
// then announces itself there too, but only while such a wait is under way.
class PosixEvent final : public Event {
 public:
  PosixEvent(bool manualReset, bool initiallySet) : manualReset_(manualReset), set_(initiallySet) {}

  void Set() override {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      set_ = true;
    }
    changed_.notify_all();
    if (hubWaiters_.load() > 0) {
      // Through the hub's mutex, so that a hub waiter between its check and
      // its wait cannot miss this.
      { std::lock_guard<std::mutex> hub(posix::HubMutex()); }
      posix::HubChanged().notify_all();
    }
  }

  void Reset() override {
    std::lock_guard<std::mutex> lock(mutex_);
    set_ = false;
  }

  WaitResult Wait(uint32_t ms) override {
    std::unique_lock<std::mutex> lock(mutex_);
    const auto ready = [&] { return set_; };
    const uint32_t real = CurrentClock().RealWaitMs(ms);
    if (real == kInfinite) {
      changed_.wait(lock, ready);
    } else if (!changed_.wait_for(lock, std::chrono::milliseconds(real), ready)) {
      return WaitResult::kTimeout;
    }
    if (!manualReset_) set_ = false;
    return WaitResult::kSignaled;
  }

  // For a wait on the hub, which holds the hub's mutex: lock order is the
  // hub's mutex, then the event's.
  bool IsSet() {
    std::lock_guard<std::mutex> lock(mutex_);
    return set_;
  }
  void Consume() {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!manualReset_) set_ = false;
  }
  void AddHubWaiter() { ++hubWaiters_; }
  void RemoveHubWaiter() { --hubWaiters_; }

 private:
  const bool manualReset_;
  std::mutex mutex_;
  std::condition_variable changed_;
  bool set_;  // under mutex_
  std::atomic<int> hubWaiters_{0};
};

}  // namespace

std::unique_ptr<Event> Event::Create(bool manualReset, bool initiallySet) {
  return std::make_unique<PosixEvent>(manualReset, initiallySet);
}

WaitResult WaitForThreadOrEvent(Thread& thread, Event& event, uint32_t ms) {
  auto& posixEvent = static_cast<PosixEvent&>(event);
  posixEvent.AddHubWaiter();  // before the first look, so no set goes unannounced
  std::unique_lock<std::mutex> lock(posix::HubMutex());
  const bool done =
      posix::WaitOnHub(lock, ms, [&] { return posix::ThreadFinishedLocked(thread) || posixEvent.IsSet(); });
  posixEvent.RemoveHubWaiter();
  if (!done) return WaitResult::kTimeout;
  if (!posix::ThreadFinishedLocked(thread)) posixEvent.Consume();
  return WaitResult::kSignaled;
}

}  // namespace kavo::platform
