// Limits the number of recoveries within a time.
#ifndef MONITOR_RECOVERY_BUDGET_H
#define MONITOR_RECOVERY_BUDGET_H

#include <chrono>
#include <mutex>
#include <vector>

// Allows at most `at_most` recoveries within any time `per`, for all processes and threads
// together. Can be used on several threads.
class RecoveryBudget {
 public:
  using Clock = std::chrono::steady_clock;

  RecoveryBudget(unsigned at_most, Clock::duration per) : at_most_(at_most), per_(per) {}

  // Changes the limits. Recoveries that were taken still count.
  void set(unsigned at_most, Clock::duration per);

  // Takes one recovery at this time. False if the limit is reached.
  bool take(Clock::time_point now);

  // Returns a recovery, taken at that time, that was not used.
  void give_back(Clock::time_point taken);

  // The recoveries taken within the last `per`. add_taken() adds one from before a restart.
  std::vector<Clock::time_point> taken() const;
  void add_taken(Clock::time_point time);

  // The earliest time at which a recovery is possible.
  Clock::time_point next() const;

 private:
  mutable std::mutex mutex_;  // guards all below
  unsigned at_most_;
  Clock::duration per_;
  std::vector<Clock::time_point> taken_;  // within the last `per_`, oldest first
};

#endif
