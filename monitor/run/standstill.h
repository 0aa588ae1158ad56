// Decides whether an unchanged heartbeat means that its process hangs.
#ifndef MONITOR_STANDSTILL_H
#define MONITOR_STANDSTILL_H

#include <chrono>

// A healthy process that gets processor time beats at least twice per period. Follows the calls of
// one instance: only time in which the process could run counts.
class Standstill {
 public:
  using Duration = std::chrono::steady_clock::duration;

  // After so many consecutive calls with an unchanged heartbeat the process is reported for any
  // reason.
  static constexpr unsigned kMostInARow = 10;

  explicit Standstill(Duration period) : enough_(period / 5 * 4) {}

  // The heartbeat is unchanged since the previous call, `elapsed` ago; during `lost` of that time
  // the process may not have been able to run. True if the process counts as hanging.
  bool judge(Duration elapsed, Duration lost);

  // The process has shown in another way that it works: the time so far does not count.
  bool excuse();

  // The heartbeat has changed or must not be checked.
  void reset();

 private:
  const Duration enough_;
  Duration could_run_{};
  unsigned in_a_row_ = 0;
};

#endif
