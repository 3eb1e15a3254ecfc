/* What the C programs need from the OS: waiting a number of milliseconds,
 * and a monotonic time in milliseconds. */
#ifndef PAUSE_H
#define PAUSE_H
void PauseMs(unsigned ms);
double NowMs(void);
#endif
