// When the answers of an instance are worth an alarm, and what is sent then.
#ifndef MONITOR_ALARM_RULE_H
#define MONITOR_ALARM_RULE_H

#include <optional>
#include <string>
#include <vector>

#include "item/item_table.h"
#include "item/params.h"
#include "item/state.h"

// The item that a raised alarm calls, its values not filled in yet.
struct AlarmReport {
  const ItemRow* item = nullptr;
  std::vector<Param> params;
};

struct AlarmRule {
  enum class Condition { kNone, kAbove, kBelow, kEquals };

  Condition condition = Condition::kNone;  // of a measured value
  double bound = 0.0;
  std::vector<State> states;  // each of these counts like the condition
  unsigned raise_after = 1;   // calls in a row with the condition or such a state
  unsigned clear_after = 1;   // calls in a row that were measured without it
  std::optional<AlarmReport> report;
};

// "above 90", "failed or blind", "above 90 or failed"
std::string condition_text(const AlarmRule& rule);

#endif
