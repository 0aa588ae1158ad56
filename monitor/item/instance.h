// One configured item instance.
#ifndef MONITOR_INSTANCE_H
#define MONITOR_INSTANCE_H

#include <string>
#include <vector>

#include "item/alarm_rule.h"
#include "item/item_table.h"
#include "item/params.h"

// The scheduler's resolution is one millisecond; more than a year is probably a typing error.
constexpr double kLeastSeconds = 0.001;
constexpr double kMostSeconds = 31622400.0;

struct Instance {
  std::string name;
  const ItemRow* item = nullptr;
  std::vector<Param> params;
  double period_s = 1.0;
  double deadline_s = 10.0;  // added to the interval for which the item sleeps to measure
  std::string unit;
  std::vector<AlarmRule> alarms;
  std::string file;   // the configuration file; empty: the command line
  unsigned line = 0;  // line of its table in the file
};

#endif
