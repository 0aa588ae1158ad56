/* Sleeping, the kernel's tick counter and the time of day. Plain C can include this header. */
#ifndef KELV_TIME_H
#define KELV_TIME_H

#include <stdint.h>

#include "kelv_api.h"

/* Broken-down time as people write it: the full year, months from 1 to 12, days from 1 to 31;
 * iWDay counts from Sunday, 0. */
typedef struct tagTIME_S {
  int32_t iSecond;
  int32_t iMinute;
  int32_t iHour;
  int32_t iMDay;
  int32_t iMonth;
  int32_t iYear;
  int32_t iWDay;
} TIME_S;

/* Sleeps n x 10 ms in full, signals notwithstanding. */
KELV_API void kelv_10msleep(uint32_t n);

/* The kernel's own ticks since start-up: the coarse monotonic clock divided by its resolution,
 * which is one tick. Never decreases. */
KELV_API uint64_t kelv_get_jiffies(void);

/* Now, in seconds of local time: the seconds since 1970 plus the zone's offset. Also stored in
 * *pllTime unless that is null. */
KELV_API int64_t kelv_time_getlocaltime(int64_t* pllTime);

/* Breaks *pllTime, as kelv_time_getlocaltime() counts it, down into *pstTime. 0, or -1 with
 * *pstTime untouched when an argument is null or the year does not fit. */
KELV_API int kelv_time_gmtime(const int64_t* pllTime, TIME_S* pstTime);

#endif
