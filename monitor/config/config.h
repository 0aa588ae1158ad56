// Reads the configuration.
#ifndef MONITOR_CONFIG_H
#define MONITOR_CONFIG_H

#include <string>

#include "config/config_trust.h"
#include "item/plan.h"
#include "text/mistake.h"

// The result of reading the file and its included files. The configuration is usable if there are
// no mistakes. Mistakes and warnings are sorted by file and line.
struct ConfigReading {
  Plan config;
  Findings findings;
};

enum class Warnings { kAllowed, kAreMistakes };

// Reads a regular file, or a descriptor of this process such as /dev/stdin. Other pipes and devices
// are refused, because reading them could wait for ever. With Trust::kChecked, a file that users
// other than root and the user of this process can write to is a mistake.
ConfigReading read_config(const std::string& path, Warnings warnings = Warnings::kAllowed,
                          Trust trust = Trust::kChecked);

#endif
