#define _POSIX_C_SOURCE 199309L
#include <time.h>

#include "pause.h"

void PauseMs(unsigned ms) {
    struct timespec t;
    t.tv_sec = ms / 1000;
    t.tv_nsec = (long)(ms % 1000) * 1000000L;
    nanosleep(&t, NULL);
}
