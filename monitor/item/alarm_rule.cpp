#include "item/alarm_rule.h"

#include "text/number_text.h"

namespace {

std::string value_condition(const AlarmRule& rule) {
  switch (rule.condition) {
    case AlarmRule::Condition::kAbove:
      return "above " + number_text(rule.bound);
    case AlarmRule::Condition::kBelow:
      return "below " + number_text(rule.bound);
    case AlarmRule::Condition::kEquals:
      return "equals " + number_text(rule.bound);
    default:
      return "";
  }
}

}  // namespace

const char* severity_name(Severity severity) {
  return severity == Severity::kWarning ? "warning" : "critical";
}

std::string hold_text(const Hold& hold) {
  if (hold.seconds > 0.0) return number_text(hold.seconds) + " s";
  return std::to_string(hold.calls) + (hold.calls == 1 ? " call" : " calls");
}

std::string condition_text(const AlarmRule& rule) {
  std::string text = value_condition(rule);
  for (const State state : rule.states) {
    text += (text.empty() ? "" : " or ") + std::string(state_name(state));
  }
  return text;
}
