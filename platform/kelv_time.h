/* Sleep, the kernel's tick counter and the time of day. Plain C can include this header. */
#ifndef KELV_TIME_H
#define KELV_TIME_H

#include <stdint.h>

#include "kelv_api.h"

/* Calendar time: the full year, months from 1 to 12, days of the month from 1 to 31, weekdays from
 * 0 (Sunday) to 6. */
typedef struct tagTIME_S {
  int32_t iSecond;
  int32_t iMinute;
  int32_t iHour;
  int32_t iMDay;
  int32_t iMonth;
  int32_t iYear;
  int32_t iWDay;
} TIME_S;

/* Sleeps n x 10 ms. A signal does not shorten the sleep. */
KELV_API void kelv_10msleep(uint32_t n);

/* Returns the kernel's ticks since boot: the coarse monotonic clock divided by its resolution,
 * which is one tick. Never decreases. */
KELV_API uint64_t kelv_get_jiffies(void);

/* Returns the current local time in seconds: the seconds since 1970 plus the time zone's offset.
 * Also stores it in *pllTime unless pllTime is null. */
KELV_API int64_t kelv_time_getlocaltime(int64_t* pllTime);

/* Splits *pllTime, a value of kelv_time_getlocaltime(), into the fields of *pstTime. Returns 0, or
 * -1 with *pstTime unchanged if an argument is null or the year does not fit. */
KELV_API int kelv_time_gmtime(const int64_t* pllTime, TIME_S* pstTime);

#endif
