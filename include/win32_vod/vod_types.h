/* Types that the module's public headers share. */
#ifndef WIN32_VOD_VOD_TYPES_H
#define WIN32_VOD_VOD_TYPES_H

#include <stdint.h>

#if defined(_WIN32)
#if defined(VOD_BUILDING_LIBRARY)
#define VOD_API __declspec(dllexport)
#else
#define VOD_API
#endif
#else
#define VOD_API __attribute__((visibility("default")))
#endif

/* An opaque handle of a player, a download or an upload; also the caller's own value handed back in callbacks. */
typedef intptr_t handle_orb;
#define INVALID_HANDLE_ORB ((handle_orb)-1)

/* A local wall-clock time. No field is range-checked by the record itself. */
typedef struct _CommTime {
    uint16_t year;   /* full year, 2024 */
    uint16_t month;  /* 1 to 12 */
    uint16_t day;    /* 1 to 31 */
    uint16_t hour;   /* 0 to 23 */
    uint16_t minute; /* 0 to 59 */
    uint16_t second; /* 0 to 59 */
} CommTime;

typedef CommTime DVR_TIME;
typedef CommTime VOD_TIME;
typedef CommTime Client_DVR_TIME;

/* A closed time range. */
typedef struct PairTime {
    CommTime start_time;
    CommTime end_time;
} PairTime;

#endif
