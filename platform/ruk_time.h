/* Calendar time: the local date and time, and its conversion to seconds since 1970. */
#ifndef RUK_TIME_H
#define RUK_TIME_H

#include "ruk_types.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct {
    u16 usYear;  /* e.g. 2026 */
    u8 ucMonth;  /* 1..12 */
    u8 ucDate;   /* 1..31 */
    u8 ucHour;   /* 0..23 */
    u8 ucMinute; /* 0..59 */
    u8 ucSecond; /* 0..60 */
    u8 ucWeek;   /* 0 = Sunday */
    u32 ulMillisecond;
} RUK_DATE_TIME_S;

/* Reads the local date and time; *pulZoneSec receives the zone's offset east of UTC in seconds
 * (two's complement). RUK_ERR_PARAM for null pointers. */
u32 RUK_TzLocalTimeGet(RUK_DATE_TIME_S *pstTime, u32 *pulZoneSec);

/* Converts a local date and time to seconds since 1970-01-01 00:00 UTC, as a 64-bit count split into
 * its high (*pulSecHigh) and low (*pulSecLow) 32-bit words. RUK_ERR_PARAM for null pointers or a date
 * out of range. */
u32 RUK_SystimeSecSince1970(const RUK_DATE_TIME_S *pstTime, u32 *pulSecHigh, u32 *pulSecLow);

#ifdef __cplusplus
}
#endif

#endif /* RUK_TIME_H */
