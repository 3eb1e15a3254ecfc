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
  Win32Thread(HANDLE handle, DWORD id, ThreadState* state) : handle_(handle), id_(id), state_(state) {}
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

  // Ends the thread where it stands, if held still it is at a point where
  // that is safe. A killed thread runs no cleanup, so what its body
  // captured is released here, once the thread is really gone. A thread
  // left running gives its body back itself when it returns.
  void Terminate(const std::function<bool()>& killable) override {
    if (SuspendThread(handle_) == static_cast<DWORD>(-1)) return;  // already ended
    if (!killable || !killable() || !TerminateThread(handle_, 0)) {
      ResumeThread(handle_);
      return;
    }
    WaitForSingleObject(handle_, INFINITE);
    state_->FinishBody();
  }

  bool IsCurrent() const override { return GetCurrentThreadId() == id_; }

  uintptr_t HandleValue() const override { return reinterpret_cast<uintptr_t>(handle_); }

  HANDLE Native() const { return handle_; }

 private:
  HANDLE handle_;
  DWORD id_;
  ThreadState* state_;
};

}  // namespace

std::unique_ptr<Thread> Thread::Start(ThreadBody body) {
  auto* state = new ThreadState(std::move(body));
  DWORD id = 0;
  HANDLE handle = CreateThread(nullptr, 0, Trampoline, state, 0, &id);
  if (!handle) {
    delete state;
    return nullptr;
  }
  return std::make_unique<Win32Thread>(handle, id, state);
}

namespace win32 {
HANDLE NativeHandle(Thread& thread) { return static_cast<Win32Thread&>(thread).Native(); }
}  // namespace win32

}  // namespace kavo::platform
