// When the values of an instance are worth an alarm, and what is sent then.
#ifndef MONITOR_ALARM_RULE_H
#define MONITOR_ALARM_RULE_H

#include <optional>
#include <string>
#include <vector>

#include "item/item_table.h"
#include "item/params.h"

// The item that a raised alarm calls, its values not filled in yet.
struct AlarmReport {
  const ItemRow* item = nullptr;
  std::vector<Param> params;
};

struct AlarmRule {
  enum class Condition { kAbove, kBelow, kEquals };

  Condition condition = Condition::kAbove;
  double bound = 0.0;
  unsigned raise_after = 1;  // calls in a row with the condition
  unsigned clear_after = 1;  // calls in a row without it
  std::optional<AlarmReport> report;
};

// "above 90"
std::string condition_text(const AlarmRule& rule);

#endif
