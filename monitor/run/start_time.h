// The start times of instances: multiples of their period on the monotonic clock, so that instances
// with the same period start together and do not drift.
#ifndef MONITOR_START_TIME_H
#define MONITOR_START_TIME_H

#include <chrono>

// Returns the first start time at `earliest` or later. The period must be positive.
inline std::chrono::steady_clock::time_point next_start(
    std::chrono::steady_clock::time_point earliest, std::chrono::steady_clock::duration period) {
  const auto since_zero = earliest.time_since_epoch();
  const auto past_start = since_zero % period;
  return past_start.count() == 0 ? earliest : earliest + (period - past_start);
}

#endif
