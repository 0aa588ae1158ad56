// The current time, broken down.
#ifndef MIRT_TIMEUTIL_H
#define MIRT_TIMEUTIL_H

#include "kelv_securec.h"
#include "kelv_time.h"

// Now, in local time, with every field as the platform fills it: kelv_time.h tells the ranges.
inline void MIRT_GmTime(TIME_S* pTime) {
  TIME_S now;
  memset_s(&now, sizeof now, 0, sizeof now);
  int64_t localTime = kelv_time_getlocaltime(nullptr);
  kelv_time_gmtime(&localTime, &now);
  *pTime = now;
}

#endif
