// An alarm as a state machine over the values of one instance.
#ifndef MONITOR_ALARM_H
#define MONITOR_ALARM_H

#include "item/alarm_rule.h"

// Follows the values of one instance. The rule must outlive it.
class Alarm {
 public:
  enum class Change { kNone, kRaised, kCleared };

  explicit Alarm(const AlarmRule& rule) : rule_(&rule) {}

  // Takes the next value; a call that gave none is left out. Something that is no number is passed
  // over in the same way.
  Change judge(double value);

 private:
  bool holds(double value) const;

  const AlarmRule* rule_;
  bool raised_ = false;
  unsigned in_a_row_ = 0;  // calls that speak for a change
};

#endif
