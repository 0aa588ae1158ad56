#include "run/gap_watch.h"

#include <algorithm>

GapWatch::Clock::duration GapWatch::before_wait(Clock::time_point now, Clock::time_point until) {
  const Clock::duration gap = note(now);
  expected_ = std::max(now, until);
  return gap;
}

GapWatch::Clock::duration GapWatch::after_wait(Clock::time_point now) {
  const Clock::duration gap = note(now);
  expected_ = now;
  return gap;
}

GapWatch::Clock::duration GapWatch::note(Clock::time_point now) {
  const Clock::duration length = now - expected_;
  if (length < kLeast) return Clock::duration::zero();
  gaps_[next_] = {now, length};
  next_ = (next_ + 1) % gaps_.size();
  return length;
}

GapWatch::Clock::duration GapWatch::total_since(Clock::time_point from) const {
  Clock::duration total = Clock::duration::zero();
  for (const Gap& gap : gaps_) {
    if (gap.end > from) total += std::min(gap.length, gap.end - from);
  }
  return total;
}
