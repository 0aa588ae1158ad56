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
    // One thread alone opens an interval; the others find it opened.
    if (time_after_eq(now, last + kIntervalJiffies) != 0 &&
        ullLast_.compare_exchange_strong(last, now)) {
      uiPrinted_.store(0);
      if (uiMissed_.load() != 0 && ulstart_.load() + kSummaryJiffies <= now) {
        verdict.missed = uiMissed_.exchange(0);
        ulstart_.store(kelv_get_jiffies());
      }
    }
    verdict.print = uiPrinted_.exchange(1) == 0;
    if (verdict.print) {
      ullLast_.store(now);
    } else {
      uiMissed_.fetch_add(1);
    }
    return verdict;
  }

 private:
  static constexpr uint64_t kIntervalJiffies = 15000;
  static constexpr uint64_t kSummaryJiffies = 150000;

  std::atomic<uint64_t> ullLast_{0};    // the last message, or the last start of an interval
  std::atomic<uint32_t> uiPrinted_{0};  // messages printed in this interval, 0 or 1
  std::atomic<uint32_t> uiMissed_{0};   // messages left out since the last summary
  std::atomic<uint64_t> ulstart_{0};    // the last summary
};

#endif
