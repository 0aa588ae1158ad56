/* Comparison of tick counts. Plain C can include this header. */
#ifndef KELV_JIFFIES_H
#define KELV_JIFFIES_H

#include <stdint.h>

/* 1 when tick ullA is at or after tick ullB, else 0; right across a wrap of the counter. */
static inline int32_t time_after_eq(uint64_t ullA, uint64_t ullB) {
  return (int64_t)(ullB - ullA) <= 0 ? 1 : 0;
}

#endif
