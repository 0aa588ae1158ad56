// Answers the plug-in's question whether a hung data plane may be recovered.
#ifndef MONITOR_RECOVERY_ANSWER_H
#define MONITOR_RECOVERY_ANSWER_H

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "item/recovery.h"
#include "mirt_interface.h"
#include "text/clock_text.h"

// From now on `recovery` decides the answers. Recoveries that were allowed before still count.
// False if the host library accepts no further handler. Needs no memory after the first call.
bool answer_redundancy(std::shared_ptr<const Recovery> recovery);

// The number of each decision so far: "allowed", "denied", "refused by command", "used up",
// "spared", "ended".
std::map<std::string, unsigned long> recovery_decisions();

// The times of the recoveries that still count. restore_recoveries() adds those from before a
// restart.
std::vector<WallTime> recoveries_taken();
void restore_recoveries(const std::vector<WallTime>& taken);

// Sets the record in which the item of this thread names the hung thread before it asks; null:
// none.
void set_asking_result(const FI_RESULT_S* result);

#endif
