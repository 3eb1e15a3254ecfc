#include <atomic>

#include "platform/win32/win32_handles.h"

namespace kavo::platform {
namespace {

// Shared by the thread and its handle. The body is given back once, by the
// thread when it returns or by Terminate when the thread never will; the
// state itself goes with the last of the two owners.
struct ThreadState {
  explicit ThreadState(ThreadBody b) : body(std::move(b)) {}
  ThreadBody body;
  std::atomic<int> owners{2};
  std::atomic<bool> bodyDone{false};

  void Drop() {
    if (--owners == 0) delete this;
  }
  void FinishBody() {
    if (bodyDone.exchange(true)) return;
    body = nullptr;
    Drop();
  }
};

DWORD WINAPI Trampoline(LPVOID raw) {
  auto* state = static_cast<ThreadState*>(raw);
  const DWORD code = state->body();
  state->FinishBody();
  return code;
}

class Win32Thread final : public Thread {
 public:
  Win32Thread(HANDLE handle, ThreadState* state) : handle_(handle), state_(state) {}
  ~Win32Thread() override {
    CloseHandle(handle_);
    state_->Drop();
  }

  bool SetPriorityAboveNormal() override { return SetThreadPriority(handle_, THREAD_PRIORITY_ABOVE_NORMAL) != FALSE; }

  WaitResult Join(uint32_t ms) override { return win32::WaitOn(handle_, ms); }

  bool GetExitCode(uint32_t* code) override {
    DWORD value = 0;
    if (!GetExitCodeThread(handle_, &value)) return false;
    *code = value;
    return true;
  }

  // Ends the thread where it stands. It runs no cleanup, so what its body
  // captured is released here, once the thread is really gone.
  void Terminate() override {
    if (!TerminateThread(handle_, 0) && WaitForSingleObject(handle_, 0) != WAIT_OBJECT_0) return;
    WaitForSingleObject(handle_, INFINITE);
    state_->FinishBody();
  }

  uintptr_t HandleValue() const override { return reinterpret_cast<uintptr_t>(handle_); }

  HANDLE Native() const { return handle_; }

 private:
  HANDLE handle_;
  ThreadState* state_;
};

}  // namespace

std::unique_ptr<Thread> Thread::Start(ThreadBody body) {
  auto* state = new ThreadState(std::move(body));
  HANDLE handle = CreateThread(nullptr, 0, Trampoline, state, 0, nullptr);
  if (!handle) {
    delete state;
    return nullptr;
  }
  return std::make_unique<Win32Thread>(handle, state);
}

namespace win32 {
HANDLE NativeHandle(Thread& thread) { return static_cast<Win32Thread&>(thread).Native(); }
}  // namespace win32

}  // namespace kavo::platform
