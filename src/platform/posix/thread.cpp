#include <pthread.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <memory>

#include "platform/posix/wait_hub.h"

namespace kavo::platform {
namespace {

// Shared by the thread and its handle; outlives whichever goes first.
struct ThreadState {
  ThreadBody body;        // reset by the thread itself once it returns
  bool finished = false;  // guarded by the hub mutex
  uint32_t exitCode = kStillActive;
  pid_t tid = 0;  // guarded by the hub mutex
  // The thread's own reference, given up only as it ends. A thread that
  // frees memory while it runs gets a malloc arena of its own from glibc
  // (a few KiB each, for every driver), so it frees nothing before then.
  std::shared_ptr<ThreadState> self;
};

void* Trampoline(void* raw) {
  ThreadState* const state = static_cast<ThreadState*>(raw);
  {
    std::lock_guard<std::mutex> lock(posix::HubMutex());
    state->tid = static_cast<pid_t>(syscall(SYS_gettid));
  }
  posix::HubChanged().notify_all();
  const uint32_t code = state->body();
  state->body = nullptr;
  {
    std::lock_guard<std::mutex> lock(posix::HubMutex());
    state->exitCode = code;
    state->finished = true;
  }
  posix::HubChanged().notify_all();
  const std::shared_ptr<ThreadState> last = std::move(state->self);
  return nullptr;
}

class PosixThread final : public Thread {
 public:
  PosixThread(pthread_t thread, std::shared_ptr<ThreadState> state) : thread_(thread), state_(std::move(state)) {}

  ~PosixThread() override {
    if (detached_) return;
    // A finished thread is reaped; a running one is left to end on its own.
    if (Finished()) {
      pthread_join(thread_, nullptr);
    } else {
      pthread_detach(thread_);
    }
  }

  bool SetPriorityAboveNormal() override {
    pid_t tid;
    {
      std::unique_lock<std::mutex> lock(posix::HubMutex());
      posix::HubChanged().wait(lock, [&] { return state_->tid != 0 || state_->finished; });
      tid = state_->tid;
    }
    // Raising a thread's priority needs privileges on most systems; without
    // them the thread runs at normal priority, which the library tolerates.
    if (setpriority(PRIO_PROCESS, static_cast<id_t>(tid), -5) != 0) {
      SetLastError(kErrorAccessDenied);
      return false;
    }
    return true;
  }

  WaitResult Join(uint32_t ms) override {
    std::unique_lock<std::mutex> lock(posix::HubMutex());
    return posix::WaitOnHub(lock, ms, [&] { return state_->finished; }) ? WaitResult::kSignaled : WaitResult::kTimeout;
  }

  bool GetExitCode(uint32_t* code) override {
    std::lock_guard<std::mutex> lock(posix::HubMutex());
    *code = state_->finished ? state_->exitCode : kStillActive;
    return true;
  }

  void Terminate(const std::function<bool()>&) override {
    // POSIX cannot kill one thread safely: abandon it instead. Its body
    // keeps what it captured until its current call returns.
    if (!detached_) pthread_detach(thread_);
    detached_ = true;
  }

  bool IsCurrent() const override { return pthread_equal(pthread_self(), thread_) != 0; }

  uintptr_t HandleValue() const override { return static_cast<uintptr_t>(thread_); }

  bool Finished() const {
    std::lock_guard<std::mutex> lock(posix::HubMutex());
    return state_->finished;
  }
  bool FinishedLocked() const { return state_->finished; }

 private:
  pthread_t thread_;
  std::shared_ptr<ThreadState> state_;
  bool detached_ = false;
};

}  // namespace

std::unique_ptr<Thread> Thread::Start(ThreadBody body) {
  auto state = std::make_shared<ThreadState>();
  state->body = std::move(body);
  state->self = state;
  pthread_t thread;
  const int rc = pthread_create(&thread, nullptr, Trampoline, state.get());
  if (rc != 0) {
    state->self.reset();
    SetLastError(rc == EAGAIN ? kErrorOutOfMemory : kErrorNotSupported);
    return nullptr;
  }
  return std::make_unique<PosixThread>(thread, std::move(state));
}

namespace posix {
bool ThreadFinishedLocked(Thread& thread) { return static_cast<PosixThread&>(thread).FinishedLocked(); }
}  // namespace posix

}  // namespace kavo::platform
