// The configuration file: which items run, how often, with what.
#ifndef MONITOR_CONFIG_H
#define MONITOR_CONFIG_H

#include <string>
#include <vector>

#include "item/instance.h"
#include "item/recovery.h"
#include "text/mistake.h"

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

#endif
