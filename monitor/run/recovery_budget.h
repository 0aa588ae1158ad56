// How many recoveries there may be within a time.
#ifndef MONITOR_RECOVERY_BUDGET_H
#define MONITOR_RECOVERY_BUDGET_H

#include <chrono>
#include <mutex>
#include <vector>

// At most `at_most` recoveries within any span of time `per`, whichever process or thread they are
// for. Safe on several threads.
class RecoveryBudget {
 public:
  using Clock = std::chrono::steady_clock;

  RecoveryBudget(unsigned at_most, Clock::duration per) : at_most_(at_most), per_(per) {}

  // From now on these are the bounds; what was taken counts on.
  void set(unsigned at_most, Clock::duration per);

  // Takes one recovery, at this moment. False if there is none left.
  bool take(Clock::time_point now);

  // A recovery taken at that moment that was not allowed after all.
  void give_back(Clock::time_point taken);

  // Those that have been taken within the last `per`, and one from before a restart.
  std::vector<Clock::time_point> taken() const;
  void add_taken(Clock::time_point time);

  // From when on there will be one.
  Clock::time_point next() const;

 private:
  mutable std::mutex mutex_;  // guards all below
  unsigned at_most_;
  Clock::duration per_;
  std::vector<Clock::time_point> taken_;  // within the last `per_`, in the order of time
};

#endif
