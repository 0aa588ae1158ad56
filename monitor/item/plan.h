// All that a run works with. A reload brings a new one.
#ifndef MONITOR_PLAN_H
#define MONITOR_PLAN_H

#include <string>
#include <vector>

#include "item/alert.h"
#include "item/instance.h"
#include "item/recovery.h"

struct Plan {
  std::vector<Instance> instances;
  std::vector<Alert> alerts;
  Recovery recovery;
  std::string state_file;     // what must outlast a restart; empty: nothing is kept
  std::string status_socket;  // where the monitor answers; empty: nowhere
  unsigned workers = 0;       // the most calls at one time; 0: as many as there can be
};

// True if both describe the same watch, wherever they are configured: a call, a context and an
// alarm of the one are as good for the other.
bool same_watch(const Instance& a, const Instance& b);

#endif
