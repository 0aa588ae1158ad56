#include "run/alarm.h"

#include <algorithm>
#include <cmath>

namespace {

// Items measure in float: 12.3F is not above 12.3.
bool fulfils(AlarmRule::Condition condition, double value, double bound) {
  const auto measured = static_cast<float>(value), limit = static_cast<float>(bound);
  switch (condition) {
    case AlarmRule::Condition::kAbove:
      return measured > limit;
    case AlarmRule::Condition::kBelow:
      return measured < limit;
    case AlarmRule::Condition::kEquals:
      return measured == limit;
    default:
      return false;
  }
}

}  // namespace

Alarm::Change Alarm::judge(State state, double value, Clock::time_point now) {
  const std::optional<bool> condition = holds(state, value);
  if (!condition) return Change::kNone;
  if (*condition == raised_) {
    in_a_row_ = 0;
    return Change::kNone;
  }
  if (in_a_row_++ == 0) first_in_row_ = now;
  if (!has_lasted(raised_ ? rule_->clear_after : rule_->raise_after, now)) return Change::kNone;
  in_a_row_ = 0;
  raised_ = !raised_;
  return raised_ ? Change::kRaised : Change::kCleared;
}

bool Alarm::has_lasted(const Hold& hold, Clock::time_point now) const {
  if (hold.seconds <= 0.0) return in_a_row_ >= hold.calls;
  return now - first_in_row_ >= std::chrono::duration<double>(hold.seconds);
}

// Whether the condition holds; nothing if the answer does not show it.
std::optional<bool> Alarm::holds(State state, double value) const {
  const bool asked_for =
      std::find(rule_->states.begin(), rule_->states.end(), state) != rule_->states.end();
  if (asked_for) return true;
  if (state != State::kOk || std::isnan(value)) return std::nullopt;
  const double bound = raised_ ? rule_->clear_bound.value_or(rule_->bound) : rule_->bound;
  return fulfils(rule_->condition, value, bound);
}
