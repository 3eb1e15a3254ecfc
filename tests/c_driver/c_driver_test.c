/* An application in C: plays a short recording through the exported
 * functions and checks every value against what was worked out by hand from
 * the sentences below; then every export refuses bad arguments. */
#include <math.h>
#include <stdio.h>
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
#define SENTENCES (int)(sizeof kRecording / sizeof kRecording[0])

static int failures;
#define CHECK(cond)                                                             \
  do {                                                                          \
    if (!(cond)) {                                                              \
      fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #cond); \
      ++failures;                                                               \
    }                                                                           \
  } while (0)
#define CHECK_NEAR(a, b) CHECK(fabs((a) - (b)) < 1e-9)
/* `failed` holds for the call's result and it left `error` behind. */
#define REFUSED(failed, error) CHECK((failed) && KavoMobileGPS_GetLastError() == (error))

/* The callbacks run on the library's thread: what they share with main()
 * is read and written atomically (the compiler's builtins, as C99 has no
 * atomics of its own). inLibraryCall is set around main's calls into the
 * library: a callback that sees it ran inside the caller's call. */
#define LOAD(x) __atomic_load_n(&(x), __ATOMIC_SEQ_CST)
#define STORE(x, v) __atomic_store_n(&(x), (v), __ATOMIC_SEQ_CST)
#define ADD(x, v) __atomic_fetch_add(&(x), (v), __ATOMIC_SEQ_CST)
static int inLibraryCall, statusCalls, dataCalls, sentenceCalls, onCallerThread;
static unsigned dataMask;
static char firstSentence[128];

static void OnStatus(void) {
  ADD(onCallerThread, LOAD(inLibraryCall));
  ADD(statusCalls, 1);
}
static void OnData(uint32_t mask) {
  ADD(onCallerThread, LOAD(inLibraryCall));
  __atomic_fetch_or(&dataMask, mask, __ATOMIC_SEQ_CST);
  ADD(dataCalls, 1);
}
/* firstSentence is written before the count rises; main() reads it after. */
static void OnSentence(const KavoChar *sentence) {
  size_t i;
  ADD(onCallerThread, LOAD(inLibraryCall));
  for (i = 0; LOAD(sentenceCalls) == 0 && sentence[i] && i + 1 < sizeof firstSentence; ++i)
    firstSentence[i] = (char)sentence[i];
  ADD(sentenceCalls, 1);
}

static const KavoChar *W(const char *text, KavoChar *out) {
  size_t i = 0;
  while ((out[i] = (KavoChar)(unsigned char)text[i]) != 0) ++i;
  return out;
}
static int Same(const KavoChar *wide, const char *text) {
  while (*text && *wide == (KavoChar)(unsigned char)*text) ++wide, ++text;
  return *wide == 0 && *text == 0;
}
static double Radians(double degrees) { return degrees * 0.0174532925; }

/* Live handles the refusals are tried on. */
typedef struct {
  COMPortInfoHandle port; /* COM1: at 4800 8N1 */
  GPSDriverHandle driver; /* running */
  GPSSatellitesStateHandle snapshot; /* eight satellites */
  const KavoChar *path;
} Live;
static KavoChar buffer[64];
static const COMPortParams kGood = {4800, 0, 0, 8}, kBadBaud = {300, 0, 0, 8};

