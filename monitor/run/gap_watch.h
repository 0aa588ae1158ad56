// Finds gaps in which the scheduler should have run but did not: the process was stopped, or the
// machine was suspended or too busy.
#ifndef MONITOR_GAP_WATCH_H
#define MONITOR_GAP_WATCH_H

#include <array>
#include <chrono>
#include <cstddef>

class GapWatch {
 public:
  using Clock = std::chrono::steady_clock;

  // Shorter gaps are normal on a busy machine.
  static constexpr Clock::duration kLeast = std::chrono::milliseconds(20);

  explicit GapWatch(Clock::time_point now) : expected_(now) {}

  // Call these before and after a wait that ends at `until` or earlier. Each returns the length of
  // the gap that it found, or zero.
  Clock::duration before_wait(Clock::time_point now, Clock::time_point until);
  Clock::duration after_wait(Clock::time_point now);

  // The sum of all gaps since `from`.
  Clock::duration total_since(Clock::time_point from) const;

 private:
  struct Gap {
    Clock::time_point end{};
    Clock::duration length{};
  };

  Clock::duration note(Clock::time_point now);

  Clock::time_point expected_;  // when the next call is due
  std::array<Gap, 64> gaps_{};  // the latest gaps, in a ring buffer
  size_t next_ = 0;
};

#endif
