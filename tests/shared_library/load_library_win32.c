/* Loads the DLL named on the command line, as an application does at run
 * time, finds one export and unloads it. */
#include <stdint.h>
#include <stdio.h>
#include <windows.h>

typedef uint32_t (*GetLastErrorFn)(void);

int main(int argc, char **argv) {
  HMODULE library;
  GetLastErrorFn getLastError;
  if (argc != 2) {
    fprintf(stderr, "usage: %s LIBRARY\n", argv[0]);
    return 2;
  }
  library = LoadLibraryA(argv[1]);
  if (!library) {
    fprintf(stderr, "cannot load %s: error %lu\n", argv[1], (unsigned long)GetLastError());
    return 1;
  }
  *(FARPROC *)&getLastError = GetProcAddress(library, "KavoMobileGPS_GetLastError");
  if (!getLastError) {
    fprintf(stderr, "KavoMobileGPS_GetLastError is not exported\n");
    return 1;
  }
  printf("loaded; last error %u\n", (unsigned)getLastError());
  FreeLibrary(library);
  return 0;
}
