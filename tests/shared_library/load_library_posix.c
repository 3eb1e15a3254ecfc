/* Loads the shared library named on the command line, as an application
 * does at run time, finds one export and unloads it. */
#include <dlfcn.h>
#include <stdint.h>
#include <stdio.h>

typedef uint32_t (*GetLastErrorFn)(void);

int main(int argc, char **argv) {
  void *library;
  GetLastErrorFn getLastError;
  if (argc != 2) {
    fprintf(stderr, "usage: %s LIBRARY\n", argv[0]);
    return 2;
  }
  library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
  if (!library) {
    fprintf(stderr, "cannot load %s: %s\n", argv[1], dlerror());
    return 1;
  }
  *(void **)&getLastError = dlsym(library, "KavoMobileGPS_GetLastError");
  if (!getLastError) {
    fprintf(stderr, "KavoMobileGPS_GetLastError is not exported\n");
    return 1;
  }
  printf("loaded; last error %u\n", (unsigned)getLastError());
  dlclose(library);
  return 0;
}
