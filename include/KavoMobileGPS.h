/*
 * KavoMobileGPS: find a GPS receiver on a serial port (or play back a
 * recorded NMEA file), read its NMEA 0183 output, and get the current fix
 * and the satellites in view.
 *
 * Every function reports its outcome through the calling thread's last-error
 * value: 0 on success, 160 for a null handle or pointer or an out-of-range
 * argument, otherwise a Win32 error code (2, 14, 50, 87, 1006). On Windows
 * read it with GetLastError(); everywhere with KavoMobileGPS_GetLastError().
 *
 * Usable from C99 and C++. All text is UTF-16, zero-terminated.
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
#define GPS_STATUS_STOPPED (-2)     /* stopped, or the source failed */
#define GPS_STATUS_NO_SENTENCE (-3) /* text, but no known sentence for 3 s */
#define GPS_STATUS_PARSE_ERROR (-4)

/* Last-error values the functions set (KavoMobileGPS_GetLastError; on
 * Windows also GetLastError). They are the Win32 codes of the same meaning. */
#define KAVOGPS_ERROR_SUCCESS 0
#define KAVOGPS_ERROR_FILE_NOT_FOUND 2     /* no such file or port, no receiver found */
#define KAVOGPS_ERROR_OUTOFMEMORY 14       /* out of memory */
#define KAVOGPS_ERROR_NOT_SUPPORTED 50     /* any other failure */
#define KAVOGPS_ERROR_INVALID_PARAMETER 87 /* a bad argument found inside a creation */
#define KAVOGPS_ERROR_BAD_ARGUMENTS 160    /* a null handle or pointer, an out-of-range argument */
#define KAVOGPS_ERROR_FILE_INVALID 1006    /* a serial or file operation failed */

/* Time types of the records. */
#define GPS_TIME_FULL 0        /* date and time from the receiver (UTC) */
#define GPS_TIME_OF_DAY 1      /* time of day from the receiver, local date */
#define GPS_TIME_LOCAL_CLOCK 2 /* no receiver time: the local clock */

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

/* The latest fix, 104 bytes. Times are OLE Automation dates: days since
 * 30 December 1899, the fraction being the time of day. */
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

/* Callbacks run on the library's reading thread. */
typedef void (*GPSStatusCallback)(void);
typedef void (*GPSDataCallback)(uint32_t changedMask);
/* The sentence is valid only during the call. */
typedef void (*GPSSentenceCallback)(const KavoChar *sentence);

/* --- GPS driver ------------------------------------------------------- */

KAVOGPS_API GPSDriverHandle GPSDriver_CreateFromCOMPort(COMPortInfoHandle port, GPSStatusCallback onStatus,
                                                        GPSDataCallback onData, GPSSentenceCallback onSentence);
KAVOGPS_API GPSDriverHandle GPSDriver_CreateFromFile(const KavoChar *path, int32_t intervalMs, uint8_t repeat,
                                                     GPSStatusCallback onStatus, GPSDataCallback onData,
                                                     GPSSentenceCallback onSentence);
KAVOGPS_API void GPSDriver_Release(GPSDriverHandle driver);
KAVOGPS_API int32_t GPSDriver_Start(GPSDriverHandle driver);
KAVOGPS_API int32_t GPSDriver_Stop(GPSDriverHandle driver);
KAVOGPS_API int32_t GPSDriver_GetLocation(GPSDriverHandle driver, GPSLocation *location);
KAVOGPS_API GPSSatellitesStateHandle GPSDriver_GetSatellitesInfo(GPSDriverHandle driver);
KAVOGPS_API int32_t GPSDriver_GetStatus(GPSDriverHandle driver);
KAVOGPS_API int32_t GPSDriver_SetTimeoutInterval(GPSDriverHandle driver, int32_t intervalMs);
KAVOGPS_API int32_t GPSDriver_GetTimeoutInterval(GPSDriverHandle driver);

/* --- Satellites snapshot ---------------------------------------------- */

KAVOGPS_API int32_t GPSSatellitesState_GetVisibleSatellitesCount(GPSSatellitesStateHandle state);
KAVOGPS_API uint8_t GPSSatellitesState_GetSatellite(GPSSatellitesStateHandle state, int32_t index,
                                                    GPSSatellite *satellite);
KAVOGPS_API uint8_t GPSSatellitesState_GetTime(GPSSatellitesStateHandle state, double *time);
KAVOGPS_API int32_t GPSSatellitesState_GetTimeType(GPSSatellitesStateHandle state);
KAVOGPS_API void GPSSatellitesState_Release(GPSSatellitesStateHandle state);

/* --- Serial ports ----------------------------------------------------- */

KAVOGPS_API COMPortInfoHandle COMPortInfo_Create(const KavoChar *name, const COMPortParams *params);
KAVOGPS_API void COMPortInfo_Release(COMPortInfoHandle port);
KAVOGPS_API const KavoChar *COMPortInfo_GetName(COMPortInfoHandle port);
KAVOGPS_API uint8_t COMPortInfo_SetName(COMPortInfoHandle port, const KavoChar *name);
KAVOGPS_API uint8_t COMPortInfo_GetParams(COMPortInfoHandle port, COMPortParams *params);
KAVOGPS_API uint8_t COMPortInfo_SetParams(COMPortInfoHandle port, const COMPortParams *params);
/* reserved must be at least 1. */
KAVOGPS_API COMPortInfoHandle COMPortInfo_FindGPSCOMPort(int32_t reserved);

KAVOGPS_API COMPortCollectionHandle COMPortCollection_Create(int32_t reserved);
KAVOGPS_API void COMPortCollection_Release(COMPortCollectionHandle ports);
KAVOGPS_API int32_t COMPortCollection_GetCount(COMPortCollectionHandle ports);
KAVOGPS_API COMPortInfoHandle COMPortCollection_GetPort(COMPortCollectionHandle ports, int32_t index, uint8_t *busy);

/* --- Errors ----------------------------------------------------------- */

/* The calling thread's last-error value as the last call left it. */
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
