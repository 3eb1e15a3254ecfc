/*
 * KavoMobileGPS: find a GPS receiver on a serial port (or play back a
 * recorded NMEA file), read its NMEA 0183 output, and get the current fix
 * and the satellites in view.
 *
 * Every function reports its outcome through the calling thread's last-error
 * value: 0 on success, else one of the KAVOGPS_ERROR_* values below (the
 * Win32 codes of the same meaning). Read it right after the call with
 * KavoMobileGPS_GetLastError(), on Windows also with GetLastError(). Each
 * function's block says what it returns on failure and why; the table after
 * the error values sums that up.
 *
 * Every handle a function returns belongs to the caller, who releases it with
 * its family's _Release function; handles are independent of each other (a
 * port handle of the driver it was used for, a satellites snapshot of its
 * driver). No handle may be released while another thread still uses it.
 * Every function may be called from any thread.
 *
 * Usable from C99 and C++. All text is UTF-16, zero-terminated.
 *
 * Linking the static library (libKavoMobileGPS.a): define KAVOGPS_STATIC
 * before including this header (the CMake target KavoMobileGPS_static and
 * `pkg-config --static` do), and link the C++ runtime the library uses
 * (the CMake target brings it; pkg-config lists it).
 */
#ifndef KAVOMOBILEGPS_H
#define KAVOMOBILEGPS_H

#include <stdint.h>

#if defined(_WIN32)
#  include <wchar.h>
#  if defined(KAVOGPS_STATIC)
#    define KAVOGPS_API
#  elif defined(KAVOGPS_BUILDING)
#    define KAVOGPS_API __declspec(dllexport)
#  else
#    define KAVOGPS_API __declspec(dllimport)
#  endif
#else
#  if defined(KAVOGPS_BUILDING)
#    define KAVOGPS_API __attribute__((visibility("default")))
#  else
#    define KAVOGPS_API
#  endif
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* One UTF-16 code unit: wchar_t on Windows, char16_t (or its C equivalent)
 * elsewhere. */
#if defined(_WIN32)
typedef wchar_t KavoChar;
#elif defined(__cplusplus)
typedef char16_t KavoChar;
#else
typedef uint_least16_t KavoChar;
#endif

/* Opaque handles. */
typedef struct GPSDriverObject *GPSDriverHandle;
typedef struct GPSSatellitesStateObject *GPSSatellitesStateHandle;
typedef struct COMPortInfoObject *COMPortInfoHandle;
typedef struct COMPortCollectionObject *COMPortCollectionHandle;

/* Bits of the mask handed to the data callback. */
#define GPS_CHANGED_POSITION 0x01u
#define GPS_CHANGED_ALTITUDE 0x02u /* altitude or geoid separation */
#define GPS_CHANGED_MOTION 0x04u   /* speed or course */
#define GPS_CHANGED_SATELLITES 0x08u
#define GPS_CHANGED_PRECISION 0x10u /* satellites in use or a dilution */
#define GPS_CHANGED_FIX_QUALITY 0x20u

/* Driver status values (GPSDriver_GetStatus). */
#define GPS_STATUS_RECEIVING 0
#define GPS_STATUS_TIMEOUT (-1)     /* no text within the time-out interval */
#define GPS_STATUS_STOPPED (-2)     /* stopped, no known sentence yet, or the source failed */
#define GPS_STATUS_NO_SENTENCE (-3) /* text, but no known sentence for 3 s */
#define GPS_STATUS_PARSE_ERROR (-4) /* the text could not be read (out of memory) */

/* Last-error values the functions set (KavoMobileGPS_GetLastError; on
 * Windows also GetLastError). They are the Win32 codes of the same meaning. */
