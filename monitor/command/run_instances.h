// The road from instances to an exit code, common to the commands that call items.
#ifndef MONITOR_RUN_INSTANCES_H
#define MONITOR_RUN_INSTANCES_H

#include <functional>
#include <optional>
#include <string>

#include "item/plan.h"
#include "run/reloader.h"
#include "run/scheduler.h"

struct RunRequest {
  std::string plugin;  // empty: the one beside the program
  Schedule schedule;
  bool json = false;
  bool fail_unless_done = false;  // exit with 1 unless each call did what the item is for
  bool hangup_ends = false;       // SIGHUP ends it; else it has the configuration read again
  Reloader::Read reload{};        // empty: there is nothing to read again
};

// Loads the plug-in, runs the plan, and returns the exit code. Where an item is still inside a call
// at the end, it does not return but ends the process with that code.
int run_instances(const Plan& plan, const RunRequest& request);

#endif