/* One function per export, named after it, listed in exported_list.h. */
static void Refuse_COMPortCollection_Create(const Live *l) {
  (void)l;
  REFUSED(COMPortCollection_Create(0) == NULL, 160);
  REFUSED(COMPortCollection_Create(-7) == NULL, 160);
}
static void Refuse_COMPortCollection_GetCount(const Live *l) { (void)l; REFUSED(COMPortCollection_GetCount(NULL) == 0, 160); }
static void Refuse_COMPortCollection_GetPort(const Live *l) {
  uint8_t busy = 7;
  (void)l;
  REFUSED(COMPortCollection_GetPort(NULL, 0, &busy) == NULL && busy == 7, 160);
}
static void Refuse_COMPortCollection_Release(const Live *l) { (void)l; REFUSED((COMPortCollection_Release(NULL), 1), 160); }
static void Refuse_COMPortInfo_Create(const Live *l) {
  (void)l;
  REFUSED(COMPortInfo_Create(NULL, &kGood) == NULL, 160);
  REFUSED(COMPortInfo_Create(W("COM1", buffer), NULL) == NULL, 160);
  REFUSED(COMPortInfo_Create(W("COM1", buffer), &kBadBaud) == NULL, 87);
}
static void Refuse_COMPortInfo_FindGPSCOMPort(const Live *l) { (void)l; REFUSED(COMPortInfo_FindGPSCOMPort(0) == NULL, 160); }
static void Refuse_COMPortInfo_GetName(const Live *l) { (void)l; REFUSED(COMPortInfo_GetName(NULL) == NULL, 160); }
static void Refuse_COMPortInfo_GetParams(const Live *l) {
  COMPortParams read;
  REFUSED(COMPortInfo_GetParams(NULL, &read) == 0, 160);
  REFUSED(COMPortInfo_GetParams(l->port, NULL) == 0, 160);
}
static void Refuse_COMPortInfo_Release(const Live *l) { (void)l; REFUSED((COMPortInfo_Release(NULL), 1), 160); }
static void Refuse_COMPortInfo_SetName(const Live *l) {
  REFUSED(COMPortInfo_SetName(NULL, W("COM2", buffer)) == 0, 160);
  REFUSED(COMPortInfo_SetName(l->port, NULL) == 0, 160);
  CHECK(Same(COMPortInfo_GetName(l->port), "COM1:"));
}
static void Refuse_COMPortInfo_SetParams(const Live *l) {
  COMPortParams read, badParity = {4800, 5, 0, 8}, badStopBits = {4800, 0, 3, 8};
  REFUSED(COMPortInfo_SetParams(NULL, &kGood) == 0, 160);
  REFUSED(COMPortInfo_SetParams(l->port, NULL) == 0, 160);
  REFUSED(COMPortInfo_SetParams(l->port, &kBadBaud) == 0, 160);
  REFUSED(COMPortInfo_SetParams(l->port, &badParity) == 0, 160);
  REFUSED(COMPortInfo_SetParams(l->port, &badStopBits) == 0, 160);
  CHECK(COMPortInfo_GetParams(l->port, &read) == 1 && memcmp(&read, &kGood, sizeof read) == 0);
}
static void Refuse_GPSDriver_CreateFromCOMPort(const Live *l) {
  (void)l;
  REFUSED(GPSDriver_CreateFromCOMPort(NULL, NULL, NULL, NULL) == NULL, 160);
}
static void Refuse_GPSDriver_CreateFromFile(const Live *l) {
  REFUSED(GPSDriver_CreateFromFile(NULL, 100, 0, NULL, NULL, NULL) == NULL, 160);
  REFUSED(GPSDriver_CreateFromFile(l->path, 0, 0, NULL, NULL, NULL) == NULL, 160);
  REFUSED(GPSDriver_CreateFromFile(l->path, -5, 0, NULL, NULL, NULL) == NULL, 160);
  CHECK(GPSDriver_CreateFromFile(W("absent.nmea", buffer), 100, 0, NULL, NULL, NULL) == NULL &&
        KavoMobileGPS_GetLastError() != 0 && KavoMobileGPS_GetLastError() != 160);
}
static void Refuse_GPSDriver_GetLocation(const Live *l) {
  GPSLocation location;
  REFUSED(GPSDriver_GetLocation(NULL, &location) == 0, 160);
  REFUSED(GPSDriver_GetLocation(l->driver, NULL) == 0, 160);
}
static void Refuse_GPSDriver_GetSatellitesInfo(const Live *l) { (void)l; REFUSED(GPSDriver_GetSatellitesInfo(NULL) == NULL, 160); }
static void Refuse_GPSDriver_GetStatus(const Live *l) { (void)l; REFUSED(GPSDriver_GetStatus(NULL) == -4, 160); }
static void Refuse_GPSDriver_GetTimeoutInterval(const Live *l) { (void)l; REFUSED(GPSDriver_GetTimeoutInterval(NULL) == -1, 160); }
static void Refuse_GPSDriver_Release(const Live *l) { (void)l; REFUSED((GPSDriver_Release(NULL), 1), 160); }
static void Refuse_GPSDriver_SetTimeoutInterval(const Live *l) {
  REFUSED(GPSDriver_SetTimeoutInterval(NULL, 10) == 0, 160);
  REFUSED(GPSDriver_SetTimeoutInterval(l->driver, -1) == 0, 160);
  CHECK(GPSDriver_GetTimeoutInterval(l->driver) == 3000);
}
static void Refuse_GPSDriver_Start(const Live *l) {
  REFUSED(GPSDriver_Start(NULL) == 0, 160);
  REFUSED(GPSDriver_Start(l->driver) == 0, 50); /* already running */
}
static void Refuse_GPSDriver_Stop(const Live *l) { (void)l; REFUSED(GPSDriver_Stop(NULL) == 0, 160); }
static void Refuse_GPSSatellitesState_GetSatellite(const Live *l) {
  GPSSatellite satellite;
  REFUSED(GPSSatellitesState_GetSatellite(NULL, 0, &satellite) == 0, 160);
  REFUSED(GPSSatellitesState_GetSatellite(l->snapshot, -1, &satellite) == 0, 160);
  REFUSED(GPSSatellitesState_GetSatellite(l->snapshot, 8, &satellite) == 0, 160);
  REFUSED(GPSSatellitesState_GetSatellite(l->snapshot, 0, NULL) == 0, 160);
}
static void Refuse_GPSSatellitesState_GetTime(const Live *l) {
  double time;
  (void)l;
  REFUSED(GPSSatellitesState_GetTime(NULL, &time) == 0, 160);
}
static void Refuse_GPSSatellitesState_GetTimeType(const Live *l) { (void)l; REFUSED(GPSSatellitesState_GetTimeType(NULL) == 2, 160); }
static void Refuse_GPSSatellitesState_GetVisibleSatellitesCount(const Live *l) {
  (void)l;
  REFUSED(GPSSatellitesState_GetVisibleSatellitesCount(NULL) == 0, 160);
}
static void Refuse_GPSSatellitesState_Release(const Live *l) { (void)l; REFUSED((GPSSatellitesState_Release(NULL), 1), 160); }
static void Refuse_KavoMobileGPS_GetLastError(const Live *l) {
  /* The value of the latest call on this thread: a success clears it. */
  REFUSED(GPSDriver_GetStatus(NULL) == -4, 160);
  REFUSED(GPSDriver_GetTimeoutInterval(l->driver) == 3000, 0);
}