#define KAVOGPS_ERROR_SUCCESS 0
#define KAVOGPS_ERROR_FILE_NOT_FOUND 2     /* no such file or port, no receiver found */
#define KAVOGPS_ERROR_OUTOFMEMORY 14       /* out of memory */
#define KAVOGPS_ERROR_NOT_SUPPORTED 50     /* any other failure */
#define KAVOGPS_ERROR_INVALID_PARAMETER 87 /* a bad argument found inside a creation */
#define KAVOGPS_ERROR_BAD_ARGUMENTS 160    /* a null handle or pointer, an out-of-range argument */
#define KAVOGPS_ERROR_FILE_INVALID 1006    /* a serial or file operation failed */

/* Which function sets which value, for what cause (0 on success, always):
 *
 *  160  BAD_ARGUMENTS     any function: a null handle, a null pointer it
 *                         needs (GPSSatellitesState_GetTime's `time` too), an
 *                         argument out of range (an index outside the list,
 *                         an interval <= 0 for CreateFromFile or < 0 for
 *                         SetTimeoutInterval, reserved < 1);
 *                         COMPortInfo_SetParams and _GetParams: a value
 *                         outside its table
 *   87  INVALID_PARAMETER COMPortInfo_Create: BaudRate, Parity or StopBits
 *                         outside its table
 *    2  FILE_NOT_FOUND    GPSDriver_CreateFromCOMPort and
 *                         KavoMobileGPS_CreateDriverFromCOMPort: no such
 *                         port, or another program holds it;
 *                         COMPortInfo_FindGPSCOMPort: no port answered with
 *                         NMEA (after the search's seconds per port)
 * 1006  FILE_INVALID      GPSDriver_CreateFromCOMPort: the port refused its
 *                         line settings
 *   14  OUTOFMEMORY       any function that allocates
 *   50  NOT_SUPPORTED     GPSDriver_CreateFromFile and
 *                         KavoMobileGPS_CreateDriverFromFile: the file
 *                         cannot be opened (a missing file too);
 *                         GPSDriver_Start: already started;
 *                         GPSDriver_Stop: the stop failed;
 *                         COMPortCollection_Create, COMPortInfo_FindGPSCOMPort:
 *                         the port list cannot be read (no serial driver
 *                         registry, an unusable KAVOGPS_REGISTRY file);
 *                         any other failure
 */

/* Time and units.
 *
 * Times are OLE Automation dates: days since 30 December 1899 00:00 as a
 * double, the fraction being the time of day. The record's time type says
 * which clock a time comes from:
 *   GPS_TIME_FULL        date and time from the receiver (RMC): UTC.
 *   GPS_TIME_OF_DAY      the receiver's UTC time of day (GGA) on the local
 *                        date: around midnight the date may be a day off.
 *   GPS_TIME_LOCAL_CLOCK no receiver time yet: the computer's local wall-clock
 *                        time, which carries no time zone.
 * To calendar time, round to whole seconds before splitting: 10:00:00 is a
 * fraction of 0.41666..., and floor(fraction * 86400) gives 35999, that is
 * 09:59:59. For dates from 1970 on:
 *     time_t t = (time_t)llround((date - 25569.0) * 86400.0);  (25569: 1 Jan 1970)
 *     struct tm fields; gmtime_r(&t, &fields);  (gmtime_s on Windows)
 * gmtime, not localtime, for every time type: the fields are then those
 * stored, UTC for the receiver's times and local time for the local clock.
 *
 * Units: positions in decimal degrees (south and west negative); speed in
 * statute miles per hour; courses, elevations and azimuths in radians;
 * altitude and geoid separation as the receiver sent them (metres, as a
 * rule); dilutions of precision as sent.
 */

/* Time types of the records. */
#define GPS_TIME_FULL 0        /* date and time from the receiver (UTC) */
#define GPS_TIME_OF_DAY 1      /* UTC time of day from the receiver, local date */
#define GPS_TIME_LOCAL_CLOCK 2 /* no receiver time: local wall-clock time */

