#include <windows.h>

#include "pause.h"

void PauseMs(unsigned ms) { Sleep(ms); }

double NowMs(void) {
  LARGE_INTEGER now, frequency;
  QueryPerformanceCounter(&now);
  QueryPerformanceFrequency(&frequency);
  return now.QuadPart * 1000.0 / frequency.QuadPart;
}
