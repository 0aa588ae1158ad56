// Limits how often a message is logged, and counts suppressed messages.
#ifndef RATE_LIMITER_H
#define RATE_LIMITER_H

#include <atomic>
#include <cstdint>

#include "kelv_jiffies.h"
#include "kelv_time.h"

// All zero when the library is loaded. Several threads may ask at once: in one interval exactly one
// of them prints; the others are counted.
class RateLimiter {
 public:
  struct Verdict {
    bool print;
    uint32_t missed;  // first log that so many messages were suppressed; 0: log nothing
  };

  Verdict ask() noexcept {
    const uint64_t now = kelv_get_jiffies();
    Verdict verdict{false, 0};
    uint64_t last = ullLast_.load();
    const bool due = time_after_eq(now, last + kIntervalJiffies) != 0;
    const bool nothing_printed_yet = last == 0 && uiPrinted_.load() == 0;
    // Only one thread advances ullLast_. A thread that fails to advance it does not print.
    if ((due || nothing_printed_yet) && ullLast_.compare_exchange_strong(last, now)) {
      if (due && uiMissed_.load() != 0 && ulstart_.load() + kSummaryJiffies <= now) {
        verdict.missed = uiMissed_.exchange(0);
        ulstart_.store(kelv_get_jiffies());
      }
      // At tick 0 several threads can exchange 0 with 0; uiPrinted_ shows which was the first.
      verdict.print = uiPrinted_.exchange(1) == 0 || due;
    }
    if (!verdict.print) uiMissed_.fetch_add(1);
    return verdict;
  }

 private:
  static constexpr uint64_t kIntervalJiffies = 15000;
  static constexpr uint64_t kSummaryJiffies = 150000;

  std::atomic<uint64_t> ullLast_{0};    // tick of the last message, the start of the interval
  std::atomic<uint32_t> uiPrinted_{0};  // messages in this interval, 0 only before the first
  std::atomic<uint32_t> uiMissed_{0};   // messages suppressed since the last summary
  std::atomic<uint64_t> ulstart_{0};    // tick of the last summary
};

#endif
