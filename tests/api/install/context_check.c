/* Built against an installed KavoMobileGPS: 16 drivers with context
 * callbacks play two recordings at once, eight each (north and south), and
 * every callback's context must be that of a driver playing the recording
 * its location or sentence comes from; the last status announced to each
 * is "receiving". */
#include <stdio.h>
#include <string.h>

#include <KavoMobileGPS.h>

#include "pause.h"

#define DRIVERS 16

/* Written by the driver's reading thread only; read after GPSDriver_Stop. */
struct Context {
  int south, data, sentences, wrong;
  int32_t status;
};

static void OnData(void *context, uint32_t mask, const GPSLocation *location) {
  struct Context *c = context;
  c->wrong += (mask & GPS_CHANGED_POSITION) && (location->Latitude < 0) != c->south;
  ++c->data;
}

static void OnSentence(void *context, const KavoChar *sentence) {
  struct Context *c = context;
  int i, south = 0;
  for (i = 0; sentence[i] && sentence[i + 1]; ++i) south |= sentence[i] == ',' && sentence[i + 1] == 'S';
  c->wrong += south != c->south;
  ++c->sentences;
}

static void OnStatus(void *context, int32_t status) { ((struct Context *)context)->status = status; }

int main(void) {
  static const KavoMobileGPS_Callbacks callbacks = {OnStatus, OnData, OnSentence};
  const KavoChar north[] = {'n', '.', 'n', 'm', 'e', 'a', 0}, south[] = {'s', '.', 'n', 'm', 'e', 'a', 0};
  struct Context contexts[DRIVERS];
  GPSDriverHandle drivers[DRIVERS];
  int i, failures = 0;

  FILE *files[2] = {fopen("n.nmea", "wb"), fopen("s.nmea", "wb")};
  if (!files[0] || !files[1]) return 2;
  for (i = 0; i < 400; ++i)
    fprintf(files[i % 2], "$GPGGA,12%02d%02d,%02d07.038,%s,01131.000,E,1,08,0.9,545.4,M,46.9,M,,\r\n", i / 120,
            i / 2 % 60, 10 + i % 80, i % 2 ? "S" : "N");
  fclose(files[0]);
  fclose(files[1]);
  memset(contexts, 0, sizeof contexts);
  for (i = 0; i < DRIVERS; ++i) {
    contexts[i].south = i % 2;
    drivers[i] = KavoMobileGPS_CreateDriverFromFile(i % 2 ? south : north, 2, 1, &callbacks, &contexts[i]);
    if (!drivers[i] || !GPSDriver_Start(drivers[i])) return fprintf(stderr, "driver %d failed\n", i), 1;
  }
  PauseMs(1500);
  for (i = 0; i < DRIVERS; ++i) GPSDriver_Stop(drivers[i]); /* no callback after this */
  for (i = 0; i < DRIVERS; ++i) {
    const struct Context *c = &contexts[i];
    if (c->wrong || c->data == 0 || c->sentences == 0 || c->status != GPS_STATUS_RECEIVING)
      failures += fprintf(stderr, "driver %d: %d data and %d sentence calls, %d of the other recording, status %d\n", i,
                          c->data, c->sentences, c->wrong, (int)c->status) > 0;
    GPSDriver_Release(drivers[i]);
  }
  remove("n.nmea");
  remove("s.nmea");
  printf("context check: %d of %d drivers wrong\n", failures, DRIVERS);
  return failures ? 1 : 0;
}
