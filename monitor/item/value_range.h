// Which values an item can give, and so which conditions of an alarm make sense.
#ifndef MONITOR_VALUE_RANGE_H
#define MONITOR_VALUE_RANGE_H

#include <optional>
#include <string>

#include "item/alarm_rule.h"
#include "item/item_table.h"

struct BoundFault {
  bool is_mistake;  // the condition can never hold; else it hardly ever does, or always
  bool holds_always;
  std::string text;  // "is 1000, which never holds ...": what was found, what was expected
};

// What is wrong with the bound of a condition on the item's values.
std::optional<BoundFault> check_bound(const ItemRow& item, AlarmRule::Condition condition,
                                      double bound);

#endif
