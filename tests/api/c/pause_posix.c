#define _POSIX_C_SOURCE 199309L
#include <time.h>

#include "pause.h"

void PauseMs(unsigned ms) {
  struct timespec t;
  t.tv_sec = ms / 1000;
  t.tv_nsec = (long)(ms % 1000) * 1000000L;
  nanosleep(&t, NULL);
}

double NowMs(void) {
  struct timespec t;
  clock_gettime(CLOCK_MONOTONIC, &t);
  return t.tv_sec * 1000.0 + t.tv_nsec / 1e6;
}
