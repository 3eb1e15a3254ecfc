#include <condition_variable>
#include <mutex>
#include <thread>

#include "platform/platform.h"

namespace kavo::platform {
namespace {

// Owned by a thread and re-entrant for it, like a Win32 mutex; an Unlock by
// a thread that does not own it is ignored rather than undefined.
class PosixMutex final : public Mutex {
 public:
  bool Lock(uint32_t ms) override {
    const auto me = std::this_thread::get_id();
    std::unique_lock<std::mutex> lock(mutex_);
    if (depth_ > 0 && owner_ == me) {
      ++depth_;
      return true;
    }
    const auto free = [&] { return depth_ == 0; };
    const uint32_t real = CurrentClock().RealWaitMs(ms);
    if (real == kInfinite) {
      released_.wait(lock, free);
    } else if (!released_.wait_for(lock, std::chrono::milliseconds(real), free)) {
      return false;
    }
    owner_ = me;
    depth_ = 1;
    return true;
  }

  void Unlock() override {
    std::lock_guard<std::mutex> lock(mutex_);
    if (depth_ == 0 || owner_ != std::this_thread::get_id()) return;
    if (--depth_ == 0) released_.notify_one();
  }

 private:
  std::mutex mutex_;
  std::condition_variable released_;
  std::thread::id owner_;
  unsigned depth_ = 0;
};

}  // namespace

std::unique_ptr<Mutex> Mutex::Create() { return std::make_unique<PosixMutex>(); }

}  // namespace kavo::platform
