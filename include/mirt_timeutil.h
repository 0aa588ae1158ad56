// The current time, split into its fields.
#ifndef MIRT_TIMEUTIL_H
#define MIRT_TIMEUTIL_H

#include "kelv_securec.h"
#include "kelv_time.h"

// Stores the current local time. kelv_time.h documents the range of each field.
inline void MIRT_GmTime(TIME_S* pTime) {
  TIME_S now;
  memset_s(&now, sizeof now, 0, sizeof now);
  int64_t localTime = kelv_time_getlocaltime(nullptr);
  kelv_time_gmtime(&localTime, &now);
  *pTime = now;
}

#endif