#define EXPORTED(name) {#name, Refuse_##name},
static const struct {
  const char *name;
  void (*run)(const Live *);
} kRefusals[] = {
#include "exported_list.h"
};

static void PortDescription(void) {
  COMPortParams read, other = {110, 1, 1, 0};
  COMPortInfoHandle port = COMPortInfo_Create(W("COM3", buffer), &kGood);
  CHECK(port && Same(COMPortInfo_GetName(port), "COM3:") && KavoMobileGPS_GetLastError() == 0);
  CHECK(COMPortInfo_SetName(port, W("COM4", buffer)) == 1 && Same(COMPortInfo_GetName(port), "COM4"));
  CHECK(COMPortInfo_SetName(port, W("ABCDEFGHIJKLMNOPQRSTUVWXY", buffer)) == 1);
  CHECK(Same(COMPortInfo_GetName(port), "ABCDEFGHIJKLMNOPQRST"));
  CHECK(COMPortInfo_SetParams(port, &other) == 1 && COMPortInfo_GetParams(port, &read) == 1);
  CHECK(memcmp(&read, &other, sizeof read) == 0);
  COMPortInfo_Release(port);
  /* Twenty characters leave no room for the colon; nineteen do. */
  port = COMPortInfo_Create(W("ABCDEFGHIJKLMNOPQRST", buffer), &kGood);
  CHECK(port && Same(COMPortInfo_GetName(port), "ABCDEFGHIJKLMNOPQRST"));
  COMPortInfo_Release(port);
  port = COMPortInfo_Create(W("ABCDEFGHIJKLMNOPQRS", buffer), &kGood);
  CHECK(port && Same(COMPortInfo_GetName(port), "ABCDEFGHIJKLMNOPQRS:"));
  COMPortInfo_Release(port);
}

