// Everything the library asks of an operating system. Only src/platform/
// includes OS headers; the rest of the library sees these declarations.
// The last error, serial ports and the registry have headers of their own
// beside this one.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "platform/last_error.h"

namespace kavo::platform {

// --- clock -----------------------------------------------------------------

struct LocalTime {
  uint16_t year = 0, month = 0, dayOfWeek = 0, day = 0;
  uint16_t hour = 0, minute = 0, second = 0, milliseconds = 0;
};

constexpr uint32_t kInfinite = 0xFFFFFFFFu;

class Event;

// Time as the library sees it. Tests install their own clock so that
// time-outs, pacing and probe schedules run in milliseconds.
class Clock {
 public:
  virtual ~Clock() = default;
  // Milliseconds since an arbitrary start, wrapping at 2^32.
  virtual uint32_t TickCount() = 0;
  virtual void Sleep(uint32_t ms) = 0;
  virtual LocalTime LocalNow() = 0;
  // How many real milliseconds a timed wait of `ms` clock milliseconds
  // lasts (kInfinite stays kInfinite). The system clock returns `ms`.
  virtual uint32_t RealWaitMs(uint32_t ms) { return ms; }
  // Sleeps `ms`, or less when `wake` is set first; true when woken.
  virtual bool SleepUnless(Event& wake, uint32_t ms);
};

// The system clock (GetTickCount, Sleep, GetLocalTime).
Clock& SystemClock();
// The clock in force; `nullptr` restores the system clock.
Clock& CurrentClock();
void SetClock(Clock* clock);

inline uint32_t TickCount() { return CurrentClock().TickCount(); }
inline void Sleep(uint32_t ms) { CurrentClock().Sleep(ms); }
inline LocalTime LocalNow() { return CurrentClock().LocalNow(); }
inline bool SleepUnless(Event& wake, uint32_t ms) { return CurrentClock().SleepUnless(wake, ms); }

// --- waits -----------------------------------------------------------------

enum class WaitResult { kSignaled, kTimeout, kAbandoned, kFailed };

// --- threads ---------------------------------------------------------------

using ThreadProc = uint32_t (*)(void* arg);
using ThreadBody = std::function<uint32_t()>;
constexpr uint32_t kStillActive = 259;

// A thread with a bounded join and a forced end. On Win32 the forced end is
// TerminateThread; on POSIX the thread is abandoned (detached) and finishes
// on its own. Either way the body (and whatever it captured) is destroyed
// exactly once: when it returns, or, on Win32, by the forced end, since a
// killed thread never gets to. So a body should capture counted references
// to what it uses: an abandoned thread keeps them alive, a killed one gives
// them back.
class Thread {
 public:
  virtual ~Thread() = default;  // closes the handle; never waits
  // Starts `body` at once; nullptr (last error set) on failure, with the
  // body already destroyed.
  static std::unique_ptr<Thread> Start(ThreadBody body);
  static std::unique_ptr<Thread> Start(ThreadProc proc, void* arg) {
    return Start([proc, arg] { return proc(arg); });
  }
  virtual bool SetPriorityAboveNormal() = 0;
  virtual WaitResult Join(uint32_t ms) = 0;
  // kStillActive while running, else the procedure's result.
  virtual bool GetExitCode(uint32_t* code) = 0;
  // Ends a thread that did not stop in time. Win32 terminates it where it
  // stands, but only when `killable()`, asked while the thread is held
  // still, says that it is at a point where it holds nothing a dead thread
  // would never give back (no lock, no application code under way).
  // Otherwise, and always on POSIX, the thread is abandoned: it finishes
  // on its own.
  virtual void Terminate(const std::function<bool()>& killable) = 0;
  // Whether the calling thread is this thread.
  virtual bool IsCurrent() const = 0;
  // A number that names the thread in log lines.
  virtual uintptr_t HandleValue() const = 0;
};

// --- synchronisation -------------------------------------------------------

class Event {
 public:
  virtual ~Event() = default;
  // nullptr (last error set) on failure.
  static std::unique_ptr<Event> Create(bool manualReset, bool initiallySet);
  virtual void Set() = 0;
  virtual void Reset() = 0;
  virtual WaitResult Wait(uint32_t ms) = 0;
};

// Waits until the thread ends or the event is set, whichever comes first.
// kSignaled when either happened.
WaitResult WaitForThreadOrEvent(Thread& thread, Event& event, uint32_t ms);

// A mutex with a time-out, owned by a thread and re-entrant for it, like a
// Win32 mutex. Unlock by a thread that does not own it does nothing.
class Mutex {
 public:
  virtual ~Mutex() = default;
  static std::unique_ptr<Mutex> Create();
  virtual bool Lock(uint32_t ms) = 0;
  virtual void Unlock() = 0;
};

// A re-entrant lock without time-out (CRITICAL_SECTION).
class CriticalSection {
 public:
  CriticalSection();
  ~CriticalSection();
  CriticalSection(const CriticalSection&) = delete;
  CriticalSection& operator=(const CriticalSection&) = delete;
  void Enter();
  void Leave();

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

// --- files -----------------------------------------------------------------

enum class FileAccess { kRead, kWrite };
enum class FileDisposition { kOpenExisting, kCreateAlways };

class File {
 public:
  virtual ~File() = default;  // closes
  // Read: shared for reading, must exist. Write: truncated or created,
  // others may read. nullptr with the last error set on failure.
  static std::unique_ptr<File> Open(const std::u16string& path, FileAccess access, FileDisposition disposition);
  // false with the last error set on failure; `got` 0 at the end.
  virtual bool Read(void* buffer, uint32_t size, uint32_t* got) = 0;
  virtual bool Write(const void* data, uint32_t size, uint32_t* written) = 0;
  // Moves to `offset` from the start; false with the last error on failure.
  virtual bool SeekFromStart(uint32_t offset) = 0;
  virtual bool Flush() = 0;
};

bool FileExists(const std::u16string& path);

// --- process ---------------------------------------------------------------

// The platform's debug output (OutputDebugStringW; standard error on POSIX).
void DebugOutput(const char16_t* text);

// Full path of the library's own module (the DLL or the shared object).
std::u16string ModulePath();

// Bytes in the system code page to UTF-16 and back (Latin-1 on POSIX).
// Both convert `count` units one for one and return the number written.
size_t CodePageToWide(const uint8_t* bytes, size_t count, char16_t* out);
size_t WideToCodePage(const char16_t* text, size_t count, uint8_t* out);

}  // namespace kavo::platform
