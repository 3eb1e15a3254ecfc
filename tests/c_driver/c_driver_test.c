/* Plays a short recording through the exported functions and checks every
 * value against what was worked out by hand from the sentences below. */
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "KavoMobileGPS.h"
#include "pause.h"

static const char *const kRecording[] = {
    "$GPGGA,123519,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,*47",
    "$GPRMC,123519,A,4807.038,N,01131.000,E,022.4,084.4,230394,003.1,W*6A",
    "$GPGSA,A,3,04,05,,09,12,,,24,,,,,2.5,1.3,2.1*39",
    "$GPGSV,2,1,08,01,40,083,46,02,17,308,41,12,07,344,39,14,22,228,45*75",
    "$GPGSV,2,2,08,15,30,050,47,19,12,120,,24,50,270,44,25,05,010,30*7A",
    "$GPVTG,054.7,T,034.4,M,005.5,N,010.2,K*48",
};
#define SENTENCES (sizeof kRecording / sizeof kRecording[0])

static int failures;
#define CHECK(cond)                                                   \
  do {                                                                \
    if (!(cond)) {                                                    \
      fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #cond); \
      ++failures;                                                     \
    }                                                                 \
  } while (0)
#define CHECK_NEAR(a, b) CHECK(fabs((a) - (b)) < 1e-9)

/* The callbacks run on the library's thread: what they share with main()
 * is read and written atomically (the compiler's builtins, as C99 has no
 * atomics of its own). */
#define LOAD(x) __atomic_load_n(&(x), __ATOMIC_SEQ_CST)
#define STORE(x, v) __atomic_store_n(&(x), (v), __ATOMIC_SEQ_CST)
#define ADD(x, v) __atomic_fetch_add(&(x), (v), __ATOMIC_SEQ_CST)
#define OR(x, v) __atomic_fetch_or(&(x), (v), __ATOMIC_SEQ_CST)

/* Set around every call into the library: a callback that finds it set ran
 * inside the caller's call, not on the library's own thread. */
static int inLibraryCall;
static int statusCalls, dataCalls, sentenceCalls, callbacksOnCallerThread;
static unsigned dataMask;
static char firstSentence[128];

static void OnStatus(void) {
  if (LOAD(inLibraryCall)) ADD(callbacksOnCallerThread, 1);
  ADD(statusCalls, 1);
}

static void OnData(uint32_t mask) {
  if (LOAD(inLibraryCall)) ADD(callbacksOnCallerThread, 1);
  OR(dataMask, mask);
  ADD(dataCalls, 1);
}

/* firstSentence is written before the count is raised, and main() reads it
 * only after seeing the count. */
static void OnSentence(const KavoChar *sentence) {
  size_t i;
  if (LOAD(inLibraryCall)) ADD(callbacksOnCallerThread, 1);
  if (LOAD(sentenceCalls) == 0) {
    for (i = 0; sentence[i] && i + 1 < sizeof firstSentence; ++i) firstSentence[i] = (char)sentence[i];
    firstSentence[i] = 0;
  }
  ADD(sentenceCalls, 1);
}

static void ToWide(const char *text, KavoChar *out) {
  while ((*out++ = (KavoChar)(unsigned char)*text++) != 0) {
  }
}

static double Radians(double degrees) { return degrees * 0.0174532925; }