int main(void) {
  KavoChar path[64];
  FILE *file = fopen("c_driver_test.nmea", "wb");
  Live live;
  GPSLocation location;
  GPSSatellite satellite;
  double time = 0;
  int i;

  if (!file) return 2;
  for (i = 0; i < SENTENCES; ++i) fprintf(file, "%s\r\n", kRecording[i]);
  fclose(file);
  PortDescription();

  STORE(inLibraryCall, 1);
  live.path = W("c_driver_test.nmea", path);
  live.driver = GPSDriver_CreateFromFile(live.path, 100, 1, OnStatus, OnData, OnSentence);
  CHECK(live.driver != NULL && KavoMobileGPS_GetLastError() == 0);
  if (!live.driver) return 1;
  CHECK(GPSDriver_GetStatus(live.driver) == GPS_STATUS_STOPPED);
  CHECK(GPSDriver_GetTimeoutInterval(live.driver) == 3000);
  CHECK(GPSDriver_Start(live.driver) == 1);

  /* Poll as an application would, until everything has been decoded (played
   * in a loop, so the status stays "receiving"); the limit is only reached
   * when something is broken. */
  memset(&location, 0, sizeof location);
  for (i = 0; i < 6000; ++i) {
    CHECK(GPSDriver_GetLocation(live.driver, &location) == 1);
    if (location.ValidFlags == 0x7FF && LOAD(sentenceCalls) >= SENTENCES && LOAD(dataCalls) > 0) break;
    STORE(inLibraryCall, 0);
    PauseMs(10);
    STORE(inLibraryCall, 1);
  }
  CHECK(GPSDriver_GetStatus(live.driver) == GPS_STATUS_RECEIVING);
  CHECK_NEAR(location.Latitude, 48.0 + 7.038 / 60.0);
  CHECK_NEAR(location.Longitude, 11.0 + 31.0 / 60.0);
  CHECK_NEAR(location.Altitude, 545.4);
  CHECK_NEAR(location.GeoidSeparation, 46.9);
  CHECK(location.SatellitesInUse == 8 && location.FixQuality == 1);
  CHECK_NEAR(location.HDOP, 1.3); /* GSA's value replaces GGA's 0.9 */
  CHECK_NEAR(location.PDOP, 2.5);
  CHECK_NEAR(location.VDOP, 2.1);
  CHECK_NEAR(location.Speed, 5.5 * 1.1507794480235425); /* VTG after RMC */
  CHECK_NEAR(location.Course, Radians(54.7));
  CHECK_NEAR(location.MagneticCourse, Radians(34.4));
  CHECK(location.TimeType == GPS_TIME_FULL);
  /* 23 March 1994 is day 34416 after 30 December 1899; 12:35:19 is 45319 s. */
  CHECK_NEAR(location.Time, 34416.0 + 45319.0 / 86400.0);

  live.snapshot = GPSDriver_GetSatellitesInfo(live.driver);
  CHECK(live.snapshot != NULL);
  CHECK(GPSSatellitesState_GetVisibleSatellitesCount(live.snapshot) == 8);
  CHECK(GPSSatellitesState_GetTimeType(live.snapshot) == GPS_TIME_LOCAL_CLOCK);
  CHECK(GPSSatellitesState_GetTime(live.snapshot, &time) == 1 && time > 40000.0); /* assembled now */
  CHECK(GPSSatellitesState_GetSatellite(live.snapshot, 5, &satellite) == 1);
  CHECK(satellite.PRN == 19 && satellite.SNR == 0); /* an empty SNR */
  CHECK_NEAR(satellite.Elevation, Radians(12));
  CHECK_NEAR(satellite.Azimuth, Radians(120));
  CHECK(GPSSatellitesState_GetSatellite(live.snapshot, 0, &satellite) == 1 && satellite.PRN == 1);
  CHECK(strcmp(firstSentence, kRecording[0]) == 0);
  CHECK(LOAD(statusCalls) >= 1 && (LOAD(dataMask) & 0x3F) == 0x3F);

  live.port = COMPortInfo_Create(W("COM1", buffer), &kGood);
  for (i = 0; i < (int)(sizeof kRefusals / sizeof kRefusals[0]); ++i) {
    const int before = failures;
    kRefusals[i].run(&live);
    if (failures != before) fprintf(stderr, "  in the refusals of %s\n", kRefusals[i].name);
  }
  COMPortInfo_Release(live.port);

  CHECK(GPSDriver_Stop(live.driver) == 1);
  CHECK(GPSDriver_GetStatus(live.driver) == GPS_STATUS_STOPPED);
  GPSDriver_Release(live.driver);
  CHECK(KavoMobileGPS_GetLastError() == 0);
  CHECK(GPSSatellitesState_GetVisibleSatellitesCount(live.snapshot) == 8); /* outlives its driver */
  GPSSatellitesState_Release(live.snapshot);
  STORE(inLibraryCall, 0);
  CHECK(LOAD(onCallerThread) == 0);

  remove("c_driver_test.nmea");
  if (failures) fprintf(stderr, "%d checks failed\n", failures);
  return failures ? 1 : 0;
}
