// Whether a heartbeat that stands still says anything about its process.
#ifndef MONITOR_STANDSTILL_H
#define MONITOR_STANDSTILL_H

#include <chrono>

// A healthy process beats at least twice a period, if it gets to run. Follows the calls of one
// instance: only time in which the process could run counts against it.
class Standstill {
 public:
  using Duration = std::chrono::steady_clock::duration;

  // However often nothing could be told: a process that shows no life for so many calls in a row is
  // reported, whatever the reason is.
  static constexpr unsigned kMostInARow = 10;

  explicit Standstill(Duration period) : enough_(period / 5 * 4) {}

  // The heartbeat is that of the call before, which lies `elapsed` back; for `lost` of it the
  // process may have been kept from running. True if it stands still without an excuse.
  bool judge(Duration elapsed, Duration lost);

  // The process has shown life in another way: the time so far does not count.
  bool excuse();

  // The heartbeat has changed, or is not to be judged.
  void reset();

 private:
  const Duration enough_;
  Duration could_run_{};
  unsigned in_a_row_ = 0;
};

#endif
