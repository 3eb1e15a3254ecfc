// Runs when a process loads the DLL: the log goes where the .ini beside the
// library says. Nothing else happens at load.
#include "log/logger.h"
#include "platform/win32/win32_handles.h"

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID) {
  if (reason == DLL_PROCESS_ATTACH) {
    kavo::ConfigureLoggerAtLoad(kavo::Logger::Instance(), kavo::platform::ModulePath());
  }
  return TRUE;
}
