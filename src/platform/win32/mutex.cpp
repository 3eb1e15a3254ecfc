#include "platform/win32/win32_handles.h"

namespace kavo::platform {
namespace {

class Win32Mutex final : public Mutex {
 public:
  explicit Win32Mutex(HANDLE handle) : handle_(handle) {}
  ~Win32Mutex() override { CloseHandle(handle_); }

  // An abandoned mutex is still ours: its last owner died holding it.
  bool Lock(uint32_t ms) override {
    const WaitResult result = win32::WaitOn(handle_, ms);
    return result == WaitResult::kSignaled || result == WaitResult::kAbandoned;
  }

  // ReleaseMutex by a thread that does not own the mutex fails with
  // ERROR_NOT_OWNER; that is harmless here and must not disturb the caller's
  // last error.
  void Unlock() override {
    const DWORD saved = ::GetLastError();
    if (!ReleaseMutex(handle_)) ::SetLastError(saved);
  }

 private:
  HANDLE handle_;
};

}  // namespace

std::unique_ptr<Mutex> Mutex::Create() {
  HANDLE handle = CreateMutexW(nullptr, FALSE, nullptr);
  if (!handle) return nullptr;
  return std::make_unique<Win32Mutex>(handle);
}

}  // namespace kavo::platform
