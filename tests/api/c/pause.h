/* Waits a number of milliseconds; the only thing the test needs from the OS. */
#ifndef PAUSE_H
#define PAUSE_H
void PauseMs(unsigned ms);
#endif
