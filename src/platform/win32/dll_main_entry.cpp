// Runs when a process loads the DLL.
#include "platform/library_load.h"
#include "platform/win32/win32_handles.h"

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID) {
  if (reason == DLL_PROCESS_ATTACH) kavo::OnLibraryLoad();
  return TRUE;
}