/* Validity flags of GPSLocation.ValidFlags. */
#define GPS_VALID_POSITION 0x003u
#define GPS_VALID_SPEED 0x004u
#define GPS_VALID_COURSE 0x008u
#define GPS_VALID_MAGNETIC_COURSE 0x010u
#define GPS_VALID_ALTITUDE 0x020u
#define GPS_VALID_GEOID_SEPARATION 0x040u
#define GPS_VALID_PDOP 0x080u
#define GPS_VALID_HDOP 0x100u
#define GPS_VALID_VDOP 0x200u
#define GPS_VALID_SATELLITES_IN_USE 0x400u

/* The latest fix, 104 bytes (see "Time and units"). A field holds a value
 * only when its GPS_VALID_* flag is set (before any data none is). The record
 * is merged sentence by sentence, so a polled one may hold the position of
 * one epoch with the speed of the one before. */
typedef struct GPSLocation {
  double Longitude;       /* decimal degrees, west negative */
  double Latitude;        /* decimal degrees, south negative */
  double Altitude;        /* as sent by the receiver */
  double Speed;           /* statute miles per hour */
  double Course;          /* true course, radians */
  double MagneticCourse;  /* radians */
  double GeoidSeparation; /* as sent by the receiver */
  int32_t SatellitesInUse;
  int32_t FixQuality; /* 0 no fix, 1 fix, 2..8 as sent */
  double HDOP;
  double VDOP;
  double PDOP;
  double Time;
  int32_t TimeType;    /* GPS_TIME_* */
  uint32_t ValidFlags; /* GPS_VALID_* */
} GPSLocation;

/* One satellite in view, 24 bytes. */
typedef struct GPSSatellite {
  int32_t PRN;
  int32_t SNR;      /* as sent, 0 when not tracked */
  double Elevation; /* radians */
  double Azimuth;   /* radians */
} GPSSatellite;

#define GPS_MAX_SATELLITES 12

/* The satellites in view, 312 bytes: what a GPSSatellitesStateHandle holds. */
typedef struct GPSSatellites {
  int32_t Count;
  int32_t Reserved0;
  GPSSatellite Satellites[GPS_MAX_SATELLITES];
  double Time;      /* OLE Automation date, local clock */
  int32_t TimeType; /* always GPS_TIME_LOCAL_CLOCK */
  int32_t Reserved1;
} GPSSatellites;

/* Serial line parameters, 16 bytes.
 * BaudRate: 110 1200 2400 4800 9600 14400 19200 38400 56000 57600 115200
 *           128000 256000.
 * Parity:   0 none, 1 odd, 2 even, 3 mark, 4 space.
 * StopBits: 0 one, 1 one and a half, 2 two.
 * ByteSize: data bits, not checked. */
typedef struct COMPortParams {
  int32_t BaudRate;
  int32_t Parity;
  int32_t StopBits;
  int32_t ByteSize;
} COMPortParams;

/* Callbacks, given when a driver is created; each may be NULL.
 *
 * They run on the library's reading thread, the status callback also on its
 * watchdog thread (for the time-out): share data with the application's
 * threads under a lock or through atomics. Inside a callback an application
 * may call any getter of the driver, call GPSDriver_Stop or GPSDriver_Release
 * on it (the driver stops, the call returns at once and nothing calls back
 * after it), or block: a GPSDriver_Stop on another thread then waits for the
 * callback at most 5 s before it gives the thread up. No callback starts
 * after GPSDriver_Stop returned; one already running may still finish. */

/* The status changed: read it with GPSDriver_GetStatus (it may have changed
 * again since). Not called by GPSDriver_Start or GPSDriver_Stop. */
typedef void (*GPSStatusCallback)(void);
/* Fields of the location or the satellites changed: GPS_CHANGED_* bits.
 * Coalesced: at most one call per 100 ms, the first no sooner than 200 ms
 * after Start, its mask everything that changed since the last call. A
 * change is reported only with a later one that comes after the 100 ms, so
 * the last changes before the data stop may never be: poll as well. */
typedef void (*GPSDataCallback)(uint32_t changedMask);
/* Each sentence the library read (GGA, RMC, GSA, GSV, VTG), from "$" to the
 * end of its line without the line feed (a serial port's carriage return
 * stays); valid only during the call. */
