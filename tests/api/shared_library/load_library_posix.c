/* Loads the shared library named on the command line, as an application
 * does at run time, finds one export and unloads it. */
#include <dlfcn.h>
#include <stdio.h>

int main(int argc, char **argv) {
  void *library = argc == 2 ? dlopen(argv[1], RTLD_NOW | RTLD_LOCAL) : NULL;
  if (!library || !dlsym(library, "KavoMobileGPS_GetLastError")) {
    fprintf(stderr, "cannot load the library or find its export: %s\n", dlerror());
    return 1;
  }
  return dlclose(library);
}
