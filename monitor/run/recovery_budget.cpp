#include "run/recovery_budget.h"

#include <algorithm>

bool RecoveryBudget::take(Clock::time_point now) {
  const std::lock_guard lock(mutex_);
  const auto is_past = [&](Clock::time_point taken) { return now - taken >= per_; };
  taken_.erase(std::remove_if(taken_.begin(), taken_.end(), is_past), taken_.end());
  if (taken_.size() >= at_most_) return false;
  taken_.push_back(now);
  return true;
}

void RecoveryBudget::give_back(Clock::time_point taken) {
  const std::lock_guard lock(mutex_);
  const auto found = std::find(taken_.begin(), taken_.end(), taken);
  if (found != taken_.end()) taken_.erase(found);
}

RecoveryBudget::Clock::time_point RecoveryBudget::next() const {
  const std::lock_guard lock(mutex_);
  return taken_.size() < at_most_ ? Clock::time_point() : taken_.front() + per_;
}

void RecoveryBudget::set(unsigned at_most, Clock::duration per) {
  const std::lock_guard lock(mutex_);
  at_most_ = at_most;
  per_ = per;
}

std::vector<RecoveryBudget::Clock::time_point> RecoveryBudget::taken() const {
  const std::lock_guard lock(mutex_);
  return taken_;
}

void RecoveryBudget::add_taken(Clock::time_point time) {
  const std::lock_guard lock(mutex_);
  taken_.insert(std::upper_bound(taken_.begin(), taken_.end(), time), time);
}
