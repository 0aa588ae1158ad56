// The start times of instances: multiples of their period on the monotonic clock, so that instances
// with the same period start together and do not drift.
#ifndef MONITOR_BEAT_H
#define MONITOR_BEAT_H

#include <chrono>

// The first start time at `earliest` or later. The period must be positive.
inline std::chrono::steady_clock::time_point next_beat(
    std::chrono::steady_clock::time_point earliest, std::chrono::steady_clock::duration period) {
  const auto since_zero = earliest.time_since_epoch();
  const auto past_beat = since_zero % period;
  return past_beat.count() == 0 ? earliest : earliest + (period - past_beat);
}

#endif
