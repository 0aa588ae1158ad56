// Times in which the scheduler did not run although it should have: the process was stopped, the
// machine was suspended or too busy.
#ifndef MONITOR_GAP_WATCH_H
#define MONITOR_GAP_WATCH_H

#include <array>
#include <chrono>
#include <cstddef>

class GapWatch {
 public:
  using Clock = std::chrono::steady_clock;

  // Shorter ones are ordinary: a machine that is merely busy.
  static constexpr Clock::duration kLeast = std::chrono::milliseconds(20);

  explicit GapWatch(Clock::time_point now) : expected_(now) {}

  // Call before waiting until `until` at the latest, and after. Each returns the length of the gap
  // that it noticed, zero if there was none.
  Clock::duration before_wait(Clock::time_point now, Clock::time_point until);
  Clock::duration after_wait(Clock::time_point now);

  // All gaps since `from` together.
  Clock::duration total_since(Clock::time_point from) const;

 private:
  struct Gap {
    Clock::time_point end{};
    Clock::duration length{};
  };

  Clock::duration note(Clock::time_point now);

  Clock::time_point expected_;  // by when the next sign of life is due
  std::array<Gap, 64> gaps_{};  // the latest ones, in a ring
  size_t next_ = 0;
};

#endif
