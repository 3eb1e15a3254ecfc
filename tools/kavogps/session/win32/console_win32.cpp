#include <windows.h>

#include <io.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>

#include "session/console.h"

namespace kavo::cli {
namespace {

// The console's control handler runs on a thread of its own; the event
// wakes the session's wait.
std::atomic<HANDLE> interruptEvent{nullptr};

BOOL WINAPI OnConsoleControl(DWORD type) {
  if (type != CTRL_C_EVENT && type != CTRL_BREAK_EVENT && type != CTRL_CLOSE_EVENT) return FALSE;
  const HANDLE event = interruptEvent.load();
  if (!event) return FALSE;
  SetEvent(event);
  return TRUE;
}

}  // namespace

bool StandardOutputIsAnsiTerminal() {
  if (!_isatty(_fileno(stdout))) return false;
  const HANDLE console = GetStdHandle(STD_OUTPUT_HANDLE);
  DWORD mode = 0;
  if (!GetConsoleMode(console, &mode)) return false;
  return SetConsoleMode(console, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING) != 0;
}

// Windows has no SIGPIPE: a write to a closed pipe already fails.
void SurviveClosedOutput() {}

bool StandardOutputClosed() {
  const HANDLE out = GetStdHandle(STD_OUTPUT_HANDLE);
  if (GetFileType(out) != FILE_TYPE_PIPE) return false;
  DWORD written = 0;
  if (WriteFile(out, "", 0, &written, nullptr)) return false;
  const DWORD error = GetLastError();
  return error == ERROR_NO_DATA || error == ERROR_BROKEN_PIPE;
}

int StandardOutputRows() {
  CONSOLE_SCREEN_BUFFER_INFO info{};
  if (!GetConsoleScreenBufferInfo(GetStdHandle(STD_OUTPUT_HANDLE), &info)) return 0;
  return info.srWindow.Bottom - info.srWindow.Top + 1;
}

bool StandardErrorIsTerminal() { return _isatty(_fileno(stderr)) != 0; }

// Both the C runtime's copy and the process's own block, whichever the
// library reads.
bool SetEnvironment(const char* name, const std::string& value) {
  return _putenv_s(name, value.c_str()) == 0 && SetEnvironmentVariableA(name, value.c_str()) != 0;
}

std::filesystem::path ExecutablePath() {
  wchar_t path[MAX_PATH];
  const DWORD length = GetModuleFileNameW(nullptr, path, MAX_PATH);
  if (length == 0 || length >= MAX_PATH) return {};
  return std::filesystem::path(path);
}

struct InterruptWatch::State {
  HANDLE event = nullptr;  // set by the console's handler
  HANDLE wake = nullptr;   // set by Wake; a Wait resets it
  bool interrupted = false;
};

InterruptWatch::InterruptWatch() : state_(new State) {
  state_->event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  state_->wake = CreateEventW(nullptr, FALSE, FALSE, nullptr);
  interruptEvent.store(state_->event);
  if (state_->event) SetConsoleCtrlHandler(OnConsoleControl, TRUE);
}

InterruptWatch::~InterruptWatch() {
  if (state_->event) {
    SetConsoleCtrlHandler(OnConsoleControl, FALSE);
    interruptEvent.store(nullptr);
    CloseHandle(state_->event);
  }
  if (state_->wake) CloseHandle(state_->wake);
  delete state_;
}

bool InterruptWatch::Wait(uint32_t ms) {
  if (state_->interrupted) return true;
  HANDLE handles[2];
  DWORD count = 0;
  if (state_->event) handles[count++] = state_->event;
  if (state_->wake) handles[count++] = state_->wake;
  if (count == 0) {
    Sleep(ms);
    return false;
  }
  const DWORD result = WaitForMultipleObjects(count, handles, FALSE, ms);
  state_->interrupted = state_->event && result == WAIT_OBJECT_0;
  return state_->interrupted;
}

void InterruptWatch::Wake() {
  if (state_->wake) SetEvent(state_->wake);
}

}  // namespace kavo::cli
