// A silence: for some time, some alarms send no alert.
#ifndef MONITOR_SILENCE_H
#define MONITOR_SILENCE_H

#include <string>

#include "text/clock_text.h"

struct Silence {
  std::string pattern;  // the instance: a name, or a glob with "*", "?" and "[...]"
  WallTime until{};
  std::string reason{};  // free text; may be empty
  WallTime since{};      // when it was added
};

#endif
