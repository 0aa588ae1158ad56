// At most one message of a kind in a while, and a count of those that were left out.
#ifndef RATE_LIMITER_H
#define RATE_LIMITER_H

#include <atomic>
#include <cstdint>

#include "kelv_jiffies.h"
#include "kelv_time.h"

// All zero at load. Any number of threads may ask at once: within one interval exactly one of them
// prints, and every other is counted.
class RateLimiter {
 public:
  struct Verdict {
    bool print;
    uint32_t missed;  // log first that so many were left out; 0: say nothing
  };

  Verdict ask() noexcept {
    const uint64_t now = kelv_get_jiffies();
    Verdict verdict{false, 0};
    uint64_t last = ullLast_.load();
    const bool due = time_after_eq(now, last + kIntervalJiffies) != 0;
    const bool nothing_printed_yet = last == 0 && uiPrinted_.load() == 0;
    // One thread alone moves ullLast_ on. Whoever comes too late, or finds it moved, keeps quiet.
    if ((due || nothing_printed_yet) && ullLast_.compare_exchange_strong(last, now)) {
      if (due && uiMissed_.load() != 0 && ulstart_.load() + kSummaryJiffies <= now) {
        verdict.missed = uiMissed_.exchange(0);
        ulstart_.store(kelv_get_jiffies());
      }
      // At tick 0 several may have moved it from 0 to 0: uiPrinted_ tells which was the first.
      verdict.print = uiPrinted_.exchange(1) == 0 || due;
    }
    if (!verdict.print) uiMissed_.fetch_add(1);
    return verdict;
  }

 private:
  static constexpr uint64_t kIntervalJiffies = 15000;
  static constexpr uint64_t kSummaryJiffies = 150000;

  std::atomic<uint64_t> ullLast_{0};    // the last message, with which an interval starts
  std::atomic<uint32_t> uiPrinted_{0};  // messages in this interval, 0 only before the first
  std::atomic<uint32_t> uiMissed_{0};   // messages left out since the last summary
  std::atomic<uint64_t> ulstart_{0};    // the last summary
};

#endif
