/* How closely a recording plays at its pace, through the exported functions
 * and the system's own clock:  pacing_check [MS_PER_LINE...] (5 20 100)
 * Plays 300 lines at each pace and fails when the time per line is off by
 * more than 3 %. A benchmark with generous bounds, not a unit test: the
 * Windows build runs it, whose clock once made the pace 40 % fast. */
#include <math.h>
#include <stdio.h>
#include <stdlib.h>

#include "KavoMobileGPS.h"
#include "pause.h"

#define LINES 300

/* Written by the library's reading thread, read by main(). */
struct Arrivals {
  int count;
  double first, last;
};

static void OnSentence(void *context, const KavoChar *sentence) {
  struct Arrivals *arrivals = context;
  const double now = NowMs();
  (void)sentence;
  if (__atomic_load_n(&arrivals->count, __ATOMIC_SEQ_CST) == 0) arrivals->first = now;
  arrivals->last = now;
  __atomic_fetch_add(&arrivals->count, 1, __ATOMIC_SEQ_CST);
}

/* The time per line at `msPerLine`, or a negative value when it failed. */
static double Play(const KavoChar *path, unsigned msPerLine) {
  const KavoMobileGPS_Callbacks callbacks = {NULL, NULL, OnSentence};
  struct Arrivals arrivals = {0, 0, 0};
  GPSDriverHandle driver = KavoMobileGPS_CreateDriverFromFile(path, msPerLine, 0, &callbacks, &arrivals);
  unsigned waited;
  if (!driver || !GPSDriver_Start(driver)) return -1;
  for (waited = 0; __atomic_load_n(&arrivals.count, __ATOMIC_SEQ_CST) < LINES && waited < 3 * LINES * msPerLine;
       waited += 10)
    PauseMs(10);
  GPSDriver_Stop(driver); /* no callback after it returned */
  GPSDriver_Release(driver);
  return arrivals.count < LINES ? -1 : (arrivals.last - arrivals.first) / (arrivals.count - 1);
}

int main(int argc, char **argv) {
  static const char *const defaults[] = {"5", "20", "100"};
  KavoChar path[] = {'p', 'a', 'c', 'i', 'n', 'g', '.', 'n', 'm', 'e', 'a', 0};
  FILE *file = fopen("pacing.nmea", "wb");
  int i, failures = 0;
  if (!file) return 2;
  for (i = 0; i < LINES; ++i)
    fprintf(file, "$GPGGA,1200%02d,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,\r\n", i % 60);
  fclose(file);
  for (i = 0; i < (argc > 1 ? argc - 1 : 3); ++i) {
    const unsigned msPerLine = (unsigned)atoi(argc > 1 ? argv[i + 1] : defaults[i]);
    const double measured = Play(path, msPerLine);
    const int ok = fabs(measured - msPerLine) <= 0.03 * msPerLine;
    printf("%u ms a line: %.2f ms over %d lines%s\n", msPerLine, measured, LINES, ok ? "" : "  FAILED");
    failures += !ok;
  }
  remove("pacing.nmea");
  return failures ? 1 : 0;
}
