// Checks the condition of an alarm against the values that its item can return.
#ifndef MONITOR_VALUE_RANGE_H
#define MONITOR_VALUE_RANGE_H

#include <optional>
#include <string>

#include "item/alarm_rule.h"
#include "item/item_table.h"

struct BoundFault {
  bool is_mistake;  // the condition is never true; else it is rarely or always true
  bool holds_always;
  std::string text;  // "is 1000, which never holds ...": what was found, what was expected
};

// The fault of this bound for the values of the item; nothing if it is usable.
std::optional<BoundFault> check_bound(const ItemRow& item, AlarmRule::Condition condition,
                                      double bound);

#endif
