#include "run/alarm.h"

#include <algorithm>
#include <cmath>

namespace {

// Items measure in float: 12.3F is not above 12.3.
bool fulfils(const AlarmRule& rule, double value) {
  const auto measured = static_cast<float>(value), bound = static_cast<float>(rule.bound);
  switch (rule.condition) {
    case AlarmRule::Condition::kAbove:
      return measured > bound;
    case AlarmRule::Condition::kBelow:
      return measured < bound;
    case AlarmRule::Condition::kEquals:
      return measured == bound;
    default:
      return false;
  }
}

}  // namespace

Alarm::Change Alarm::judge(State state, double value) {
  const std::optional<bool> condition = holds(state, value);
  if (!condition) return Change::kNone;
  if (*condition == raised_) {
    in_a_row_ = 0;
    return Change::kNone;
  }
  if (++in_a_row_ < (raised_ ? rule_->clear_after : rule_->raise_after).calls) return Change::kNone;
  in_a_row_ = 0;
  raised_ = !raised_;
  return raised_ ? Change::kRaised : Change::kCleared;
}

// Nothing if the answer tells neither that the condition holds nor that it does not.
std::optional<bool> Alarm::holds(State state, double value) const {
  const bool asked_for =
      std::find(rule_->states.begin(), rule_->states.end(), state) != rule_->states.end();
  if (asked_for) return true;
  if (state != State::kOk || std::isnan(value)) return std::nullopt;
  return fulfils(*rule_, value);
}
