#include "run/alarm.h"

#include <cmath>

Alarm::Change Alarm::judge(double value) {
  if (std::isnan(value)) return Change::kNone;
  if (holds(value) == raised_) {
    in_a_row_ = 0;
    return Change::kNone;
  }
  if (++in_a_row_ < (raised_ ? rule_->clear_after : rule_->raise_after)) return Change::kNone;
  in_a_row_ = 0;
  raised_ = !raised_;
  return raised_ ? Change::kRaised : Change::kCleared;
}

// Items measure in float: 12.3F is not to be above 12.3.
bool Alarm::holds(double value) const {
  const auto measured = static_cast<float>(value), bound = static_cast<float>(rule_->bound);
  switch (rule_->condition) {
    case AlarmRule::Condition::kAbove:
      return measured > bound;
    case AlarmRule::Condition::kBelow:
      return measured < bound;
    default:
      return measured == bound;
  }
}
