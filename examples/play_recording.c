/* Plays a recorded NMEA file through KavoMobileGPS as if a receiver were
 * attached, and prints each new fix:  play_recording FILE [MS_PER_LINE]
 * Standard C99, the library's header and a pause (pause_posix.c or
 * pause_win32.c). */
#include <stdio.h>
#include <stdlib.h>

#include <KavoMobileGPS.h>

#include "pause.h"

int main(int argc, char **argv) {
    if (argc < 2) {
        fprintf(stderr, "usage: %s FILE [MS_PER_LINE]\n", argv[0]);
        return 2;
    }
    int msPerLine = argc > 2 ? atoi(argv[2]) : 100;

    KavoChar path[1024] = {0}; /* UTF-16: an ASCII path widens byte by byte */
    for (size_t i = 0; argv[1][i] && i < 1023; ++i) path[i] = (unsigned char)argv[1][i];

    /* One line per interval, no repeat, no callbacks: this program polls. */
    GPSDriverHandle driver = GPSDriver_CreateFromFile(path, msPerLine, 0, NULL, NULL, NULL);
    if (!driver) {
        fprintf(stderr, "cannot play %s (error %u)\n", argv[1], (unsigned)KavoMobileGPS_GetLastError());
        return 1;
    }
    /* After the last line the status turns to "no data" once this long has
     * passed without text: that is how the end of the recording shows. */
    GPSDriver_SetTimeoutInterval(driver, 2 * msPerLine + 1000);
    GPSDriver_Start(driver);

    /* Until the first NMEA sentence the status stays "stopped", and for good
     * on a file without one; text without one turns it "no sentence" after
     * 3 s. So a program waits a bounded time for the first sentence. */
    const char *trouble = NULL;
    int received = 0, fixes = 0;
    double lastTime = 0;
    for (int waitedMs = 0; !trouble; waitedMs += 50) {
        int32_t status = GPSDriver_GetStatus(driver);
        if (status == GPS_STATUS_TIMEOUT) break; /* the end of the recording */
        if (status == GPS_STATUS_RECEIVING) received = 1;
        if (status == GPS_STATUS_NO_SENTENCE) trouble = "text, but no NMEA sentence the library reads";
        if (status == GPS_STATUS_STOPPED && received) trouble = "the file could not be read to its end";
        if (status == GPS_STATUS_STOPPED && !received && waitedMs > 3000 + 4 * msPerLine)
            trouble = "no NMEA sentence: the file is empty or holds other text";
        PauseMs(50);
        GPSLocation fix;
        if (GPSDriver_GetLocation(driver, &fix) && fix.FixQuality > 0 && fix.Time != lastTime) {
            lastTime = fix.Time;
            ++fixes;
            printf("%10.6f %11.6f %6.1f m %5.1f km/h\n", fix.Latitude, fix.Longitude, fix.Altitude,
                   fix.Speed * 1.609344 /* the library gives miles per hour */);
        }
    }

    GPSSatellitesStateHandle sky = GPSDriver_GetSatellitesInfo(driver);
    if (trouble)
        fprintf(stderr, "%s: %s\n", argv[1], trouble);
    else
        printf("%d fixes, %d satellites in view at the end\n", fixes,
               (int)GPSSatellitesState_GetVisibleSatellitesCount(sky));
    GPSSatellitesState_Release(sky);
    GPSDriver_Stop(driver);
    GPSDriver_Release(driver);
    return fixes > 0 && !trouble ? 0 : 1;
}
