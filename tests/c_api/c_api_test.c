/* The header compiles as strict C99 and the shared library reports its
 * outcomes through KavoMobileGPS_GetLastError, as a C application sees it. */
#include <stddef.h>
#include <stdio.h>

#include "KavoMobileGPS.h"

static int failures;
#define CHECK(cond)                                                             \
  do {                                                                          \
    if (!(cond)) {                                                              \
      fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #cond); \
      ++failures;                                                               \
    }                                                                           \
  } while (0)

int main(void) {
  static const KavoChar kCom3[] = {'C', 'O', 'M', '3', 0};
  COMPortParams params = {4800, 0, 0, 8};
  COMPortInfoHandle port;

  /* The records as the library lays them out, seen from C. */
  CHECK(sizeof(GPSLocation) == 104);
  CHECK(sizeof(GPSSatellite) == 24);
  CHECK(sizeof(GPSSatellites) == 312);
  CHECK(sizeof(COMPortParams) == 16);
  CHECK(sizeof(KavoChar) == 2);
  CHECK(offsetof(GPSLocation, Time) == 88);
  CHECK(offsetof(GPSSatellites, Time) == 296);

  /* Null handles: the family's failure value and 160. */
  CHECK(GPSDriver_GetStatus(NULL) == -4);
  CHECK(KavoMobileGPS_GetLastError() == 160);
  CHECK(GPSDriver_GetTimeoutInterval(NULL) == -1);
  CHECK(KavoMobileGPS_GetLastError() == 160);
  CHECK(GPSSatellitesState_GetTimeType(NULL) == 2);
  CHECK(KavoMobileGPS_GetLastError() == 160);

  /* A success clears the last error left by the failure before it. */
  port = COMPortInfo_Create(kCom3, &params);
  CHECK(port != NULL);
  CHECK(KavoMobileGPS_GetLastError() == 0);
  COMPortInfo_Release(port);

  if (failures) {
    fprintf(stderr, "%d check(s) failed\n", failures);
    return 1;
  }
  puts("C API: all checks passed");
  return 0;
}
