/* Loads the DLL named on the command line, as an application does at run
 * time, finds one export and unloads it. */
#include <stdio.h>
#include <windows.h>

int main(int argc, char **argv) {
  HMODULE library = argc == 2 ? LoadLibraryA(argv[1]) : NULL;
  if (!library || !GetProcAddress(library, "KavoMobileGPS_GetLastError")) {
    fprintf(stderr, "cannot load the library or find its export: error %lu\n", (unsigned long)GetLastError());
    return 1;
  }
  return FreeLibrary(library) ? 0 : 1;
}
