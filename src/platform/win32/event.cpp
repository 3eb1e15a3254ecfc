#include "platform/win32/win32_handles.h"

namespace kavo::platform {
namespace {

class Win32Event final : public Event {
 public:
  explicit Win32Event(HANDLE handle) : handle_(handle) {}
  ~Win32Event() override { CloseHandle(handle_); }

  void Set() override { SetEvent(handle_); }
  void Reset() override { ResetEvent(handle_); }
  WaitResult Wait(uint32_t ms) override { return win32::WaitOn(handle_, ms); }

  HANDLE Native() const { return handle_; }

 private:
  HANDLE handle_;
};

}  // namespace

std::unique_ptr<Event> Event::Create(bool manualReset, bool initiallySet) {
  HANDLE handle = CreateEventW(nullptr, manualReset, initiallySet, nullptr);
  if (!handle) return nullptr;
  return std::make_unique<Win32Event>(handle);
}

namespace win32 {
HANDLE NativeHandle(Event& event) { return static_cast<Win32Event&>(event).Native(); }
}  // namespace win32

}  // namespace kavo::platform