typedef void (*GPSSentenceCallback)(const KavoChar *sentence);

/* --- GPS driver ------------------------------------------------------- */

/* A driver on the serial port `port` names, with its line parameters. The
 * port is opened here, after a pause of 500 ms, and stays open until the
 * driver is released; `port` is only read, and may be released as soon as
 * this returns. No port is searched for: see COMPortInfo_FindGPSCOMPort.
 * Returns a new driver handle (release it with GPSDriver_Release), or NULL:
 * 160 `port` NULL; 2 no such port, or another program holds it; 1006 the
 * port refused its line settings; 14 out of memory. */
KAVOGPS_API GPSDriverHandle GPSDriver_CreateFromCOMPort(COMPortInfoHandle port, GPSStatusCallback onStatus,
                                                        GPSDataCallback onData, GPSSentenceCallback onSentence);
/* A driver that plays the NMEA file `path` (text in the system code page,
 * Latin-1 on POSIX, or UTF-8 or UTF-16 after a byte-order mark), one line
 * per `intervalMs` milliseconds, from the start again at its end when
 * `repeat` is non-zero. The file is opened here.
 * Returns a new driver handle (release it with GPSDriver_Release), or NULL:
 * 160 `path` NULL or `intervalMs` <= 0; 50 the file cannot be opened (a
 * missing file too); 14 out of memory. */
KAVOGPS_API GPSDriverHandle GPSDriver_CreateFromFile(const KavoChar *path, int32_t intervalMs, uint8_t repeat,
                                                     GPSStatusCallback onStatus, GPSDataCallback onData,
                                                     GPSSentenceCallback onSentence);
/* Stops the driver if it runs, closes its port or file and frees it. Safe
 * from inside the driver's own callbacks. Satellites snapshots taken from it
 * stay valid. Sets 160 for NULL. */
KAVOGPS_API void GPSDriver_Release(GPSDriverHandle driver);
/* Starts reading: empties the records, then starts a reading thread and a
 * watchdog thread, which call the callbacks. The status stays
 * GPS_STATUS_STOPPED until the first known sentence arrives, and for good on
 * a source that sends none: nothing at all (an empty file, a silent port) or
 * less than 3 s of other text. Text that keeps coming for more than 3 s
 * without a known sentence turns it GPS_STATUS_NO_SENTENCE (on the first
 * text after the 3 s). A time-out (GPS_STATUS_TIMEOUT) is reported only once
 * the status has left GPS_STATUS_STOPPED: a program waiting for data must
 * set itself a limit for a source that never sends any. Start, Stop, Start
 * again is allowed. Returns 1, or 0: 160 `driver` NULL; 50 already started. */
KAVOGPS_API int32_t GPSDriver_Start(GPSDriverHandle driver);
/* Stops the threads, waiting for each at most 5 s before it gives the thread
 * up, and forgets any unfinished sentence; the records keep their values and
 * the status becomes GPS_STATUS_STOPPED without a status callback. A file is
 * paused, not rewound. Returns 1, or 0: 160 `driver` NULL; 50 the stop
 * failed. */
KAVOGPS_API int32_t GPSDriver_Stop(GPSDriverHandle driver);
/* Copies the latest fix into `location` (see GPSLocation: check ValidFlags).
 * Returns 1 also before any data, with every field 0 but TimeType
 * (GPS_TIME_LOCAL_CLOCK) and, once started, Time (the local clock); or 0:
 * 160 `driver` or `location` NULL. */
KAVOGPS_API int32_t GPSDriver_GetLocation(GPSDriverHandle driver, GPSLocation *location);
/* A snapshot of the satellites in view, the caller's until
 * GPSSatellitesState_Release; it outlives the driver. Before any GSV cycle it
 * holds no satellites. NULL: 160 `driver` NULL; 14 out of memory. */
