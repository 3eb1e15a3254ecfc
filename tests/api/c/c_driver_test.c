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
#define CHECK(cond)                                                            \
  do {                                                                         \
    if (!(cond)) {                                                             \
      fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #cond); \
      ++failures;                                                              \
    }                                                                          \
  } while (0)

/* The callbacks run on the library's thread: what they share with main()
 * is read and written atomically (the compiler's builtins, as C99 has no
 * atomics of its own). */
#define LOAD(x) __atomic_load_n(&(x), __ATOMIC_SEQ_CST)
#define ADD(x, v) __atomic_fetch_add(&(x), (v), __ATOMIC_SEQ_CST)
static int statusCalls, dataCalls, sentenceCalls;
static unsigned dataMask;
static char firstSentence[128];

static void OnStatus(void) { ADD(statusCalls, 1); }
static void OnData(uint32_t mask) {
  __atomic_fetch_or(&dataMask, mask, __ATOMIC_SEQ_CST);
  ADD(dataCalls, 1);
}
/* firstSentence is written before the count rises; main() reads it after. */
static void OnSentence(const KavoChar *sentence) {
  size_t i;
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
static int Near(double a, double b) { return fabs(a - b) < 1e-9; }

static KavoChar buffer[64];
static const COMPortParams kGood = {4800, 0, 0, 8}, kBadBaud = {300, 0, 0, 8};

/* Every export refuses bad arguments with its failure value and 160. A row
 * names the export it checks; each export in the shared library's list has a
 * flag (exported_list.h is made from that list), so a row naming anything
 * else does not compile, and every flag must be set once the rows ran. */
#define EXPORTED(name) static int checked_##name;
#include "exported_list.h"
#undef EXPORTED
#define ROW(name, failed, error)                                \
  do {                                                          \
    checked_##name = 1;                                         \
    CHECK((failed) && KavoMobileGPS_GetLastError() == (error)); \
  } while (0)

static void Refusals(COMPortInfoHandle port, GPSDriverHandle driver, GPSSatellitesStateHandle snapshot,
                     const KavoChar *path) {
  COMPortParams read, badParity = {9600, 5, 0, 8}, badStopBits = {9600, 0, 3, 8};
  GPSLocation location;
  GPSSatellite satellite;
  double time;
  uint8_t busy = 7;
  ROW(COMPortCollection_Create, COMPortCollection_Create(0) == NULL, 160);
  ROW(COMPortCollection_Create, COMPortCollection_Create(-7) == NULL, 160);
  ROW(COMPortCollection_GetCount, COMPortCollection_GetCount(NULL) == 0, 160);
  ROW(COMPortCollection_GetPort, COMPortCollection_GetPort(NULL, 0, &busy) == NULL && busy == 7, 160);
  ROW(COMPortCollection_Release, (COMPortCollection_Release(NULL), 1), 160);
  ROW(COMPortInfo_Create, COMPortInfo_Create(NULL, &kGood) == NULL, 160);
  ROW(COMPortInfo_Create, COMPortInfo_Create(W("COM1", buffer), NULL) == NULL, 160);
  ROW(COMPortInfo_Create, COMPortInfo_Create(W("COM1", buffer), &kBadBaud) == NULL, 87);
  ROW(COMPortInfo_FindGPSCOMPort, COMPortInfo_FindGPSCOMPort(0) == NULL, 160);
  ROW(COMPortInfo_GetName, COMPortInfo_GetName(NULL) == NULL, 160);
  ROW(COMPortInfo_GetParams, COMPortInfo_GetParams(NULL, &read) == 0, 160);
  ROW(COMPortInfo_GetParams, COMPortInfo_GetParams(port, NULL) == 0, 160);
  ROW(COMPortInfo_Release, (COMPortInfo_Release(NULL), 1), 160);
  ROW(COMPortInfo_SetName, COMPortInfo_SetName(NULL, W("COM2", buffer)) == 0, 160);
  ROW(COMPortInfo_SetName, COMPortInfo_SetName(port, NULL) == 0, 160);
  ROW(COMPortInfo_SetParams, COMPortInfo_SetParams(NULL, &kGood) == 0, 160);
  ROW(COMPortInfo_SetParams, COMPortInfo_SetParams(port, NULL) == 0, 160);
  ROW(COMPortInfo_SetParams, COMPortInfo_SetParams(port, &kBadBaud) == 0, 160);
  ROW(COMPortInfo_SetParams, COMPortInfo_SetParams(port, &badParity) == 0, 160);
  ROW(COMPortInfo_SetParams, COMPortInfo_SetParams(port, &badStopBits) == 0, 160);
  ROW(GPSDriver_CreateFromCOMPort, GPSDriver_CreateFromCOMPort(NULL, NULL, NULL, NULL) == NULL, 160);
  ROW(GPSDriver_CreateFromFile, GPSDriver_CreateFromFile(NULL, 100, 0, NULL, NULL, NULL) == NULL, 160);
  ROW(GPSDriver_CreateFromFile, GPSDriver_CreateFromFile(path, 0, 0, NULL, NULL, NULL) == NULL, 160);
  ROW(GPSDriver_CreateFromFile, GPSDriver_CreateFromFile(path, -5, 0, NULL, NULL, NULL) == NULL, 160);
  ROW(GPSDriver_GetLocation, GPSDriver_GetLocation(NULL, &location) == 0, 160);
  ROW(GPSDriver_GetLocation, GPSDriver_GetLocation(driver, NULL) == 0, 160);
  ROW(GPSDriver_GetSatellitesInfo, GPSDriver_GetSatellitesInfo(NULL) == NULL, 160);
  ROW(GPSDriver_GetStatus, GPSDriver_GetStatus(NULL) == -4, 160);
  ROW(GPSDriver_GetTimeoutInterval, GPSDriver_GetTimeoutInterval(NULL) == -1, 160);
  ROW(GPSDriver_Release, (GPSDriver_Release(NULL), 1), 160);
  ROW(GPSDriver_SetTimeoutInterval, GPSDriver_SetTimeoutInterval(NULL, 10) == 0, 160);
  ROW(GPSDriver_SetTimeoutInterval, GPSDriver_SetTimeoutInterval(driver, -1) == 0, 160);
  ROW(GPSDriver_Start, GPSDriver_Start(NULL) == 0, 160);
  ROW(GPSDriver_Start, GPSDriver_Start(driver) == 0, 50); /* already running */
  ROW(GPSDriver_Stop, GPSDriver_Stop(NULL) == 0, 160);
  ROW(GPSSatellitesState_GetSatellite, GPSSatellitesState_GetSatellite(NULL, 0, &satellite) == 0, 160);
  ROW(GPSSatellitesState_GetSatellite, GPSSatellitesState_GetSatellite(snapshot, -1, &satellite) == 0, 160);
  ROW(GPSSatellitesState_GetSatellite, GPSSatellitesState_GetSatellite(snapshot, 8, &satellite) == 0, 160);
  ROW(GPSSatellitesState_GetSatellite, GPSSatellitesState_GetSatellite(snapshot, 0, NULL) == 0, 160);
  ROW(GPSSatellitesState_GetTime, GPSSatellitesState_GetTime(NULL, &time) == 0, 160);
  ROW(GPSSatellitesState_GetTime, GPSSatellitesState_GetTime(snapshot, NULL) == 0, 160); /* not a crash */
  ROW(GPSSatellitesState_GetTimeType, GPSSatellitesState_GetTimeType(NULL) == 2, 160);
  ROW(GPSSatellitesState_GetVisibleSatellitesCount, GPSSatellitesState_GetVisibleSatellitesCount(NULL) == 0, 160);
  ROW(GPSSatellitesState_Release, (GPSSatellitesState_Release(NULL), 1), 160);
  ROW(KavoMobileGPS_CreateDriverFromCOMPort, KavoMobileGPS_CreateDriverFromCOMPort(NULL, NULL, NULL) == NULL, 160);
  ROW(KavoMobileGPS_CreateDriverFromFile, KavoMobileGPS_CreateDriverFromFile(NULL, 100, 0, NULL, NULL) == NULL, 160);
  ROW(KavoMobileGPS_CreateDriverFromFile, KavoMobileGPS_CreateDriverFromFile(path, 0, 0, NULL, NULL) == NULL, 160);
  /* The value of the latest call on this thread: a success clears it. */
  ROW(KavoMobileGPS_GetLastError, GPSDriver_GetTimeoutInterval(driver) == 3000, 0);
  /* Refusals change nothing. */
  CHECK(GPSDriver_GetTimeoutInterval(driver) == 3000 && Same(COMPortInfo_GetName(port), "COM1:"));
  CHECK(COMPortInfo_GetParams(port, &read) == 1 && memcmp(&read, &kGood, sizeof read) == 0);
  CHECK(GPSDriver_CreateFromFile(W("absent.nmea", buffer), 100, 0, NULL, NULL, NULL) == NULL &&
        KavoMobileGPS_GetLastError() != 0 && KavoMobileGPS_GetLastError() != 160);
}

static void EveryListedExportWasChecked(void) {
#define EXPORTED(name)                                     \
  if (!checked_##name) {                                   \
    fprintf(stderr, "no refusal checked for %s\n", #name); \
    ++failures;                                            \
  }
#include "exported_list.h"
#undef EXPORTED
}

/* A port description: Create completes the colon where it fits, SetName
 * stores the name as given; both cut it to twenty characters. */
static void PortDescription(void) {
  static const char *const names[][2] = {{"COM3", "COM3:"},
                                         {"ABCDEFGHIJKLMNOPQRS", "ABCDEFGHIJKLMNOPQRS:"},
                                         {"ABCDEFGHIJKLMNOPQRSTUVWXY", "ABCDEFGHIJKLMNOPQRST"}};
  COMPortInfoHandle port;
  size_t i;
  for (i = 0; i < sizeof names / sizeof names[0]; ++i) {
    port = COMPortInfo_Create(W(names[i][0], buffer), &kGood);
    CHECK(port && Same(COMPortInfo_GetName(port), names[i][1]) && KavoMobileGPS_GetLastError() == 0);
    CHECK(COMPortInfo_SetName(port, W(names[i][0], buffer)) == 1);
    CHECK(Same(COMPortInfo_GetName(port), i < 2 ? names[i][0] : names[i][1]));
    COMPortInfo_Release(port);
  }
}

int main(void) {
  KavoChar path[64];
  FILE *file = fopen("c_driver_test.nmea", "wb");
  COMPortInfoHandle port;
  GPSDriverHandle driver;
  GPSSatellitesStateHandle snapshot;
  GPSLocation location;
  GPSSatellite satellite;
  double time = 0;
  int i;

  if (!file) return 2;
  for (i = 0; i < SENTENCES; ++i) fprintf(file, "%s\r\n", kRecording[i]);
  fclose(file);
  PortDescription();

  driver = GPSDriver_CreateFromFile(W("c_driver_test.nmea", path), 100, 1, OnStatus, OnData, OnSentence);
  CHECK(driver != NULL && KavoMobileGPS_GetLastError() == 0);
  if (!driver) return 1;
  CHECK(GPSDriver_GetStatus(driver) == GPS_STATUS_STOPPED);
  CHECK(GPSDriver_Start(driver) == 1);

  /* Poll as an application would, until everything has been decoded (played
   * in a loop, so the status stays "receiving"); the limit is only reached
   * when something is broken. */
  memset(&location, 0, sizeof location);
  for (i = 0; i < 6000; ++i) {
    CHECK(GPSDriver_GetLocation(driver, &location) == 1);
    if (location.ValidFlags == 0x7FF && LOAD(sentenceCalls) >= SENTENCES && LOAD(dataCalls) > 0) break;
    PauseMs(10);
  }
  CHECK(GPSDriver_GetStatus(driver) == GPS_STATUS_RECEIVING);
  CHECK(Near(location.Latitude, 48.0 + 7.038 / 60.0) && Near(location.Longitude, 11.0 + 31.0 / 60.0));
  CHECK(location.SatellitesInUse == 8 && location.FixQuality == 1 && location.ValidFlags == 0x7FF);
  /* GSA's dilutions replace GGA's 0.9. */
  CHECK(Near(location.HDOP, 1.3) && Near(location.PDOP, 2.5) && Near(location.VDOP, 2.1));
  /* 23 March 1994 is day 34416 after 30 December 1899; 12:35:19 is 45319 s. */
  CHECK(Near(location.Time, 34416.0 + 45319.0 / 86400.0));

  snapshot = GPSDriver_GetSatellitesInfo(driver);
  CHECK(GPSSatellitesState_GetVisibleSatellitesCount(snapshot) == 8);
  CHECK(GPSSatellitesState_GetTimeType(snapshot) == GPS_TIME_LOCAL_CLOCK);
  CHECK(GPSSatellitesState_GetTime(snapshot, &time) == 1 && time > 40000.0); /* assembled now */
  CHECK(GPSSatellitesState_GetSatellite(snapshot, 5, &satellite) == 1);
  CHECK(satellite.PRN == 19 && satellite.SNR == 0); /* the second message's second, with an empty SNR */
  CHECK(strcmp(firstSentence, kRecording[0]) == 0);
  CHECK(LOAD(statusCalls) >= 1 && (LOAD(dataMask) & 0x3F) == 0x3F);

  port = COMPortInfo_Create(W("COM1", buffer), &kGood);
  Refusals(port, driver, snapshot, path);
  EveryListedExportWasChecked();
  COMPortInfo_Release(port);

  CHECK(GPSDriver_Stop(driver) == 1);
  CHECK(GPSDriver_GetStatus(driver) == GPS_STATUS_STOPPED);
  GPSDriver_Release(driver);
  CHECK(KavoMobileGPS_GetLastError() == 0);
  CHECK(GPSSatellitesState_GetVisibleSatellitesCount(snapshot) == 8); /* outlives its driver */
  GPSSatellitesState_Release(snapshot);

  remove("c_driver_test.nmea");
  if (failures) fprintf(stderr, "%d checks failed\n", failures);
  return failures ? 1 : 0;
}
