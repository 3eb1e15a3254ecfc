// Opens a driver session on a recording or a serial port, the same way for
// every command: the driver created with the session's callbacks, and a
// recording's session set to end with it.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "session/driver_session.h"
#include "session/gps_library.h"

namespace kavo::cli {

// Where a session's text comes from: a recording played at `intervalMs` per
// line (from the start again when `repeat`), or else a serial port.
struct SessionSource {
  std::string recording;
  int64_t intervalMs = 100;
  bool repeat = false;
  COMPortInfoHandle port = nullptr;
};

// A driver and the session that runs it; the session, declared last, goes
// first, the callbacks last.
struct OpenedSession {
  SessionCallbacks callbacks;
  DriverPtr driver;
  std::unique_ptr<DriverSession> session;
};

// Creates the driver on `source` and its session; views go on the session
// before it starts. False, with the library's last error in `*error`, when
// the library refuses the source (or KAVOGPS_ERROR_NOT_SUPPORTED when
// kMaxSessions run already).
bool OpenSession(const SessionSource& source, bool viewsOnCallbackThread, OpenedSession* opened, uint32_t* error);

}  // namespace kavo::cli
