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

enum class Severity { kWarning, kCritical };

// "warning" or "critical"
const char* severity_name(Severity severity);

// For how long something must hold: for a number of calls in a row, or, if `seconds` is not 0, for
// that time.
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
  std::optional<double> clear_bound;  // once raised the condition is that with this bound
  std::vector<State> states;          // each of these counts like the condition
  Hold raise_after;                   // with the condition or such a state
  Hold clear_after;                   // measured without it
  Severity severity = Severity::kCritical;
  std::vector<std::string> alerts;  // the names of the [alert.NAME] that are told
  std::optional<AlarmReport> report;
};

// "above 90", "failed or blind", "above 90 or failed"
std::string condition_text(const AlarmRule& rule);

#endif
