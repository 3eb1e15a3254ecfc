#include <windows.h>

#include "pause.h"

void PauseMs(unsigned ms) { Sleep(ms); }