KAVOGPS_API GPSSatellitesStateHandle GPSDriver_GetSatellitesInfo(GPSDriverHandle driver);
/* The status, GPS_STATUS_*: GPS_STATUS_STOPPED on a new driver, and after
 * Start until a known sentence arrives (see GPSDriver_Start). For a NULL `driver` it
 * returns -4, which is also GPS_STATUS_PARSE_ERROR: only the last error
 * (160) tells them apart. */
KAVOGPS_API int32_t GPSDriver_GetStatus(GPSDriverHandle driver);
/* How long without text before the status becomes GPS_STATUS_TIMEOUT, in
 * milliseconds (3000 on a new driver; 0 is allowed). Returns 1, or 0: 160
 * `driver` NULL or `intervalMs` < 0. */
KAVOGPS_API int32_t GPSDriver_SetTimeoutInterval(GPSDriverHandle driver, int32_t intervalMs);
/* The time-out interval in milliseconds, or -1: 160 `driver` NULL. */
KAVOGPS_API int32_t GPSDriver_GetTimeoutInterval(GPSDriverHandle driver);

/* --- Drivers with context callbacks ----------------------------------- */

/* The callbacks of a driver made by KavoMobileGPS_CreateDriverFromFile or
 * KavoMobileGPS_CreateDriverFromCOMPort. Each gets the `context` given
 * there; each may be NULL. They run where and when the callbacks above do,
 * under the same rules. */
typedef struct KavoMobileGPS_Callbacks {
  /* `status` is the status this call announces (GPS_STATUS_*). */
  void (*onStatus)(void *context, int32_t status);
  /* `location` is the record as it was when `changedMask` was made, so the
   * two agree; valid only during the call. */
  void (*onData)(void *context, uint32_t changedMask, const GPSLocation *location);
  /* As GPSSentenceCallback. */
  void (*onSentence)(void *context, const KavoChar *sentence);
} KavoMobileGPS_Callbacks;

/* As GPSDriver_CreateFromFile (same failures: 160 `path` NULL or `msPerLine`
 * 0; 50; 14), with context callbacks. `callbacks` is copied, and may be
 * NULL (no callbacks). `context` is handed to them as it is: it must stay
 * valid until GPSDriver_Release has returned and no callback of the driver
 * is still running (one released from inside a callback: until that
 * callback returned). The driver is released with GPSDriver_Release and
 * used with every GPSDriver_ function. */
KAVOGPS_API GPSDriverHandle KavoMobileGPS_CreateDriverFromFile(const KavoChar *path, uint32_t msPerLine, uint8_t repeat,
                                                               const KavoMobileGPS_Callbacks *callbacks, void *context);
/* As GPSDriver_CreateFromCOMPort (same pause, same failures: 160 `port`
 * NULL; 2; 1006; 14), with context callbacks as for
 * KavoMobileGPS_CreateDriverFromFile. */
KAVOGPS_API GPSDriverHandle KavoMobileGPS_CreateDriverFromCOMPort(COMPortInfoHandle port,
                                                                  const KavoMobileGPS_Callbacks *callbacks,
                                                                  void *context);

/* --- Satellites snapshot ---------------------------------------------- */

/* The number of satellites in view, 0 to 12; 0 also for a NULL `state`
 * (last error 160). */
KAVOGPS_API int32_t GPSSatellitesState_GetVisibleSatellitesCount(GPSSatellitesStateHandle state);
/* Copies satellite `index` (0 to count - 1) into `satellite`. Returns 1, or
 * 0: 160 `state` or `satellite` NULL, or `index` outside the count. */
KAVOGPS_API uint8_t GPSSatellitesState_GetSatellite(GPSSatellitesStateHandle state, int32_t index,
                                                    GPSSatellite *satellite);
/* Copies the time the table was published (an OLE date, local clock) into
 * `time`. Returns 1, or 0 with `time` untouched: 160 `state` or `time` NULL. */
