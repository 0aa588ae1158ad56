// Alarms that are not to be told for a while.
#ifndef MONITOR_SILENCE_H
#define MONITOR_SILENCE_H

#include <string>

#include "text/clock_text.h"

struct Silence {
  std::string pattern;  // a name, or a glob with "*", "?" and "[...]", of the instances it is about
  WallTime until{};
  std::string reason{};  // for people; may be empty
  WallTime since{};      // when it was asked for
};

#endif
