// The beats on which instances start: multiples of their period on the monotonic clock, so that
// instances of one period start together and never drift apart.
#ifndef MONITOR_BEAT_H
#define MONITOR_BEAT_H

#include <chrono>

// The first beat at `earliest` or after it. The period must be positive.
inline std::chrono::steady_clock::time_point next_beat(
    std::chrono::steady_clock::time_point earliest, std::chrono::steady_clock::duration period) {
  const auto since_zero = earliest.time_since_epoch();
  const auto past_beat = since_zero % period;
  return past_beat.count() == 0 ? earliest : earliest + (period - past_beat);
}

#endif
