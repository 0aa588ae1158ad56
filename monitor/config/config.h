// The configuration file: which items run, how often, with what.
#ifndef MONITOR_CONFIG_H
#define MONITOR_CONFIG_H

#include <string>
#include <vector>

#include "item/alert.h"
#include "item/instance.h"
#include "item/recovery.h"
#include "text/mistake.h"

struct Config {
  std::vector<Instance> instances;
  std::vector<Alert> alerts;
  Recovery recovery;
  std::string state_file;  // what must outlast a restart; empty: nothing is kept
  unsigned workers = 0;    // the most calls at one time; 0: as many as there can be
};

// What a file gave: a configuration to use if there are no mistakes. Mistakes and warnings are each
// in the order of their lines.
struct ConfigReading {
  Config config;
  Findings findings;
};

enum class Warnings { kAllowed, kAreMistakes };

// Reads a regular file, or a descriptor of this process that `path` names, such as /dev/stdin: any
// other pipe or device could keep the reader waiting for ever.
ConfigReading read_config(const std::string& path, Warnings warnings = Warnings::kAllowed);

#endif
