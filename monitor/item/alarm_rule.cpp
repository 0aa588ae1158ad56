#include "item/alarm_rule.h"

#include "text/number_text.h"

std::string condition_text(const AlarmRule& rule) {
  const char* const word = rule.condition == AlarmRule::Condition::kAbove   ? "above "
                           : rule.condition == AlarmRule::Condition::kBelow ? "below "
                                                                            : "equals ";
  return word + number_text(rule.bound);
}
