// The conditions of an alarm, and what is sent when it is raised.
#ifndef MONITOR_ALARM_RULE_H
#define MONITOR_ALARM_RULE_H

#include <optional>
#include <string>
#include <vector>

#include "item/item_table.h"
#include "item/params.h"
#include "item/state.h"

// The item that a raised alarm calls; its placeholders are not filled in yet.
struct AlarmReport {
  const ItemRow* item = nullptr;
  std::vector<Param> params;
};

enum class Severity { kWarning, kCritical };

// "warning" or "critical"
const char* severity_name(Severity severity);

// How long a condition must last: a number of consecutive calls, or that time if `seconds` is not
// 0.
struct Hold {
  unsigned calls = 1;
  double seconds = 0.0;
};

// "3 calls", "1 call", "90 s"
std::string hold_text(const Hold& hold);

struct AlarmRule {
  enum class Condition { kNone, kAbove, kBelow, kEquals };

  Condition condition = Condition::kNone;  // of a measured value
  double bound = 0.0;
  std::optional<double> clear_bound;  // bound of the condition while the alarm is raised
  std::vector<State> states;          // each of these states also meets the condition
  Hold raise_after;                   // with the condition or one of the states
  Hold clear_after;                   // measured without the condition
  Severity severity = Severity::kCritical;
  std::vector<std::string> alerts;  // the names of the [alert.NAME] tables to use
  std::optional<AlarmReport> report;
};

// "above 90", "failed or blind", "above 90 or failed"
std::string condition_text(const AlarmRule& rule);

#endif
