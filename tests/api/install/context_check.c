/* Built against an installed KavoMobileGPS: 16 drivers with context
 * callbacks play two recordings at once, eight each, and every callback's
 * context must be the driver whose recording its location or sentence comes
 * from (the north one or the south one); the status a callback announces is
 * the status the driver then has. Then a null GPSSatellitesState_GetTime
 * pointer is refused with 160. */
#include <stdio.h>
#include <string.h>

#include <KavoMobileGPS.h>

#include "pause.h"

#define DRIVERS 16
#define LINES 400

struct Context {
  int south;                  /* which recording the driver plays */
  int data, sentences, wrong; /* written by the driver's reading thread only */
  int32_t status;
};

static void OnData(void *context, uint32_t mask, const GPSLocation *location) {
  struct Context *c = context;
  if ((mask & GPS_CHANGED_POSITION) && (location->Latitude < 0) != c->south) ++c->wrong;
  ++c->data;
}

static void OnSentence(void *context, const KavoChar *sentence) {
  struct Context *c = context;
  int i, south = 0;
  for (i = 0; sentence[i] && sentence[i + 1] && sentence[i + 2]; ++i)
    south |= sentence[i] == ',' && sentence[i + 1] == 'S' && sentence[i + 2] == ',';
  if (south != c->south) ++c->wrong;
  ++c->sentences;
}

static void OnStatus(void *context, int32_t status) { ((struct Context *)context)->status = status; }

static void Write(const char *name, const char *hemisphere) {
  FILE *file = fopen(name, "wb");
  int i;
  for (i = 0; file && i < LINES; ++i)
    fprintf(file, "$GPGGA,12%02d%02d,%02d07.038,%s,01131.000,E,1,08,0.9,545.4,M,46.9,M,,\r\n", i / 60, i % 60,
            10 + i % 80, hemisphere);
  if (file) fclose(file);
}

int main(void) {
  static const KavoMobileGPS_Callbacks callbacks = {OnStatus, OnData, OnSentence};
  const KavoChar north[] = {'n', '.', 'n', 'm', 'e', 'a', 0}, south[] = {'s', '.', 'n', 'm', 'e', 'a', 0};
  struct Context contexts[DRIVERS];
  GPSDriverHandle drivers[DRIVERS];
  GPSSatellitesStateHandle snapshot;
  double time = 0;
  int i, failures = 0;

  Write("n.nmea", "N");
  Write("s.nmea", "S");
  memset(contexts, 0, sizeof contexts);
  for (i = 0; i < DRIVERS; ++i) {
    contexts[i].south = i % 2;
    drivers[i] = KavoMobileGPS_CreateDriverFromFile(i % 2 ? south : north, 2, 1, &callbacks, &contexts[i]);
    if (!drivers[i] || !GPSDriver_Start(drivers[i])) {
      fprintf(stderr, "driver %d: error %u\n", i, (unsigned)KavoMobileGPS_GetLastError());
      return 1;
    }
  }
  PauseMs(1500);
  for (i = 0; i < DRIVERS; ++i) GPSDriver_Stop(drivers[i]); /* no callback after this */
  for (i = 0; i < DRIVERS; ++i) {
    const struct Context *c = &contexts[i];
    if (c->wrong || c->data == 0 || c->sentences == 0 || c->status != GPS_STATUS_RECEIVING) {
      fprintf(stderr, "driver %d (%s): %d data and %d sentence calls, %d of another recording, status %d\n", i,
              c->south ? "south" : "north", c->data, c->sentences, c->wrong, (int)c->status);
      ++failures;
    }
  }

  snapshot = GPSDriver_GetSatellitesInfo(drivers[0]);
  if (GPSSatellitesState_GetTime(snapshot, NULL) != 0 || KavoMobileGPS_GetLastError() != 160) {
    fprintf(stderr, "GPSSatellitesState_GetTime(state, NULL) did not fail with 160\n");
    ++failures;
  }
  if (GPSSatellitesState_GetTime(snapshot, &time) != 1) ++failures;
  GPSSatellitesState_Release(snapshot);
  for (i = 0; i < DRIVERS; ++i) GPSDriver_Release(drivers[i]);
  remove("n.nmea");
  remove("s.nmea");
  printf("context check: %d of %d drivers wrong\n", failures, DRIVERS);
  return failures ? 1 : 0;
}
