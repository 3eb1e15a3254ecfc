#include <mutex>

#include "platform/platform.h"

namespace kavo::platform {

// Re-entrant, as CRITICAL_SECTION is: the file playback takes its lock
// again on the same thread.
struct CriticalSection::Impl {
  std::recursive_mutex mutex;
};

CriticalSection::CriticalSection() : impl_(std::make_unique<Impl>()) {}
CriticalSection::~CriticalSection() = default;
void CriticalSection::Enter() { impl_->mutex.lock(); }
void CriticalSection::Leave() { impl_->mutex.unlock(); }

}  // namespace kavo::platform
