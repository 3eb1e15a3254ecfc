// Runs when a process loads the DLL.
#include "platform/library_load.h"
#include "platform/win32/win32_handles.h"

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID) {
  if (reason != DLL_PROCESS_ATTACH) return TRUE;
  // Pinned: FreeLibrary must not unmap code that a reading thread given up
  // on may still run, nor the objects the library never destroys.
  const DWORD callersError = GetLastError();
  HMODULE self = nullptr;
  GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_PIN | GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS,
                     reinterpret_cast<LPCWSTR>(&DllMain), &self);
  SetLastError(callersError);
  kavo::OnLibraryLoad();
  return TRUE;
}
