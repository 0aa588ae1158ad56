// The configuration: what is watched, how often, and who is told.
#ifndef MONITOR_CONFIG_H
#define MONITOR_CONFIG_H

#include <string>

#include "config/config_trust.h"
#include "item/plan.h"
#include "text/mistake.h"

// What the file and those that it includes gave: a configuration to use if there are no mistakes.
// Mistakes and warnings are each in the order of their files and lines.
struct ConfigReading {
  Plan config;
  Findings findings;
};

enum class Warnings { kAllowed, kAreMistakes };

// Reads a regular file, or a descriptor of this process that `path` names, such as /dev/stdin: any
// other pipe or device could keep the reader waiting for ever. With Trust::kChecked nobody else
// than root and the user of this process may be able to write what is read.
ConfigReading read_config(const std::string& path, Warnings warnings = Warnings::kAllowed,
                          Trust trust = Trust::kChecked);

#endif
