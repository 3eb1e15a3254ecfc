#include "platform/posix/wait_hub.h"

namespace kavo::platform {
namespace {

class PosixEvent final : public Event {
 public:
  PosixEvent(bool manualReset, bool initiallySet) : manualReset_(manualReset), set_(initiallySet) {}

  void Set() override {
    {
      std::lock_guard<std::mutex> lock(posix::HubMutex());
      set_ = true;
    }
    posix::HubChanged().notify_all();
  }

  void Reset() override {
    std::lock_guard<std::mutex> lock(posix::HubMutex());
    set_ = false;
  }

  WaitResult Wait(uint32_t ms) override {
    std::unique_lock<std::mutex> lock(posix::HubMutex());
    if (!posix::WaitOnHub(lock, ms, [&] { return set_; })) return WaitResult::kTimeout;
    ConsumeLocked();
    return WaitResult::kSignaled;
  }

  bool SetLocked() const { return set_; }
  void ConsumeLocked() {
    if (!manualReset_) set_ = false;
  }

 private:
  const bool manualReset_;
  bool set_;
};

}  // namespace

std::unique_ptr<Event> Event::Create(bool manualReset, bool initiallySet) {
  return std::make_unique<PosixEvent>(manualReset, initiallySet);
}

namespace posix {
bool EventSetLocked(Event& event) { return static_cast<PosixEvent&>(event).SetLocked(); }
void ConsumeEventLocked(Event& event) { static_cast<PosixEvent&>(event).ConsumeLocked(); }
}  // namespace posix

WaitResult WaitForThreadOrEvent(Thread& thread, Event& event, uint32_t ms) {
  std::unique_lock<std::mutex> lock(posix::HubMutex());
  const bool done =
      posix::WaitOnHub(lock, ms, [&] { return posix::ThreadFinishedLocked(thread) || posix::EventSetLocked(event); });
  if (!done) return WaitResult::kTimeout;
  if (!posix::ThreadFinishedLocked(thread)) posix::ConsumeEventLocked(event);
  return WaitResult::kSignaled;
}

}  // namespace kavo::platform
