// One configured item instance.
#ifndef MONITOR_INSTANCE_H
#define MONITOR_INSTANCE_H

#include <string>
#include <vector>

#include "item/alarm_rule.h"
#include "item/item_table.h"
#include "item/params.h"

// A millisecond is as fine as the scheduler waits; more than a year is a slip of the keyboard.
constexpr double kLeastSeconds = 0.001;
constexpr double kMostSeconds = 31622400.0;

struct Instance {
  std::string name;
  const ItemRow* item = nullptr;
  std::vector<Param> params;
  double period_s = 1.0;
  double deadline_s = 10.0;  // beyond the interval that the item measures over by intent
  std::string unit;
  std::vector<AlarmRule> alarms;
  std::string file;   // in which it is configured; empty: the command line
  unsigned line = 0;  // of its table in the file
};

#endif
