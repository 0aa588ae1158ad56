// The configuration file: which items run, how often, with what.
#ifndef MONITOR_CONFIG_H
#define MONITOR_CONFIG_H

#include <optional>
#include <string>
#include <vector>

#include "alarm.h"
#include "item_table.h"
#include "mistake.h"
#include "params.h"
#include "recovery.h"

// A millisecond is as fine as the scheduler waits; more than a year is a slip of the keyboard.
constexpr double kLeastSeconds = 0.001;
constexpr double kMostSeconds = 31622400.0;

// One configured item instance.
struct Instance {
  std::string name;
  const ItemRow* item = nullptr;
  std::vector<Param> params;
  double period_s = 1.0;
  double deadline_s = 10.0;  // beyond the interval that the item measures over by intent
  std::string unit;
  std::optional<AlarmRule> alarm;
  unsigned line = 0;  // of its table in the file
};

struct Config {
  std::vector<Instance> instances;
  Recovery recovery;
  unsigned workers = 0;  // the most calls at one time; 0: as many as there can be
};

// What a file gave: a configuration to use if there are no mistakes, else every mistake in the
// order of its lines.
struct ConfigReading {
  Config config;
  Mistakes mistakes;
};

ConfigReading read_config(const std::string& path);

// "FILE:LINE: text", or "FILE: text" where no line is to blame.
std::string mistake_text(const std::string& path, const Mistake& mistake);

#endif