int main(void) {
  const char *path = "c_driver_test.nmea";
  KavoChar widePath[64];
  FILE *file = fopen(path, "wb");
  GPSDriverHandle driver;
  GPSLocation location;
  GPSSatellitesStateHandle satellites;
  GPSSatellite satellite;
  int polls;
  size_t i;

  if (!file) return 2;
  for (i = 0; i < SENTENCES; ++i) fprintf(file, "%s\r\n", kRecording[i]);
  fclose(file);
  ToWide(path, widePath);

  /* Bad arguments fail with 160 and create nothing. */
  CHECK(GPSDriver_CreateFromFile(widePath, 0, 0, NULL, NULL, NULL) == NULL);
  CHECK(KavoMobileGPS_GetLastError() == 160);
  CHECK(GPSDriver_CreateFromFile(NULL, 10, 0, NULL, NULL, NULL) == NULL);
  CHECK(KavoMobileGPS_GetLastError() == 160);

  STORE(inLibraryCall, 1);
  driver = GPSDriver_CreateFromFile(widePath, 100, 0, OnStatus, OnData, OnSentence);
  CHECK(driver != NULL);
  CHECK(KavoMobileGPS_GetLastError() == 0);
  if (!driver) return 1;
  CHECK(GPSDriver_GetStatus(driver) == GPS_STATUS_STOPPED);
  CHECK(GPSDriver_GetTimeoutInterval(driver) == 3000);
  CHECK(GPSDriver_Start(driver) == 1);
  STORE(inLibraryCall, 0);

  /* Poll as an application would, until everything has been decoded. */
  memset(&location, 0, sizeof location);
  for (polls = 0; polls < 500; ++polls) {
    STORE(inLibraryCall, 1);
    CHECK(GPSDriver_GetLocation(driver, &location) == 1);
    STORE(inLibraryCall, 0);
    if (location.ValidFlags == 0x7FF && LOAD(sentenceCalls) == (int)SENTENCES && LOAD(dataCalls) > 0) break;
    PauseMs(10);
  }
  STORE(inLibraryCall, 1);
  CHECK(GPSDriver_GetStatus(driver) == GPS_STATUS_RECEIVING);

  CHECK_NEAR(location.Latitude, 48.0 + 7.038 / 60.0);
  CHECK_NEAR(location.Longitude, 11.0 + 31.0 / 60.0);
  CHECK_NEAR(location.Altitude, 545.4);
  CHECK_NEAR(location.GeoidSeparation, 46.9);
  CHECK(location.SatellitesInUse == 8);
  CHECK(location.FixQuality == 1);
  CHECK_NEAR(location.HDOP, 1.3); /* GSA's value replaces GGA's 0.9 */
  CHECK_NEAR(location.PDOP, 2.5);
  CHECK_NEAR(location.VDOP, 2.1);
  CHECK_NEAR(location.Speed, 5.5 * 1.1507794480235425); /* VTG after RMC */
  CHECK_NEAR(location.Course, Radians(54.7));
  CHECK_NEAR(location.MagneticCourse, Radians(34.4));
  CHECK(location.TimeType == GPS_TIME_FULL);
  /* 23 March 1994 is day 34416 after 30 December 1899; 12:35:19 is 45319 s. */
  CHECK_NEAR(location.Time, 34416.0 + 45319.0 / 86400.0);
  CHECK(location.ValidFlags == 0x7FF);

  satellites = GPSDriver_GetSatellitesInfo(driver);
  CHECK(satellites != NULL);
  CHECK(GPSSatellitesState_GetVisibleSatellitesCount(satellites) == 8);
  CHECK(GPSSatellitesState_GetTimeType(satellites) == GPS_TIME_LOCAL_CLOCK);
  CHECK(GPSSatellitesState_GetSatellite(satellites, 5, &satellite) == 1);
  CHECK(satellite.PRN == 19 && satellite.SNR == 0); /* an empty SNR */
  CHECK_NEAR(satellite.Elevation, Radians(12));
  CHECK_NEAR(satellite.Azimuth, Radians(120));
  CHECK(GPSSatellitesState_GetSatellite(satellites, 0, &satellite) == 1);
  CHECK(satellite.PRN == 1 && satellite.SNR == 46);
  CHECK(GPSSatellitesState_GetSatellite(satellites, 8, &satellite) == 0);
  CHECK(KavoMobileGPS_GetLastError() == 160);

  CHECK(strcmp(firstSentence, kRecording[0]) == 0);
  CHECK(LOAD(statusCalls) >= 1);
  CHECK((LOAD(dataMask) & 0x3F) == 0x3F);
  CHECK(LOAD(callbacksOnCallerThread) == 0);

  CHECK(GPSDriver_Stop(driver) == 1);
  CHECK(GPSDriver_GetStatus(driver) == GPS_STATUS_STOPPED);
  GPSDriver_Release(driver);
  CHECK(KavoMobileGPS_GetLastError() == 0);

  /* The snapshot outlives its driver. */
  CHECK(GPSSatellitesState_GetVisibleSatellitesCount(satellites) == 8);
  GPSSatellitesState_Release(satellites);
  STORE(inLibraryCall, 0);

  remove(path);
  if (failures) fprintf(stderr, "%d checks failed\n", failures);
  else printf("all checks passed\n");
  return failures ? 1 : 0;
}
