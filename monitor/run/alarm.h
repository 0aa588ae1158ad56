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

  // Evaluates the next answer. The value counts only if the state is kOk. An answer that neither
  // meets nor contradicts the condition changes nothing and does not interrupt a series.
  Change judge(State state, double value, Clock::time_point now);

  bool raised() const { return raised_; }

  // Marks the alarm as raised, because it was raised before a restart.
  void restore() { raised_ = true; }

 private:
  std::optional<bool> holds(State state, double value) const;
  bool has_lasted(const Hold& hold, Clock::time_point now) const;

  const AlarmRule* rule_;
  bool raised_ = false;
  unsigned in_a_row_ = 0;  // consecutive answers that call for a change
  Clock::time_point first_in_row_{};
};

#endif
