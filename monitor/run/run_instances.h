// The road from instances to an exit code, common to the commands that call items.
#ifndef MONITOR_RUN_INSTANCES_H
#define MONITOR_RUN_INSTANCES_H

#include <string>
#include <vector>

#include "item/instance.h"
#include "item/recovery.h"
#include "run/scheduler.h"

struct RunRequest {
  std::string plugin;  // empty: the one beside the program
  std::string source;  // the configuration file, for messages; empty: the command line
  Schedule schedule;
  Recovery recovery;
  bool json = false;
  bool fail_unless_done = false;  // exit with 1 unless each call did what the item is for
  bool hangup_ends = false;       // SIGHUP ends it
};

// Loads the plug-in, runs the instances, and returns the exit code. Where an item is still inside a
// call at the end, it does not return but ends the process with that code.
int run_instances(const std::vector<Instance>& instances, const RunRequest& request);

#endif
