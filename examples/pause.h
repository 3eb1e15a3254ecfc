/* Waits a number of milliseconds: the one thing the example needs from the
 * operating system beyond standard C (pause_posix.c, pause_win32.c). */
#ifndef PAUSE_H
#define PAUSE_H
void PauseMs(unsigned ms);
#endif