KAVOGPS_API uint8_t GPSSatellitesState_GetTime(GPSSatellitesStateHandle state, double *time);
/* The time type, GPS_TIME_LOCAL_CLOCK. For a NULL `state` it returns 2,
 * which is also GPS_TIME_LOCAL_CLOCK: only the last error (160) tells. */
KAVOGPS_API int32_t GPSSatellitesState_GetTimeType(GPSSatellitesStateHandle state);
/* Frees the snapshot. Sets 160 for NULL. */
KAVOGPS_API void GPSSatellitesState_Release(GPSSatellitesStateHandle state);

/* --- Serial ports ----------------------------------------------------- */

/* A port description: `name` (its first 20 characters; "COM3" is stored as
 * "COM3:", a name of 20 characters without the colon; on POSIX also a
 * device path such as "/dev/ttyUSB0") and the line parameters, which must
 * not be NULL. Opens nothing. Returns a new port handle (release it with
 * COMPortInfo_Release), or NULL: 160 `name` NULL; 87 a parameter outside its
 * table; 14 out of memory. */
KAVOGPS_API COMPortInfoHandle COMPortInfo_Create(const KavoChar *name, const COMPortParams *params);
/* Frees the description. Sets 160 for NULL. */
KAVOGPS_API void COMPortInfo_Release(COMPortInfoHandle port);
/* The stored name itself, not a copy: valid until the handle is released.
 * NULL: 160 `port` NULL. */
KAVOGPS_API const KavoChar *COMPortInfo_GetName(COMPortInfoHandle port);
/* Stores the first 20 characters of `name` exactly as given: unlike
 * COMPortInfo_Create it adds no colon. Returns 1, or 0: 160 `port` or `name`
 * NULL. */
KAVOGPS_API uint8_t COMPortInfo_SetName(COMPortInfoHandle port, const KavoChar *name);
/* Fills `params`. Returns 1, or 0: 160 `port` or `params` NULL, or a stored
 * value outside its table (nothing written then). */
KAVOGPS_API uint8_t COMPortInfo_GetParams(COMPortInfoHandle port, COMPortParams *params);
/* Stores all four values. Returns 1, or 0 with nothing changed: 160 `port`
 * or `params` NULL, or a value outside its table (87 from Create, 160 here). */
KAVOGPS_API uint8_t COMPortInfo_SetParams(COMPortInfoHandle port, const COMPortParams *params);
/* Searches the ports for a GPS receiver and returns a new port handle with
 * its name and the speed NMEA was heard at (release it with
 * COMPortInfo_Release). First the port of the GPS intermediate driver, when
 * the registry names one, then every port of the list in turn, each opened
 * and listened to at 4800 baud and, while it talks but not in NMEA, at 9600
 * and 2400. Blocks the calling thread: about 6.5 s for each silent port, up
 * to 15 s for one that talks. `reserved` must be at least 1. NULL: 160
 * `reserved` < 1; 2 no port answered with NMEA; 50 the port list cannot be
 * read; 14 out of memory. */
KAVOGPS_API COMPortInfoHandle COMPortInfo_FindGPSCOMPort(int32_t reserved);

/* The device's serial ports, listed once from the registry (on POSIX from
 * the .reg file KAVOGPS_REGISTRY names, else from sysfs). Returns a new
 * collection handle (release it with COMPortCollection_Release), or NULL:
 * 160 `reserved` < 1; 50 the list cannot be read; 14 out of memory. */
KAVOGPS_API COMPortCollectionHandle COMPortCollection_Create(int32_t reserved);
/* Frees the collection; port handles taken from it stay valid. Sets 160 for
 * NULL. */
KAVOGPS_API void COMPortCollection_Release(COMPortCollectionHandle ports);
/* The number of ports; 0 also for a NULL `ports` (last error 160). */
KAVOGPS_API int32_t COMPortCollection_GetCount(COMPortCollectionHandle ports);
/* A new port handle for port `index` (0 to count - 1) with the port's
 * current line settings (release it with COMPortInfo_Release), and in `busy`
 * 1 when the port cannot be opened (another program holds it, or it is
 * gone), else 0. Opens the port briefly to tell. NULL: 160 `ports` or `busy`
 * NULL, or `index` outside the list; 1006 or 50 the port could not be
 * examined; 14 out of memory. */
