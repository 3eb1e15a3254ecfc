#include "platform/win32/win32_handles.h"

namespace kavo::platform {

struct CriticalSection::Impl {
  Impl() { InitializeCriticalSection(&section); }
  ~Impl() { DeleteCriticalSection(&section); }
  CRITICAL_SECTION section;
};

CriticalSection::CriticalSection() : impl_(std::make_unique<Impl>()) {}
CriticalSection::~CriticalSection() = default;
void CriticalSection::Enter() { EnterCriticalSection(&impl_->section); }
void CriticalSection::Leave() { LeaveCriticalSection(&impl_->section); }

}  // namespace kavo::platform
