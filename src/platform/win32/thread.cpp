#include "platform/win32/win32_handles.h"

namespace kavo::platform {
namespace {

struct StartArgs {
  ThreadProc proc;
  void* arg;
};

DWORD WINAPI Trampoline(LPVOID raw) {
  const StartArgs args = *static_cast<StartArgs*>(raw);
  delete static_cast<StartArgs*>(raw);
  return args.proc(args.arg);
}

class Win32Thread final : public Thread {
 public:
  explicit Win32Thread(HANDLE handle) : handle_(handle) {}
  ~Win32Thread() override { CloseHandle(handle_); }

  bool SetPriorityAboveNormal() override {
    return SetThreadPriority(handle_, THREAD_PRIORITY_ABOVE_NORMAL) != FALSE;
  }

  WaitResult Join(uint32_t ms) override { return win32::WaitOn(handle_, ms); }

  bool GetExitCode(uint32_t* code) override {
    DWORD value = 0;
    if (!GetExitCodeThread(handle_, &value)) return false;
    *code = value;
    return true;
  }

  // Ends the thread where it stands; it must hold nothing another thread
  // needs, which the callers arrange by stopping it politely first.
  void Terminate() override { TerminateThread(handle_, 0); }

  uintptr_t HandleValue() const override { return reinterpret_cast<uintptr_t>(handle_); }

  HANDLE Native() const { return handle_; }

 private:
  HANDLE handle_;
};

}  // namespace

std::unique_ptr<Thread> Thread::Start(ThreadProc proc, void* arg) {
  auto* args = new StartArgs{proc, arg};
  HANDLE handle = CreateThread(nullptr, 0, Trampoline, args, 0, nullptr);
  if (!handle) {
    delete args;
    return nullptr;
  }
  return std::make_unique<Win32Thread>(handle);
}

namespace win32 {
HANDLE NativeHandle(Thread& thread) { return static_cast<Win32Thread&>(thread).Native(); }
}  // namespace win32

}  // namespace kavo::platform
