// A receiver of alarms, from a table [alert.NAME].
#ifndef MONITOR_ALERT_H
#define MONITOR_ALERT_H

#include <optional>
#include <string>
#include <vector>

#include "item/alarm_rule.h"

struct Alert {
  std::string name;
  std::vector<std::string> command;  // program and arguments, run without a shell; empty: none
  double timeout_s = 30.0;           // of the command
  std::string webhook;               // "http://..."; empty: none
  std::optional<AlarmReport> report;
  double repeat_s = 0.0;  // a reminder this often while an alarm lasts; 0: none
  std::string file;       // in which it is configured
  unsigned line = 0;      // of its table in the file
};

#endif
