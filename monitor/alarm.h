// When the values of an instance are worth an alarm, and what is sent then.
#ifndef MONITOR_ALARM_H
#define MONITOR_ALARM_H

#include <optional>
#include <string>
#include <vector>

#include "item_table.h"
#include "params.h"

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

// Follows the values of one instance. The rule must outlive it.
class Alarm {
 public:
  enum class Change { kNone, kRaised, kCleared };

  explicit Alarm(const AlarmRule& rule) : rule_(&rule) {}

  // Takes the next value; a call that gave none is left out. Something that is no number is passed
  // over in the same way.
  Change judge(double value);

  const AlarmRule& rule() const { return *rule_; }

 private:
  bool holds(double value) const;

  const AlarmRule* rule_;
  bool raised_ = false;
  unsigned in_a_row_ = 0;  // calls that speak for a change
};

#endif
