/* Plays a recorded NMEA file through KavoMobileGPS as if a receiver were
 * attached, and prints each new fix:  play_recording FILE [MS_PER_LINE]
 * Standard C11 and the library's header, nothing else. */
#include <stdio.h>
#include <stdlib.h>
#include <threads.h>

#include <KavoMobileGPS.h>

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

    double lastTime = 0;
    int fixes = 0;
    for (int polls = 0; polls < 12000 && GPSDriver_GetStatus(driver) != GPS_STATUS_TIMEOUT; ++polls) {
        thrd_sleep(&(struct timespec){.tv_nsec = 50000000}, NULL); /* 50 ms */
        GPSLocation fix;
        if (GPSDriver_GetLocation(driver, &fix) && fix.FixQuality > 0 && fix.Time != lastTime) {
            lastTime = fix.Time;
            ++fixes;
            printf("%10.6f %11.6f %6.1f m %5.1f km/h\n", fix.Latitude, fix.Longitude, fix.Altitude,
                   fix.Speed * 1.609344 /* the library gives miles per hour */);
        }
    }

    GPSSatellitesStateHandle sky = GPSDriver_GetSatellitesInfo(driver);
    printf("%d fixes, %d satellites in view at the end\n", fixes,
           (int)GPSSatellitesState_GetVisibleSatellitesCount(sky));
    GPSSatellitesState_Release(sky);
    GPSDriver_Stop(driver);
    GPSDriver_Release(driver);
    return fixes > 0 ? 0 : 1;
}
