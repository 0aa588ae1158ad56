/* Comparison of tick counts. Plain C can include this header. */
#ifndef KELV_JIFFIES_H
#define KELV_JIFFIES_H

#include <stdint.h>

/* Returns 1 if tick ullA is at or after tick ullB, else 0. Correct even if the counter wraps. */
static inline int32_t time_after_eq(uint64_t ullA, uint64_t ullB) {
  const uint64_t ahead = ullB - ullA; /* above INT64_MAX: ullB is behind */
  return ahead == 0 || ahead > INT64_MAX ? 1 : 0;
}

#endif