KAVOGPS_API COMPortInfoHandle COMPortCollection_GetPort(COMPortCollectionHandle ports, int32_t index, uint8_t *busy);

/* --- Errors ----------------------------------------------------------- */

/* The calling thread's last-error value as the last call of this library
 * left it (KAVOGPS_ERROR_*). On Windows the same as GetLastError(). */
KAVOGPS_API uint32_t KavoMobileGPS_GetLastError(void);

#ifdef __cplusplus
} /* extern "C" */
#endif

/* The records are boundary formats: their layout never changes. */
#if defined(__cplusplus)
#  define KAVOGPS_STATIC_ASSERT(cond, msg) static_assert(cond, msg)
#else /* C99 has no static assertion: a negative array size stops the build */
#  define KAVOGPS_ASSERT_CAT2(a, b) a##b
#  define KAVOGPS_ASSERT_CAT(a, b) KAVOGPS_ASSERT_CAT2(a, b)
#  define KAVOGPS_STATIC_ASSERT(cond, msg) \
    typedef char KAVOGPS_ASSERT_CAT(kavogps_layout_check_, __LINE__)[(cond) ? 1 : -1]
#endif
#include <stddef.h>
KAVOGPS_STATIC_ASSERT(sizeof(GPSLocation) == 104, "GPSLocation is 104 bytes");
KAVOGPS_STATIC_ASSERT(offsetof(GPSLocation, GeoidSeparation) == 48, "layout");
KAVOGPS_STATIC_ASSERT(offsetof(GPSLocation, SatellitesInUse) == 56, "layout");
KAVOGPS_STATIC_ASSERT(offsetof(GPSLocation, FixQuality) == 60, "layout");
KAVOGPS_STATIC_ASSERT(offsetof(GPSLocation, HDOP) == 64, "layout");
KAVOGPS_STATIC_ASSERT(offsetof(GPSLocation, PDOP) == 80, "layout");
KAVOGPS_STATIC_ASSERT(offsetof(GPSLocation, Time) == 88, "layout");
KAVOGPS_STATIC_ASSERT(offsetof(GPSLocation, TimeType) == 96, "layout");
KAVOGPS_STATIC_ASSERT(offsetof(GPSLocation, ValidFlags) == 100, "layout");
KAVOGPS_STATIC_ASSERT(sizeof(GPSSatellite) == 24, "GPSSatellite is 24 bytes");
KAVOGPS_STATIC_ASSERT(offsetof(GPSSatellite, Elevation) == 8, "layout");
KAVOGPS_STATIC_ASSERT(offsetof(GPSSatellite, Azimuth) == 16, "layout");
KAVOGPS_STATIC_ASSERT(sizeof(GPSSatellites) == 312, "GPSSatellites is 312 bytes");
KAVOGPS_STATIC_ASSERT(offsetof(GPSSatellites, Satellites) == 8, "layout");
KAVOGPS_STATIC_ASSERT(offsetof(GPSSatellites, Time) == 296, "layout");
KAVOGPS_STATIC_ASSERT(offsetof(GPSSatellites, TimeType) == 304, "layout");
KAVOGPS_STATIC_ASSERT(sizeof(COMPortParams) == 16, "COMPortParams is 16 bytes");
KAVOGPS_STATIC_ASSERT(offsetof(COMPortParams, StopBits) == 8, "layout");
KAVOGPS_STATIC_ASSERT(offsetof(COMPortParams, ByteSize) == 12, "layout");
KAVOGPS_STATIC_ASSERT(sizeof(KavoChar) == 2, "UTF-16 code units");
#undef KAVOGPS_STATIC_ASSERT

#endif /* KAVOMOBILEGPS_H */
