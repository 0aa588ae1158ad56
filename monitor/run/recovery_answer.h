// The answer to the plug-in's question whether a hung data plane may be recovered.
#ifndef MONITOR_RECOVERY_ANSWER_H
#define MONITOR_RECOVERY_ANSWER_H

#include <map>
#include <string>
#include <vector>

#include "item/recovery.h"
#include "mirt_interface.h"
#include "text/clock_text.h"

// Has the host library answer the plug-in's question as `recovery` says; called again, as the new
// one says, what was allowed before still counted. False if it takes no further handler.
bool answer_redundancy(const Recovery& recovery);

// How often what was decided so far: "allowed", "denied", "refused by command", "used up",
// "spared".
std::map<std::string, unsigned long> recovery_decisions();

// When the recoveries were allowed that still count, and those of before a restart.
std::vector<WallTime> recoveries_taken();
void restore_recoveries(const std::vector<WallTime>& taken);

// The record in which this thread's item names the thread that hangs, before it asks; null: none.
void set_asking_result(const FI_RESULT_S* result);

#endif
