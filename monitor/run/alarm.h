// An alarm as a state machine over the answers of one instance.
#ifndef MONITOR_ALARM_H
#define MONITOR_ALARM_H

#include <chrono>
#include <optional>

#include "item/alarm_rule.h"

// Follows the answers of one instance. The rule must outlive it.
class Alarm {
 public:
  using Clock = std::chrono::steady_clock;
  enum class Change { kNone, kRaised, kCleared };

  explicit Alarm(const AlarmRule& rule) : rule_(&rule) {}

  // Takes the next answer: the value counts if it was measured (kOk), otherwise only the state
  // does. An answer that says neither yes nor no changes nothing, and a row goes on after it.
  Change judge(State state, double value, Clock::time_point now);

  bool raised() const { return raised_; }

  // It was raised before a restart of the program.
  void restore() { raised_ = true; }

 private:
  std::optional<bool> holds(State state, double value) const;
  bool has_lasted(const Hold& hold, Clock::time_point now) const;

  const AlarmRule* rule_;
  bool raised_ = false;
  unsigned in_a_row_ = 0;  // answers that speak for a change
  Clock::time_point first_in_row_{};
};

#endif
